"""/MEM /RF and /IO /RF: a range of memory or of ports into a file."""

import contextlib
import os
import pathlib
import re
import resource
import socket

import pytest
from expected import CLEAR, FILE_USAGE, OPEN, assert_run, copied_pages
from harness import BUILD, WRAPPER, act_behind

MIB = 0x100000
WAITING = "Waitting ...\n\n"
NO_FILE = "FileOpen fail!\n"
ABORTED = 0x15


def read_ports(ports, value_of):
    return [f"in8 {port & 0xFFFF:04x} -> {value_of(port & 0xFFFF):02x}" for port in ports]


def ones(_):
    return 0xFF


# Memory


def test_a_range_of_memory_is_copied_to_the_file(run, tmp_path):
    result = run("/MEM /RF SMBIOS.BIN 0xFF550 0x100", extra='text 000ff560 "_SM_"', keep_memory=True)
    assert_run(result, WAITING, 0, copied_pages(0xFF000))
    data = (tmp_path / "SMBIOS.BIN").read_bytes()
    assert data == result.memory(0xFF550, 0x100)
    assert data[0x10:0x14] == b"_SM_"


@pytest.mark.parametrize("start, size", [
    (0x100000, 1), (0x100FFF, 1), (0x100FFF, 2), (0x100000, 0x1000), (0x100001, 0x1000), (0x100800, 0x1801),
    (0x100123, 0x3456), (0x100000, 0x4000), (0, 0x10000), (0xF0000, 0x10000), (0xF8001, 0x7FFF),
])
def test_every_byte_arrives_whatever_the_alignment(run, tmp_path, start, size):
    result = run(f"/MEM /RF PART.BIN {start:#x} {size:#x}", keep_memory=True)
    assert (result.text, result.status) == (WAITING, 0)
    assert (tmp_path / "PART.BIN").read_bytes() == result.memory(start, size)


def test_each_page_is_mapped_once(run):
    assert run("/MEM /RF PAGES.BIN 0x100800 0x2001").maps() == copied_pages(0x100000, 3)


@pytest.mark.parametrize("size, lines", [
    (0x100, []),
    (MIB - 1, []),
    (MIB, ["R_MEM Start:0x100000, Size:0x100000"]),
    (MIB + 1, []),
    (3 * MIB, ["R_MEM Start:0x100000, Size:0x300000"]),
    # In pieces of 40 MiB.
    (0x2800000, ["R_MEM Start:0x100000, Size:0x2800000"]),
    (0x2800001, []),
    (0x2900000, ["R_MEM Start:0x100000, Size:0x2900000", "R_MEM Start:0x2900000, Size:0x100000"]),
    (0x4000000, ["R_MEM Start:0x100000, Size:0x4000000", "R_MEM Start:0x2900000, Size:0x1800000"]),
])
def test_a_piece_is_announced_when_whole_mebibytes_are_left(run, tmp_path, size, lines):
    result = run(f"/MEM /RF SIZE.BIN 0x100000 {size:#x}")
    assert (result.text, result.status) == (WAITING + "".join(f"{line}\n" for line in lines), 0)
    assert (tmp_path / "SIZE.BIN").stat().st_size == size


def test_the_pieces_fit_together(run, tmp_path):
    # Not aligned, and with a pattern where the first piece of 40 MiB ends.
    result = run("/MEM /RF PIECES.BIN 0x100800 0x2801900", extra="fill 028ff000 4000 address", keep_memory=True)
    assert (tmp_path / "PIECES.BIN").read_bytes() == result.memory(0x100800, 0x2801900)


SPARSE = "iopl ok\nmem ok\n"


@pytest.fixture
def no_sanitizer():
    """For what a sanitizer makes impossible or far too slow (it ends the program when memory runs out), or memcheck,
    which lives in the same memory."""
    if WRAPPER or b"__asan_init" in (BUILD / "hwreg").read_bytes():
        pytest.skip("not under a sanitizer or memcheck")


@pytest.fixture
def into_file(run, tmp_path):
    """into_file(words, memory_left=None, board=SPARSE) runs a large dump into DUMP.BIN; `memory_left` is what the
    program can allocate when it has started. Gives its output, its exit status, and the file's length and bytes that
    are not zero, by their place."""

    def go(words, memory_left=None, board=SPARSE):
        runner = {} if memory_left is None else {"runner": act_behind(OPEN[:-1], leave_memory(memory_left))}
        (tmp_path / "large.board").write_text(board)
        result = run(words, board=tmp_path / "large.board", **runner)
        return result.text, result.status, *collect(tmp_path / "DUMP.BIN")

    return go


def leave_memory(left):
    """Limits the program's data to what it has and so much more."""

    def act(child):
        status = pathlib.Path(f"/proc/{child.pid}/status").read_text()
        used = int(re.search(r"VmData:\s*(\d+) kB", status)[1]) << 10
        resource.prlimit(child.pid, resource.RLIMIT_DATA, (used + left, used + left))

    return act


def collect(path):
    """The length of the file and its bytes that are not zero; it is removed, for it may be large."""
    zeros = bytes(MIB)
    length = 0
    found = {}
    with open(path, "rb", buffering=0) as stream:
        while piece := stream.read(MIB):
            if piece != zeros[: len(piece)]:
                found.update({length + i: byte for i, byte in enumerate(piece) if byte})
            length += len(piece)
    path.unlink()
    return length, found


def memory_with(marks):
    """A board with these texts in its memory, and what into_file finds of them."""
    lines = "".join(f'text {at:08x} "{mark.decode()}"\n' for at, mark in marks.items())
    return SPARSE + lines, {at + i: byte for at, mark in marks.items() for i, byte in enumerate(mark)}


@pytest.mark.usefixtures("no_sanitizer")
@pytest.mark.parametrize("left, piece", [(30 * MIB, 20 * MIB), (15 * MIB, 10 * MIB), (5 * MIB, MIB),
                                         (3 * MIB // 4, MIB)])
def test_with_less_memory_the_pieces_are_smaller(into_file, left, piece):
    size = 60 * MIB
    board, expected = memory_with({at: b"border" for at in range(MIB - 3, size, MIB)})
    out, status, length, found = into_file(f"/MEM /RF DUMP.BIN 0 {size:#x}", left, board)
    lines = [f"R_MEM Start:0x{at:X}, Size:0x{size - at:X}\n" for at in range(0, size, piece)]
    assert (out, status) == (WAITING + "".join(lines), 0)
    assert (length, found) == (size, {at: byte for at, byte in expected.items() if at < size})


# The ends of the address space


@pytest.mark.parametrize("start, size", [
    (0xFFFFFF00, 0x200), (0xFFFFFF00, 0x101), (0xFFFFFFFF, 2), (1, 0), (0xFFFFFFFF, 0), (2, 0xFFFFFFFF),
    (0x80000001, 0x80000000),
])
@pytest.mark.parametrize("command", ["/MEM", "/IO"])
def test_a_range_beyond_4_gib_is_refused_before_the_file_is_touched(run, tmp_path, command, start, size):
    (tmp_path / "BEYOND.BIN").write_bytes(b"before")
    assert_run(run(f"{command} /RF BEYOND.BIN {start:#x} {size:#x}"), "StartAddr error!\n", ABORTED)
    assert (tmp_path / "BEYOND.BIN").read_bytes() == b"before"


@pytest.mark.parametrize("start, size", [(0xFFFFFF00, 0x100), (0xFFFFFFFF, 1), (0xFFFFE800, 0x1800)])
def test_a_range_may_end_at_4_gib(run, tmp_path, start, size):
    result = run(f"/MEM /RF TOP.BIN {start:#x} {size:#x}", extra="fill ffffe000 1ff0 address", keep_memory=True)
    assert (result.text, result.status) == (WAITING, 0)
    assert (tmp_path / "TOP.BIN").read_bytes() == result.memory(start, size)


def test_nothing_from_address_0_is_an_empty_file(run, tmp_path):
    for command in ("/MEM", "/IO"):
        assert_run(run(f"{command} /RF EMPTY.BIN 0 0"), WAITING, 0)
        assert (tmp_path / "EMPTY.BIN").read_bytes() == b""


def test_start_and_size_are_cut_to_32_bits(run, tmp_path):
    result = run("/MEM /RF CUT.BIN 0x7000100000 0x9900000010", keep_memory=True)
    assert (result.text, result.status) == (WAITING, 0)
    assert (tmp_path / "CUT.BIN").read_bytes() == result.memory(0x100000, 0x10)


@pytest.mark.usefixtures("no_sanitizer")
def test_all_but_one_byte_of_4_gib_can_be_copied(into_file):
    marks = {0: b"first", 0x27FFFFC: b"end of a piece", 0x80000123: b"halfway", 0xFFFFFFF8: b"theend"}
    board, expected = memory_with(marks)
    out, status, length, found = into_file("/MEM /RF DUMP.BIN 0 0xFFFFFFFF", board=board)
    assert (out, status) == (WAITING, 0)
    assert (length, found) == (0xFFFFFFFF, expected)


# Memory that cannot be had


def test_refused_pages_arrive_as_ones(run, tmp_path):
    result = run("/MEM /RF HOLE.BIN 0x100800 0x2000", extra="refuse 00101000 1000 EPERM", keep_memory=True)
    memory = result.memory(0x100800, 0x2000)
    assert (result.text, result.status) == (WAITING, 0)
    assert (tmp_path / "HOLE.BIN").read_bytes() == memory[:0x800] + b"\xff" * 0x1000 + memory[0x1800:]
    assert result.maps()[2] == "mmap /dev/mem 00101000 1000 rw shared -> EPERM"


@pytest.mark.parametrize("start, size", [(0x100FFF, 2), (0x100000, 0x1000), (0x100800, 0x3000)])
def test_refused_heads_and_tails_arrive_as_ones(run, tmp_path, start, size):
    run(f"/MEM /RF ONES.BIN {start:#x} {size:#x}", extra="refuse 00100000 10000 EPERM")
    assert (tmp_path / "ONES.BIN").read_bytes() == b"\xff" * size


def test_without_the_memory_device_the_file_holds_zeros(run, tmp_path):
    result = run("/MEM /RF NOMEM.BIN 0x100800 0x2000", board="nomem")
    assert (result.text, result.status, result.maps()) == (WAITING, 0, [])
    assert (tmp_path / "NOMEM.BIN").read_bytes() == bytes(0x2000)


# Ports


def test_a_range_of_ports_is_read_byte_by_byte(run, tmp_path):
    result = run("/IO /RF IO.BIN 0x4F0 0x120")
    expected = b"\xff" * 16 + bytes(range(256)) + b"\xff" * 16
    ports = [f"in8 {0x4F0 + i:04x} -> {byte:02x}" for i, byte in enumerate(expected)]
    assert_run(result, WAITING, 0, ports)
    assert (tmp_path / "IO.BIN").read_bytes() == expected


def test_ports_wrap_behind_the_last_one(run, tmp_path):
    result = run("/IO /RF IO.BIN 0xFFF0 0x20", extra=["latch fff0 10 aa", "latch 0000 10 55"])
    assert (tmp_path / "IO.BIN").read_bytes() == b"\xaa" * 16 + b"\x55" * 16
    assert_run(result, WAITING, 0, read_ports(range(0xFFF0, 0x10010), lambda port: 0xAA if port >= 0xFFF0 else 0x55))


def test_a_start_above_ffff_wraps(run, tmp_path):
    result = run("/IO /RF IO.BIN 0x12340508 4")
    assert_run(result, WAITING, 0, read_ports(range(0x508, 0x50C), lambda port: port & 0xFF))
    assert (tmp_path / "IO.BIN").read_bytes() == bytes([8, 9, 10, 11])


def test_the_last_addresses_are_ports_as_well(run):
    assert_run(run("/IO /RF IO.BIN 0xFFFFFFFE 2"), WAITING, 0, read_ports([0xFFFE, 0xFFFF], ones))


def test_a_mebibyte_of_ports_is_announced_and_goes_round_16_times(run, tmp_path):
    result = run("/IO /RF IO.BIN 0x500 0x100000", extra="unlogged 0 10000")
    assert (result.text, result.status) == (WAITING + "R_IO Start:0x500, Size:0x100000\n", 0)
    data = (tmp_path / "IO.BIN").read_bytes()
    assert len(data) == MIB
    assert all(data[at : at + 0x110] == bytes(range(256)) + b"\xff" * 16 for at in range(0, MIB, 0x10000))


# The switches


def test_memory_wins_over_ports(run, tmp_path):
    assert_run(run("/IO /MEM /RF BOTH.BIN 0x100000 0x10"), WAITING, 0, copied_pages(0x100000))
    assert (tmp_path / "BOTH.BIN").read_bytes()[:5] == b"\0\0\x10\0\x04"


@pytest.mark.parametrize("size", [0, 0x100, MIB])
def test_without_memory_or_ports_zeros_are_written(run, tmp_path, size):
    assert_run(run(f"/RF ZERO.BIN 0 {size:#x}"), WAITING, 0)
    assert (tmp_path / "ZERO.BIN").read_bytes() == bytes(size)


@pytest.mark.parametrize("args", ["/RB /MEM -rf WORDS.BIN 0x100000 4", "\\RF WORDS.BIN 0x100000 4 /DUMP /MEM",
                                  "RF WORDS.BIN 1048576 4 MEM 5 6", "/MEM /RF WORDS.BIN 0x100000 4 /RF OTHER 1 1"])
def test_the_dump_comes_before_the_other_accesses(run, tmp_path, args):
    assert_run(run(args), WAITING, 0, copied_pages(0x100000))
    assert (tmp_path / "WORDS.BIN").read_bytes() == b"\0\0\x10\0"


@pytest.mark.parametrize("args", ["/MEM /RF HELP.BIN 0 0x10 /?", "/IO /RF -h HELP.BIN 0 0x10", "/RF help"])
def test_help_lists_the_forms_and_makes_no_file(run, tmp_path, args):
    assert_run(run(args), FILE_USAGE, 2, CLEAR)
    assert not list(tmp_path.glob("*.BIN"))


# File names


def test_a_file_name_is_made_upper_case(run, tmp_path):
    run("/MEM /RF dump.bin 0x100000 4")
    assert (tmp_path / "DUMP.BIN").exists() and not (tmp_path / "dump.bin").exists()


def test_a_file_name_behind_the_search_switch_stays_as_typed(run, tmp_path):
    assert_run(run("/MEM /S /RF dump.bin 0x100000 4"), WAITING, 0, copied_pages(0x100000))
    assert (tmp_path / "dump.bin").read_bytes() == b"\0\0\x10\0"


def test_the_folders_of_a_file_are_made_upper_case_too(run, tmp_path):
    (tmp_path / "into").mkdir()
    assert_run(run("/MEM /RF into/dump.bin 0x100000 4"), "FileOpen fail!\n", ABORTED)
    assert run("/S /MEM /RF into/dump.bin 0x100000 4").status == 0
    assert (tmp_path / "into" / "dump.bin").read_bytes() == b"\0\0\x10\0"


@pytest.mark.parametrize("name", ["TWO WORDS.BIN", "  ", "A%SB%D.BIN", "0X10", "\udcff\udc80.BIN", "FOLDER/IN.BIN"])
def test_a_file_name_may_hold_blanks_and_any_bytes(run, tmp_path, name):
    (tmp_path / "FOLDER").mkdir()
    assert_run(run(["/MEM", "/RF", name, "0x100000", "4"]), WAITING, 0, copied_pages(0x100000))
    assert (tmp_path / name).read_bytes() == b"\0\0\x10\0"


def test_a_path_of_4000_characters_is_as_good_as_any(run, tmp_path):
    folders, file = ["D" * 199] * 19, "N" * 200
    inner = os.open(tmp_path, os.O_RDONLY)
    for folder in folders:
        os.mkdir(folder, dir_fd=inner)
        outer, inner = inner, os.open(folder, os.O_RDONLY, dir_fd=inner)
        os.close(outer)
    result = run(["/MEM", "/RF", "/".join([*folders, file]), "0x100000", "4"])
    assert_run(result, WAITING, 0, copied_pages(0x100000))
    with open(os.open(file, os.O_RDONLY, dir_fd=inner), "rb") as made:
        assert made.read() == b"\0\0\x10\0"
    os.close(inner)


def test_an_existing_file_is_replaced(run, tmp_path):
    (tmp_path / "OLD.BIN").write_bytes(b"x" * 1000)
    assert_run(run("/MEM /RF OLD.BIN 0x100000 4"), WAITING, 0, copied_pages(0x100000))
    assert (tmp_path / "OLD.BIN").read_bytes() == b"\0\0\x10\0"


# Files that cannot be created


def check_no_file(result):
    assert_run(result, NO_FILE, ABORTED)


@pytest.mark.parametrize("name", ["FOLDER", "FOLDER/", ".", "/", "FILE/BELOW.BIN", "ABSENT/IN.BIN", "", "N" * 256,
                                  "N" * 4000, "N" * 100_000, "D/" * 2000 + "IN.BIN"])
@pytest.mark.parametrize("command", ["/MEM", "/IO"])
def test_a_name_that_no_file_can_have_is_reported(run, tmp_path, command, name):
    (tmp_path / "FOLDER").mkdir()
    (tmp_path / "FILE").write_bytes(b"before")
    check_no_file(run([command, "/RF", name, "0x100000", "4"]))
    assert (tmp_path / "FILE").read_bytes() == b"before"


@pytest.mark.parametrize("args", ["/MEM /RF", "/IO /RF"])
def test_a_missing_name_is_a_file_that_cannot_be_created(run, args):
    # The missing size is 0, the missing start as well: the range itself would be fine.
    check_no_file(run(args))


def test_a_file_that_the_kernel_protects_is_reported(run, tmp_path):
    (tmp_path / "NOTES.BIN").symlink_to("/sys/kernel/notes")  # not even root may open it for writing
    check_no_file(run("/MEM /RF NOTES.BIN 0x100000 4"))


# Small and read-only disks


def test_a_disk_that_becomes_full_leaves_a_short_file(on_disk, tmp_path):
    result = on_disk("/MEM /RF FULL.BIN 0x100800 0x20000", "size=64k", keep_memory=True)
    assert (result.text, result.status, result.err) == (WAITING + "Write to buffer fail!\n", 0, b"")
    data = (tmp_path / "left" / "FULL.BIN").read_bytes()
    assert 0 < len(data) <= 0x10000
    assert data == result.memory(0x100800, len(data))


def test_a_full_disk_leaves_an_empty_file_also_when_a_few_bytes_are_missing(on_disk, tmp_path):
    fill = "dd if=/dev/zero of=FILL bs=4096 count=16 status=none"
    result = on_disk("/IO /RF FULL.BIN 0x500 4", "size=64k", then=fill)
    assert (result.text, result.status, result.err) == (WAITING + "Write to buffer fail!\n", 0, b"")
    assert (tmp_path / "left" / "FULL.BIN").read_bytes() == b""


def test_nothing_more_is_read_once_the_disk_is_full(on_disk):
    result = on_disk("/MEM /RF FULL.BIN 0 0x5000000", "size=64k")
    assert result.text == WAITING + "R_MEM Start:0x0, Size:0x5000000\nWrite to buffer fail!\n"
    assert len(result.maps()) == 2 * 0x2800


def test_a_disk_without_room_for_one_more_file_is_reported(on_disk):
    result = on_disk("/MEM /RF ONE.BIN 0x100000 4", "nr_inodes=2", then="touch OTHER")
    assert (result.text, result.status) == (NO_FILE, ABORTED)


@pytest.mark.parametrize("name", ["NEW.BIN", "OLD.BIN"])
def test_a_read_only_disk_is_reported_and_left_alone(on_disk, tmp_path, name):
    result = on_disk(f"/MEM /RF {name} 0x100000 4", "size=64k",
                     then="printf before >OLD.BIN && mount -o remount,ro .")
    check_no_file(result)
    assert [path.name for path in (tmp_path / "left").iterdir()] == ["OLD.BIN"]
    assert (tmp_path / "left" / "OLD.BIN").read_bytes() == b"before"


def test_a_device_that_takes_no_bytes_is_a_full_disk(run, tmp_path):
    (tmp_path / "DEVICE.BIN").symlink_to("/dev/full")
    result = run("/MEM /RF DEVICE.BIN 0x100000 1")
    assert_run(result, WAITING + "Write to buffer fail!\n", 0, copied_pages(0x100000))


# What is there already and is no file


def make_socket(path):
    with contextlib.chdir(path.parent), socket.socket(socket.AF_UNIX) as end:
        end.bind(path.name)


NO_FILES = {"fifo": os.mkfifo, "socket": make_socket, "folder": pathlib.Path.mkdir,
            "terminal": lambda path: path.symlink_to("/dev/tty"),
            "random": lambda path: path.symlink_to("/dev/urandom")}
DUMPS = pytest.mark.parametrize("args", ["/MEM /RF THERE.BIN 0x100000 4", "/IO /RF THERE.BIN 0x500 4"])


@DUMPS
@pytest.mark.parametrize("kind", NO_FILES)
def test_what_cannot_hold_a_dump_is_left_alone_without_waiting(run, tmp_path, args, kind):
    NO_FILES[kind](tmp_path / "THERE.BIN")
    check_no_file(run(args))


@DUMPS
def test_the_terminal_is_no_file_for_a_dump_either(terminal, tmp_path, args):
    (tmp_path / "THERE.BIN").symlink_to("/dev/tty")
    result = terminal(args)
    assert (result.out, result.status) == (NO_FILE.replace("\n", "\r\n").encode(), ABORTED)


@DUMPS
def test_a_fifo_with_a_reader_gets_nothing(run, tmp_path, args):
    os.mkfifo(tmp_path / "THERE.BIN")
    pipe = os.open(tmp_path / "THERE.BIN", os.O_RDWR | os.O_NONBLOCK)
    check_no_file(run(args))
    with pytest.raises(BlockingIOError):
        os.read(pipe, 1)
    os.close(pipe)


@DUMPS
@pytest.mark.parametrize("name", ["null", "zero"])
def test_a_device_that_swallows_everything_takes_a_dump(run, tmp_path, args, name):
    (tmp_path / "THERE.BIN").symlink_to(f"/dev/{name}")
    result = run(args)
    assert (result.text, result.status, result.err) == (WAITING, 0, b"")
