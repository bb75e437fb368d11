"""Where hwreg runs: on this machine, on another one behind ssh, or on a simulated one."""

from __future__ import annotations

import contextlib
import dataclasses
import os
import pathlib
import shlex
import shutil
import signal
import subprocess
from collections.abc import Sequence

PATIENCE = 30.0  # seconds for the way there and back, beyond what the command itself may take
LONGEST = 2_000_000.0  # seconds that can be waited for in one; beyond it the limit there is the only one
ENDING = 15.0  # seconds that a command has to end in when it is told to


@dataclasses.dataclass(frozen=True)
class Completed:
    """What a command left behind. The texts have a character for each byte."""

    status: int
    stdout: str
    stderr: str


class Transport:
    """Carries a line of words, a command and its arguments, to the machine and gives what came back. `execute` is all
    that another way there has to bring along."""

    def __init__(self, program: str = "hwreg", prefix: Sequence[str] = ()) -> None:
        """`prefix` stands before every command there: ("sudo", "-n")."""
        self.program = program
        self.prefix = tuple(prefix)

    def hwreg(self) -> list[str]:
        return [self.program]

    def hwreg_check(self) -> list[str]:
        """hwreg-check, which lies beside hwreg."""
        return [os.path.join(os.path.dirname(self.program), "hwreg-check")]

    def lock_file(self, lock: str | None) -> str | None:
        """The file that keeps commands there apart; None for none."""
        return lock

    def started(self, line: Sequence[str]) -> list[str]:
        """What is started on this machine."""
        return [*self.prefix, *line]

    def execute(self, line: Sequence[str], seconds: float) -> Completed:
        """Runs the line. It has a limit of its own there; `seconds` is when it is given up here (TimeoutError)."""
        child = subprocess.Popen(self.started(line), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, process_group=0)  # fmt: skip
        with child:
            try:
                out, err = child.communicate(timeout=seconds if seconds < LONGEST else None)
            except subprocess.TimeoutExpired:
                end(child)
                raise TimeoutError from None
            except BaseException:
                end(child)
                raise
        return Completed(child.returncode, out.decode("latin-1"), err.decode("latin-1"))


def end(child: subprocess.Popen[bytes]) -> None:
    """Ends a command as Ctrl+C would: hwreg leaves nothing switched behind it. One that belongs to another user is left
    to its own limit."""
    with contextlib.suppress(PermissionError):
        os.killpg(child.pid, signal.SIGTERM)
        try:
            child.communicate(timeout=ENDING)
        except subprocess.TimeoutExpired:
            os.killpg(child.pid, signal.SIGKILL)


class Local(Transport):
    """This machine."""


class Ssh(Transport):
    """Another machine, which the user may log in to with a key. `options` are ssh's."""

    def __init__(self, host: str, user: str | None = None, options: Sequence[str] = (), program: str = "hwreg",
                 prefix: Sequence[str] = ()) -> None:  # fmt: skip
        super().__init__(program, prefix)
        self.host = host
        self.user = user
        self.options = tuple(options)

    def started(self, line: Sequence[str]) -> list[str]:
        user = ["-l", self.user] if self.user is not None else []
        return ["ssh", *self.options, "-T", "-o", "BatchMode=yes", *user, "--", self.host,
                shlex.join([*self.prefix, *line])]  # fmt: skip


class Sim(Transport):
    """A simulated machine, which hwreg-sim runs. With `state` it keeps what is written, else each command begins with
    the machine as the board describes it. `reset` begins with that once."""

    def __init__(self, board: str = "intel", state: str | os.PathLike[str] | None = None, reset: bool = False) -> None:
        super().__init__(find_sim())
        self.board = os.path.abspath(board) if "/" in board or board.endswith(".board") else board
        self.state = None if state is None else os.path.abspath(state)
        self.reset = reset and state is not None

    def hwreg(self) -> list[str]:
        return [*self._sim(), "--"]

    def hwreg_check(self) -> list[str]:
        return [*self._sim(), "--preflight"]

    def _sim(self) -> list[str]:
        state = [] if self.state is None else ["--state", self.state]
        return [self.program, "--board", self.board, *state]

    def lock_file(self, lock: str | None) -> str | None:
        return None if lock is None or self.state is None else f"{self.state}.lock"

    def execute(self, line: Sequence[str], seconds: float) -> Completed:
        if self.reset:  # by a run of its own: a line may have several runs
            super().execute([*self._sim(), "--reset", "--", "/H"], seconds)
            self.reset = False
        return super().execute(line, seconds)


def find_sim() -> str:
    """hwreg-sim: what HWREG_SIM says, that of the source tree in which this file lies, or that in the path."""
    beside = pathlib.Path(__file__).resolve().parents[2] / "sim" / "hwreg-sim"
    found = str(beside) if beside.is_file() else shutil.which("hwreg-sim")
    return os.environ.get("HWREG_SIM") or found or "hwreg-sim"
