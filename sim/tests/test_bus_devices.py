"""The board's buses: SMBus hosts and slaves, I2C cores and devices, AMD's power-management registers, its system
management network and the SMU's mailbox, and registers whose answers are listed."""

import pytest

TIME = "delay ed"


@pytest.fixture
def reads(run, tmp_path):
    """What a series of accesses reads on a board of these lines: reads("out8 70 a in8 71", "cmos") -> [0x26]"""

    def go(words, *lines):
        board = tmp_path / "devices.board"
        board.write_text("\n".join(["iopl ok", "mem ok", TIME, *lines, ""]))
        result = run(f"iopl 3 {words}", board=board, program="hwboard_probe")
        assert result.status == 0, result.err
        return [int(line.split()[-1], 16) for line in result.text.splitlines() if line.startswith(("in", "load"))]

    return go


@pytest.fixture
def complaint(run, tmp_path):
    """What the board says about a board file with a mistake."""

    def go(*lines):
        board = tmp_path / "mistake.board"
        board.write_text("\n".join(["iopl ok", "mem ok", *lines, ""]))
        result = run("iopl 3", board=board, program="hwboard_probe")
        assert result.status != 0
        return result.err.decode()

    return go


def wait(microseconds):
    return "out8 ed 0 " * microseconds


# ---- SMBus host -----------------------------------------------------------------------------------------------------

FUNCTION = ["pci-ports", "pci 00:1f.4 8086:a323 class 0c0500 verbatim", "word 04 0001", "dword 20 0000d001 rw 0000ffe0",
            "byte 40 01 rw 1f", "smbus-host pci a"]  # fmt: skip
SLAVE = ["smbus-eeprom 58", "smbus-bytes 4 99"]
HOST = [*FUNCTION, *SLAVE]
READ = "out8 d004 59 out8 d003 4 "
START = "out8 d002 48 "
STATUS = "in8 d000 "


def test_a_read_takes_its_time_and_ends_done(reads):
    words = READ + START + STATUS + wait(9) + STATUS + wait(1) + STATUS + "in8 d005"
    assert reads(words, *HOST) == [0x01, 0x41, 0x42, 0x99]


def test_a_write_reaches_the_slave_at_its_end(reads):
    write = "out8 d004 58 out8 d003 4 out8 d005 77 "
    words = write + START + wait(10) + STATUS + "out8 d005 0 " + READ + "out8 d000 ff " + START + wait(10) + "in8 d005"
    assert reads(words, *HOST) == [0x02, 0x77]


def test_a_status_bit_stays_until_it_is_written(reads):
    words = READ + START + wait(10) + STATUS + "out8 d000 fd " + STATUS + "out8 d000 42 " + STATUS
    assert reads(words, *HOST) == [0x02, 0x02, 0x00]


def test_the_semaphore_bit_reads_0_once_after_it_was_cleared(reads):
    words = STATUS * 2 + "out8 d000 bf " + STATUS + "out8 d000 40 " + STATUS * 2
    assert reads(words, *HOST) == [0, 0x40, 0x40, 0, 0x40]


@pytest.mark.parametrize("control", ["44", "4c", "54", "40", "c8"])
def test_commands_that_are_not_byte_data_end_as_device_errors(reads, control):
    assert reads(READ + f"out8 d002 {control} " + wait(10) + STATUS, *HOST) == [0x04]


def test_an_absent_slave_is_a_device_error_without_data(reads):
    assert reads("out8 d005 33 out8 d004 5b " + START + wait(10) + STATUS + "in8 d005", *HOST) == [0x04, 0x33]


def test_start_reads_as_0_and_the_other_control_bits_stay(reads):
    assert reads("out8 d002 81 in8 d002 " + START + "in8 d002", *HOST) == [0x81, 0x08]


def test_nothing_but_kill_is_taken_while_a_transaction_runs(reads):
    words = READ + START + "out8 d004 1 out8 d003 5 out8 d005 6 out8 d002 4 " + wait(10) + STATUS
    assert reads(words + "in8 d004 in8 d003 in8 d005 in8 d002", *HOST) == [0x02, 0x59, 0x04, 0x99, 0x08]


def test_kill_fails_the_transaction_and_stops_others_until_it_is_taken_back(reads):
    words = READ + START + "out8 d002 a " + STATUS + "out8 d000 50 " + "out8 d002 4a " + wait(10) + STATUS
    assert reads(words + START + wait(10) + STATUS, *HOST) == [0x10, 0x00, 0x42]


def test_a_collision_is_a_bus_error(reads):
    assert reads(READ + START + wait(10) + STATUS, *FUNCTION, "smbus-eeprom 58 collides 4") == [0x08]


def test_a_held_clock_times_out_after_25_ms(reads):
    lines = [*FUNCTION, "smbus-eeprom 58 holds 4"]
    words = READ + START + wait(10) + STATUS + wait(2000) + STATUS
    assert reads(words, *lines) == [0x01, 0x41]


@pytest.mark.parametrize("off", ["out32 cf8 8000fc04 out16 cfc 0 ", "out32 cf8 8000fc40 out8 cfc 0 "])
def test_a_host_that_is_switched_off_is_not_there(reads, off):
    back = off.replace(" 0 ", " 1 ")
    assert reads("in8 d003 " + off + "in8 d003 " + back + "in8 d003", *HOST) == [0, 0xFF, 0]


def test_the_host_moves_with_its_register(reads):
    words = "out8 d003 5 out32 cf8 8000fc20 out32 cfc d040 in8 d003 in8 d043"
    assert reads(words, *HOST) == [0xFF, 5]


def test_the_other_makers_host_is_placed_by_power_management_registers(reads):
    chipset = ["pci-ports", "pci 00:00.0 1022:1480 class 060000", "pci 00:14.0 1022:790b class 0c0500"]
    lines = [*chipset, "pm-registers", "pm-bytes 0 10 0b", "smbus-host pm 0", *SLAVE]
    words = "out8 b04 59 out8 b03 4 out8 b02 48 in8 b00 in8 b00 in8 b05 "
    moved = "out8 cd6 1 out8 cd7 c in8 b03 in8 c03 out8 cd6 0 out8 cd7 0 in8 c03"
    assert reads(words + moved, *lines) == [0x02, 0x02, 0x99, 0xFF, 4, 0xFF]


def test_power_management_registers_keep_what_is_written(reads):
    words = "out8 cd6 60 in8 cd7 out8 cd7 5 in8 cd7 out8 cd6 61 in8 cd7 in8 cd6"
    assert reads(words, "pm-registers", "pm-bytes 60 1 2") == [1, 5, 2, 0x61]


# ---- SMBus slaves ---------------------------------------------------------------------------------------------------


def quick(*lines):
    return [*FUNCTION[:-1], "smbus-host pci 0", *lines]


def read_byte(slave, offset):
    """The status and the data register after a read; a failure leaves the 0 that was there."""
    return f"out8 d000 ff out8 d005 0 out8 d004 {slave | 1:x} out8 d003 {offset:x} {START} in8 d000 in8 d005 "


def write_byte(slave, offset, data):
    return f"out8 d000 ff out8 d005 {data:x} out8 d004 {slave:x} out8 d003 {offset:x} {START} "


MODULE = quick("smbus-spd a0", "smbus-fill 0 100 11", "smbus-fill 100 100 22", "smbus-spd a2", "smbus-fill 100 1 33")


def test_the_pages_of_all_modules_are_selected_together(reads):
    words = read_byte(0xA0, 5) + write_byte(0x6E, 0, 0) + read_byte(0xA0, 5) + read_byte(0xA2, 0)
    assert reads(words + write_byte(0x6C, 9, 9) + read_byte(0xA0, 5), *MODULE)[1::2] == [0x11, 0x22, 0x33, 0x11]


def test_the_selected_page_can_be_read_at_the_first_page_address_alone(reads):
    words = read_byte(0x6C, 0) + read_byte(0x6E, 0) + write_byte(0x6E, 0, 0) + read_byte(0x6C, 0) + read_byte(0x6E, 0)
    assert reads(words, *MODULE)[::2] == [2, 4, 4, 4]


def test_reading_at_a_page_address_selects_nothing(reads):
    assert reads(read_byte(0x6E, 0) + read_byte(0xA0, 0), *MODULE)[3] == 0x11


def test_page_addresses_belong_to_modules(reads):
    assert reads(read_byte(0x6C, 0) + write_byte(0x6E, 0, 0) + "in8 d000", *quick("smbus-eeprom a0"))[::2] == [4, 4]


def test_a_slave_stops_at_its_offset_in_either_page(reads):
    lines = [*MODULE, "smbus-spd a0 stops 120"]
    words = read_byte(0xA0, 0x20) + write_byte(0x6E, 0, 0) + read_byte(0xA0, 0x1F) + read_byte(0xA0, 0x20)
    assert reads(words, *lines) == [2, 0x11, 2, 0x22, 4, 0]


def test_a_slave_is_away_while_it_stores_a_byte(reads):
    lines = quick("smbus-eeprom a8 write-time 20")
    words = write_byte(0xA8, 1, 7) + read_byte(0xA8, 1) + wait(31) + read_byte(0xA8, 1) + wait(1) + read_byte(0xA8, 1)
    assert reads(words, *lines) == [4, 0, 4, 0, 2, 7]


def test_slaves_are_filled_changed_and_removed(reads):
    lines = quick("smbus-eeprom 50", "smbus-fill 10 20 counting", "smbus-bytes 12 aa bb", "smbus-eeprom 52",
                  "smbus-remove 52")  # fmt: skip
    words = "".join(read_byte(0x50, offset) for offset in (0xF, 0x11, 0x12, 0x13, 0x14)) + read_byte(0x52, 0)
    values = reads(words, *lines)
    assert (values[1:10:2], values[10]) == ([0, 1, 0xAA, 0xBB, 4], 4)  # the last one did not acknowledge


@pytest.mark.parametrize("lines, words", [
    (["smbus-eeprom 51"], "bit 0 of an address"),
    (["smbus-eeprom 50 slow"], "none of"),
    (["smbus-bytes 0 1"], "no slave comes before"),
    (["smbus-eeprom 50", "smbus-bytes ff 1 2"], "beyond the slave's end"),
    (["smbus-spd a0", "smbus-fill 1 200 0"], "beyond the slave's end"),
    (["smbus-remove 50"], "no such slave"),
    (["smbus-host isa"], 'neither "pci" nor "pm"'),
    (["smbus-host pci"], "comes before"),
    (["pm-registers", "pm-bytes ff 1 2"], "256 registers"),
])  # fmt: skip
def test_mistakes_in_smbus_lines_are_told(complaint, lines, words):
    assert words in complaint(*lines)


# ---- I2C ------------------------------------------------------------------------------------------------------------

BASE = 0xFEDC2000
MAP = f"open /dev/mem rw map 3 {BASE:x} 1000 rw "
DATA, TAR, RAW, ENABLE, STATUS_I2C, TXFLR, RXFLR, SOURCE, ENABLED = 0x10, 4, 0x34, 0x6C, 0x70, 0x74, 0x78, 0x80, 0x9C
DEVICE = ["i2c-device 50", "i2c-words 0 2211 4433 6655"]


def get(register):
    return f"load mov32 {register:x} "


def put(register, value):
    return f"store mov32 {register:x} {value:x} "


def core(options=""):
    return [f"i2c-core {BASE:x} {options}", *DEVICE]


BEGIN = MAP + put(TAR, 0x50) + put(ENABLE, 1)


def test_a_core_tells_its_kind_and_depths(reads):
    assert reads(MAP + get(0xFC) + get(0xF4), *core("rx 1 tx 100")) == [0x44570140, 0x00FF00EA]


def test_a_read_goes_through_both_fifos(reads):
    words = BEGIN + put(DATA, 1) + put(DATA, 0x100) + put(DATA, 0x300) + get(TXFLR) + wait(5 * 90 + 1) + get(RXFLR)
    assert reads(words + get(DATA) + get(DATA) + get(RXFLR), *core()) == [3, 2, 0x33, 0x44, 0]


def test_a_byte_takes_its_time_behind_the_address(reads):
    words = BEGIN + put(DATA, 0x300) + wait(19) + get(RXFLR) + wait(1) + get(RXFLR)
    assert reads(words, *core("byte-time a")) == [0, 1]


def test_the_target_and_the_speed_are_not_taken_while_enabled(reads):
    words = BEGIN + put(TAR, 0x51) + put(0, 0x63) + put(0x14, 1) + put(0xA0, 7)
    assert reads(words + get(TAR) + get(0) + get(0x14) + get(0xA0), *core()) == [0x50, 0x7F, 0, 0]
    words = BEGIN + put(ENABLE, 0) + put(TAR, 0x51) + put(0, 0x63) + put(0x14, 0x12345) + put(0xA0, 7)
    assert reads(words + get(TAR) + get(0) + get(0x14) + get(0xA0), *core()) == [0x51, 0x63, 0x2345, 7]


def test_data_written_while_disabled_is_lost(reads):
    assert reads(MAP + put(DATA, 0x100) + get(TXFLR), *core()) == [0]


def test_an_overfull_transmit_fifo_loses_data_and_says_so(reads):
    words = BEGIN + (put(DATA, 1)) * 3 + get(TXFLR) + get(RAW) + get(0x4C) + get(RAW)
    assert reads(words, *core("tx 2")) == [2, 0x508, 1, 0x500]


def test_an_overfull_receive_fifo_loses_data_and_says_so(reads):
    words = BEGIN + put(DATA, 0x100) * 2 + put(DATA, 0x300) + get(RXFLR) + get(RAW) + get(DATA) + get(DATA) + get(0x48)
    assert reads(words, *core("rx 2 byte-time 0")) == [2, 0x716, 0x11, 0x22, 1]


def test_reading_an_empty_receive_fifo_is_an_underrun(reads):
    assert reads(MAP + get(DATA) + get(RAW) + get(0x44) + get(RAW), *core()) == [0, 1, 1, 0]


def test_an_absent_device_aborts_and_the_fifo_stays_flushed_until_that_is_cleared(reads):
    words = MAP + put(TAR, 0x51) + put(ENABLE, 1) + put(DATA, 1) + put(DATA, 0x200) + get(RAW) + get(SOURCE)
    assert reads(words + put(DATA, 1) + get(TXFLR) + get(0x54) + get(SOURCE) + get(RAW), *core("byte-time 0")) == [
        0x750, 1, 0, 1, 0, 0x710]  # fmt: skip


def test_a_byte_that_is_refused_aborts(reads):
    words = BEGIN + put(DATA, 1) + put(DATA, 2) + put(DATA, 0x203) + get(SOURCE) + get(STATUS_I2C)
    assert reads(words, f"i2c-core {BASE:x} byte-time 0", "i2c-device 50 refuses 2") == [8, 6]


def test_an_empty_fifo_without_a_stop_holds_the_bus_and_the_core_cannot_be_disabled(reads):
    words = BEGIN + put(DATA, 0) + get(STATUS_I2C) + put(ENABLE, 0) + get(ENABLED)
    assert reads(words, *core("byte-time 0")) == [0x27, 1]
    words = BEGIN + put(DATA, 0) + put(DATA, 0x200) + get(STATUS_I2C) + put(ENABLE, 0) + get(ENABLED)
    assert reads(words, *core("byte-time 0")) == [6, 0]


def test_a_core_that_is_sending_is_disabled_after_the_byte(reads):
    words = BEGIN + put(DATA, 0) + put(DATA, 0x200) + put(ENABLE, 0) + get(ENABLED) + wait(10) + get(ENABLED)
    assert reads(words, *core("byte-time a")) == [1, 0]


def test_disabling_empties_the_fifos(reads):
    words = BEGIN + put(DATA, 0x100) + put(DATA, 0x300) + get(RXFLR) + put(ENABLE, 0) + get(RXFLR)
    assert reads(words, *core("byte-time 0")) == [2, 0]


def test_reading_on_goes_on_and_writing_stores(reads):
    words = BEGIN + put(DATA, 2) + put(DATA, 0x99) + put(DATA, 0x2AA)
    words += put(DATA, 2) + put(DATA, 0x100) * 2 + put(DATA, 0x300) + get(DATA) * 3
    assert reads(words, *core("byte-time 0")) == [0x99, 0xAA, 0]


def test_narrow_accesses_reach_no_register(reads):
    words = MAP + f"store mov8 {TAR:x} 50 store mov16 {TAR:x} 50 load mov8 {TAR:x} load mov16 {TAR:x} " + get(TAR)
    assert reads(words, *core()) == [0xFF, 0xFFFF, 0x1055]


def test_a_core_that_is_no_master_aborts(reads):
    words = MAP + put(0, 0x62) + put(ENABLE, 1) + put(DATA, 0) + get(SOURCE)
    assert reads(words, *core()) == [0x800]


def test_cores_with_faults(reads):
    assert reads(MAP + put(ENABLE, 0) + get(ENABLED) + get(ENABLE), *core("never-disables")) == [1, 1]
    assert reads(MAP + get(STATUS_I2C), *core("stays-busy")) == [0x27]
    words = BEGIN + put(DATA, 0x300) + get(RXFLR) + get(RAW) + get(SOURCE)
    assert reads(words, *core("byte-time 0 abort-after 1 8")) == [1, 0x754, 8]


@pytest.mark.parametrize("lines, words", [
    (["i2c-core fedc2000 rx 0"], "1 to 256"),
    (["i2c-core fedc2000 fast"], "no such property"),
    (["i2c-device 50"], "comes before"),
    (["i2c-core fedc2000", "i2c-words 0 1"], "comes before"),
    (["i2c-core fedc2000", "i2c-device 50 slow"], "refuses"),
    (["i2c-core fedc2000", "i2c-device 50", "i2c-words ff 1 2"], "256 registers"),
])  # fmt: skip
def test_mistakes_in_i2c_lines_are_told(complaint, lines, words):
    assert words in complaint(*lines)


def test_a_sequence_reads_its_values_in_turn_and_keeps_nothing(reads):
    words = MAP + get(ENABLED) * 3 + put(ENABLED, 9) + get(ENABLED) + get(ENABLE)
    assert reads(words, *core(), f"sequence {BASE + ENABLED:x} 7 8") == [7, 8, 8, 8, 0]


# ---- system management network --------------------------------------------------------------------------------------

BRIDGE = ["pci-ports", "pci 00:00.0 1022:1480 class 060000", "smn", "smn-register 0 100 11223344",
          "smn-register 2 100 55667788 ro"]  # fmt: skip


def config(register, access):
    return f"out32 cf8 {0x80000000 | register & 0xFC:x} {access} "


def select(die, address):
    return config(0xC0, f"out32 cfc {die:x}") + config(0xC4, f"out32 cfc {address:x}")


def test_registers_of_several_dies(reads):
    words = "".join(select(die, 0x100) + config(0xC8, "in32 cfc") for die in (0, 2, 1))
    assert reads(words, *BRIDGE) == [0x11223344, 0x55667788, 0xFFFFFFFF]


def test_narrow_accesses_use_the_lanes_of_the_data_register(reads):
    words = select(0, 0x100) + config(0xC8, "in8 cfc in8 cfd in16 cfe out8 cfd ee out16 cfe abcd in32 cfc")
    assert reads(words, *BRIDGE) == [0x44, 0x33, 0x1122, 0xABCDEE44]


def test_the_low_address_bits_choose_nothing(reads):
    assert reads(select(0, 0x103) + config(0xC8, "in32 cfc"), *BRIDGE) == [0x11223344]


def test_read_only_and_absent_registers_keep_nothing(reads):
    write = config(0xC8, "out32 cfc 1 in32 cfc")
    words = select(2, 0x100) + write + select(0, 0x104) + write
    assert reads(words, *BRIDGE) == [0x55667788, 0xFFFFFFFF]


def test_the_first_pair_reaches_die_0_alone(reads):
    words = config(0xC0, "out32 cfc 2") + config(0xB8, "out32 cfc 100") + config(0xBC, "in32 cfc")
    assert reads(words, *BRIDGE) == [0x11223344]


MAILBOX = [*BRIDGE, "smu-mailbox 14", "smu-reply 4 1 77", "smu-reply 6 0"]
MESSAGE, RESPONSE, ARGUMENT = 0x3B10528, 0x3B10564, 0x3B10598


def smu_get(register):
    return config(0xB8, f"out32 cfc {register:x}") + config(0xBC, "in32 cfc")


def smu_put(register, value):
    return config(0xB8, f"out32 cfc {register:x}") + config(0xBC, f"out32 cfc {value:x}")


def test_a_message_is_answered_in_time_and_leaves_its_answers(reads):
    words = smu_get(RESPONSE) + smu_put(RESPONSE, 0) + smu_put(ARGUMENT, 1) + smu_put(ARGUMENT + 4, 2)
    words += smu_put(MESSAGE, 4) + wait(19) + smu_get(RESPONSE) + wait(1) + smu_get(RESPONSE)
    words += smu_get(ARGUMENT) + smu_get(ARGUMENT + 4)
    assert reads(words, *MAILBOX) == [1, 0, 1, 0x77, 2]


def test_arguments_written_after_the_message_are_lost(reads):
    words = smu_put(MESSAGE, 4) + smu_put(ARGUMENT + 4, 9) + wait(20) + smu_get(ARGUMENT + 4)
    assert reads(words, *MAILBOX) == [0]


def test_a_message_while_another_is_worked_on_is_lost(reads):
    words = smu_put(RESPONSE, 0) + smu_put(MESSAGE, 4) + smu_put(MESSAGE, 9) + wait(20) + smu_get(RESPONSE)
    assert reads(words + smu_get(MESSAGE), *MAILBOX) == [1, 4]


def test_a_response_that_is_not_cleared_is_the_one_before(reads):
    assert reads(smu_put(MESSAGE, 9) + smu_get(RESPONSE) + wait(20) + smu_get(RESPONSE), *MAILBOX) == [1, 0xFE]


def test_an_answer_of_0_never_comes(reads):
    assert reads(smu_put(RESPONSE, 0) + smu_put(MESSAGE, 6) + wait(500) + smu_get(RESPONSE), *MAILBOX) == [0]


def test_mistakes_in_smn_lines_are_told(complaint):
    assert "comes before" in complaint("smn")
    assert "comes before" in complaint("smu-reply 1 1")
