"""The page pauses of the coloured view on a terminal, log mode, text mode, and the terminal's settings.

The board's memory from 500h on holds in each dword its own address. A page shows 256 bytes.
"""

import os
import termios

import pytest

from expected import CLOSE, PCI_HEADER, hex_view, on_screen
from harness import CLOSED, LIMIT, Run, run_terminal, signal

ESC = b"\x1b"
LAST_PAGES = 0xFFFFFD00  # three pages below 4 GiB


def pattern(start, length):
    return b"".join(address.to_bytes(4, "little") for address in range(start, start + length, 4))


def page(start, length=256, plain=False):
    """A page of /MEM /DUMP in the memory that holds its own addresses."""
    return f"ESC: quite, Enter: continue MemAddress:{start:X}\n" + hex_view(pattern(start, length), plain)


def zeros(start, length=256):
    return f"ESC: quite, Enter: continue MemAddress:{start:X}\n" + hex_view(bytes(length))


def assert_terminal_is_as_before(result):
    assert result.tty_after == result.tty_before
    assert result.flags_after == result.flags_before


def stops_at(terminal, args, keys, **options):
    """A run that takes the keys and is killed at the next pause of its output."""
    result = terminal(args, keys=[*keys, (0.4, signal.SIGKILL)], **options)
    assert (result.status, result.keys_sent) == (-signal.SIGKILL, len(keys) + 1)
    return result


def without_cell_types(settings):
    """tcgetattr gives two of the characters as numbers when lines are off."""
    return [*settings[:6], [bytes([cell]) if isinstance(cell, int) else cell for cell in settings[6]]]


# ---- pauses ---------------------------------------------------------------------------------------------------------


def test_a_dump_waits_after_its_first_page(terminal):
    result = stops_at(terminal, "/MEM /DUMP 0x1000", [])
    assert result.out == on_screen(page(0x1000))


def test_a_dump_waits_after_each_page(terminal):
    result = stops_at(terminal, "/MEM /DUMP 0x1000", [b"\n", b" "])
    assert result.out == on_screen(page(0x1000) + page(0x1100) + page(0x1200))


@pytest.mark.parametrize("key", [b"\n", b"\r", b" ", b"q", b"\x00", b"\x04", b"\x7f", b"\xff", b"\t"])
def test_any_key_but_esc_goes_on_to_the_next_page(terminal, key):
    result = terminal("/MEM /DUMP 0x1000", keys=[key, ESC])
    assert result.out == on_screen(page(0x1000) + page(0x1100))
    assert (result.status, result.keys_sent) == (0, 2)
    assert_terminal_is_as_before(result)


def test_esc_stops_after_the_page_on_the_screen(terminal):
    result = terminal("/MEM /DUMP 0x1000", keys=[ESC])
    assert result.out == on_screen(page(0x1000))
    assert (result.status, result.keys_sent) == (0, 1)
    assert result.log[-2:] == CLOSE
    assert_terminal_is_as_before(result)


def test_an_arrow_key_begins_with_esc(terminal):
    result = terminal("/MEM /DUMP 0x1000", keys=[b"\x1b[B"])
    assert result.out == on_screen(page(0x1000))
    assert result.status == 0


def test_a_dump_ends_by_itself_behind_the_last_key(terminal):
    result = terminal(f"/MEM /DUMP {LAST_PAGES}", extra="fill fffffd00 300 00", keys=[b" "] * 5)
    assert result.out == on_screen(zeros(LAST_PAGES) + zeros(LAST_PAGES + 256) + zeros(LAST_PAGES + 512))
    assert (result.status, result.keys_sent) == (0, 3)
    assert_terminal_is_as_before(result)


@pytest.mark.parametrize("length, pauses", [(1, 1), (16, 1), (128, 1), (240, 1), (241, 2), (251, 2), (255, 2),
                                            (256, 1)])
def test_a_last_row_of_241_to_255_bytes_ends_a_page_and_the_view_each_with_a_pause(terminal, length, pauses):
    start = 0x100000000 - length
    result = terminal(f"/MEM /DUMP {start}", extra="fill ffffff00 100 00", keys=[b" "] * 4)
    assert result.out == on_screen(zeros(start, length))
    assert result.keys_sent == pauses
    assert result.out.endswith(b"\r\r\n" * pauses) and not result.out.endswith(b"\r\r\n" * (pauses + 1))


def test_a_port_dump_waits_after_each_page_and_twice_after_the_last(terminal):
    result = terminal("/IO /DUMP 0xfe00", keys=[b" "] * 5, extra="latch fe00 200 counting")
    data = bytes(range(256))
    text = "ESC: quite, Enter: continue IoAddress:FE00\n" + hex_view(data)
    text += "ESC: quite, Enter: continue IoAddress:FF00\n" + hex_view(data[:255])
    assert result.out == on_screen(text)
    assert result.keys_sent == 3


def test_a_pci_scan_waits_after_each_function_and_stops_on_esc(terminal):
    extra = ["pci 00:01.0 8086:0001 class 060000", "pci 00:02.0 8086:0002 class 060000", "pci 00:03.0 8086:0003"]
    result = terminal("/PCI /DUMP", board="base", extra=extra, keys=[b" ", ESC])
    rows = [line for line in result.out.decode("latin-1").split("\r\n") if line.endswith("Host Bridge")]
    assert [row[:20] for row in rows] == ["00  01  00  80860001", "00  02  00  80860002"]
    assert result.out.startswith(on_screen(PCI_HEADER)) and result.status == 0
    assert "out32 0cf8 80001800" not in result.log  # device 3 is not looked at any more
    assert result.log[-2:] == CLOSE
    assert_terminal_is_as_before(result)


def test_a_pci_scan_into_a_file_waits_after_each_function_as_well(terminal):
    result = terminal("/PCI /DUMP", keys=[b" ", b" ", ESC], descriptors=(0, 2))
    assert (result.keys_sent, result.text.count(" Controller\n"), result.text.count(" Bridge\n")) == (3, 1, 2)
    assert terminal("/PCI /DUMP /LOG /TEXT", descriptors=(0, 2)).status == 0  # without a key


def test_a_pci_function_waits_once_and_takes_any_key(terminal):
    for key in (b" ", ESC):
        result = terminal("/PCI /DUMP 1 0 0", keys=[key, b" "])
        assert (result.status, result.keys_sent) == (0, 1)
        assert_terminal_is_as_before(result)


def test_views_that_are_not_shown_need_no_key(terminal):
    for args in ("/PCI /DUMP /NOMSG", "/MEM /DUMP 0x1000 /NOMSG", "/IO /DUMP 0x500 /NOMSG"):
        result = terminal(args, board="unknown")
        assert (result.status, result.keys_sent) == (0, 0)
        assert b"continue" not in result.out


# ---- the terminal's settings ----------------------------------------------------------------------------------------


def test_while_it_waits_lines_and_echo_are_off_and_nothing_else(terminal):
    result = stops_at(terminal, "/MEM /DUMP 0x1000", [])
    waiting = list(result.tty_before)
    waiting[3] &= ~(termios.ICANON | termios.ECHO)
    assert without_cell_types(result.tty_after) == waiting
    assert result.flags_after == result.flags_before


@pytest.mark.parametrize("ending, status", [(b"\x03", signal.SIGINT), (b"\x1c", signal.SIGQUIT),
                                            (signal.SIGTERM, signal.SIGTERM), (signal.SIGHUP, signal.SIGHUP)])
def test_a_signal_at_a_pause_ends_the_run_with_the_terminal_as_it_was(terminal, ending, status):
    result = terminal("/MEM /DUMP 0x1000", keys=[b" ", ending])
    assert result.status == -status
    assert result.out.startswith(on_screen(page(0x1000) + page(0x1100)))
    assert_terminal_is_as_before(result)


def test_a_stop_from_the_keyboard_at_a_pause_costs_no_page(terminal):
    result = terminal("/MEM /DUMP 0x1000", keys=[b"\x1a", signal.SIGCONT, b" ", ESC])
    assert (result.status, result.keys_sent) == (0, 4)
    assert b"MemAddress:1100" in result.out and b"MemAddress:1200" not in result.out
    assert_terminal_is_as_before(result)


# The kernel stops a program only where a parent in its session can let it go on.
SHELL = 'stty -g >before; LD_PRELOAD=$BOARD "$0" "$@"; stty -g >stopped; fg; echo ended with $?'


def test_a_stopped_program_leaves_the_terminal_as_it_was_and_goes_on_in_the_foreground(new_folder, tmp_path):
    prepared = Run(new_folder(), "/MEM /DUMP 0x1000", "intel", (), False, "hwreg", None)
    if prepared.wrapped:
        pytest.skip("the wrapper takes no notice of the signal")
    prepared.command = ["sh", "-mc", SHELL, *prepared.command]
    prepared.executable = "/bin/sh"
    prepared.environment["BOARD"] = prepared.environment.pop("LD_PRELOAD")
    result = run_terminal(prepared, tmp_path, [b"\x1a", b" ", ESC], (0, 1, 2), (25, 80), LIMIT, b"")
    assert (tmp_path / "before").read_text() == (tmp_path / "stopped").read_text() != ""
    assert result.out.startswith(on_screen(page(0x1000)))
    assert result.out.endswith(on_screen(page(0x1100)) + b"ended with 0\r\n")
    assert_terminal_is_as_before(result)


def test_a_signal_in_log_mode_ends_the_run_with_the_terminal_as_it_was(terminal):
    result = terminal("/MEM /DUMP 0 /LOG", keys=[(b"MemAddress:4000", signal.SIGINT)])
    assert result.status == -signal.SIGINT
    assert_terminal_is_as_before(result)


# ---- log mode -------------------------------------------------------------------------------------------------------


def test_log_mode_runs_through_without_a_key(terminal):
    result = terminal(f"/MEM /DUMP {LAST_PAGES} /LOG", extra="fill fffffd00 300 00")
    assert result.out == on_screen(zeros(LAST_PAGES) + zeros(LAST_PAGES + 256) + zeros(LAST_PAGES + 512))
    assert result.status == 0
    assert_terminal_is_as_before(result)


def test_log_mode_runs_through_all_functions(terminal):
    result = terminal("/PCI /DUMP /LOG /TEXT")
    assert result.out.count(b"NONE  NONE  ") == 6 and b"06  00  07  10B59051" in result.out
    assert result.status == 0
    assert_terminal_is_as_before(result)


def test_a_key_pressed_in_log_mode_is_taken_at_the_next_pause_and_the_dump_goes_on(terminal):
    result = terminal(f"/MEM /DUMP {LAST_PAGES} /LOG", extra="fill fffffd00 300 00", typed=b"x")
    assert result.out.endswith(on_screen(zeros(LAST_PAGES) + zeros(LAST_PAGES + 256) + zeros(LAST_PAGES + 512)))
    assert result.status == 0
    assert_terminal_is_as_before(result)


def test_esc_pressed_in_log_mode_stops_the_dump_at_the_next_pause(terminal):
    result = terminal("/MEM /DUMP 0x1000 /LOG", typed=ESC)
    assert result.out.endswith(on_screen(page(0x1000)))
    assert b"MemAddress:1100" not in result.out
    assert result.status == 0
    assert_terminal_is_as_before(result)


def test_keys_pressed_in_log_mode_are_taken_one_at_each_pause(terminal):
    result = terminal("/MEM /DUMP 0x1000 /LOG", typed=b"ab" + ESC + b"c")
    assert result.out.endswith(on_screen(page(0x1000) + page(0x1100) + page(0x1200)))
    assert_terminal_is_as_before(result)


def test_a_key_pressed_in_the_middle_of_a_long_log_stops_it(terminal):
    result = terminal("/MEM /DUMP 0 /LOG /TEXT", keys=[(b"MemAddress:1000\r", ESC)])
    assert result.status == 0
    assert_terminal_is_as_before(result)


def test_keys_typed_ahead_are_taken_at_the_pauses(terminal):
    result = terminal("/MEM /DUMP 0x1000", typed=b"  " + ESC)
    assert result.out.endswith(on_screen(page(0x1000) + page(0x1100) + page(0x1200)))
    assert result.status == 0


# ---- text mode ------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args", ["/MEM /DUMP 0x1000 /TEXT", "/IO /DUMP 0x500 /TEXT", "/PCI /DUMP /TEXT",
                                  "/PCI /DUMP 1 0 0 /TEXT", "/TEXT /?", "/TEXT /PCI /RB 0 0 0 0"])
def test_text_mode_writes_no_escape_sequence(terminal, args):
    result = terminal(args, keys=[b" ", ESC])
    assert ESC not in result.out and len(result.out) > 40
    assert result.status in (0, 0x86)
    assert_terminal_is_as_before(result)


def test_text_mode_shows_the_same_pages(terminal):
    result = terminal("/MEM /DUMP 0x1000 /TEXT", keys=[b" ", ESC])
    assert result.out == on_screen(page(0x1000, plain=True) + page(0x1100, plain=True))


def test_text_mode_changes_nothing_about_the_pauses(terminal):
    result = stops_at(terminal, "/MEM /DUMP 0x1000 /TEXT", [])
    assert result.out == on_screen(page(0x1000, plain=True))


def test_every_byte_value_has_its_character(run):
    data = bytes(range(256))
    result = run("/MEM /DUMP 0xffffff00", extra="bytes ffffff00 " + " ".join(f"{byte:02x}" for byte in data))
    assert result.text == "ESC: quite, Enter: continue MemAddress:FFFFFF00\n" + hex_view(data)


# ---- standard input that is no keyboard -----------------------------------------------------------------------------


@pytest.mark.parametrize("stdin", [None, b"", CLOSED])
@pytest.mark.parametrize("args", ["/MEM /DUMP 0xfffffd00", "/IO /DUMP 0xf000", "/PCI /DUMP", "/PCI /DUMP 1 0 0"])
@pytest.mark.parametrize("log", ["", " /LOG"])
def test_without_standard_input_nothing_hangs(run, stdin, args, log):
    whole = {"/MEM": 3, "/IO ": 16, "/PCI": 1}[args[:4]]
    result = run(args + log, board="unknown" if args == "/PCI /DUMP" else "intel", stdin=stdin)
    assert result.status == 0
    assert result.text.count(" 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F") == whole


def test_keys_may_come_through_a_pipe(run):
    result = run("/MEM /DUMP 0x1000", stdin=b"ab" + ESC + b"cd")
    assert result.text == page(0x1000) + page(0x1100) + page(0x1200)


def test_esc_in_a_pipe_stops_log_mode_too(run):
    reading, writing = os.pipe()
    os.write(writing, b"a" + ESC)  # there before the program begins
    os.close(writing)
    result = run("/MEM /DUMP 0x1000 /LOG", stdin=reading)
    os.close(reading)
    assert result.text == page(0x1000) + page(0x1100)


def test_keys_that_end_before_esc_let_a_dump_run_to_its_end(run):
    result = run(f"/MEM /DUMP {LAST_PAGES}", extra="fill fffffd00 300 00", stdin=b"a")
    assert result.text == zeros(LAST_PAGES) + zeros(LAST_PAGES + 256) + zeros(LAST_PAGES + 512)


def test_keys_are_read_from_the_terminal_when_output_goes_to_a_file(terminal):
    result = terminal("/MEM /DUMP 0x1000", keys=[b" ", ESC], descriptors=(0, 2))
    assert result.out == (page(0x1000) + page(0x1100)).encode("latin-1")
    assert_terminal_is_as_before(result)
