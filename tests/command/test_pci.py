"""Reading and writing PCI configuration registers: messages, exit status and every access.

Registers of the intel board that are used here: at 00:1f.0 84h the LPC bridge's decode register 003C0A01h, whose
writable bits are 00FCFFFDh; at 01:00.0 10Ch the drive's uncorrectable error severity 00462030h with 07FFF030h.
"""

import pytest

from expected import (AMD_BASE, CLOSE, DELAY, INTEL_BASE, OPEN, assert_run, legacy, mapped, msr_absent, msr_read,
                      refused, session)

LPC = "00:1f.0"
NVME_PAGE = 0xE0100000


def lpc(offset, access):
    return legacy(LPC, offset, access)


# ---- legacy space ---------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args, text, status, access", [
    ("/RB 0 0x1f 0 0x84", "PCI Read Byte BDFO: 0 1F 0 84, return data:0x01\n", 0x01, "in8 0cfc -> 01"),
    ("/RB 0 0x1f 0 0x85", "PCI Read Byte BDFO: 0 1F 0 85, return data:0x0A\n", 0x0A, "in8 0cfd -> 0a"),
    ("/RB 0 0x1f 0 0x86", "PCI Read Byte BDFO: 0 1F 0 86, return data:0x3C\n", 0x3C, "in8 0cfe -> 3c"),
    ("/RB 0 0x1f 0 0x87", "PCI Read Byte BDFO: 0 1F 0 87, return data:0x00\n", 0x00, "in8 0cff -> 00"),
    ("/RW 0 0x1f 0 0x84", "PCI Read Word BDFO: 0 1F 0 84, return data:0x0A01\n", 0x01, "in16 0cfc -> 0a01"),
    ("/RW 0 0x1f 0 0x85", "PCI Read Word BDFO: 0 1F 0 85, return data:0x3C0A\n", 0x0A, "in16 0cfd -> 3c0a"),
    ("/RW 0 0x1f 0 0x86", "PCI Read Word BDFO: 0 1F 0 86, return data:0x003C\n", 0x3C, "in16 0cfe -> 003c"),
    ("/RD 0 0x1f 0 0x84", "PCI Read DWord BDFO: 0 1F 0 84, return data:0x003C0A01\n", 0x01, "in32 0cfc -> 003c0a01"),
])
def test_legacy_read_selects_the_register_and_reads_its_lane(run, args, text, status, access):
    offset = int(args.split()[-1], 16)
    assert_run(run(f"/PCI {args}"), text, status, lpc(offset, access))


@pytest.mark.parametrize("offset", [0x85, 0x86, 0x87])
def test_a_legacy_dword_has_no_lane_also_at_an_unaligned_offset(run, offset):
    text = f"PCI Read DWord BDFO: 0 1F 0 {offset:X}, return data:0x003C0A01\n"
    assert_run(run(f"/PCI /RD 0 0x1f 0 {offset}"), text, 0x01, lpc(offset, "in32 0cfc -> 003c0a01"))


def test_a_legacy_word_at_offset_3_reaches_one_port_behind_the_data_register(run):
    text = "PCI Read Word BDFO: 0 1F 0 87, return data:0x4200\n"
    result = run("/PCI /RW 0 0x1f 0 0x87", extra="constant d00 42")
    assert_run(result, text, 0x00, lpc(0x87, "in16 0cff -> 4200"))


def test_an_unaligned_legacy_dword_is_written_without_a_lane_too(run):
    text = "PCI Write Dword BDFO: 0 1F 0 85, Data:FFFFFFFF, return data:0x00FCFFFD\n"
    steps = lpc(0x85, "out32 0cfc ffffffff") + lpc(0x85, "in32 0cfc -> 00fcfffd")
    assert_run(run("/PCI /WD 0 0x1f 0 0x85 0xffffffff"), text, 0xFD, steps)


@pytest.mark.parametrize("args, text, status, write, read", [
    ("/WB 0 0x1f 0 0x85 0x5a", "PCI Write Byte BDFO: 0 1F 0 85, Data:5A, return data:0x5A\n", 0x5A,
     "out8 0cfd 5a", "in8 0cfd -> 5a"),
    ("/WB 0 0x1f 0 0x86 0", "PCI Write Byte BDFO: 0 1F 0 86, Data:00, return data:0x00\n", 0x00,
     "out8 0cfe 00", "in8 0cfe -> 00"),
    ("/WW 0 0x1f 0 0x84 0x1234", "PCI Write Word BDFO: 0 1F 0 84, Data:1234, return data:0x1234\n", 0x34,
     "out16 0cfc 1234", "in16 0cfc -> 1234"),
    ("/WW 0 0x1f 0 0x86 0xffff", "PCI Write Word BDFO: 0 1F 0 86, Data:FFFF, return data:0x00FC\n", 0xFC,
     "out16 0cfe ffff", "in16 0cfe -> 00fc"),
    ("/WD 0 0x1f 0 0x84 0x12345678", "PCI Write Dword BDFO: 0 1F 0 84, Data:12345678, return data:0x00345678\n", 0x78,
     "out32 0cfc 12345678", "in32 0cfc -> 00345678"),
    ("/WD 0 0x1f 0 0x84 1", "PCI Write Dword BDFO: 0 1F 0 84, Data:00000001, return data:0x00000001\n", 0x01,
     "out32 0cfc 00000001", "in32 0cfc -> 00000001"),
])
def test_legacy_write_is_followed_by_a_read_back_of_what_the_register_kept(run, args, text, status, write, read):
    offset = int(args.split()[4], 16)
    assert_run(run(f"/PCI {args}"), text, status, lpc(offset, write), lpc(offset, read))


@pytest.mark.parametrize("args, text, write, read", [
    ("/WB 0 0x1f 0 0x85 0x1ab", "PCI Write Byte BDFO: 0 1F 0 85, Data:AB, return data:0xAB\n",
     "out8 0cfd ab", "in8 0cfd -> ab"),
    ("/WW 0 0x1f 0 0x84 0x98765", "PCI Write Word BDFO: 0 1F 0 84, Data:8765, return data:0x8765\n",
     "out16 0cfc 8765", "in16 0cfc -> 8765"),
    ("/WD 0 0x1f 0 0x84 0xabc00000009", "PCI Write Dword BDFO: 0 1F 0 84, Data:00000009, return data:0x00000009\n",
     "out32 0cfc 00000009", "in32 0cfc -> 00000009"),
])
def test_data_is_cut_to_the_width(run, args, text, write, read):
    offset = int(args.split()[4], 16)
    result = run(f"/PCI {args}")
    assert result.text == text
    assert result.log == session(lpc(offset, write), lpc(offset, read))


# ---- bits -----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("bit, value, access", [
    (0, 1, "in8 0cfc -> 01"),
    (7, 0, "in8 0cfc -> 01"),
    (8, 0, "in16 0cfc -> 0a01"),
    (9, 1, "in16 0cfc -> 0a01"),
    (15, 0, "in16 0cfc -> 0a01"),
    (16, 0, "in32 0cfc -> 003c0a01"),
    (18, 1, "in32 0cfc -> 003c0a01"),
    (31, 0, "in32 0cfc -> 003c0a01"),
])
def test_a_bit_is_read_with_the_width_that_reaches_it(run, bit, value, access):
    text = f"PCI Read BDFO: 0 1F 0 84 Bit{bit}, return data:{value}\n"
    assert_run(run(f"/PCI /RI 0 0x1f 0 0x84 {bit}"), text, value, lpc(0x84, access))


def test_top_bits_of_each_width_are_read_as_1(run):
    for bit, access in ((7, "in8 0cfc -> 80"), (15, "in16 0cfc -> 8080"), (31, "in32 0cfc -> 80808080")):
        result = run(f"/PCI /RI 0 0x1f 0 0xa0 {bit}", extra=["pci 00:1f.0", "dword a0 80808080"])
        assert_run(result, f"PCI Read BDFO: 0 1F 0 A0 Bit{bit}, return data:1\n", 1, lpc(0xA0, access))


@pytest.mark.parametrize("bit", [32, 40, 255])
def test_a_bit_beyond_31_is_no_access(run, bit):
    text = f"PCI Read BDFO: 0 1F 0 84 Bit{bit}, return data:0\n"
    assert_run(run(f"/PCI /RI 0 0x1f 0 0x84 {bit}"), text, 0)
    text = f"PCI Write BDFO: 0 1F 0 84 Bit{bit}, wValue:1, return data:0\n"
    assert_run(run(f"/PCI /WI 0 0x1f 0 0x84 {bit} 1"), text, 0)


@pytest.mark.parametrize("operand, bit", [(256, 0), (0x109, 9), (0xFF20, 32)])
def test_a_bit_number_is_kept_as_8_bits(run, operand, bit):
    result = run(f"/PCI /RI 0 0x1f 0 0x84 {operand}")
    assert result.text == f"PCI Read BDFO: 0 1F 0 84 Bit{bit}, return data:{1 if bit < 32 else 0}\n"


@pytest.mark.parametrize("bit, value, result, read, write, back", [
    (0, 0, 0, "in8 0cfc -> 01", "out8 0cfc 00", "in8 0cfc -> 00"),
    (7, 1, 1, "in8 0cfc -> 01", "out8 0cfc 81", "in8 0cfc -> 81"),
    (1, 1, 0, "in8 0cfc -> 01", "out8 0cfc 03", "in8 0cfc -> 01"),  # the bit is read-only
    (8, 1, 1, "in16 0cfc -> 0a01", "out16 0cfc 0b01", "in16 0cfc -> 0b01"),
    (15, 1, 1, "in16 0cfc -> 0a01", "out16 0cfc 8a01", "in16 0cfc -> 8a01"),
    (9, 0, 0, "in16 0cfc -> 0a01", "out16 0cfc 0801", "in16 0cfc -> 0801"),
    (16, 1, 0, "in32 0cfc -> 003c0a01", "out32 0cfc 003d0a01", "in32 0cfc -> 003c0a01"),
    (18, 0, 0, "in32 0cfc -> 003c0a01", "out32 0cfc 00380a01", "in32 0cfc -> 00380a01"),
    (22, 1, 1, "in32 0cfc -> 003c0a01", "out32 0cfc 007c0a01", "in32 0cfc -> 007c0a01"),
    (31, 1, 0, "in32 0cfc -> 003c0a01", "out32 0cfc 803c0a01", "in32 0cfc -> 003c0a01"),
])
def test_a_bit_is_written_by_read_change_write_and_read_back(run, bit, value, result, read, write, back):
    text = f"PCI Write BDFO: 0 1F 0 84 Bit{bit}, wValue:{value}, return data:{result}\n"
    steps = lpc(0x84, read) + lpc(0x84, write) + lpc(0x84, back)
    assert_run(run(f"/PCI /WI 0 0x1f 0 0x84 {bit} {value}"), text, result, steps)


@pytest.mark.parametrize("operand, shown, result", [(2, 2, 1), (255, 255, 1), (0x100, 0, 0), (0x301, 1, 1)])
def test_a_bit_value_counts_as_8_bits_of_which_any_sets(run, operand, shown, result):
    run_result = run(f"/PCI /WI 0 0x1f 0 0x84 7 {operand}")
    assert run_result.text == f"PCI Write BDFO: 0 1F 0 84 Bit7, wValue:{shown}, return data:{result}\n"
    assert run_result.status == result


# ---- extended space -------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args, text, status, access", [
    ("/RB 1 0 0 0x10c", "PCI Read Byte BDFO: 1 0 0 10C, return data:0x30\n", 0x30, "mr8 e010010c -> 30"),
    ("/RB 1 0 0 0x10f", "PCI Read Byte BDFO: 1 0 0 10F, return data:0x00\n", 0x00, "mr8 e010010f -> 00"),
    ("/RW 1 0 0 0x10c", "PCI Read Word BDFO: 1 0 0 10C, return data:0x2030\n", 0x30, "mr16 e010010c -> 2030"),
    ("/RW 1 0 0 0x10d", "PCI Read Word BDFO: 1 0 0 10D, return data:0x4620\n", 0x20, "mr16 e010010d -> 4620"),
    ("/RD 1 0 0 0x10c", "PCI Read DWord BDFO: 1 0 0 10C, return data:0x00462030\n", 0x30, "mr32 e010010c -> 00462030"),
    ("/RD 1 0 0 0x100", "PCI Read DWord BDFO: 1 0 0 100, return data:0x14820001\n", 0x01, "mr32 e0100100 -> 14820001"),
    ("/RD 1 0 0 0x14e", "PCI Read DWord BDFO: 1 0 0 14E, return data:0xDEF01234\n", 0x34, "mr32 e010014e -> def01234"),
    ("/RB 1 0 0 0xfff", "PCI Read Byte BDFO: 1 0 0 FFF, return data:0x00\n", 0x00, "mr8 e0100fff -> 00"),
    # the last bytes of the page run into the page of function 1, which is absent
    ("/RW 1 0 0 0xfff", "PCI Read Word BDFO: 1 0 0 FFF, return data:0xFF00\n", 0x00, "mr16 e0100fff -> ff00"),
    ("/RD 1 0 0 0xffe", "PCI Read DWord BDFO: 1 0 0 FFE, return data:0xFFFF0000\n", 0x00, "mr32 e0100ffe -> ffff0000"),
])
def test_extended_read_is_one_load_from_the_window(run, args, text, status, access):
    assert_run(run(f"/PCI {args}"), text, status, INTEL_BASE, mapped(NVME_PAGE, access))


@pytest.mark.parametrize("args, text, status, write, read", [
    ("/WB 1 0 0 0x10d 0xff", "PCI Write Byte BDFO: 1 0 0 10D, Data:FF, return data:0xF0\n", 0xF0,
     "mw8 e010010d ff", "mr8 e010010d -> f0"),
    ("/WW 1 0 0 0x10c 0xffff", "PCI Write Word BDFO: 1 0 0 10C, Data:FFFF, return data:0xF030\n", 0x30,
     "mw16 e010010c ffff", "mr16 e010010c -> f030"),
    ("/WD 1 0 0 0x10c 0xffffffff", "PCI Write Dword BDFO: 1 0 0 10C, Data:FFFFFFFF, return data:0x07FFF030\n", 0x30,
     "mw32 e010010c ffffffff", "mr32 e010010c -> 07fff030"),
])
def test_extended_write_looks_the_window_up_once_and_maps_for_each_access(run, args, text, status, write, read):
    assert_run(run(f"/PCI {args}"), text, status, INTEL_BASE, mapped(NVME_PAGE, write), mapped(NVME_PAGE, read))


@pytest.mark.parametrize("bit, width, before, after", [
    (5, 8, "30", "10"),
    (13, 16, "2030", "0030"),
    (22, 32, "00462030", "00062030"),
])
def test_an_extended_bit_is_changed_with_the_width_that_reaches_it(run, bit, width, before, after):
    text = f"PCI Write BDFO: 1 0 0 10C Bit{bit}, wValue:0, return data:0\n"
    steps = [f"mr{width} e010010c -> {before}", f"mw{width} e010010c {after}", f"mr{width} e010010c -> {after}"]
    assert_run(run(f"/PCI /WI 1 0 0 0x10c {bit} 0"), text, 0, INTEL_BASE, *[mapped(NVME_PAGE, at) for at in steps])


def test_a_conventional_function_has_no_extended_space(run):
    text = "PCI Read DWord BDFO: 0 1F 0 100, return data:0xFFFFFFFF\n"
    assert_run(run("/PCI /RD 0 0x1f 0 0x100"), text, 0xFF, INTEL_BASE, mapped(0xE00F8000, "mr32 e00f8100 -> ffffffff"))


@pytest.mark.parametrize("function, words, page", [
    ("00:01.0", "0 1 0", 0xE0008000),
    ("03:00.3", "3 0 3", 0xE0303000),
    ("ff:1f.7", "255 31 7", 0xEFFFF000),
])
def test_the_window_has_a_page_for_each_function(run, function, words, page):
    log = run(f"/PCI /RB {words} 0x200").log
    assert [line for line in log if line.startswith(("mmap", "munmap"))] == [
        f"mmap /dev/mem {page:08x} 2000 rw shared -> ok", f"munmap {page:08x} 2000"], function


def test_legacy_space_ends_at_ff_and_extended_space_at_fff(run):
    assert run("/PCI /RB 1 0 0 0xff").log == session(legacy("01:00.0", 0xFF, "in8 0cff -> 00"))
    assert run("/PCI /RB 1 0 0 0x100").log == session(INTEL_BASE, mapped(NVME_PAGE, "mr8 e0100100 -> 01"))
    assert run("/PCI /RB 1 0 0 0xfff").log == session(INTEL_BASE, mapped(NVME_PAGE, "mr8 e0100fff -> 00"))


@pytest.mark.parametrize("offset", [0x1000, 0x1001, 0xFFFF])
@pytest.mark.parametrize("width, name, ones", [("B", "Byte", "FF"), ("W", "Word", "FFFF"), ("D", "DWord", "FFFFFFFF")])
def test_beyond_extended_space_all_ones_are_read_without_an_access(run, offset, width, name, ones):
    text = f"PCI Read {name} BDFO: 1 0 0 {offset:X}, return data:0x{ones}\n"
    assert_run(run(f"/PCI /R{width} 1 0 0 {offset}"), text, 0xFF)


def test_beyond_extended_space_a_write_is_dropped(run):
    text = "PCI Write Byte BDFO: 1 0 0 1000, Data:12, return data:0xFF\n"
    assert_run(run("/PCI /WB 1 0 0 0x1000 0x12"), text, 0xFF)
    text = "PCI Write BDFO: 1 0 0 1000 Bit3, wValue:0, return data:1\n"
    assert_run(run("/PCI /WI 1 0 0 0x1000 3 0"), text, 1)


# ---- where the window is --------------------------------------------------------------------------------------------


@pytest.mark.parametrize("register, base", [
    ("e0000001", 0xE0000000),
    ("c0000000", 0xC0000000),  # the enable bit is not asked for
    ("f4567fff", 0xF4500000),  # bits 31:20 alone count
    ("000fffff", 0x00000000),
])
def test_intel_window_is_taken_from_the_host_bridge_as_it_stands(run, register, base):
    page = base + 0x100000
    result = run("/PCI /RB 1 0 0 0x100", extra=["pci 00:00.0", f"dword 60 {register}"])
    assert result.ports()[2:] == ["out32 0cf8 80000060", f"in32 0cfc -> {register}"]
    assert result.maps() == mapped(page, None)


@pytest.mark.parametrize("board, vendor", [("amd", "1022"), ("hygon", "1d94"), ("ati", "1002")])
def test_amd_and_hygon_window_is_taken_from_the_msr_of_cpu_0(run, board, vendor):
    text = "PCI Read DWord BDFO: 1 0 0 10C, return data:0x00462030\n"
    base = legacy("00:00.0", 0, f"in16 0cfc -> {vendor}") + msr_read(0, 0xC0010058, "00000000f8000021")
    load = mapped(0xF8100000, "mr32 f810010c -> 00462030")
    assert_run(run("/PCI /RD 1 0 0 0x10c", board=board), text, 0x30, base, load)


@pytest.mark.parametrize("register, base", [("00000000", 0), ("00100005", 0x100000)])
def test_a_register_60_that_is_no_window_leads_to_ordinary_memory(run, register, base):
    """Capabilities and scratch registers stand there on chipsets that keep their window elsewhere."""
    extra = ["pci 00:00.0", f"dword 60 {register}"]
    result = run("/PCI /WD 0 0 0 0x100 0x5AC3F00D", extra=extra, keep_memory=True)
    assert result.text == "PCI Write Dword BDFO: 0 0 0 100, Data:5AC3F00D, return data:0x5AC3F00D\n"
    assert result.memory(base + 0x100, 4) == bytes.fromhex("0df0c35a")


def test_amd_window_is_looked_up_once_in_a_run(run):
    text = "PCI Write Dword BDFO: 1 0 0 10C, Data:00000000, return data:0x00000000\n"
    steps = [mapped(0xF8100000, "mw32 f810010c 00000000"), mapped(0xF8100000, "mr32 f810010c -> 00000000")]
    assert_run(run("/PCI /WD 1 0 0 0x10c 0", board="amd"), text, 0, AMD_BASE, *steps)


def test_upper_half_of_the_amd_window_is_left_out(run):
    result = run("/PCI /RB 1 0 0 0x100", board="amd", extra="msr c0010058 000000fdf81fffff")
    assert result.maps() == mapped(0xF8200000, None)


def test_amd_window_is_at_0_when_the_msr_cannot_be_read(run):
    result = run("/PCI /RD 0 0 0 0x123", board="amd", extra=["msr-nodes never", "bytes 123 78 56 34 12"])
    assert result.text == "PCI Read DWord BDFO: 0 0 0 123, return data:0x12345678\n"
    assert result.log[-4:-2] == mapped(0, None)
    assert msr_absent(0)[0] == result.log[-5]


def test_legacy_space_asks_neither_maker_nor_window(run):
    log = run("/PCI /RB 1 0 0 0xff", board="amd").log
    assert log == session(legacy("01:00.0", 0xFF, "in8 0cff -> 00"))


@pytest.mark.parametrize("width, name, ones", [("B", "Byte", "FF"), ("W", "Word", "FFFF"), ("D", "DWord", "FFFFFFFF")])
def test_without_a_known_host_bridge_extended_space_reads_all_ones(run, width, name, ones):
    nobody = legacy("00:00.0", 0, "in16 0cfc -> ffff")
    text = f"PCI Read {name} BDFO: 1 0 0 100, return data:0x{ones}\n"
    assert_run(run(f"/PCI /R{width} 1 0 0 0x100", board="unknown"), text, 0xFF, nobody)


def test_without_a_known_host_bridge_an_extended_write_is_dropped_and_the_maker_asked_once(run):
    text = "PCI Write Dword BDFO: 1 0 0 100, Data:00000005, return data:0xFFFFFFFF\n"
    nobody = legacy("00:00.0", 0, "in16 0cfc -> ffff")
    assert_run(run("/PCI /WD 1 0 0 0x100 5", board="unknown"), text, 0xFF, nobody)


def test_without_a_known_host_bridge_legacy_space_works_to_its_last_register(run):
    text = "PCI Write Dword BDFO: 1 0 0 FC, Data:01020304, return data:0x01020304\n"
    steps = legacy("01:00.0", 0xFC, "out32 0cfc 01020304") + legacy("01:00.0", 0xFC, "in32 0cfc -> 01020304")
    assert_run(run("/PCI /WD 1 0 0 0xfc 0x1020304", board="unknown"), text, 0x04, steps)


# ---- mappings that fail ---------------------------------------------------------------------------------------------


@pytest.mark.parametrize("width, name, value", [
    ("B", "Byte", "FF"),
    ("W", "Word", "FFFF"),
    ("D", "DWord", "0000FFFF"),  # 16 ones also for a dword
])
def test_a_refused_mapping_reads_as_its_failure_value(run, width, name, value):
    text = f"PCI Read {name} BDFO: 1 0 0 10C, return data:0x{value}\n"
    assert_run(run(f"/PCI /R{width} 1 0 0 0x10c", board="refusedmap"), text, 0xFF, INTEL_BASE, refused(NVME_PAGE))


def test_a_refused_mapping_drops_a_write(run):
    text = "PCI Write Dword BDFO: 1 0 0 10C, Data:00000007, return data:0x0000FFFF\n"
    result = run("/PCI /WD 1 0 0 0x10c 7", board="refusedmap")
    assert_run(result, text, 0xFF, INTEL_BASE, refused(NVME_PAGE), refused(NVME_PAGE))


def test_a_refused_mapping_reads_as_a_bit_of_1_up_to_bit_15(run):
    for bit, value in ((0, 1), (15, 1), (16, 0), (31, 0)):
        result = run(f"/PCI /RI 1 0 0 0x10c {bit}", board="refusedmap")
        assert (result.status, result.maps()) == (value, refused(NVME_PAGE))


def test_a_page_whose_neighbour_is_refused_cannot_be_mapped_either(run):
    text = "PCI Read Byte BDFO: 1 0 0 10C, return data:0xFF\n"
    result = run("/PCI /RB 1 0 0 0x10c", extra="refuse e0101000 1000 EPERM")
    assert_run(result, text, 0xFF, INTEL_BASE, refused(NVME_PAGE))


def test_a_page_that_the_kernel_holds_cached_is_mapped_through_a_cached_descriptor(run):
    load = [*refused(NVME_PAGE, "EAGAIN"), "open /dev/mem rdwr cloexec -> ok",
            *mapped(NVME_PAGE, "mr8 e010010c -> 30")]
    result = run("/PCI /RB 1 0 0 0x10c", extra="refuse e0100000 1000 EAGAIN sync")
    assert result.text == "PCI Read Byte BDFO: 1 0 0 10C, return data:0x30\n"
    assert result.log == [*OPEN, *INTEL_BASE, *load, *CLOSE, "close /dev/mem"]


@pytest.mark.parametrize("width, name, value", [("B", "Byte", "FF"), ("W", "Word", "FFFF"), ("D", "DWord", "FFFFFFFF")])
def test_without_physical_memory_extended_space_reads_all_ones_and_nothing_is_mapped(run, width, name, value):
    result = run(f"/PCI /R{width} 1 0 0 0x10c", board="nomem")
    assert result.text == f"PCI Read {name} BDFO: 1 0 0 10C, return data:0x{value}\n"
    assert (result.status, result.maps()) == (0xFF, [])
    assert run(f"/PCI /W{width} 1 0 0 0x10c 1", board="nomem").maps() == []


# ---- addresses out of range -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("words, shown, address", [
    ("0 32 0 0", "0 20 0 0", "80010000"),
    ("0 0 8 0", "0 0 8 0", "80000800"),
    ("0 0x3f 9 0x10", "0 3F 9 10", "80020110"),
    ("256 0 0 0", "100 0 0 0", "81000000"),
    ("0 0xffff 0 0", "0 FFFF 0 0", "87fff800"),
    ("0 0 0xffff 0", "0 0 FFFF 0", "80ffff00"),
    ("0xffff 0 0 0", "FFFF 0 0 0", "7fff0000"),
    ("0xffff 0xffff 0xffff 0xff", "FFFF FFFF FFFF FF", "88fef7ff"),
])
def test_numbers_out_of_range_carry_into_the_neighbouring_fields(run, words, shown, address):
    result = run(f"/PCI /RB {words}")
    assert result.text.startswith(f"PCI Read Byte BDFO: {shown}, return data:0x")
    assert result.ports()[0] == f"out32 0cf8 {address}"
    assert result.ports()[1].startswith(f"in8 {0xCFC + (int(address, 16) & 3):04x} -> ")


def test_device_32_is_device_0_of_the_next_bus(run):
    assert run("/PCI /RW 0 32 0 0").text == "PCI Read Word BDFO: 0 20 0 0, return data:0x144D\n"
    assert run("/PCI /RD 0 32 0 0x10c").maps() == mapped(NVME_PAGE, None)


@pytest.mark.parametrize("words, page", [
    ("256 0 0 0x100", 0xF0000000),
    ("0 0 8 0x100", 0xE0008000),
    ("0xffff 0 0 0x100", 0xDFF00000),  # 32-bit arithmetic
    ("0 0xffff 0 0x100", 0x5FFF8000),
    ("0 0 0xffff 0x100", 0xEFFFF000),
])
def test_extended_addresses_carry_and_wrap_at_4_gib(run, words, page):
    assert run(f"/PCI /RB {words}").maps() == mapped(page, None)


@pytest.mark.parametrize("words, shown", [
    ("65536 65567 0x10000 0x10084", "0 1F 0 84"),
    ("-0 31 - 132", "0 1F 0 84"),
    ("b0 d31 f0 x132", "0 1F 0 84"),
    ("0 1f 0 0x8_4", "0 1 0 84"),
    ("0 0x1F 0 84h", "0 1F 0 54"),
])
def test_operands_are_16_bit_numerals_whose_other_characters_are_skipped(run, words, shown):
    assert run(f"/PCI /RB {words}").text.startswith(f"PCI Read Byte BDFO: {shown}, ")


# ---- which access it is ---------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args, text, steps", [
    # The write word gives the operands; the read flag gives the message; the write flag writes.
    ("/RB /WB 0 31 0 0x85 0x5a", "PCI Read Byte BDFO: 0 1F 0 85, return data:0x5A\n",
     [(0x85, "out8 0cfd 5a"), (0x85, "in8 0cfd -> 5a")]),
    ("/WB 0 31 0 0x85 0x5a /RB", "PCI Read Byte BDFO: 0 1F 0 85, return data:0x5A\n",
     [(0x85, "out8 0cfd 5a"), (0x85, "in8 0cfd -> 5a")]),
    ("/WW 0 31 0 0x84 0x5a01 /RW 9 9 9 9", "PCI Read Word BDFO: 0 1F 0 84, return data:0x5A01\n",
     [(0x84, "out16 0cfc 5a01"), (0x84, "in16 0cfc -> 5a01")]),
    ("/RD 9 9 9 9 /WD 0 31 0 0x84 1", "PCI Read DWord BDFO: 0 1F 0 84, return data:0x00000001\n",
     [(0x84, "out32 0cfc 00000001"), (0x84, "in32 0cfc -> 00000001")]),
    ("/RI 9 9 9 9 /WI 0 31 0 0x84 7 1",
     "PCI Read BDFO: 0 1F 0 84 Bit7, PCI Write BDFO: 0 1F 0 84 Bit7, wValue:1, return data:1\n",
     [(0x84, "in8 0cfc -> 01"), (0x84, "out8 0cfc 81"), (0x84, "in8 0cfc -> 81")]),
    # Bit before byte before word before dword, wherever they stand.
    ("/RD 9 9 9 9 /WB 0 31 0 0x85 0x5a", "PCI Write Byte BDFO: 0 1F 0 85, Data:5A, return data:0x5A\n",
     [(0x85, "out8 0cfd 5a"), (0x85, "in8 0cfd -> 5a")]),
    ("/WD 9 9 9 9 1 /RB 0 31 0 0x85", "PCI Read Byte BDFO: 0 1F 0 85, return data:0x0A\n", [(0x85, "in8 0cfd -> 0a")]),
    ("/WW 9 9 9 9 1 /RB 0 31 0 0x85", "PCI Read Byte BDFO: 0 1F 0 85, return data:0x0A\n", [(0x85, "in8 0cfd -> 0a")]),
    ("/WD 9 9 9 9 1 /RW 0 31 0 0x84", "PCI Read Word BDFO: 0 1F 0 84, return data:0x0A01\n",
     [(0x84, "in16 0cfc -> 0a01")]),
    ("/WB 9 9 9 9 1 /RI 0 31 0 0x84 0", "PCI Read BDFO: 0 1F 0 84 Bit0, return data:1\n", [(0x84, "in8 0cfc -> 01")]),
    ("/RQ /RB 0 31 0 0x85", "PCI Read Byte BDFO: 0 1F 0 85, return data:0x0A\n", [(0x85, "in8 0cfd -> 0a")]),
    ("/WQ 9 9 9 9 1 /RB 0 31 0 0x85", "PCI Read Byte BDFO: 0 1F 0 85, return data:0x0A\n", [(0x85, "in8 0cfd -> 0a")]),
])
def test_several_access_words(run, args, text, steps):
    result = run(f"/PCI {args}")
    assert result.text == text
    assert result.log == session(*[lpc(offset, access) for offset, access in steps])


def test_a_switch_among_the_operands_is_read_as_an_operand(run):
    # Behind /WB comes /RD, read as device 0; the numbers shift by one.
    text = "PCI Write Byte BDFO: 0 0 1F 0, Data:84, return data:0xFF\n"
    assert run("/PCI /WB /RD 0 31 0 0x84").text == text


@pytest.mark.parametrize("args", ["", "/RQ 0 0 0 0", "/WQ 0 0 0 0 1", "/RQ /WQ 0 0 0 0", "0 0 0 0", "/LOG", "/NOMSG",
                                  "/F", "/S", "/INDEX", "/TEXT /DEBUG"])
def test_without_a_supported_access_word_nothing_is_done(run, args):
    assert_run(run(f"/PCI {args}"), "", 0x80000002)


@pytest.mark.parametrize("args, text, status", [
    ("/RB", "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n", 0x86),
    ("/RW 0", "PCI Read Word BDFO: 0 0 0 0, return data:0x8086\n", 0x86),
    ("/RD 0 31", "PCI Read DWord BDFO: 0 1F 0 0, return data:0xA3058086\n", 0x86),
    ("/RB 0 31 2", "PCI Read Byte BDFO: 0 1F 2 0, return data:0x86\n", 0x86),
    ("/RI", "PCI Read BDFO: 0 0 0 0 Bit0, return data:0\n", 0),
    ("/RI 0 0 0 0", "PCI Read BDFO: 0 0 0 0 Bit0, return data:0\n", 0),
    ("/WI 0 31 0 0x84", "PCI Write BDFO: 0 1F 0 84 Bit0, wValue:0, return data:0\n", 0),
    ("/WB", "PCI Write Byte BDFO: 0 0 0 0, Data:00, return data:0x86\n", 0x86),
    ("/WW 0 31 0 0x84", "PCI Write Word BDFO: 0 1F 0 84, Data:0000, return data:0x0000\n", 0),
    ("/WD 0 31 0 0x84", "PCI Write Dword BDFO: 0 1F 0 84, Data:00000000, return data:0x00000000\n", 0),
])
def test_missing_operands_read_as_0(run, args, text, status):
    result = run(f"/PCI {args}")
    assert (result.text, result.err, result.status) == (text, b"", status)


def test_words_behind_the_operands_are_of_no_matter(run):
    text = "PCI Read Byte BDFO: 0 1F 0 85, return data:0x0A\n"
    assert_run(run("/PCI /RB 0 31 0 0x85 0x12 more words /LOG"), text, 0x0A, lpc(0x85, "in8 0cfd -> 0a"))


def test_an_absent_function_reads_all_ones_and_keeps_nothing(run):
    assert run("/PCI /RD 9 9 1 0").text == "PCI Read DWord BDFO: 9 9 1 0, return data:0xFFFFFFFF\n"
    assert run("/PCI /WW 9 9 1 4 0").text == "PCI Write Word BDFO: 9 9 1 4, Data:0000, return data:0xFFFF\n"


def test_every_legacy_access_waits_two_microseconds_first(run):
    log = run("/PCI /WI 0 31 0 0x84 7 1").log
    selects = [at for at, line in enumerate(log) if line.startswith("out32 0cf8 ")]
    assert len(selects) == 3 and log.count(DELAY[0]) == 6
    assert all(log[at - 2 : at] == DELAY for at in selects)


def test_an_access_word_that_is_the_programs_name_makes_no_access(run):
    result = run("/PCI /LOG 0 0 0 0", name="/RB")
    assert (result.text, result.status, result.ports()) == ("", 2, [])
