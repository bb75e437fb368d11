"""A driver for labgrid: the registers of a target, over whatever runs commands on it (docs/labs.md).

    imports: [hwreg.labgrid_driver]         # in the environment file
    drivers: ... SSHDriver: {} HwregDriver: {}

    machine = target.get_driver("HwregDriver").machine
"""

# mypy: ignore-errors
# labgrid tells no types.

from __future__ import annotations

import contextlib
import os
import select
import shlex
import subprocess
import time
from collections.abc import Sequence
from typing import Any

import attr
from labgrid.driver import Driver, ExecutionError
from labgrid.factory import target_factory
from labgrid.protocol import CommandProtocol
from pexpect import TIMEOUT

from hwreg.machine import Machine
from hwreg.session import LOCK_FILE
from hwreg.transports import Completed, Transport

MARK = "-- standard error of the line above --"
# Standard output goes its way, and standard error comes behind the mark: a serial console has one way for both.
LINE = ("{{ error=$({line} 2>&1 >&3 3>&- </dev/null); }} 3>&1; status=$?; "
        "printf '\\n%s\\n%s\\n' {mark} \"$error\"; exit $status")  # fmt: skip


class Bound(Transport):
    """The way of a driver of labgrid."""

    def __init__(self, command: Any, program: str = "hwreg", prefix: Sequence[str] = ()) -> None:
        super().__init__(program, prefix)
        self.command = command

    def execute(self, line: Sequence[str], seconds: float) -> Completed:
        text = LINE.format(line=shlex.join(self.started(line)), mark=shlex.quote(MARK))
        try:
            out, error, status = self.command.run(text, codec="latin-1", timeout=seconds)
        except (TIMEOUT, subprocess.TimeoutExpired):
            raise TimeoutError from None
        except ExecutionError as problem:
            raise OSError(f"{self.command}: {problem}") from problem
        printed, mark, behind = "\n".join(out).partition(f"\n{MARK}\n")
        # Without the mark the way has ended before the command, and it is the driver that complains.
        return Completed(status, printed, behind if mark else "\n".join(error))


def await_keepalive(command: Any, seconds: float = 10.0) -> None:
    """Waits until the `cat` answers that SSHDriver keeps running on the target.

    SSHDriver starts it and does not wait. Some servers drop a command that begins on a connection while another ends
    there (dropbear 2022.83); when it is this one, SSHDriver runs no more until it is deactivated.
    """
    keepalive = getattr(command, "_keepalive", None)
    if not keepalive or not keepalive.stdin or not keepalive.stdout:
        return
    with contextlib.suppress(BrokenPipeError):  # it has ended, and SSHDriver says so
        os.write(keepalive.stdin.fileno(), b"\n")
    if select.select([keepalive.stdout], [], [], seconds)[0]:
        os.read(keepalive.stdout.fileno(), 1)


def end_connection(command: Any, seconds: float = 10.0) -> None:
    """Ends SSHDriver's shared connection and waits until its socket is gone.

    SSHDriver asks ssh to end it and removes the folder around the socket at once. When ssh removes the socket in the
    middle of that, SSHDriver fails, stays active, and fails at each try from then on.
    """
    control = getattr(command, "control", None)
    if not control or not os.path.exists(control):
        return
    escaped = control.replace("%", "%%")
    with contextlib.suppress(subprocess.TimeoutExpired):  # SSHDriver asks again
        subprocess.run(["ssh", "-F", "none", "-o", f"ControlPath={escaped}", "-O", "exit", "board"],
                       stdin=subprocess.DEVNULL, capture_output=True, timeout=seconds, check=False)  # fmt: skip
    deadline = time.monotonic() + seconds
    while os.path.exists(control) and time.monotonic() < deadline:
        time.sleep(0.01)


@target_factory.reg_driver
@attr.s(eq=False)
class HwregDriver(Driver):
    """Gives a target's registers as `machine`, a hwreg.Machine.

    Args:
        power (bool): let commands run that switch the target off or restart it
        timeout (float): seconds for which a command may wait for the lock, and for which it may run
        lock (str): the file on the target that keeps commands apart
        program (str): hwreg's name on the target
    """

    bindings = {"command": CommandProtocol}
    power = attr.ib(default=False, validator=attr.validators.instance_of(bool))
    timeout = attr.ib(default=60.0, converter=float)
    lock = attr.ib(default=LOCK_FILE, validator=attr.validators.instance_of(str))
    program = attr.ib(default="hwreg", validator=attr.validators.instance_of(str))

    def on_activate(self) -> None:
        self._machine = Machine(Bound(self.command, self.program), power=self.power, timeout=self.timeout,
                                lock=self.lock)  # fmt: skip
        await_keepalive(self.command)

    def on_deactivate(self) -> None:
        end_connection(self.command)

    @property
    @Driver.check_active
    def machine(self) -> Machine:
        return self._machine
