"""/SIO: the configuration registers of the Super I/O chip behind ports 4Eh and 4Fh.

The intel board's chip keeps all registers within reach; the amd board's takes the exit key at any time, so that its
registers end at A9h."""

import signal

import pytest
from expected import CLEAR, DELAY, SIO_USAGE, assert_run, hex_view
from harness import BOARDS, BUILD

ESC = b"\x1b"
UNLOCK = ["out8 004e a5", "out8 004e a5"]
LOCK = ["out8 004e aa"]
DEVICES = [0x02, 0x03, 0x04, 0x05, 0x07, 0x0B, 0x0C, 0x0D, 0x0E]


def write(register, value):
    return [*DELAY, f"out8 004e {register:02x}", f"out8 004f {value:02x}"]


def read(register, value):
    return [*DELAY, f"out8 004e {register:02x}", f"in8 004f -> {value:02x}"]


def check(result, text, *steps):
    """Whatever is done happens between unlocking and locking, and the status is 0."""
    assert_run(result, text, 0, UNLOCK, *steps, LOCK)


def done(register, value):
    return f"SIO Write Data to 0x{register:X}, data = 0x{value:X}\n"


# One register


def test_a_register_is_read_and_reported_as_written(run):
    check(run("/SIO /RB 0x20"), done(0x20, 0x87), read(0x20, 0x87))


def test_a_register_is_written_and_read_back(run):
    check(run("/SIO /WB 0x24 0x5A"), done(0x24, 0x5A), write(0x24, 0x5A), read(0x24, 0x5A))


def test_a_read_only_register_shows_what_it_holds(run):
    check(run("/SIO /WB 0x20 0x5A"), done(0x20, 0x87), write(0x20, 0x5A), read(0x20, 0x87))


def test_writing_register_7_selects_a_device(run):
    check(run("/SIO /WB 0x07 0x0B"), done(7, 0x0B), write(7, 0x0B), read(7, 0x0B))


def test_the_registers_of_a_device_are_those_of_the_one_selected(run):
    result = run("/SIO /WB 7 0x0B /RB 0x61")
    check(result, done(0x61, 0x90), write(7, 0x0B), read(7, 0x0B), read(0x61, 0x90))


def test_data_is_cut_to_a_byte(run):
    check(run("/SIO /WB 0x24 0x1234"), done(0x24, 0x34), write(0x24, 0x34), read(0x24, 0x34))


@pytest.mark.parametrize("bit, value", [(0, 0), (5, 0), (6, 1), (7, 0)])
def test_a_bit_is_read_in_its_register(run, bit, value):
    check(run(f"/SIO /RI 0x23 {bit}"), done(0x23, value), read(0x23, 0x40))


@pytest.mark.parametrize("value, after", [("1", 0x90), ("0", 0x80), ("0x100", 0x90), ("0x80000000", 0x90),
                                          ("0x100000000", 0x80), ("", 0x80)])
def test_a_bit_is_set_by_any_32_bit_value_but_0(run, value, after):
    result = run(f"/SIO /WI 0x24 4 {value}")
    check(result, done(0x24, after >> 4 & 1), read(0x24, 0x80), write(0x24, after), read(0x24, after))


@pytest.mark.parametrize("bit, access, value", [
    (8, "in16 004f -> ff80", 1), (15, "in16 004f -> ff80", 1), (16, "in32 004f -> ffffff80", 1),
    (31, "in32 004f -> ffffff80", 1)])
def test_a_high_bit_is_read_through_a_wide_data_port(run, bit, access, value):
    check(run(f"/SIO /RI 0x24 {bit}"), done(0x24, value), [*DELAY, "out8 004e 24", access])


@pytest.mark.parametrize("bit", [32, 40, 256, 4294967295])
def test_there_is_no_bit_above_31(run, bit):
    check(run(f"/SIO /RI 0x24 {bit}"), done(0x24, 0))
    check(run(f"/SIO /WI 0x24 {bit} 1"), done(0x24, 0))


@pytest.mark.parametrize("register, shown, index", [
    ("0xFF", 0xFF, "out8 004e ff"), ("0x120", 0x120, "out16 004e 0120"), ("0xFFFF", 0xFFFF, "out16 004e ffff"),
    ("0x12320", 0x12320, "out32 004e 00012320"), ("0x100000020", 0x20, "out8 004e 20")])
def test_a_register_number_has_32_bits_and_chooses_the_width_of_the_index_write(run, register, shown, index):
    result = run(f"/SIO /RB {register}")
    value = 0x87 if shown & 0xFF == 0x20 else 0xFF
    check(result, done(shown, value), [*DELAY, index, f"in8 004f -> {value:02x}"])


@pytest.mark.parametrize("args, text, steps", [
    ("/RB", done(0, 0xFF), [read(0, 0xFF)]),
    ("/WB", done(0, 0xFF), [write(0, 0), read(0, 0xFF)]),
    ("/WB 0x24", done(0x24, 0), [write(0x24, 0), read(0x24, 0)]),
    ("/RI 0x24", done(0x24, 0), [read(0x24, 0x80)]),
    ("/RB 0x20 0x21 0x22 /TEXT", done(0x20, 0x87), [read(0x20, 0x87)]),
])
def test_missing_operands_are_zero_and_further_ones_are_ignored(run, args, text, steps):
    check(run(f"/SIO {args}"), text, *steps)


# Several switches in one command: all of them are carried out, writes first


@pytest.mark.parametrize("args, text, steps", [
    ("/WB 0x24 1 /RB 0x20", done(0x20, 0x87), [write(0x24, 1), read(0x24, 1), read(0x20, 0x87)]),
    ("/RB 0x20 /WB 0x24 1", done(0x20, 0x87), [write(0x24, 1), read(0x24, 1), read(0x20, 0x87)]),
    ("/WB 0x30 1 /RB 0x30", done(0x30, 0xFF), [write(0x30, 1), read(0x30, 0xFF), read(0x30, 0xFF)]),
    ("/WI 0x24 0 1 /WB 0x24 0x10", done(0x24, 1),
     [write(0x24, 0x10), read(0x24, 0x10), read(0x24, 0x10), write(0x24, 0x11), read(0x24, 0x11)]),
    ("/RI 0x20 7 /RB 0x21", done(0x20, 1), [read(0x21, 0x28), read(0x20, 0x87)]),
    ("/RI 0x24 0 /RB 0x24 /WI 0x24 0 1 /WB 0x24 0x40", done(0x24, 1),
     [write(0x24, 0x40), read(0x24, 0x40), read(0x24, 0x40), write(0x24, 0x41), read(0x24, 0x41), read(0x24, 0x41),
      read(0x24, 0x41)]),
    ("/WB 0x24 0x5A /WI 0x21 0 1", done(0x21, 0),
     [write(0x24, 0x5A), read(0x24, 0x5A), read(0x21, 0x28), write(0x21, 0x29), read(0x21, 0x28)]),
    ("/WI 0x24 3 1 /RI 0x24 3", done(0x24, 1),
     [read(0x24, 0x80), write(0x24, 0x88), read(0x24, 0x88), read(0x24, 0x88)]),
    ("/RB 0x21 /RB 0x20", done(0x21, 0x28), [read(0x21, 0x28)]),
    # An access switch excludes the view.
    ("/DUMP /RB 0x20", done(0x20, 0x87), [read(0x20, 0x87)]),
    ("/DUMP /RW", done(0, 0), []),
])
def test_every_access_asked_for_is_made_and_the_last_is_reported(run, args, text, steps):
    check(run(f"/SIO {args}"), text, *steps)


@pytest.mark.parametrize("args, text, steps", [
    ("/RD", "SIO Read from 0x0, data = 0x0, ", []),
    ("/RD 0x20", "SIO Read from 0x0, data = 0x0, ", []),
    ("/RD /RB 0x20", "SIO Read from 0x20, data = 0x87, ", [read(0x20, 0x87)]),
    ("/WB 0x24 0x12 /RD", "SIO Read from 0x24, data = 0x12, ", [write(0x24, 0x12), read(0x24, 0x12)]),
    ("/RI 0x20 7 /RD", "SIO Read from 0x20, data = 0x1, ", [read(0x20, 0x87)]),
])
def test_only_the_dword_switch_reports_a_read_as_such_and_without_a_line_end(run, args, text, steps):
    check(run(f"/SIO {args}"), text, *steps)


@pytest.mark.parametrize("word", ["/RW", "/RQ", "/WW", "/WD", "/WQ"])
def test_widths_that_the_chip_does_not_have_access_nothing(run, word):
    check(run(f"/SIO {word} 0x20 0x30"), done(0, 0))


# Help and nothing to do


@pytest.mark.parametrize("args", ["/SIO /?", "/SIO /DUMP -h", "help sio /WB 0x24 1"])
def test_help_touches_nothing(run, args):
    assert_run(run(args), SIO_USAGE, 2, CLEAR)


@pytest.mark.parametrize("args", ["/SIO", "/SIO 0x20", "/SIO /NOMSG", "/SIO /TEXT /LOG"])
def test_without_an_access_the_chip_is_unlocked_and_locked_again(run, args):
    check(run(args), "")


# The view


def registers_of(board, device):
    """The 256 registers that the chip of a board shows for a device, from the board's file."""
    values = bytearray(b"\xff" * 256)
    values[7] = device
    for line in (BOARDS / f"{board}.board").read_text().splitlines():
        words = line.split("#")[0].split()
        if words[:1] == ["superio-global"]:
            first, data = words[1], words[2:]
        elif words[:1] == ["superio-device"] and int(words[1], 16) == device:
            first, data = words[2], words[3:]
        else:
            continue
        data = bytes(int(word, 16) for word in data if word != "ro")
        values[int(first, 16) : int(first, 16) + len(data)] = data
    return bytes(values)


def device_steps(device, values):
    steps = write(7, device)
    for register, value in enumerate(values):
        steps += read(register, value)
    return steps


def test_the_view_shows_256_registers_of_each_device_in_turn(run):
    pages = [registers_of("intel", device) for device in DEVICES]
    check(run("/SIO /DUMP"), "".join(hex_view(page) for page in pages), *map(device_steps, DEVICES, pages))


def test_every_device_of_the_board_is_told_from_the_others(run):
    assert len({registers_of("intel", device)[0x30:] for device in DEVICES}) == len(DEVICES)


def test_esc_at_the_first_view_ends_it(run):
    page = registers_of("intel", 2)
    check(run("/SIO /DUMP /TEXT", stdin=ESC), hex_view(page, plain=True), device_steps(2, page))


def test_any_other_key_shows_the_next_device(run):
    result = run("/SIO /DUMP", stdin=b"\nq" + ESC)
    pages = [registers_of("intel", device) for device in DEVICES[:3]]
    check(result, "".join(hex_view(page) for page in pages), *map(device_steps, DEVICES, pages))


def test_the_view_waits_for_a_key_after_each_device(terminal):
    result = terminal("/SIO /DUMP /TEXT", keys=[b" ", ESC])
    assert result.status == 0
    assert result.ports(delays=True) == [
        *UNLOCK, *device_steps(2, registers_of("intel", 2)), *device_steps(3, registers_of("intel", 3)), *LOCK]
    assert result.tty_after == result.tty_before


def test_with_log_all_devices_are_shown_without_a_key(terminal):
    result = terminal("/SIO /DUMP /LOG /TEXT")
    assert result.status == 0
    assert [line for line in result.ports() if line.startswith("out8 004f")] == [
        f"out8 004f {device:02x}" for device in DEVICES]


def test_without_messages_all_devices_are_read_in_silence(run):
    pages = [registers_of("intel", device) for device in DEVICES]
    check(run("/SIO /DUMP /NOMSG"), "", *map(device_steps, DEVICES, pages))


def test_where_there_is_no_chip_everything_reads_as_ones(run):
    check(run("/SIO /RB 0x20", board="base"), done(0x20, 0xFF), read(0x20, 0xFF))
    ones = b"\xff" * 256
    check(run("/SIO /DUMP", board="base", stdin=ESC), hex_view(ones), device_steps(2, ones))


def test_a_chip_that_takes_the_exit_key_for_the_register_of_that_number_shows_ones_from_there_on(run):
    first = registers_of("amd", 2)[:0xAA] + b"\xff" * (256 - 0xAA)
    ones = b"\xff" * 256  # it is locked by then
    pages = [first, *[ones] * (len(DEVICES) - 1)]
    check(run("/SIO /DUMP /LOG", board="amd"), "".join(map(hex_view, pages)), *map(device_steps, DEVICES, pages))


# However the view ends, the chip is locked


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_at_the_view_ends_the_program_after_locking_the_chip(terminal, number):
    result = terminal("/SIO /DUMP", keys=[number])
    assert result.status == -number
    assert result.ports()[-1:] == LOCK
    assert result.tty_after == result.tty_before


def test_a_reader_that_goes_away_ends_the_program_after_locking_the_chip(run):
    result = run(["-c", f'"{BUILD}/hwreg" /SIO /DUMP /LOG | head -c 10'], program="/bin/bash")
    assert result.ports()[:2] == UNLOCK
    assert result.ports()[-1:] == LOCK
