"""Start-up and shutdown: what is opened, in which order, and what happens when it cannot be."""

import pytest

from expected import CLOSE, OPEN, assert_run, legacy, msr_absent

READ_HOST = legacy("00:00.0", 0, "in8 0cfc -> 86")
READ_HOST_TEXT = "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n"
PROBE_FAILS = msr_absent(0)


@pytest.mark.parametrize("board", ["intel", "amd", "hygon", "ati", "unknown", "base"])
def test_privilege_memory_and_msr_probe_are_opened_and_closed_around_the_command(run, board):
    assert_run(run("/PCI", board=board), "", 2)


def test_accesses_of_the_command_lie_between_opening_and_closing(run):
    assert_run(run("/PCI /RB 0 0 0 0"), READ_HOST_TEXT, 0x86, READ_HOST)


def test_msr_driver_is_loaded_when_its_node_is_missing(run):
    result = run("/PCI /RB 0 0 0 0", board="latemsr")
    probe = [*PROBE_FAILS, "system modprobe msr", *OPEN[2:]]
    assert result.log == [*OPEN[:2], *probe, *READ_HOST, *CLOSE]
    assert (result.text, result.status) == (READ_HOST_TEXT, 0x86)


def test_missing_msr_driver_is_of_no_matter_to_other_commands(run):
    result = run("/PCI /RB 0 0 0 0", board="nomsr")
    probe = [*PROBE_FAILS, "system modprobe msr", *PROBE_FAILS]
    assert result.log == [*OPEN[:2], *probe, *READ_HOST, *CLOSE]
    assert (result.text, result.err, result.status) == (READ_HOST_TEXT, b"", 0x86)


def test_msr_node_that_may_not_be_opened_counts_as_missing(run):
    result = run("/PCI", extra="msr-nodes EACCES")
    refused = ["open /dev/cpu/0/msr rdonly cloexec -> EACCES"]
    assert result.log == [*OPEN[:2], *refused, "system modprobe msr", *refused, *CLOSE]
    assert (result.out, result.err, result.status) == (b"", b"", 2)


@pytest.mark.parametrize("error", ["ENOENT", "EACCES", "EPERM"])
def test_missing_physical_memory_is_silent_and_ports_still_work(run, error):
    result = run("/PCI /RB 0 0 0 0", extra=f"mem {error}")
    opening = ["iopl 3", f"open /dev/mem rdwr sync cloexec -> {error}", *OPEN[2:]]
    assert result.log == [*opening, *READ_HOST, "iopl 0"]  # nothing to close
    assert (result.text, result.err, result.status) == (READ_HOST_TEXT, b"", 0x86)


@pytest.mark.parametrize("args", ["", "/?", "/PCI /RB 0 0 0 0", "/MEM /?", "/MSR /RD /ALL 0x10", "/LOG", "nonsense",
                                  "/IO /WB 0x80 1", "/SHUTDOWN"])
def test_without_privilege_the_run_ends_with_6_before_anything_else(run, args):
    result = run(args, board="noiopl")
    assert result.log == ["iopl 3 -> EPERM"]
    assert (result.out, result.err, result.status) == (b"", b"", 6)


def test_without_privilege_physical_memory_is_untouched(run):
    before = run("", board="noiopl", keep_memory=True)
    assert before.memory(0, 32) == bytes.fromhex("53ff00f053ff00f0c3e200f053ff00f053ff00f054ff00f053ff00f053ff00f0")


@pytest.mark.parametrize("name", ["WB", "/WB", "-WB", "\\WB"])
def test_a_program_name_that_spells_a_switch_is_found_as_one_by_the_handler(run, name):
    # The parser leaves the name out, so /RB alone sets the flags; the handler's search starts with the name.
    result = run("/PCI /RB 0 0x1f", name=name)
    assert result.text == "PCI Read Byte BDFO: 0 0 0 1F, return data:0x00\n"
    assert result.status == 0


def test_a_program_name_is_never_converted_nor_a_command(run):
    result = run("/PCI /RB 0 0x1f 0 0", name="wb")
    assert result.text == "PCI Read Byte BDFO: 0 1F 0 0, return data:0x86\n"
    assert run("/DUMP", name="/PCI").status == 15
