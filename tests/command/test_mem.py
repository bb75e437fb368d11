"""/MEM: one place of physical memory, one bit of it, and the paged view.

On the boards each dword from 0x100000 to 0x104000 holds its own address; further memory is zero."""

import pytest
from expected import CLEAR, MEM_USAGE, assert_run, copied_pages, hex_view, mapped, refused

ESC = b"\x1b"
WATCH = "watch 00200000 4000"  # so that the log shows each load and store
BASE = 0x200000


def load(width, address, value):
    return f"mr{width} {address:08x} -> {value & (1 << width) - 1:0{width // 4}x}"


def store(width, address, value):
    return f"mw{width} {address:08x} {value & (1 << width) - 1:0{width // 4}x}"


def check(result, text, status, *steps):
    assert_run(result, text, status, *steps)


@pytest.fixture
def watched(run):
    """Runs /MEM on a board with watched memory at 0x200000 that holds the bytes given."""

    def go(args, contents="88 77 66 55 44 33 22 11", **more):
        return run(f"/MEM {args}", extra=[f"bytes 00200000 {contents}", WATCH], **more)

    return go


# Bytes, words, dwords


@pytest.mark.parametrize("args, text, status, width, value", [
    ("/RB 0x200000", "Memory Read Byte MemAddr: 200000, return data:0x88\n", 0x88, 8, 0x88),
    ("/RW 0x200000", "Memory Read Word MemAddr: 200000, return data:0x7788\n", 0x88, 16, 0x7788),
    ("/RD 0x200000", "Memory Read Dword MemAddr: 200000, return data:0x55667788\n", 0x88, 32, 0x55667788),
    ("\\rb 2097152", "Memory Read Byte MemAddr: 200000, return data:0x88\n", 0x88, 8, 0x88),
])
def test_a_read_is_one_load_of_its_width_from_a_mapping_of_two_pages(watched, args, text, status, width, value):
    check(watched(args), text, status, mapped(BASE, load(width, BASE, value)))


@pytest.mark.parametrize("offset", [1, 2, 3, 5])
@pytest.mark.parametrize("word, width", [("RW", 16), ("RD", 32)])
def test_an_unaligned_read_is_one_load_as_well(watched, word, width, offset):
    value = int.from_bytes(bytes.fromhex("8877665544332211 0000")[offset:][: width // 8], "little")
    result = watched(f"/{word} {BASE + offset:#x}")
    assert result.text.endswith(f"return data:0x{value:0{width // 4}X}\n")
    assert result.memory_accesses() == [load(width, BASE + offset, value)]


@pytest.mark.parametrize("word, width, address, value", [
    ("RW", 16, 0x200FFF, 0x2211), ("RD", 32, 0x200FFE, 0x33221100), ("RD", 32, 0x200FFD, 0x22110000)])
def test_a_read_may_cross_into_the_next_page(run, word, width, address, value):
    result = run(f"/MEM /{word} {address:#x}", extra=["bytes 00200fff 11 22 33 44", WATCH])
    assert result.text.endswith(f"MemAddr: {address:X}, return data:0x{value:0{width // 4}X}\n")
    assert result.log[4:-2] == mapped(BASE, load(width, address, value))


@pytest.mark.parametrize("args, text, status, width, value", [
    ("/WB 0x200004 0x5A", "Memory Write Byte MemAddr: 200004 Data:5A, return data:0x5A\n", 0x5A, 8, 0x5A),
    ("/WW 0x200004 0xBEEF", "Memory Write Word MemAddr: 200004 Data:BEEF, return data:0xBEEF\n", 0xEF, 16, 0xBEEF),
    ("/WD 0x200004 0x89ABCDEF", "Memory Write Dword MemAddr: 200004 Data:89ABCDEF, return data:0x89ABCDEF\n", 0xEF, 32,
     0x89ABCDEF),
    ("/WB 0x200004 0x1234", "Memory Write Byte MemAddr: 200004 Data:34, return data:0x34\n", 0x34, 8, 0x34),
    ("/WW 0x200004 0x12345678", "Memory Write Word MemAddr: 200004 Data:5678, return data:0x5678\n", 0x78, 16, 0x5678),
    ("/WD 0x200004 0x123456789", "Memory Write Dword MemAddr: 200004 Data:23456789, return data:0x23456789\n", 0x89,
     32, 0x23456789),
    ("/WD 0x200004 7", "Memory Write Dword MemAddr: 200004 Data:00000007, return data:0x00000007\n", 7, 32, 7),
    ("/WB 0x200004", "Memory Write Byte MemAddr: 200004 Data:00, return data:0x00\n", 0, 8, 0),
])
def test_a_write_is_one_store_and_is_read_back_through_a_mapping_of_its_own(watched, args, text, status, width, value):
    check(watched(args), text, status, mapped(BASE, store(width, BASE + 4, value)),
          mapped(BASE, load(width, BASE + 4, value)))


@pytest.mark.parametrize("word, data, after", [("WB", "0xAA", "88aa6655"), ("WW", "0xBBAA", "88aabb55"),
                                               ("WD", "0xDDCCBBAA", "88aabbccdd")])
def test_a_write_changes_its_bytes_only(run, word, data, after):
    result = run(f"/MEM /{word} 0x200001 {data}", extra="bytes 00200000 88 77 66 55 44 33", keep_memory=True)
    expected = bytes.fromhex(after)
    assert result.memory(BASE, 6) == expected + bytes.fromhex("887766554433")[len(expected) :]


def test_what_is_read_back_is_what_is_there_and_not_what_was_written(run):
    result = run("/MEM /WD 0x80000000 0x12345678")  # nobody answers there
    assert result.text == "Memory Write Dword MemAddr: 80000000 Data:12345678, return data:0xFFFFFFFF\n"
    assert result.status == 0xFF


@pytest.mark.parametrize("address, shown, value", [
    ("0x100000000", "0", 0x53), ("0x123400101234", "101234", 0x34), ("4294967296", "0", 0x53), ("", "0", 0x53),
    ("F0000", "0", 0x53)])
def test_an_address_is_cut_to_32_bits(run, address, shown, value):
    result = run(f"/MEM /RB {address}")
    assert (result.text, result.status) == (f"Memory Read Byte MemAddr: {shown}, return data:0x{value:02X}\n", value)


@pytest.mark.parametrize("args, text, status", [
    ("/RB 0xFFFFFFFF", "Memory Read Byte MemAddr: FFFFFFFF, return data:0x00\n", 0),
    ("/RW 0xFFFFFFFE", "Memory Read Word MemAddr: FFFFFFFE, return data:0x00FC\n", 0xFC),
    ("/RD 0xFFFFFFF0", "Memory Read Dword MemAddr: FFFFFFF0, return data:0x00E05BEA\n", 0xEA),
])
def test_the_last_page_is_mapped_with_the_one_behind_4_gib(run, args, text, status):
    result = run(f"/MEM {args}")
    assert (result.text, result.status) == (text, status)
    assert result.maps() == mapped(0xFFFFF000, None)


# Bits


def access_of_bit(bit):
    return 8 if bit < 8 else 16 if bit < 16 else 32


@pytest.mark.parametrize("bit", range(32))
def test_a_bit_is_read_by_one_load_of_the_narrowest_width_that_holds_it(watched, bit):
    result = watched(f"/RI 0x200000 {bit}", contents="11 22 44 88")
    value = 0x88442211 >> bit & 1
    check(result, f"Memory Read MemAddr: 200000 Bit{bit}, return data:{value}\n", value,
          mapped(BASE, load(access_of_bit(bit), BASE, 0x88442211)))


@pytest.mark.parametrize("before", [0x00000000, 0xFFFFFFFF])
@pytest.mark.parametrize("value", [0, 1])
@pytest.mark.parametrize("bit", [0, 3, 7, 8, 12, 15, 16, 24, 31])
def test_a_bit_is_written_by_loading_changing_and_storing_through_mappings_of_their_own(watched, bit, value, before):
    byte = f"{before & 0xFF:02x}"
    after = before | 1 << bit if value else before & ~(1 << bit)
    width = access_of_bit(bit)
    result = watched(f"/WI 0x200000 {bit} {value}", contents=" ".join([byte] * 4))
    check(result, f"Memory Write MemAddr: 200000 Bit{bit} wValue:{value}, return data:{value}\n", value,
          mapped(BASE, load(width, BASE, before)), mapped(BASE, store(width, BASE, after)),
          mapped(BASE, load(width, BASE, after)))


@pytest.mark.parametrize("bit", [32, 33, 40, 255, 256, 65536, 4294967295])
def test_there_is_no_bit_above_31(run, bit):
    check(run(f"/MEM /RI 0x200000 {bit}"), f"Memory Read MemAddr: 200000 Bit{bit}, return data:0\n", 0)
    check(run(f"/MEM /WI 0x200000 {bit} 1"), f"Memory Write MemAddr: 200000 Bit{bit} wValue:1, return data:0\n", 0)


@pytest.mark.parametrize("value, shown, after", [("2", 2, 1), ("256", 0, 0), ("0x1FF", 255, 1), ("", 0, 0)])
def test_any_value_whose_low_byte_is_not_zero_sets_the_bit(run, value, shown, after):
    result = run(f"/MEM /WI 0x200000 1 {value}", keep_memory=True)
    assert result.text == f"Memory Write MemAddr: 200000 Bit1 wValue:{shown}, return data:{after}\n"
    assert (result.status, result.memory(BASE, 1)) == (after, bytes([after << 1]))


def test_a_bit_number_is_cut_to_32_bits(run):
    assert run("/MEM /RI 0x100004 0x100000002").text == "Memory Read MemAddr: 100004 Bit2, return data:1\n"


# Memory that cannot be had


@pytest.mark.parametrize("args, text, status", [
    ("/RB 0x200010", "Memory Read Byte MemAddr: 200010, return data:0xFF\n", 0xFF),
    ("/RW 0x200010", "Memory Read Word MemAddr: 200010, return data:0xFFFF\n", 0xFF),
    ("/RD 0x200010", "Memory Read Dword MemAddr: 200010, return data:0x0000FFFF\n", 0xFF),
    ("/RI 0x200010 7", "Memory Read MemAddr: 200010 Bit7, return data:1\n", 1),
    ("/RI 0x200010 15", "Memory Read MemAddr: 200010 Bit15, return data:1\n", 1),
    ("/RI 0x200010 16", "Memory Read MemAddr: 200010 Bit16, return data:0\n", 0),
])
@pytest.mark.parametrize("page", ["00200000", "00201000"])
def test_a_refused_mapping_gives_16_ones_at_most_also_when_only_its_second_page_is_refused(
        run, page, args, text, status):
    result = run(f"/MEM {args}", extra=f"refuse {page} 1000 EPERM")
    check(result, text, status, refused(BASE))


def test_a_write_to_refused_memory_is_dropped(run):
    result = run("/MEM /WD 0x200010 0x12345678", extra="refuse 00200000 1000 EPERM", keep_memory=True)
    check(result, "Memory Write Dword MemAddr: 200010 Data:12345678, return data:0x0000FFFF\n", 0xFF,
          refused(BASE), refused(BASE))
    assert result.memory(BASE + 0x10, 4) == bytes(4)


def test_a_bit_of_refused_memory_is_not_written(run):
    result = run("/MEM /WI 0x200010 3 0", extra="refuse 00200000 1000 EPERM", keep_memory=True)
    check(result, "Memory Write MemAddr: 200010 Bit3 wValue:0, return data:1\n", 1, *[refused(BASE)] * 3)
    assert result.memory(BASE + 0x10, 1) == b"\0"


def test_memory_that_the_kernel_holds_cached_is_reached_through_a_cached_mapping(run):
    result = run("/MEM /WD 0x200010 0x12345678", extra="refuse 00200000 1000 EAGAIN sync", keep_memory=True)
    assert result.text == "Memory Write Dword MemAddr: 200010 Data:12345678, return data:0x12345678\n"
    assert result.memory(BASE + 0x10, 4) == bytes.fromhex("78563412")
    assert result.maps() == [*refused(BASE, "EAGAIN"), *mapped(BASE, None)] * 2


@pytest.mark.parametrize("args, text, status", [
    ("/RB 0x100010", "Memory Read Byte MemAddr: 100010, return data:0xFF\n", 0xFF),
    ("/RW 0x100010", "Memory Read Word MemAddr: 100010, return data:0xFFFF\n", 0xFF),
    ("/RD 0x100010", "Memory Read Dword MemAddr: 100010, return data:0xFFFFFFFF\n", 0xFF),
    ("/WD 0x100010 0", "Memory Write Dword MemAddr: 100010 Data:00000000, return data:0xFFFFFFFF\n", 0xFF),
    ("/RI 0x100010 31", "Memory Read MemAddr: 100010 Bit31, return data:1\n", 1),
    ("/WI 0x100010 0 0", "Memory Write MemAddr: 100010 Bit0 wValue:0, return data:1\n", 1),
])
def test_without_the_memory_device_everything_reads_as_ones(run, args, text, status):
    result = run(f"/MEM {args}", board="nomem")
    assert (result.text, result.status, result.err) == (text, status, b"")
    assert result.maps() == []


# Several switches in one command


@pytest.mark.parametrize("args, text, status, accesses", [
    # The write word's operands count; the message is the read's; the write is made.
    ("/RB 0x200000 /WB 0x200003 0x99", "Memory Read Byte MemAddr: 200003, return data:0x99\n", 0x99,
     [store(8, 0x200003, 0x99), load(8, 0x200003, 0x99)]),
    ("/WW 0x200002 0x99 /RW 0x200000", "Memory Read Word MemAddr: 200002, return data:0x0099\n", 0x99,
     [store(16, 0x200002, 0x99), load(16, 0x200002, 0x99)]),
    ("/RD 0 /WD 0x200002 0x99", "Memory Read Dword MemAddr: 200002, return data:0x00000099\n", 0x99,
     [store(32, 0x200002, 0x99), load(32, 0x200002, 0x99)]),
    # Both bit words: both messages, and the write is made.
    ("/RI 0 5 /WI 0x200001 3 1", "Memory Read MemAddr: 200001 Bit3, Memory Write MemAddr: 200001 Bit3 wValue:1, "
     "return data:1\n", 1, [load(8, 0x200001, 0x77), store(8, 0x200001, 0x7F), load(8, 0x200001, 0x7F)]),
    # Bit, byte, word, dword, search: the first of them is carried out.
    ("/S 0x200000 4 X /RD 0x200000 /RW 0x200001 /RB 0x200002 /RI 0x200003 0",
     "Memory Read MemAddr: 200003 Bit0, return data:1\n", 1, [load(8, 0x200003, 0x55)]),
    ("/RD 0x200000 /RW 0x200001 /RB 0x200002", "Memory Read Byte MemAddr: 200002, return data:0x66\n", 0x66,
     [load(8, 0x200002, 0x66)]),
    ("/WD 0x200000 1 /RW 0x200001", "Memory Read Word MemAddr: 200001, return data:0x6677\n", 0x77,
     [load(16, 0x200001, 0x6677)]),
    ("/S 0x200000 4 X /RD 0x200000", "Memory Read Dword MemAddr: 200000, return data:0x55667788\n", 0x88,
     [load(32, 0x200000, 0x55667788)]),
])
def test_one_access_of_several_is_carried_out(watched, args, text, status, accesses):
    result = watched(args)
    assert (result.text, result.status) == (text, status)
    assert result.memory_accesses() == accesses


# Help and nothing to do


@pytest.mark.parametrize("word", ["/?", "-H", "help"])
def test_help_lists_the_forms_and_touches_nothing(run, word):
    assert_run(run(f"/MEM {word} /DUMP 0"), MEM_USAGE, 2, CLEAR)


@pytest.mark.parametrize("args", ["/MEM", "/MEM /RQ 0", "/MEM /WQ 0 1", "/MEM 0x200000", "/MEM /NOMSG /LOG"])
def test_without_an_access_nothing_is_done(run, args):
    check(run(args), "", 2)


# The view


def prompt(base):
    return f"ESC: quite, Enter: continue MemAddress:{base:X}\n"


def addresses(start, length):
    """What the pattern at 0x100000 holds there."""
    first = start & ~3
    data = b"".join(at.to_bytes(4, "little") for at in range(first, start + length + 3, 4))
    return data[start - first :][:length]


def test_a_page_shows_256_bytes_and_esc_ends_the_view(run):
    check(run("/MEM /DUMP 0x100100", stdin=ESC), prompt(0x100100) + hex_view(addresses(0x100100, 256)), 0,
          copied_pages(0x100000))


def test_any_other_key_shows_the_next_page(run):
    result = run("/MEM /DUMP 0x100EC0 /TEXT", stdin=b"\n\x1b\n")
    text = "".join(prompt(at) + hex_view(addresses(at, 256), plain=True) for at in (0x100EC0, 0x100FC0))
    check(result, text, 0, copied_pages(0x100000), copied_pages(0x100000), copied_pages(0x101000))


def test_the_view_waits_for_a_key_after_each_page(terminal):
    result = terminal("/MEM /DUMP 0x100000 /TEXT", keys=[b"n", b"\r", ESC])
    assert result.status == 0
    assert [line for line in result.text.split("\r\n") if line.startswith("ESC")] == [
        prompt(at).strip() for at in (0x100000, 0x100100, 0x100200)]
    assert result.tty_after == result.tty_before


@pytest.mark.parametrize("base, pages", [(0xFFFFFF80, [0x80]), (0xFFFFFF00, [0x100]), (0xFFFFFF01, [0xFF]),
                                         (0xFFFFFEFF, [0x100, 1]), (0xFFFFFFFF, [1]), (0xFFFFFE80, [0x100, 0x80])])
@pytest.mark.parametrize("switch", ["", "/LOG"])
def test_the_view_ends_at_4_gib(run, base, pages, switch):
    result = run(f"/MEM /DUMP {base:#x} {switch}", extra="fill fffff000 ff0 address")
    top = addresses(0xFFFFF000, 0xFF0) + b"\xea\x5b\xe0\x00\xf002/03/24\0\xfc\0"
    text, steps = "", []
    for length in pages:
        text += prompt(base) + hex_view(top[base - 0xFFFFF000 :][:length])
        steps.append(copied_pages(0xFFFFF000))
        base += 256
    check(result, text, 0, *steps)


def test_the_last_page_is_the_last_whatever_key_is_pressed(run):
    assert run("/MEM /DUMP 0xFFFFFF80", stdin=b"nnnn").text.count("ESC: quite") == 1


def test_without_messages_one_page_is_read_in_silence(run):
    for args in ("/MEM /DUMP 0x100100 /NOMSG", "/MEM /NOMSG /LOG /DUMP 0x100100"):
        check(run(args), "", 0, copied_pages(0x100000))


@pytest.mark.parametrize("args", ["/MEM /DUMP 0x100100 /RB 0", "/MEM /WD 0 0 /DUMP 1048832",
                                  "/MEM /DUMP 0x5600100100", "/dump 0x100100 /mem /s"])
def test_the_view_comes_before_all_other_accesses(run, args):
    assert run(args, stdin=ESC).text == prompt(0x100100) + hex_view(addresses(0x100100, 256))


def test_without_an_operand_the_view_starts_at_address_0(run):
    result = run("/MEM /DUMP /TEXT", stdin=ESC)
    assert result.text.startswith(prompt(0) + "   00 01")
    assert "\n00 53 FF 00 F0 53 FF 00 F0 C3 E2 00 F0 53 FF 00 F0       S...S.......S...\r\n" in result.text


def test_a_page_is_copied_by_aligned_loads_of_8_bytes_each_made_once(watched):
    result = watched("/DUMP 0x200FC0 /NOMSG")
    expected = []
    for page in (BASE, BASE + 0x1000):
        values = {BASE: "1122334455667788"}
        loads = [f"mr64 {at:08x} -> {values.get(at, '0' * 16)}" for at in range(page, page + 0x1000, 8)]
        opened, closed = copied_pages(page)
        expected += [opened, *loads, closed]
    assert result.log[4:-2] == expected


def test_a_refused_page_shows_as_ones_and_its_neighbour_as_it_is(run):
    result = run("/MEM /DUMP 0x100FF0 /TEXT", extra="refuse 00101000 1000 EPERM", stdin=ESC)
    text = prompt(0x100FF0) + hex_view(addresses(0x100FF0, 16) + b"\xff" * 240, plain=True)
    check(result, text, 0, copied_pages(0x100000), ["mmap /dev/mem 00101000 1000 rw shared -> EPERM"])


def test_without_the_memory_device_the_view_shows_zeros(run):
    result = run("/MEM /DUMP 0x100FF0 /TEXT", board="nomem", stdin=ESC)
    assert (result.text, result.status) == (prompt(0x100FF0) + hex_view(bytes(256), plain=True), 0)
    assert result.maps() == []
