"""Devices on the SMBus, the SPD of memory modules among them, and those behind AMD's I2C controllers."""

from __future__ import annotations

import re

from hwreg import arguments
from hwreg.copies import script
from hwreg.errors import WrongArgument
from hwreg.registers import SWITCHES
from hwreg.session import Session
from hwreg.views import views_in

PAGE = 256
DDR4_BYTES = 512
SPD = 0xA0  # of the first module; each further one is two above
SLOTS = 8
FIRST, LAST = 0x10, 0xEE  # what the SMBus leaves to devices
SEVEN_BITS = 0x7F
NOBODY = 255  # the status of a scan that finds nobody, and of an ssh that does not get through
ENDED = "hwreg-status"
TO_THE_END = f'"$@"; status=$?; echo "{ENDED} $status"; exit $status'
FOUND = r"Valid SMBus slave address 0x([0-9A-F]{2})\(data:([0-9A-F]{2})\)\."


class Smbus:
    """Addresses have 8 bits, the lowest being 0: 0xA0 for what other tools call 0x50. One that may as well be of 7 bits
    is refused; say eight_bits=True if it is meant."""

    def __init__(self, session: Session) -> None:
        self._session = session

    def read(self, address: int, offset: int, *, eight_bits: bool = False) -> int:
        words = ["/SMBUS", "/RB", address_of(address, eight_bits), _byte("offset", offset)]
        return self._session.value(words, r"SMBus read slave addr 0x\w+ offset 0x\w+: 0x([0-9A-F]{2})")

    def write(self, address: int, offset: int, value: int, *, eight_bits: bool = False) -> int:
        """Gives what was read back, or the value itself from a device that cannot be read."""
        words = ["/SMBUS", "/WB", address_of(address, eight_bits), _byte("offset", offset), _byte("value", value)]
        return self._session.value(words, r"SMBus write slave addr 0x\w+ offset 0x\w+: 0x([0-9A-F]{2})")

    def dump(self, address: int, *, eight_bits: bool = False) -> bytes:
        """256 bytes; both pages, 512 bytes, of the SPD of a DDR4 module."""
        ran = self._session.perform(["/SMBUS", "/DUMP", address_of(address, eight_bits), *SWITCHES])
        if ran is None:
            return bytes(PAGE)
        views = views_in(ran.stdout)
        if len(views) != 1 or len(views[0]) != (DDR4_BYTES if "Dump SMBus(DDR4)" in ran.stdout else PAGE):
            raise self._session.failure(ran)
        return views[0]

    def scan(self, first: int = FIRST, last: int = LAST, *, eight_bits: bool = False) -> dict[int, int]:
        """The addresses that answer, with the byte at offset 0. Empty as well where there is no controller."""
        words = ["/SMBUS", "/S", address_of(first, True), address_of(last, eight_bits)]
        ran = self._session.execute(words, script(TO_THE_END, [], self._session.line(words)))
        if ran is None:
            return {}
        found = {int(address, 16): int(data, 16) for address, data in re.findall(FOUND, ran.stdout)}
        last = list(found.values())[-1] if found else NOBODY
        if ran.status != last or f"{ENDED} {last}" not in ran.stdout.splitlines():
            raise self._session.failure(ran)
        return found


class Spd:
    """What memory modules say of themselves, by the number of their slot."""

    def __init__(self, smbus: Smbus) -> None:
        self._smbus = smbus

    def read(self, slot: int) -> bytes:
        """256 bytes, 512 of a DDR4 module."""
        return self._smbus.dump(SPD + 2 * arguments.number("slot", slot, SLOTS - 1))

    def slots(self) -> list[int]:
        """Those with a module."""
        return [(address - SPD) // 2 for address in self._smbus.scan(SPD, SPD + 2 * (SLOTS - 1))]


class I2c:
    """Registers of 16 bits behind controllers 0 to 5. Addresses have 7 bits here."""

    def __init__(self, session: Session) -> None:
        self._session = session

    def read(self, controller: int, address: int, offset: int) -> int:
        words = ["/I2C", "/RW", *self._operands(controller, address, offset)]
        return self._session.value(words, r"I2C read slave addr 0x\w+ offset 0x\w+: 0x([0-9A-F]{4})")

    def write(self, controller: int, address: int, offset: int, value: int) -> int:
        """Sends the low byte first. Gives what was read back, or the value itself from a device that cannot be read."""
        arguments.data(value, 16)
        words = ["/I2C", "/WW", *self._operands(controller, address, offset), arguments.spelled(value)]
        return self._session.value(words, r"I2C write slave addr 0x\w+ offset 0x\w+: 0x([0-9A-F]{4})")

    @staticmethod
    def _operands(controller: int, address: int, offset: int) -> list[str]:
        return [arguments.spelled(arguments.number("controller", controller, 5)),
                arguments.spelled(arguments.number("address", address, SEVEN_BITS)),
                _byte("offset", offset)]  # fmt: skip


def address_of(address: int, eight_bits: bool) -> str:
    arguments.number("address", address, 0xFF)
    seven = f"what is {address:#x} with 7 bits is {address << 1:#x} here" if address <= SEVEN_BITS else ""
    if address % 2:
        raise WrongArgument(f"address is {address:#x}: with its read/write bit, as it is given here, an address is even"
                            f"{seven and '; ' + seven}")  # fmt: skip
    if seven and not eight_bits:
        raise WrongArgument(f"address is {address:#x}: it may be one of 7 bits. {seven.capitalize()}; say "
                            f"eight_bits=True if {address:#x} is meant, which is {address >> 1:#x} with 7 bits")
    return arguments.spelled(address)


def _byte(name: str, value: int) -> str:
    return arguments.spelled(arguments.number(name, value, 0xFF))
