"""What the explained log says of single accesses and of sequences of them."""

import os
import pathlib
import subprocess
import textwrap

import pytest

from hwregboard.explain import explained


def explain(log):
    """The lines explained, without the blanks that set their columns."""
    return [" ".join(line.split()) for line in explained(textwrap.dedent(log).strip().splitlines())]


def test_delays_are_told_with_the_access_behind_them():
    assert explain("""
        out8 00ed 00
        out8 00ed 00
        in8 0061 -> 20
        """) == ["+2 us port 0061 read8 -> 20 System Control Port B"]


def test_delays_at_the_end_are_told():
    assert explain("out8 00ed 00") == ["+1 us"]


def test_configuration_accesses_name_function_offset_and_register():
    assert explain("""
        out32 0cf8 8000fb3c
        in8 0cfd -> 01
        out32 0cf8 8000fb04
        out16 0cfc 0007
        """) == ["pci 00:1f.3+3d read8 -> 01 Interrupt Pin", "pci 00:1f.3+04 write16 <- 0007 Command"]


def test_several_accesses_behind_one_address_are_told_each():
    assert explain("""
        out32 0cf8 80000000
        in16 0cfc -> 8086
        in16 0cfe -> 29c0
        """) == ["pci 00:00.0+00 read16 -> 8086 Vendor ID", "pci 00:00.0+02 read16 -> 29c0 Device ID"]


def test_an_address_without_the_enable_bit_selects_nothing():
    assert explain("""
        out32 0cf8 00000005
        in32 0cfc -> ffffffff
        """)[1].startswith("port 0cfc read32 -> ffffffff")


def test_an_address_that_nothing_follows_is_told():
    assert explain("""
        out32 0cf8 80000000
        iopl 0
        """) == ["port 0cf8 write32 <- 80000000 PCI configuration address", "iopl 0"]


def test_the_window_is_known_once_its_base_was_read():
    log = """
        mr8 e0100100 -> 01
        out32 0cf8 80000060
        in32 0cfc -> e0000001
        mr8 e0100100 -> 01
        """
    assert explain(log)[0] == "memory e0100100 read8 -> 01"
    assert explain(log)[2].startswith("window 01:00.0+100 read8 -> 01")


def test_the_window_of_an_amd_processor_is_told_by_its_msr():
    assert explain("""
        pread /dev/cpu/0/msr c0010058 8 -> 00000000f8000021
        mw32 f8108028 11223344
        """) == ["msr c0010058 of cpu 0 read -> 00000000f8000021 MMIO_CFG_BASE_ADDR",
                 "window 01:01.0+28 write32 <- 11223344 CardBus CIS Pointer"]


@pytest.mark.parametrize("vendor, value", [("1022", "e0000001"), ("8086", "00000000")])
def test_a_register_60h_that_names_no_window_makes_none(vendor, value):
    assert explain(f"""
        out32 0cf8 80000000
        in16 0cfc -> {vendor}
        out32 0cf8 80000060
        in32 0cfc -> {value}
        mr8 {value[:-1]}0 -> 01
        """)[-1] == f"memory {value[:-1]}0 read8 -> 01"


@pytest.mark.parametrize("line", [
    "out8 0cfc ffff", "mr7 f8000000 -> 1", "mr8 f8000000 -> 111", "in32 0cfc -> 1", "\0\x01\ufffd"])
def test_a_damaged_line_is_left_as_it_is(line):
    log = "pread /dev/cpu/0/msr c0010058 8 -> 00000000f8000021\nout32 0cf8 80000000\n"
    assert explain(log + line)[-1] == " ".join(line.split())


@pytest.mark.parametrize("rest", ["-> zz", "", "->", "-> 1"])
def test_a_damaged_msr_line_moves_no_window(rest):
    assert explain(f"pread /dev/cpu/0/msr c0010058 8 {rest}\nmr8 00000010 -> 01")[-1] == "memory 00000010 read8 -> 01"


def test_a_refused_msr_read_moves_no_window():
    assert explain("pread /dev/cpu/0/msr c0010058 8 -> EIO") == \
        ["msr c0010058 of cpu 0 read -> EIO MMIO_CFG_BASE_ADDR"]


@pytest.mark.parametrize("log, told", [
    ("out8 0070 0b\nin8 0071 -> 02", "cmos 0b read8 -> 02 Register B"),
    ("out8 0070 8b\nout8 0071 22", "cmos 0b write8 <- 22 Register B"),
    ("out8 0072 05\nin8 0073 -> aa", "cmos 85 read8 -> aa"),
])
def test_cmos_bytes_are_told_with_their_index_in_both_banks(log, told):
    assert explain(log) == [told]


def test_the_keys_of_a_super_io_are_told_and_its_registers_by_number():
    assert explain("""
        out8 004e a5
        out8 004e a5
        out8 004e 20
        in8 004f -> 87
        out8 004e aa
        """) == ["port 004e write8 <- a5 (2 times) Super I/O configuration",
                 "super i/o 4e: 20 read8 -> 87 Chip ID High",
                 "port 004e write8 <- aa Super I/O configuration"]


SMBUS = """\
out32 0cf8 8000fc20
in32 0cfc -> 0000efa1
out8 efa4 a1
out8 efa3 02
out8 efa2 48
"""


def test_another_function_with_ports_at_20h_is_no_smbus():
    log = "out32 0cf8 8000fd08\nin16 0cfe -> 0c03\n" + SMBUS.replace("8000fc20", "8000fd20")
    assert "SMBus" not in "".join(explain(log + "in8 efa0 -> 02"))


def test_a_transaction_on_the_smbus_is_told_in_one_line():
    told = explain(SMBUS + "in8 efa0 -> 01\nin8 efa0 -> 01\nin8 efa0 -> 02\nin8 efa5 -> 0c")
    assert told[-4:] == ["port efa0 read8 -> 01 (2 times) SMBus HST_STS", "port efa0 read8 -> 02 SMBus HST_STS",
                         "port efa5 read8 -> 0c SMBus HST_D0", "=> smbus read byte data a0+02 -> 0c"]


def test_a_write_on_the_smbus_tells_its_data():
    told = explain(SMBUS.replace("efa4 a1", "efa4 a0") + "out8 efa5 5a\nin8 efa0 -> 02")
    assert told[-1] == "=> smbus write byte data a0+02 <- 5a"


@pytest.mark.parametrize("status, meaning", [
    ("04", "nobody acknowledges (DEV_ERR)"), ("08", "lost to another master (BUS_ERR)"), ("10", "killed (FAILED)")])
def test_a_transaction_that_fails_tells_why(status, meaning):
    assert explain(SMBUS + f"in8 efa0 -> {status}")[-1] == f"=> smbus read byte data a0+02: {meaning}"


def test_the_smbus_of_amd_is_found_by_its_power_management_registers():
    assert explain("""
        out8 0cd6 01
        in8 0cd7 -> 0b
        out8 0cd6 00
        in8 0cd7 -> 10
        in8 0b00 -> 02
        """)[-1] == "port 0b00 read8 -> 02 SMBus HST_STS"


def test_a_register_of_the_management_network_is_told_with_its_die():
    assert explain("""
        out32 0cf8 80000000
        in16 0cfc -> 1022
        out32 0cf8 800000c0
        out32 0cfc 00000001
        out32 0cf8 800000c4
        out32 0cfc 0005a86c
        out32 0cf8 800000c8
        in32 0cfc -> 00000815
        """)[-1] == "=> smn die 1 0005a86c read32 -> 00000815"


def test_a_narrow_access_to_the_management_network_is_told_as_it_was():
    assert explain("""
        out32 0cf8 80000000
        in16 0cfc -> 1022
        out32 0cf8 800000b8
        out32 0cfc 00018000
        out32 0cf8 800000bc
        out16 0cfe 5a5a
        """)[-1] == "=> smn die 0 00018002 write16 <- 5a5a"


def test_an_intel_host_bridge_has_no_management_network():
    assert not explain("""
        out32 0cf8 80000000
        in16 0cfc -> 8086
        out32 0cf8 800000c8
        in32 0cfc -> 00000815
        """)[-1].startswith("=>")


def test_registers_of_an_i2c_core_are_named():
    assert explain("mr32 fedc3070 -> 00000006") == ["memory fedc3070 read32 -> 00000006 I2C core 1 IC_STATUS"]


def test_mappings_are_told_as_ranges_and_refused_ones_with_the_reason():
    assert explain("""
        mmap /dev/mem 000f0000 2000 rw shared -> ok
        munmap 000f0000 2000
        mmap /dev/mem 00100000 1000 rw shared -> EPERM
        """) == ["memory 000f0000-000f1fff mapped rw", "memory 00100000-00100fff mapped rw -> EPERM"]


def test_what_it_does_not_know_is_left_as_it_is():
    assert explain("system shutdown -P now\nsomething else") == ["system shutdown -P now", "something else"]


def test_letters_that_standard_output_has_not_are_written_in_another_way():
    program = pathlib.Path(__file__).parents[2] / "tools" / "hwreg-board"
    result = subprocess.run([program, "explain"], input=b"\xff\n", capture_output=True, timeout=300,
                            env={**os.environ, "PYTHONIOENCODING": "ascii"})  # fmt: skip
    assert (result.returncode, result.stdout.strip(), result.stderr) == (0, b"\\ufffd", b"")
