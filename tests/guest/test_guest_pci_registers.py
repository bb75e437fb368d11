"""Reading and writing PCI registers, compared with pciutils and with the configuration ports themselves."""

import pytest

import pci
from boots import OVMF, PC, Q35, STRICT
from pci import SIZES

ROOT_PORT = (0, 3, 0)
SECOND_PORT = (0, 3, 1)
DISK = (0, 0x1F, 2)
EXPRESS = (1, 0, 0)

# Prefetchable Base Upper 32 Bits of a bridge (PCI-to-PCI Bridge Architecture 1.2, 3.2.5.10) keeps all that is
# written. Uncorrectable Error Severity (PCI Express Base 4.0, 7.8.4.4) keeps the bits that the device implements.
BASE_UPPER = 0x28
SEVERITY = 0x10C
SEVERITY_BITS = [4, 5, *range(12, 26)]
SEVERITY_ALL = sum(1 << bit for bit in SEVERITY_BITS)


def reads(boot, width, address, offsets):
    """One run of the program for each offset, with its exit status on the line after its output."""
    place = " ".join(map(str, address))
    words = " ".join(map(hex, offsets))
    return boot.ask(f"for at in {words}; do hwreg /PCI /R{width} {place} $at; echo $?; done")


def expected_reads(width, address, offsets, value_at):
    """What `reads` should print: each line and, as the status, the value's low byte."""
    lines = []
    for offset in offsets:
        value = value_at(offset)
        lines += [pci.read_line(width, address, offset, value).rstrip("\n"), str(value & 0xFF)]
    return lines


def lspci(boot, address):
    return boot.ask(f"lspci -xxxx -s {pci.slot_of(address)}")


def values_of(answer, address, size):
    space = pci.config_spaces(answer.stdout)[pci.slot_of(address)]
    return lambda offset: pci.little_endian(space, offset, size)


# All registers, in each width

EXTENDED_RANGES = {
    EXPRESS: {"B": range(0x100, 0x160), "W": range(0x100, 0x160, 2), "D": range(0x100, 0x1000, 4)},
    SECOND_PORT: {"B": range(0x148, 0x150), "W": range(0x148, 0x150, 2), "D": range(0x100, 0x160, 4)},
}
CASES = [(width, address, range(0, 0x100, SIZES[width])) for address in (ROOT_PORT, DISK, EXPRESS) for width in SIZES]
CASES += [(width, address, ranges[width]) for address, ranges in EXTENDED_RANGES.items() for width in SIZES]
DUMPS = {address: lspci(Q35, address) for address in (ROOT_PORT, SECOND_PORT, DISK, EXPRESS)}
READS = [reads(Q35, *case) for case in CASES]

OVMF_DUMP = lspci(OVMF, EXPRESS)
OVMF_READS = reads(OVMF, "D", EXPRESS, range(0, 0x180, 4))


@pytest.mark.parametrize(
    "answer, case",
    zip(READS, CASES),
    ids=[f"{width}-{pci.slot_of(address)}-{offsets.start:#x}" for width, address, offsets in CASES],
)
def test_every_aligned_register_reads_as_lspci_shows_it(answer, case):
    width, address, offsets = case
    value_at = values_of(DUMPS[address], address, SIZES[width])
    assert answer.stdout.splitlines() == expected_reads(width, address, offsets, value_at)


def test_registers_read_the_same_under_uefi_firmware():
    value_at = values_of(OVMF_DUMP, EXPRESS, 4)
    assert OVMF_READS.stdout.splitlines() == expected_reads("D", EXPRESS, range(0, 0x180, 4), value_at)


# Bits of registers, by number: 0-7 in a byte, 8-15 in a word, 16-31 in a dword

BITS = {
    offset: Q35.ask(
        f"for bit in $(seq 0 31); do hwreg /PCI /RI 1 0 0 {offset} $bit; echo $?; done",
    )
    for offset in (0x00, 0x10, SEVERITY)
}


@pytest.mark.parametrize("offset", BITS)
def test_every_bit_reads_as_lspci_shows_it(offset):
    value = values_of(DUMPS[EXPRESS], EXPRESS, 4)(offset)
    expected = []
    for bit in range(32):
        level = value >> bit & 1
        expected += [f"PCI Read BDFO: 1 0 0 {offset:X} Bit{bit}, return data:{level}", str(level)]
    assert BITS[offset].stdout.splitlines() == expected


# Unaligned registers: the address port gets the offset as it is, the data port is CFCh plus the offset's low bits
# for bytes and words, CFCh itself for dwords. (QEMU honours the low bits of the address, which bridges ignore, and
# answers words at the odd data ports with 0.)

UNALIGNED = {
    "W": [offset for offset in range(0x40) if offset % 2],
    "D": [offset for offset in range(0x40) if offset % 4],
}
UNALIGNED_READS = {width: reads(Q35, width, DISK, offsets) for width, offsets in UNALIGNED.items()}


def through_ports(width, offset):
    bus, device, function = DISK
    address = 0x80000000 | bus << 16 | device << 11 | function << 8 | offset
    data_port = 0xCFC + offset % 4 if width == "W" else 0xCFC
    return f"outl 0xcf8 {address:#x}; in{width.lower().replace('d', 'l')} {data_port:#x}"


UNALIGNED_PEERS = {
    width: Q35.ask("; ".join(through_ports(width, offset) for offset in offsets))
    for width, offsets in UNALIGNED.items()
}


@pytest.mark.parametrize("width", UNALIGNED)
def test_unaligned_registers_read_as_the_ports_give_them(width):
    mask = (1 << 8 * SIZES[width]) - 1
    values = [int(text) & mask for text in UNALIGNED_PEERS[width].stdout.split()]
    value_at = dict(zip(UNALIGNED[width], values)).__getitem__
    expected = expected_reads(width, DISK, UNALIGNED[width], value_at)
    assert UNALIGNED_READS[width].stdout.splitlines() == expected


# What is not there

NOT_THERE = {
    "an absent function": Q35.ask(["hwreg", "/PCI", "/RD", "0", "30", "0", "0"]),
    "extended space of a conventional function": Q35.ask(["hwreg", "/PCI", "/RD", "0", "6", "0", "0x100"]),
    "an offset beyond the extended space": Q35.ask(["hwreg", "/PCI", "/RD", "1", "0", "0", "0x1000"]),
}
BEYOND_BYTE = Q35.ask(["hwreg", "/PCI", "/RB", "1", "0", "0", "0x1000"])
BEYOND_WORD = Q35.ask(["hwreg", "/PCI", "/RW", "1", "0", "0", "0x1000"])


@pytest.mark.parametrize("name", NOT_THERE)
def test_reads_all_ones_from(name):
    assert NOT_THERE[name].stdout.endswith(", return data:0xFFFFFFFF\n")
    assert NOT_THERE[name].ending == "exit 255"


def test_an_offset_beyond_the_extended_space_reads_all_ones_of_the_width():
    assert BEYOND_BYTE.stdout == pci.read_line("B", EXPRESS, 0x1000, 0xFF)
    assert BEYOND_WORD.stdout == pci.read_line("W", EXPRESS, 0x1000, 0xFFFF)


# Writes. Each case: function, width, offset, data. The register holds all ones before, so that one that is written
# too widely shows.

WRITES = {
    "a byte": (ROOT_PORT, "B", BASE_UPPER, 0x5A),
    "the second byte": (ROOT_PORT, "B", BASE_UPPER + 1, 0x5A),
    "the third byte": (ROOT_PORT, "B", BASE_UPPER + 2, 0x5A),
    "the highest byte": (ROOT_PORT, "B", BASE_UPPER + 3, 0x5A),
    "a word": (ROOT_PORT, "W", BASE_UPPER, 0xBEEF),
    "the high word": (ROOT_PORT, "W", BASE_UPPER + 2, 0xBEEF),
    "a dword": (SECOND_PORT, "D", BASE_UPPER, 0x89ABCDEF),
    "an extended byte": (EXPRESS, "B", SEVERITY + 1, 0xA0),
    "an extended word": (SECOND_PORT, "W", SEVERITY + 2, 0x0155),
    "an extended dword": (EXPRESS, "D", SEVERITY, 0x01555010),
}


def register_of(address, offset):
    """The setpci words that name the dword register which holds `offset`."""
    return f"setpci -s {pci.slot_of(address)} {offset & ~3:x}.l"


def ask_write(address, width, offset, data):
    place = " ".join(map(str, address))
    register = register_of(address, offset)
    return Q35.ask(
        f"old=$({register}); {register}=ffffffff; {register}; hwreg /PCI /W{width} {place} {offset:#x} {data:#x};"
        f"echo $?; {register}; {register}=$old"
    )


WRITTEN = {name: ask_write(*case) for name, case in WRITES.items()}


@pytest.mark.parametrize("name", WRITES)
def test_write_takes_effect_in(name):
    address, width, offset, data = WRITES[name]
    before, line, status, after = WRITTEN[name].stdout.splitlines(keepends=True)
    assert line == pci.write_line(width, address, offset, data, data)
    assert status == f"{data & 0xFF}\n"
    expected = bytearray.fromhex(before)[::-1]
    expected[offset % 4 : offset % 4 + SIZES[width]] = data.to_bytes(SIZES[width], "little")
    assert after == f"{expected[::-1].hex()}\n"
    assert int(before, 16) in (0xFFFFFFFF, SEVERITY_ALL)


# QEMU takes the low bits of the address: the dword at 29h covers the upper three bytes of 28h and the first of 2Ch.
UNALIGNED_WRITE = Q35.ask(
    "old=$(setpci -s 0:3.0 28.l 2c.l | tr '\\n' ' '); setpci -s 0:3.0 28.l=ffffffff 2c.l=ffffffff;"
    "hwreg /PCI /WD 0 3 0 0x29 0x89ABCDEF; setpci -s 0:3.0 28.l 2c.l;"
    "set -- $old; setpci -s 0:3.0 28.l=$1 2c.l=$2"
)


def test_an_unaligned_dword_is_written_through_the_whole_data_port():
    line = pci.write_line("D", ROOT_PORT, 0x29, 0x89ABCDEF, 0x89ABCDEF)
    assert UNALIGNED_WRITE.stdout == f"{line}abcdefff\nffffff89\n"


# Through 0CFDh, where QEMU drops a word; through 0CFCh it would take it.
UNALIGNED_WORD = Q35.ask(
    "register='setpci -s 0:3.0 28.l'; old=$($register);"
    "$register=ffffffff; hwreg /PCI /WW 0 3 0 0x29 0x1234; $register;"
    "$register=ffffffff; outl 0xcf8 0x80001829; outw 0xcfd 0x1234; $register; $register=$old"
)


def test_an_unaligned_word_is_written_as_the_ports_take_it():
    line, program, ports = UNALIGNED_WORD.stdout.splitlines(keepends=True)
    assert line == pci.write_line("W", ROOT_PORT, 0x29, 0x1234, 0)
    assert program == ports


READ_ONLY = Q35.ask("hwreg /PCI /WW 0 3 0 0 0x1234; echo $?; setpci -s 0:3.0 0.w")


def test_write_to_a_read_only_register_reports_what_it_kept():
    line = pci.write_line("W", ROOT_PORT, 0, 0x1234, 0x1B36)
    assert READ_ONLY.stdout == f"{line}{0x36}\n1b36\n"


def bit_writes(address, offset, bits, start, level):
    """Writes each bit, and has the register shown and put back to `start` after each."""
    place = " ".join(map(str, address))
    register = register_of(address, offset)
    return Q35.ask(
        f"old=$({register});"
        f"for bit in {' '.join(map(str, bits))}; do {register}={start:x};"
        f"hwreg /PCI /WI {place} {offset:#x} $bit {level}; echo $?; {register}; done; {register}=$old"
    )


BIT_WRITES = {
    "set in a register": (ROOT_PORT, BASE_UPPER, range(32), 0, 1),
    "cleared in a register": (ROOT_PORT, BASE_UPPER, range(32), 0xFFFFFFFF, 0),
    "set in an extended register": (SECOND_PORT, SEVERITY, SEVERITY_BITS, 0, 1),
    "cleared in an extended register": (EXPRESS, SEVERITY, SEVERITY_BITS, SEVERITY_ALL, 0),
}
BITS_WRITTEN = {name: bit_writes(*case) for name, case in BIT_WRITES.items()}


@pytest.mark.parametrize("name", BIT_WRITES)
def test_single_bits_are(name):
    address, offset, bits, start, level = BIT_WRITES[name]
    place = " ".join(f"{number:X}" for number in (*address, offset))
    expected = []
    for bit in bits:
        line = f"PCI Write BDFO: {place} Bit{bit}, wValue:{level}, return data:{level}"
        expected += [line, str(level), f"{start ^ 1 << bit:08x}"]
    assert BITS_WRITTEN[name].stdout.splitlines() == expected


# A kernel that refuses to map the window

REFUSED = {width: STRICT.ask(["hwreg", "/PCI", f"/R{width}", "1", "0", "0", "0x100"]) for width in SIZES}
REFUSED_WRITE = STRICT.ask(
    "setpci -s 1:0.0 10c.l; hwreg /PCI /WD 1 0 0 0x10C 0x01555010; echo $?; setpci -s 1:0.0 10c.l"
)
STRICT_LEGACY = STRICT.ask(["hwreg", "/PCI", "/RD", "1", "0", "0", "0"])


@pytest.mark.parametrize("width, value", [("B", 0xFF), ("W", 0xFFFF), ("D", 0xFFFF)])
def test_refused_window_gives_the_failure_value(width, value):
    assert REFUSED[width].stdout == pci.read_line(width, EXPRESS, 0x100, value)
    assert (REFUSED[width].ending, REFUSED[width].stderr) == ("exit 255", "")


def test_refused_window_drops_a_write():
    before, line, status, after = REFUSED_WRITE.stdout.splitlines(keepends=True)
    assert line == pci.write_line("D", EXPRESS, 0x10C, 0x01555010, 0xFFFF)
    assert status == "255\n"
    assert before == after


def test_refused_window_leaves_the_first_256_bytes_reachable():
    assert STRICT_LEGACY.stdout == pci.read_line("D", EXPRESS, 0, 0x10D38086)


# Without a window

PC_DUMP = PC.ask("lspci -xxx -s 0:1.1")
PC_READS = reads(PC, "D", (0, 1, 1), range(0, 0x100, 4))


def test_registers_read_as_lspci_shows_them_on_a_chipset_without_a_window():
    value_at = values_of(PC_DUMP, (0, 1, 1), 4)
    assert PC_READS.stdout.splitlines() == expected_reads("D", (0, 1, 1), range(0, 0x100, 4), value_at)


# Command lines that name no supported access

SILENT = {
    "no access": Q35.ask(["hwreg", "/PCI"]),
    "a quadword": Q35.ask(["hwreg", "/PCI", "/RQ", "0", "0", "0", "0"]),
}


@pytest.mark.parametrize("name", SILENT)
def test_silently_refuses(name):
    assert (SILENT[name].stdout, SILENT[name].ending) == ("", "exit 2")
