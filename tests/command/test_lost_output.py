"""What is printed cannot be written any more: views and searches end soon, all else is done as ever, and one line on
standard error tells of it."""

import contextlib
import os
import pty

import pytest
from expected import CLEAR, LOST
from harness import run_program
from power import RUN, story

ESC = b"\x1b"
GIB = 1 << 30
LIMIT = 5 * GIB  # of the size of files: more than the board's memory has


def behind(*words):
    """A runner that starts the program by another one."""

    def go(run, *rest):
        run.command = [*words, run.executable, *run.words] if not run.wrapped else [*words, *run.command]
        run.executable = words[0]
        return run_program(run, *rest)

    return go


@contextlib.contextmanager
def full_device(_):
    with open("/dev/full", "wb") as full:
        yield {"stdout": full}


@contextlib.contextmanager
def reader_that_has_gone(_):
    reading, writing = os.pipe()
    os.close(reading)
    yield {"stdout": writing, "runner": behind("/usr/bin/env", "--ignore-signal=PIPE")}
    os.close(writing)


@contextlib.contextmanager
def limited_file(folder):
    with open(folder / "out", "wb") as file:
        file.seek(LIMIT - 5)
        yield {"stdout": file, "runner": behind("/usr/bin/prlimit", f"--fsize={LIMIT}")}
    (folder / "out").unlink()


@contextlib.contextmanager
def terminal_that_has_gone(_):
    master, slave = pty.openpty()
    os.close(master)
    yield {"stdout": slave}
    os.close(slave)


DEAD = {"full": full_device, "gone": reader_that_has_gone, "limit": limited_file, "terminal": terminal_that_has_gone}
ON_DEAD = pytest.mark.parametrize("dead", DEAD)


@pytest.fixture
def lost(run, tmp_path):
    """lost(args, dead, ...) runs the program with such an output."""

    def go(args, dead, **options):
        with DEAD[dead](tmp_path) as how:
            return run(args, **how, **options)

    return go


# ---- views ----------------------------------------------------------------------------------------------------------

PAGES = ["/MEM /DUMP 0", "/IO /DUMP 0x500", "/PCI /DUMP", "/SIO /DUMP"]
TABLES = ["/SMBIOS", "/SMBIOS /DUMP"]  # read before they are shown
VIEWS = [*PAGES, *TABLES]


def ended_by_esc(run, args, pages):
    """The log of runs that end by ESC behind one page, two, ..."""
    return [run(args, stdin=b" " * before + ESC).log for before in range(pages)]


@ON_DEAD
@pytest.mark.parametrize("words", ["", " /TEXT", " /LOG"])
@pytest.mark.parametrize("args", PAGES)
def test_a_view_ends_within_the_pages_that_the_stream_holds_back(run, lost, args, words, dead):
    if "/SIO" in args and "/LOG" in words:
        pytest.skip("what is printed while the chip is unlocked is written behind it")
    result = lost(args + words, dead)
    assert (result.status, result.err) == (0, LOST)
    assert result.log in ended_by_esc(run, args + words.replace(" /LOG", ""), 5 if "/TEXT" in words else 2)


@ON_DEAD
@pytest.mark.parametrize("words", ["", " /LOG"])
@pytest.mark.parametrize("args", TABLES)
def test_a_table_that_nobody_sees_is_read_as_ever(run, lost, args, words, dead):
    result = lost(args + words, dead)
    assert (result.status, result.err, result.log) == (0, LOST, run(args).log)


@ON_DEAD
def test_the_chip_is_locked_after_a_view_that_nobody_sees(run, lost, dead):
    result = lost("/SIO /DUMP /LOG", dead)
    assert (result.status, result.err, result.log) == (0, LOST, run("/SIO /DUMP /LOG").log)


@pytest.mark.parametrize("args", VIEWS)
def test_on_a_disk_that_becomes_full_a_view_ends(run, on_disk, tmp_path, args):
    result = on_disk(f"{args} /LOG >OUT", "size=8k")
    assert (result.status, result.err) == (0, LOST)
    if args in PAGES[:3]:
        assert result.log in ended_by_esc(run, args, 4)
    seen = run(args, stdin=b"    " + ESC).out if args in PAGES else run(f"{args} /LOG").out
    assert (tmp_path / "left" / "OUT").read_bytes() == seen[:8192]


# ---- lists and searches ---------------------------------------------------------------------------------------------

FUNCTIONS = [f"pci {bus:02x}:{device:02x}.0 8086:0001 class 060000 verbatim"
             for bus in range(8) for device in range(32)]


def functions_found(log):
    """The functions of FUNCTIONS that were looked at: the vendor of each is asked for."""
    return sum(line.endswith(" -> 8086") for line in log)


@ON_DEAD
@pytest.mark.parametrize("words", ["", " /LOG"])
def test_a_list_without_views_ends_within_the_rows_that_the_stream_holds_back(run, lost, dead, words):
    args, board = f"/PCI /DUMP /NOMSG{words}", {"board": "base", "extra": [*FUNCTIONS, "unlogged ed 1"]}
    whole = run(args, **board)
    result = lost(args, dead, **board)
    assert (result.status, result.err) == (0, LOST)
    row = len(whole.text.splitlines()[1]) + 1
    assert 0 < functions_found(result.log) <= functions_found(whole.log) * (4096 // row + 2) // len(FUNCTIONS)
    assert result.log[:-2] == whole.log[: len(result.log) - 2]


@ON_DEAD
def test_a_search_for_slaves_ends(run, lost, dead):
    extra = [f"smbus-eeprom {slave:x}" for slave in range(0, 256, 2)]
    extra += ["unlogged ed 1", "unlogged efa0 4", "unlogged efa5 1", "unlogged cf8 8"]
    whole = run("/SMBUS /S 0 0xfe", extra=extra)
    result = lost("/SMBUS /S 0 0xfe", dead, extra=extra)
    row = len(whole.text.splitlines()[0]) + 1
    asked = [line for line in result.log if line.startswith("out8 efa4 ")]
    assert (result.status, result.err) == (whole.status, LOST)
    assert 0 < len(asked) <= 4096 // row + 2 < whole.log.count("out8 efa4 01") + 127
    assert len(asked) < sum(line.startswith("out8 efa4 ") for line in whole.log)


@ON_DEAD
def test_a_search_for_a_text_that_is_everywhere_ends(run, lost, dead):
    args, extra = "/MEM /S 0x100000 0x400000 A", "fill 100000 400000 41"
    whole = run(args, extra=extra)
    result = lost(args, dead, extra=extra)
    assert (result.status, result.err) == (whole.status, LOST)
    assert 0 < len(result.maps()) < len(whole.maps()) // 4


@ON_DEAD
@pytest.mark.parametrize("args", ["/SMBUS /DUMP 0xa4", "/SMBUS /DUMP 0xa2"])
def test_a_slave_is_read_as_ever(run, lost, args, dead):
    whole = run(args)
    result = lost(args, dead)
    assert (result.status, result.err, result.log) == (whole.status, LOST, whole.log)


# ---- everything else ------------------------------------------------------------------------------------------------

ACCESSES = ["/PCI /RB 0 0 0 0", "/PCI /WB 0 0 0 0xdc 0x12", "/PCI /RD 0 0 0 0", "/MEM /RD 0x1000", "/MEM /WB 0x1000 5",
            "/IO /RB 0x92", "/IO /WB 0x80 0x12", "/IO /INDEX /DUMP 0x70 0x71", "/SIO /RB 0x20", "/SIO /WB 0x24 0x5a",
            "/SMBUS /RB 0xa0 0", "/SMBUS /WB 0xa0 0 1", "/MSR /RD 0 0x1b", "/MSR /RD /ALL 0x1b", "/CPUID /RD 0",
            "/ACPI /DUMP", "/SMBIOS /S Desktop", "/SMN /RD 0 0", "/I2C /RB 0 0x50 1",
            "/RTC 3"]  # fmt: skip


@ON_DEAD
@pytest.mark.parametrize("args", ACCESSES)
def test_an_access_is_made_and_gives_its_status(run, lost, args, dead):
    whole = run(args)
    assert whole.out != b"" and whole.err == b""
    result = lost(args, dead)
    assert (result.status, result.err, result.log) == (whole.status, LOST, whole.log)


@ON_DEAD
def test_help_keeps_its_status(lost, dead):
    result = lost("/PCI /?", dead)
    assert (result.status, result.err) == (2, LOST)
    assert [line for line in result.log if line.startswith("system")] == CLEAR


POWER = {"/SHUTDOWN": "-P", "/RTC 60": "-P", "/RTC 60 /T 2": "-P", "/RTC 0 /T 1": "-r", "/SHUTDOWN /T 1": "-P"}


@ON_DEAD
@pytest.mark.parametrize("args", POWER)
def test_the_machine_goes_down_all_the_same(run, lost, tmp_path, args, dead):
    folder = tmp_path / "beside"
    folder.mkdir()
    whole = run(args, extra=[RUN], cwd=folder)
    result = lost(args, dead, extra=[RUN])
    assert (result.status, result.log) == (whole.status, whole.log)
    assert story(result.log)[-1] == f"system shutdown {POWER[args]} now"
    assert result.err == (LOST if whole.out else b"")
    for name in ("RTCLOG", "RBTLOG"):
        assert (tmp_path / name).exists() == (folder / name).exists()


@ON_DEAD
@pytest.mark.parametrize("args", ["/MEM /RF DUMP.BIN 0x100000 0x20000", "/IO /RF DUMP.BIN 0x500 0x100"])
def test_a_dump_into_a_file_is_whole(run, lost, tmp_path, args, dead):
    folder = tmp_path / "beside"
    folder.mkdir()
    whole = run(args, cwd=folder)
    result = lost(args, dead)
    assert (result.status, result.err, result.log) == (whole.status, LOST, whole.log)
    assert (tmp_path / "DUMP.BIN").read_bytes() == (folder / "DUMP.BIN").read_bytes()


@pytest.mark.parametrize("args", [*VIEWS, *ACCESSES, "/?", "/PCI /?", "/SHUTDOWN", ""])
def test_with_a_sound_output_nothing_is_said(run, terminal, tmp_path, args):
    with open(tmp_path / "out", "wb") as file:
        assert run(args, stdout=file, stdin=ESC).err == b""
    assert run(args, stdin=ESC).err == b""
    assert LOST not in terminal(args, keys=[ESC] * 3).out


def test_where_nothing_is_printed_nothing_is_lost(lost):
    result = lost("/TIMEOUT", "full")
    assert (result.status, result.err) == (0, b"")


# ---- where nobody is left to be told --------------------------------------------------------------------------------


def test_no_key_is_asked_for_with_the_chip_unlocked(run):
    master, keyboard = pty.openpty()
    with open("/dev/full", "wb") as full:
        result = run("/SIO /DUMP", stdin=keyboard, stdout=full)
    assert (result.status, result.err, result.log) == (0, LOST, run("/SIO /DUMP", stdin=ESC).log)
    os.close(master)
    os.close(keyboard)


def test_a_standard_error_without_a_reader_changes_no_status(run):
    reading, writing = os.pipe()
    os.close(reading)
    with open("/dev/full", "wb") as full:
        assert run("/PCI /RB 0 0 0 0", stdout=full, stderr=writing).status == 0x86
    os.close(writing)


def test_a_standard_error_that_nobody_empties_keeps_nothing_up(run):
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    with contextlib.suppress(BlockingIOError):
        while os.write(writing, bytes(4096)):
            pass
    os.set_blocking(writing, True)
    with open("/dev/full", "wb") as full:
        assert run("/PCI /RB 0 0 0 0", stdout=full, stderr=writing).status == 0x86
    os.close(reading)
    os.close(writing)
