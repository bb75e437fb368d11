"""The cycle counters RBTLOG and RTCLOG: four bytes in the current directory, the lowest first."""

import contextlib
import os
import pathlib
import socket

import pytest
from power import RUN, story

CYCLES = {
    "RBTLOG": ("/RTC 0 /T 0", "shutdown -r now"),
    "RTCLOG": ("/RTC 60 /T 0", "shutdown -P now"),
}


@pytest.fixture(params=CYCLES)
def cycle(request, run, tmp_path):
    """Runs a cycle of the one kind or the other with these bytes in its counter file, or no file for None.

    Gives the line about the count, the file's bytes afterwards, and makes sure that the cycle went on."""

    def go(contents, **more):
        name = request.param
        args, command = CYCLES[name]
        if contents is not None:
            (tmp_path / name).write_bytes(contents)
        result = run(args, **more)
        assert result.systems() == [command]
        assert result.err == b""
        lines = [line.replace(name, "FILE") for line in result.text.splitlines() if name in line]
        after = (tmp_path / name).read_bytes() if (tmp_path / name).is_file() else None
        return lines, after

    return go


def test_without_a_file_the_first_cycle_is_counted(cycle):
    assert cycle(None) == (["Have no FILE file!"], b"\x01\x00\x00\x00")


@pytest.mark.parametrize("before, count, after", [
    ("00000000", 0, "01000000"),
    ("01000000", 1, "02000000"),
    ("ff000000", 255, "00010000"),
    ("12345678", 0x78563412, "13345678"),
    ("ffffff7f", 0x7FFFFFFF, "00000080"),
    ("fdffffff", 0xFFFFFFFD, "feffffff"),
    ("feffffff", 0xFFFFFFFE, "01000000"),
    ("ffffffff", 0xFFFFFFFF, "00000000"),
])
def test_a_cycle_is_added_to_the_count(cycle, before, count, after):
    assert cycle(bytes.fromhex(before)) == ([f"FILE count is: {count}"], bytes.fromhex(after))


@pytest.mark.parametrize("before, count", [(b"", 0), (b"\x05", 5), (b"\x05\x01", 0x105), (b"\x05\x01\x02", 0x20105)])
def test_missing_bytes_of_a_short_file_count_as_zero(cycle, before, count):
    assert cycle(before) == ([f"FILE count is: {count}"], (count + 1).to_bytes(4, "little"))


def test_a_longer_file_is_cut_to_four_bytes(cycle):
    assert cycle(b"\x05\x00\x00\x00rest") == (["FILE count is: 5"], b"\x06\x00\x00\x00")


def test_in_a_directory_that_takes_no_files_the_cycle_goes_on(cycle):
    assert cycle(None, cwd="/proc") == (["Have no FILE file!", "FILE write fail!"], None)


@pytest.mark.parametrize("name", CYCLES)
def test_on_a_full_disk_the_cycle_goes_on_without_a_word(on_disk, tmp_path, name):
    args, command = CYCLES[name]
    fill = f"touch {name} && dd if=/dev/zero of=FILL bs=4096 count=16 status=none"
    result = on_disk(args, "size=64k", then=fill)
    assert f"{name} count is: 0\n" in result.text and "fail" not in result.text
    assert result.systems() == [command]
    assert (tmp_path / "left" / name).read_bytes() == b""


def make_fifo(path):
    os.mkfifo(path)


def make_socket(path):
    with contextlib.chdir(path.parent), socket.socket(socket.AF_UNIX) as end:
        end.bind(path.name)


def make_link_to(target):
    return lambda path: path.symlink_to(target)


@pytest.mark.parametrize("make", [make_fifo, make_socket, make_link_to("/dev/null"), make_link_to("/dev/full"),
                                  make_link_to("/dev/tty"), pathlib.Path.mkdir],
                         ids=["fifo", "socket", "null", "full", "tty", "folder"])
@pytest.mark.parametrize("name", CYCLES)
def test_what_is_not_a_regular_file_counts_as_one_that_cannot_be_opened(run, tmp_path, make, name):
    args, command = CYCLES[name]
    make(tmp_path / name)
    result = run(args)
    assert f"Have no {name} file!\n{name} write fail!\n" in result.text
    assert result.systems() == [command]


@pytest.mark.parametrize("name", CYCLES)
def test_a_fifo_with_both_ends_open_is_left_alone(run, tmp_path, name):
    args, command = CYCLES[name]
    os.mkfifo(tmp_path / name)
    pipe = os.open(tmp_path / name, os.O_RDWR | os.O_NONBLOCK)
    os.write(pipe, b"text")
    result = run(args)
    assert f"Have no {name} file!\n{name} write fail!\n" in result.text
    assert os.read(pipe, 9) == b"text"
    os.close(pipe)


def test_the_message_comes_between_countdown_and_alarm(run):
    result = run("/RTC 60 /T 1", extra=[RUN], cwd="/proc")
    assert result.text == ("RTC wake up after 60 seconds!\nHave no RTCLOG file!\n"
                           "\n...timeout: 1 seconds (press ESC to break out)...\nTime: 04:05:06\nRTCLOG write fail!\n"
                           "SetCmos timer:  04:06:07\n")
    assert result.status == 0


def test_each_cycle_has_its_own_counter(run, tmp_path):
    for args in ("/RTC 0 /T 0", "/RTC 60 /T 0", "/RTC 60 /T 0", "/RTC 60 /RESET /T 0", "/RTC 0 /T 0"):
        run(args)
    assert (tmp_path / "RBTLOG").read_bytes() == b"\x03\x00\x00\x00"
    assert (tmp_path / "RTCLOG").read_bytes() == b"\x02\x00\x00\x00"


# The machine may hang on its way down: what counts must be on the disk before.


@pytest.mark.parametrize("args, name", [("/RTC 0 /T 1", "RBTLOG"), ("/RTC 60 /T 1", "RTCLOG")])
def test_the_count_and_its_directory_entry_are_on_the_disk_before_the_shutdown(run, args, name):
    told = story(run(args, extra=[RUN]).log)
    assert told[:3] == ["time", f"fsync {name} 4", "fsync folder"]
    assert told[-1].startswith("system shutdown") and told.index(told[-1]) > 2


@pytest.mark.parametrize("args, name, word", [("/RTC 0 /T 0", "RBTLOG", "-r"), ("/RTC 60 /T 0", "RTCLOG", "-P")])
def test_the_shutdown_command_finds_the_new_count(run, tmp_path, args, name, word):
    (tmp_path / name).write_bytes(b"\x09\x00\x00\x00")
    folder = tmp_path / "bin"
    folder.mkdir()
    (folder / "shutdown").write_text(f'#!/bin/sh\necho "$@" >words\ncp {name} seen\n')
    (folder / "shutdown").chmod(0o755)
    run(args, extra=["system real shutdown"], env={"PATH": f"{folder}:/usr/bin:/bin"})
    assert (tmp_path / "words").read_text() == f"{word} now\n"
    assert (tmp_path / "seen").read_bytes() == b"\x0a\x00\x00\x00"
