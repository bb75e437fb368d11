"""The list of PCI functions, compared with lspci."""

import re

import pytest

import pci
from boots import OVMF, PC, Q35

LIST = ["hwreg", "/PCI", "/DUMP", "/NOMSG"]
MACHINES = {"q35": Q35, "ovmf": OVMF, "pc": PC}

INVENTORIES = {name: pci.Inventory(boot) for name, boot in MACHINES.items()}
LISTINGS = {name: boot.ask(LIST) for name, boot in MACHINES.items()}

EXPRESS = "01:00.0"
ABSENT = ["0", "30", "0"]

ONE_FUNCTION = Q35.ask(["hwreg", "/PCI", "/NOMSG", "/DUMP", "1", "0", "0"])
ONE_ABSENT = Q35.ask(["hwreg", "/PCI", "/NOMSG", "/DUMP", *ABSENT])
ONE_DUMP = Q35.ask(["hwreg", "/PCI", "/TEXT", "/LOG", "/DUMP", "1", "0", "0"])
ALL_DUMPS = Q35.ask(["hwreg", "/PCI", "/TEXT", "/LOG", "/DUMP"])

# The interrupt line is a scratch register of the firmware and the system; 1Fh.0 and the host bridge have no pin.
LINES = {
    "line and pin D": ("00:1d.7", 0x0B),
    "pin only": ("00:1d.7", 0),
    "line only": ("00:00.0", 0x0F),
    "highest line": ("00:1f.2", 0xFF),
}


def ask_with_line(slot, line):
    bus, device, function = re.split("[:.]", slot)
    return Q35.ask(
        f"old=$(setpci -s {slot} 3c.b); setpci -s {slot} 3c.b={line:02x};"
        f"hwreg /PCI /NOMSG /DUMP 0x{bus} 0x{device} {function}; setpci -s {slot} 3c.b=$old"
    )


ROWS_WITH_LINE = {name: ask_with_line(*case) for name, case in LINES.items()}


def dumped_bytes(view):
    """The bytes in a hexadecimal view: after the row label, 16 cells of two digits, then the characters."""
    rows = re.findall(r"^[0-9A-F]{2} ((?:[0-9A-F]{2} ){16})", view, re.MULTILINE)
    return bytes.fromhex("".join(rows))


@pytest.mark.parametrize("name", MACHINES)
def test_listing_has_exactly_the_functions_that_lspci_finds(name):
    found = re.findall(r"^(\w\w)  (\w\w)  (\w\w)  (\w{4})(\w{4}) ", LISTINGS[name].stdout, re.MULTILINE)
    expected = [
        tuple(f"{number:02X}" for number in (f.bus, f.device, f.function)) + (f"{f.vendor:04X}", f"{f.device_id:04X}")
        for f in INVENTORIES[name].functions()
    ]
    assert found == expected


@pytest.mark.parametrize("name", MACHINES)
def test_listing_agrees_in_aspm_interrupt_and_class_columns(name):
    assert LISTINGS[name].stdout.splitlines() == INVENTORIES[name].listing().splitlines()
    assert (LISTINGS[name].ending, LISTINGS[name].stderr) == ("exit 0", "")


def test_machines_show_every_interrupt_pin_and_functions_on_several_buses():
    listing = LISTINGS["q35"].stdout
    assert {pin for pin in "ABCD" if f"INT{pin}  " in listing} == set("ABCD")
    assert {f.bus for f in INVENTORIES["q35"].functions()} == {0, 1, 2, 3}
    assert "DIS " in listing and "NA  " in listing


@pytest.mark.parametrize("name", LINES)
def test_interrupt_columns_show(name):
    slot, line = LINES[name]
    section = pci.verbose_sections(INVENTORIES["q35"].verbose.stdout)[slot]
    assert pci.interrupt_fields(section, line) in ROWS_WITH_LINE[name].stdout
    assert ROWS_WITH_LINE[name].stdout.startswith(pci.HEADER)


def test_one_function_is_listed_alone_under_the_header():
    assert ONE_FUNCTION.stdout == pci.HEADER + INVENTORIES["q35"].row_of(EXPRESS)
    assert ONE_FUNCTION.ending == "exit 0"


def test_an_absent_function_gives_nothing():
    assert (ONE_ABSENT.stdout, ONE_ABSENT.stderr, ONE_ABSENT.ending) == ("", "", "exit 0")


def test_dump_of_one_function_has_the_bytes_that_lspci_shows():
    space = pci.config_spaces(INVENTORIES["q35"].dump.stdout)[EXPRESS]
    assert dumped_bytes(ONE_DUMP.stdout).hex(" ") == bytes(space).hex(" ")


def test_dump_of_all_functions_has_the_bytes_of_each_in_order():
    spaces = pci.config_spaces(INVENTORIES["q35"].dump.stdout)
    expected = b"".join(bytes(spaces[f.slot]) for f in INVENTORIES["q35"].functions())
    assert dumped_bytes(ALL_DUMPS.stdout).hex(" ", 16) == expected.hex(" ", 16)
    assert "\033" not in ALL_DUMPS.stdout
