"""/I2C: registers of devices behind the DesignWare cores of an AMD controller hub.

The amd board has six cores; their FIFO depths are 64, 1, 2, 16, 1 (receive) with 64 (transmit), and 256. Bytes take no
time on the bus unless a test says so, and each wait then ends with its first poll.
"""

import pytest

from expected import CLEAR, I2C_USAGE, assert_run, legacy, mapped, session
from harness import signal, signal_behind

CORES = [0xFEDC2000, 0xFEDC3000, 0xFEDC4000, 0xFEDC5000, 0xFEDC6000, 0xFEDCB000]
DEPTHS = [(64, 64), (1, 1), (2, 2), (16, 16), (1, 64), (256, 256)]  # receive, transmit
WORDS = [(0x1234, 0x5678), (0x1111, 0x2222), (0x3333, 0x4444), (0x5555, 0x6666), (0x9999, 0xAAAA), (0xBBBB, 0xCCCC)]
AMD = legacy("00:00.0", 0, "in16 0cfc -> 1022")

IC_CON, IC_TAR, IC_DATA_CMD = 0x00, 0x04, 0x10
IC_INTR_MASK, IC_RAW_INTR_STAT, IC_CLR_INTR, IC_CLR_TX_ABRT = 0x30, 0x34, 0x40, 0x54
IC_ENABLE, IC_STATUS, IC_RXFLR, IC_TX_ABRT_SOURCE = 0x6C, 0x70, 0x78, 0x80
IC_ENABLE_STATUS, IC_FS_SPKLEN, IC_COMP_PARAM_1 = 0x9C, 0xA0, 0xF4

READ, STOP = 0x100, 0x200
FREE, HELD = 0x06, 0x27  # IC_STATUS: transmit FIFO empty and not full, bus idle or held
TARGET_AFTER_RESET = 0x1055
RAW_RECEIVED = 0x714  # start, stop and activity seen, transmit FIFO empty, something received


def delay(count):
    return ["out8 00ed 00"] * count


def set_to(core, register, value):
    return mapped(core & ~0xFFF, f"mw32 {core + register:08x} {value:08x}")


def reads(core, register, value):
    return mapped(core & ~0xFFF, f"mr32 {core + register:08x} -> {value:08x}")


def joined(*steps):
    return [line for step in steps for line in step]


def disabled(core):
    return set_to(core, IC_ENABLE, 0) + reads(core, IC_ENABLE_STATUS, 0)


def enabled(core):
    return set_to(core, IC_ENABLE, 1) + reads(core, IC_ENABLE_STATUS, 1)


def parameters(core):
    receive, transmit = DEPTHS[CORES.index(core)]
    return 0xEA | (receive - 1) << 8 | (transmit - 1) << 16


def readied(core):
    """Disabling, the interrupts, the depths, then 100 kHz from a clock of 150 MHz."""
    counts = {0x14: 642, 0x18: 749, 0x1C: 132, 0x20: 239, 0x24: 132, 0x28: 239}
    return joined(
        disabled(core), set_to(core, IC_INTR_MASK, 0), reads(core, IC_CLR_INTR, 0), reads(core, IC_CLR_TX_ABRT, 0),
        reads(core, IC_COMP_PARAM_1, parameters(core)),
        disabled(core), set_to(core, IC_CON, 0x63), set_to(core, IC_FS_SPKLEN, 7), set_to(core, IC_FS_SPKLEN, 7),
        *(set_to(core, register, count) for register, count in counts.items()),
    )  # fmt: skip


def targeted(core, slave, before=TARGET_AFTER_RESET):
    """The waits behind disabling and enabling are made twice: once polling first, once with the delay first."""
    poll = delay(25)
    return joined(
        reads(core, IC_TAR, before),
        disabled(core), poll, reads(core, IC_ENABLE_STATUS, 0),
        set_to(core, IC_TAR, slave),
        enabled(core), poll, reads(core, IC_ENABLE_STATUS, 1),
        reads(core, IC_TAR, slave),
    )  # fmt: skip


def begun(core, cleared=0):
    return joined(reads(core, IC_STATUS, FREE), set_to(core, IC_INTR_MASK, 0), reads(core, IC_CLR_INTR, cleared),
                  enabled(core))  # fmt: skip


def chunks(data, depth):
    return [data[i : i + depth] for i in range(0, len(data), depth)]


def sent(core, data, last=False):
    """Write phase in pieces of the transmit FIFO's depth; a STOP with the last byte when nothing is read."""
    commands = [byte | (STOP if last and i == len(data) - 1 else 0) for i, byte in enumerate(data)]
    pieces = chunks(commands, DEPTHS[CORES.index(core)][1])
    steps = []
    for i, piece in enumerate(pieces):
        free = last and i == len(pieces) - 1
        steps += [set_to(core, IC_DATA_CMD, command) for command in piece]
        steps.append(reads(core, IC_STATUS, FREE if free else HELD))
    return joined(*steps)


def received(core, data):
    """Read phase in pieces of the receive FIFO's depth, the STOP with the last command."""
    steps = []
    pieces = chunks(data, DEPTHS[CORES.index(core)][0])
    for i, piece in enumerate(pieces):
        last = i == len(pieces) - 1
        commands = [READ] * (len(piece) - 1) + [READ | (STOP if last else 0)]
        steps += [set_to(core, IC_DATA_CMD, command) for command in commands]
        steps.append(reads(core, IC_RXFLR, len(piece)))
        raw = RAW_RECEIVED if last else RAW_RECEIVED & ~0x200
        for byte in piece:
            steps += [reads(core, IC_RAW_INTR_STAT, raw), reads(core, IC_DATA_CMD, byte)]
    return joined(*steps)


def low_high(value):
    return [value & 0xFF, value >> 8]


def register_read(core, register, value, cleared=0):
    return begun(core, cleared) + sent(core, [register]) + received(core, low_high(value)) + disabled(core)


def register_written(core, register, value):
    return begun(core) + sent(core, [register, *low_high(value)], last=True) + disabled(core)


def at_once(bus):
    return f"i2c-core {CORES[bus]:x} byte-time 0"


def read_line(slave, register, value):
    return f"I2C read slave addr 0x{slave:02X} offset 0x{register:02X}: 0x{value:04X}\n"


def write_line(slave, register, value):
    return read_line(slave, register, value).replace("read", "write")


def read_failed(slave, register):
    return f"Read addr 0x{slave:02X} offset 0x{register:02X} error!\n"


INIT_FAILED = "I2C init error\n"


def accesses(result):
    """Loads and stores of the registers, with their values; the polls' delays and the mappings left out."""
    return result.memory_accesses()


# ---- transfers ------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("bus", range(6))
def test_a_read_writes_the_offset_and_reads_two_bytes_in_pieces_of_the_fifos(run, bus):
    core, value = CORES[bus], WORDS[bus][1]
    result = run(f"/I2C /RB {bus} 0x50 1", board="amd", extra=at_once(bus))
    steps = [AMD, readied(core), targeted(core, 0x50), register_read(core, 1, value)]
    assert_run(result, read_line(0x50, 1, value), value, *steps)


@pytest.mark.parametrize("bus", range(6))
def test_a_write_sends_three_bytes_in_pieces_of_the_fifo_and_is_read_back(run, bus):
    core = CORES[bus]
    result = run(f"/I2C /WB {bus} 0x50 0x10 0x1234", board="amd", extra=at_once(bus))
    seen = 1  # reading IC_CLR_INTR tells that something was cleared: the write's start and stop
    steps = [AMD, readied(core), targeted(core, 0x50), register_written(core, 0x10, 0x1234),
             reads(core, IC_TAR, 0x50), register_read(core, 0x10, 0x1234, seen)]  # fmt: skip
    assert_run(result, write_line(0x50, 0x10, 0x1234), 0x34, *steps)


@pytest.mark.parametrize("word", ["/RB", "/RW", "/RD"])
def test_a_read_of_any_width_is_one_of_16_bits(run, word):
    result = run(f"/I2C {word} 0 0x50 1", board="amd")
    assert (result.text, result.status) == (read_line(0x50, 1, 0x5678), 0x78)


@pytest.mark.parametrize("word", ["/WB", "/WW", "/WD"])
@pytest.mark.parametrize("data, value", [("0xab", 0xAB), ("0x1234", 0x1234), ("0x12345", 0x2345), ("65535", 0xFFFF),
                                         ("", 0)])
def test_a_write_of_any_width_is_one_of_16_bits(run, word, data, value):
    result = run(f"/I2C {word} 0 0x50 2 {data}", board="amd")
    assert (result.text, result.status) == (write_line(0x50, 2, value), value & 0xFF)


def test_a_byte_is_sent_with_an_empty_high_byte(run):
    log = accesses(run("/I2C /WB 0 0x50 0x10 0xAB", board="amd", extra=at_once(0)))
    data = [line for line in log if line.startswith("mw32 fedc2010")]
    assert data[:3] == ["mw32 fedc2010 00000010", "mw32 fedc2010 000000ab", "mw32 fedc2010 00000200"]


def test_each_bus_has_its_own_core(run):
    for bus, (first, second) in enumerate(WORDS):
        assert run(f"/I2C /RB {bus} 0x50 0", board="amd").text == read_line(0x50, 0, first)
        assert run(f"/I2C /RB {bus} 0x50 1", board="amd").text == read_line(0x50, 1, second)


def test_devices_of_a_bus_are_told_apart_by_their_7_bit_addresses(run):
    assert run("/I2C /RB 3 0x2c 0xfe", board="amd").text == read_line(0x2C, 0xFE, 0x7777)
    assert run("/I2C /RB 3 0x2c 0xff", board="amd").text == read_line(0x2C, 0xFF, 0x8888)
    assert run("/I2C /RB 3 0x50 0xff", board="amd").text == read_line(0x50, 0xFF, 0)


def test_a_target_that_is_set_already_is_not_set_again(run):
    # The write sets it, the read-back finds it.
    log = accesses(run("/I2C /WB 0 0x50 1 2", board="amd"))
    assert log.count("mw32 fedc2004 00000050") == 1
    assert log.count("mr32 fedc2004 -> 00000050") == 2


@pytest.mark.parametrize("args, line", [
    ("/RB 0 0x150 0x101", read_line(0x50, 1, 0x5678)),  # slave and offset are bytes
    ("/RB 0x100000000 80 257", read_line(0x50, 1, 0x5678)),  # and the bus number has 32 bits
    ("/RB 0 0xd0 0", read_line(0xD0, 0, 0x1234)),  # bit 7 is sent to nobody
    ("/RB 0 0x50", read_line(0x50, 0, 0x1234)),
    ("/RB 0", read_failed(0, 0)),
    ("/RB", read_failed(0, 0)),
    ("/RB 5 0xff 0xff", read_failed(0xFF, 0xFF)),
    ("/WB 0 0x150 0x101 0x10009", write_line(0x50, 1, 9)),
    ("/WB 0 0x50", write_line(0x50, 0, 0)),
])  # fmt: skip
def test_operands_are_cut_and_missing_ones_are_0(run, args, line):
    assert run(f"/I2C {args}", board="amd").text == line


# ---- the bus takes its time -----------------------------------------------------------------------------------------


def test_each_wait_polls_and_then_delays_until_it_is_over(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra="i2c-core fedc2000 byte-time 64")  # 100 us
    log = [line for line in result.log if line.startswith(("mr32 fedc2070", "mr32 fedc2078", "out8 00ed"))]
    first = log.index("mr32 fedc2070 -> 00000006")
    # The offset is on its way when the address has been sent, after four polls.
    status = [*(["mr32 fedc2070 -> 00000023"] + delay(25)) * 4, "mr32 fedc2070 -> 00000027"]
    # The first byte is there when the offset, the address and it have been sent, the second 100 us later.
    level = [f"mr32 fedc2078 -> 0000000{n}" for n in [0] * 12 + [1] * 4]
    fill = [line for poll in level for line in ([poll] + delay(25))] + ["mr32 fedc2078 -> 00000002"]
    assert log[first:] == ["mr32 fedc2070 -> 00000006", *status, *fill]


def test_a_bus_of_real_speed_gives_the_same(run):
    for bus, (_, value) in enumerate(WORDS):
        result = run(f"/I2C /RB {bus} 0x50 1", board="amd", extra=f"i2c-core {CORES[bus]:x} byte-time 5a")
        assert result.text == read_line(0x50, 1, value)
    assert run("/I2C /WB 1 0x50 1 0x789a", board="amd").text == write_line(0x50, 1, 0x789A)


def test_a_receive_fifo_that_does_not_fill_is_waited_for_100_polls(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra=[at_once(0), "sequence fedc2078 1"])
    core = CORES[0]
    assert (result.text, result.status) == (read_failed(0x50, 1), 0xFF)
    polls = (reads(core, IC_RXFLR, 1) + delay(25)) * 100
    ending = joined(polls, set_to(core, IC_DATA_CMD, STOP), disabled(core))
    assert result.log[-2 - len(ending) : -2] == ending


def test_a_transmit_fifo_that_does_not_drain_is_waited_for_100_polls(run):
    write_failed = "Write addr 0x50 offset 0x01 error!\n"
    for args, text in (("/RB 0 0x50 1", read_failed(0x50, 1)), ("/WB 0 0x50 1 2", write_failed)):
        result = run(f"/I2C {args}", board="amd", extra=[at_once(0), "sequence fedc2070 6 2"])
        core = CORES[0]
        assert (result.text, result.status) == (text, 0xFF)
        ending = joined((reads(core, IC_STATUS, 2) + delay(25)) * 100, set_to(core, IC_DATA_CMD, STOP), disabled(core))
        assert result.log[-2 - len(ending) : -2] == ending


# ---- nobody acknowledges --------------------------------------------------------------------------------------------


def test_an_absent_device_is_a_failed_read_that_ends_with_stop_and_a_disabled_core(run):
    result = run("/I2C /RB 0 0x51 1", board="amd")
    core = CORES[0]
    ending = joined(reads(core, IC_RXFLR, 0), delay(25), set_to(core, IC_DATA_CMD, STOP), disabled(core))
    assert (result.text, result.status) == (read_failed(0x51, 1), 0xFF)
    assert result.log[-2 - len(ending) : -2] == ending


def test_an_offset_that_is_not_acknowledged_is_a_failed_read(run):
    extra = ["i2c-core fedc2000", "i2c-device 50 refuses 1"]
    assert run("/I2C /RB 0 0x50 1", board="amd", extra=extra).text == read_failed(0x50, 1)


@pytest.mark.parametrize("extra", ["", "i2c-device 50 refuses 1", "i2c-device 50 refuses 2", "i2c-device 50 refuses 3"])
def test_a_write_does_not_look_for_acknowledges(run, extra):
    # The read-back fails as well, or gives what is there.
    slave = 0x50 if extra else 0x51
    result = run(f"/I2C /WB 0 {slave} 1 0x9abc", board="amd", extra=["i2c-core fedc2000", extra])
    found = {"": 0x9ABC, "i2c-device 50 refuses 1": 0x9ABC, "i2c-device 50 refuses 2": 0x5678,
             "i2c-device 50 refuses 3": 0x56BC}[extra]  # fmt: skip
    assert (result.text, result.status) == (write_line(slave, 1, found), found & 0xFF)


# ---- errors that the core reports -----------------------------------------------------------------------------------

TARGET_TAKEN_BACK = "mw32 fedc2004 00000000"


@pytest.mark.parametrize("source", [0x01, 0x02, 0x40, 0x43, 0x1001])
def test_an_abort_by_an_address_fails_the_read(run, source):
    core = CORES[0]
    extra = [at_once(0), f"i2c-core fedc2000 abort-after 2 {source:x}"]
    result = run("/I2C /RB 0 0x50 1", board="amd", extra=extra)
    ending = joined(
        reads(core, IC_RXFLR, 2),
        reads(core, IC_RAW_INTR_STAT, RAW_RECEIVED | 0x40),
        reads(core, IC_TX_ABRT_SOURCE, source), reads(core, IC_CLR_TX_ABRT, 1),
        disabled(core), delay(25), reads(core, IC_ENABLE_STATUS, 0), set_to(core, IC_TAR, 0),
        set_to(core, IC_DATA_CMD, STOP), disabled(core),
    )  # fmt: skip
    assert (result.text, result.status) == (read_failed(0x50, 1), 0xFF)
    assert result.log[-2 - len(ending) : -2] == ending


@pytest.mark.parametrize("source", [0x04, 0x08, 0x10, 0x20, 0x80, 0x1000, 0x10000, 0xFFFFFFBC])
def test_an_abort_for_another_reason_does_not(run, source):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra=[at_once(0), f"i2c-core fedc2000 abort-after 2 {source:x}"])
    assert (result.text, result.status) == (read_line(0x50, 1, 0x5678), 0x78)
    assert accesses(result).count(f"mr32 fedc2080 -> {source:08x}") == 1
    assert TARGET_TAKEN_BACK not in accesses(result)


@pytest.mark.parametrize("raw, clearing", [(1, [0x44]), (2, [0x48]), (3, [0x44, 0x48])])
def test_a_receive_fifo_read_empty_or_overfull_fails_the_read(run, raw, clearing):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra=[at_once(0), f"sequence fedc2034 {raw}"])
    log = accesses(result)
    at = log.index(f"mr32 fedc2034 -> {raw:08x}")
    cleared = [f"mr32 fedc20{register:02x} -> 00000000" for register in clearing]
    assert (result.text, log[at + 1 : at + 1 + len(cleared)]) == (read_failed(0x50, 1), cleared)
    assert TARGET_TAKEN_BACK in log


# ---- cores that do not do as they are told --------------------------------------------------------------------------


def assert_fails(result, text, *ending):
    assert (result.text, result.status) == (text, 0xFF)
    lines = joined(*ending)
    assert result.log[-2 - len(lines) : -2] == lines


def status_polls(value, count=10):
    return (reads(CORES[0], IC_ENABLE_STATUS, value) + delay(25)) * count


def test_a_core_that_never_disables_cannot_be_readied(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra="i2c-core fedc2000 never-disables")
    assert_run(result, INIT_FAILED, -1, AMD, set_to(CORES[0], IC_ENABLE, 0), status_polls(1))


def test_a_core_that_does_not_disable_for_its_speed_cannot_be_readied(run):
    result = run("/I2C /WB 0 0x50 1 2", board="amd", extra="sequence fedc209c 0 1")
    assert_fails(result, INIT_FAILED, set_to(CORES[0], IC_ENABLE, 0), status_polls(1))


def test_a_core_that_does_not_disable_for_its_target_fails_the_transfer_at_once(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra="sequence fedc209c 0 0 1")
    assert_fails(result, read_failed(0x50, 1), set_to(CORES[0], IC_ENABLE, 0), status_polls(1))


def test_a_core_that_wakes_up_before_its_target_is_set_has_it_taken_back(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra="sequence fedc209c 0 0 0 1")
    polls = (delay(25) + reads(CORES[0], IC_ENABLE_STATUS, 1)) * 10
    assert_fails(result, read_failed(0x50, 1), reads(CORES[0], IC_ENABLE_STATUS, 0), polls, set_to(CORES[0], IC_TAR, 0))


def test_a_core_that_does_not_enable_for_its_target_has_it_taken_back(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra="sequence fedc209c 0")
    polls = (delay(25) + reads(CORES[0], IC_ENABLE_STATUS, 0)) * 10
    core = CORES[0]
    assert_fails(result, read_failed(0x50, 1), set_to(core, IC_TAR, 0x50), set_to(core, IC_ENABLE, 1), status_polls(0),
                 polls, set_to(core, IC_TAR, 0))  # fmt: skip


def test_a_late_enable_is_waited_for(run):
    # Two disables, the target's two waits for it, then the first wait for enable runs out and the second does not.
    extra = [at_once(0), "sequence fedc209c 0 0 0 0 " + "0 " * 19 + "1 1 0"]
    assert run("/I2C /RB 0 0x50 1", board="amd", extra=extra).text == read_line(0x50, 1, 0x5678)


def test_a_target_that_does_not_read_back_fails_the_transfer(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra="sequence fedc2004 55 51")
    assert_fails(result, read_failed(0x50, 1), reads(CORES[0], IC_ENABLE_STATUS, 1), reads(CORES[0], IC_TAR, 0x51))


def test_a_bus_that_stays_busy_is_waited_for_20_polls_and_the_core_disabled_without_a_stop(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra="i2c-core fedc2000 stays-busy")
    polls = (reads(CORES[0], IC_STATUS, 0x27) + delay(1000)) * 20
    assert_fails(result, read_failed(0x50, 1), polls, disabled(CORES[0]))


def test_a_core_that_does_not_enable_for_the_transfer_is_disabled_without_a_stop(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra="sequence fedc209c 0 0 0 0 1 1 0")
    core = CORES[0]
    assert_fails(result, read_failed(0x50, 1), reads(core, IC_CLR_INTR, 0), set_to(core, IC_ENABLE, 1), status_polls(0),
                 disabled(core))  # fmt: skip


def test_a_core_that_does_not_disable_at_the_end_is_waited_for_and_the_value_is_good(run):
    result = run("/I2C /RB 0 0x50 1", board="amd", extra=[at_once(0), "sequence fedc209c 0 0 0 0 1"])
    assert result.text == read_line(0x50, 1, 0x5678)
    ending = set_to(CORES[0], IC_ENABLE, 0) + status_polls(1)
    assert result.log[-2 - len(ending) : -2] == ending


@pytest.mark.parametrize("extra", ["hole fedc2000 1000", "refuse fedc2000 1000 EPERM", "mem ENOENT"])
@pytest.mark.parametrize("args", ["/RB 0 0x50 1", "/WB 0 0x50 1 2"])
def test_a_core_that_reads_as_all_ones_cannot_be_readied(run, args, extra):
    result = run(f"/I2C {args}", board="amd", extra=extra)
    assert (result.text, result.status) == (INIT_FAILED, 0xFF)
    assert len(result.ports()) == 2 and result.ports(delays=True).count("out8 00ed 00") == 2 + 250


# ---- which cores there are ------------------------------------------------------------------------------------------


@pytest.mark.parametrize("bus", ["6", "7", "255", "0xffffffff", "0x100000006"])
@pytest.mark.parametrize("form", ["/RB {} 0x50 1", "/WB {} 0x50 1 2"])
def test_there_are_six_buses(run, form, bus):
    assert_run(run(f"/I2C {form.format(bus)}", board="amd"), INIT_FAILED, -1, AMD)


@pytest.mark.parametrize("board, maker", [("intel", "8086"), ("unknown", "ffff")])
@pytest.mark.parametrize("args", ["/RB 0 0x50 1", "/WD 5 0x50 1 2", "/RB 6 0 0"])
def test_other_makers_chipsets_are_refused(run, board, maker, args):
    result = run(f"/I2C {args}", board=board)
    assert_run(result, INIT_FAILED, -1, legacy("00:00.0", 0, f"in16 0cfc -> {maker}"))


@pytest.mark.parametrize("board", ["hygon", "ati"])
def test_machines_of_amd_kind_are_served(run, board):
    assert run("/I2C /RB 0 0x50 1", board=board).text == read_line(0x50, 1, 0x5678)


# ---- which of the forms ---------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args", ["", "/RI 0 0x50 1", "/RQ 0 0x50 1", "/WI 0 0x50 1", "/WQ 0 0x50 1", "/DUMP 0",
                                  "0 0x50"])
def test_without_a_form_nothing_is_accessed(run, args):
    assert_run(run(f"/I2C {args}", board="amd"), "", 0xFFFF)


@pytest.mark.parametrize("args, text", [
    ("/WB 0 0x50 1 2 /RB 0 0x50 0", read_line(0x50, 0, 0x1234)),
    ("/RD 1 0x50 0 /RW 2 0x50 0", read_line(0x50, 0, 0x3333)),
    ("/RD 1 0x50 0 /RW 2 0x50 0 /RB 3 0x50 0", read_line(0x50, 0, 0x5555)),
    ("/WD 1 0x50 0 1 /WW 2 0x50 0 2", write_line(0x50, 0, 2)),
    ("/WD 1 0x50 0 1 /WW 2 0x50 0 2 /WB 3 0x50 0 3", write_line(0x50, 0, 3)),
    ("/RI /WB 0 0x50 1 2", ""),  # a read of a width that there is not is a read
])  # fmt: skip
def test_reading_comes_before_writing_and_the_narrow_word_before_the_wide(run, args, text):
    assert run(f"/I2C {args}", board="amd").text == text


@pytest.mark.parametrize("args", ["/?", "/RB 0 0x50 1 /H"])
def test_help_touches_no_hardware(run, args):
    assert_run(run(f"/I2C {args}", board="amd"), I2C_USAGE, 2, CLEAR)


def test_the_core_is_disabled_at_the_end_of_every_transfer(run):
    for args in ("/RB 0 0x50 1", "/WB 0 0x50 1 2", "/RB 0 0x51 1", "/WB 0 0x51 1 2"):
        result = run(f"/I2C {args}", board="amd")
        assert result.log[-2 - len(disabled(CORES[0])) :] == disabled(CORES[0]) + session()[-2:]


# ---- signals --------------------------------------------------------------------------------------------------------

ENABLE = "mw32 fedc206c 00000001"
DISABLE = "mw32 fedc206c 00000000"
BUSY = ["i2c-core fedc2000 stays-busy", "unlogged 00ed 1"]


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
@pytest.mark.parametrize("args", ["/RB 0 0x50 1", "/WB 0 0x50 1 2"])
def test_a_signal_while_a_core_is_enabled_acts_after_it_is_disabled(run, args, number):
    # The core is enabled for its target; then the busy bus is waited for.
    whole = run(f"/I2C {args}", board="amd", extra=BUSY).log
    stopped = signal_behind(whole[: whole.index(ENABLE) + 1], number)
    result = run(f"/I2C {args}", board="amd", extra=BUSY, runner=stopped)
    enables = [line for line in accesses(result) if line in (ENABLE, DISABLE)]
    assert (result.status, enables[-2:]) == (-number, [ENABLE, DISABLE])
