"""Registers that are read and written by width or by bit with the same words: ports, index pairs, memory, PCI and
SMN."""

from __future__ import annotations

from collections.abc import Sequence

from hwreg import arguments
from hwreg.session import Session

LETTERS = {8: "B", 16: "W", 32: "D"}
SWITCHES = ("/LOG", "/TEXT")  # views do not wait for keys, and have no colours


def spelled(numbers: Sequence[int]) -> list[str]:
    return [arguments.spelled(number) for number in numbers]


class Registers:
    """`names` are the command's switch words, `says` is how its lines begin."""

    names: tuple[str, ...]
    says: str

    def __init__(self, session: Session) -> None:
        self._session = session

    def _read(self, operands: Sequence[int], width: int) -> int:
        words = [*self.names, f"/R{LETTERS[width]}", *spelled(operands)]
        return self._session.value(words, self._pattern(width))

    def _write(self, operands: Sequence[int], value: int, width: int, *more: str) -> int:
        arguments.data(value, width)
        words = [*self.names, f"/W{LETTERS[width]}", *spelled(operands), arguments.spelled(value), *more]
        return self._session.value(words, self._pattern(width))

    def _read_bit(self, operands: Sequence[int], bit: int) -> bool:
        words = [*self.names, "/RI", *spelled(operands), str(arguments.bit_number(bit))]
        return self._session.value(words, self._pattern_of_bit()) == 1

    def _write_bit(self, operands: Sequence[int], bit: int, value: bool | int) -> bool:
        bit, value = arguments.bit_number(bit), arguments.bit_value(value)
        words = [*self.names, "/WI", *spelled(operands), str(bit), str(value)]
        return self._session.value(words, self._pattern_of_bit()) == 1

    def _pattern(self, width: int) -> str:
        return rf"{self.says} .*\breturn data:0x([0-9A-F]{{{width // 4}}})"

    def _pattern_of_bit(self) -> str:
        return rf"{self.says} .*\breturn data:([01])"
