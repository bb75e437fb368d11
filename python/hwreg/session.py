"""Runs command lines of hwreg on a machine: one at a time, for a limited time, and takes the answer from what they
print."""

from __future__ import annotations

import dataclasses
import json
import re
import shlex
from collections.abc import Callable, Sequence
from typing import Any, TypeVar

from hwreg import arguments
from hwreg import words as spelling
from hwreg.errors import Failed, NoAnswer, NotAllowed, TimedOut, WrongArgument
from hwreg.foretelling import Foretold, Report
from hwreg.transports import PATIENCE, Transport

T = TypeVar("T")
LOCK_FILE = "/run/lock/hwreg.lock"
LOCK_NOT_HAD = 201  # flock's status then; hwreg ends with it only behind a line that it has printed
GRACE = 10  # seconds between the signal that ends a command and the one that kills it
NO_ACCESS = 6
NOT_STARTED = (126, 127)
ENDED_BY_TIMEOUT = (124, 137)

# Lines by which hwreg says that it has failed; the ring looks for each in the program's sources.
COMPLAINTS = re.compile(r"""
    (?:Read|Write|Dump|Dump\ \(DDR4\))\ addr\ 0x\w+(?:\ offset\ 0x\w+)?\ error! | I2C\ init\ error
    | InitSmuService\ error:\ \w+ | Invalid\ parameter | StartAddr\ error! | FileOpen\ fail! | Write\ to\ buffer\ fail!
    | ERROR:.* | Warnning,.* | \w+LOG\ write\ fail! | RTC\ wait\ time\ out!
""", re.VERBOSE)


@dataclasses.dataclass(frozen=True)
class Ran:
    """One run of hwreg. The status is the low byte of the value that was read, or a status code: the value is in the
    printed line."""

    words: tuple[str, ...]
    status: int
    stdout: str
    stderr: str
    command: str  # what was started on this machine

    @property
    def text(self) -> str:
        """The standard output without the carriage returns of hex views and consoles."""
        return self.stdout.replace("\r\n", "\n")


class Session:
    """What all commands have in common."""

    def __init__(self, transport: Transport, power: bool = False, dry_run: bool = False, timeout: float = 60.0,
                 lock: str | None = LOCK_FILE) -> None:  # fmt: skip
        self.transport = transport
        self.power = power
        self.dry_run = dry_run
        self.timeout = arguments.seconds("timeout", timeout)
        self.lock = transport.lock_file(lock)

    # ---- lines

    def line(self, words: Sequence[str], locked: bool = True, seconds: float | None = None,
             folder: str | None = None) -> list[str]:  # fmt: skip
        """The words that are run there: hwreg's behind the lock and the limit. The lock is handed down to hwreg, so it
        is held until hwreg has ended, whatever becomes of those who wait for it."""
        limit = self.timeout if seconds is None else seconds
        before = [] if folder is None else ["env", f"--chdir={folder}"]
        return [*before, *(self.locking(limit) if locked else []), *limited(limit), *self.transport.hwreg(), *words]

    def locking(self, seconds: float) -> list[str]:
        if self.lock is None:
            return []
        return ["flock", "-F", "-w", spelled(seconds), "-E", str(LOCK_NOT_HAD), self.lock]

    def command(self, *words: str) -> str:
        """The line that `run` with these words starts on this machine."""
        return self.shown(self.line(words, locked=needs_lock(words)))

    def shown(self, line: Sequence[str]) -> str:
        return shlex.join(self.transport.started(line))

    # ---- runs

    def run(self, *words: str) -> Ran:
        """Runs hwreg with these words, whatever they are."""
        spelling.check(words)
        if countdown_holds_lock(words):
            raise WrongArgument("a countdown would hold the lock: run /TIMEOUT /T SECONDS first, and this with /T 0")
        return self.perform(words, locked=needs_lock(words)) or Ran(words, 0, "", "", self.command(*words))

    def perform(self, words: Sequence[str], locked: bool = True, seconds: float | None = None,
                folder: str | None = None) -> Ran | None:  # fmt: skip
        """None in a dry run."""
        self.allow(words)
        return self.execute(words, self.line(words, locked, seconds, folder), seconds)

    def allow(self, words: Sequence[str]) -> None:
        if spelling.is_power(words) and not self.power:
            raise NotAllowed("this can switch the machine off: say Machine(..., power=True)", self.command(*words))

    def execute(self, words: Sequence[str], line: Sequence[str], seconds: float | None = None) -> Ran | None:
        """Runs a line that stands for these words of hwreg."""
        if self.dry_run:
            print(self.shown(line), flush=True)
            return None
        limit = self.timeout if seconds is None else seconds
        try:
            done = self.transport.execute(line, 2 * limit + GRACE + PATIENCE)
        except TimeoutError:
            raise TimedOut("given up", self.shown(line)) from None
        except OSError as error:
            raise NoAnswer(f"not started: {error}", self.shown(line)) from error
        ran = Ran(tuple(words), done.status, done.stdout, done.stderr, self.shown(line))
        if ran.status == LOCK_NOT_HAD and not ran.stdout and self.lock is not None:
            raise TimedOut(f"{self.lock} was held by somebody else for {limit:g} s", ran.command, ran.status)
        if ran.status in ENDED_BY_TIMEOUT and re.search(r"^timeout: ", ran.stderr, re.MULTILINE):
            raise TimedOut(f"ended after {limit:g} s", ran.command, ran.status, ran.stdout, ran.stderr)
        return ran

    # ---- what hwreg-check says

    def check(self, *words: str) -> Foretold:
        """What this line would do, without running it. The machine is not changed and no port is touched."""
        if not words:
            raise WrongArgument("no words: report() tells of the whole machine")
        spelling.check(words)
        return self._told(words, Foretold.of)

    def report(self) -> Report:
        """What the machine allows."""
        return self._told((), Report.of)

    def _told(self, words: Sequence[str], made_of: Callable[[dict[str, Any]], T]) -> T:
        line = [*limited(self.timeout), *self.transport.hwreg_check(), "--json", "--", *words]
        ran = self.execute(words, line)
        if ran is None:
            raise NotAllowed("nothing is foretold in a dry run", self.shown(line))
        about = (ran.command, ran.status, ran.stdout, ran.stderr)
        if ran.status in NOT_STARTED:
            raise NoAnswer("hwreg-check is not installed there", *about)
        try:
            return made_of(json.loads(ran.stdout.encode("latin-1")))
        except (ValueError, KeyError, TypeError) as error:
            raise NoAnswer("hwreg-check does not answer", *about) from error

    # ---- answers

    def answer(self, words: Sequence[str], pattern: str) -> re.Match[str] | None:
        """The line that the pattern matches wholly. None in a dry run."""
        ran = self.perform(words)
        return None if ran is None else self.matches(ran, pattern)[0]

    def matches(self, ran: Ran, pattern: str) -> list[re.Match[str]]:
        """All such lines of a run; one at least."""
        lines = ran.text.split("\n")
        found = [match for match in (re.fullmatch(pattern, line) for line in lines) if match]
        if not found:
            raise self.failure(ran)
        return found

    def whole(self, words: Sequence[str]) -> Ran | None:
        """A run that must end with 0, by which the last of its lines is known to have come."""
        ran = self.perform(words)
        if ran is not None and ran.status != 0:
            raise self.failure(ran)
        return ran

    def value(self, words: Sequence[str], pattern: str) -> int:
        """The hexadecimal number in the pattern's group. 0 in a dry run."""
        found = self.answer(words, pattern)
        return int(found[1], 16) if found else 0

    def failure(self, ran: Ran) -> Failed | NoAnswer:
        """The exception for a run without the line that it should have printed."""
        about = (ran.command, ran.status, ran.stdout, ran.stderr)
        complaint = next((line for line in ran.stdout.splitlines() if COMPLAINTS.fullmatch(line.strip())), None)
        if complaint is not None:
            return Failed(complaint.strip(), *about)
        if ran.status == NO_ACCESS:
            return NoAnswer("no access to the hardware: not root, or the kernel does not allow it", *about)
        if ran.status in NOT_STARTED:
            return NoAnswer("hwreg could not be started there", *about)
        return NoAnswer("no line with an answer", *about)


def spelled(seconds: float) -> str:
    return f"{seconds:.15g}"  # whole numbers are whole, so that a long countdown is not ended early


def limited(seconds: float) -> list[str]:
    """What ends a command in time, there; in our process group, so that a signal to all of it reaches hwreg."""
    return ["timeout", "--foreground", "-v", "-k", str(GRACE), spelled(seconds)]


def needs_lock(words: Sequence[str]) -> bool:
    """All but a countdown alone, which touches the clock and lasts."""
    return "TIMEOUT" not in spelling.as_read(words) or spelling.is_power(words)


def countdown_holds_lock(words: Sequence[str]) -> bool:
    return needs_lock(words) and spelling.is_power(words) and spelling.countdown_of(words) is not None
