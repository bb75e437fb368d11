"""/RTC: the wake-timer cycle and the reboot cycle. The boards' clocks show 04:05:06 in BCD and stand, unless said."""

import pytest
from expected import CLEAR, assert_run, session
from power import (NO_ROOT_POINTER, RUN, alarm, alarm_set, mode, passes, registers, seconds_passed, story, time, wait,
                   wake_enable, write)

USAGE = (
    " /RTC [seconds]: Set wakeup timer. If seconds==0, reset.\n"
    " /RTC [seconds] /T [seconds2]: Set wakeup timer and delay seconds2\n"
    " /SHUTDOWN: Shutdown system right now\n"
)
TOO_SHORT = "Warnning, set wakeup timer 0(0 is reset) or more than 7 seconds!\n\n"
POWER_OFF = "system shutdown -P now"
RESTART = "system shutdown -r now"
ABORTED = 0x15


def countdown(seconds, now="04:05:06"):
    return f"\n...timeout: {seconds} seconds (press ESC to break out)...\nTime: {now}\n"


def without_maps(result):
    """The log without the search for the firmware's tables."""
    return [line for line in result.log if not line.startswith(("mmap ", "munmap "))]


def check(result, text, status, *steps):
    assert (result.text, result.err, result.status) == (text, b"", status)
    assert without_maps(result) == session(*steps)


# Help


@pytest.mark.parametrize("args", ["/RTC /?", "/RTC /H", "/RTC 60 /T 10 /HELP", "/SHUTDOWN /?", "/TIMEOUT /?",
                                  "/? /RTC 0"])
def test_help_touches_nothing(run, args):
    assert_run(run(args), USAGE, 2, CLEAR)


# Wake-timer cycle


@pytest.mark.parametrize("seconds", ["1", "2", "6", "0x6"])
def test_a_timer_below_seven_seconds_is_refused(run, tmp_path, seconds):
    assert_run(run(f"/RTC {seconds}"), TOO_SHORT, 2)
    assert_run(run(f"/RTC {seconds} /T 10 /SHUTDOWN /TIMEOUT"), TOO_SHORT, 2)
    assert not (tmp_path / "RTCLOG").exists()


def test_seven_seconds_are_the_shortest_timer(run):
    check(run("/RTC 7"), "RTC wake up after 7 seconds!\nSetCmos timer:  04:05:13\n", 0,
          mode(), time(4, 5, 6), wake_enable(0x1800), alarm(4, 5, 0x13), [POWER_OFF])


@pytest.mark.parametrize("seconds, hour_minute_second", [(1, (4, 5, 7)), (6, (4, 5, 0x12)), (60, (4, 6, 6))])
def test_f_lifts_the_minimum(run, seconds, hour_minute_second):
    text = "SetCmos timer:  {:02x}:{:02x}:{:02x}\n".format(*hour_minute_second)
    check(run(f"/RTC {seconds} /F"), f"RTC wake up after {seconds} seconds!\n" + text, 0,
          mode(), time(4, 5, 6), wake_enable(0x1800), alarm(*hour_minute_second), [POWER_OFF])


def test_the_alarm_counts_from_the_end_of_the_countdown(run, tmp_path):
    result = run("/RTC 60 /T 10", extra=[RUN])
    assert result.text == ("RTC wake up after 60 seconds!\nHave no RTCLOG file!\n" + countdown(10) +
                           "SetCmos timer:  04:06:16\n")
    assert alarm_set(result.log) == (4, 6, 0x16)
    assert story(result.log) == ["time", "fsync RTCLOG 4", "fsync folder", "time", "wake enable", "alarm", POWER_OFF]
    assert abs(seconds_passed(result.log) - 10) < 1
    assert (tmp_path / "RTCLOG").read_bytes() == b"\1\0\0\0"
    assert (result.status, result.err) == (0, b"")


def test_a_countdown_of_zero_is_skipped_and_the_cycle_counted(run, tmp_path):
    (tmp_path / "RTCLOG").write_bytes(b"\x29\0\0\0")
    check(run("/RTC 60 /T 0"), "RTC wake up after 60 seconds!\nRTCLOG count is: 41\nSetCmos timer:  04:06:06\n", 0,
          ["fsync RTCLOG 4 -> ok", "fsync folder -> ok"],
          mode(), time(4, 5, 6), wake_enable(0x1800), alarm(4, 6, 6), [POWER_OFF])
    assert (tmp_path / "RTCLOG").read_bytes() == b"\x2a\0\0\0"


def test_without_t_no_cycle_is_counted(run, tmp_path):
    run("/RTC 60")
    assert [path.name for path in tmp_path.iterdir()] == ["run-1"]


def test_the_shutdown_switch_asks_for_the_power_off_once_more(run):
    check(run("/RTC 60 /SHUTDOWN"), "RTC wake up after 60 seconds!\nSetCmos timer:  04:06:06\n", 0,
          mode(), time(4, 5, 6), wake_enable(0x1800), alarm(4, 6, 6), [POWER_OFF, POWER_OFF])


def test_each_further_switch_counts_down_once_more(run, tmp_path):
    result = run("/RTC 60 /SHUTDOWN /TIMEOUT /T 2", extra=[RUN])
    assert story(result.log) == ["time", "fsync RTCLOG 4", "fsync folder", "time", "wake enable", "alarm", POWER_OFF,
                                 "time", POWER_OFF, "time"]
    assert result.text.count("...timeout: 2 seconds") == 3
    assert (tmp_path / "RTCLOG").read_bytes() == b"\1\0\0\0"
    assert result.status == 0


def test_the_timeout_switch_alone_adds_nothing_to_a_cycle(run):
    result = run("/RTC 60 /TIMEOUT")
    assert (result.status, story(result.log)) == (0, ["time", "wake enable", "alarm", POWER_OFF])


def test_messages_come_in_order_with_what_shutdown_says(terminal):
    result = terminal("/RTC 60 /T 0 /SHUTDOWN", extra=["system print shutdown"])
    said = 'system("shutdown -P now")\r\n'
    assert result.text == ("RTC wake up after 60 seconds!\r\nHave no RTCLOG file!\r\nSetCmos timer:  04:06:06\r\n" +
                           said + said)


def test_a_log_has_the_messages_before_what_shutdown_says(run):
    result = run("/RTC 60 /SHUTDOWN", extra=["system print shutdown"])
    said = 'system("shutdown -P now")\n'
    assert result.text == "RTC wake up after 60 seconds!\nSetCmos timer:  04:06:06\n" + said + said


def test_a_log_has_the_messages_of_a_reboot_cycle_before_what_shutdown_says(run):
    result = run("/RTC 0 /T 0", extra=["system print shutdown"])
    assert result.text == 'Have no RBTLOG file!\nsystem("shutdown -r now")\n'


@pytest.mark.parametrize("args", ["/rtc 60", "-RTC 60", "\\RTC 60", "RTC 60", "/RTC 0x3C", "/F /RTC 60", "/RTC 60s"])
def test_words_and_numbers_have_their_usual_forms(run, args):
    result = run(args)
    assert result.text == "RTC wake up after 60 seconds!\nSetCmos timer:  04:06:06\n"
    assert result.systems() == ["shutdown -P now"]


def test_t_is_a_word_of_its_own(run, tmp_path):
    result = run("/RTC 60 /TIMEOUT 5 -t 0")
    assert "Have no RTCLOG file!\n" in result.text
    (tmp_path / "RTCLOG").unlink()
    assert "RTCLOG" not in run("/RTC 60 /TT 5").text


# Reboot cycle


def test_zero_seconds_restart_at_once(run, tmp_path):
    assert_run(run("/RTC 0"), "", ABORTED, [RESTART])
    assert not (tmp_path / "RTCLOG").exists() and not (tmp_path / "RBTLOG").exists()


@pytest.mark.parametrize("args", ["/RTC", "/RTC /F", "/RTC 60 /RESET", "/RTC 3 /RESET", "/RESET /RTC 60",
                                  "/RTC 0 /SHUTDOWN", "/RTC 0 /TIMEOUT", "/RTC 60 /RESET /SHUTDOWN",
                                  "/RTC 0x100000000"])
def test_a_restart_is_all_that_a_reboot_cycle_does(run, args):
    assert_run(run(args), "", ABORTED, [RESTART])


@pytest.mark.parametrize("args", ["/RTC 60 /GRESET", "/RTC 0 /GRESET", "/RTC 0 /GRESET /RESET",
                                  "/RTC 5 /GRESET /SHUTDOWN"])
def test_a_global_reset_is_not_carried_out(run, args):
    assert_run(run(args), "", ABORTED)


def test_reboots_are_counted_after_their_countdown(run, tmp_path):
    (tmp_path / "RBTLOG").write_bytes(b"\xff\1\0\0")
    (tmp_path / "RTCLOG").write_bytes(b"\5\0\0\0")
    result = run("/RTC 0 /T 3", extra=[RUN])
    assert result.text == "RBTLOG count is: 511\n" + countdown(3)
    assert story(result.log) == ["time", "fsync RBTLOG 4", "fsync folder", RESTART]
    assert abs(seconds_passed(result.log) - 3) < 1
    assert (tmp_path / "RBTLOG").read_bytes() == b"\0\2\0\0"
    assert (tmp_path / "RTCLOG").read_bytes() == b"\5\0\0\0"
    assert result.status == ABORTED


def test_a_global_reset_counts_its_cycle_all_the_same(run, tmp_path):
    check(run("/RTC 60 /GRESET /T 0"), "Have no RBTLOG file!\n", ABORTED,
          ["fsync RBTLOG 4 -> ok", "fsync folder -> ok"])
    assert (tmp_path / "RBTLOG").read_bytes() == b"\1\0\0\0"


# The alarm's time

BCD, BINARY = 0x02, 0x06

ALARMS = [
    # format, time, seconds from then, registers, message
    (BCD, "04:05:06", 60, (0x04, 0x06, 0x06), "04:06:06"),
    (BCD, "12:34:56", 7, (0x12, 0x35, 0x03), "12:35:03"),
    (BCD, "23:59:52", 7, (0x23, 0x59, 0x59), "23:59:59"),
    (BCD, "23:59:53", 7, (0x0C, 0x00, 0x00), "0c:00:00"),  # hour 24h, above 23h, is 36 and leaves 12
    (BCD, "23:59:59", 3600, (0x0C, 0x59, 0x59), "0c:59:59"),
    (BCD, "23:59:59", 3601, (0x0D, 0x00, 0x00), "0d:00:00"),
    (BCD, "23:00:00", 8 * 3600, (0x01, 0x00, 0x00), "01:00:00"),  # 31h: 49 leaves 1
    (BCD, "00:00:00", 100 * 3600, (0x10, 0x00, 0x00), "10:00:00"),  # A0h: 160 leaves 16
    (BCD, "00:00:10", 0xFFFFFFFF, (0x00, 0x00, 0x09), "00:00:09"),  # 32 bits
    (BINARY, "04:05:06", 60, (4, 6, 6), "04:06:06"),
    (BINARY, "12:34:56", 7, (12, 35, 3), "12:35:03"),
    (BINARY, "23:59:52", 7, (23, 59, 59), "23:59:59"),
    (BINARY, "23:59:53", 7, (24, 0, 0), "24:00:00"),
    (BINARY, "23:59:59", 43200, (35, 59, 59), "35:59:59"),  # the last hour that stays
    (BINARY, "23:59:59", 43201, (12, 0, 0), "12:00:00"),
    (BINARY, "23:00:00", 25 * 3600, (0, 0, 0), "00:00:00"),
    (BINARY, "00:00:00", 257 * 3600, (1, 0, 0), "01:00:00"),  # hours of 8 bits
]


@pytest.mark.parametrize("register_b, now, seconds, values, shown", ALARMS)
def test_the_alarm_in_the_clock_s_own_format(run, register_b, now, seconds, values, shown):
    lines = [f"cmos-bytes b {register_b:02x}", f"cmos-time 2024-02-03 {now}"]
    result = run(f"/RTC {seconds}", extra=lines)
    assert result.text == f"RTC wake up after {seconds} seconds!\nSetCmos timer:  {shown}\n"
    assert alarm_set(result.log) == values
    assert registers(result.log)[-1] == ("w", 0x0B, register_b | 0x20)
    assert registers(result.log)[0] == ("r", 0x0B, register_b)


def test_the_alarm_s_date_is_cleared_and_other_enables_stay(run):
    result = run("/RTC 7", extra=["cmos-bytes b 52", "cmos-bytes d bf"])
    check(result, "RTC wake up after 7 seconds!\nSetCmos timer:  04:05:13\n", 0, mode(0x52), time(4, 5, 6),
          wake_enable(0x1800), alarm(4, 5, 0x13, register_b=0x52, register_d=0xBF), [POWER_OFF])
    assert write(0x0D, 0x80)[-1] in result.log


# Updates of the clock


def test_the_end_of_an_update_is_awaited_with_a_delay_between_polls(run):
    check(run("/RTC 7", extra=["cmos-stuck 5"]), "RTC wake up after 7 seconds!\nSetCmos timer:  04:05:13\n", 0,
          mode(), time(4, 5, 6, polls=5), wake_enable(0x1800), alarm(4, 5, 0x13), [POWER_OFF])


def test_a_long_update_is_awaited(run):
    result = run("/RTC 7", extra=["cmos-stuck 3000"])
    assert result.text == "RTC wake up after 7 seconds!\nSetCmos timer:  04:05:13\n"
    assert registers(result.log).count(("r", 0x0A, 0xA6)) == 0x3000


@pytest.mark.parametrize("factor", range(0x1000, 0x2000, 0x123))
def test_the_time_is_never_read_during_an_update(run, factor):
    result = run("/RTC 60 /T 5", extra=[f"cmos-run delays {factor:x}"])
    values = [value for kind, register, value in registers(result.log) if kind == "r" and register in (0, 2, 4)]
    assert 0xFF not in values and ("r", 0x0A, 0xA6) in registers(result.log)
    assert result.text.endswith("SetCmos timer:  04:06:11\n")
    assert passes(result.log) * 3 == len(values)


# Where the wake enable is


def wake_ports(result):
    """The accesses of words, but for those to PCI configuration space."""
    return [line for line in result.ports() if line.startswith(("in16 ", "out16 ")) and " 0cf" not in line]


@pytest.mark.parametrize("board, port", [("intel", 0x1800), ("amd", 0x0800), ("hygon", 0x0800)])
def test_the_firmware_s_table_says_where_the_pm1_block_is(run, board, port):
    chipset = ["pci 00:1f.2", "word 40 0401"] if board == "intel" else ["pm-bytes 60 00 04"]
    assert wake_ports(run("/RTC 7", board=board, extra=chipset)) == wake_enable(port)


@pytest.mark.parametrize("word, port", [(0x1801, 0x1800), (0x0401, 0x0400), (0x04FF, 0x0480), (0x007F, 0x0000)])
def test_without_a_table_intel_s_power_management_function_says_it(run, word, port):
    lines = [NO_ROOT_POINTER["intel"], "pci 00:1f.2", f"word 40 {word:04x}", f"pm1 {port:x} 0001 0020 0001"]
    result = run("/RTC 7", extra=lines)
    assert wake_ports(result) == wake_enable(port)
    assert result.text == "RTC wake up after 7 seconds!\nSetCmos timer:  04:05:13\n"


def test_an_intel_board_that_hides_the_function_gets_the_usual_port(run):
    result = run("/RTC 7", extra=[NO_ROOT_POINTER["intel"], "pci-remove 00:1f.2"])
    assert result.text == ("RTC wake up after 7 seconds!\nNot found ClaseCode(0580)\nError: cannot get PMBase\n"
                           "SetCmos timer:  04:05:13\n")
    assert wake_ports(result) == wake_enable(0x1800)
    assert (result.status, result.systems()) == (0, ["shutdown -P now"])


@pytest.mark.parametrize("board", ["amd", "hygon", "ati"])
@pytest.mark.parametrize("low, high, port", [(0x00, 0x08, 0x0800), (0x03, 0x04, 0x0400), (0x84, 0x0A, 0x0A84)])
def test_without_a_table_amd_s_power_management_registers_say_it(run, board, low, high, port):
    lines = [NO_ROOT_POINTER[board], f"pm-bytes 60 {low:x} {high:x}", f"pm1 {port:x} 0001 0020 0001"]
    result = run("/RTC 7", board=board, extra=lines)
    at = result.log.index("out8 0cd6 61")
    assert result.log[at - 2 : at + 6] == ["out8 00ed 00", "out8 00ed 00", "out8 0cd6 61", f"in8 0cd7 -> {high:02x}",
                                           "out8 00ed 00", "out8 00ed 00", "out8 0cd6 60", f"in8 0cd7 -> {low:02x}"]
    assert wake_ports(result) == wake_enable(port)


def test_another_vendor_without_a_table_has_no_pm1_block_and_the_cycle_goes_on(run):
    result = run("/RTC 7", board="unknown", extra=["bytes f5a00 00", "bytes f5a10 00"])
    assert wake_ports(result) == ["in16 ffff -> ffff", "out16 ffff ffff", "in16 0001 -> ffff", "out16 0001 ffff"]
    assert (result.status, result.systems()) == (0, ["shutdown -P now"])


def test_other_status_bits_that_were_set_are_cleared_with_it(run):
    result = run("/RTC 7", extra=["pm1 1800 8531 0120 0001"])
    assert wake_ports(result) == wake_enable(0x1800, 0x8531, 0x0120)


def test_the_wake_enable_comes_before_the_alarm(run):
    ports = run("/RTC 7").ports(delays=True)
    at = ports.index("out16 1802 0420")
    assert ports[at + 1 : at + 1 + len(wait())] == wait()
