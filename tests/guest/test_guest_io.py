"""Ports and registers behind index ports, compared with ioport's readers, /dev/port and the devices' own memory."""

import re

import pytest

import guest
from boots import Q35
from guest import Machine

SIZES = {"B": 1, "W": 2, "D": 4}
READERS = {"B": "inb", "W": "inw", "D": "inl"}
NAMES = {"B": "Byte", "W": "Word", "D": "Dword"}


def read_line(width, port, value):
    return f"IO Read {NAMES[width]} Port: {port:X}, return data:0x{value:0{2 * SIZES[width]}X}"


def write_line(width, port, value):
    digits = 2 * SIZES[width]
    return f"IO Write {NAMES[width]} Port:{port:X} Data: {value:0{digits}X}, return data:0x{value:0{digits}X}"


def told(text, width):
    """What a reader printed (decimal; the dword reader's numbers are signed)."""
    return int(text) & (1 << 8 * SIZES[width]) - 1


# One port

# Port 80h, the DMA page registers, the PIC's masks, the keyboard controller's status, the UART's scratch register, the
# reset register, the PM1 event block, the configuration mechanism.
PORTS = {
    "B": (0x21, 0x64, 0x80, 0x81, 0x87, 0x92, 0xA1, 0x3FF, 0xCF9, 0xCFE, 0x600, 0x602),
    "W": (0x80, 0x81, 0x86, 0xCFC, 0xCFE, 0x600, 0x602, 0x604),
    "D": (0xCF8, 0xCFC, 0x600, 0x80),
}
PREPARE = "outb 0x81 0x5a; outb 0x82 0xa5; outb 0x87 0x3c; outb 0x3ff 0x77; outl 0xcf8 0x8000f800; "
RESTORE = "outb 0x81 0; outb 0x82 0; outb 0x87 0; outb 0x3ff 0; outl 0xcf8 0"
READS = {
    width: Q35.ask(
        PREPARE
        + "".join(f"{READERS[width]} {port:#x}; hwreg /IO /R{width} {port:#x}; echo $?; " for port in ports)
        + RESTORE
    )
    for width, ports in PORTS.items()
}
REFRESH = Q35.ask("for i in 1 2 3 4; do hwreg /IO /RB 0x61; inb 0x61; done")


@pytest.mark.parametrize("width", PORTS)
def test_ports_read_as_the_port_readers_read_them(width):
    lines = READS[width].stdout.splitlines()
    for port, theirs, ours, status in zip(PORTS[width], lines[::3], lines[1::3], lines[2::3]):
        value = told(theirs, width)
        assert (ours, int(status)) == (read_line(width, port, value), value & 0xFF)
    assert len(lines) == 3 * len(PORTS[width])


def test_the_ports_hold_values_that_tell_them_apart():
    assert len(set(READS["B"].stdout.splitlines()[::3])) >= 7
    assert read_line("D", 0xCFC, 0x29188086) in READS["D"].stdout


def test_port_61_agrees_but_for_the_bits_that_change_by_themselves():
    values = [int(value, 0) for value in re.findall(r"0x[0-9A-F]{2}$|^\d+$", REFRESH.stdout, re.M)]
    assert len(values) == 8
    assert len({value & 0xCF for value in values}) == 1


WRITES = {
    ("B", 0x3FF): Q35.ask("hwreg /IO /WB 0x3FF 0x5A; inb 0x3ff; hwreg /IO /WB 0x3FF 0xA5; inb 0x3ff; outb 0x3ff 0"),
    ("W", 0x81): Q35.ask("hwreg /IO /WW 0x81 0xBEEF; inw 0x81; hwreg /IO /WW 0x81 0x1234; inw 0x81; outw 0x81 0"),
    ("D", 0xCF8): Q35.ask(
        "hwreg /IO /WD 0xCF8 0x80FEDCB8; inl 0xcf8; hwreg /IO /WD 0xCF8 0x80012344; inl 0xcf8; outl 0xcf8 0"
    ),
}
WRITTEN = {("B", 0x3FF): (0x5A, 0xA5), ("W", 0x81): (0xBEEF, 0x1234), ("D", 0xCF8): (0x80FEDCB8, 0x80012344)}


@pytest.mark.parametrize("width, port", WRITES)
def test_the_port_readers_see_what_was_written(width, port):
    lines = WRITES[width, port].stdout.splitlines()
    first, second = WRITTEN[width, port]
    assert [lines[0], lines[2]] == [write_line(width, port, first), write_line(width, port, second)]
    assert [told(lines[1], width), told(lines[3], width)] == [first, second]


BITS = Q35.ask(
    "outb 0x3ff 0xa5; for bit in 0 1 2 3 4 5 6 7; do hwreg /IO /RI 0x3FF $bit; done;"
    "hwreg /IO /WI 0x3FF 1 1; inb 0x3ff; hwreg /IO /WI 0x3FF 7 0; inb 0x3ff; outb 0x3ff 0;"
    "outl 0xcf8 0x80100000; hwreg /IO /RI 0xCF8 20; hwreg /IO /WI 0xCF8 23 1; inl 0xcf8; outl 0xcf8 0"
)


def test_bits_are_those_of_the_port_and_the_others_stay():
    lines = BITS.stdout.splitlines()
    assert lines[:8] == [f"IO Read Port: 3FF Bit{bit}, return data:{0xA5 >> bit & 1}" for bit in range(8)]
    assert lines[8:12] == [
        "IO Write Port:3FF Bit1, wValue:1, return data:1", str(0xA7),
        "IO Write Port:3FF Bit7, wValue:0, return data:0", str(0x27),
    ]
    assert lines[12:14] == [
        "IO Read Port: CF8 Bit20, return data:1", "IO Write Port:CF8 Bit23, wValue:1, return data:1"]
    assert told(lines[14], "D") == 0x80900000


# A write that ends the machine


def test_a_byte_written_to_the_exit_device_ends_the_machine_with_its_code():
    machine = Machine(devices=["isa-debug-exit,iobase=0xf4,iosize=4"])
    boot = guest.run(machine, [["hwreg", "/IO", "/WB", "0xF4", "0x2A"]], ends_itself=True)
    assert boot.qemu_status == 2 * 0x2A + 1


# Registers behind index ports: the clock's memory, and the disk controller's pair of dword ports

# The time's registers change, and reading register C clears it.
CMOS = [*range(0x0D, 0x80), 0x0B]
CMOS_WORDS = " ".join(map(hex, CMOS))
CMOS_READS = Q35.ask(
    f"for at in {CMOS_WORDS}; do outb 0x70 $at; inb 0x71; hwreg /IO /INDEX /RB 0x70 0x71 $at; echo $?; done"
)
WIDE = (0x0E, 0x12, 0x2E, 0x34, 0x5B)
CMOS_WIDE = Q35.ask(
    "".join(
        f"hwreg /IO /INDEX /RW 0x70 0x71 {at}; hwreg /IO /INDEX /RD 0x70 0 {at};"
        + "".join(f"outb 0x70 {at + i}; inb 0x71;" for i in range(4))
        for at in WIDE
    )
)
CMOS_WRITES = Q35.ask(
    "hwreg /IO /INDEX /WD 0x70 0x71 0x70 0x11223344; hwreg /IO /INDEX /WW 0x70 0x71 0x74 0x5566;"
    "hwreg /IO /INDEX /WB 0x70 0x71 0x76 0x77; hwreg /IO /INDEX /WI 0x70 0x71 0x76 3 1;"
    "for at in 0x70 0x71 0x72 0x73 0x74 0x75 0x76; do outb 0x70 $at; inb 0x71; outb 0x71 0; done"
)
CMOS_VIEW = Q35.ask("hwreg /IO /INDEX /DUMP 0x70 0x71")


def cmos():
    """The clock's memory as the port reader shows it, by register."""
    return dict(zip(CMOS, map(int, CMOS_READS.stdout.splitlines()[::3])))


def test_every_register_of_the_clocks_memory_reads_as_through_the_ports():
    lines = CMOS_READS.stdout.splitlines()
    for at, value, line, status in zip(CMOS, cmos().values(), lines[1::3], lines[2::3]):
        assert line == f"IOIndex/Data 70/71 offset {at:X} Read Byte: return data:0x{value:02X}"
        assert int(status) == value
    assert len(lines) == 3 * len(CMOS)
    assert len(set(cmos().values())) > 4


def test_words_and_dwords_of_the_clocks_memory_are_made_of_registers():
    lines = CMOS_WIDE.stdout.splitlines()
    assert len(lines) == 6 * len(WIDE)
    for at, word, dword, *values in zip(WIDE, *(lines[i::6] for i in range(6))):
        data = bytes(map(int, values))
        assert word.endswith(f"offset {at:X} Read Word: return data:0x{int.from_bytes(data[:2], 'little'):04X}")
        assert dword.endswith(f"offset {at:X} Read Dword: return data:0x{int.from_bytes(data, 'little'):08X}")


def test_what_is_written_to_the_clocks_memory_is_found_through_the_ports():
    lines = CMOS_WRITES.stdout.splitlines()
    assert lines[:4] == [
        "IOIndex/Data 70/71 offset 70 Write Dword data:11223344, return data:0x11223344",
        "IOIndex/Data 70/71 offset 74 Write Word data:5566, return data:0x5566",
        "IOIndex/Data 70/71 offset 76 Write Byte data:77, return data:0x77",
        "IOIndex/Data Write 70/71 offset 76 Bit3 wValue:1, return data:1",
    ]
    assert list(map(int, lines[4:])) == [0x44, 0x33, 0x22, 0x11, 0x66, 0x55, 0x7F]


def cells(view):
    """The bytes that a hexadecimal view shows, in order."""
    rows = re.findall(r"^[0-9A-F]{2} ((?:[0-9A-F]{2} ){1,16})", view, re.M)
    return bytes.fromhex("".join(rows))


def test_the_view_of_the_clocks_memory_shows_what_the_single_reads_show():
    title, view = CMOS_VIEW.stdout.split("\n", 1)
    shown = cells(view)
    assert title == "ESC: quite, Enter: continue IOIndex/Data 70/71"
    assert CMOS_VIEW.ending == "exit 0" and len(shown) == 256
    assert {at: shown[at] for at in CMOS} == cmos()
    assert shown[0x8E:] == shown[0x0E:0x80]  # bit 7 of the index is the NMI mask


DISK = "port=$((0x$(setpci -s 0:1f.2 20.l) & ~3)); memory=$((0x$(setpci -s 0:1f.2 24.l) & ~15)); "
REGISTERS = (0x00, 0x04, 0x0C, 0x10, 0x100, 0x124, 0x128)
PAIR = Q35.ask(
    DISK + f"for at in {' '.join(map(hex, REGISTERS))}; do "
    "hwreg /IO /INDEX /RD $((port + 16)) $((port + 20)) $at; busybox devmem $((memory + at)) 32; done"
)
PAIR_BITS = Q35.ask(
    DISK + "for bit in 0 8 16 30 31; do hwreg /IO /INDEX /RI $((port + 16)) $((port + 20)) 0 $bit; done;"
    "busybox devmem $memory 32"
)
PAIR_WRITE = Q35.ask(  # global host control: bit 1 enables interrupts
    DISK + "busybox devmem $((memory + 4)) 32; hwreg /IO /INDEX /WI $((port + 16)) $((port + 20)) 4 1 1;"
    "busybox devmem $((memory + 4)) 32; hwreg /IO /INDEX /WD $((port + 16)) $((port + 20)) 4 0x80000000;"
    "busybox devmem $((memory + 4)) 32"
)


def test_dword_registers_read_as_in_the_devices_memory():
    lines = PAIR.stdout.splitlines()
    ours = [int(line.rpartition(":")[2], 16) for line in lines[::2]]
    assert ours == [int(line, 16) for line in lines[1::2]]
    assert len(set(ours)) > 3


def test_bits_of_dword_registers_are_those_in_the_devices_memory():
    *lines, value = PAIR_BITS.stdout.splitlines()
    assert [line[-1] for line in lines] == [str(int(value, 16) >> bit & 1) for bit in (0, 8, 16, 30, 31)]
    assert len({line[-1] for line in lines}) == 2


def test_what_is_written_to_dword_registers_is_found_in_the_devices_memory():
    before, _, with_bit, _, after = PAIR_WRITE.stdout.splitlines()
    assert int(with_bit, 16) == int(before, 16) | 2
    assert int(after, 16) == 0x80000000


# The view of the ports

VIEW = Q35.ask(
    PREPARE + "dd if=/dev/port bs=1 skip=128 count=256 2>/dev/null; hwreg /IO /DUMP 0x80 /TEXT;" + RESTORE,
    stdin=b"\x1b",
)
SILENT = Q35.ask(["hwreg", "/IO", "/DUMP", "0x80", "/NOMSG"])


def test_the_view_shows_what_the_kernels_port_device_shows():
    theirs, prompt, view = VIEW.stdout.partition("ESC: quite, Enter: continue IoAddress:0080\n")
    theirs = theirs.encode("latin-1")
    ours = cells(view)
    assert prompt and len(theirs) == len(ours) == 256
    # The interrupt controllers' requests (A0h) come and go.
    assert [at for at in range(256) if ours[at] != theirs[at] and at + 0x80 != 0xA0] == []
    assert (ours[1], ours[2], ours[7]) == (0x5A, 0xA5, 0x3C)


def test_the_silent_view_prints_nothing():
    assert (SILENT.stdout, SILENT.ending) == ("", "exit 0")
