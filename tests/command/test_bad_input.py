"""Command lines that nobody would type on purpose: the stated result each time, and never a crash."""

import itertools
import json
import os
import random
import subprocess
import sys

import pytest

from expected import PCI_USAGE, assert_is_help_screen, assert_run, legacy
from harness import BOARDS, BUILD, LIMIT, signal

READ_HOST = "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n"
# The words whose commands end by themselves: no power commands, no dumps into files.
WORDS = ["IO", "MEM", "PCI", "MSR", "CPUID", "INDEX", "SIO", "SMBUS", "SMBIOS", "ACPI", "SMN", "SMU", "I2C", "USB",
         "RI", "RB", "RW", "RD", "RQ", "WI", "WB", "WW", "WD", "WQ", "NOMSG", "DEBUG", "TEXT", "LOG", "S", "F", "TYPE",
         "EDID", "FLASH", "ALL", "A"]


def raw(*codes):
    """An argument of any bytes."""
    return os.fsdecode(bytes(codes))


def test_every_byte_as_a_word_of_its_own_is_no_switch(run):
    words = [raw(code) for code in range(1, 256) if chr(code) not in "?hHsSfF"]
    assert_is_help_screen(run(words), "Intel")


def test_the_bytes_that_are_switches(run):
    for byte, status in (("?", 0), ("h", 0), ("H", 0), ("s", 15), ("S", 15), ("f", 15), ("F", 15)):
        assert run([byte]).status == status


def test_bytes_beyond_ascii_keep_their_value(run):
    text = raw(*range(0x80, 0x100), *range(1, 0x20))
    result = run(["/MEM", "/S", "0", "0x10", text])
    assert result.out == b"<- (Ctrl+C: abort!)  searching: " + os.fsencode(text) + b" ->\n"


def test_format_characters_in_an_argument_are_text(run):
    for text in ("%s%s%s%n", "%d %lX %r", "100%", "%", "%08lX%G%S"):
        assert run(["/MEM", "/S", "0", "0x10", text]).text == f"<- (Ctrl+C: abort!)  searching: {text} ->\n"


def test_random_bytes_are_no_switch(run):
    rng = random.Random(20190710)
    for _ in range(20):
        words = [raw(*rng.choices(range(1, 256), k=rng.randrange(3, 40))) for _ in range(rng.randrange(1, 30))]
        assert_is_help_screen(run(words), "Intel")


def test_random_bytes_as_operands_are_read_as_numerals(run):
    rng = random.Random(10072019)
    others = [code for code in range(1, 256) if not chr(code).isdigit()]
    for _ in range(20):
        words = [raw(*rng.choices(others, k=rng.randrange(4, 60))) for _ in range(4)]
        assert_run(run(["/PCI", "/RB", *words]), READ_HOST, 0x86, legacy("00:00.0", 0, "in8 0cfc -> 86"))


def test_empty_arguments_are_words_without_a_meaning(run):
    assert_is_help_screen(run([""]), "Intel")
    assert_is_help_screen(run([""] * 200), "Intel")
    assert run(["/PCI", ""]).status == 2
    assert run(["", "/PCI", "", "/RB", "", "", "", ""]).text == READ_HOST


# ---- many words, long words -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("count", [100, 251, 252, 255, 256, 300, 5000, 60000])
def test_any_number_of_words(run, count):
    assert_is_help_screen(run(["x"] * count), "Intel")
    assert run(["/PCI", "/RB", "0", "0", "0", "0"] + ["x"] * count).text == READ_HOST


def test_more_words_than_16_bits_count(run):
    assert_is_help_screen(run(["x"] * 70000), "Intel")
    assert run(["/PCI"] + ["x"] * 70000).status == 2


@pytest.mark.parametrize("length", [19, 20, 21, 22, 255, 256, 257, 4096, 65535, 65536, 100000])
def test_a_long_word_is_no_switch(run, length):
    for word in ("/" + "X" * length, "PCI" * (length // 3), "0" * length, " " * length):
        assert_is_help_screen(run([word]), "Intel")


@pytest.mark.parametrize("length", [255, 256, 257, 1000, 100000])
def test_a_long_operand_is_a_numeral_still(run, length):
    words = ["0" * length, "z" * length, "0x" + "0" * length, "0" * length + "132"]
    assert run(["/PCI", "/RB", *words[:3], "0"]).text == READ_HOST
    assert run(["/PCI", "/RB", *words]).text == "PCI Read Byte BDFO: 0 0 0 84, return data:0x33\n"


@pytest.mark.parametrize("length", [470, 476, 477, 478, 479, 480, 511, 512, 513, 1000, 4096, 65535, 65536, 100000])
def test_a_long_text_is_printed_whole(run, length):
    text = "".join(itertools.islice(itertools.cycle("abcdefghijklmnopqrstuvwxyz0123456789"), length))
    result = run(["/MEM", "/S", "0", "0x10", text])
    assert result.text == f"<- (Ctrl+C: abort!)  searching: {text} ->\n"
    assert (result.err, result.status) == (b"", 0x0E)


def test_a_long_file_name_cannot_be_created(run):
    for length in (256, 4096, 100000):
        result = run(["/MEM", "/RF", "F" * length, "0", "0x10"])
        assert (result.text, result.status) == ("FileOpen fail!\n", 0x15)


def test_a_huge_number_wraps(run):
    assert run("/PCI /RB 18446744073709551616 18446744073709551647 0x10000000000000000 0x30000000000000084").text == \
        "PCI Read Byte BDFO: 0 1F 0 84, return data:0x01\n"


# ---- short vectors --------------------------------------------------------------------------------------------------

# Replaces itself by the program with an argument vector that is empty.
WITHOUT_A_NAME = """
import ctypes, json, os, sys
program, environment = json.loads(sys.argv[1])
def vector(words):
    return (ctypes.c_char_p * (len(words) + 1))(*[os.fsencode(word) for word in words], None)
ctypes.CDLL(None).execve(os.fsencode(program), vector([]), vector([f"{k}={v}" for k, v in environment.items()]))
sys.exit("execve failed")
"""


def test_a_vector_without_even_a_program_name_shows_the_help_screen(tmp_path):
    board = {**os.environ, "HWBOARD": str(BOARDS / "intel.board"), "LD_PRELOAD": str(BUILD / "libhwboard.so"),
             "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"}
    made = subprocess.run([sys.executable, "-c", WITHOUT_A_NAME, json.dumps([str(BUILD / "hwreg"), board])],
                          capture_output=True, timeout=LIMIT, cwd=tmp_path)
    assert (made.returncode, made.stderr) == (0, b"")
    assert b"  Help list(Intel):\n" in made.stdout


def test_an_empty_program_name_is_a_name(run):
    assert run("/PCI /RB", name="").text == READ_HOST
    assert_is_help_screen(run([], name=""), "Intel")


@pytest.mark.parametrize("handler", ["IO", "IO INDEX", "MEM", "PCI", "MSR", "CPUID", "SIO", "RF", "IO RF", "MEM RF"])
def test_short_operand_lists_end_with_a_status(run, handler):
    """Each access word with none to seven operands; nothing is read behind the vector's end."""
    for word in ("RI", "RB", "RW", "RD", "RQ", "WI", "WB", "WW", "WD", "WQ", "S", "DUMP NOMSG"):
        for count in range(8):
            words = [f"-{name}" for name in f"{handler} {word}".split()]  # "/RB" behind RF would name a file in "/"
            result = run([*words, *["0"] * count])
            assert result.status >= 0 and result.err == b"", result.args


def test_pairs_of_words_end_with_a_status(run):
    for first, second in itertools.combinations(WORDS, 2):
        result = run([f"/{first}", f"/{second}"])
        assert result.status >= 0 and result.err == b"", result.args


def test_random_lines_of_words_and_numbers_end_with_a_status(run):
    rng = random.Random(117)
    numbers = ["0", "1", "0x70", "0x80", "0xffff", "1048576", "4294967296", "-1", "", "x", "0x", "F.BIN", "\\", "255"]
    for _ in range(200):
        words = [rng.choice(["/", "-", "", "\\"]) + rng.choice(WORDS) for _ in range(rng.randrange(1, 5))]
        words += rng.choices(numbers, k=rng.randrange(8))
        rng.shuffle(words)
        result = run(words)
        assert result.status >= 0 and result.err == b"", result.args


def test_lower_case_switches_behind_the_search_word_are_text(run):
    assert_run(run("/PCI /S /rb 0 0 0 0"), "", 2)


def test_usage_is_shown_for_any_rubbish_with_the_help_switch(run):
    result = run(["/PCI", "?", "\x01\x02", "%n", "x" * 100000])
    assert (result.text, result.status) == (PCI_USAGE, 2)


def test_a_reader_that_goes_away_ends_the_run_quietly(tmp_path):
    """The listing into a pipe that nobody reads any more: the signal of the broken pipe, or its end, but no crash."""
    board = {**os.environ, "HWBOARD": str(BOARDS / "intel.board"), "LD_PRELOAD": str(BUILD / "libhwboard.so"),
             "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"}
    child = subprocess.Popen([BUILD / "hwreg", "/PCI", "/DUMP"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, env=board, cwd=tmp_path)
    child.stdout.close()
    assert child.stderr.read() == b""
    assert child.wait(timeout=LIMIT) in (0, -signal.SIGPIPE)
