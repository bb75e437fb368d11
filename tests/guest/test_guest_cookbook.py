"""docs/cookbook.md: each pair of lines, taken from the page as it stands, reads the same and does the same.

What the emulated machines lack runs on a simulated board in tests/docs/test_cookbook.py.
"""

import re

import pytest

import cookbook
import tables
from boots import BEHIND_BRIDGES, SharedBoot, TABLES_NOPAT
from guest import Machine
from pci import config_spaces, functions

BOOT = SharedBoot(Machine(machine="q35", smp=2, devices=BEHIND_BRIDGES[:2], append="iomem=relaxed nopat"))
BOOT.put("/usr/bin/shutdown", b'#!/bin/sh\necho "$*" >>/run/asked\n')
MARK = "== "

ROWS = cookbook.rows()


def in_turn(boot, *commands):
    """Asks for commands one behind the other; gives the answer to all."""
    return boot.ask(f"cd /tmp; echo '{MARK}'; " + f"; echo '{MARK}'; ".join(commands))


def pieces(answer):
    """What each of them printed."""
    return answer.stdout.split(f"{MARK}\n")[1:]


def tries(line):
    """How often a pair is run: the kernel, too, may write the address port between two commands."""
    return range(3 if "0xcf8" in line else 1)


# i2c-tools need the driver, hwreg drives the host itself.
WITH_DRIVER = "modprobe i2c-dev; modprobe i2c-i801; {}; rmmod i2c-i801"


def theirs(line):
    return WITH_DRIVER.format(line) if line.startswith("i2c") else line


# Reading lines: how each tool's answer is read, and ours where it is no line with a value.


def of_ours(text):
    """The values at the ends of lines."""
    return [int(value.replace("_", ""), 16) for value in re.findall(r"0x([0-9A-F_]+)$", text, re.MULTILINE)]


def hexadecimal(text):
    return [int(line, 16) for line in text.split()]


def decimal(mask):
    return lambda text: [int(line) & mask for line in text.split()]


def first_cell(text):
    """Of a line "address: value    characters"."""
    return [int(text.split()[1], 16)]


def of_cpuid(text):
    return [int(value, 16) for value in re.findall(r"e[a-d]x(?:=0x|:)(\w{8})", text.lower())]


def hour(text):
    return [int(re.match(r"\d{4}-\d\d-\d\d (\d\d):", text)[1], 16)]  # the clock runs in BCD


def listed(text):
    return [(f"{f.bus:02X}  {f.device:02X}  {f.function:02X}", f"{f.vendor:04X}{f.device_id:04X}")
            for f in functions(text)]


def of_listing(text):
    return re.findall(r"^(\w\w  \w\w  \w\w)  (\w{8}) ", text, re.MULTILINE)


def of_lspci(text):
    return list(config_spaces(text).values())


def of_view(text):
    """The bytes of our view, behind lines of its own."""
    rows = [line for line in text.splitlines() if re.match("[0-9A-F]{2} [0-9A-F]{2} ", line)]
    return [tables.bytes_of_view("\n".join(rows))]


def of_table(text):
    """The bytes of a table with rows "10: 00 01 ...", in small letters."""
    rows = re.findall(r"^[0-9a-f]0: ((?:[0-9a-f]{2} ){16})", text, re.MULTILINE)
    return [bytes.fromhex("".join(rows))]


def without_clock(reader):
    """The clock's own registers come twice in 256 bytes, and change."""
    return lambda text: [data[14:128] + data[142:] for data in reader(text)]


def detected(text):
    rows = [line[4:].split() for line in text.splitlines() if re.match("[0-7]0: ", line)]
    return [2 * int(word, 16) for row in rows for word in row if word not in ("--", "UU")]


def answering(text):
    return [int(address, 16) for address in re.findall("address 0x(..)", text)]


READS = {
    "setpci -s 00:1f.3 02.w": (hexadecimal, of_ours),
    "setpci -s 01:00.0 100.l": (hexadecimal, of_ours),
    "lspci -n": (listed, of_listing),
    "lspci -xxx -s 00:1f.0": (of_lspci, of_view),
    "rdmsr -p 1 0x1b": (hexadecimal, of_ours),
    "rdmsr -a 0x1b": (hexadecimal, of_ours),
    "cpuid -1 -r -l 0x80000008": (of_cpuid, of_cpuid),
    "busybox devmem 0xFED00000 32": (hexadecimal, of_ours),
    "memtool md -w 0x4F0+2": (first_cell, of_ours),
    "inb 0x3ff": (decimal(0xFF), of_ours),
    "inw 0x81": (decimal(0xFFFF), of_ours),
    "inl 0xcf8": (decimal(0xFFFFFFFF), of_ours),
    "i2cget -y 0 0x50 0x10 b": (hexadecimal, of_ours),
    "i2cdump -y 0 0x50 b": (of_table, of_view),
    "i2cdetect -y -r 0 0x50 0x57": (detected, answering),
    "isadump -y 0x70 0x71": (without_clock(of_table), without_clock(of_view)),
    "xxd -s 36 -l 1 /dev/nvram": (first_cell, of_ours),
    "hwclock --show --utc": (hour, of_ours),
}
# Values that tell the right place from another, and a checksum that the kernel's nvram driver accepts.
SUM = "sum=0; for at in $(seq 16 45); do outb 0x70 $at; sum=$((sum + $(inb 0x71))); done"
PREPARED = BOOT.ask(
    f"modprobe -a msr nvram; busybox devmem 0x4F0 16 0xBEEF; outb 0x3ff 0x77; outw 0x81 0x4321; {SUM};"
    "outb 0x70 46; outb 0x71 $((sum >> 8)); outb 0x70 47; outb 0x71 $((sum & 255)); wrmsr -p 1 0x20e 0x55000;"
    + WITH_DRIVER.format("for at in $(seq 0 2 254); do i2cset -y 0 0x50 $at $(((at * 7963 + 9271) & 0xffff)) w; done"))
# Both sides in one shell, with the address port as it is meant to be found.
ADDRESS = "outl 0xcf8 0x8000f800"
READINGS = {line: [in_turn(BOOT, ADDRESS, theirs(line), f"{ADDRESS}; {ROWS[line]}") for _ in tries(line)]
            for line in READS if line in ROWS}


@pytest.mark.parametrize("line", READS)
def test_both_lines_read_the_same(line):
    their_reader, our_reader = READS[line]
    texts = [pieces(answer) for answer in READINGS[line]]
    values = [(their_reader(their_text), our_reader(our_text)) for _, their_text, our_text in texts]
    assert [pair for pair in values if pair[0] and pair[0] == pair[1]], texts


def test_what_is_read_tells_the_places_apart():
    values = {line: READS[line][0](pieces(READINGS[line][0])[1]) for line in READS}
    assert [value for value in values.values() if value in ([0], [0xFF], [b""])] == []
    assert len(set(map(str, values.values()))) == len(values)


# Writing lines: what is done before, and how the place is looked at with another tool.

COMMAND_BYTE = ("setpci -s 00:1f.2 3c.b=06", "setpci -s 00:1f.2 3c.b")
SCRATCH = ("busybox devmem 0x4F0 32 0", "busybox devmem 0x4F0 32")
RANGE = ("wrmsr -a 0x20e 0x77000", "rdmsr -a 0x20e")
EEPROM = (WITH_DRIVER.format("i2cset -y 0 0x50 0x10 0 b"), WITH_DRIVER.format("i2cget -y 0 0x50 0x10 b"))
WRITES = {
    "setpci -s 00:1f.2 3c.b=0b": COMMAND_BYTE,
    "setpci -s 00:1f.2 3c.b=1:1": COMMAND_BYTE,
    "wrmsr -p 1 0x20e 0x123456789": RANGE,
    "wrmsr -a 0x20e 0x123456789": RANGE,
    "busybox devmem 0x4F0 8 0x5A": SCRATCH,
    "memtool mw -l 0x4F0 0x12345678": SCRATCH,
    "dd if=/dev/mem of=BIOS.BIN bs=4096 skip=240 count=16": ("rm -f BIOS.BIN", "sha256sum BIOS.BIN"),
    "outb 0x3ff 0x5a": ("outb 0x3ff 0", "inb 0x3ff"),
    "outw 0x81 0x1234": ("outw 0x81 0", "inw 0x81"),
    "outl 0xcf8 0x80001000": ("outl 0xcf8 0", "inl 0xcf8"),
    "i2cset -y 0 0x50 0x10 0x5a b": EEPROM,
    "isaset -y 0x70 0x71 0x50 0x5a": ("outb 0x70 0x50; outb 0x71 0", "outb 0x70 0x50; inb 0x71"),
    "shutdown -P now": ("rm -f /run/asked", "cat /run/asked"),
}
WRITINGS = {line: [in_turn(BOOT, before, look, theirs(line), look, before, look, ROWS[line], look) for _ in tries(line)]
            for line, (before, look) in WRITES.items() if line in ROWS}


def writes_the_same(texts):
    _, before, _, written, _, again, _, ours = texts
    return again == before != written == ours != ""


@pytest.mark.parametrize("line", WRITES)
def test_both_lines_write_the_same(line):
    texts = [pieces(answer) for answer in WRITINGS[line]]
    assert [text for text in texts if writes_the_same(text)], texts


# The alarm: both set the clock's registers (BCD), and have the machine switched off. The kernel's clock, which tells
# when, may be a second or two from that one. While one is set the kernel asks
# the clock 64 times a second, and may come between index and data: so one program reads the registers, and thrice.

ALARM = "isadump -y 0x70 0x71 | sed -n 's/^00: //p'"
ASLEEP = {side: in_turn(BOOT, "rm -f /run/asked", "date -u +%H:%M:%S", line, "cat /run/asked", ALARM, ALARM, ALARM)
          for side, line in (("theirs", "rtcwake -m off -s 60"), ("ours", ROWS.get("rtcwake -m off -s 60")))}


def seconds_of(hour, minute, second):
    return int(hour) * 3600 + int(minute) * 60 + int(second)


@pytest.mark.parametrize("side", ASLEEP)
def test_both_lines_set_the_alarm_and_ask_for_the_power_off(side):
    _, now, _, asked, *rows = pieces(ASLEEP[side])
    assert asked.endswith("-P now\n")
    alarms = [row.split()[5:0:-2] for row in rows]
    ahead = [(seconds_of(*alarm) - seconds_of(*now.split(":"))) % 86400 for alarm in alarms if "".join(alarm).isdigit()]
    assert [seconds for seconds in ahead if 57 <= seconds <= 90], (now, alarms)


# The firmware's tables


def structures(text):
    """The bytes of each structure that dmidecode shows undecoded, the end of its strings added."""
    found = []
    for part in re.split(r"^Handle .*\n", text, flags=re.MULTILINE)[1:]:
        rows = re.findall(r"^\t\t((?:[0-9A-F]{2} ?)+)$", part, re.MULTILINE)
        found.append(bytes.fromhex("".join(rows)) + (b"\0" if "Strings:" in part else b"\0\0"))
    return found


def views(text):
    """The bytes of each view of ours."""
    return [tables.bytes_of_view(part) for part in re.split(r"^   00 .*\n", text, flags=re.MULTILINE)[1:]]


TABLES = {line: in_turn(TABLES_NOPAT, line, ROWS[line]) for line in ("dmidecode -u -t 1", "dmidecode -u")
          if line in ROWS}
ACPI = in_turn(BOOT, "acpidump -s", ROWS.get("acpidump -s", ""), "set -- $(hwreg /ACPI /DUMP /LOG /TEXT | sed -n 3p);"
               "hwreg /MEM /RD 0x$5$4$3$2")


def test_a_type_has_the_same_bytes_in_both():
    their_text, our_text = pieces(TABLES["dmidecode -u -t 1"])
    assert structures(their_text) == views(our_text) and len(views(our_text)) == 1


def test_all_structures_but_the_end_have_the_same_bytes_in_both():
    their_text, our_text = pieces(TABLES["dmidecode -u"])
    ours = [view for part in re.split(r"^SMBIOS .*\n", our_text, flags=re.MULTILINE)[1:] for view in views(part)]
    assert structures(their_text)[:-1] == ours and len(ours) > 8


def test_the_root_pointer_is_of_the_maker_of_the_tables_and_points_to_them():
    their_text, our_text, table = pieces(ACPI)
    (maker,) = set(re.findall(r" \(v\d\d (\w+) ", their_text))
    assert of_view(our_text)[0][9:15].decode().strip() == maker
    assert of_ours(table) == [int.from_bytes(b"RSDT", "little")]


# What the page's prose says of the differences: the line, what is done before, and what is printed.

NO_CPU = "Cpu[09] Msr read from 0000001B, return MSR: 0x00000000_00000000"
SAID = {
    "setpci -s 00:1f.3 01.w": ("", "", "Unaligned register address"),
    "rdmsr -p 9 0x1b": ("hwreg /MSR /RD 9 0x1B; ", NO_CPU, "rdmsr: open: No such file or directory"),
    "busybox devmem 02360 8": ("busybox devmem 0x4F0 8 0xEF; ", "0xEF", ""),
    "inl 0xcf8": ("outl 0xcf8 0x80000000; inl 0xcf8; outl 0xcf8 0x80000000; ", "-2147483648", ""),
}
SAYING = {line: BOOT.ask(f"modprobe msr; {before}{line}") for line, (before, _, _) in SAID.items()}
ON_CPU_1 = in_turn(BOOT, "taskset -c 1 hwreg /CPUID /RD 1", "taskset -c 1 cpuid -1 -r -l 1 -s 0")


@pytest.mark.parametrize("line", SAID)
def test_the_others_differ_as_the_page_says(line):
    _, printed, complained = SAID[line]
    assert line in ROWS or cookbook.says(line)
    assert printed in SAYING[line].stdout.splitlines() or not printed and SAYING[line].stdout == ""
    assert complained in SAYING[line].stderr and bool(complained) == bool(SAYING[line].stderr)


def test_a_leaf_of_one_cpu():
    assert cookbook.says("taskset -c 1 hwreg /CPUID /RD 1")
    ours, others = map(of_cpuid, pieces(ON_CPU_1))
    assert ours == others and ours[1] >> 24 == 1


def test_every_pair_of_the_page_is_run():
    here = [*READS, *WRITES, "rtcwake -m off -s 60", "dmidecode -u -t 1", "dmidecode -u", "acpidump -s"]
    assert sorted([*here, *cookbook.SIMULATED]) == sorted(ROWS)
