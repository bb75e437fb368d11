"""The simulated board itself: each door, each width, each fault. The probe (probes/probe.c) goes through the doors in
the order of its words and prints what comes back."""

import re
import signal
import subprocess

import pytest
from harness import BOARDS, BUILD, CLOSED

MISTAKE = 125  # the exit status of a process that was told or asked for what the board does not have
CPU_FLAGS = open("/proc/cpuinfo").read()


@pytest.fixture
def probe(run):
    """The probe on a board of the test's own lines."""

    def go(words, *lines, board="base", **more):
        return run(words, board=board, extra=lines, program="hwboard_probe", **more)

    return go


def said(result):
    return result.text.splitlines()


# Privilege and ports


def test_iopl_is_granted_and_logged(probe):
    result = probe("iopl 3 iopl 0")
    assert said(result) == ["iopl 0", "iopl 0"]
    assert result.log == ["iopl 3", "iopl 0"]


def test_iopl_is_refused_where_the_board_says_so(probe):
    result = probe("iopl 3", board="noiopl")
    assert said(result) == ["iopl EPERM"]
    assert result.log == ["iopl 3 -> EPERM"]


@pytest.mark.parametrize("words, board", [("in8 80", "base"), ("iopl 3 iopl 0 out8 80 1", "base"),
                                          ("iopl 3 in8 80", "noiopl")])
def test_a_port_instruction_without_privilege_kills(probe, words, board):
    result = probe(words, board=board)
    assert result.status == -signal.SIGSEGV
    assert result.ports() == []


@pytest.mark.parametrize("width, value, line", [
    ("8", 0x78, "out8 0080 78"),
    ("16", 0x5678, "out16 0080 5678"),
    ("32", 0x12345678, "out32 0080 12345678"),
    ("imm8", 0x78, "out8 0080 78"),
    ("imm16", 0x5678, "out16 0080 5678"),
    ("imm32", 0x12345678, "out32 0080 12345678"),
])
def test_out_writes_its_width_and_no_more(probe, width, value, line):
    port = "" if "imm" in width else "80"
    result = probe(f"iopl 3 out{width} {port} ffffffff12345678 in32 80 in8 84", "latch 80 10 11")
    assert result.ports()[0] == line
    kept = 0x11111111 & ~((1 << 4 * len(line.split()[2])) - 1) | value
    assert said(result)[1:] == [f"in {kept:x}", "in 11"]


@pytest.mark.parametrize("width, line, rax", [
    ("8", "in8 0080 -> d1", "11223344556677d1"),
    ("16", "in16 0080 -> c2d1", "112233445566c2d1"),
    ("32", "in32 0080 -> a4b3c2d1", "a4b3c2d1"),
    ("imm8", "in8 0080 -> d1", "11223344556677d1"),
    ("imm16", "in16 0080 -> c2d1", "112233445566c2d1"),
    ("imm32", "in32 0080 -> a4b3c2d1", "a4b3c2d1"),
])
def test_in_changes_its_part_of_rax(probe, width, line, rax):
    result = probe(f"iopl 3 inrax{width} 80", "constant 80 d1 c2 b3 a4")
    assert said(result) == ["iopl 0", f"rax {rax}"]
    assert result.ports() == [line]


def test_a_string_port_instruction_is_rejected_loudly(probe):
    result = probe("iopl 3 insb 80")
    assert result.status == MISTAKE
    assert b"string port instruction" in result.err


def test_ports_of_nobody_read_all_ones(probe):
    result = probe("iopl 3 out32 300 0 in8 300 in16 300 in32 300 in8 ed")
    assert said(result)[1:] == ["in ff", "in ffff", "in ffffffff", "in ff"]


def test_a_wide_access_combines_the_bytes_of_its_ports(probe):
    result = probe("iopl 3 out32 100 44332211 in8 100 in8 102 in32 100",
                   "latch 100 1", "constant 101 77", "latch 102 1")
    assert said(result)[1:] == ["in 11", "in 33", "in ff337711"]


def test_the_last_ports_can_be_reached(probe):
    assert said(probe("iopl 3 out8 ffff 5a in8 ffff in16 ffff", "latch ffff 1"))[1:] == ["in 5a", "in ff5a"]


def test_unlogged_ports_work_without_a_trace(probe):
    result = probe("iopl 3 out8 80 5a in8 80 in8 81", "unlogged 80 1")
    assert said(result)[1] == "in 5a"
    assert result.ports() == ["in8 0081 -> 00"]


# Configuration mechanism 1 and the window


def config(bus, device, function, offset):
    return f"{0x80000000 | bus << 16 | device << 11 | function << 8 | offset:x}"


def test_the_host_bridge_is_read_in_each_width(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 0, 0, 0)} in8 cfc in8 cfd in16 cfc in16 cfe in32 cfc", board="intel")
    assert said(result)[1:] == ["in 86", "in 80", "in 8086", "in 3e30", "in 3e308086"]


def test_bridges_ignore_the_two_low_bits_of_the_address(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 0, 0, 3)} in8 cfc in32 cfc in32 cf8", board="intel")
    assert said(result)[1:] == ["in 86", "in 3e308086", "in 80000000"]


def test_reserved_address_bits_read_back_as_zero(probe):
    assert said(probe("iopl 3 out32 cf8 ffffffff in32 cf8"))[1] == "in 80fffffc"


def test_an_access_that_leaves_the_data_window_is_made_of_bytes(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 0, 0, 0)} in16 cff in32 cfe", board="intel")
    assert said(result)[1:] == ["in ff3e", "in ffff3e30"]


def test_data_without_the_enable_bit_belongs_to_nobody(probe):
    result = probe("iopl 3 out32 cf8 0 in32 cfc out32 cfc 0 out32 cf8 80000000 in32 cfc", board="intel")
    assert said(result)[1:] == ["in ffffffff", "in 3e308086"]


def test_a_narrow_access_at_the_address_register_is_an_ordinary_port_access(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 0, 0, 8)} out8 cf9 6 in8 cf9 in8 cf8 in16 cfa in32 cf8")
    assert said(result)[1:] == ["in 6", "in ff", "in ffff", "in 80000008"]


def test_an_absent_function_reads_all_ones(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 3, 0, 0)} in8 cfc in16 cfe in32 cfc", board="intel")
    assert said(result)[1:] == ["in ff", "in ffff", "in ffffffff"]


REGISTERS = ("pci 00:05.0 1234:5678 class 0c0500 rev 01", "dword 40 11223344 rw 00ff00ff", "word 48 ffff w1c 0ff0",
             "bar 4 io efa0 20")


def test_writes_change_writable_bits_only(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 5, 0, 0x40)} out32 cfc aabbccdd in32 cfc out8 cfd ee in32 cfc "
                   f"out32 cf8 {config(0, 5, 0, 0)} out32 cfc 0 in32 cfc", *REGISTERS)
    assert said(result)[1:] == ["in 11bb33dd", "in 11bb33dd", "in 56781234"]


def test_written_ones_clear(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 5, 0, 0x48)} out16 cfc 00f0 in16 cfc out16 cfc 0000 in16 cfc",
                   *REGISTERS)
    assert said(result)[1:] == ["in ff0f", "in ff0f"]


def test_a_base_address_register_shows_its_size(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 5, 0, 0x20)} in32 cfc out32 cfc ffffffff in32 cfc", *REGISTERS)
    assert said(result)[1:] == ["in efa1", "in ffffffe1"]


def test_the_command_register_takes_its_bits(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 5, 0, 4)} in16 cfc out16 cfc ffff in16 cfc", *REGISTERS)
    assert said(result)[1:] == ["in 0", "in 547"]


def functions_of(board):
    """The functions of a board, as its description names them."""
    text = (BOARDS / f"{board}.board").read_text()
    return [tuple(int(part, 16) for part in found) for found in re.findall(r"^pci (\w+):(\w+)\.(\w)", text, re.M)]


def window(board, bus, device, function):
    return {"intel": 0xE0000000, "amd": 0xF8000000}[board] + (bus << 20 | device << 15 | function << 12)


@pytest.mark.parametrize("board", ["intel", "amd"])
def test_the_window_shows_what_the_ports_show(probe, board):
    for where in functions_of(board):
        words = ["iopl 3 open /dev/mem rw", f"map 3 {window(board, *where):x} 1000 rw"]
        for offset in range(0, 0x100, 4):
            words.append(f"out32 cf8 {config(*where, offset)} in32 cfc load mov32 {offset:x}")
        values = [line.split()[1] for line in said(probe(" ".join(words), board=board))[3:]]
        assert len(values) == 128
        assert values[0::2] == values[1::2]
        assert values[0] != "ffffffff"


def test_extended_space_is_there_for_express_functions_only(probe):
    for where, value in [((1, 0, 0), "14820001"), ((5, 1, 0), "ffffffff"), ((9, 0, 0), "ffffffff")]:
        result = probe(f"open /dev/mem rw map 3 {window('intel', *where):x} 1000 rw load mov32 100", board="intel")
        assert said(result)[2] == f"load {value}"


def test_a_write_through_the_window_is_seen_at_the_ports(probe):
    result = probe(f"iopl 3 open /dev/mem rw map 3 e0000000 1000 rw store mov8 dc a5 load mov8 dc "
                   f"out32 cf8 {config(0, 0, 0, 0xDC)} in8 cfc", board="intel")
    assert said(result)[3:] == ["load a5", "in a5"]
    assert result.memory_accesses() == ["mw8 e00000dc a5", "mr8 e00000dc -> a5"]


# Physical memory


def test_dev_mem_is_opened_with_the_flags_that_were_asked_for(probe):
    result = probe("open /dev/mem rwse open /dev/mem r openat /dev/mem ws open64 /dev/mem rwc close 3")
    assert result.log == [
        "open /dev/mem rdwr sync cloexec -> ok",
        "open /dev/mem rdonly -> ok",
        "open /dev/mem wronly sync -> ok",
        "open /dev/mem rdwr -> ok",
        "close /dev/mem",
    ]
    assert said(result) == ["open 3", "open 4", "open 5", "open 6", "close 0"]


@pytest.mark.parametrize("error", ["ENOENT", "EACCES"])
def test_dev_mem_may_be_missing(probe, error):
    result = probe("open /dev/mem rw fopen /dev/mem rb", f"mem {error}")
    assert said(result) == [f"open {error}", f"fopen {error}"]
    assert result.log == [f"open /dev/mem rdwr -> {error}", f"open /dev/mem rdonly -> {error}"]


def test_a_stream_of_dev_mem_is_logged_as_well(probe):
    result = probe("fopen /dev/mem r+b fclose")
    assert result.log == ["open /dev/mem rdwr -> ok", "close /dev/mem"]


def test_other_files_are_not_the_boards_business(probe, tmp_path):
    result = probe("open plain rwc write 3 hello close 3 open /dev/memory r open /dev/cpu/x/msr r")
    assert (tmp_path / "plain").read_text() == "hello"
    assert said(result)[3:] == ["open ENOENT", "open ENOENT"]
    assert result.log == []


def test_mappings_are_logged(probe):
    result = probe("open /dev/mem rw map 3 1000 2000 rw unmap map 3 f0000 1000 r unmap map 3 0 10 w unmap")
    assert result.log[1:] == [
        "mmap /dev/mem 00001000 2000 rw shared -> ok",
        "munmap 00001000 2000",
        "mmap /dev/mem 000f0000 1000 r shared -> ok",
        "munmap 000f0000 1000",
        "mmap /dev/mem 00000000 10 w shared -> ok",
        "munmap 00000000 10",
    ]


def test_plain_memory_is_mapped_as_it_is_and_leaves_no_line(probe):
    result = probe("open /dev/mem rw map 3 1000 1000 rw load mov32 10 store mov32 10 cafe load mov64 10",
                   keep_memory=True)
    assert said(result)[2:] == ["load 1010", "load 10140000cafe"]
    assert result.memory_accesses() == []
    assert result.memory(0x1010, 4) == bytes.fromhex("feca0000")


def test_two_pages_at_the_end_of_4_gib_are_granted(probe):
    result = probe("open /dev/mem rw map 3 fffff000 2000 rw load mov32 ff0 load mov64 ffc")
    assert said(result)[1:] == ["map ok", "load e05bea", "load fc0034"]


def test_mappings_beyond_are_refused(probe):
    assert said(probe("open /dev/mem rw map 3 200000000 1000 rw"))[1] == "map EINVAL"


def test_a_mapping_with_one_refused_page_is_refused_as_a_whole(probe):
    result = probe("open /dev/mem rw map 3 ff000 2000 rw map 3 ff000 1000 rw map 3 100000 1000 rw map 3 102000 1000 rw",
                   "refuse 100000 2000 EPERM")
    assert said(result)[1:] == ["map EPERM", "map ok", "map EPERM", "map ok"]
    assert result.maps()[0] == "mmap /dev/mem 000ff000 2000 rw shared -> EPERM"


def test_a_mapping_may_be_refused_to_synchronous_descriptors_only(probe):
    result = probe("open /dev/mem rw open /dev/mem rws map 3 7000 1000 rw map 4 7000 1000 rw",
                   "refuse 7000 1000 EAGAIN sync")
    assert said(result)[2:] == ["map ok", "map EAGAIN"]


def test_a_writable_mapping_needs_a_writable_descriptor(probe):
    assert said(probe("open /dev/mem r map 3 0 1000 rw map 3 0 1000 r"))[1:] == ["map EACCES", "map ok"]


def test_holes_read_all_ones_and_keep_nothing(probe):
    result = probe("open /dev/mem rw map 3 90000000 1000 rw store mov32 0 1234 load mov32 0 load mov8 7")
    assert said(result)[2:] == ["load ffffffff", "load ff"]


# What the host bridge's first 32 bytes in the window are: 86 80 30 3e, command and status, revision and class ...
LOADS = [
    ("mov8", 0, "mr8 e0000000 -> 86", 0x86),
    ("mov16", 2, "mr16 e0000002 -> 3e30", 0x3E30),
    ("mov32", 0, "mr32 e0000000 -> 3e308086", 0x3E308086),
    ("mov64", 0, "mr64 e0000000 -> 209000003e308086", 0x209000003E308086),
    ("movzx8", 1, "mr8 e0000001 -> 80", 0x80),
    ("movzx16", 0, "mr16 e0000000 -> 8086", 0x8086),
    ("movsx8", 1, "mr8 e0000001 -> 80", 0xFFFFFFFFFFFFFF80),
    ("movsx16", 0, "mr16 e0000000 -> 8086", 0xFFFF8086),
    ("movsxd", 0, "mr32 e0000000 -> 3e308086", 0x3E308086),
    ("movr9", 0, "mr32 e0000000 -> 3e308086", 0x3E308086),
    ("r12", 0, "mr32 e0000000 -> 3e308086", 0x3E308086),
    ("r13", 0, "mr32 e0000000 -> 3e308086", 0x3E308086),
    ("sib", 0x50, "mr32 e0000060 -> e0000001", 0xE0000001),
    ("disp32", 0x100, "mr32 e0000300 -> ffffffff", 0xFFFFFFFF),
    ("cmp8", 0, "mr8 e0000000 -> 86", 1),
    ("test32", 0, "mr32 e0000000 -> 3e308086", 1),
    ("add32", 0, "mr32 e0000000 -> 3e308086", 0x3E308086),
    ("cmov", 0, "mr32 e0000000 -> 3e308086", 0x3E308086),
    ("movd", 0, "mr32 e0000000 -> 3e308086", 0x3E308086),
    ("movq", 0, "mr64 e0000000 -> 209000003e308086", 0x209000003E308086),
    ("lodsd", 0, "ms32 e0000000 -> 3e308086", 0x3E308086),
    ("movbe", 0, "mr32 e0000000 -> 3e308086", 0x8680303E),
]


@pytest.mark.parametrize("form, offset, line, value", LOADS)
def test_a_load_is_one_access_of_its_width(probe, form, offset, line, value):
    result = probe(f"open /dev/mem rw map 3 e0000000 1000 rw load {form} {offset:x}", board="intel")
    assert said(result)[2:] == [f"load {value:x}"]
    assert result.memory_accesses() == [line]


SIXTEEN = "0600000a209000003e308086"


@pytest.mark.parametrize("form, bits, flag", [("movdqu", 128, "sse2"), ("movaps", 128, "sse2"), ("ymm", 256, "avx"),
                                              ("zmm", 512, "avx512f")])
def test_vector_loads_show_their_width(probe, form, bits, flag):
    if f" {flag} " not in CPU_FLAGS:
        pytest.skip(f"the processor has no {flag}")
    result = probe(f"open /dev/mem rw map 3 e0000000 1000 rw load {form} 0", board="intel")
    (line,) = result.memory_accesses()
    name, where, _, value = line.split()
    assert (name, where, len(value)) == (f"mr{bits}", "e0000000", bits // 4)
    assert value.endswith(SIXTEEN)
    assert said(result)[2] == f"load {value}"


@pytest.mark.parametrize("form, line, after", [
    ("mov8", "mw8 e00000dc 88", 0x88),
    ("imm8", "mw8 e00000dc 5a", 0x5A),
])
def test_a_byte_store_is_one_access(probe, form, line, after):
    result = probe(f"open /dev/mem rw map 3 e0000000 1000 rw store {form} dc 5566778811223388 load mov8 dc",
                   board="intel")
    assert said(result)[2:] == [f"load {after:x}"]
    assert result.memory_accesses()[0] == line


@pytest.mark.parametrize("form, lines", [
    ("mov16", ["mw16 e0108028 3388"]),
    ("mov32", ["mw32 e0108028 11223388"]),
    ("mov64", ["mw64 e0108028 5566778811223388"]),
    ("imm16", ["mw16 e0108028 5aa5"]),
    ("imm32", ["mw32 e0108028 12345678"]),
    ("movr9", ["mw32 e0108028 11223388"]),
    ("movnti", ["mw32 e0108028 11223388"]),
    ("movd", ["mw32 e0108028 11223388"]),
    ("stosd", ["ms32 e0108028 11223388"]),
    ("movdqu", ["mw128 e0108028 " + bytes(range(0x97, 0x87, -1)).hex()]),
    ("xchg", ["mr32 e0108028 -> 00000000", "mw32 e0108028 11223388"]),
    ("or32", ["mr32 e0108028 -> 00000000", "mw32 e0108028 11223388"]),
    ("or8", ["mr8 e0108028 -> 00", "mw8 e0108028 01"]),
])
def test_a_store_is_one_access_of_its_width(probe, form, lines):
    result = probe(f"open /dev/mem rw map 3 e0108000 1000 rw store {form} 28 5566778811223388 load mov32 28",
                   "pci 01:01.0 1234:5678 verbatim", "dword 28 0 rw ffffffff", "dword 2c 0 rw ffffffff", board="intel")
    assert result.memory_accesses()[:-1] == lines
    # the register's 32 bits hold the last 32 bits written, as far as they were written
    written = lines[-1].split()[2][-8:]
    assert said(result)[2] == f"load {int(written, 16):x}"


def test_a_copy_between_registers_shows_both_sides(probe):
    result = probe("open /dev/mem rw map 3 e0108000 1000 rw movs 0 28 load mov32 28", "pci 01:01.0 1234:5678 verbatim",
                   "dword 28 0 rw ffffffff", board="intel")
    assert result.memory_accesses()[:2] == ["ms32 e0108000 -> 56781234", "ms32 e0108028 56781234"]
    assert said(result)[2] == "load 56781234"


def test_a_repeated_string_copy_shows_each_byte(probe):
    result = probe("open /dev/mem rw map 3 e0000000 1000 rw copy repmovsb 0 4", board="intel")
    assert result.memory_accesses() == [f"ms8 e000000{i} -> {byte}" for i, byte in enumerate(["86", "80", "30", "3e"])]
    assert said(result)[2] == f"copy {0x86 + 0x80 + 0x30 + 0x3E:x}"


def test_an_access_across_two_pages_of_devices_is_one_access(probe):
    result = probe("open /dev/mem rw map 3 e0108000 2000 rw load mov32 ffe store mov32 ffe 5678abcd load mov32 ffe",
                   "pci 01:01.0 1234:5678 verbatim", "pcie 40 0 DIS", "word ffe beef rw ffff",
                   "pci 01:01.1 cafe:0001 verbatim", board="intel")
    assert result.memory_accesses() == ["mr32 e0108ffe -> cafebeef", "mw32 e0108ffe 5678abcd",
                                        "mr32 e0108ffe -> cafeabcd"]


def test_an_access_from_memory_into_a_device_is_one_access(probe):
    result = probe("open /dev/mem rw map 3 5000 2000 rw load mov32 ffe store mov32 ffe 11223344 load mov32 ffe",
                   "hole 6000 1000")
    assert said(result)[2:] == ["load ffff0000", "load ffff3344"]
    assert result.memory_accesses()[0] == "mr32 00005ffe -> ffff0000"


def test_watched_memory_shows_order_and_width_and_keeps_its_contents(probe):
    result = probe("open /dev/mem rw map 3 1000 1000 rw load mov64 8 store mov16 4 abcd load mov32 4 load mov32 ffc",
                   "watch 1000 10")
    assert result.memory_accesses() == ["mr64 00001008 -> 0000100c00001008", "mw16 00001004 abcd",
                                        "mr32 00001004 -> 0000abcd"]
    assert said(result)[2:] == ["load 100c00001008", "load abcd", "load 1ffc"]


def test_a_whole_watched_page_can_be_copied_by_libc(probe):
    plain = probe("open /dev/mem rw map 3 2000 1000 rw copy memcpy 0 1000")
    watched = probe("open /dev/mem rw map 3 2000 1000 rw copy memcpy 0 1000", "watch 2000 1000")
    assert said(plain) == said(watched)
    covered = set()
    for line in watched.memory_accesses():
        name, where = line.split()[:2]
        start = int(where, 16)
        covered |= set(range(start, start + int(name.lstrip("mrs")) // 8))
    assert covered == set(range(0x2000, 0x3000))


def test_a_load_from_a_write_only_or_unmapped_page_still_kills(probe):
    for words in ["map 3 e0000000 1000 r store mov32 dc 1", "map 3 e0000000 2000 rw unmapat 1000 1000 load mov32 1000",
                  "map 3 e0000000 1000 rw unmap load mov32 0"]:
        assert probe(f"open /dev/mem rw {words}", board="intel").status == -signal.SIGSEGV


def test_the_rest_of_a_mapping_cut_in_two_is_still_the_boards(probe):
    result = probe("open /dev/mem rw map 3 e0000000 3000 rw unmapat 1000 1000 load mov32 0 load mov32 2000",
                   board="intel")
    assert said(result)[2:] == ["unmap 0", "load 3e308086", "load ffffffff"]
    assert result.maps()[-1] == "munmap e0001000 1000"


def test_a_change_of_a_read_only_page_kills_before_it_reads(probe):
    result = probe("open /dev/mem rw map 3 e0000000 1000 r store or32 dc 1", board="intel")
    assert result.status == -signal.SIGSEGV
    assert result.memory_accesses() == []


def test_a_second_operand_that_is_no_memory_kills_as_ever(probe):
    result = probe("open /dev/mem rw map 3 e0000000 1000 rw movs 0 -", board="intel")
    assert result.status == -signal.SIGSEGV


def test_memory_can_be_read_and_written_through_the_descriptor(probe):
    result = probe("open /dev/mem rw pread 3 1000 8 pwrite 3 2000 1122334455667788 pread 3 2000 8", keep_memory=True)
    assert said(result)[1:] == ["pread 8", "value 100400001000", "pwrite 8", "pread 8", "value 1122334455667788"]
    assert result.log[1:] == ["pread /dev/mem 1000 8 -> ok", "pwrite /dev/mem 2000 8 -> ok",
                              "pread /dev/mem 2000 8 -> ok"]
    assert result.memory(0x2000, 8) == bytes.fromhex("8877665544332211")


# Descriptors are real ones


def test_the_lowest_free_descriptor_is_given(probe):
    result = probe("open /dev/null r open /dev/mem rw open /dev/cpu/0/msr r close 3 open /dev/mem rw")
    assert said(result) == ["open 3", "open 4", "open 5", "close 0", "open 3"]


@pytest.mark.parametrize("streams, descriptor", [
    ({"stdin": CLOSED}, 0),
    ({"stdout": CLOSED}, 1),
    ({"stderr": CLOSED}, 2),
    ({"stdin": CLOSED, "stdout": CLOSED, "stderr": CLOSED}, 0),
])
def test_a_closed_standard_descriptor_becomes_the_memory(probe, streams, descriptor):
    result = probe(f"open /dev/mem rw write {descriptor} overwritten", keep_memory=True, **streams)
    assert result.status == 0
    assert result.log == ["open /dev/mem rdwr -> ok"]
    assert b"overwritten" in result.memory(0, 100)


def test_text_printed_into_the_memory_changes_it(probe):
    result = probe("open /dev/mem rw puts hello", stdout=CLOSED, keep_memory=True)
    assert b"hello\n" in result.memory(0, 100)


def test_a_duplicate_is_the_same_file(probe):
    result = probe("open /dev/mem rw dup 3 close 3 map 4 e0000000 1000 rw load mov16 0 close 4", board="intel")
    assert said(result)[3:] == ["map ok", "load 8086", "close 0"]
    assert result.log[-1] == "close /dev/mem"


@pytest.mark.parametrize("flags, inherited", [("rw", True), ("rwe", False)])
def test_children_inherit_what_is_not_close_on_exec(probe, flags, inherited):
    result = probe(f"open /dev/mem {flags} open /dev/cpu/0/msr {flags.replace('w', '')} system 'ls /proc/self/fd'",
                   "system real ls")
    listed = said(result)[2:-1]
    assert ("3" in listed and "4" in listed) == inherited
    # none of the board's own descriptors
    assert all(int(number) < 100 for number in listed)


def test_the_log_is_whole_when_the_process_is_killed(probe):
    result = probe("iopl 3 repeat 80 3e8 raise 9 in8 81")
    assert result.status == -signal.SIGKILL
    assert len(result.ports()) == 1000


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGTRAP, signal.SIGSEGV])
def test_signals_are_as_they_were(probe, number):
    words = "iopl 3 in8 80 open /dev/mem rw map 3 90000000 1000 rw load mov32 0"
    assert probe(f"{words} raise {number:x}").status == -number


def test_a_wild_store_kills_as_ever(probe):
    assert probe("iopl 3 crash").status == -signal.SIGSEGV


# MSRs

MSRS = ("cpus 0-2 4", "msr 10 1000 count 10", "msr 1b fee00800", "msr 1b fee00900 cpus 0", "msr 20 ff rw 0f",
        "msr 21 55 ro", "msr 22 0")


def test_an_msr_is_read_at_its_index(probe):
    result = probe("open /dev/cpu/0/msr re pread 3 1b 8 close 3 open /dev/cpu/4/msr r pread 3 1b 8", *MSRS)
    assert said(result)[1:] == ["pread 8", "value fee00900", "close 0", "open 3", "pread 8", "value fee00800"]
    assert result.log == [
        "open /dev/cpu/0/msr rdonly cloexec -> ok",
        "pread /dev/cpu/0/msr 1b 8 -> 00000000fee00900",
        "close /dev/cpu/0/msr",
        "open /dev/cpu/4/msr rdonly -> ok",
        "pread /dev/cpu/4/msr 1b 8 -> 00000000fee00800",
    ]


def test_an_absent_msr_is_an_io_error(probe):
    result = probe("open /dev/cpu/0/msr rw pread 3 c0010058 8 pwrite 3 c0010058 1", *MSRS)
    assert said(result)[1:] == ["pread EIO", "pwrite EIO"]
    assert result.msrs() == ["pread /dev/cpu/0/msr c0010058 8 -> EIO",
                             "pwrite /dev/cpu/0/msr c0010058 8 0000000000000001 -> EIO"]


def test_written_msrs_are_kept_per_cpu(probe):
    result = probe("open /dev/cpu/1/msr w pwrite 3 22 100850089 close 3 open /dev/cpu/1/msr r pread 3 22 8 "
                   "open /dev/cpu/2/msr r pread 4 22 8", *MSRS)
    assert "value 100850089" in said(result) and said(result)[-1] == "value 0"
    assert result.msrs()[0] == "pwrite /dev/cpu/1/msr 22 8 0000000100850089 -> ok"


def test_an_msr_may_be_read_only_masked_or_counting(probe):
    result = probe("open /dev/cpu/0/msr rw pwrite 3 21 1 pwrite 3 20 aa pread 3 20 8 pread 3 10 8 pread 3 10 8", *MSRS)
    assert said(result)[1:] == ["pwrite EIO", "pwrite 8", "pread 8", "value fa", "pread 8", "value 1000", "pread 8",
                                "value 1010"]


def test_the_msr_driver_takes_whole_registers_in_the_right_direction(probe):
    result = probe("open /dev/cpu/0/msr r pread 3 1b 4 pwrite 3 22 1 open /dev/cpu/0/msr w pread 4 1b 8", *MSRS)
    assert said(result) == ["open 3", "pread EINVAL", "pwrite EBADF", "open 4", "pread EBADF"]


def test_cpus_may_have_gaps(probe):
    words = " ".join(f"open /dev/cpu/{cpu}/msr r" for cpu in range(7))
    assert said(probe(words, board="cpugap")) == ["open 3", "open 4", "open 5", "open 6", "open ENOENT", "open 7",
                                                   "open ENOENT"]


def test_the_msr_nodes_may_come_with_the_module_or_never(probe):
    words = "open /dev/cpu/0/msr r system 'modprobe msr' open /dev/cpu/0/msr r"
    assert said(probe(words, board="latemsr")) == ["open ENOENT", "system 0", "open 3"]
    assert said(probe(words, board="nomsr")) == ["open ENOENT", "system 256", "open ENOENT"]
    assert said(probe(words, "msr-nodes EACCES"))[0] == "open EACCES"
    assert probe(words, board="latemsr").systems() == ["modprobe msr"]


# The shell, the firmware's table file


def test_commands_are_recorded_and_not_run(probe, tmp_path):
    result = probe("system 'touch made' system clear")
    assert result.systems() == ["touch made", "clear"]
    assert said(result) == ["system 0", "system 0"]
    assert not (tmp_path / "made").exists()


def test_commands_may_be_run_printed_or_fail(probe, tmp_path):
    result = probe("system 'touch made' system 'shutdown -P now' system false", "system real touch",
                   "system print shutdown", "system exit 7 false")
    assert (tmp_path / "made").exists()
    assert said(result) == ["system 0", 'system("shutdown -P now")', "system 0", "system 1792"]


def test_a_command_really_run_has_the_real_machine_around_it(probe):
    result = probe("system 'echo preload:$LD_PRELOAD' system 'cat /dev/cpu/0/msr'", "system real")
    assert said(result)[0] == "preload:"
    assert result.log == ["system echo preload:$LD_PRELOAD", "system cat /dev/cpu/0/msr"]


def test_the_firmwares_table_file_is_served(probe):
    lines = ['systab sys "ACPI20=0x1f77d014"', 'systab sys "SMBIOS=0x1f520000"', "systab proc EACCES"]
    result = probe("fopen /sys/firmware/efi/systab r fgets fclose fopen /proc/efi/systab r", *lines)
    assert said(result) == ["fopen 3", "line ACPI20=0x1f77d014", "line SMBIOS=0x1f520000", "fclose 0", "fopen EACCES"]
    assert result.log == ["open /sys/firmware/efi/systab rdonly -> ok", "close /sys/firmware/efi/systab",
                          "open /proc/efi/systab rdonly -> EACCES"]


def test_a_machine_without_efi_has_no_table_file(probe):
    assert said(probe("fopen /sys/firmware/efi/systab r open /proc/efi/systab r")) == ["fopen ENOENT", "open ENOENT"]


# Board files


@pytest.mark.parametrize("name", sorted({path.stem for path in BOARDS.glob("*.board")} - {"smbus-slaves"}))
def test_each_board_can_be_loaded(probe, name):
    assert probe("", board=name).status == 0


@pytest.mark.parametrize("line, message", [
    ("nonsense 1", 'unknown keyword: "nonsense"'),
    ("latch 80", 'a word is missing: "latch PORT COUNT [BYTE|counting]"'),
    ("latch 12345 1", 'the number is too large: "12345"'),
    ("latch xyz 1", 'not a hexadecimal number: "xyz"'),
    ("irq 1 1", 'no "pci" line comes before: "irq"'),
    ("pci 00:20.0 8086:1234", 'not a function as in 00:1f.3: "00:20.0"'),
    ("cpus 4-2", 'not a CPU number or a range of them: "4-2"'),
    ('text 1000 "open', "a quotation mark is missing"),
    ("include nowhere.board", 'there is no such file: "'),
])
def test_a_mistake_in_a_board_file_names_its_line(probe, line, message):
    result = probe("", "# a comment", line)
    assert result.status == MISTAKE
    assert "extended.board:4: " + message in result.err.decode()


def test_board_files_that_include_each_other_are_refused(run, tmp_path):
    (tmp_path / "round.board").write_text("include round.board\n")
    result = run("", board=tmp_path / "round.board", program="hwboard_probe")
    assert result.status == MISTAKE
    assert b"include each other" in result.err


def test_later_lines_change_what_was_included(probe):
    result = probe(f"iopl 3 out32 cf8 {config(0, 0, 0, 0)} in32 cfc out32 cf8 {config(0, 0x1F, 4, 0)} in32 cfc "
                   "open /dev/mem rw map 3 1000 1000 rw load mov32 0", "pci 00:00.0 1d94:1450", "pci-remove 00:1f.4",
                   "bytes 1000 de ad be ef", board="intel")
    assert said(result)[1:3] == ["in 14501d94", "in ffffffff"]
    assert said(result)[-1] == "load efbeadde"


def test_a_capability_list_is_chained(probe):
    lines = ["pci 00:05.0 1234:5678", "cap 01 50 23 00", "cap 05 60", "pcie 70 0 L01", "xcap 0001 2 100",
             "xcap 0003 1 140", "ecam e0000000 1"]
    result = probe("open /dev/mem rw map 3 e0028000 1000 rw load mov8 34 load mov32 50 load mov16 60 load mov16 70 "
                   "load mov8 80 load mov32 100 load mov32 140 load mov16 6", *lines)
    assert said(result)[2:] == ["load 50", "load 236001", "load 7005", "load 10", "load 43", "load 14020001",
                                "load 10003", "load 10"]


def test_memory_takes_text_fills_and_files(probe, tmp_path):
    (tmp_path / "image.bin").write_bytes(b"\x01\x02\x03\x04")
    result = probe("open /dev/mem rw map 3 2000 1000 rw load mov32 0 load mov32 10 load mov32 20 load mov32 30",
                   'text 2000 "A  Z"', "fill 2010 4 5a", f'file 2020 "{tmp_path}/image.bin"', "fill 2030 8 address")
    assert said(result)[2:] == ["load 5a202041", "load 5a5a5a5a", "load 4030201", "load 2030"]


# Registers that processes share


SPACE = ["pci 00:05.0 1234:5678", "dword 40 11223344 rw ffffffff"]
POINT_AND_WRITE = "iopl 3 out32 cf8 80002840 out32 cfc 55667788"
LOOK = "iopl 3 in32 cf8 in32 cfc"


def test_processes_share_configuration_space_and_its_address_in_a_file(probe, tmp_path):
    shared = {"HWBOARD_REGISTERS": str(tmp_path / "registers")}
    assert said(probe("iopl 3 out32 cf8 80002840 in32 cfc", *SPACE, env=shared))[1:] == ["in 11223344"]
    probe(POINT_AND_WRITE, *SPACE, env=shared)
    assert said(probe(LOOK, *SPACE, env=shared))[1:] == ["in 80002840", "in 55667788"]
    assert said(probe(LOOK, *SPACE))[1:] == ["in 0", "in ffffffff"]


def test_a_process_that_lives_sees_what_another_one_writes(probe, tmp_path):
    shared = {"HWBOARD_REGISTERS": str(tmp_path / "registers")}
    other = f"LD_PRELOAD={BUILD}/libhwboard.so {BUILD}/hwboard_probe {POINT_AND_WRITE}"
    result = probe(f"iopl 3 system '{other}' in32 cf8 in32 cfc", "system real", *SPACE, env=shared)
    assert said(result)[-3:] == ["system 0", "in 80002840", "in 55667788"]


@pytest.mark.parametrize("name", ["registers", "no/registers"])
def test_registers_of_another_board_or_without_a_file_are_refused(probe, tmp_path, name):
    (tmp_path / "registers").write_bytes(b"other")
    result = probe("iopl 3", *SPACE, env={"HWBOARD_REGISTERS": str(tmp_path / name)})
    assert result.status == MISTAKE
    assert result.err.endswith(b"registers: no file for the registers of this board\n")


def test_without_a_board_everything_passes_through(run):
    result = run("open /dev/cpu/77/msr r open /dev/null rw system 'echo real'", program="hwboard_probe",
                 board=None, env={"LD_PRELOAD": str(BUILD / "libhwboard.so")})
    assert said(result) == ["open ENOENT", "open 3", "real", "system 0"]
    assert result.log == []


def test_the_library_serves_a_program_that_is_linked_with_it():
    done = subprocess.run([BUILD / "hwboard_linked", BOARDS], capture_output=True, text=True)
    assert (done.returncode, done.stdout) == (0, "")
