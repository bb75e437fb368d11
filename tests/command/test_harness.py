"""The fixtures themselves, on commands of the program and on the board's probe."""

import signal
import sys

import pytest
from harness import CLOSED, DEFAULT_SIGNALS, Timeout, signal_behind


def test_a_run_gives_status_output_and_log(run):
    result = run("/PCI /RB 0 0 0 0", board="intel")
    assert result.status == 0x86
    assert result.text.endswith("return data:0x86\n")
    assert result.ports() == ["out32 0cf8 80000000", "in8 0cfc -> 86"]
    assert result.ports(delays=True)[:2] == ["out8 00ed 00", "out8 00ed 00"]
    assert result.log[0] == "iopl 3"


def test_extra_lines_change_the_board(run):
    result = run("/PCI /RW 0 0 0 2", board="amd", extra=["pci 00:00.0 1022:abcd"])
    assert result.text.endswith("return data:0xABCD\n")


def test_a_signal_is_told_from_an_exit_status(run):
    assert run("raise f", program="hwboard_probe").status == -signal.SIGTERM


def test_closed_descriptors_are_closed(run):
    result = run("open /dev/null rw open /dev/null rw close 2", program="hwboard_probe", stdin=CLOSED, stderr=CLOSED)
    assert result.text.splitlines() == ["open 0", "open 2", "close 0"]


def test_memory_is_kept_on_request(run):
    result = run("/MEM /WD 0x2000 0x11223344", keep_memory=True)
    assert result.memory(0x2000, 4) == bytes.fromhex("44332211")


def test_a_program_that_does_not_end_is_stopped_with_what_it_did(run):
    with pytest.raises(Timeout) as caught:
        run("iopl 3 repeat 80 ffffffff", program="hwboard_probe", timeout=0.5)
    assert caught.value.result.log[:2] == ["iopl 3", "in8 0080 -> 00"]


def test_keys_are_sent_when_the_output_pauses(terminal):
    one = terminal("/MEM /DUMP 0x1000", keys=[b"\x1b"])
    two = terminal("/MEM /DUMP 0x1000", keys=[b"\r", b"\x1b"])
    assert (len(one.maps()), len(two.maps())) == (2, 4)
    assert one.tty_before == one.tty_after
    assert one.flags_before == one.flags_after


def test_no_key_is_sent_to_a_program_that_is_silent_because_it_works(terminal):
    result = terminal("iopl 3 repeat 80 30000", keys=[b"x"], program="hwboard_probe", extra="unlogged 80 1")
    assert (result.out, result.keys_sent) == (b"iopl 0\r\n", 0)


def test_keys_may_wait_for_a_text(terminal):
    result = terminal("/MEM /DUMP 0x1000", keys=[(b"MemAddress:1000", b"\r"), (b"MemAddress:1100", b"\x1b")])
    assert b"MemAddress:1100" in result.out
    assert b"MemAddress:1200" not in result.out


def test_a_signal_may_take_the_place_of_a_key(terminal):
    assert terminal("/MEM /DUMP 0x1000", keys=[signal.SIGTERM]).status == -signal.SIGTERM
    assert terminal("/MEM /DUMP 0x1000", keys=[b"\x03"]).status == -signal.SIGINT


@pytest.mark.parametrize("number", DEFAULT_SIGNALS)
def test_signals_end_the_program_also_where_the_tests_are_started_without_them(terminal, number):
    before = signal.signal(number, signal.SIG_IGN)  # as under nohup
    try:
        assert terminal("/MEM /DUMP 0x1000", keys=[number]).status == -number
    finally:
        signal.signal(number, before)


def test_a_signal_may_come_between_two_accesses(run):
    whole = run("/PCI /RW 0 0 0 0").log
    behind = whole[: whole.index("out32 0cf8 80000000") + 1]
    result = run("/PCI /RW 0 0 0 0", runner=signal_behind(behind, signal.SIGTERM))
    assert (result.status, result.text) == (-signal.SIGTERM, "")
    assert result.log in (behind, whole[: len(behind) + 1])


def test_only_some_descriptors_may_be_the_terminal(terminal):
    result = terminal("/PCI /RB 0 0 0 0", descriptors=(0, 2))
    assert result.out.endswith(b"return data:0x86\n")  # a file: no carriage return


def test_standard_input_may_be_bytes(run):
    """The harness's own interpreter reads what it is given."""
    result = run(["-c", "print(len(input()))"], board=None, program=sys.executable, stdin=b"hello\n")
    assert result.text == "5\n"
