"""The general help screen, the usage lines of the commands, and when the screen is cleared."""

import pytest

import expected
from expected import CLEAR, assert_is_help_screen, assert_run, legacy, session
from harness import CLOSED


@pytest.mark.parametrize("board, vendor, identification", [
    ("intel", "Intel", "8086"),
    ("amd", "AMD", "1022"),
    ("hygon", "Higon", "1d94"),
    ("ati", "AMD", "1002"),
    ("unknown", "Unknown", "ffff"),
])
def test_help_screen_names_the_maker_of_the_host_bridge(run, board, vendor, identification):
    result = run("", board=board)
    assert_is_help_screen(result, vendor)
    assert result.log == session(CLEAR, legacy("00:00.0", 0, f"in16 0cfc -> {identification}"))


@pytest.mark.parametrize("identification", ["1234", "8087", "0000", "1d93", "1003"])
def test_any_other_maker_is_unknown(run, identification):
    assert_is_help_screen(run("/?", extra=f"pci 00:00.0 {identification}:0001"), "Unknown")


def test_screen_is_cleared_before_the_help_appears(run):
    result = run("", extra="system print clear")
    assert result.out.startswith(b'system("clear")\n' + b" " * 23 + b"Utility")
    result = run("/PCI /?", extra="system print clear")
    assert result.text == 'system("clear")\n' + expected.PCI_USAGE


def test_help_screen_waits_for_no_key(run, terminal):
    assert_is_help_screen(run("", stdin=CLOSED), "Intel")
    result = terminal("")
    assert result.status == 0 and result.out.endswith(b"ReadMe.doc. \r\n")
    assert b"Press any key" not in result.out


def test_help_goes_on_when_the_screen_cannot_be_cleared(run):
    assert_is_help_screen(run("", extra="system exit 1 clear"), "Intel")


@pytest.mark.parametrize("args, usage", [
    ("/IO", "IO_USAGE"),
    ("/IO /WB 0x80 0x12", "IO_USAGE"),
    ("/IO /INDEX /WB 0x70 0x71 0x10 1", "IO_USAGE"),
    ("/IO /DUMP 0x500", "IO_USAGE"),
    ("/MEM", "MEM_USAGE"),
    ("/MEM /WD 0x1000 1", "MEM_USAGE"),
    ("/MEM /DUMP 0", "MEM_USAGE"),
    ("/MEM /S 0 0x100 X", "MEM_USAGE"),
    ("/PCI", "PCI_USAGE"),
    ("/PCI /WB 0 0 0 0xdc 1", "PCI_USAGE"),
    ("/PCI /DUMP", "PCI_USAGE"),
    ("/MSR", "CPU_USAGE"),
    ("/MSR /WD /ALL 0x1a0 0 0", "CPU_USAGE"),
    ("/CPUID /RD 0", "CPU_USAGE"),
    ("/RF", "FILE_USAGE"),
    ("/MEM /RF made.bin 0 0x100", "FILE_USAGE"),
    ("/SIO", "SIO_USAGE"),
    ("/SMBUS", "SMBUS_USAGE"),
    ("/SMB /WB 0xa0 0 0", "SMBUS_USAGE"),
    ("/RTC 60", "POWER_USAGE"),
    ("/SHUTDOWN /F", "POWER_USAGE"),
    ("/TIMEOUT 1 /RESET", "POWER_USAGE"),
    ("/SMBIOS", "SMBIOS_USAGE"),
    ("/SMBIOS /DUMP", "SMBIOS_USAGE"),
    ("/ACPI /DUMP", "ACPI_USAGE"),
    ("/SMN /WD 0 0x50000 1", "NBIO_USAGE"),
    ("/SMU /WD 1 1", "NBIO_USAGE"),
    ("/I2C /WB 0 0xa0 0 0", "I2C_USAGE"),
    ("/SIO /WB 7 1", "SIO_USAGE"),
])
def test_a_command_with_the_help_switch_prints_its_usage_and_touches_nothing(run, tmp_path, args, usage):
    assert_run(run(f"/H {args}"), getattr(expected, usage), 0xFF if usage == "SMBUS_USAGE" else 2, CLEAR)
    assert not list(tmp_path.glob("*.[bB]*"))


@pytest.mark.parametrize("args", ["/PCI", "/PCI /RB 0 0 0 0", "/EDID", "/LOG", "/IO /RB 0x80", "/MEM /RB 0", "/S",
                                  "/MSR /RD 0 0x10", "/CPUID /RD 0", "/SIO", "/MEM /RF", "/PCI /RB 0 0 0 0x100"])
def test_screen_is_left_as_it_is_when_no_help_was_asked_for(run, args):
    assert run(args).systems() == []


@pytest.mark.parametrize("args", ["", "word", "/?", "/PCI /?", "/LOG /?", "0 1 2", "/PCI 0 h"])
def test_screen_is_cleared_once_for_help_and_for_no_switch(run, args):
    assert run(args).systems() == ["clear"]
