"""/SMBUS: byte transfers, dumps and scans through the chipset's SMBus host controller.

The boards' slaves are those of boards/smbus-slaves.board. A transaction takes 5 us; each poll of the status is two
delay units long, so the third one sees its end.
"""

import re

import pytest

from expected import CLEAR, DELAY, SMBUS_USAGE, assert_run, hex_view, legacy, on_screen, place, session
from harness import WRAPPER, signal, signal_behind

UNIT = ["out8 00ed 00"]
INTEL, AMD = 0xEFA0, 0x0B00  # the host's ports on the boards
HOST_STS, HOST_CNT, HOST_CMD, SLAVE, DATA = 0, 2, 3, 4, 5
QUIET = ["unlogged 00ed 1"]

# Status bytes as polled. Intel's bit 6 is a semaphore: it reads 0 after a 1 was written to it, then 1.
DONE, DEVICE_ERROR, BUS_ERROR = 0x02, 0x04, 0x08
BUSY = {INTEL: [0x01, 0x41], AMD: [0x01, 0x01]}


def paced(*lines):
    """Each access to the host comes behind one delay unit."""
    return [line for access in lines for line in (*UNIT, access)]


def out(port, value):
    return f"out8 {port:04x} {value:02x}"


def seen(port, value):
    return f"in8 {port:04x} -> {value:02x}"


def started(base, end, busy=None):
    """Clearing the status, starting, polling to that end, and clearing what it left."""
    statuses = [*(BUSY[base] if busy is None else busy), end | (0x40 if base == INTEL else 0)]
    polls = [UNIT + paced(seen(base, status)) for status in statuses]
    return (paced(out(base, 0xFF), out(base + HOST_CNT, 0x48)) + [line for poll in polls for line in poll]
            + paced(out(base, statuses[-1])))


def reading(base, slave, offset, data, end=DONE):
    """The accesses of one byte read."""
    end_of_it = paced(seen(base + DATA, data)) if end != DEVICE_ERROR else given_up(base)
    return paced(out(base + SLAVE, slave | 1), out(base + HOST_CMD, offset)) + started(base, end) + end_of_it


def writing(base, slave, offset, data, end=DONE):
    setting = paced(out(base + DATA, data), out(base + SLAVE, slave & 0xFE), out(base + HOST_CMD, offset))
    return setting + started(base, end) + ([] if end != DEVICE_ERROR else given_up(base))


def given_up(base):
    """After a failure: START reads as 0, KILL is not set."""
    return paced(seen(base + HOST_CNT, 0x08), out(base + HOST_CNT, 0x81))


def functions_up_to(last):
    """All function addresses in the order of the class search, ending with that one."""
    for bus in range(256):
        for device in range(32):
            for function in range(8):
                name = f"{bus:02x}:{device:02x}.{function}"
                yield name
                if name == last:
                    return


FOUND = {INTEL: "00:1f.4", AMD: "00:14.0"}
MAKER = {INTEL: "8086", AMD: "1022"}


def host_found(base):
    """Everything before the first transaction. The classes that other functions read as are not looked at."""
    function = FOUND[base]
    maker = legacy("00:00.0", 0, f"in16 0cfc -> {MAKER[base]}")
    search = [line for name in functions_up_to(function) for line in legacy(name, 0x0A, "in16 0cfe")]
    command = {INTEL: "00000003", AMD: "00000403"}[base]
    enabled = legacy(function, 0x04, f"in32 0cfc -> {command}")
    if base == INTEL:
        return maker + search + enabled + legacy(function, 0x20, "in32 0cfc -> 0000efa1")
    high = [*DELAY, "out8 0cd6 01", "in8 0cd7 -> 0b"]
    low = [*DELAY, "out8 0cd6 00", "in8 0cd7 -> 10"]
    return maker + search + enabled + high + low


def without_classes(log):
    return [re.sub("^in16 0cfe -> .*", "in16 0cfe", line) for line in log]


def assert_smbus(result, base, text, status, *steps):
    """The whole outcome and all accesses of a run that finds its host."""
    assert (result.text, result.err, result.status) == (text, b"", status & 0xFF)
    assert without_classes(result.log) == session(host_found(base), *steps)


def transfers(result, base):
    """The transactions started: (slave byte, offset) each."""
    slave = offset = None
    found = []
    for line in result.log:
        words = line.split()
        if words[:2] == ["out8", f"{base + SLAVE:04x}"]:
            slave = int(words[2], 16)
        if words[:2] == ["out8", f"{base + HOST_CMD:04x}"]:
            offset = int(words[2], 16)
        if words == ["out8", f"{base + HOST_CNT:04x}", "48"]:
            found.append((slave, offset))
    return found


def page_of(slave):
    """The transfers that read a slave's 256 offsets."""
    return [(slave | 1, offset) for offset in range(256)]


def read_line(slave, offset, data):
    return f"SMBus read slave addr 0x{slave:02X} offset 0x{offset:02X}: 0x{data:02X}\n"


def write_line(slave, offset, data):
    return read_line(slave, offset, data).replace("read", "write")


def read_failed(slave, offset):
    return f"Read addr 0x{slave:02X} offset 0x{offset:02X} error!\n"


def write_failed(slave, offset):
    return read_failed(slave, offset).replace("Read", "Write")


ON = pytest.mark.parametrize("board, base", [("intel", INTEL), ("amd", AMD)])

# ---- bytes ----------------------------------------------------------------------------------------------------------


@ON
@pytest.mark.parametrize("word", ["/RB", "/RW", "/RD"])
def test_a_read_of_any_width_is_one_byte_read(run, board, base, word):
    result = run(f"/SMBUS {word} 0xa0 2", board=board)
    assert_smbus(result, base, read_line(0xA0, 2, 0x0C), 0x0C, reading(base, 0xA0, 2, 0x0C))


@ON
@pytest.mark.parametrize("word", ["/WB", "/WW", "/WD"])
def test_a_write_of_any_width_is_one_byte_written_and_read_back(run, board, base, word):
    result = run(f"/SMBUS {word} 0x58 1 0x37", board=board)
    steps = [writing(base, 0x58, 1, 0x37), reading(base, 0x58, 1, 0x37)]
    assert_smbus(result, base, write_line(0x58, 1, 0x37), 0x37, *steps)


def test_both_names_of_the_command_are_one(run):
    assert run("/SMB /RB 0xa0 2").log == run("/SMBUS /RB 0xa0 2").log


@pytest.mark.parametrize("typed", [0xA0, 0xA1])
def test_bit_0_of_the_address_follows_from_the_direction(run, typed):
    result = run(f"/SMBUS /RB {typed} 2")
    assert (result.text, transfers(result, INTEL)) == (read_line(typed, 2, 0x0C), [(0xA1, 2)])
    result = run(f"/SMBUS /WB {typed} 2 9", extra="smbus-eeprom a0")
    assert (result.text, transfers(result, INTEL)) == (write_line(typed, 2, 9), [(0xA0, 2), (0xA1, 2)])


@pytest.mark.parametrize("args, line, done", [
    ("/RB 0x1a0 0x102", read_line(0xA0, 2, 0x0C), [(0xA1, 2)]),  # operands are bytes, in the message too
    ("/RB 0xa0 258", read_line(0xA0, 2, 0x0C), [(0xA1, 2)]),
    ("/RB 160", read_line(0xA0, 0, 0x23), [(0xA1, 0)]),  # a missing operand is 0
    ("/RB", read_failed(0, 0), [(1, 0)]),
    ("/RB 0xff 0xff", read_failed(0xFF, 0xFF), [(0xFF, 0xFF)]),
    ("/WB 0x58 3 0x15a", write_line(0x58, 3, 0x5A), [(0x58, 3), (0x59, 3)]),
    ("/WB 0x58 3", write_line(0x58, 3, 0), [(0x58, 3), (0x59, 3)]),
    ("/WB 0x100", write_failed(0, 0), [(0, 0)]),
    ("/WB 0xfe 0xff 1", write_failed(0xFE, 0xFF), [(0xFE, 0xFF)]),
])  # fmt: skip
def test_operands_are_bytes(run, args, line, done):
    result = run(f"/SMBUS {args}")
    assert (result.text, transfers(result, INTEL)) == (line, done)


def test_a_read_back_that_fails_shows_the_data_as_typed(run):
    # This EEPROM answers nobody while it stores a byte.
    result = run("/SMBUS /WB 0xa8 0x10 0x77")
    steps = [writing(INTEL, 0xA8, 0x10, 0x77), reading(INTEL, 0xA8, 0x10, 0, DEVICE_ERROR)]
    assert_smbus(result, INTEL, write_line(0xA8, 0x10, 0x77), 0x77, *steps)


def test_a_register_that_kept_something_else_shows_it(run):
    # The write selects the module's page and goes nowhere else.
    result = run("/SMBUS /WB 0x6c 0 0x12")
    assert (result.text, result.status) == (write_line(0x6C, 0, 0xFF), 0xFF)


# ---- failures -------------------------------------------------------------------------------------------------------


@ON
def test_a_slave_that_does_not_answer_is_a_failed_read(run, board, base):
    result = run("/SMBUS /RB 0xa6 4", board=board)
    assert_smbus(result, base, read_failed(0xA6, 4), -1, reading(base, 0xA6, 4, 0, DEVICE_ERROR))


@ON
def test_a_slave_that_does_not_answer_is_a_failed_write_without_a_read_back(run, board, base):
    result = run("/SMBUS /WB 0xa6 4 1", board=board)
    assert_smbus(result, base, write_failed(0xA6, 4), -1, writing(base, 0xA6, 4, 1, DEVICE_ERROR))


def test_a_bus_error_alone_ends_the_wait_and_is_no_failure(run):
    # The data register holds what it held.
    result = run("/SMBUS /RB 0x58 0", extra="smbus-eeprom 58 collides 0")
    assert_smbus(result, INTEL, read_line(0x58, 0, 0), 0, reading(INTEL, 0x58, 0, 0, BUS_ERROR))
    result = run("/SMBUS /WB 0x58 0 0x21", extra="smbus-eeprom 58 collides 0")
    steps = [writing(INTEL, 0x58, 0, 0x21, BUS_ERROR), reading(INTEL, 0x58, 0, 0x21, BUS_ERROR)]
    assert_smbus(result, INTEL, write_line(0x58, 0, 0x21), 0x21, *steps)


def test_a_clock_that_is_held_is_waited_for_until_the_host_gives_up(run):
    result = run("/SMBUS /RB 0x58 0", extra=["smbus-eeprom 58 holds 0", *QUIET])
    polls = [line for line in result.log if line.startswith(f"in8 {INTEL:04x}")]
    assert (result.text, result.status) == (read_failed(0x58, 0), 0xFF)
    assert len(polls) == 25000 // 2 + 3  # the host's time-out, two delay units a poll
    assert (polls[0], set(polls[1:-1]), polls[-1]) == (seen(INTEL, 1), {seen(INTEL, 0x41)}, seen(INTEL, 0x44))


def test_a_kill_bit_found_after_a_failure_has_its_status_cleared(run):
    extra = [f"constant {INTEL:x} 04", f"constant {INTEL + HOST_CNT:x} 0a"]
    result = run("/SMBUS /WB 0x58 0 1", extra=extra)
    ending = paced(out(INTEL, 0x04), seen(INTEL + HOST_CNT, 0x0A), out(INTEL, 0x10), out(INTEL + HOST_CNT, 0x81))
    assert (result.text, result.status) == (write_failed(0x58, 0), 0xFF)
    assert result.log[-2 - len(ending):-2] == ending


@pytest.mark.parametrize("args, line", [("/RB 0xa0 0", read_failed(0xA0, 0)), ("/WB 0xa0 0 1", write_failed(0xA0, 0)),
                                        ("/DUMP 0xa0", "Dump addr 0xA0 error!\n"), ("/S 0 0xff", "")])
def test_a_host_that_reads_as_all_ones_fails_at_once(run, args, line):
    # Switched off in its own configuration, while the I/O bit is set.
    result = run(f"/SMBUS {args}", extra=["pci 00:1f.4", "byte 40 00", "smbus-host pci", *QUIET])
    ending = [seen(INTEL, 0xFF), out(INTEL, 0xFF), seen(INTEL + HOST_CNT, 0xFF), out(INTEL, 0x10),
              out(INTEL + HOST_CNT, 0x81)]  # fmt: skip
    assert (result.text, result.status) == (line, 0xFF)
    assert result.log[-7:-2] == ending


# ---- signals --------------------------------------------------------------------------------------------------------

SHORT = [*QUIET, "unlogged 0cf8 8"]  # the log without delays and the search for the host


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
@pytest.mark.parametrize("board, base", [("intel", INTEL), ("amd", AMD)])
def test_a_signal_in_the_poll_waits_until_the_status_is_written_back(run, board, base, number):
    # On Intel's host that write gives the semaphore back, too.
    whole = run("/SMBUS /RB 0xa0 2", board=board, extra=SHORT).log
    poll, written_back = seen(base, BUSY[base][1]), out(base, DONE | (0x40 if base == INTEL else 0))
    runner = signal_behind(whole[: whole.index(poll) + 1], number)
    result = run("/SMBUS /RB 0xa0 2", board=board, extra=SHORT, runner=runner)
    assert (result.status, result.text) == (-number, "")
    assert result.log == whole[: whole.index(written_back) + 1]


def test_a_signal_in_a_transaction_that_fails_waits_until_the_host_is_cleaned_up(run):
    whole = run("/SMBUS /RB 0xa6 2", extra=SHORT).log
    at = whole.index(seen(INTEL, 0x44))
    result = run("/SMBUS /RB 0xa6 2", extra=SHORT, runner=signal_behind(whole[: at + 1], signal.SIGINT))
    assert result.status == -signal.SIGINT
    assert result.log[at + 1 :] == [out(INTEL, 0x44), seen(INTEL + HOST_CNT, 0x08), out(INTEL + HOST_CNT, 0x81)]


def test_a_signal_ends_a_scan_behind_the_transaction_in_which_it_came(run):
    whole = run("/SMBUS /S 0xa0 0xa8", extra=SHORT).log
    at = whole.index(out(INTEL + SLAVE, 0xA5)) + 3  # cleared and started
    result = run("/SMBUS /S 0xa0 0xa8", extra=SHORT, runner=signal_behind(whole[: at + 1], signal.SIGINT))
    assert result.status == -signal.SIGINT
    assert [slave for slave, _ in transfers(result, INTEL)] == [0xA1, 0xA3, 0xA5]
    assert result.log[-1] == out(INTEL, DONE | 0x40)


# ---- finding the host -----------------------------------------------------------------------------------------------


def test_io_decoding_is_switched_on_when_it_is_off(run):
    result = run("/SMBUS /RB 0xa0 2", extra=["pci 00:1f.4", "word 04 0402", "smbus-host pci"])
    assert (result.text, result.status) == (read_line(0xA0, 2, 0x0C), 0x0C)
    enabling = [*legacy("00:1f.4", 4, "in32 0cfc -> 00000402"), *legacy("00:1f.4", 4, "out32 0cfc 00000403")]
    at = result.log.index(enabling[3])
    assert result.log[at - 3 : at + 5] == enabling
    assert result.log.count("out32 0cfc 00000403") == 1


def test_the_base_is_the_register_without_its_low_five_bits(run):
    extra = ["pci 00:1f.4", "dword 20 0000f03d", "smbus-host pci"]
    assert transfers(run("/SMBUS /RB 0xa0 2", extra=extra), 0xF020) == [(0xA1, 2)]


def test_the_base_of_an_amd_host_is_the_high_byte_of_its_register(run):
    result = run("/SMBUS /RB 0xa0 2", board="amd", extra="pm-bytes 0 ff 0c")
    assert (result.text, transfers(result, 0x0C00)) == (read_line(0xA0, 2, 0x0C), [(0xA1, 2)])


@pytest.mark.parametrize("board", ["hygon", "ati"])
def test_all_makers_but_intel_have_the_base_in_the_power_management_registers(run, board):
    result = run("/SMBUS /RB 0xa0 2", board=board)
    assert (result.text, transfers(result, AMD)) == (read_line(0xA0, 2, 0x0C), [(0xA1, 2)])


def test_an_unknown_maker_is_treated_like_amd(run):
    extra = ["pci 02:03.1 1234:5678 class 0c0500 verbatim", "word 04 0001", "pm-registers", "pm-bytes 0 10 0d",
             "smbus-host pm", "smbus-eeprom 5a", "smbus-bytes 7 99"]  # fmt: skip
    result = run("/SMBUS /RB 0x5a 7", board="unknown", extra=extra)
    assert (result.text, transfers(result, 0x0D00)) == (read_line(0x5A, 7, 0x99), [(0x5B, 7)])


def test_the_first_function_of_the_class_is_taken(run):
    other = ["pci 00:1e.7 8086:1 class 0c0501 verbatim", "word 04 0001", "dword 20 0000ee81"]
    first = run("/SMBUS /RB 0xa0 2", extra=other)
    assert transfers(first, 0xEE80) == [(0xA1, 2)]


def test_without_a_host_nothing_is_accessed(run):
    result = run("/SMBUS /RB 0xa0 2", extra=["pci-remove 00:1f.4", *QUIET, "unlogged 0cf8 4"])
    assert (result.text, result.status) == ("Not found ClaseCode(0C05)\n", 0xFF)
    searched = result.log[4:-2]
    assert searched[0] == "in16 0cfc -> 8086"
    assert len(searched) == 1 + 65536
    assert {line.split()[1] for line in searched[1:]} == {"0cfe"}


def test_a_search_that_finds_nobody_asks_every_function(run):
    result = run("/SMBUS /S 0 2", board="unknown", extra=[*QUIET, "unlogged 0cfc 4"])
    asked = [line for line in result.log if line.startswith("out32")]
    assert asked[1:] == [f"out32 0cf8 {0x80000000 + place(name, 0x0A):08x}" for name in functions_up_to("ff:1f.7")]


# ---- dump -----------------------------------------------------------------------------------------------------------


def counting(**changed):
    data = bytearray(range(256))
    for offset, value in changed.items():
        data[int(offset[1:])] = value
    return bytes(data)


MODULE_A2 = counting(_2=0x0C) + counting()
EEPROM_A4 = b"\x92\x10\x0b\x02" + counting()[4:]
DUMP_A2 = "Dump SMBus(DDR4) from slave address 0xA2:\n"


@ON
def test_a_dump_reads_256_offsets_once_each(run, board, base):
    result = run("/SMBUS /DUMP 0x58 /TEXT", board=board)
    data = b"\x5a\x00\x00\xa5" + bytes(252)
    text = "Dump SMBus from slave address 0x58:\n" + hex_view(data, plain=True)
    assert_smbus(result, base, text, 0xFF, *(reading(base, 0x58, i, data[i]) for i in range(256)))


def test_an_older_module_is_asked_for_its_type_and_dumped_like_any_device(run):
    result = run("/SMBUS /DUMP 0xa4")
    assert result.text == "Dump SMBus from slave address 0xA4:\n" + hex_view(EEPROM_A4)
    assert result.status == 0x0B  # the type
    assert transfers(result, INTEL) == [(0xA5, 2), *page_of(0xA4)]


@pytest.mark.parametrize("slave", [0xAC, 0xAE, 0x50, 0x9E])
def test_only_the_six_usual_addresses_are_asked_for_their_type(run, slave):
    result = run(f"/SMBUS /DUMP {slave} /TEXT", extra=[f"smbus-eeprom {slave & 0xFE:x}", "smbus-bytes 2 0c", *QUIET])
    assert (transfers(result, INTEL), result.status) == (page_of(slave), 0xFF)


@pytest.mark.parametrize("slave", [0xA0, 0xA2, 0xA4, 0xA6, 0xA8, 0xAA, 0xA1, 0xAB])
def test_the_usual_addresses_are_asked_whatever_their_bit_0(run, slave):
    result = run(f"/SMBUS /DUMP {slave} /TEXT", extra=[f"smbus-eeprom {slave & 0xFE:x}", "smbus-bytes 2 0b", *QUIET])
    assert transfers(result, INTEL) == [(slave | 1, 2), *page_of(slave)]
    assert result.text.startswith(f"Dump SMBus from slave address 0x{slave:02X}:\n")


@pytest.mark.parametrize("last", [0, 1, 0x80, 0xFF])
def test_a_dump_ends_at_the_first_offset_that_fails(run, last):
    result = run("/SMBUS /DUMP 0x58", extra=[f"smbus-eeprom 58 stops {last:x}", *QUIET])
    assert (result.text, result.status) == ("Dump addr 0x58 error!\n", 0xFF)
    assert transfers(result, INTEL) == page_of(0x58)[: last + 1]


def test_an_absent_module_is_asked_for_its_type_and_then_fails_as_a_device(run):
    result = run("/SMBUS /DUMP 0xa6")
    steps = [reading(INTEL, 0xA6, offset, 0, DEVICE_ERROR) for offset in (2, 0)]
    assert_smbus(result, INTEL, "Dump addr 0xA6 error!\n", -1, *steps)


def test_a_dump_without_an_address_is_of_address_0(run):
    assert run("/SMBUS /DUMP").text == "Dump addr 0x00 error!\n"


@ON
def test_a_ddr4_module_is_read_in_both_pages(run, board, base):
    result = run("/SMBUS /DUMP 0xa2 /TEXT", board=board)
    text = DUMP_A2 + hex_view(MODULE_A2, plain=True)
    assert_smbus(
        result, base, text, 0x0C,
        reading(base, 0xA2, 2, 0x0C),
        reading(base, 0x6C, 0, 0xFF), writing(base, 0x6C, 0, 0),  # nobody drives the data of "read page address"
        *(reading(base, 0xA2, i, MODULE_A2[i]) for i in range(256)),
        reading(base, 0x6E, 0, 0, DEVICE_ERROR), writing(base, 0x6E, 0, 0),  # which the other page's address is not
        *(reading(base, 0xA2, i, MODULE_A2[256 + i]) for i in range(256)),
        writing(base, 0x6E, 0, 0), writing(base, 0x6C, 0, 0xFF),
    )  # fmt: skip


def test_the_two_pages_hold_what_they_hold(run):
    rows = run("/SMBUS /DUMP 0xa0 /TEXT", extra=QUIET).text.split("\r\n")
    assert rows[1].startswith("00 23 11 0C 02 84 21 ")
    assert rows[0x16].startswith("14 04 CD 00 24 05 00 00 00 00 53 69 6D 75 6C 61 74 ")


# Where the page addresses can be read, as where an older device answers there, the values found are put back.
READABLE = ["smbus-eeprom 6c", "smbus-bytes 0 5a", "smbus-eeprom 6e", "smbus-bytes 0 a5"]
PAGE_0 = [(0x6D, 0), (0x6C, 0)]
PAGE_1 = [(0x6F, 0), (0x6E, 0)]


def written(result, base):
    """What was written to slaves: (slave, data)."""
    data = [int(line.split()[2], 16) for line in result.log if line.startswith(f"out8 {base + DATA:04x}")]
    slaves = [slave for slave, _ in transfers(result, base) if slave % 2 == 0]
    return list(zip(slaves, data, strict=True))


def test_what_the_page_addresses_read_as_is_put_back_page_0_last(run):
    result = run("/SMBUS /DUMP 0xa2", extra=[*READABLE, *QUIET])
    assert result.text == DUMP_A2 + hex_view(MODULE_A2)
    assert written(result, INTEL) == [(0x6C, 0), (0x6E, 0), (0x6E, 0xA5), (0x6C, 0x5A)]
    page = page_of(0xA2)
    assert transfers(result, INTEL) == [(0xA3, 2), *PAGE_0, *page, *PAGE_1, *page, PAGE_1[1], PAGE_0[1]]


def test_a_failure_in_page_0_puts_back_page_0_alone(run):
    result = run("/SMBUS /DUMP 0xa2", extra=[*READABLE, "smbus-spd a2 stops 80", *QUIET])
    assert (result.text, result.status) == ("Dump (DDR4) addr 0xA2 error!\n", 0xFF)
    assert written(result, INTEL) == [(0x6C, 0), (0x6C, 0x5A)]
    assert transfers(result, INTEL) == [(0xA3, 2), *PAGE_0, *page_of(0xA2)[:0x81], PAGE_0[1]]


@pytest.mark.parametrize("last", [0x00, 0x7F, 0xFF])
def test_a_failure_in_page_1_puts_back_page_1_then_page_0(run, last):
    result = run("/SMBUS /DUMP 0xa2", extra=[*READABLE, f"smbus-spd a2 stops {0x100 + last:x}", *QUIET])
    assert (result.text, result.status) == ("Dump (DDR4) addr 0xA2 error!\n", 0xFF)
    assert written(result, INTEL) == [(0x6C, 0), (0x6E, 0), (0x6E, 0xA5), (0x6C, 0x5A)]
    page = page_of(0xA2)
    steps = [(0xA3, 2), *PAGE_0, *page, *PAGE_1, *page[: last + 1], PAGE_1[1], PAGE_0[1]]
    assert transfers(result, INTEL) == steps


def test_page_addresses_that_cannot_be_read_get_0(run):
    result = run("/SMBUS /DUMP 0xa2", extra=["smbus-eeprom 6c stops 0", "smbus-eeprom 6e stops 0", *QUIET])
    assert result.text == DUMP_A2 + hex_view(MODULE_A2)
    assert written(result, INTEL) == [(0x6C, 0), (0x6E, 0), (0x6E, 0), (0x6C, 0)]


@pytest.mark.skipif(bool(WRAPPER), reason="the signal comes at a time, and the wrapper takes longer to start")
def test_a_signal_during_a_ddr4_dump_waits_until_page_0_is_back(terminal):
    slow = ["pci 00:1f.4", "smbus-host pci 500", f"unlogged {INTEL:x} 1", *QUIET]
    result = terminal("/SMBUS /DUMP 0xa2 /TEXT", keys=[(0.1, signal.SIGINT)], extra=slow)
    assert (result.status, result.keys_sent) == (-signal.SIGINT, 1)
    assert transfers(result, INTEL)[-2:] == [PAGE_1[1], PAGE_0[1]]
    assert DUMP_A2.encode() not in result.out


def test_a_ddr4_dump_does_not_wait_for_keys(terminal):
    result = terminal("/SMBUS /DUMP 0xa2 /TEXT", extra=QUIET)
    assert (result.status, result.out) == (0x0C, on_screen(DUMP_A2 + hex_view(MODULE_A2, plain=True)))


def test_a_plain_dump_waits_for_a_key(terminal):
    result = terminal("/SMBUS /DUMP 0xa4 /TEXT", keys=[(b"FF       ", b"x")], extra=QUIET)
    assert (result.status, result.keys_sent) == (0x0B, 1)


def test_a_quiet_dump_reads_and_shows_no_bytes(run):
    result = run("/SMBUS /DUMP 0x58 /NOMSG", extra=QUIET)
    assert (result.text, result.status) == ("Dump SMBus from slave address 0x58:\n", 0xFF)
    assert transfers(result, INTEL) == page_of(0x58)


# ---- scan -----------------------------------------------------------------------------------------------------------


def valid(slave, data):
    return f"Valid SMBus slave address 0x{slave:02X}(data:{data:02X}).\n"


PAUSE = UNIT * 10


@ON
def test_a_scan_asks_every_second_address_after_a_pause(run, board, base):
    result = run("/SMBUS /S 0xA0 0xA8", board=board)
    answers = {0xA0: 0x23, 0xA2: 0x00, 0xA4: 0x92, 0xA6: None, 0xA8: 0x48}
    text = "".join(valid(slave, data) for slave, data in answers.items() if data is not None)
    steps = [PAUSE + (reading(base, slave, 0, 0, DEVICE_ERROR) if data is None else reading(base, slave, 0, data))
             for slave, data in answers.items()]  # fmt: skip
    assert_smbus(result, base, text, 0x48, *steps)


def asked(result):
    assert all(offset == 0 for _, offset in transfers(result, INTEL))
    return [slave for slave, _ in transfers(result, INTEL)]


@pytest.mark.parametrize("bounds, addresses", [
    ("0xa1 0xa8", range(0xA1, 0xA9, 2)),  # an odd start stays odd
    ("0xa1 0xa9", range(0xA1, 0xAA, 2)),
    ("0xa0 0xa7", range(0xA0, 0xA8, 2)),
    ("0xfa 0xfe", range(0xFA, 0xFF, 2)),  # the ends of the range of addresses
    ("0xfa 0xff", range(0xFA, 0xFF, 2)),
    ("0xfb 0xff", range(0xFB, 0x100, 2)),
    ("0xff 0xff", [0xFF]),
    ("0 0xff", range(0, 0x100, 2)),
    ("0 0", [0]),
    ("0x58 0x58", [0x58]),
    ("0xa8 0xa0", []),
    ("0x1a0 0x2a2", [0xA0, 0xA2]),  # bytes
    ("160 162", [0xA0, 0xA2]),
    ("x y", [0]),
])  # fmt: skip
def test_a_scan_includes_both_ends(run, bounds, addresses):
    result = run(f"/SMBUS /S {bounds}", extra=QUIET)
    assert asked(result) == [address | 1 for address in addresses]


def test_a_scan_says_the_address_as_counted_and_what_it_read(run):
    result = run("/SMBUS /S 0xa1 0xa5", extra=QUIET)
    assert (result.text, result.status) == (valid(0xA1, 0x23) + valid(0xA3, 0) + valid(0xA5, 0x92), 0x92)


def test_a_scan_of_everything_lists_who_answers(run):
    lines = run("/SMBUS /S 0 0xff", extra=QUIET).text.splitlines(keepends=True)
    assert lines == [valid(0x58, 0x5A), valid(0x6C, 0xFF), valid(0xA0, 0x23), valid(0xA2, 0), valid(0xA4, 0x92),
                     valid(0xA8, 0x48), valid(0xAC, 0x23)]  # fmt: skip


@pytest.mark.parametrize("args", ["/S 0xA0", "/S"])
def test_a_scan_without_its_end_asks_nobody(run, args):
    result = run(f"/SMBUS {args}", extra=QUIET)
    assert (result.text, result.status, asked(result)) == ("", 0xFF, [])


def test_a_scan_that_finds_nobody_gives_ff(run):
    result = run("/SMBUS /S 0x10 0x20", extra=QUIET)
    assert (result.text, result.status) == ("", 0xFF)


# ---- which of the forms ---------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args", ["", "/RI 0xa0 0", "/RQ 0xa0 0", "/WI 0xa0 0 1", "/WQ 0xa0 0 1", "/LOG", "0xa0 0"])
def test_without_a_form_nothing_is_transferred(run, args):
    result = run(f"/SMBUS {args}", extra=QUIET)
    assert (result.text, result.status, transfers(result, INTEL)) == ("", 0xFF, [])


@pytest.mark.parametrize("args, done", [
    ("/WB 0xa0 3 /RB 0xa0 2", [(0xA1, 2)]),  # reading comes before writing, that before the dump, that before the scan
    ("/S 0xa0 0xa8 /RB 0xa2 5", [(0xA3, 5)]),
    ("/RD 0xa0 3 /RW 0xa0 4 /RB 0xa0 5", [(0xA1, 5)]),
    ("/RD 0xa0 3 /RW 0xa0 4", [(0xA1, 4)]),
    ("/WD 0x58 1 1 /WW 0x58 2 2 /WB 0x58 3 3", [(0x58, 3), (0x59, 3)]),
    ("/WB 0x58 0 1 /DUMP 0x58", [(0x58, 0), (0x59, 0)]),
    ("/DUMP 0xa6 /S 0xa0 0xa8", [(0xA7, 2), (0xA7, 0)]),
    ("/RI 0xa0 /DUMP 0xa6", []),  # a read of a width that there is not is a read
])  # fmt: skip
def test_the_forms_have_an_order(run, args, done):
    assert transfers(run(f"/SMBUS {args}", extra=QUIET), INTEL) == done


@pytest.mark.parametrize("args", ["/?", "/RB 0xa0 0 /H", "/HELP /S 0xa0 0xa8"])
def test_help_touches_no_hardware(run, args):
    assert_run(run(f"/SMB {args}"), SMBUS_USAGE, 0xFF, CLEAR)


def test_the_word_switch_of_a_write_comes_before_the_dword_switch(run):
    result = run("/SMBUS /WD 0xA2 0 1 /WW 0xA0 0x80 2")
    assert "SMBus write slave addr 0xA0 offset 0x80" in result.text
