"""/IO /INDEX: registers behind a pair of ports.

The boards have the clock and its memory behind 70h/71h, a second bank of memory behind 72h/73h, and latches at 500h to
5FFh (0, 1, 2 ...) that stand for wider pairs here."""

import pytest
from expected import DELAY, assert_run, hex_view

# CMOS memory that the tests look at.
CONTENTS = ["cmos-bytes 10 11 22 44 88", "cmos-bytes 90 1e 2d 4b 87"]
DWORD = 0x88442211


def sequence(*accesses):
    """The accesses with the two delay writes before each index write: every pair of lines is index and data."""
    lines = []
    for index, data in zip(accesses[::2], accesses[1::2]):
        lines += [*DELAY, index, data]
    return lines


def check(result, text, status, *accesses):
    assert_run(result, text, status, sequence(*accesses))


@pytest.fixture
def index(run):
    def go(args, **more):
        return run(f"/IO /INDEX {args}", extra=CONTENTS, **more)

    return go


# Bytes


def test_a_byte_is_read_by_its_index(index):
    check(index("/RB 0x70 0x71 0x10"), "IOIndex/Data 70/71 offset 10 Read Byte: return data:0x11\n", 0x11,
          "out8 0070 10", "in8 0071 -> 11")


def test_a_byte_is_written_and_read_back(index):
    check(index("/WB 0x72 0x73 0x20 0x5A"), "IOIndex/Data 72/73 offset 20 Write Byte data:5A, return data:0x5A\n", 0x5A,
          "out8 0072 20", "out8 0073 5a", "out8 0072 20", "in8 0073 -> 5a")


def test_read_only_registers_show_what_they_hold(index):
    check(index("/WB 0x70 0x71 0x0C 0xFF"), "IOIndex/Data 70/71 offset C Write Byte data:FF, return data:0x00\n", 0,
          "out8 0070 0c", "out8 0071 ff", "out8 0070 0c", "in8 0071 -> 00")


# Words and dwords: CMOS registers are bytes, other pairs have wide data ports


@pytest.mark.parametrize("ports, values", [("0x70 0x71", (0x11, 0x22)), ("0x72 0x73", (0x1E, 0x2D))])
def test_a_cmos_word_is_two_registers_the_high_one_first(index, ports, values):
    one, two = (int(port, 16) for port in ports.split())
    low, high = values
    check(index(f"/RW {ports} 0x10"),
          f"IOIndex/Data {one:X}/{two:X} offset 10 Read Word: return data:0x{high:02X}{low:02X}\n", low,
          f"out8 {one:04x} 11", f"in8 {two:04x} -> {high:02x}", f"out8 {one:04x} 10", f"in8 {two:04x} -> {low:02x}")


@pytest.mark.parametrize("ports, values", [("0x70 0x71", (0x11, 0x22, 0x44, 0x88)),
                                           ("0x72 0x73", (0x1E, 0x2D, 0x4B, 0x87))])
def test_a_cmos_dword_is_four_registers_from_the_highest_down(index, ports, values):
    one, two = (int(port, 16) for port in ports.split())
    accesses = []
    for register in (3, 2, 1, 0):
        accesses += [f"out8 {one:04x} {0x10 + register:02x}", f"in8 {two:04x} -> {values[register]:02x}"]
    value = int.from_bytes(values, "little")
    check(index(f"/RD {ports} 0x10"),
          f"IOIndex/Data {one:X}/{two:X} offset 10 Read Dword: return data:0x{value:08X}\n", values[0], *accesses)


def test_a_cmos_word_is_written_the_high_register_first(index):
    check(index("/WW 0x70 0x71 0x20 0x1234"),
          "IOIndex/Data 70/71 offset 20 Write Word data:1234, return data:0x1234\n", 0x34,
          "out8 0070 21", "out8 0071 12", "out8 0070 20", "out8 0071 34",
          "out8 0070 21", "in8 0071 -> 12", "out8 0070 20", "in8 0071 -> 34")


def test_a_cmos_dword_is_written_from_the_highest_register_down(index):
    check(index("/WD 0x72 0x73 0x10 0x11223344"),
          "IOIndex/Data 72/73 offset 10 Write Dword data:11223344, return data:0x11223344\n", 0x44,
          "out8 0072 13", "out8 0073 11", "out8 0072 12", "out8 0073 22",
          "out8 0072 11", "out8 0073 33", "out8 0072 10", "out8 0073 44",
          "out8 0072 13", "in8 0073 -> 11", "out8 0072 12", "in8 0073 -> 22",
          "out8 0072 11", "in8 0073 -> 33", "out8 0072 10", "in8 0073 -> 44")


# The chip takes the high byte of a wide index as data, for the ports are bytes.
def test_the_registers_of_a_cmos_word_may_need_index_writes_of_two_widths(index):
    check(index("/RW 0x72 0x73 0xFF"), "IOIndex/Data 72/73 offset FF Read Word: return data:0x0100\n", 0,
          "out16 0072 0100", "in8 0073 -> 01", "out8 0072 ff", "in8 0073 -> 00")


@pytest.mark.parametrize("args, text, accesses", [
    ("/RW 0x2E 0x2F 0x10", "2E/2F offset 10 Read Word: return data:0xFFFF\n",
     ["out8 002e 10", "in16 002f -> ffff"]),
    ("/RD 0x2E 0x2F 0x10", "2E/2F offset 10 Read Dword: return data:0xFFFFFFFF\n",
     ["out8 002e 10", "in32 002f -> ffffffff"]),
    ("/RW 0x500 0x510 0x10", "500/510 offset 10 Read Word: return data:0x1110\n",
     ["out8 0500 10", "in16 0510 -> 1110"]),
    ("/RD 0x500 0x510 0x10", "500/510 offset 10 Read Dword: return data:0x13121110\n",
     ["out8 0500 10", "in32 0510 -> 13121110"]),
    ("/WW 0x500 0x510 0x10 0xBEEF", "500/510 offset 10 Write Word data:BEEF, return data:0xBEEF\n",
     ["out8 0500 10", "out16 0510 beef", "out8 0500 10", "in16 0510 -> beef"]),
    ("/WD 0x500 0x510 0x10 0xDEADBEEF", "500/510 offset 10 Write Dword data:DEADBEEF, return data:0xDEADBEEF\n",
     ["out8 0500 10", "out32 0510 deadbeef", "out8 0500 10", "in32 0510 -> deadbeef"]),
    # The second bank's data port behind another index port is no CMOS pair.
    ("/RW 0x74 0x73 0", "74/73 offset 0 Read Word: return data:0xFF48\n", ["out8 0074 00", "in16 0073 -> ff48"]),
])
def test_other_pairs_have_data_ports_of_the_access_width(index, args, text, accesses):
    result = index(args)
    assert result.text == "IOIndex/Data " + text
    assert result.ports(delays=True) == sequence(*accesses)
    assert result.status == int(text[-3:-1], 16)


@pytest.mark.parametrize("args, text, write", [
    ("/WB 0x500 0x510 1 0x1234", "Write Byte data:34, return data:0x34\n", "out8 0510 34"),
    ("/WW 0x500 0x510 1 0x12345678", "Write Word data:5678, return data:0x5678\n", "out16 0510 5678"),
    ("/WD 0x500 0x510 1 0x123456789", "Write Dword data:23456789, return data:0x23456789\n", "out32 0510 23456789"),
])
def test_data_is_cut_to_the_width(index, args, text, write):
    result = index(args)
    assert result.text == "IOIndex/Data 500/510 offset 1 " + text
    assert result.ports()[1] == write


# The index


@pytest.mark.parametrize("register, write", [
    (0x00, "out8 0500 00"),
    (0xFF, "out8 0500 ff"),
    (0x100, "out16 0500 0100"),
    (0xFFFF, "out16 0500 ffff"),
    (0x10000, "out32 0500 00010000"),
    (0xFFFFFFFF, "out32 0500 ffffffff"),
])
@pytest.mark.parametrize("word, width, value", [("RB", "8", "10"), ("RW", "16", "1110"), ("RD", "32", "13121110")])
def test_the_width_of_the_index_write_follows_from_its_value(index, register, write, word, width, value):
    result = index(f"/{word} 0x500 0x510 {register:#x}")
    assert f"offset {register:X} Read" in result.text
    assert result.ports(delays=True) == sequence(write, f"in{width} 0510 -> {value}")


def test_an_index_is_cut_to_32_bits(index):
    assert index("/RB 0x70 0x71 0x100000011").text == "IOIndex/Data 70/71 offset 11 Read Byte: return data:0x22\n"


# The ports


@pytest.mark.parametrize("operands, shown, accesses", [
    ("0x72 0 0x10", "72/73 offset 10", ["out8 0072 10", "in8 0073 -> 1e"]),
    ("0x70 0x10000 0x10", "70/71 offset 10", ["out8 0070 10", "in8 0071 -> 11"]),
    ("0x10070 0x10071 0x10", "70/71 offset 10", ["out8 0070 10", "in8 0071 -> 11"]),
    ("0 0 5", "0/0 offset 5", ["out8 0000 05", "in8 0000 -> ff"]),
    ("0 0x71 5", "0/71 offset 5", ["out8 0000 05", "in8 0071 -> 06"]),
    ("0xFFFF 0 5", "FFFF/0 offset 5", ["out8 ffff 05", "in8 0000 -> ff"]),
    ("", "0/0 offset 0", ["out8 0000 00", "in8 0000 -> ff"]),
    ("0x70", "70/71 offset 0", ["out8 0070 00", "in8 0071 -> 06"]),
])
def test_a_data_port_of_0_is_the_one_behind_the_index_port(index, operands, shown, accesses):
    result = index(f"/RB {operands}")
    assert result.text.startswith(f"IOIndex/Data {shown} Read Byte: ")
    assert result.ports(delays=True) == sequence(*accesses)


# Bits


def access(bit):
    return 8 if bit < 8 else 16 if bit < 16 else 32


def hexadecimal(width, value):
    return f"{value & (1 << width) - 1:0{width // 4}x}"


@pytest.mark.parametrize("bit", range(32))
def test_a_bit_is_read_through_a_data_port_of_the_width_that_holds_it(run, bit):
    result = run(f"/IO /INDEX /RI 0x500 0x600 0x20 {bit}", extra="constant 0600 11 22 44 88")
    value = DWORD >> bit & 1
    check(result, f"IOIndex/Data Read 500/600 offset 20 Bit{bit}: return data:{value}\n", value,
          "out8 0500 20", f"in{access(bit)} 0600 -> {hexadecimal(access(bit), DWORD)}")


@pytest.mark.parametrize("value", [0, 1])
@pytest.mark.parametrize("bit", [0, 7, 8, 15, 16, 31])
def test_a_bit_is_written_by_reading_changing_and_writing_back(run, bit, value):
    before = 0 if value else 0xFFFFFFFF
    after = before ^ 1 << bit
    result = run(f"/IO /INDEX /WI 0x500 0x600 0x20 {bit} {value}", extra=f"latch 0600 4 {before & 0xFF:02x}")
    width = access(bit)
    check(result, f"IOIndex/Data Write 500/600 offset 20 Bit{bit} wValue:{value}, return data:{value}\n", value,
          "out8 0500 20", f"in{width} 0600 -> {hexadecimal(width, before)}",
          "out8 0500 20", f"out{width} 0600 {hexadecimal(width, after)}",
          "out8 0500 20", f"in{width} 0600 -> {hexadecimal(width, after)}")


def test_a_bit_of_the_clock_is_changed_in_place(index):
    check(index("/WI 0x70 0x71 0x0B 7 1"), "IOIndex/Data Write 70/71 offset B Bit7 wValue:1, return data:1\n", 1,
          "out8 0070 0b", "in8 0071 -> 02", "out8 0070 0b", "out8 0071 82", "out8 0070 0b", "in8 0071 -> 82")


def test_a_high_bit_of_a_cmos_register_is_read_at_the_data_port_and_not_in_the_next_register(index):
    check(index("/RI 0x72 0x73 0x10 9"), "IOIndex/Data Read 72/73 offset 10 Bit9: return data:1\n", 1,
          "out8 0072 10", "in16 0073 -> ff1e")


@pytest.mark.parametrize("bit", [32, 40, 256, 4294967295])
def test_there_is_no_bit_above_31(index, bit):
    check(index(f"/RI 0x70 0x71 0x10 {bit}"), f"IOIndex/Data Read 70/71 offset 10 Bit{bit}: return data:0\n", 0)
    check(index(f"/WI 0x70 0x71 0x10 {bit} 1"),
          f"IOIndex/Data Write 70/71 offset 10 Bit{bit} wValue:1, return data:0\n", 0)


@pytest.mark.parametrize("value, shown, after", [("2", 2, 1), ("256", 0, 0), ("0x1FF", 255, 1), ("", 0, 0)])
def test_any_value_whose_low_byte_is_not_zero_sets_the_bit(index, value, shown, after):
    result = index(f"/WI 0x70 0x71 0x20 0 {value}")
    assert result.text == f"IOIndex/Data Write 70/71 offset 20 Bit0 wValue:{shown}, return data:{after}\n"
    assert result.status == after


# Several words: the first in the order of the command line


@pytest.mark.parametrize("args, text, status, accesses", [
    # Its operands count; the message is the read's when a read of the width is there; the write is made.
    ("/WB 0x72 0x73 0x21 0x55 /RB", "IOIndex/Data 72/73 offset 21 Read Byte: return data:0x55\n", 0x55,
     ["out8 0072 21", "out8 0073 55", "out8 0072 21", "in8 0073 -> 55"]),
    ("/RB 0x70 0x71 0x10 /WB 0x72 0x73 0x11 0x55", "IOIndex/Data 70/71 offset 10 Read Byte: return data:0x00\n", 0,
     ["out8 0070 10", "out8 0071 00", "out8 0070 10", "in8 0071 -> 00"]),
    ("/WW 0x500 0x510 1 0x1234 /RW", "IOIndex/Data 500/510 offset 1 Read Word: return data:0x1234\n", 0x34,
     ["out8 0500 01", "out16 0510 1234", "out8 0500 01", "in16 0510 -> 1234"]),
    ("/WD 0x500 0x510 1 0x12345678 /RD", "IOIndex/Data 500/510 offset 1 Read Dword: return data:0x12345678\n", 0x78,
     ["out8 0500 01", "out32 0510 12345678", "out8 0500 01", "in32 0510 -> 12345678"]),
    ("/RD 0x500 0x510 1 /RI 0x70 0x71 0 0", "IOIndex/Data 500/510 offset 1 Read Dword: return data:0x13121110\n",
     0x10, ["out8 0500 01", "in32 0510 -> 13121110"]),
    ("/RB 0x70 0x71 0x10 /DUMP 0x72 0x73", "IOIndex/Data 70/71 offset 10 Read Byte: return data:0x11\n", 0x11,
     ["out8 0070 10", "in8 0071 -> 11"]),
    # Both bit words: both messages, and the write is made.
    ("/WI 0x70 0x71 0x20 3 1 /RI", "IOIndex/Data Read 70/71 offset 20 Bit3: IOIndex/Data Write 70/71 offset 20 Bit3 "
     "wValue:1, return data:1\n", 1,
     ["out8 0070 20", "in8 0071 -> 00", "out8 0070 20", "out8 0071 08", "out8 0070 20", "in8 0071 -> 08"]),
    # The word may stand before the command's.
    ("/NOMSG", "", 2, []),
])
def test_the_first_access_word_is_carried_out(index, args, text, status, accesses):
    check(index(args), text, status, *accesses)


def test_an_access_word_before_the_command_word_is_as_good(run):
    result = run("/RB 0x70 0x71 0x0A /INDEX /IO")
    check(result, "IOIndex/Data 70/71 offset A Read Byte: return data:0x26\n", 0x26, "out8 0070 0a", "in8 0071 -> 26")


@pytest.mark.parametrize("args", ["/IO /INDEX", "/IO /INDEX 0x70 0x71 0x10", "/IO /INDEX /RQ 0x70 0x71 0x10"])
def test_without_an_access_nothing_is_done(run, args):
    check(run(args), "", 2)


# The view


def all_registers(port, data_port, values):
    accesses = []
    for register, value in enumerate(values):
        accesses += [f"out8 {port:04x} {register:02x}", f"in8 {data_port:04x} -> {value:02x}"]
    return sequence(*accesses)


def second_bank():
    values = bytearray(128)
    values[0:5] = b"HWREG"
    values[0x10:0x14] = bytes([0x1E, 0x2D, 0x4B, 0x87])
    return bytes(values) * 2  # bit 7 of the index is not part of it


@pytest.mark.parametrize("args", ["/DUMP 0x72 0x73", "/DUMP 0x72", "/DUMP 0x72 0 0x55", "/DUMP 0x72 0x73 /LOG /TEXT",
                                  "/DUMP 0x72 0x73 /RB 0x70"])
def test_the_view_shows_256_registers_without_a_pause(index, args):
    result = index(args, stdin=b"")
    values = second_bank()
    assert result.text == "ESC: quite, Enter: continue IOIndex/Data 72/73\n" + hex_view(values, plain=True)
    assert result.status == 0
    assert result.ports(delays=True) == all_registers(0x72, 0x73, values)


def test_the_view_does_not_wait_on_a_terminal(terminal):
    result = terminal("/IO /INDEX /DUMP 0x72 0x73", extra=CONTENTS)
    assert result.status == 0
    assert result.text.count("\n") == 18


def test_the_view_of_the_clock_shows_the_time(index):
    assert "00 06 00 05 00 04 00 07 03 02 24 26 02 00 80 " in index("/DUMP 0x70 0x71").text


def test_without_messages_all_registers_are_read_in_silence(index):
    result = index("/DUMP 0x72 0x73 /NOMSG")
    assert (result.text, result.status) == ("", 0)
    assert result.ports(delays=True) == all_registers(0x72, 0x73, second_bank())
