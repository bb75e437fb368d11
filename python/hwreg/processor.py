"""Model-specific registers, and CPUID."""

from __future__ import annotations

import re
from typing import NamedTuple

from hwreg import arguments
from hwreg.session import Session

LAST_CPU = 32767
LAST_INDEX = 0xFFFFFFFF
LINE = r"Cpu\[(\d+)\] Msr (?:read from|write to) [0-9A-F]{8}, return MSR: 0x([0-9A-F]{8})_([0-9A-F]{8})"
LEAF = r"CPUID read from [0-9A-F]{8}: Eax:([0-9A-F]{8}), Ebx:([0-9A-F]{8}), Ecx:([0-9A-F]{8}), Edx:([0-9A-F]{8})"


class Registers(NamedTuple):
    """The registers of a CPUID leaf."""

    eax: int
    ebx: int
    ecx: int
    edx: int


class Msr:
    """Registers of 64 bits. One that is not there, or whose CPU is not, reads 0: `Machine.check` tells more."""

    def __init__(self, session: Session) -> None:
        self._session = session

    def read(self, cpu: int, index: int) -> int:
        return self._one(["/MSR", "/RD", str(arguments.number("cpu", cpu, LAST_CPU)), self._index(index)])

    def read_all(self, index: int) -> dict[int, int]:
        """The register of each CPU, from 0 up to the first that is missing."""
        return self._all(["/MSR", "/RD", "/ALL", self._index(index)])

    def write(self, cpu: int, index: int, value: int) -> int:
        """Gives what the register reads afterwards."""
        cpu = arguments.number("cpu", cpu, LAST_CPU)
        return self._one(["/MSR", "/WD", str(cpu), self._index(index), *self._halves(value)])

    def write_all(self, index: int, value: int) -> dict[int, int]:
        """Each CPU gets what was read back from the one before it."""
        return self._all(["/MSR", "/WD", "/ALL", self._index(index), *self._halves(value)])

    @staticmethod
    def _index(index: int) -> str:
        return arguments.spelled(arguments.number("index", index, LAST_INDEX))

    @staticmethod
    def _halves(value: int) -> list[str]:
        arguments.data(value, 64)
        return [arguments.spelled(value >> 32), arguments.spelled(value & 0xFFFFFFFF)]

    def _one(self, words: list[str]) -> int:
        found = self._session.answer(words, LINE)
        return _value(found) if found else 0

    def _all(self, words: list[str]) -> dict[int, int]:
        ran = self._session.perform(words)
        if ran is None:
            return {}
        values = {int(found[1]): _value(found) for found in self._session.matches(ran, LINE)}
        if ran.status != list(values.values())[-1] & 0xFF:  # the last of the lines has not come
            raise self._session.failure(ran)
        return values


def _value(found: re.Match[str]) -> int:
    return int(found[2], 16) << 32 | int(found[3], 16)


class Cpuid:
    """CPUID of the CPU on which hwreg happens to run; the subleaf is 0."""

    def __init__(self, session: Session) -> None:
        self._session = session

    def read(self, leaf: int) -> Registers:
        words = ["/CPUID", "/RD", arguments.spelled(arguments.number("leaf", leaf, 0xFFFFFFFF))]
        found = self._session.answer(words, LEAF)
        return Registers(*(int(text, 16) for text in found.groups())) if found else Registers(0, 0, 0, 0)
