"""/SMBUS on the host controller of the q35 machine, compared with i2c-tools on the same EEPROMs. The driver is loaded
for the peers and unloaded while the program drives the host."""

import re

import pytest

from boots import OVMF, PC, Q35

DRIVER = "modprobe i2c-dev; modprobe i2c-i801;"
RELEASE = "rmmod i2c-i801;"
HOST = "00:1f.3"
FIRST, SECOND = 0x50, 0x51  # 7-bit addresses; A0h and A2h for the program
OFFSETS = [0, 1, 2, 0x7F, 0x80, 0xFE, 0xFF]


def with_driver(boot, commands):
    return boot.ask(f"{DRIVER} {commands} {RELEASE}")


def fill(slave, word_at):
    """Writes all 256 bytes, two at a time: the shell's arithmetic with the offset in $at."""
    return f"for at in $(seq 0 2 254); do i2cset -y 0 {slave:#x} $at $(({word_at})) w; done;"


def i2cdump_bytes(answer):
    rows = [line[4:52].split() for line in answer.stdout.splitlines() if re.match("[0-9a-f]0: ", line)]
    return bytes.fromhex("".join("".join(row) for row in rows))


def shown_bytes(text):
    """The bytes of the program's plain view, which follows a line of its own."""
    rows = [line[3:51].split() for line in text.split("\r\n")[1:] if line]
    return bytes.fromhex("".join("".join(row) for row in rows))


def read_line(slave, offset, data):
    return f"SMBus read slave addr 0x{slave:02X} offset 0x{offset:02X}: 0x{data:02X}\n"


# Reading

CONTENTS = with_driver(Q35, fill(FIRST, "(at * 7963 + 9271) & 0xffff") + f"i2cdump -y 0 {FIRST:#x} b 2>/dev/null;")
READS = Q35.ask("".join(f"hwreg /SMBUS /RB 0xA0 {offset}; echo $?;" for offset in OFFSETS))
PEER_READS = with_driver(Q35, "".join(f"i2cget -y 0 {FIRST:#x} {offset} b;" for offset in OFFSETS))
DUMP = Q35.ask(["hwreg", "/SMBUS", "/DUMP", "0xA0", "/TEXT"])


def contents():
    data = i2cdump_bytes(CONTENTS)
    assert len(data) == 256 and len(set(data)) > 100
    return data


def test_bytes_read_as_i2cget_reads_them():
    values = [int(line, 16) for line in PEER_READS.stdout.split()]
    assert values == [contents()[offset] for offset in OFFSETS]
    expected = "".join(f"{read_line(0xA0, offset, value)}{value}\n" for offset, value in zip(OFFSETS, values))
    assert READS.stdout == expected


def test_a_dump_shows_what_i2cdump_shows():
    data = contents()
    assert data[2] != 0x0C
    assert DUMP.stdout.startswith("Dump SMBus from slave address 0xA0:\n")
    assert shown_bytes(DUMP.stdout) == data
    assert DUMP.ending == f"exit {data[2]}"


# A DDR4 module: 512 bytes. QEMU has no page addresses, so both halves are the same.

DDR4 = [with_driver(Q35, f"i2cset -y 0 {FIRST:#x} 2 0x0c b;"), Q35.ask(["hwreg", "/SMBUS", "/DUMP", "0xA0", "/TEXT"])]


def test_a_module_of_the_ddr4_type_is_dumped_in_two_pages():
    page = contents()[:2] + b"\x0c" + contents()[3:]
    text = DDR4[1].stdout
    assert text.startswith("Dump SMBus(DDR4) from slave address 0xA0:\n")
    assert (shown_bytes(text), DDR4[1].ending) == (page + page, "exit 12")


# Writing

WRITES = [(0, 0x5A), (0x10, 0x00), (0x80, 0xFF), (0xFF, 0xA5)]
BEFORE = with_driver(Q35, fill(SECOND, "0x3c3c") + f"i2cdump -y 0 {SECOND:#x} b 2>/dev/null;")
WRITTEN = Q35.ask("".join(f"hwreg /SMBUS /WB 0xA2 {offset} {data}; echo $?;" for offset, data in WRITES))
AFTER = with_driver(Q35, f"i2cdump -y 0 {SECOND:#x} b 2>/dev/null;")


def test_bytes_written_are_read_back_by_the_program():
    lines = "".join(read_line(0xA2, *write).replace("read", "write") + f"{write[1]}\n" for write in WRITES)
    assert WRITTEN.stdout == lines


def test_bytes_written_are_where_i2cdump_finds_them_and_nowhere_else():
    expected = bytearray(i2cdump_bytes(BEFORE))
    assert expected == b"\x3c" * 256
    for offset, data in WRITES:
        expected[offset] = data
    assert i2cdump_bytes(AFTER) == expected


# Scanning

SCAN = Q35.ask(["hwreg", "/SMBUS", "/S", "0", "0xFF"])
ODD_SCAN = Q35.ask(["hwreg", "/SMBUS", "/S", "0xA1", "0xA4"])
NARROW_SCAN = Q35.ask(["hwreg", "/SMBUS", "/S", "0xA2", "0xA6"])
DETECTED = with_driver(Q35, "i2cdetect -y -a -r 0;")


def test_a_scan_finds_the_slaves_that_i2cdetect_finds():
    found = [int(address, 16) for address in re.findall("address 0x(..)", SCAN.stdout)]
    rows = [line[4:].split() for line in DETECTED.stdout.splitlines() if re.match("[0-7]0: ", line)]
    detected = [2 * int(word, 16) for row in rows for word in row if word not in ("--", "UU")]
    assert found == detected == [0, *range(0xA0, 0xB0, 2)]  # 0 is the general call, which they all answer


def test_a_scan_shows_the_first_bytes_and_gives_the_last():
    line = "Valid SMBus slave address 0x{:02X}(data:{:02X}).\n".format
    first = contents()[0]
    assert NARROW_SCAN.stdout == line(0xA2, 0x5A) + line(0xA4, 0) + line(0xA6, 0)
    assert ODD_SCAN.stdout == line(0xA1, first) + line(0xA3, 0x5A)
    assert (NARROW_SCAN.ending, ODD_SCAN.ending) == ("exit 0", "exit 90")


# Failures

ABSENT = [Q35.ask(["hwreg", "/SMBUS", *words]) for words in (("/RB", "0x60", "3"), ("/WB", "0x60", "3", "1"),
                                                              ("/DUMP", "0x60"), ("/DUMP", "0xA6", "/NOMSG"))]
WORKING = with_driver(Q35, f"i2cget -y 0 {SECOND:#x} 0 b;")


def test_an_absent_slave_fails():
    assert [answer.stdout for answer in ABSENT[:3]] == [
        "Read addr 0x60 offset 0x03 error!\n", "Write addr 0x60 offset 0x03 error!\n", "Dump addr 0x60 error!\n"]
    assert {answer.ending for answer in ABSENT[:3]} == {"exit 255"}


def test_the_driver_works_after_the_program_has_driven_the_host():
    assert WORKING.stdout == "0x5a\n"


NOWHERE = PC.ask(["hwreg", "/SMBUS", "/RB", "0xA0", "0"])


def test_a_machine_without_the_class_has_no_host():
    assert (NOWHERE.stdout, NOWHERE.ending) == ("Not found ClaseCode(0C05)\n", "exit 255")


# The controller's I/O decoding, switched off and found on afterwards.

DECODING = Q35.ask(
    f"old=$(setpci -s {HOST} COMMAND); setpci -s {HOST} COMMAND=0:1; setpci -s {HOST} COMMAND;"
    f"hwreg /SMBUS /RB 0xA2 0; setpci -s {HOST} COMMAND; setpci -s {HOST} COMMAND=$old"
)


def test_io_decoding_is_switched_on_when_it_is_off():
    before, line, after = DECODING.stdout.splitlines(keepends=True)
    assert int(before, 16) & 1 == 0
    assert line == read_line(0xA2, 0, 0x5A)
    assert int(after, 16) == int(before, 16) | 1


# Another place: UEFI firmware puts the base where it likes. It leaves the host itself switched off (bit 0 of the host
# configuration at 40h), and the driver leaves it as it was found.

MOVED = with_driver(OVMF, f"setpci -s {HOST} 20.l; i2cset -y 0 {FIRST:#x} 5 0x77 b;")
MOVED_READ = OVMF.ask(
    f"old=$(setpci -s {HOST} 40.b); setpci -s {HOST} 40.b=1:1; hwreg /SMBUS /RB 0xA0 5; setpci -s {HOST} 40.b=$old"
)


def test_the_host_is_found_where_the_firmware_put_it():
    assert int(MOVED.stdout, 16) & ~0x1F != 0x700
    assert MOVED_READ.stdout == read_line(0xA0, 5, 0x77)


# What this chipset has not

REFUSED = {
    "I2C init error\n": Q35.ask(["hwreg", "/I2C", "/RB", "0", "0x50", "0"]),
    "InitSmuService error: 8000000F\n": Q35.ask(["hwreg", "/SMN", "/RD", "0", "0x18000"]),
}


@pytest.mark.parametrize("text", REFUSED)
def test_amds_services_are_refused_on_an_intel_chipset(text):
    assert REFUSED[text].stdout == text
    assert REFUSED[text].status == (255 if "I2C" in text else 0x0F)


# Zeros again, for those who come later.
with_driver(Q35, fill(FIRST, "0") + fill(SECOND, "0"))
with_driver(OVMF, f"i2cset -y 0 {FIRST:#x} 5 0 b;")
