"""AMD's system management network and unit."""

from __future__ import annotations

import dataclasses

from hwreg import arguments
from hwreg.copies import script
from hwreg.errors import WrongArgument
from hwreg.registers import Registers
from hwreg.session import Session

LAST_DIE = 16
LAST_REGISTER = 0xFFFFFFFF
ARGUMENTS = 6
NEVER_SENT = 0xFF
OK = 1

# A response of FCh makes hwreg print without end: the pipe is closed behind what an answer needs, which ends it. The
# status is hwreg's.
SHORT = """
{ status=$({ { "$@" 3>&- 4>&-; echo $? >&3; } | head -c 4096 >&4; } 3>&1); } 4>&1
exit "$status"
"""


class Smn(Registers):
    """Registers of the network. hwreg's lines say "Write" for reads as well."""

    names = ("/SMN",)
    says = "SMN (?:Read|Write)"

    def read(self, die: int, register: int, width: int = 32, *, unaligned: bool = False) -> int:
        return self._read(self._place(die, register, arguments.width_of(width), unaligned), width)

    def write(self, die: int, register: int, value: int, width: int = 32, *, unaligned: bool = False) -> int:
        """Gives what the register reads afterwards."""
        place = self._place(die, register, arguments.width_of(width), unaligned)
        return self._write(place, value, width, *(["/WD"] if width < 32 else []))  # without it hwreg only reads

    def read_bit(self, die: int, register: int, bit: int, *, unaligned: bool = False) -> bool:
        """By a dword, whatever the bit."""
        return self._read_bit(self._place(die, register, 32, unaligned), bit)

    def write_bit(self, die: int, register: int, bit: int, value: bool | int, *, unaligned: bool = False) -> bool:
        """Reads, changes and writes the register, and gives what the bit reads afterwards."""
        return self._write_bit(self._place(die, register, 32, unaligned), bit, value)

    @staticmethod
    def _place(die: int, register: int, width: int, unaligned: bool) -> list[int]:
        return [arguments.number("die", die, LAST_DIE),
                arguments.place("register", register, width, LAST_REGISTER, unaligned)]  # fmt: skip


@dataclasses.dataclass(frozen=True)
class SmuAnswer:
    """The response, 1 being OK, and the six arguments as the unit left them."""

    response: int
    arguments: tuple[int, ...]

    @property
    def is_ok(self) -> bool:
        return self.response == OK


class Smu:
    """Messages to the management unit. One that does not answer is waited for until the machine's time limit."""

    def __init__(self, session: Session) -> None:
        self._session = session

    def message(self, number: int, *operands: int) -> SmuAnswer:
        """Sends a message with up to six arguments."""
        if arguments.number("number", number, 0xFFFFFFFF) == NEVER_SENT:
            raise WrongArgument("message 0xff is never sent")
        if len(operands) > ARGUMENTS:
            raise WrongArgument(f"there are {len(operands)} arguments: a message has up to {ARGUMENTS}")
        for value in operands:
            arguments.data(value, 32)
        words = ["/SMU", "/WD", arguments.spelled(number), *map(arguments.spelled, operands)]
        pattern = r"(?:SmuArg\[\d\]=0x([0-9A-F]{8})|RxSmuMessageResponse Status=([0-9A-F]+))"
        ran = self._session.execute(words, script(SHORT, [], self._session.line(words)))
        if ran is not None and ran.status != 0:
            raise self._session.failure(ran)
        found = [] if ran is None else self._session.matches(ran, pattern)
        values = tuple(int(match[1], 16) for match in found if match[1] is not None)
        return SmuAnswer(int(found[-1][2] or "0", 16) if found else 0, values)
