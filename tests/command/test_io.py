"""/IO: one port, one bit of a port, and the paged view of the ports.

The boards have latches at 80h to 8Fh, a block at 500h that holds 0, 1, 2 ..., and read-only 1Ch at 64h."""

import os

import pytest
from expected import CLEAR, IO_USAGE, assert_run, hex_view

ESC = b"\x1b"

# Four ports of which each bit of the dword can be told: 0x88442211.
FOUR = "constant 0600 11 22 44 88"
FOUR_VALUE = 0x88442211


def check(result, text, status, *ports):
    assert_run(result, text, status, list(ports))


# Bytes, words, dwords


@pytest.mark.parametrize("args, text, status, access", [
    ("/IO /RB 0x50A", "IO Read Byte Port: 50A, return data:0x0A\n", 0x0A, "in8 050a -> 0a"),
    ("/IO /RW 0x50A", "IO Read Word Port: 50A, return data:0x0B0A\n", 0x0A, "in16 050a -> 0b0a"),
    ("/IO /RD 0x50A", "IO Read Dword Port: 50A, return data:0x0D0C0B0A\n", 0x0A, "in32 050a -> 0d0c0b0a"),
    ("/IO /RW 0x50B", "IO Read Word Port: 50B, return data:0x0C0B\n", 0x0B, "in16 050b -> 0c0b"),
    ("/IO /RD 0x50F", "IO Read Dword Port: 50F, return data:0x1211100F\n", 0x0F, "in32 050f -> 1211100f"),
    ("/IO /RB 1290", "IO Read Byte Port: 50A, return data:0x0A\n", 0x0A, "in8 050a -> 0a"),
    ("-io \\rb 0x64", "IO Read Byte Port: 64, return data:0x1C\n", 0x1C, "in8 0064 -> 1c"),
    ("/RD 0x508 /IO", "IO Read Dword Port: 508, return data:0x0B0A0908\n", 0x08, "in32 0508 -> 0b0a0908"),
])
def test_a_read_is_one_access_and_its_value_is_the_status(run, args, text, status, access):
    check(run(args), text, status, access)


@pytest.mark.parametrize("args, text, status", [
    ("/IO /RB 0x3F0", "IO Read Byte Port: 3F0, return data:0xFF\n", 0xFF),
    ("/IO /RW 0x3F0", "IO Read Word Port: 3F0, return data:0xFFFF\n", 0xFF),
    ("/IO /RD 0x3F0", "IO Read Dword Port: 3F0, return data:0xFFFFFFFF\n", 0xFF),
])
def test_ports_of_nobody_read_all_ones(run, args, text, status):
    result = run(args)
    assert (result.text, result.status) == (text, status)


def test_the_address_port_of_the_configuration_space_is_read_as_a_dword(run):
    result = run("/IO /RD 0x0CF8")
    check(result, "IO Read Dword Port: CF8, return data:0x00000000\n", 0, "in32 0cf8 -> 00000000")


@pytest.mark.parametrize("args, text, status, accesses", [
    ("/IO /WB 0x80 0x5A", "IO Write Byte Port:80 Data: 5A, return data:0x5A\n", 0x5A,
     ["out8 0080 5a", "in8 0080 -> 5a"]),
    ("/IO /WW 0x80 0xBEEF", "IO Write Word Port:80 Data: BEEF, return data:0xBEEF\n", 0xEF,
     ["out16 0080 beef", "in16 0080 -> beef"]),
    ("/IO /WD 0x80 0x89ABCDEF", "IO Write Dword Port:80 Data: 89ABCDEF, return data:0x89ABCDEF\n", 0xEF,
     ["out32 0080 89abcdef", "in32 0080 -> 89abcdef"]),
    ("/IO /WB 0x85 7", "IO Write Byte Port:85 Data: 07, return data:0x07\n", 7, ["out8 0085 07", "in8 0085 -> 07"]),
    ("/IO /WW 0x85 7", "IO Write Word Port:85 Data: 0007, return data:0x0007\n", 7,
     ["out16 0085 0007", "in16 0085 -> 0007"]),
    ("/IO /WD 0x85 7", "IO Write Dword Port:85 Data: 00000007, return data:0x00000007\n", 7,
     ["out32 0085 00000007", "in32 0085 -> 00000007"]),
])
def test_a_write_is_one_access_and_is_read_back(run, args, text, status, accesses):
    check(run(args), text, status, *accesses)


@pytest.mark.parametrize("args, text, status, accesses", [
    ("/IO /WB 0x80 0x1234", "IO Write Byte Port:80 Data: 34, return data:0x34\n", 0x34,
     ["out8 0080 34", "in8 0080 -> 34"]),
    ("/IO /WW 0x80 0x12345678", "IO Write Word Port:80 Data: 5678, return data:0x5678\n", 0x78,
     ["out16 0080 5678", "in16 0080 -> 5678"]),
    ("/IO /WD 0x80 0x123456789", "IO Write Dword Port:80 Data: 23456789, return data:0x23456789\n", 0x89,
     ["out32 0080 23456789", "in32 0080 -> 23456789"]),
])
def test_data_is_cut_to_the_width(run, args, text, status, accesses):
    check(run(args), text, status, *accesses)


def test_what_is_read_back_is_the_ports_value_and_not_what_was_written(run):
    result = run("/IO /WB 0x64 0xFE")
    check(result, "IO Write Byte Port:64 Data: FE, return data:0x1C\n", 0x1C, "out8 0064 fe", "in8 0064 -> 1c")


@pytest.mark.parametrize("port, shown", [("0x10080", "80"), ("65664", "80"), ("0xFFFF0080", "80"),
                                         ("0x100000080", "80"), ("0x1234567890080", "80")])
def test_a_port_above_ffff_wraps(run, port, shown):
    result = run(f"/IO /RB {port}")
    check(result, f"IO Read Byte Port: {shown}, return data:0x00\n", 0, "in8 0080 -> 00")


@pytest.mark.parametrize("args, text, access", [
    ("/IO /RB 0xFFFF", "IO Read Byte Port: FFFF, return data:0xFF\n", "in8 ffff -> ff"),
    ("/IO /RW 0xFFFF", "IO Read Word Port: FFFF, return data:0xFFFF\n", "in16 ffff -> ffff"),
    ("/IO /RD 0xFFFD", "IO Read Dword Port: FFFD, return data:0xFFFFFFFF\n", "in32 fffd -> ffffffff"),
])
def test_the_last_ports_are_within_reach(run, args, text, access):
    check(run(args), text, 0xFF, access)


@pytest.mark.parametrize("args, text, status, accesses", [
    ("/IO /RB", "IO Read Byte Port: 0, return data:0xFF\n", 0xFF, ["in8 0000 -> ff"]),
    ("/IO /RD", "IO Read Dword Port: 0, return data:0xFFFFFFFF\n", 0xFF, ["in32 0000 -> ffffffff"]),
    ("/IO /WB 0x80", "IO Write Byte Port:80 Data: 00, return data:0x00\n", 0, ["out8 0080 00", "in8 0080 -> 00"]),
    ("/IO /WW", "IO Write Word Port:0 Data: 0000, return data:0xFFFF\n", 0xFF,
     ["out16 0000 0000", "in16 0000 -> ffff"]),
    ("/IO /RI 0x501", "IO Read Port: 501 Bit0, return data:1\n", 1, ["in8 0501 -> 01"]),
    ("/IO /WI 0x501", "IO Write Port:501 Bit0, wValue:0, return data:0\n", 0,
     ["in8 0501 -> 01", "out8 0501 00", "in8 0501 -> 00"]),
    ("/IO /RB 0x50A 0x99 0x88 /NOMSG /TEXT /LOG", "IO Read Byte Port: 50A, return data:0x0A\n", 0x0A,
     ["in8 050a -> 0a"]),
    ("/IO /RB FF", "IO Read Byte Port: 0, return data:0xFF\n", 0xFF, ["in8 0000 -> ff"]),
])
def test_missing_operands_are_zero_and_further_ones_are_ignored(run, args, text, status, accesses):
    check(run(args), text, status, *accesses)


# Bits


def access_of_bit(bit):
    """Width and last digit of the access by which a bit is reached."""
    return 8 if bit < 8 else 16 if bit < 16 else 32


def in_line(width, port, value):
    return f"in{width} {port:04x} -> {value & (1 << width) - 1:0{width // 4}x}"


def out_line(width, port, value):
    return f"out{width} {port:04x} {value & (1 << width) - 1:0{width // 4}x}"


@pytest.mark.parametrize("bit", range(32))
def test_a_bit_is_read_by_one_access_of_the_narrowest_width_that_holds_it(run, bit):
    result = run(f"/IO /RI 0x600 {bit}", extra=FOUR)
    value = FOUR_VALUE >> bit & 1
    text = f"IO Read Port: 600 Bit{bit}, return data:{value}\n"
    check(result, text, value, in_line(access_of_bit(bit), 0x600, FOUR_VALUE))


@pytest.mark.parametrize("before", [0x00000000, 0xFFFFFFFF])
@pytest.mark.parametrize("value", [0, 1])
@pytest.mark.parametrize("bit", [0, 3, 7, 8, 12, 15, 16, 24, 31])
def test_a_bit_is_written_by_reading_changing_and_writing_back(run, bit, value, before):
    after = before | 1 << bit if value else before & ~(1 << bit)
    result = run(f"/IO /WI 0x80 {bit} {value}", extra=f"latch 0080 4 {before & 0xFF:02x}")
    width = access_of_bit(bit)
    check(result, f"IO Write Port:80 Bit{bit}, wValue:{value}, return data:{value}\n", value,
          in_line(width, 0x80, before), out_line(width, 0x80, after), in_line(width, 0x80, after))


@pytest.mark.parametrize("bit", [32, 33, 40, 255, 256, 65536, 4294967295])
def test_there_is_no_bit_above_31(run, bit):
    check(run(f"/IO /RI 0x501 {bit}"), f"IO Read Port: 501 Bit{bit}, return data:0\n", 0)
    check(run(f"/IO /WI 0x501 {bit} 1"), f"IO Write Port:501 Bit{bit}, wValue:1, return data:0\n", 0)


def test_a_bit_number_is_cut_to_32_bits(run):
    check(run("/IO /RI 0x501 0x100000000"), "IO Read Port: 501 Bit0, return data:1\n", 1, "in8 0501 -> 01")


@pytest.mark.parametrize("value, shown, after", [("2", 2, 1), ("0x80", 128, 1), ("256", 0, 0), ("0x1FF", 255, 1),
                                                 ("0x100000000", 0, 0)])
def test_any_value_whose_low_byte_is_not_zero_sets_the_bit(run, value, shown, after):
    result = run(f"/IO /WI 0x80 1 {value}")
    assert (result.text, result.status) == (f"IO Write Port:80 Bit1, wValue:{shown}, return data:{after}\n", after)
    assert result.ports()[1] == f"out8 0080 {after << 1:02x}"


def test_the_speaker_bit_of_port_61_can_be_switched(run):
    result = run("/IO /WI 0x61 1 2")
    check(result, "IO Write Port:61 Bit1, wValue:2, return data:1\n", 1,
          "in8 0061 -> 10", "out8 0061 12", "in8 0061 -> 02")


def test_a_port_that_keeps_nothing_reads_the_bit_as_it_is(run):
    result = run("/IO /WI 0x64 0 1")
    check(result, "IO Write Port:64 Bit0, wValue:1, return data:0\n", 0,
          "in8 0064 -> 1c", "out8 0064 1d", "in8 0064 -> 1c")


# Several switches in one command


@pytest.mark.parametrize("args, text, status, accesses", [
    # The write word's operands count; the message is the read's; the write is made.
    ("/IO /RB 0x500 /WB 0x81 0x55", "IO Read Byte Port: 81, return data:0x55\n", 0x55,
     ["out8 0081 55", "in8 0081 -> 55"]),
    ("/IO /WW 0x82 0x1234 /RW 0x500", "IO Read Word Port: 82, return data:0x1234\n", 0x34,
     ["out16 0082 1234", "in16 0082 -> 1234"]),
    ("/IO /RD 0x500 /WD 0x84 0x87654321", "IO Read Dword Port: 84, return data:0x87654321\n", 0x21,
     ["out32 0084 87654321", "in32 0084 -> 87654321"]),
    # With bits the read excludes the write.
    ("/IO /RI 0x500 3 /WI 0x81 1 1", "IO Read Port: 81 Bit1, return data:0\n", 0, ["in8 0081 -> 00"]),
    # Bit, byte, word, dword, view: the first of them is carried out.
    ("/IO /RD 0x500 /RW 0x502 /RB 0x504 /RI 0x505 2", "IO Read Port: 505 Bit2, return data:1\n", 1,
     ["in8 0505 -> 05"]),
    ("/IO /RD 0x500 /RW 0x502 /RB 0x504", "IO Read Byte Port: 504, return data:0x04\n", 4, ["in8 0504 -> 04"]),
    ("/IO /WD 0x80 1 /RW 0x502", "IO Read Word Port: 502, return data:0x0302\n", 2, ["in16 0502 -> 0302"]),
    ("/IO /DUMP 0x500 /RD 0x504", "IO Read Dword Port: 504, return data:0x07060504\n", 4, ["in32 0504 -> 07060504"]),
    # The first of two equal words counts.
    ("/IO /RB 0x503 /RB 0x504", "IO Read Byte Port: 503, return data:0x03\n", 3, ["in8 0503 -> 03"]),
])
def test_one_access_of_several_is_carried_out(run, args, text, status, accesses):
    check(run(args), text, status, *accesses)


# Help and nothing to do


@pytest.mark.parametrize("word", ["/?", "-h", "help"])
def test_help_lists_the_forms_and_touches_nothing(run, word):
    result = run(f"/IO {word} /WB 0x80 1 /INDEX")
    assert_run(result, IO_USAGE, 2, CLEAR)


@pytest.mark.parametrize("args", ["/IO", "/IO /RQ 0x80", "/IO /WQ 0x80 1", "/IO 0x80", "/IO /NOMSG", "/IO /R 0x80"])
def test_without_an_access_nothing_is_done(run, args):
    check(run(args), "", 2)


# The view


def prompt(base):
    return f"ESC: quite, Enter: continue IoAddress:{base:04X}\n"


def reads(ports, values):
    return [f"in8 {port:04x} -> {value:02x}" for port, value in zip(ports, values)]


BLOCK = bytes(range(256))
ONES = b"\xff" * 256


def test_a_page_shows_256_ports_and_esc_ends_the_view(run):
    result = run("/IO /DUMP 0x500", stdin=ESC)
    check(result, prompt(0x500) + hex_view(BLOCK), 0, *reads(range(0x500, 0x600), BLOCK))


def test_any_other_key_shows_the_next_page(run):
    result = run("/IO /DUMP 0x480 /TEXT", stdin=b"\nx\x1b\n")
    pages = [ONES[:128] + BLOCK[:128], BLOCK[128:] + ONES[:128], ONES]
    text = "".join(prompt(0x480 + 256 * i) + hex_view(page, plain=True) for i, page in enumerate(pages))
    check(result, text, 0, *reads(range(0x480, 0x780), b"".join(pages)))


def test_the_view_waits_for_a_key_after_each_page(terminal):
    result = terminal("/IO /DUMP 0x500 /TEXT", keys=[b"n", b"\r", ESC])
    assert result.status == 0
    assert [line[-6:] for line in result.text.split("\r\n") if line.startswith("ESC: quite")] == [
        "s:0500", "s:0600", "s:0700"]
    assert len(result.ports()) == 3 * 256
    assert result.tty_after == result.tty_before


def test_the_first_page_is_all_that_is_read_while_nobody_answers(terminal):
    result = terminal("/IO /DUMP 0x500", keys=[ESC])
    assert result.ports() == reads(range(0x500, 0x600), BLOCK)


def test_with_log_the_view_runs_on_to_the_last_port(run):
    result = run("/IO /DUMP 0xFD00 /LOG /TEXT")
    text = "".join(prompt(base) + hex_view(ONES, plain=True) for base in (0xFD00, 0xFE00))
    text += prompt(0xFF00) + hex_view(ONES[:255], plain=True)
    check(result, text, 0, *reads(range(0xFD00, 0x10000), b"\xff" * 0x300))


@pytest.mark.parametrize("keys, pages", [(ESC, 1), (b"x" + ESC, 2), (b"xyz", 3)])
def test_with_log_a_key_that_waits_is_taken_at_the_end_of_a_page(run, keys, pages):
    reader, writer = os.pipe()
    os.write(writer, keys)  # there before the program starts
    os.close(writer)
    result = run("/IO /DUMP 0xFD00 /LOG", stdin=reader)
    os.close(reader)
    assert result.text.count("ESC: quite") == pages


def test_without_anybody_to_answer_the_view_runs_on_to_the_last_port(run):
    result = run("/IO /DUMP 0xFE80 /TEXT")
    text = prompt(0xFE80) + hex_view(ONES, plain=True) + prompt(0xFF80) + hex_view(ONES[:127], plain=True)
    check(result, text, 0, *reads(range(0xFE80, 0x10000), b"\xff" * 0x180))


@pytest.mark.parametrize("base, shown", [(0xFF80, 127), (0xFF00, 255), (0xFF01, 254), (0xFFFE, 1)])
def test_the_byte_of_the_last_port_is_read_but_not_shown(run, base, shown):
    result = run(f"/IO /DUMP {base:#x}", extra="latch ff00 100 counting")
    data = bytes(range(256))[base & 0xFF :]
    check(result, prompt(base) + hex_view(data[:shown]), 0, *reads(range(base, 0x10000), data))


def test_the_last_port_alone_gives_an_empty_page(run):
    check(run("/IO /DUMP 0xFFFF"), prompt(0xFFFF), 0, "in8 ffff -> ff")


def test_the_last_page_is_the_last_whatever_key_is_pressed(run):
    assert run("/IO /DUMP 0xFFC0", stdin=b"nnnn").text.count("ESC: quite") == 1


def test_without_messages_one_page_is_read_in_silence(run):
    for args in ("/IO /DUMP 0x500 /NOMSG", "/IO /NOMSG /DUMP 0x500 /LOG"):
        check(run(args), "", 0, *reads(range(0x500, 0x600), BLOCK))


@pytest.mark.parametrize("args", ["/IO /DUMP 0x10500", "/IO /RQ 0x80 /DUMP 1280", "/dump 0x500 /io"])
def test_the_start_of_the_view_is_the_operand_behind_the_word(run, args):
    assert run(args, stdin=ESC).text == prompt(0x500) + hex_view(BLOCK)


def test_without_an_operand_the_view_starts_at_port_0(run):
    result = run("/IO /DUMP", stdin=ESC)
    assert result.text.startswith(prompt(0))
    assert [line.split()[1] for line in result.ports()] == [f"{port:04x}" for port in range(256)]


def test_access_to_ports_needs_privilege(run):
    result = run("/IO /RB 0x80", board="noiopl")
    assert (result.text, result.status, result.log) == ("", 6, ["iopl 3 -> EPERM"])
