"""/ACPI and the FADT's values on real firmware, compared with what dd reads and the kernel's copies of the tables."""

import re
import struct

import pytest

import tables
from boots import OVMF, PC, Q35, STRICT, TABLES_NOPAT
from firmware_model import Memory, acpi_dump

LEGACY = {"q35": Q35, "pc": PC, "stock": STRICT}
UEFI = {"relaxed": OVMF, "nopat": TABLES_NOPAT}
MACHINES = {**LEGACY, **UEFI}

tables.put_probe(*LEGACY.values(), OVMF)


def ask(machines, words, **options):
    return {name: boot.ask(words, **options) for name, boot in machines.items()}


FACP = ask(MACHINES, "cat /sys/firmware/acpi/tables/FACP")
AREA = ask(MACHINES, tables.DD_BIOS_AREA)
DUMP = ask(MACHINES, ["hwreg", "/ACPI", "/DUMP", "/LOG", "/TEXT"])
QUIET = ask(MACHINES, ["hwreg", "/ACPI"])
PROBE = ask(MACHINES, tables.PROBE)

# The firmware's root pointer lies above 1 MiB: a copy of it at F0000h, in the memory behind the flash.
COPY_ROOT_POINTER = ("from=$(sed -n 's/^ACPI20=//p' /sys/firmware/efi/systab); for i in 0 4 8 12 16 20 24 28 32; do "
                     "busybox devmem $((0xF0000 + i)) 32 $(busybox devmem $((from + i)) 32); done")
WITH_COPY = ask(UEFI, tables.in_writable_bios_area(
    "90", f"{COPY_ROOT_POINTER}; {tables.PROBE}; hwreg /ACPI /DUMP /LOG /TEXT; echo \"status $?\""))
COPIED = ask(UEFI, tables.in_writable_bios_area("90", tables.DD_BIOS_AREA))
AREA_AFTER = ask(UEFI, tables.DD_BIOS_AREA)


def fadt_line(answer):
    """As the probe prints it."""
    fadt = answer.stdout.encode("latin-1")
    (event_block,) = struct.unpack_from("<H", fadt, 0x38)
    (reset_register,) = struct.unpack_from("<H", fadt, 0x78)
    return f"00000000 {event_block:04x} {reset_register:04x} {fadt[0x80]:02x}"


@pytest.mark.parametrize("name", LEGACY)
def test_the_root_pointer_is_the_one_that_stands_in_the_bios_area(name):
    area = tables.bios_area(AREA[name])
    offset = area.index(b"RSD PTR")
    assert tables.bytes_of_view(DUMP[name].stdout) == area[offset : offset + 40]
    assert (DUMP[name].stdout, 0) == acpi_dump(Memory([(0xF0000, area)]))
    assert (DUMP[name].ending, DUMP[name].stderr) == ("exit 0", "")


@pytest.mark.parametrize("name", LEGACY)
def test_without_dump_it_is_found_silently(name):
    assert (QUIET[name].stdout, QUIET[name].stderr, QUIET[name].ending) == ("", "", "exit 0")


@pytest.mark.parametrize("name", UEFI)
def test_a_root_pointer_above_1_mib_is_not_found(name):
    assert b"RSD PTR" not in tables.bios_area(AREA[name])
    for answer in (DUMP[name], QUIET[name]):
        assert (answer.stdout, answer.stderr, answer.ending) == ("", "", "exit 14")
    assert PROBE[name].stdout.splitlines()[:2] == ["8000000e 0000 0000 00", "00000000 00000000"]


@pytest.mark.parametrize("name", ["q35", "stock"])
def test_the_values_of_the_fadt_are_those_of_the_kernels_copy(name):
    # The root pointer has no XSDT: the way leads through the RSDT, over pages that the kernel holds cached.
    assert len(FACP[name].stdout) == 244
    lines = PROBE[name].stdout.splitlines()
    assert lines[0] == fadt_line(FACP[name])
    assert lines[0].split()[2:] == ["0cf9", "0f"]
    through_either, through_rsdt = lines[1].split()
    assert through_either == through_rsdt != "00000000"


def test_of_a_fadt_without_reset_register_the_event_block_is_that_of_the_kernels_copy():
    assert len(FACP["pc"].stdout) == 116
    (event_block,) = struct.unpack_from("<H", FACP["pc"].stdout.encode("latin-1"), 0x38)
    assert PROBE["pc"].stdout.split()[:2] == ["00000000", f"{event_block:04x}"]


@pytest.mark.parametrize("name", UEFI)
def test_through_an_xsdt_the_values_of_the_fadt_are_those_of_the_kernels_copy(name):
    lines = WITH_COPY[name].stdout.splitlines()
    assert lines[0] == fadt_line(FACP[name])
    assert re.fullmatch(r"[0-9a-f]{8} [0-9a-f]{8}", lines[1])
    assert lines[1].split()[0] != "00000000"


@pytest.mark.parametrize("name", UEFI)
def test_a_root_pointer_with_an_xsdt_is_shown(name):
    area = tables.bios_area(COPIED[name])
    assert area.startswith(b"RSD PTR ") and sum(area[:36]) & 0xFF == 0
    text = WITH_COPY[name].stdout
    view = text[text.index("   00 01"):]
    assert view == acpi_dump(Memory([(0xF0000, area)]))[0] + "status 0\n"


@pytest.mark.parametrize("name", UEFI)
def test_the_bios_area_is_left_as_it_was(name):
    assert AREA_AFTER[name].stdout == AREA[name].stdout
