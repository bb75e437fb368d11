"""The board's devices at fixed ports: the clock and its memory, the Super I/O chip, port 61h."""

import pytest

BARE = ["iopl ok", "mem ok"]


@pytest.fixture
def ports(run, tmp_path):
    """What a series of port accesses reads on a board of these lines: ports("out8 70 a in8 71", "cmos") -> [0x26]"""

    def go(words, *lines):
        board = tmp_path / "devices.board"
        board.write_text("\n".join([*BARE, *lines, ""]))
        result = run(f"iopl 3 {words}", board=board, program="hwboard_probe")
        assert result.status == 0, result.err
        return [int(line.split()[-1], 16) for line in result.text.splitlines()[1:] if line.startswith("in")]

    return go


@pytest.fixture
def complaint(run, tmp_path):
    """What the board says about a board file with a mistake."""

    def go(*lines):
        board = tmp_path / "mistake.board"
        board.write_text("\n".join([*BARE, *lines, ""]))
        result = run("iopl 3", board=board, program="hwboard_probe")
        assert result.status != 0
        return result.err.decode()

    return go


def indexed(index, data, *registers):
    return " ".join(f"out8 {index:x} {register:x} in8 {data:x}" for register in registers)


# Clock and memory

TIME_REGISTERS = (0, 2, 4, 6, 7, 8, 9, 0x32)


def test_the_clock_shows_its_time_in_bcd(ports):
    values = ports(indexed(0x70, 0x71, *TIME_REGISTERS), "cmos", "cmos-time 2024-02-03 14:05:59")
    assert values == [0x59, 0x05, 0x14, 7, 0x03, 0x02, 0x24, 0x20]


def test_the_clock_shows_its_time_in_binary_when_register_b_says_so(ports):
    values = ports(indexed(0x70, 0x71, *TIME_REGISTERS), "cmos", "cmos-bytes 0b 06", "cmos-time 1999-12-31 23:59:58")
    assert values == [58, 59, 23, 6, 31, 12, 99, 19]


@pytest.mark.parametrize("time, hours", [("00:30:00", 0x12), ("01:30:00", 0x01), ("12:30:00", 0x92),
                                         ("23:30:00", 0x91)])
def test_the_clock_counts_half_days_when_register_b_says_so(ports, time, hours):
    assert ports(indexed(0x70, 0x71, 4), "cmos", "cmos-bytes 0b 00", f"cmos-time 2024-02-03 {time}") == [hours]


@pytest.mark.parametrize("date, day", [("2000-02-29", 3), ("2000-03-01", 4), ("2024-01-01", 2), ("2024-12-31", 3),
                                       ("1970-01-01", 5)])
def test_the_day_of_the_week_follows_from_the_date(ports, date, day):
    assert ports(indexed(0x70, 0x71, 6), "cmos", f"cmos-time {date} 00:00:00") == [day]


def test_the_registers_without_a_time_line_are_those_of_a_new_clock(ports):
    assert ports(indexed(0x70, 0x71, 0x0A, 0x0B, 0x0C, 0x0D, 7, 8), "cmos") == [0x26, 0x02, 0, 0x80, 1, 1]


def test_both_banks_keep_their_bytes_apart(ports):
    words = "out8 70 10 out8 72 10 out8 71 5a out8 73 a5 in8 71 in8 73"
    assert ports(words, "cmos") == [0x5A, 0xA5]


def test_a_line_of_bytes_goes_on_into_the_second_bank(ports):
    words = indexed(0x70, 0x71, 0x7E, 0x7F) + " " + indexed(0x72, 0x73, 0, 1)
    assert ports(words, "cmos", "cmos-bytes 7e 11 22 33 44") == [0x11, 0x22, 0x33, 0x44]


def test_bit_7_of_the_index_is_not_part_of_it(ports):
    assert ports("out8 70 9f out8 71 77 out8 70 1f in8 71", "cmos") == [0x77]


def test_the_index_ports_cannot_be_read(ports):
    assert ports("out8 70 1f in8 70 out8 72 1f in8 72", "cmos") == [0xFF, 0xFF]


def test_read_only_bits_of_the_clock_stay(ports):
    words = "out8 70 a out8 71 ff in8 71 out8 70 c out8 71 ff in8 71 out8 70 d out8 71 ff in8 71 out8 71 0 in8 71"
    assert ports(words, "cmos") == [0x7F, 0x00, 0xBF, 0x80]


def test_reading_register_c_clears_it(ports):
    assert ports("out8 70 c in8 71 in8 71", "cmos", "cmos-bytes 0c f0") == [0xF0, 0]


def test_a_word_at_the_index_port_sets_index_and_data(ports):
    assert ports("out16 70 5a20 in8 71", "cmos") == [0x5A]


@pytest.mark.parametrize("line", ["cmos-time 2024-2-3 00:00:00", "cmos-time 2024-13-03 00:00:00",
                                  "cmos-time 2024-02-03 24:00:00", "cmos-time 2024-02-03 00:00",
                                  "cmos-time 2024-02-03 00:00:000"])
def test_a_time_that_is_none_is_refused(complaint, line):
    assert 'mistake.board:4: neither YYYY-MM-DD nor HH:MM:SS: "' in complaint("cmos", line)


def test_more_bytes_than_there_are_behind_the_index_are_refused(complaint):
    assert "mistake.board:4: more bytes than there are behind the index" in complaint("cmos", "cmos-bytes ff 1 2")


@pytest.mark.parametrize("line", ["cmos-bytes 10 1", "cmos-time 2024-02-03 00:00:00"])
def test_contents_without_a_clock_are_refused(complaint, line):
    assert "mistake.board:3: the board has no cmos yet" in complaint(line)


# Super I/O

CHIP = ["superio 4e a5 a5 aa", "superio-global 20 87 28 ro", "superio-global 24 04", "superio-device 02 30 01 99",
        "superio-device 02 a9 a9 aa ab", "superio-device 0b 60 02 90"]
OPEN = "out8 4e a5 out8 4e a5 "


def sio(*registers):
    return indexed(0x4E, 0x4F, *registers)


def test_a_locked_chip_reads_all_ones_and_keeps_nothing(ports):
    assert ports(f"in8 4e {sio(0x20)} out8 4e 24 out8 4f 11 {OPEN} {sio(0x24)}", *CHIP) == [0xFF, 0xFF, 0x04]


@pytest.mark.parametrize("keys, opened", [
    ("a5 a5", True),
    ("a5", False),
    ("5a a5", False),
    ("a5 20 a5", False),
    ("a5 20 a5 a5", True),
    ("20 a5 a5", True),
])
def test_the_key_opens_the_chip_when_both_bytes_follow_each_other(ports, keys, opened):
    words = " ".join(f"out8 4e {key}" for key in keys.split())
    assert ports(f"{words} {sio(0x21)}", *CHIP) == [0x28 if opened else 0xFF]


def test_a_key_of_two_different_bytes_opens_the_chip_in_its_order(ports):
    chip = ["superio 2e 55 aa", "superio-global 20 12"]
    assert ports("out8 2e aa out8 2e 55 out8 2e 20 in8 2f", *chip) == [0xFF]
    assert ports("out8 2e 55 out8 2e 55 out8 2e aa out8 2e 20 in8 2f", *chip) == [0x12]


def test_the_exit_key_locks_the_chip(ports):
    assert ports(f"{OPEN} {sio(0x20)} out8 4e aa {sio(0x20)} {OPEN} {sio(0x20)}", *CHIP) == [0x87, 0xFF, 0x87]


def test_the_exit_key_hides_the_register_of_its_number(ports):
    words = f"{OPEN} out8 4e 7 out8 4f 2 {sio(0xA9, 0xAA, 0xAB)}"
    assert ports(words, *CHIP) == [0xA9, 0xFF, 0xFF]


def test_without_an_exit_key_register_2_locks_the_chip_and_all_registers_can_be_reached(ports):
    chip = ["superio 4e a5 a5", *CHIP[1:]]
    words = f"{OPEN} out8 4e 7 out8 4f 2 {sio(0xA9, 0xAA, 0xAB)} out8 4e 2 out8 4f 2 {sio(0xA9)}"
    assert ports(words, *chip) == [0xA9, 0xAA, 0xAB, 0xFF]


def test_register_7_selects_the_device_behind_the_upper_registers(ports):
    words = f"{OPEN} out8 4e 7 out8 4f 2 {sio(7, 0x30, 0x60)} out8 4e 7 out8 4f b {sio(7, 0x30, 0x60, 0x61, 0x20)}"
    assert ports(words, *CHIP) == [2, 1, 0xFF, 0x0B, 0xFF, 0x02, 0x90, 0x87]


def test_a_device_that_is_not_there_reads_all_ones(ports):
    assert ports(f"{OPEN} out8 4e 7 out8 4f 55 out8 4e 30 out8 4f 1 in8 4f {sio(7)}", *CHIP) == [0xFF, 0x55]


def test_the_selected_device_survives_locking(ports):
    assert ports(f"{OPEN} out8 4e 7 out8 4f b out8 4e aa {OPEN} {sio(7, 0x61)}", *CHIP) == [0x0B, 0x90]


def test_read_only_and_absent_registers_keep_nothing(ports):
    words = f"{OPEN} out8 4e 20 out8 4f 0 in8 4f out8 4e 2f out8 4f 0 in8 4f out8 4e 24 out8 4f 0 in8 4f"
    assert ports(words, *CHIP) == [0x87, 0xFF, 0x00]


def test_the_open_chip_shows_its_index(ports):
    assert ports(f"{OPEN} out8 4e 33 in8 4e", *CHIP) == [0x33]


def test_two_chips_are_independent(ports):
    chips = [*CHIP, "superio 2e 87 87 aa", "superio-global 20 c5"]
    assert ports(f"{OPEN} out8 2e 20 in8 2f {sio(0x20)} out8 2e 87 out8 2e 87 out8 2e 20 in8 2f", *chips) == [
        0xFF, 0x87, 0xC5]


@pytest.mark.parametrize("line", ["superio-global 2f 1 2", "superio-global 30 1", "superio-device 02 20 1",
                                  "superio-device 02 ff 1 2"])
def test_a_register_that_cannot_be_there_is_refused(complaint, line):
    assert "mistake.board:4: " in complaint("superio 4e a5 a5", line)


@pytest.mark.parametrize("line", ["superio-global 20 1", "superio-device 02 30 1"])
def test_registers_without_a_chip_are_refused(complaint, line):
    assert "mistake.board:3: the board has no superio yet" in complaint(line)


# Port 61h


def test_the_refresh_bit_changes_with_each_read(ports):
    assert ports("in8 61 in8 61 in8 61", "system-control") == [0x10, 0x00, 0x10]


def test_the_low_four_bits_of_the_port_can_be_written(ports):
    assert ports("out8 61 ff in8 61 out8 61 0 in8 61", "system-control") == [0x1F, 0x00]
