"""The board's devices of power control: the clock as it counts, its alarm, the PM1 block, AMD's fixed-range MTRRs, and
what is said of files that are written to the disk."""

import pytest

# Sixteen writes to the delay port make a second of this clock: the last four announce the update, in the last two of
# them it is under way.
CLOCK = ["cmos", "delay ed"]
RUN = "cmos-run delays f424"
TIME_REGISTERS = (0, 2, 4, 6, 7, 8, 9)


@pytest.fixture
def ports(run, tmp_path):
    """What a series of port accesses reads on a board of these lines."""

    def go(words, *lines):
        board = tmp_path / "devices.board"
        board.write_text("\n".join(["iopl ok", "mem ok", *lines, ""]))
        result = run(f"iopl 3 {words}", board=board, program="hwboard_probe")
        assert result.status == 0, result.err
        return [int(line.split()[-1], 16) for line in result.text.splitlines()[1:] if line.startswith("in")]

    return go


def delays(count):
    return "out8 ed 0 " * count


def cmos(*registers):
    return " ".join(f"out8 70 {register:x} in8 71" for register in registers)


def store(register, value):
    return f"out8 70 {register:x} out8 71 {value:x}"


# Time


def test_the_clock_stands_still_unless_it_is_started(ports):
    assert ports(f"{delays(40)} {cmos(0)}", *CLOCK, "cmos-time 2024-02-03 04:05:06") == [0x06]


@pytest.mark.parametrize("before, after", [
    ("2024-02-03 04:05:06", [0x07, 0x05, 0x04, 7, 0x03, 0x02, 0x24]),
    ("2024-02-03 04:05:59", [0x00, 0x06, 0x04, 7, 0x03, 0x02, 0x24]),
    ("2024-02-03 09:59:59", [0x00, 0x00, 0x10, 7, 0x03, 0x02, 0x24]),
    ("2024-02-03 23:59:59", [0x00, 0x00, 0x00, 1, 0x04, 0x02, 0x24]),
    ("2024-02-28 23:59:59", [0x00, 0x00, 0x00, 5, 0x29, 0x02, 0x24]),
    ("2023-02-28 23:59:59", [0x00, 0x00, 0x00, 4, 0x01, 0x03, 0x23]),
    ("2024-04-30 23:59:59", [0x00, 0x00, 0x00, 4, 0x01, 0x05, 0x24]),
    ("1999-12-31 23:59:59", [0x00, 0x00, 0x00, 7, 0x01, 0x01, 0x00]),
])
def test_a_second_later_the_clock_has_counted_on(ports, before, after):
    assert ports(f"{delays(16)} {cmos(*TIME_REGISTERS)}", *CLOCK, f"cmos-time {before}", RUN) == after


def test_a_clock_in_binary_counts_in_binary(ports):
    lines = [*CLOCK, "cmos-bytes b 6", "cmos-time 2024-02-03 09:59:59", RUN]
    assert ports(f"{delays(16)} {cmos(0, 2, 4)}", *lines) == [0, 0, 10]
    assert ports(f"{delays(10 * 16)} {cmos(0, 2, 4)}", *lines) == [9, 0, 10]


@pytest.mark.parametrize("before, hours", [("11:59:59", 0x92), ("12:59:59", 0x81), ("23:59:59", 0x12),
                                           ("00:59:59", 0x01)])
def test_a_clock_of_half_days_counts_in_half_days(ports, before, hours):
    lines = [*CLOCK, "cmos-bytes b 0", f"cmos-time 2024-02-03 {before}", RUN]
    assert ports(f"{delays(16)} {cmos(4)}", *lines) == [hours]


def test_many_seconds_pass_at_once(ports):
    lines = [*CLOCK, "cmos-time 2024-02-03 23:59:50", RUN]
    assert ports(f"{delays(16 * 75)} {cmos(0, 2, 4, 7)}", *lines) == [0x05, 0x01, 0x00, 0x04]


def test_a_clock_that_is_being_set_does_not_count(ports):
    words = f"{store(0xB, 0x82)} {delays(32)} {cmos(0)} {store(0, 0x30)} {store(0xB, 2)} {delays(16)} {cmos(0)}"
    assert ports(words, *CLOCK, "cmos-time 2024-02-03 04:05:06", RUN) == [0x06, 0x31]


def test_a_clock_that_was_started_can_be_stopped(ports):
    lines = [*CLOCK, "cmos-time 2024-02-03 04:05:06"]
    assert ports(f"{delays(40)} {cmos(0)}", *lines, RUN, "cmos-stop") == [0x06]
    assert ports(f"{delays(16)} {cmos(0)}", *lines, "cmos-stop", RUN) == [0x07]


def test_the_host_s_clock_can_drive_it(ports):
    words = " ".join([cmos(0)] * 200)
    assert len(set(ports(words, *CLOCK, "cmos-run real ffff"))) > 2
    assert set(ports(words, *CLOCK, "cmos-run real")) <= {0, 1, 0xFF}


# The update cycle


def test_an_update_is_announced_before_the_time_is_out_of_reach(ports):
    words = " ".join(f"{cmos(0xA, 0)} {delays(1)}" for _ in range(18))
    values = ports(words, *CLOCK, "cmos-time 2024-02-03 04:05:06", RUN)
    assert values[0::2] == [0x26] * 12 + [0xA6] * 4 + [0x26] * 2
    assert values[1::2] == [0x06] * 14 + [0xFF] * 2 + [0x07] * 2


# 63 times as fast: announced for 63 * 244 us, under way for 63 * 1984 us of the clock's second.
@pytest.mark.parametrize("count, values", [
    (13645, [0x26, 0x00]),
    (13646, [0xA6, 0x00]),
    (13889, [0xA6, 0x00]),
    (13890, [0xA6, 0xFF]),
    (15873, [0xA6, 0xFF]),
    (15874, [0x26, 0x01]),
])
def test_on_a_faster_clock_an_update_takes_as_long_as_on_a_real_one(ports, count, values):
    assert ports(f"{delays(count)} {cmos(0xA, 0)}", *CLOCK, "cmos-run delays 3f") == values


def test_what_is_written_during_an_update_is_lost(ports):
    words = f"{delays(14)} {store(1, 0x55)} {store(0xB, 0x22)} {delays(2)} {cmos(1, 0xB)} {store(1, 0x44)} {cmos(1)}"
    assert ports(words, *CLOCK, RUN) == [0x00, 0x22, 0x44]


def test_a_stuck_clock_comes_loose_after_so_many_polls(ports):
    assert ports(cmos(*[0xA] * 5), *CLOCK, "cmos-stuck 3") == [0xA6] * 3 + [0x26] * 2
    assert ports(cmos(*[0xA] * 50, 0), *CLOCK, "cmos-stuck") == [0xA6] * 50 + [0x00]


# The alarm

ALARM = [*CLOCK, "pm1 600", "cmos-bytes 1 08", "cmos-bytes 3 05", "cmos-bytes 5 04", "cmos-time 2024-02-03 04:05:06",
         RUN]


def test_the_alarm_sets_its_flag_when_its_time_has_come(ports):
    words = f"{delays(16)} {cmos(0xC)} {delays(16)} {cmos(0xC, 0xC)} {delays(16)} {cmos(0xC)} in16 600"
    assert ports(words, *ALARM) == [0x10, 0x30, 0x00, 0x10, 0x0000]


def test_with_its_interrupt_enabled_the_alarm_reaches_the_pm1_block(ports):
    words = f"{store(0xB, 0x22)} {delays(16)} in16 600 {delays(16)} {cmos(0xC)} in16 600"
    assert ports(words, *ALARM) == [0x0000, 0xB0, 0x0400]


def test_the_pm1_block_knows_of_the_alarm_before_the_clock_is_looked_at(ports):
    assert ports(f"{store(0xB, 0x22)} {delays(32)} in16 600", *ALARM) == [0x0400]
    assert ports(f"{store(0xB, 0x22)} {delays(32)} out16 600 400 in16 600", *ALARM) == [0x0000]


def test_an_alarm_without_a_pm1_block_only_sets_its_flag(ports):
    lines = [line for line in ALARM if not line.startswith("pm1")]
    assert ports(f"{store(0xB, 0x22)} {delays(32)} {cmos(0xC)}", *lines) == [0xB0]


def test_an_alarm_register_may_stand_for_every_value(ports):
    words = f"{store(5, 0xFF)} {store(3, 0xC0)} {store(1, 7)} {delays(16)} {cmos(0xC)}"
    assert ports(words, *ALARM) == [0x30]


@pytest.mark.parametrize("register", [1, 3, 5])
def test_all_three_alarm_registers_must_match(ports, register):
    assert ports(f"{store(register, 0x20)} {delays(48)} {cmos(0xC)}", *ALARM) == [0x10]


# PM1 block


def test_status_bits_are_cleared_by_writing_ones(ports):
    words = "in16 600 out16 600 0100 in16 600 out8 601 4 in16 600 out8 600 ff in16 600"
    assert ports(words, "pm1 600 8531 0 0") == [0x8531, 0x8431, 0x8031, 0x8000]


def test_the_bytes_of_the_pm1_block_can_be_read_alone(ports):
    assert ports("in8 600 in8 601 in8 602 in8 603 in8 604 in8 605", "pm1 600 8531 4720 1c01") == [
        0x31, 0x85, 0x20, 0x47, 0x01, 0x1C]
    assert ports("in32 600 in16 606", "pm1 600 8531 4720 1c01") == [0x47208531, 0xFFFF]


def test_enable_and_control_keep_their_bits_and_no_others(ports):
    words = "out16 602 ffff in16 602 out8 603 0 in16 602 out16 604 ffff in16 604"
    assert ports(words, "pm1 600") == [0x4721, 0x0021, 0x1C03]


def test_the_order_to_sleep_cannot_be_read_back(ports):
    assert ports("out8 605 34 in16 604", "pm1 600 0 0 1") == [0x1401]


# Fixed-range MTRRs of AMD's processors


def msr(words, run, *lines):
    result = run(f"open /dev/cpu/0/msr rw {words}", board="amd", extra=lines, program="hwboard_probe")
    return [line.rsplit(" ", 1)[1] for line in result.log if line.startswith("pread ")]


def test_rdmem_and_wrmem_are_hidden_until_syscfg_shows_them(run):
    read = "pread 3 26c 8"
    show, hide = "pwrite 3 c0010010 7c0000", "pwrite 3 c0010010 740000"
    assert msr(f"{read} {show} {read} {hide} {read}", run) == [
        "0505050505050505", "1515151515151515", "0505050505050505"]
    words = f"pwrite 3 26c 1f1f1f1f1f1f1f1f {show} {read} pwrite 3 26c 1818181818181818 {hide} {read} {show} {read}"
    assert msr(words, run) == ["1717171717171717", "0000000000000000", "1818181818181818"]


# Files


def test_a_file_that_is_written_to_the_disk_is_named_with_its_length(run):
    result = run("/RTC 0 /T 0")
    assert [line for line in result.log if line.startswith("fsync")] == ["fsync RBTLOG 4 -> ok", "fsync folder -> ok"]


def test_a_file_that_cannot_be_written_to_the_disk_is_named_with_the_error(run, tmp_path):
    (tmp_path / "RBTLOG").symlink_to("/proc/self/comm")  # a regular file without a disk
    assert "fsync comm 0 -> EINVAL" in run("/RTC 0 /T 0").log
