"""/MSR and /CPUID.

Registers of the intel board that are used here: 1B (APIC base, other on CPU 0), 1A0 (writable bits 0000000500850189),
8B (read-only), 10 (time-stamp counter).
"""

import ctypes
import mmap
import re

import pytest

from expected import assert_run, msr_absent, msr_count, msr_read, msr_write, session
from harness import BOARDS, WRAPPER


def read_line(cpu, index, value):
    return f"Cpu[{cpu:02d}] Msr read from {index:08X}, return MSR: 0x{value[:8].upper()}_{value[8:].upper()}\n"


def write_line(cpu, index, value):
    return read_line(cpu, index, value).replace("read from", "write to")


ZERO = "0" * 16

# ---- one CPU --------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args, cpu, index, value", [
    ("/RD 0 0x1b", 0, 0x1B, "00000000fee00d00"),
    ("/RD 1 0x1b", 1, 0x1B, "00000000fee00c00"),
    ("/RD 7 27", 7, 0x1B, "00000000fee00c00"),
    ("/RQ 3 0xce", 3, 0xCE, "00080c3bf1012400"),
    ("/RD 0 0x10000001b", 0, 0x1B, "00000000fee00d00"),  # the index has 32 bits
    ("/RD 65536 0x1b", 0, 0x1B, "00000000fee00d00"),  # and the CPU number 16
    ("/RD 0x10001 0x1b", 1, 0x1B, "00000000fee00c00"),
    ("/RD -1 0x1b", 1, 0x1B, "00000000fee00c00"),  # a sign is skipped
])
def test_a_read_opens_the_node_reads_8_bytes_at_the_index_and_closes(run, args, cpu, index, value):
    assert_run(run(f"/MSR {args}"), read_line(cpu, index, value), int(value[-2:], 16), msr_read(cpu, index, value))


def test_high_indexes_are_reached(run):
    result = run("/MSR /RD 2 0xc0010058", board="amd")
    assert_run(result, read_line(2, 0xC0010058, "00000000f8000021"), 0x21, msr_read(2, 0xC0010058, "00000000f8000021"))


def test_exit_status_is_the_low_byte_of_the_low_half(run):
    assert run("/MSR /RD 0 0x1234", extra="msr 1234 11223344aabbccdd").status == 0xDD


@pytest.mark.parametrize("word", ["/WD", "/WQ"])
def test_a_write_is_read_back(run, word):
    value = "0000000000850089"
    steps = msr_write(1, 0x1A0, value) + msr_read(1, 0x1A0, value)
    assert_run(run(f"/MSR {word} 1 0x1A0 0 0x850089"), write_line(1, 0x1A0, value), 0x89, steps)


def test_high_half_comes_first_and_a_masked_register_shows_what_it_kept(run):
    written, kept = "11223344556677aa", "0000000400040188"
    steps = msr_write(0, 0x1A0, written) + msr_read(0, 0x1A0, kept)
    assert_run(run("/MSR /WD 0 0x1a0 0x11223344 0x556677aa"), write_line(0, 0x1A0, kept), 0x88, steps)


def test_halves_have_32_bits(run):
    result = run("/MSR /WD 0 0x1234 0x100000002 0x300000004", extra="msr 1234 0")
    steps = msr_write(0, 0x1234, "0000000200000004") + msr_read(0, 0x1234, "0000000200000004")
    assert_run(result, write_line(0, 0x1234, "0000000200000004"), 4, steps)


def test_a_refused_read_shows_as_0(run):
    assert_run(run("/MSR /RD 0 0x12345"), read_line(0, 0x12345, ZERO), 0, msr_read(0, 0x12345, "EIO"))


def test_a_refused_write_shows_only_in_the_value_read_back(run):
    value = "000000ca00000000"
    steps = msr_write(0, 0x8B, "0000000100000002", "EIO") + msr_read(0, 0x8B, value)
    assert_run(run("/MSR /WD 0 0x8b 1 2"), write_line(0, 0x8B, value), 0, steps)


def test_an_absent_cpu_reads_as_0(run):
    assert_run(run("/MSR /RD 8 0x1b"), read_line(8, 0x1B, ZERO), 0, msr_absent(8))
    steps = msr_absent(8, "wronly") + msr_absent(8)
    assert_run(run("/MSR /WD 8 0x1b 1 2"), write_line(8, 0x1B, ZERO), 0, steps)
    assert run("/MSR /RD 100 0x1b").text == read_line(100, 0x1B, ZERO)


@pytest.mark.parametrize("number, shown", [
    ("32767", 32767),
    ("32768", 0x100000000 - 32768),  # a signed 16-bit number, printed as 32 bits without a sign
    ("65535", 0xFFFFFFFF),
    ("0xffffffff", 0xFFFFFFFF),
    ("100000", 0x100000000 - 31072),
])
def test_a_large_cpu_number_is_a_signed_16_bit_one(run, number, shown):
    result = run(f"/MSR /RD {number} 0x1b")
    assert (result.text, result.err, result.status) == (read_line(shown, 0x1B, ZERO), b"", 0)


@pytest.mark.parametrize("args, text", [
    ("/RD", read_line(0, 0, ZERO)),
    ("/RD 1", read_line(1, 0, ZERO)),
    ("/WD", write_line(0, 0, ZERO)),
    ("/WD 1 0x1a0", write_line(1, 0x1A0, ZERO)),
    ("/WD 1 0x1a0 5", write_line(1, 0x1A0, "0000000500000000")),
])
def test_missing_operands_read_as_0(run, args, text):
    result = run(f"/MSR {args}")
    assert (result.text, result.status) == (text, 0)


# ---- which access it is ---------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args", ["", "/RB 0 0x1b", "/WW 0 0x1b 1 2", "/RI 0 0x1b 1", "/ALL 0x1b", "/DUMP 0", "/LOG"])
def test_without_a_dword_or_quad_word_nothing_is_done(run, args):
    assert_run(run(f"/MSR {args}"), "", 0x80000002)


@pytest.mark.parametrize("args, cpu, index, value", [
    ("/RD 5 0x10 /WD 1 0x1a0 0 0x9", 1, 0x1A0, "0000000000000009"),  # WD before RD
    ("/WQ 5 0x10 1 1 /WD 1 0x1a0 0 0x9", 1, 0x1A0, "0000000000000009"),  # before WQ
    ("/WQ 9 9 9 9 /RD 1 0x1a0 0 0x9", 1, 0x1A0, "0000000000000009"),  # RD gives the place, WQ makes it a write
    ("/RQ 9 9 /WQ 1 0x1a0 0 0x9", 1, 0x1A0, "0000000000000009"),  # WQ before RQ
    ("/RD 1 0x1a0 0 9 /WB", 1, 0x1A0, "0000000000000009"),  # any write word makes it a write
])
def test_several_access_words(run, args, cpu, index, value):
    steps = msr_write(cpu, index, value) + msr_read(cpu, index, value)
    assert_run(run(f"/MSR {args}"), write_line(cpu, index, value), int(value[-2:], 16), steps)


# ---- all CPUs -------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args", ["/RD /ALL 0x1b", "/RD /A 0x1b", "/RD all 0x1b", "/RQ -a 0x1b", "/ALL /RD x 0x1b",
                                  "/RD 3 0x1b \\all", "/RD 0 0x1b A"])
def test_all_reads_every_cpu_in_turn(run, args):
    values = ["00000000fee00d00"] + ["00000000fee00c00"] * 7
    text = "".join(read_line(cpu, 0x1B, value) for cpu, value in enumerate(values))
    steps = [msr_read(cpu, 0x1B, value) for cpu, value in enumerate(values)]
    assert_run(run(["/MSR", *args.split()]), text, 0, msr_count(8), *steps)


def test_status_of_all_is_that_of_the_last_cpu(run):
    registers = [f"msr 1234 {cpu + 1} cpus {cpu}" for cpu in range(3)]
    result = run("/MSR /RD /ALL 0x1234", extra=["cpus 0-2", *registers])
    assert result.status == 3


def test_each_cpu_has_its_own_counter(run):
    result = run("/MSR /RD /ALL 0x10")
    assert result.text == "".join(read_line(cpu, 0x10, "00000012d687a8f4") for cpu in range(8))


def test_all_write_gives_each_cpu_what_the_one_before_kept(run):
    masks = ["00000000ffffffff", "000000000ff00fff", "ffffffff000fffff"]
    lines = [f"msr 1234 0000000000000000 rw {mask} cpus {cpu}" for cpu, mask in enumerate(masks)]
    written = ["1234567887654321", "0000000087654321", "0000000007600321"]
    kept = ["0000000087654321", "0000000007600321", "0000000000000321"]
    text = "".join(write_line(cpu, 0x1234, value) for cpu, value in enumerate(kept))
    steps = [msr_write(cpu, 0x1234, written[cpu]) + msr_read(cpu, 0x1234, kept[cpu]) for cpu in range(3)]
    result = run("/MSR /WD /ALL 0x1234 0x12345678 0x87654321", extra=["cpus 0-2", *lines])
    assert_run(result, text, 0x21, msr_count(3), *steps)


def test_all_write_hands_on_the_read_back_of_a_masked_register(run):
    kept = "0000000500850189"
    result = run("/MSR /WQ /A 0x1a0 0xffffffff 0xffffffff")
    assert [line.split()[4] for line in result.lines("pwrite")] == ["f" * 16] + [kept] * 7
    assert result.text == "".join(write_line(cpu, 0x1A0, kept) for cpu in range(8))


def test_all_write_hands_on_0_from_a_cpu_that_cannot_be_read(run):
    result = run("/MSR /WD /ALL 0x1234 1 2", extra=["cpus 0-1", "msr 1234 0 cpus 1"])
    assert result.text == write_line(0, 0x1234, ZERO) + write_line(1, 0x1234, ZERO)
    assert result.lines("pwrite") == ["pwrite /dev/cpu/0/msr 1234 8 0000000100000002 -> EIO",
                                      "pwrite /dev/cpu/1/msr 1234 8 0000000000000000 -> ok"]


def test_all_ends_at_a_gap_in_the_numbers(run):
    result = run("/MSR /RD /ALL 0x8b", board="cpugap")
    value = "000000ca00000000"
    text = "".join(read_line(cpu, 0x8B, value) for cpu in range(4))
    assert_run(result, text, 0, msr_count(4), *[msr_read(cpu, 0x8B, value) for cpu in range(4)])


def test_a_cpu_behind_the_gap_is_reached_by_its_number(run):
    assert run("/MSR /RD 5 0x8b", board="cpugap").text == read_line(5, 0x8B, "000000ca00000000")
    assert run("/MSR /RD 4 0x8b", board="cpugap").text == read_line(4, 0x8B, ZERO)


def test_a_hundred_cpus_have_three_digits_where_needed(run):
    result = run("/MSR /RD /ALL 0x8b", extra="cpus 0-101")
    assert [line[:8] for line in result.text.splitlines()][98:] == ["Cpu[98] ", "Cpu[99] ", "Cpu[100]", "Cpu[101]"]


# ---- no driver ------------------------------------------------------------------------------------------------------


def test_without_nodes_one_cpu_reads_as_0(run):
    result = run("/MSR /RD 0 0x1b", board="nomsr")
    assert (result.text, result.err, result.status) == (read_line(0, 0x1B, ZERO), b"", 0)
    assert result.msrs() == []


def test_without_nodes_all_has_no_line(run):
    result = run("/MSR /RD /ALL 0x1b", board="nomsr")
    assert (result.out, result.err, result.status) == (b"", b"", 0)
    result = run("/MSR /WD /ALL 0x1b 7 0x342", board="nomsr")
    assert (result.out, result.err, result.status) == (b"", b"", 0x42)  # the low operand as it was given


def test_nodes_that_come_with_the_driver_are_used(run):
    result = run("/MSR /RD 1 0x1b", board="latemsr")
    assert result.text == read_line(1, 0x1B, "00000000fee00c00")


# ---- CPUID ----------------------------------------------------------------------------------------------------------



def listed():
    """The intel board's leaves: EAX, EBX, ECX, EDX of sub-leaf 0."""
    text = (BOARDS / "processors" / "intel.board").read_text()
    lines = re.findall(r"^cpuid (\w+) 0 (\w+) (\w+) (\w+) (\w+)", text, re.MULTILINE)
    return {int(leaf, 16): [int(value, 16) for value in values] for leaf, *values in lines}


LEAVES = listed()
CPUID_CODE = bytes.fromhex("53 89f8 31c9 0fa2 8906 895e04 894e08 89560c 5b c3")  # leaf in EDI, four values to [RSI]


def cpuid(leaf):
    """EAX, EBX, ECX, EDX of this machine's processor, sub-leaf 0."""
    with mmap.mmap(-1, mmap.PAGESIZE, prot=mmap.PROT_READ | mmap.PROT_WRITE | mmap.PROT_EXEC) as code:
        code.write(CPUID_CODE)
        start = ctypes.c_char.from_buffer(code)
        values = (ctypes.c_uint32 * 4)()
        ask = ctypes.CFUNCTYPE(None, ctypes.c_uint32, ctypes.c_void_p)(ctypes.addressof(start))
        ask(leaf, ctypes.addressof(values))
        del start  # lets go of the mapping
        return tuple(values)


def cpuid_line(leaf, registers):
    names = ("Eax", "Ebx", "Ecx", "Edx")
    values = ", ".join(f"{name}:{value:08X}" for name, value in zip(names, registers))
    return f"CPUID read from {leaf:08X}: {values}\n"


@pytest.mark.parametrize("word", ["/RD", "/RQ"])
@pytest.mark.parametrize("leaf", [0, 1, 2, 7, 0xD, 0x80000000, 0x80000001, 0x80000002, 0x80000004])
def test_a_leaf_is_what_the_processor_gives_for_sub_leaf_0(run, word, leaf):
    registers = LEAVES[leaf]
    assert_run(run(f"/CPUID {word} {leaf}"), cpuid_line(leaf, registers), registers[0])


def test_leaf_0_spells_the_maker(run):
    register = {name: bytes.fromhex(value)[::-1] for name, value in
                re.findall(r"(E.x):(\w+)", run("/CPUID /RD 0", board="hygon").text)}  # fmt: skip
    assert register["Ebx"] + register["Edx"] + register["Ecx"] == b"HygonGenuine"


@pytest.mark.skipif(bool(WRAPPER), reason="the wrapper's processor is another one")
def test_on_a_board_without_leaves_they_are_this_machines(run):
    result = run("/CPUID /RD 0x80000002", board="base")
    registers = cpuid(0x80000002)
    assert_run(result, cpuid_line(0x80000002, registers), registers[0])


def test_a_leaf_has_32_bits(run):
    assert run("/CPUID /RD 0x180000000").text == run("/CPUID /RD 0x80000000").text


def test_a_missing_leaf_is_leaf_0(run):
    assert run("/CPUID /RD").text == run("/CPUID /RD 0").text == cpuid_line(0, LEAVES[0])


@pytest.mark.parametrize("args", ["", "0", "/WD 0", "/WQ 0", "/RB 0", "/RW 0", "/RI 0", "/DUMP"])
def test_cpuid_has_no_other_form(run, args):
    assert_run(run(f"/CPUID {args}"), "", 0x80000002)


def test_read_dword_is_found_before_read_quad(run):
    assert run("/CPUID /RQ 0x80000000 /RD 0").text == cpuid_line(0, LEAVES[0])


def test_msr_wins_over_cpuid(run):
    text = read_line(0, 0x1B, "00000000fee00d00")
    assert_run(run("/CPUID /MSR /RD 0 0x1b"), text, 0, msr_read(0, 0x1B, "00000000fee00d00"))
