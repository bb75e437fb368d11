"""Power cycles with the clock's alarm, restarts, and countdowns."""

from __future__ import annotations

import dataclasses
import re

from hwreg import arguments
from hwreg.errors import NoAnswer, WrongArgument
from hwreg.ports import Index
from hwreg.session import Ran, Session

SHORTEST = 7
SHORTEST_FORCED = 1
DAY = 86400
MARGIN = 5  # seconds that may pass between our look at the clock and hwreg's
CMOS_INDEX = 0x70
SECONDS, MINUTES, HOURS, MODE = 0x00, 0x02, 0x04, 0x0B
BINARY, HOURS_24 = 2, 1  # bits of MODE
LOOKS = 5
RESTARTED = 21
# A connection that the shutdown has cut.
CUT = re.compile(r"closed by remote host|Connection reset|Broken pipe|Connection to .* closed")


@dataclasses.dataclass(frozen=True)
class Cycle:
    """What was begun: the time of the alarm as the clock's registers have it, and the number of the cycle, None where
    none are counted."""

    alarm: str
    count: int | None


class Rtc:
    """All but `now` and `countdown` need Machine(..., power=True).

    A `delay` of seconds is counted down first, without the lock. hwreg counts the cycles that have a delay, be it 0, in
    RTCLOG or RBTLOG: in `folder`, or else in the folder where commands begin there."""

    def __init__(self, session: Session, index: Index) -> None:
        self._session = session
        self._index = index

    def now(self) -> int:
        """The seconds since midnight by the machine's clock at 70h/71h. While it goes on by a second its registers may
        show anything, so a time that is none is looked at again."""
        mode = self._register(MODE)
        if self._session.dry_run:
            return 0
        if not mode >> HOURS_24 & 1:
            raise NoAnswer("the clock counts twelve hours, by which hwreg sets no right alarm")
        for _ in range(LOOKS):
            registers = [self._register(number) for number in (HOURS, MINUTES, SECONDS, HOURS, MINUTES)]
            time = time_of(registers[:3], bool(mode >> BINARY & 1))
            if time is not None and registers[:2] == registers[3:]:
                return time
        raise NoAnswer(f"the clock shows no time of day: its registers are {registers}")

    def countdown(self, seconds: int) -> None:
        """Waits by the machine's clock."""
        seconds = arguments.number("seconds", seconds, 0xFFFFFFFF, 1)
        ran = self._session.perform(["/TIMEOUT", "/T", str(seconds)], locked=False,
                                    seconds=self._session.timeout + seconds)  # fmt: skip
        if ran is not None and (ran.status != 0 or f"...timeout: {seconds} seconds" not in ran.stdout):
            raise self._session.failure(ran)

    def cycle(self, seconds: int, *, delay: int | None = None, force: bool = False,
              folder: str | None = None) -> Cycle:  # fmt: skip
        """Sets the alarm so many seconds ahead and switches the machine off. At least 7, with `force` 1. Not beyond
        midnight, since the clock has no alarm for the next day."""
        least = SHORTEST_FORCED if force else SHORTEST
        if arguments.number("seconds", seconds, DAY) < least:
            raise WrongArgument(f"seconds is {seconds}: an alarm that comes before the machine is off never wakes it; "
                                f"the least is {least}")  # fmt: skip
        words = ["/RTC", str(int(seconds)), *(["/F"] if force else [])]
        self._session.allow(words)
        self._wait(delay, alarm=seconds)
        ran = self._session.perform([*words, *_counted(delay)], folder=folder)
        if ran is None:
            return Cycle("", None)
        alarm = re.search(r"^SetCmos timer:  (\d\d:\d\d:\d\d)$", ran.text, re.MULTILINE)
        if alarm is None or not _is_down(ran, 0):
            raise self._session.failure(ran)
        return Cycle(alarm[1], _count_in(ran, "RTCLOG") if delay is not None else None)

    def restart(self, *, delay: int | None = None, folder: str | None = None) -> int | None:
        """Gives the number of the cycle, None without a delay."""
        return self._reset("/RESET", delay, folder)

    def global_reset(self, *, delay: int | None = None, folder: str | None = None) -> int | None:
        """hwreg counts and does nothing more."""
        return self._reset("/GRESET", delay, folder)

    def shutdown(self, *, delay: int | None = None) -> None:
        """Switches the machine off; nothing wakes it."""
        self._session.allow(["/SHUTDOWN"])
        self._wait(delay)
        ran = self._session.perform(["/SHUTDOWN", *_counted(delay)])
        if ran is not None and not _is_down(ran, 0):
            raise self._session.failure(ran)

    def _reset(self, switch: str, delay: int | None, folder: str | None) -> int | None:
        words = ["/RTC", "0", switch]
        self._session.allow(words)
        self._wait(delay)
        ran = self._session.perform([*words, *_counted(delay)], folder=folder)
        if ran is None:
            return None
        if not _is_down(ran, RESTARTED):
            raise self._session.failure(ran)
        return _count_in(ran, "RBTLOG") if delay is not None else None

    def _wait(self, delay: int | None, alarm: int | None = None) -> None:
        """Counts down, and before and after it makes sure that the alarm, if any, is of the clock's day."""
        self._refuse_midnight(alarm, arguments.number("delay", delay or 0, DAY))
        if delay:
            self.countdown(delay)
            self._refuse_midnight(alarm, 0)

    def _refuse_midnight(self, alarm: int | None, delay: int) -> None:
        if alarm is None or self._session.dry_run:
            return
        begin = (self.now() + delay) % DAY
        if begin + alarm + MARGIN >= DAY:
            raise WrongArgument(f"the machine's clock will show {begin // 3600:02}:{begin % 3600 // 60:02}: an alarm "
                                f"{alarm} s later is past its midnight, and would not come")  # fmt: skip

    def _register(self, number: int) -> int:
        return self._index.read(CMOS_INDEX, 0, number)


def time_of(registers: list[int], binary: bool) -> int | None:
    """Seconds since midnight of hours, minutes and seconds; None when they are no time."""
    decimal = not binary and all(f"{value:x}".isdecimal() for value in registers)
    hours, minutes, seconds = (int(f"{value:x}") if decimal else value for value in registers)
    if not binary and not decimal or hours > 23 or minutes > 59 or seconds > 59:
        return None
    return hours * 3600 + minutes * 60 + seconds


def _counted(delay: int | None) -> list[str]:
    return [] if delay is None else ["/T", "0"]


def _is_down(ran: Ran, status: int) -> bool:
    """Whether the shutdown command was run. The connection may go down with the machine."""
    if re.search(r"shutdown: .*not found", ran.stderr):
        return False
    return ran.status == status or ran.status == 255 and CUT.search(ran.stderr) is not None


def _count_in(ran: Ran, log: str) -> int | None:
    if f"{log} write fail!" in ran.stdout:
        return None
    found = re.search(rf"^{log} count is: (\d+)$", ran.text, re.MULTILINE)
    return int(found[1]) + 1 if found else 1
