"""PCI configuration space."""

from __future__ import annotations

import dataclasses
import logging
import re
from collections.abc import Sequence

from hwreg import arguments
from hwreg.errors import NoAnswer, NotAllowed, WrongArgument
from hwreg.foretelling import Foretold
from hwreg.registers import SWITCHES, Registers
from hwreg.session import NO_ACCESS, Ran, Session
from hwreg.views import headed_views_in, views_in

EXTENDED = 0x100  # from here on the memory-mapped window is used
LAST_OFFSET = 0xFFF
ROW = (r"([0-9A-F]{2})  ([0-9A-F]{2})  ([0-9A-F]{2})  ([0-9A-F]{4})([0-9A-F]{4}) (\S+) +"
       r"(NONE|IRQ[0-9A-F]{2}) +(NONE|NULL|INT[A-D]|[0-9A-F]{2}) +(.*)")  # fmt: skip


@dataclasses.dataclass(frozen=True)
class Function:
    """A row of hwreg's listing. `aspm` is DIS, L0S, L1, L01 or NA; `irq` and `pin` are as they are shown."""

    bus: int
    device: int
    function: int
    vendor_id: int
    device_id: int
    aspm: str
    irq: str
    pin: str
    name: str


class Pci(Registers):
    """Offsets from 100h on are accessed only where hwreg-check does not say that something else is reached there, or
    nothing. It is asked once for each bus, and what it says is kept in `window`: None where it is not installed.
    `check_window` = False leaves that out."""

    names = ("/PCI",)
    says = "PCI (?:Read|Write)"

    def __init__(self, session: Session) -> None:
        super().__init__(session)
        self.check_window = True
        self.window: dict[int, Foretold | None] = {}

    def read(self, bus: int, device: int, function: int, offset: int, width: int, *, unaligned: bool = False) -> int:
        return self._read(self._place(bus, device, function, offset, arguments.width_of(width), unaligned), width)

    def write(self, bus: int, device: int, function: int, offset: int, value: int, width: int, *,
              unaligned: bool = False) -> int:  # fmt: skip
        """Gives what the register reads afterwards."""
        arguments.data(value, arguments.width_of(width))
        return self._write(self._place(bus, device, function, offset, width, unaligned), value, width)

    def read_bit(self, bus: int, device: int, function: int, offset: int, bit: int, *,
                 unaligned: bool = False) -> bool:  # fmt: skip
        """Bits 0 to 7 are read by a byte, 8 to 15 by a word, 16 to 31 by a dword."""
        width = arguments.width_of_bit(arguments.bit_number(bit))
        return self._read_bit(self._place(bus, device, function, offset, width, unaligned), bit)

    def write_bit(self, bus: int, device: int, function: int, offset: int, bit: int, value: bool | int, *,
                  unaligned: bool = False) -> bool:  # fmt: skip
        """Reads, changes and writes the register, and gives what the bit reads afterwards."""
        width = arguments.width_of_bit(arguments.bit_number(bit))
        arguments.bit_value(value)
        return self._write_bit(self._place(bus, device, function, offset, width, unaligned), bit, value)

    def functions(self) -> list[Function]:
        """All that are there."""
        ran = self._session.whole(["/PCI", "/DUMP", "/NOMSG", "/LOG"])
        return [] if ran is None else [_function(match.groups()) for match in self._session.matches(ran, ROW)]

    def config(self, bus: int, device: int, function: int) -> bytes:
        """The first 256 bytes of one that is there."""
        operands = map(arguments.spelled, self._function(bus, device, function))
        ran = self._session.perform(["/PCI", "/DUMP", *operands, *SWITCHES])
        if ran is None:
            return bytes(EXTENDED)
        views = views_in(ran.stdout)
        if [len(view) for view in views] != [EXTENDED]:
            raise self._session.failure(ran)
        return views[0]

    def configs(self) -> dict[Function, bytes]:
        """All that are there, with their first 256 bytes."""
        ran = self._session.whole(["/PCI", "/DUMP", *SWITCHES])
        return {} if ran is None else self._records(ran)

    def _records(self, ran: Ran) -> dict[Function, bytes]:
        records = {}
        for row, view in headed_views_in(ran.stdout):
            found = re.fullmatch(ROW, row)
            if found is None or len(view) != EXTENDED:
                raise self._session.failure(ran)
            records[_function(found.groups())] = view
        if not records:
            raise self._session.failure(ran)
        return records

    @staticmethod
    def _function(bus: int, device: int, function: int) -> list[int]:
        return [arguments.number("bus", bus, 255), arguments.number("device", device, 31),
                arguments.number("function", function, 7)]  # fmt: skip

    def _place(self, bus: int, device: int, function: int, offset: int, width: int, unaligned: bool) -> list[int]:
        operands = [*self._function(bus, device, function),
                    arguments.place("offset", offset, width, LAST_OFFSET, unaligned)]  # fmt: skip
        if offset < EXTENDED < offset + width // 8:
            raise WrongArgument(f"offset is {offset:#x}: {width} bits there go beyond 0xff")
        if offset >= EXTENDED and self.check_window and not self._session.dry_run:
            self._ask_for_window(operands)
        return operands

    def _ask_for_window(self, operands: list[int]) -> None:
        bus = operands[0]
        words = ["/PCI", "/RB", *map(arguments.spelled, operands)]
        if bus not in self.window:
            try:
                self.window[bus] = self._session.check(*words)
            except NoAnswer as error:
                self.window[bus] = None
                logging.getLogger("hwreg").info("whether offsets from 100h on are right is not known: %s", error)
        foretold = self.window[bus]
        # Without any access hwreg itself says so.
        if foretold is not None and foretold.verdict != "works" and foretold.status != NO_ACCESS:
            raise NotAllowed(f"offsets from 100h on are not the device's here: {foretold.why}; "
                             "pci.check_window = False accesses them all the same", self._session.command(*words))


def _function(columns: Sequence[str]) -> Function:
    bus, device, function, vendor_id, device_id = (int(text, 16) for text in columns[:5])
    aspm, irq, pin, name = columns[5:]
    return Function(bus, device, function, vendor_id, device_id, aspm, irq, pin, name.strip())
