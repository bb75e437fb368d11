"""/SHUTDOWN: power-off by the operating system's own command, at once or after a countdown."""

import os

import pytest
from expected import assert_run
from power import RUN, alarm_set, seconds_passed, story

POWER_OFF = "system shutdown -P now"
ABORTED = 0x15


@pytest.mark.parametrize("args", ["/SHUTDOWN", "-shutdown", "SHUTDOWN", "/SHUTDOWN /F", "/SHUTDOWN /RESET",
                                  "/SHUTDOWN /GRESET", "/SHUTDOWN /SLEEP", "/SHUTDOWN 5", "/SHUTDOWN /T 0",
                                  "/SHUTDOWN /T", "/SHUTDOWN /TIMEOUT"])
def test_the_machine_is_switched_off_at_once(run, args):
    assert_run(run(args), "", 0, [POWER_OFF])


def test_a_countdown_comes_first(run, tmp_path):
    result = run("/SHUTDOWN /T 3", extra=[RUN])
    assert result.text == "\n...timeout: 3 seconds (press ESC to break out)...\nTime: 04:05:06\n"
    assert story(result.log) == ["time", POWER_OFF]
    assert abs(seconds_passed(result.log) - 3) < 1
    assert (result.status, result.err) == (0, b"")
    assert [path.name for path in tmp_path.iterdir()] == ["run-1"]  # no cycle is counted


def test_with_the_timeout_switch_the_countdown_comes_again_after_the_command(run):
    result = run("/SHUTDOWN /TIMEOUT /T 2", extra=[RUN])
    assert story(result.log) == ["time", POWER_OFF, "time"]
    assert result.text.count("...timeout: 2 seconds") == 2
    assert result.status == 0


def test_escape_in_the_countdown_leaves_the_machine_on(terminal):
    result = terminal("/SHUTDOWN /T 100", keys=[(b"Time: ", b"\x1b")])
    assert (result.status, result.systems(), result.keys_sent) == (ABORTED, [], 1)


def test_escape_in_the_second_countdown_is_told_by_the_status(terminal):
    result = terminal("/SHUTDOWN /TIMEOUT /T 300", extra=[RUN, "system print shutdown"], keys=[(b"system(", b"\x1b")])
    assert (result.status, result.systems(), result.keys_sent) == (ABORTED, ["shutdown -P now"], 1)


@pytest.mark.parametrize("args, command", [("/RTC 60", "shutdown -P now"), ("/RTC 0 /T 0", "shutdown -r now"),
                                           ("/SHUTDOWN /T 1", "shutdown -P now")])
def test_the_machine_goes_down_though_nobody_reads_the_output_any_more(run, args, command):
    reader, writer = os.pipe()
    os.close(reader)
    with open(writer, "wb") as nobody:
        result = run(args, extra=[RUN], stdout=nobody)
    assert result.systems() == [command]
    assert (alarm_set(result.log) is not None) == args.startswith("/RTC 60")


def test_a_shutdown_command_that_fails_changes_nothing(run):
    assert_run(run("/SHUTDOWN", extra=["system exit 1 shutdown"]), "", 0, [POWER_OFF])
    result = run("/RTC 7", extra=["system exit 7f shutdown"])
    assert (result.status, result.systems()) == (0, ["shutdown -P now"])
