"""Started with standard descriptors closed, and what commands run through the shell inherit.

Every open takes the lowest free descriptor. Were nothing done about it, the memory device would become descriptor 0,
1 or 2, and what is printed would be written into physical memory.
"""

import itertools
import os
import pathlib
import re

import pytest

from harness import CLOSED, NAMES, WRAPPER, contents

CLOSED_SETS = [set(which) for count in range(4) for which in itertools.combinations((0, 1, 2), count)]
COMMANDS = {
    "/PCI /RB 0 0 0 0": (0x86, b"return data:0x86\n"),
    "/PCI /RW 1 0 0 0x10c": (0x30, b"return data:0x2030\n"),
    "": (0, b"ReadMe.doc. \n"),
    "/PCI /?": (2, b"Dump all PCI device data\n"),
    "/MSR /WD 0 0x1a0 0 1": (1, b"return MSR: 0x00000000_00000001\n"),
    "/MEM /DUMP 0xffffff00 /TEXT": (0, b"\r\n"),
    "/MEM /RF /no/such/folder 0 0x10": (0x15, b"FileOpen fail!\n"),
    "/LOG": (15, b""),
}


def ids(which):
    return "+".join(NAMES[number] for number in sorted(which)) or "none"


def closed_arguments(which):
    return {NAMES[number]: CLOSED for number in which}


def test_contents_of_a_sparse_file_are_found(tmp_path):
    path = tmp_path / "file"
    with open(path, "wb") as file:
        file.truncate(1 << 32)
        file.seek(0xFFFFE123)
        file.write(b"x")
    assert contents(path) == {0xFFFFE000: bytes(0x123) + b"x" + bytes(0x1000 - 0x124)}


@pytest.mark.parametrize("args", COMMANDS, ids=lambda args: args or "no arguments")
def test_no_message_reaches_physical_memory(run, args):
    status, end = COMMANDS[args]
    untouched = contents(run(args, keep_memory=True).memory_file)
    assert len(untouched) > 10
    for which in CLOSED_SETS:
        result = run(args, keep_memory=True, **closed_arguments(which))
        assert result.status == status, which
        assert result.out.endswith(end) if 1 not in which else result.out == b"", which
        assert contents(result.memory_file) == untouched, which


@pytest.mark.parametrize("which", CLOSED_SETS, ids=ids)
def test_the_accesses_are_the_same_with_closed_descriptors(run, which):
    for args in COMMANDS:
        assert run(args, **closed_arguments(which)).log == run(args).log


@pytest.mark.parametrize("which", CLOSED_SETS, ids=ids)
def test_a_write_to_memory_still_arrives(run, which):
    result = run("/MEM /WD 0x200000 0x11223344", keep_memory=True, **closed_arguments(which))
    assert result.memory(0x200000, 8) == bytes.fromhex("4433221100000000")
    assert result.status == 0x44


@pytest.mark.parametrize("which", CLOSED_SETS, ids=ids)
def test_a_dump_file_holds_the_dump_and_no_message(run, tmp_path, which):
    result = run(["/MEM", "/RF", "F.BIN", "0x1000", "8"], **closed_arguments(which))
    assert (tmp_path / "F.BIN").read_bytes() == bytes.fromhex("0010000004100000")
    assert result.status == 0


@pytest.fixture
def shell_lister(tmp_path):
    """A command "clear" that notes what it inherited: descriptors and the files behind them, but for its output."""
    folder = tmp_path / "bin"
    folder.mkdir()
    notes = tmp_path / "descriptors"
    script = folder / "clear"
    script.write_text(f"#!/bin/sh\nexec ls -l /proc/self/fd >{notes}\n")
    script.chmod(0o755)

    def descriptors():
        found = re.findall(r" (\d+) -> (.*)", notes.read_text())
        inherited = {int(number): path for number, path in found if not path.startswith("/proc/")}  # the list itself
        assert inherited.pop(1) == str(notes)
        return inherited

    return f"{folder}:{os.environ['PATH']}", descriptors


@pytest.mark.skipif(bool(WRAPPER), reason="the wrapper has descriptors of its own")
@pytest.mark.parametrize("which", CLOSED_SETS, ids=ids)
@pytest.mark.parametrize("board", ["intel", "latemsr"])
def test_a_shell_command_inherits_neither_memory_nor_msr_node(run, shell_lister, which, board):
    path, descriptors = shell_lister
    result = run("/?", board=board, extra="system real clear", keep_memory=True, env={"PATH": path},
                 **closed_arguments(which))
    assert result.status == 0 and result.systems()[-1] == "clear"
    inherited = descriptors()
    assert sorted(inherited) == [0, 2]
    assert not any("mem" in pathlib.Path(path).name or "msr" in path for path in inherited.values())
    assert all(inherited[number] == "/dev/null" for number in which - {1})


@pytest.mark.parametrize("args, board", [
    ("/PCI /RB 0 0 0 0x100", "amd"),
    ("/MSR /WD /ALL 0x1a0 0 0", "intel"),
    ("/MSR /RD /ALL 0x1b", "latemsr"),
    ("/MEM /RB 0", "intel"),
])
def test_every_device_is_opened_so_that_no_command_inherits_it(run, args, board):
    opened = run(args, board=board).lines("open")
    assert opened and all(" cloexec -> " in line for line in opened)
