"""I/O ports, registers behind an index/data pair of ports, and those of the Super I/O."""

from __future__ import annotations

import re

from hwreg import arguments
from hwreg.copies import copied, script, viewed
from hwreg.errors import NoAnswer
from hwreg.registers import SWITCHES, Registers
from hwreg.views import views_in

PAIR_REGISTERS = 256
PAGE = 256
LAST_SHOWN_PORT = 0xFFFE
# The Super I/O's logical devices in the order in which hwreg shows them; it names none.
LOGICAL_DEVICES = (2, 3, 4, 5, 7, 0x0B, 0x0C, 0x0D, 0x0E)

# One line takes one /WB, so a device is selected by a line of its own.
BOTH = """
device=$1 register=$2 value=$3; shift 3
"$@" /SIO /WB 7 "$device" && exec "$@" /SIO /WB "$register" "$value"
"""


class Io(Registers):
    """I/O ports."""

    names = ("/IO",)
    says = "IO (?:Read|Write)"

    def read(self, port: int, width: int, *, unaligned: bool = False) -> int:
        return self._read([self._port(port, arguments.width_of(width), unaligned)], width)

    def write(self, port: int, value: int, width: int, *, unaligned: bool = False) -> int:
        """Gives what the port reads afterwards."""
        return self._write([self._port(port, arguments.width_of(width), unaligned)], value, width)

    def read_bit(self, port: int, bit: int, *, unaligned: bool = False) -> bool:
        """Bits 0 to 7 are read by a byte, 8 to 15 by a word, 16 to 31 by a dword."""
        return self._read_bit([self._port_of_bit(port, bit, unaligned)], bit)

    def write_bit(self, port: int, bit: int, value: bool | int, *, unaligned: bool = False) -> bool:
        """Reads, changes and writes the port, and gives what the bit reads afterwards."""
        return self._write_bit([self._port_of_bit(port, bit, unaligned)], bit, value)

    def page(self, port: int) -> bytes:
        """The bytes of 256 ports, as a hex view shows them: never that of port FFFFh."""
        length = min(PAGE, LAST_SHOWN_PORT + 1 - arguments.number("port", port, LAST_SHOWN_PORT))
        return viewed(self._session, ["/IO", "/DUMP", arguments.spelled(port)], length)

    def dump(self, port: int, length: int, *, seconds: float | None = None) -> bytes:
        """The bytes of so many ports, each read by a byte."""
        arguments.span("port", port, length, arguments.LAST_PORT)
        return copied(self._session, "/IO", port, length, seconds)

    @staticmethod
    def _port(port: int, width: int, unaligned: bool) -> int:
        return arguments.place("port", port, width, arguments.LAST_PORT, unaligned)

    def _port_of_bit(self, port: int, bit: int, unaligned: bool) -> int:
        return self._port(port, arguments.width_of_bit(arguments.bit_number(bit)), unaligned)


class Index(Registers):
    """Registers behind a pair of ports. `data_port` 0 stands for the port behind `index_port`."""

    names = ("/IO", "/INDEX")
    says = "IOIndex/Data"

    def read(self, index_port: int, data_port: int, register: int, width: int = 8) -> int:
        return self._read(self._operands(index_port, data_port, register), arguments.width_of(width))

    def write(self, index_port: int, data_port: int, register: int, value: int, width: int = 8) -> int:
        """Gives what the register reads afterwards."""
        return self._write(self._operands(index_port, data_port, register), value, arguments.width_of(width))

    def read_bit(self, index_port: int, data_port: int, register: int, bit: int) -> bool:
        return self._read_bit(self._operands(index_port, data_port, register), bit)

    def write_bit(self, index_port: int, data_port: int, register: int, bit: int, value: bool | int) -> bool:
        """Reads, changes and writes the register, and gives what the bit reads afterwards."""
        return self._write_bit(self._operands(index_port, data_port, register), bit, value)

    def dump(self, index_port: int, data_port: int = 0) -> bytes:
        """Registers 0 to 255."""
        ports = self._operands(index_port, data_port, 0)[:2]
        return viewed(self._session, ["/IO", "/INDEX", "/DUMP", *map(arguments.spelled, ports)], PAIR_REGISTERS)

    @staticmethod
    def _operands(index_port: int, data_port: int, register: int) -> list[int]:
        return [arguments.number("index_port", index_port, arguments.LAST_PORT),
                arguments.number("data_port", data_port, arguments.LAST_PORT),
                arguments.number("register", register, 0xFFFFFFFF)]  # fmt: skip


class SuperIo(Registers):
    """The Super I/O behind ports 4Eh and 4Fh. `device` is the logical device that is selected first, in the same
    command; it stays selected."""

    names = ("/SIO",)
    says = "SIO Write Data to"  # for reads as well

    def read(self, register: int, device: int | None = None) -> int:
        return self._access(register, device, "/RB")

    def read_bit(self, register: int, bit: int, device: int | None = None) -> bool:
        return self._access(register, device, "/RI", self._bit(bit)) == 1

    def write(self, register: int, value: int, device: int | None = None) -> int:
        """Gives what the register reads afterwards. With a device it is two commands under one lock."""
        arguments.data(value, 8)
        if device is None:
            return self._access(register, None, "/WB", value)
        operands = [arguments.number("device", device, 0xFF), arguments.number("register", register, 0xFF), value]
        return self._write_both([arguments.spelled(operand) for operand in operands])

    def _write_both(self, operands: list[str]) -> int:
        session = self._session
        words = ["/SIO", "/WB", *operands[1:]]
        both = script(BOTH, operands, session.line([], locked=False))
        ran = session.execute(words, [*session.locking(session.timeout), *both])
        if ran is None:
            return 0
        found = re.findall(rf"^{self.says} 0x[0-9A-F]+, data = 0x([0-9A-F]{{1,2}})$", ran.text, re.MULTILINE)
        if len(found) != 2:
            raise session.failure(ran)
        return int(found[1], 16)

    def write_bit(self, register: int, bit: int, value: bool | int, device: int | None = None) -> bool:
        """Reads, changes and writes the register, and gives what the bit reads afterwards."""
        return self._access(register, device, "/WI", self._bit(bit), arguments.bit_value(value)) == 1

    def dump(self) -> dict[int, bytes]:
        """256 registers of each logical device, by its number."""
        ran = self._session.perform(["/SIO", "/DUMP", *SWITCHES])
        if ran is None:
            return {}
        views = views_in(ran.stdout)
        if [len(view) for view in views] != [PAGE] * len(LOGICAL_DEVICES):
            raise self._session.failure(ran)
        return dict(zip(LOGICAL_DEVICES, views))

    def _access(self, register: int, device: int | None, switch: str, *operands: int) -> int:
        arguments.number("register", register, 0xFF)
        select = [] if device is None else ["/WB", "7", arguments.spelled(arguments.number("device", device, 0xFF))]
        words = ["/SIO", *select, switch, *map(arguments.spelled, [register, *operands])]
        found = self._session.answer(words, rf"{self.says} 0x([0-9A-F]+), data = 0x([0-9A-F]{{1,2}})")
        if found is None:
            return 0
        if int(found[1], 16) != register:
            raise NoAnswer(f"the line tells of another register: {found[0]}", self._session.command(*words))
        return int(found[2], 16)

    @staticmethod
    def _bit(bit: int) -> int:
        return arguments.number("bit", bit, 7)
