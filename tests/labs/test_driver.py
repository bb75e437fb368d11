"""The driver over a serial console, which has one way for output and errors: a shell of this machine, whose hwreg is
that of a simulated board."""

import fcntl
import logging
import os
import pty
import select
import socket
import subprocess
import time
import types

import attr
import pexpect
import pytest
from labgrid import Environment, target_factory
from labgrid.binding import StateError
from labgrid.driver import Driver, ExecutionError
from labgrid.driver.consoleexpectmixin import ConsoleExpectMixin
from labgrid.protocol import ConsoleProtocol

import hwreg.labgrid_driver
from harness import TOP
from hwreg import Machine, NoAnswer, NotAllowed, Sim, TimedOut

PROGRAMS = {
    "hwreg": f"""case $2 in SLOW) exec sleep 30 ;; BROKEN) echo out; echo err >&2; exit 9 ;; esac
exec {TOP}/sim/hwreg-sim "$@" """,
    "hwreg-check": f'exec {TOP}/sim/hwreg-sim --preflight "$@"',
}
ENVIRONMENT = """
targets:
  main:
    drivers:
      TerminalDriver: {}
      ShellDriver:
        prompt: 'board7.lab# ?'
        login_prompt: 'login: '
        username: root
      HwregDriver:
        program: FOLDER/hwreg
        lock: FOLDER/lock
        timeout: 5
imports:
  - hwreg.labgrid_driver
"""


@target_factory.reg_driver
@attr.s(eq=False)
class TerminalDriver(ConsoleExpectMixin, Driver, ConsoleProtocol):
    """A shell on a terminal, as it is at the other end of a serial line."""

    logger = logging.getLogger("terminal")
    txdelay = 0.0

    def on_activate(self):
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            os.execlpe("dash", "dash", "-i", {**os.environ, "PS1": "board7.lab# "})

    def on_deactivate(self):
        os.close(self.terminal)
        os.waitpid(self.child, 0)

    def _read(self, size=1, timeout=0.0):
        if not select.select([self.terminal], [], [], timeout)[0]:
            raise pexpect.TIMEOUT("no output")
        return os.read(self.terminal, 4096)

    def _write(self, data):
        return os.write(self.terminal, data)


@pytest.fixture
def target(tmp_path):
    for name, text in PROGRAMS.items():
        (tmp_path / name).write_text(f"#!/bin/sh\n{text}\n")
        (tmp_path / name).chmod(0o755)
    (tmp_path / "board7.yaml").write_text(ENVIRONMENT.replace("FOLDER", str(tmp_path)))
    environment = Environment(str(tmp_path / "board7.yaml"))
    yield environment.get_target()
    environment.cleanup()


@pytest.fixture
def board(target):
    return target.get_driver("HwregDriver").machine


def test_a_machine_over_a_console_reads_as_one_without(board):
    simulated = Machine(Sim())
    for read in (
        lambda machine: machine.pci.read(0, 0, 0, 0, 32),
        lambda machine: machine.pci.read(0, 0x1F, 0, 0x100, 16),
        lambda machine: machine.msr.read(0, 0x1A0),
        lambda machine: machine.pci.config(0, 0, 0),
        lambda machine: machine.smbios.structures(1),
        lambda machine: machine.run("/PCI", "/RB", "0", "0", "0", "0").stdout.replace("\r\n", "\n"),
        lambda machine: machine.check("/PCI", "/RB", "0").verdict,
    ):
        assert read(board) == read(simulated)


def test_output_error_and_status_are_kept_apart(board):
    ran = board.run("/IO", "BROKEN")
    assert (ran.stdout, ran.stderr, ran.status) == ("out\n", "err", 9)


def test_a_command_ends_in_time(board):
    with pytest.raises(TimedOut, match="ended after 5 s"):
        board.run("/IO", "SLOW")
    assert board.pci.read(0, 0, 0, 0, 8) == 0x86


def test_the_lock_on_the_target_is_waited_for(board, tmp_path):
    with open(tmp_path / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        with pytest.raises(TimedOut, match="lock was held by somebody else"):
            board.pci.read(0, 0, 0, 0, 8)
    assert board.pci.read(0, 0, 0, 0, 8) == 0x86


def test_power_is_not_switched_unless_the_environment_says_so(target, board):
    with pytest.raises(NotAllowed):
        board.rtc.shutdown()
    driver = target.get_driver("HwregDriver")
    target.deactivate(driver)
    driver.power = True  # as the file's `power: true` does
    target.get_driver("HwregDriver").machine.rtc.shutdown()


def test_without_its_connection_there_is_no_machine(target, board):
    target.deactivate(target.get_driver("ShellDriver"))
    with pytest.raises(StateError):
        assert target.get_driver("HwregDriver", activate=False).machine


class Way:
    """A driver to which this happens."""

    def __init__(self, happens):
        self.happens = happens

    def run(self, *_, **__):
        if isinstance(self.happens, Exception):
            raise self.happens
        return self.happens


@pytest.mark.parametrize("happens, error, says", [
    (ExecutionError("Keepalive no longer running"), NoAnswer, "Keepalive no longer running"),
    (pexpect.TIMEOUT("late"), TimedOut, "given up"),
    (([], ["client_loop: send disconnect: Broken pipe"], 255), NoAnswer, "Broken pipe"),
], ids=["no way", "late", "cut"])
def test_what_happens_on_the_way_is_an_error_of_the_package(happens, error, says):
    machine = Machine(hwreg.labgrid_driver.Bound(Way(happens)))
    with pytest.raises(error, match=says):
        machine.pci.read(0, 0, 0, 0, 8)


@pytest.fixture
def keepalive():
    """Starts what SSHDriver keeps running on the board."""
    started = []

    def start(script):
        pipes = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE)
        started.append(subprocess.Popen(["sh", "-c", script], **pipes))
        return started[-1]

    yield start
    for process in started:
        process.kill()
        process.communicate()


def test_the_machine_waits_until_the_connections_own_command_runs(target, tmp_path, keepalive):
    driver = target.get_driver("HwregDriver", activate=False)
    driver.command._keepalive = keepalive(f"sleep 0.5; touch {tmp_path}/runs; exec cat")  # as SSHDriver has one
    assert target.get_driver("HwregDriver").machine
    assert (tmp_path / "runs").exists()
    assert driver.command._keepalive.communicate(b"ends with its input", timeout=20)[0] == b"ends with its input"


@pytest.mark.parametrize("script, seconds", [("exit 255", 60), ("exec sleep 60", 0.2)], ids=["ended", "silent"])
def test_a_connections_command_that_does_not_answer_is_left_to_its_driver(keepalive, script, seconds):
    began = time.monotonic()
    hwreg.labgrid_driver.await_keepalive(types.SimpleNamespace(_keepalive=keepalive(script)), seconds)
    assert time.monotonic() - began < 30


# ssh, asked to end a shared connection, says that it does and removes the socket a little later.
SLOW_EXIT = """#!/bin/sh
case "$*" in
*"ControlPath=$FOLDER/control%%1 -O exit"*) { sleep 0.5; rm "$FOLDER/control%1"; } >/dev/null 2>&1 & ;;
esac
"""


def test_the_connection_is_gone_before_its_folder_is_removed(target, tmp_path, monkeypatch):
    (tmp_path / "ssh").write_text(SLOW_EXIT)
    (tmp_path / "ssh").chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
    monkeypatch.setenv("FOLDER", str(tmp_path))
    control = tmp_path / "control%1"
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(control))
        driver = target.get_driver("HwregDriver")
        driver.command.control = str(control)  # as SSHDriver has one
        target.deactivate(driver)
    assert not control.exists()


def test_a_connection_that_does_not_end_is_left_to_its_driver(tmp_path, monkeypatch):
    (tmp_path / "ssh").write_text("#!/bin/sh\nexec sleep 60\n")
    (tmp_path / "ssh").chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path}:{os.environ['PATH']}")
    (tmp_path / "control").touch()
    hwreg.labgrid_driver.end_connection(types.SimpleNamespace(control=str(tmp_path / "control")), seconds=0.2)
    assert (tmp_path / "control").exists()
