"""docs/cookbook.md: the pairs whose hardware no emulated machine has, on simulated boards. The others run in guests."""

import re

import pytest

import cookbook
from harness import BOARDS

ROWS = cookbook.rows()
SUPERIO = ROWS["superiotool -d"]
ONE_REGISTER = ROWS["isadump -y -k 0xa5,0xa5 0x4e 0x4f 0x0b"]
(MODULE,) = (ROWS[line] for line in cookbook.SIMULATED if line.startswith("i2cset -y 0 0x36"))
AMD = ROWS["i2ctransfer -y 0 w1@0x50 2 r2"]


@pytest.fixture
def typed(run):
    """Runs a line of the page on a board, or on intel."""
    return lambda line, **options: run(line.removeprefix("hwreg "), **options)


def views(text):
    """The bytes of each plain view of 256 bytes."""
    rows = re.findall(r"^[0-9A-F]{2} ((?:[0-9A-F]{2} ){16})", text, re.MULTILINE)
    return [bytes.fromhex("".join(rows[at : at + 16])) for at in range(0, len(rows), 16)]


def superio_bytes():
    """What the board's file says of each logical device: {device: {register: byte}}."""
    devices = {}
    for line in (BOARDS / "intel.board").read_text().splitlines():
        if line.startswith("superio-device "):
            device, register, *values = [int(word, 16) for word in line.split()[1:] if word != "ro"]
            devices.setdefault(device, {}).update(zip(range(register, 256), values))
    return devices


def test_a_dump_of_the_super_io_shows_its_devices(typed):
    shown = views(typed(SUPERIO).text)
    devices = [2, 3, 4, 5, 7, 0xB, 0xC, 0xD, 0xE]
    assert len(shown) == len(devices)
    for device, data in zip(devices, shown):
        assert data[7] == device and data[0x20] == 0x87
        expected = superio_bytes()[device]
        assert {register: data[register] for register in expected} == expected


def test_one_register_of_a_device_of_the_super_io(typed):
    assert superio_bytes()[0x0B][0x60] == 2
    assert typed(ONE_REGISTER).text == "SIO Write Data to 0x60, data = 0x2\n"


def test_both_pages_of_a_ddr4_module(typed):
    first, second = views(typed(MODULE).text)
    assert first[:5] == bytes.fromhex("23110c0284")
    assert second[0x40:0x50] == bytes.fromhex("04cd0024050000000053696d756c6174")


def test_a_register_behind_amds_controller(typed):
    assert typed(AMD, board="amd").text == "I2C read slave addr 0x50 offset 0x02: 0x00AB\n"


def test_numbers_are_as_the_page_says(run):
    assert cookbook.says("1f") and cookbook.says("ff")
    assert run("/PCI /RB 0 1f 0 ff").text.startswith("PCI Read Byte BDFO: 0 1 0 0, ")


@pytest.mark.parametrize("line", ["hwreg /RTC --help"])
def test_a_line_that_restarts(typed, line):
    assert cookbook.says(line)
    assert typed(line).systems() == ["shutdown -r now"]
