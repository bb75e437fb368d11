"""Physical memory below 4 GiB."""

from __future__ import annotations

import os
import re

from hwreg import arguments
from hwreg.arguments import LAST_ADDRESS
from hwreg.copies import copied, viewed
from hwreg.registers import Registers
from hwreg.words import plain

PAGE = 256
SEARCHED = 14, 21  # not found any more; the last hit ends with the range


class Memory(Registers):
    """What cannot be mapped reads as ones: `Machine.check` tells."""

    names = ("/MEM",)
    says = "Memory (?:Read|Write)"

    def read(self, address: int, width: int, *, unaligned: bool = False) -> int:
        return self._read([self._address(address, arguments.width_of(width), unaligned)], width)

    def write(self, address: int, value: int, width: int, *, unaligned: bool = False) -> int:
        """Gives what the memory reads afterwards."""
        return self._write([self._address(address, arguments.width_of(width), unaligned)], value, width)

    def read_bit(self, address: int, bit: int, *, unaligned: bool = False) -> bool:
        """Bits 0 to 7 are read by a byte, 8 to 15 by a word, 16 to 31 by a dword."""
        return self._read_bit([self._address_of_bit(address, bit, unaligned)], bit)

    def write_bit(self, address: int, bit: int, value: bool | int, *, unaligned: bool = False) -> bool:
        """Reads, changes and writes the register, and gives what the bit reads afterwards."""
        return self._write_bit([self._address_of_bit(address, bit, unaligned)], bit, value)

    def page(self, address: int) -> bytes:
        """256 bytes, fewer at the end of the 4 GiB, as a hex view shows them."""
        length = min(PAGE, LAST_ADDRESS + 1 - arguments.number("address", address, LAST_ADDRESS))
        return viewed(self._session, ["/MEM", "/DUMP", arguments.spelled(address)], length)

    def dump(self, address: int, length: int, *, seconds: float | None = None) -> bytes:
        """A range; `seconds` is its time limit."""
        arguments.span("address", address, length, LAST_ADDRESS)
        return copied(self._session, "/MEM", address, length, seconds)

    def search(self, address: int, length: int, text: str) -> list[int]:
        """The addresses of the text: the first in each 4 KiB page, see /MEM /S in the reference."""
        arguments.span("address", address, length, LAST_ADDRESS)
        words = ["/MEM", "/S", arguments.spelled(address), arguments.spelled(length), plain("text", text)]
        ran = self._session.perform(words)
        if ran is None:
            return []
        printed = os.fsencode(text).decode("latin-1")
        if ran.status not in SEARCHED or f"searching: {printed} ->" not in ran.stdout:
            raise self._session.failure(ran)
        hits = rf" \(\d+\) {re.escape(printed)} return address: ([0-9A-F]{{8}}) "
        return [int(hit, 16) for hit in re.findall(hits, ran.stdout)]

    @staticmethod
    def _address(address: int, width: int, unaligned: bool) -> int:
        return arguments.place("address", address, width, LAST_ADDRESS, unaligned)

    def _address_of_bit(self, address: int, bit: int, unaligned: bool) -> int:
        return self._address(address, arguments.width_of_bit(arguments.bit_number(bit)), unaligned)
