"""Physical memory, compared with dd of /dev/mem and busybox's devmem."""

import re

import pytest

from boots import Q35, SCRATCH, STRICT
from search_rule import hits_by_the_rule, report

SIZES = {"B": 1, "W": 2, "D": 4}
NAMES = {"B": "Byte", "W": "Word", "D": "Dword"}
FIRMWARE = 0xF0000


def read_line(width, address, value):
    return f"Memory Read {NAMES[width]} MemAddr: {address:X}, return data:0x{value:0{2 * SIZES[width]}X}"


def write_line(width, address, data, value):
    digits = 2 * SIZES[width]
    name = NAMES[width]
    return f"Memory Write {name} MemAddr: {address:X} Data:{data:0{digits}X}, return data:0x{value:0{digits}X}"


# Reading

# Around a place that differs from its neighbours, unaligned, and across page borders; not in the last page below 1 MiB,
# whose mapping would include system memory.
OFFSETS = (0, 1, 2, 3, 0x1030, 0x1031, 0x5A00, 0x5A02, 0x7FFD, 0x8FFE, 0x9FFF, 0xA120, 0xA123, 0xE058, 0xE05B, 0xEFFB)
ADDRESSES = [FIRMWARE + at for at in OFFSETS]
COPY = Q35.ask("dd if=/dev/mem bs=64k skip=15 count=1 2>/dev/null")
READS = {
    width: Q35.ask("".join(f"hwreg /MEM /R{width} {address:#x}; echo $?;" for address in ADDRESSES)) for width in SIZES
}
DEVMEM = {
    width: Q35.ask("".join(f"busybox devmem {at:#x} {8 * SIZES[width]};" for at in ADDRESSES if at % SIZES[width] == 0))
    for width in SIZES
}
BITS = Q35.ask(f"for bit in $(seq 0 31); do hwreg /MEM /RI {FIRMWARE + 0xE05B:#x} $bit; done")


def firmware():
    data = COPY.stdout.encode("latin-1")
    assert len(data) == 0x10000
    return data


def value_at(address, size):
    return int.from_bytes(firmware()[address - FIRMWARE :][:size], "little")


@pytest.mark.parametrize("width", SIZES)
def test_memory_reads_as_dd_copies_it(width):
    expected = []
    for address in ADDRESSES:
        value = value_at(address, SIZES[width])
        expected += [read_line(width, address, value), str(value & 0xFF)]
    assert READS[width].stdout.splitlines() == expected


@pytest.mark.parametrize("width", SIZES)
def test_memory_reads_as_devmem_reads_it(width):
    values = dict(zip(ADDRESSES, READS[width].stdout.splitlines()[::2]))
    aligned = [at for at in ADDRESSES if at % SIZES[width] == 0]
    ours = [int(values[at].rpartition(":")[2], 16) for at in aligned]
    assert ours == [int(line, 16) for line in DEVMEM[width].stdout.splitlines()]
    assert len(set(ours)) > 1


def test_bits_are_those_of_the_dword():
    value = value_at(FIRMWARE + 0xE05B, 4)
    assert BITS.stdout.splitlines() == [
        f"Memory Read MemAddr: FE05B Bit{bit}, return data:{value >> bit & 1}" for bit in range(32)]


# Writing

WRITES = Q35.ask(
    f"dd if=/dev/zero of=/dev/mem bs=4k seek={SCRATCH >> 12} count=2 conv=notrunc 2>/dev/null;"
    f"hwreg /MEM /WB {SCRATCH + 0x10:#x} 0x5A; hwreg /MEM /WW {SCRATCH + 0x13:#x} 0xBEEF;"
    f"hwreg /MEM /WD {SCRATCH + 0xFFE:#x} 0x12345678; hwreg /MEM /WI {SCRATCH + 0x20:#x} 31 1; echo $?;"
    f"busybox devmem {SCRATCH + 0x10:#x} 8; busybox devmem {SCRATCH + 0x14:#x} 8;"
    f"busybox devmem {SCRATCH + 0x1000:#x} 16; busybox devmem {SCRATCH + 0x20:#x} 32"
)
WRITTEN = Q35.ask(f"dd if=/dev/mem bs=4k skip={SCRATCH >> 12} count=2 2>/dev/null")


def test_what_is_written_is_found_by_devmem():
    assert WRITES.stdout.splitlines() == [
        write_line("B", SCRATCH + 0x10, 0x5A, 0x5A),
        write_line("W", SCRATCH + 0x13, 0xBEEF, 0xBEEF),
        write_line("D", SCRATCH + 0xFFE, 0x12345678, 0x12345678),
        f"Memory Write MemAddr: {SCRATCH + 0x20:X} Bit31 wValue:1, return data:1",
        "1",
        "0x5A",
        "0xBE",
        "0x1234",
        "0x80000000",
    ]


def test_what_is_written_is_found_by_dd_and_nothing_else_has_changed():
    expected = bytearray(0x2000)
    expected[0x10] = 0x5A
    expected[0x13:0x15] = b"\xef\xbe"
    expected[0x23] = 0x80
    expected[0xFFE:0x1002] = bytes.fromhex("78563412")
    assert WRITTEN.stdout.encode("latin-1") == expected


# A device whose register answers with the complement of what is written; it takes dwords only.
EDU = Q35.ask(
    "base=$((0x$(setpci -s 0:6.0 10.l) & ~15)); setpci -s 0:6.0 4.w=2:2; hwreg /MEM /RD $base;"
    "hwreg /MEM /WD $((base + 4)) 0x12345678; hwreg /MEM /WD $((base + 4)) 0xFFFF0000; echo $?;"
    "hwreg /MEM /WI $((base + 4)) 20 1; busybox devmem $((base + 4)) 32; busybox devmem $base 32"
)


def test_a_device_register_answers_with_the_complement_of_the_dword_written():
    identity, first, second, status, bit, complement, peer = EDU.stdout.splitlines()
    assert int(identity.rpartition(":")[2], 16) == int(peer, 16) == 0x010000ED
    assert first.endswith("Data:12345678, return data:0xEDCBA987")
    assert second.endswith("Data:FFFF0000, return data:0x0000FFFF")
    assert int(status) == 0xFF
    # The bit is set in what was read, and the device answers with the complement of that.
    assert bit.endswith("Bit20 wValue:1, return data:0")
    assert int(complement, 16) == 0xFFFFFFFF ^ (0x0000FFFF | 1 << 20)


# Memory that the kernel does not give

NEXT_TO_RAM = {width: Q35.ask(["hwreg", "/MEM", f"/R{width}", "0xFFFF0"]) for width in SIZES}
RAM = Q35.ask("hwreg /MEM /RD 0x1000000; hwreg /MEM /WD 0x1000000 0; hwreg /MEM /RI 0x1000000 3")
WINDOW = "hwreg /MEM /RD 0xB0000000"
REFUSED = STRICT.ask(WINDOW)
RELAXED = Q35.ask(WINDOW)


@pytest.mark.parametrize("width, value", [("B", 0xFF), ("W", 0xFFFF), ("D", 0xFFFF)])
def test_a_read_in_the_page_before_system_memory_gives_the_failure_value(width, value):
    assert NEXT_TO_RAM[width].stdout == read_line(width, 0xFFFF0, value) + "\n"
    assert NEXT_TO_RAM[width].ending == "exit 255"


def test_system_memory_reads_as_the_failure_value_and_is_not_written():
    assert RAM.stdout.splitlines() == [
        read_line("D", 0x1000000, 0xFFFF),
        write_line("D", 0x1000000, 0, 0xFFFF),
        "Memory Read MemAddr: 1000000 Bit3, return data:1",
    ]


def test_what_the_kernel_uses_itself_is_refused_unless_it_is_told_otherwise():
    assert REFUSED.stdout == read_line("D", 0xB0000000, 0xFFFF) + "\n"
    assert RELAXED.stdout == read_line("D", 0xB0000000, 0x29C08086) + "\n"


# Search

TEXTS = ("_SM_", "_SM3_", "BIOS", "RSD PTR ", "PCI", "absent text", "_DMI_")
SEARCHES = {text: Q35.ask(["hwreg", "/MEM", "/S", "0xF0000", "0x10000", text]) for text in TEXTS}
PARTIAL = Q35.ask(
    f"dd if=/dev/zero of=/dev/mem bs=4k seek={SCRATCH >> 12} count=4 conv=notrunc 2>/dev/null;"
    f"printf 'xAABxAAAB' | dd of=/dev/mem bs=1 seek={SCRATCH + 0x1FFE} conv=notrunc 2>/dev/null;"
    f"hwreg /MEM /S {SCRATCH:#x} 0x4000 AAB"
)


@pytest.mark.parametrize("text", TEXTS)
def test_the_search_reports_the_hits_in_dds_copy_that_its_rule_leaves(text):
    hits, status = hits_by_the_rule(firmware(), 0x10000, text.encode())
    assert SEARCHES[text].stdout == report(text, [FIRMWARE + hit for hit in hits])
    assert SEARCHES[text].ending == f"exit {status}"


@pytest.mark.parametrize("text", TEXTS)
def test_the_search_reports_the_first_hit_of_each_page_of_dds_copy(text):
    """What grep -abo finds there; none of these hits begins in a broken partial match or crosses a page border."""
    found = [match.start() for match in re.finditer(re.escape(text.encode()), firmware())]
    first_of_page = {at >> 12: at for at in reversed(found)}
    assert SEARCHES[text].stdout == report(text, [FIRMWARE + at for at in sorted(first_of_page.values())])


def test_the_texts_are_found_none_one_and_several_times():
    counts = {SEARCHES[text].stdout.count("return address") for text in TEXTS}
    assert {0, 1} < counts


def test_a_hit_is_found_across_a_page_border_and_missed_within_a_partial_match():
    assert PARTIAL.stdout == report("AAB", [SCRATCH + 0x1FFF])
    assert PARTIAL.ending == "exit 14"


# The view

VIEW = Q35.ask(["hwreg", "/MEM", "/DUMP", "0xF0F80", "/TEXT"], stdin=b"n\x1b")
TOP = Q35.ask(["hwreg", "/MEM", "/DUMP", "0xFFFFFF80", "/TEXT", "/LOG"])
MIRROR = Q35.ask("hwreg /MEM /RF TOP.BIN 0xFFFFFF80 0x80 >/dev/null; cat TOP.BIN; rm TOP.BIN")


def cells(view):
    """The bytes that a hexadecimal view shows, in order."""
    rows = re.findall(r"^[0-9A-F]{2} ((?:[0-9A-F]{2} ){1,16})", view, re.M)
    return bytes.fromhex("".join(rows))


def test_the_view_shows_what_dd_copies():
    assert re.findall("MemAddress:.*", VIEW.stdout) == ["MemAddress:F0F80", "MemAddress:F1080"]
    assert cells(VIEW.stdout) == firmware()[0xF80:0x1180]
    assert VIEW.ending == "exit 0"


def test_the_view_ends_at_4_gib():
    assert TOP.stdout.startswith("ESC: quite, Enter: continue MemAddress:FFFFFF80\n")
    assert cells(TOP.stdout) == MIRROR.stdout.encode("latin-1")
    assert len(MIRROR.stdout) == 128
    assert TOP.ending == "exit 0"
