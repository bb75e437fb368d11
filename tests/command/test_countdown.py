"""The countdown of /TIMEOUT, /SHUTDOWN and /RTC: what it prints, how it polls the clock, which keys break it."""

import signal

import pytest
from expected import assert_run, session
from harness import SILENCE
from power import RUN, mode, passes, registers, seconds_passed, time

ABORTED = 0x15
ESC = b"\x1b"
STARTED = b"Time: "  # the clock is polled from here on

# On the terminal a standing clock counts down for ever, until a key breaks it.
BEFORE_MIDNIGHT = "cmos-time 2024-02-03 23:59:58"
# What it may work before the next key: it polls some thousand times.
BRIEF = SILENCE / 10
# The clock of RUN comes to midnight in some milliseconds and to the end of this countdown in many seconds.
PAST_MIDNIGHT = [BEFORE_MIDNIGHT, RUN, "unlogged 70 2", "unlogged ed 1"]
LONG = "/TIMEOUT /T 80000"


def text(seconds, now="04:05:06"):
    return f"\n...timeout: {seconds} seconds (press ESC to break out)...\nTime: {now}\n"


# The command


@pytest.mark.parametrize("args", ["/TIMEOUT", "/TIMEOUT 10", "/TIMEOUT /T 0", "/TIMEOUT /T", "/TIMEOUT /T x",
                                  "/TIMEOUT /T 0x100000000", "-timeout"])
def test_without_seconds_it_ends_at_once_and_says_nothing(run, args):
    assert_run(run(args), "", 0)


@pytest.mark.parametrize("seconds", [1, 2, 10, 61])
def test_it_ends_when_its_seconds_have_passed(run, seconds):
    result = run(f"/TIMEOUT /T {seconds}", extra=[RUN])
    assert (result.text, result.status, result.err) == (text(seconds), 0, b"")
    assert abs(seconds_passed(result.log) - seconds) < 1
    assert result.systems() == []


def test_it_shows_the_time_of_a_binary_clock_in_the_same_form(run):
    lines = ["cmos-bytes b 6", "cmos-time 2024-02-03 09:58:59", RUN]
    assert run("/TIMEOUT /T 2", extra=lines).text == text(2, "09:58:59")


def test_its_end_is_reckoned_in_32_bits(run):
    # In 32 bits the end, 4294955000 seconds after 04:05:06, comes before the beginning.
    result = run("/TIMEOUT /T 4294955000")
    assert (result.text, result.status) == (text(4294955000), 0)


# Polling


def test_each_pass_reads_the_time_and_nothing_else(run):
    result = run("/TIMEOUT /T 1", extra=[RUN])
    ports = [line for line in result.log if line.startswith(("in", "out"))]
    start = time(4, 5, 6)
    assert result.log[4 : 4 + len(mode() + start)] == mode() + start
    assert session(ports) == result.log
    looks = [register for _, register, _ in registers(result.log)]
    assert looks[0] == 0x0B
    while looks[1:]:
        assert looks[1] == 0x0C and looks[2] == 0x0A
        polls = next(i for i, register in enumerate(looks[2:]) if register != 0x0A)
        assert looks[2 + polls : 5 + polls] == [4, 2, 0]
        looks[1:] = looks[5 + polls :]


def test_it_polls_without_a_pause(run):
    result = run("/TIMEOUT /T 10", extra=[RUN])
    assert passes(result.log) > 80  # a second of this clock has room for some ten


@pytest.mark.parametrize("start, seconds", [("23:59:50", 9), ("23:59:50", 10), ("23:59:50", 11), ("23:59:59", 1),
                                            ("23:59:58", 65), ("00:00:00", 5), ("12:00:00", 3)])
def test_it_ends_on_time_around_midnight(run, start, seconds):
    result = run(f"/TIMEOUT /T {seconds}", extra=[f"cmos-time 2024-02-03 {start}", RUN])
    assert (result.text, result.status) == (text(seconds, start), 0)
    assert abs(seconds_passed(result.log) - seconds) < 1


# Input that is no terminal


@pytest.mark.parametrize("stdin", [None, "closed", b"", b"abc\n\r 0"])
def test_without_an_escape_on_its_input_it_runs_to_the_end(run, stdin):
    result = run("/TIMEOUT /T 3", extra=[RUN], stdin=stdin)
    assert (result.text, result.status) == (text(3), 0)


def test_an_escape_on_its_input_breaks_it_wherever_it_stands(run):
    result = run("/TIMEOUT /T 3", stdin=b"abc\x1b")
    assert (result.text, result.status) == (text(3), ABORTED)


# Keys


def same_terminal(result):
    assert result.tty_after == result.tty_before
    assert result.flags_after == result.flags_before


def test_escape_breaks_it(terminal):
    result = terminal("/TIMEOUT /T 100", keys=[(STARTED, ESC)])
    assert result.status == ABORTED
    assert result.text.startswith(text(100).replace("\n", "\r\n"))  # the terminal may show the key behind it
    same_terminal(result)


@pytest.mark.parametrize("key", [b"x", b" ", b"\r", b"\n", b"\t", b"\x7f", b"\x01", b"\xff", b"q", b"\0"])
def test_other_keys_do_not(terminal, key):
    result = terminal("/TIMEOUT /T 100", keys=[(STARTED, key), key, key, ESC], silence=BRIEF)
    assert (result.status, result.keys_sent) == (ABORTED, 4)
    same_terminal(result)


def test_a_function_key_begins_with_escape(terminal):
    result = terminal("/TIMEOUT /T 100", keys=[(STARTED, b"\x1b[A")])
    assert result.status == ABORTED
    same_terminal(result)


def test_keys_typed_before_it_count(terminal):
    assert terminal("/TIMEOUT /T 100", typed=b"ab\x1b").status == ABORTED


def test_the_terminal_is_as_it_was_after_a_countdown_to_the_end(terminal):
    result = terminal("/TIMEOUT /T 5", extra=[RUN])
    assert (result.status, result.text) == (0, text(5).replace("\n", "\r\n"))
    same_terminal(result)


@pytest.mark.parametrize("key", [b"x", b" ", b"\r", ESC, b"\0"])
def test_before_midnight_any_key_breaks_a_countdown_across_it(terminal, key):
    result = terminal("/TIMEOUT /T 100", extra=[BEFORE_MIDNIGHT], keys=[(STARTED, key)])
    assert result.status == ABORTED
    assert result.text.startswith(text(100, "23:59:58").replace("\n", "\r\n"))
    same_terminal(result)


def test_a_countdown_up_to_the_last_second_of_the_day_is_not_across_midnight(terminal):
    result = terminal("/TIMEOUT /T 1", extra=[BEFORE_MIDNIGHT], keys=[(STARTED, b"x"), b"y", ESC],
                      silence=BRIEF)
    assert (result.status, result.keys_sent) == (ABORTED, 3)
    result = terminal("/TIMEOUT /T 2", extra=[BEFORE_MIDNIGHT], keys=[(STARTED, b"x"), b"y", ESC],
                      silence=BRIEF)
    assert (result.status, result.keys_sent) == (ABORTED, 1)


def test_after_midnight_escape_alone_breaks_it(terminal):
    result = terminal(LONG, extra=PAST_MIDNIGHT, keys=[b"x", b"\r", b"y", ESC], silence=BRIEF)
    assert (result.status, result.keys_sent) == (ABORTED, 4)
    same_terminal(result)


# Signals


@pytest.mark.parametrize("lines", [[], [BEFORE_MIDNIGHT]])
@pytest.mark.parametrize("key", [b"\x03", signal.SIGINT, signal.SIGTERM, signal.SIGHUP, b"\x1c"])
def test_a_signal_ends_it_with_the_terminal_as_it_was(terminal, key, lines):
    number = {b"\x03": signal.SIGINT, b"\x1c": signal.SIGQUIT}.get(key, key)
    result = terminal("/RTC 60 /T 100", extra=lines, keys=[(STARTED, key)])
    assert result.status == -number
    assert result.systems() == []
    same_terminal(result)


@pytest.mark.parametrize("repetition", range(10))
def test_a_signal_at_any_moment_leaves_the_terminal_as_it_was(terminal, repetition):
    result = terminal("/TIMEOUT /T 100", keys=[(STARTED, b"x"), *[b"x"] * (repetition % 3), b"\x03"], silence=BRIEF)
    assert result.status == -signal.SIGINT
    same_terminal(result)


# The cycle that a countdown belongs to


@pytest.mark.parametrize("args, name", [("/RTC 60 /T 100", "RTCLOG"), ("/RTC 0 /T 100", "RBTLOG"),
                                        ("/RTC 60 /GRESET /T 100", "RBTLOG")])
def test_a_broken_countdown_leaves_count_alarm_and_machine_alone(terminal, tmp_path, args, name):
    (tmp_path / name).write_bytes(b"\x07\0\0\0")
    result = terminal(args, keys=[(STARTED, ESC)])
    assert result.status == ABORTED
    assert f"{name} count is: 7\r\n" in result.text
    assert (tmp_path / name).read_bytes() == b"\x07\0\0\0"
    assert [access for access in registers(result.log) if access[0] == "w"] == []
    assert result.systems() == [] and not any(line.startswith("fsync") for line in result.log)
    same_terminal(result)


def test_a_broken_countdown_makes_no_file(terminal, tmp_path):
    assert terminal("/RTC 60 /T 100", keys=[(STARTED, ESC)]).status == ABORTED
    assert not (tmp_path / "RTCLOG").exists()


# A clock that shows no time

# 84h is 4 p.m. in the 12-hour mode. The clock is a sixteenth as fast as that of RUN.
AFTERNOON = ["cmos-bytes b 0", "cmos-time 2024-02-03 16:05:06", "cmos-run delays 200"]


def test_a_clock_that_never_shows_a_time_is_read_nine_times_at_each_look_and_counts_down_all_the_same(run):
    result = run("/TIMEOUT /T 2", extra=AFTERNOON)
    assert (result.text, result.status) == (text(2, "84:05:06"), 0)
    assert abs(seconds_passed(result.log) / 16 - 2) < 1
    looks = [register for _, register, _ in registers(result.log)]
    assert looks[0] == 0x0B and passes(result.log) % 9 == 0
    assert [look for look in looks[1:] if look != 0x0A] == [0x0C, 4, 2, 0] * passes(result.log)


def test_a_clock_with_a_byte_that_is_no_digit_sets_the_alarm_by_what_it_shows_in_the_end(run):
    result = run("/RTC 60", extra="cmos-bytes 2 5a")
    assert passes(result.log) == 9
    assert result.systems() == ["shutdown -P now"]
