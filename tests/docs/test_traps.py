"""The traps that the documents name: the same ones in the same words in both, told again where a reader meets them, and
each of them held by tests of what the program does."""

import ast
import re
import subprocess

import pytest

import texts
from examples import TOP

# By the trap's name: where a reader meets it (command, or what all commands share; heading; words), and the tests.
TRAPS = {
    "--help": (
        [("COMMAND LINES", "--help is no help word"), ("/RTC", "DANGERS", "--help, which is no help word"),
         ("/SHUTDOWN", "DANGERS", "--help, which is no help word")],
        ["command/test_dispatch.py test_help_behind_two_dashes_is_no_help_word_and_the_command_is_carried_out"],
    ),
    "unquoted /?": (
        [("COMMAND LINES", "the shell may make another word of /?")],
        ["command/test_dispatch.py test_what_the_shell_may_make_of_an_unquoted_help_word_is_none",
         "guest/test_guest_start.py test_a_file_of_one_letter_in_the_root_folder_takes_the_place_of_the_help_word"],
    ),
    "help as user": (
        [("WHAT THE KERNEL MUST ALLOW", "the run ends with status 6, without a word")],
        ["command/test_start.py test_without_privilege_the_run_ends_with_6_before_anything_else",
         "guest/test_guest_start.py test_an_ordinary_user_is_refused_silently"],
    ),
    "capitals": (
        [("/MEM /RF", "OPERANDS", "In capitals, and its folders as well, unless /S stands before it")],
        ["command/test_file_dump.py test_a_file_name_is_made_upper_case",
         "command/test_file_dump.py test_the_folders_of_a_file_are_made_upper_case_too"],
    ),
    "size 0": (
        [("/MEM /RF", "OPERANDS", "0 is taken from address 0 alone, and makes an empty file")],
        ["command/test_file_dump.py test_nothing_from_address_0_is_an_empty_file",
         "command/test_file_dump.py test_a_range_beyond_4_gib_is_refused_before_the_file_is_touched"],
    ),
    "endless dump": (
        [("/MEM", "DANGERS", "With /LOG a dump runs to 4 GiB: put | head -20 behind it, or use /MEM /RF")],
        ["command/test_mem.py test_the_view_ends_at_4_gib",
         "command/test_bad_input.py test_a_reader_that_goes_away_ends_the_run_quietly"],
    ),
    "silent dump": (
        [("/PCI", "DANGERS", "/PCI /DUMP > file waits for keys; add /LOG /TEXT")],
        ["command/test_paging.py test_a_pci_scan_into_a_file_waits_after_each_function_as_well"],
    ),
    "device 32": (
        [("/PCI", "OPERANDS", "32 is device 0 of the next bus"),
         ("/PCI", "OPERANDS", "8 is function 0 of the next device")],
        ["command/test_pci.py test_device_32_is_device_0_of_the_next_bus",
         "command/test_pci.py test_numbers_out_of_range_carry_into_the_neighbouring_fields"],
    ),
    "odd offsets": (
        [("/PCI", "OPERANDS", "a multiple of the width (see odd offsets under DANGERS above)")],
        ["command/test_pci.py test_a_legacy_dword_has_no_lane_also_at_an_unaligned_offset",
         "command/test_pci.py test_a_legacy_word_at_offset_3_reaches_one_port_behind_the_data_register"],
    ),
    "hidden": (
        [("/PCI", "OUTPUT", "A function behind a missing multifunction bit is not listed, and can be read")],
        ["command/test_pci_list.py test_functions_1_to_7_are_not_looked_at_without_the_multi_function_bit",
         "command/test_pci_list.py test_a_function_of_a_single_function_device_can_be_asked_for_by_name"],
    ),
    "register 60h": (
        [("/PCI", "DANGERS", "a write to an offset from 0x100 on changes ordinary memory")],
        ["command/test_pci.py test_intel_window_is_taken_from_the_host_bridge_as_it_stands",
         "command/test_pci.py test_a_register_60_that_is_no_window_leads_to_ordinary_memory"],
    ),
    "/SIO /RD": (
        [("/SIO", "OUTPUT", "/RD alone reads nothing and prints 0")],
        ["command/test_sio.py test_only_the_dword_switch_reports_a_read_as_such_and_without_a_line_end"],
    ),
    "empty string": (
        [("/SMBIOS", "OUTPUT", "An empty string within a structure ends it early")],
        ["command/test_smbios.py test_an_empty_string_ends_a_structure_and_the_walk_goes_on_behind_it"],
    ),
    "countdown": (
        [("/TIMEOUT", "DANGERS", "what others write behind 70h/71h meanwhile can go into the clock"),
         ("/IO /INDEX", "DANGERS", "a countdown of another hwreg all the time")],
        ["python/test_lock.py test_a_countdown_outside_of_the_lock_leads_a_write_into_the_clock"],
    ),
}
EACH = pytest.mark.parametrize("name", TRAPS)
INTRODUCTION = "These have cost people a day:\n\n"


def plain(text):
    """One line, without the sections of other manual pages."""
    return " ".join(re.sub(r"\(\d\)", "", text).split())


def reference_traps():
    """The traps of the reference, by name."""
    part = texts.common_part("DANGERS").split(INTRODUCTION)[1]
    items = re.findall(r"^  (\S.*?)(?:  +| (?=is no ))(\S.*\n(?:   .*\n)*)", part, re.MULTILINE)
    return {name: plain(text) for name, text in items}


def manual_traps():
    """Those of the manual page, as a reader sees them."""
    page = subprocess.run(["mandoc", "-T", "ascii", "-O", "width=200", texts.MANUAL], capture_output=True, check=True)
    part = re.sub(r".\x08", "", page.stdout.decode()).split(INTRODUCTION)[1].split("\nEXAMPLES\n")[0]
    items = [plain(item) for item in part.strip().split("\n\n")]
    return {name: item.removeprefix(name).strip() for item, name in zip(items, TRAPS, strict=True)}


def test_traps_of_the_reference_are_these():
    assert list(reference_traps()) == list(TRAPS)


def test_traps_of_the_manual_page_are_the_same_in_the_same_words():
    assert manual_traps() == reference_traps()


@EACH
def test_a_reader_meets_the_trap_where_it_lies(name):
    places, _ = TRAPS[name]
    entries = {word: entry for entry in texts.reference_entries() for word in entry.names}
    for place, *heading, words in places:
        part = entries[place].parts[heading[0]] if heading else texts.common_part(place)
        assert words in plain(part), f"{place} {heading} says no more: {words}"


@EACH
def test_the_trap_is_held_by_tests(name):
    _, tests = TRAPS[name]
    assert tests
    for test in tests:
        file, function = test.split()
        tree = ast.parse((TOP / "tests" / file).read_text())
        assert function in {node.name for node in tree.body if isinstance(node, ast.FunctionDef)}, test


@pytest.mark.parametrize("register, status", [("e0000001", 0), ("00100005", 2)])
def test_hwreg_check_says_that_register_60_is_no_window(tmp_path, register, status):
    board = tmp_path / "this.board"
    board.write_text(f"include intel.board\npci 00:00.0\ndword 60 {register}\n")
    words = [TOP / "sim" / "hwreg-sim", "--board", board, "--preflight", "/PCI", "/RD", "1", "0", "0", "0x100"]
    ran = subprocess.run(words, capture_output=True, text=True, check=False)
    assert (ran.returncode, "READS AND WRITES ordinary memory" in ran.stdout) == (status, status != 0)


def test_documents_show_no_unquoted_question_mark():
    pages = [path for path in [TOP / "README.md", *(TOP / "docs").iterdir()] if path.is_file()]
    assert [path.name for path in pages if re.search(r"^.*\$ .* /\?", path.read_text(), re.MULTILINE)] == []
