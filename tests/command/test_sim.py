"""hwreg-sim, the simulated board for users."""

import os
import re
import resource
import shlex
import signal
import socket

import pytest

from harness import BOARDS, BUILD, TOP

SIM = TOP / "sim" / "hwreg-sim"
READ_HOST = "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n"
READ_HOST_LOG = ["iopl 3", "open /dev/mem rdwr sync cloexec -> ok", "open /dev/cpu/0/msr rdonly cloexec -> ok",
                 "close /dev/cpu/0/msr", "out8 00ed 00", "out8 00ed 00", "out32 0cf8 80000000", "in8 0cfc -> 86",
                 "iopl 0", "close /dev/mem"]


# Machines

def test_runs_on_the_intel_machine_and_ends_with_the_status_of_the_program(sim):
    ran = sim("/PCI /RB 0 0 0 0")
    assert (ran.stdout, ran.stderr, ran.returncode) == (READ_HOST, "", 0x86)


def test_board_chooses_another_machine(sim):
    assert sim("--board amd /PCI /RW 0 0 0 0").stdout == "PCI Read Word BDFO: 0 0 0 0, return data:0x1022\n"
    assert sim("--board=noiopl /PCI /RW 0 0 0 0").returncode == 6


@pytest.mark.parametrize("name", ["mine.board", "./mine.board", "{folder}/mine.board", "./other-name"])
def test_a_board_file_of_ones_own(sim, tmp_path, name):
    path = tmp_path / name.format(folder=tmp_path)
    path.write_text(f'include "{BOARDS}/intel.board"\nlatch 300 1 a5\n')
    assert sim(f"--board {name.format(folder=tmp_path)} /IO /RB 0x300").returncode == 0xA5


def test_every_run_begins_with_the_machine_as_described(sim, tmp_path):
    (tmp_path / "latch.board").write_text(f'include "{BOARDS}/intel.board"\nlatch 300 1 a5\n')
    assert sim("--board latch.board /IO /WB 0x300 0x11").returncode == 0x11
    assert sim("--board latch.board /IO /RB 0x300").returncode == 0xA5


def test_boards_lists_every_machine_with_what_it_is(sim):
    ran = sim("--boards")
    lines = dict(line.split(None, 1) for line in ran.stdout.splitlines())
    assert ran.returncode == 0
    assert lines["intel"] == "A desktop machine with an Intel chipset: eight CPUs, configuration window at 0xE0000000."
    assert all(text.endswith(".") for text in lines.values())
    included_only = {path.stem for path in BOARDS.glob("*.board") if "\ninclude " not in path.read_text()}
    assert "base" in included_only
    assert set(lines) == {path.stem for path in BOARDS.glob("*.board")} - included_only


def test_every_listed_machine_can_be_read(sim):
    boards = [line.split()[0] for line in sim("--boards").stdout.splitlines()]
    assert {"intel", "amd", "noiopl"} <= set(boards)
    for board in boards:
        ran = sim(f"--board {board} /IO /RB 0x61")
        shown = "" if board == "noiopl" else f"IO Read Byte Port: 61, return data:0x{ran.returncode:02X}\n"
        assert (ran.stdout, ran.stderr) == (shown, ""), board


# The log

def test_log_shows_each_access_on_standard_error(sim):
    ran = sim("--log /PCI /RB 0 0 0 0")
    assert (ran.stdout, ran.stderr.splitlines(), ran.returncode) == (READ_HOST, READ_HOST_LOG, 0x86)


def test_log_is_appended_to_a_file(sim, tmp_path):
    sim("--log=accesses /PCI /RB 0 0 0 0")
    ran = sim("--log=accesses /PCI /RB 0 0 0 0")
    assert (ran.stdout, ran.stderr) == (READ_HOST, "")
    assert (tmp_path / "accesses").read_text().splitlines() == 2 * READ_HOST_LOG


def test_an_explained_log_names_what_is_reached(sim, tmp_path):
    explained = [line.split() for line in sim("--log --explain /PCI /RB 0 0 0 0").stderr.splitlines()]
    assert ["+2", "us", "pci", "00:00.0+00", "read8", "->", "86", "Vendor", "ID"] in explained
    for _ in range(2):
        sim("--log=told --explain /PCI /RB 0 0 0 0")
    assert [line.split() for line in (tmp_path / "told").read_text().splitlines()] == explained * 2


def test_an_explained_log_keeps_the_status_and_the_output_of_the_program(sim):
    ran = sim("--explain --log /PCI /RB 0 0 0 0")
    assert (ran.stdout, ran.returncode) == (READ_HOST, 0x86)


def test_an_explained_log_that_cannot_be_written_runs_nothing(sim):
    ran = sim("--explain --log=/nowhere/log /PCI /RB 0 0 0 0")
    assert (ran.stdout, ran.returncode) == ("", 125) and "/nowhere/log" in ran.stderr


def test_the_lines_of_a_machine_hold_those_of_the_files_that_it_includes(sim, tmp_path):
    (tmp_path / "part.board").write_text("latch 300 1\n")
    (tmp_path / "mine.board").write_text("# Mine.\ninclude part.board\ninclude noiopl.board")
    lines = sim("--board mine.board --lines").stdout.splitlines()
    assert lines[:2] == ["# Mine.", "latch 300 1"] and {"iopl EPERM", "pci-ports"} <= set(lines)
    assert not any(line.startswith("include") for line in lines)


def test_the_lines_of_files_whose_names_have_blanks_are_printed_too(sim, tmp_path):
    (tmp_path / "a part").mkdir()
    (tmp_path / "a part/one.board").write_text('include "the next.board" # and no more\n')
    (tmp_path / "a part/the next.board").write_text("latch 300 1\n")
    (tmp_path / "mine.board").write_bytes(b'\xEF\xBB\xBFinclude "a part/one.board"\r\nmem ok\n')
    ran = sim("--board mine.board --lines")
    assert (ran.stdout, ran.stderr) == ("latch 300 1\nmem ok\n", "")


def test_the_lines_of_a_machine_with_mistakes_are_not_printed(sim, tmp_path):
    (tmp_path / "mine.board").write_text("include mine.board\n")
    ran = sim("--board mine.board --lines")
    assert (ran.stdout, ran.returncode) == ("", 125) and "mine.board" in ran.stderr


def test_log_and_other_output_share_a_file(sim, tmp_path):
    with open(tmp_path / "all", "w") as file:
        for note in ("before", "between"):
            file.write(f"{note}\n")
            file.flush()
            sim("--log /PCI /RB 0 0 0 0", stdout=file, stderr=file)
    lines = (tmp_path / "all").read_text().splitlines()
    assert lines[0] == "before" and lines[12] == "between"
    assert sorted(lines[1:12]) == sorted(lines[13:]) == sorted([*READ_HOST_LOG, READ_HOST.strip()])


def test_a_mistake_in_a_board_file_is_told(sim, tmp_path):
    (tmp_path / "wrong.board").write_text("iopl ok\nnonsense\n")
    ran = sim("--log --board wrong.board /PCI")
    assert "wrong.board:2:" in ran.stderr
    assert (ran.returncode, sim("--board wrong.board /PCI").returncode) == (125, 125)


@pytest.mark.parametrize("option, status", [("", -signal.SIGXFSZ), ("--log", 128 + signal.SIGXFSZ)])
def test_a_signal_ends_the_run_as_it_ends_the_program(sim, option, status):
    def no_files():
        resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0))

    assert sim(f"{option} /PCI", preexec_fn=no_files).returncode == status


def test_log_goes_to_a_socket_as_sshd_gives_one(sim):
    ours, theirs = socket.socketpair()
    with ours:
        with theirs:
            sim("--log /PCI /RB 0 0 0 0", stderr=theirs)
        with ours.makefile() as stream:
            assert stream.read().splitlines() == READ_HOST_LOG


def test_without_standard_error_the_log_is_lost_and_nothing_else(sim):
    ran = sim("-c 'exec \"$0\" --log /PCI /RB 0 0 0 0 2>&-' " + shlex.quote(str(SIM)), program="bash")
    assert (ran.stdout, ran.returncode) == (READ_HOST, 0x86)


# The processor

@pytest.mark.parametrize("word", ["/SMN", "-smn", "smn"])
def test_smn_meets_the_processor_that_it_asks_for(sim, word):
    ran = sim(f"--board amd {word} /RD 0 0x18000")
    assert ran.stdout == "SMN Read Dword Die:0, Regester:18000, return data:0x11223344\n"
    assert ran.stderr == ""


def test_each_machine_has_its_own_processor(sim):
    for board, maker in (("intel", "756E6547"), ("amd", "68747541"), ("hygon", "6F677948")):
        assert f"Ebx:{maker}" in sim(f"--board {board} /CPUID /RD 0").stdout


# Its own words

def test_version_is_that_of_the_program(sim):
    project = re.search(r"project\(hwreg VERSION ([0-9.]+)", (TOP / "CMakeLists.txt").read_text()).group(1)
    ran = sim("--version")
    assert (ran.stdout, ran.returncode) == (f"hwreg-sim {project}\n", 0)


def test_help_names_every_option(sim):
    ran = sim("--help")
    cases = re.findall(r"^    (--[a-z]+)(?=[ )|=])", SIM.read_text(), re.MULTILINE)
    assert ran.returncode == 0 and {"--board", "--boards", "--log", "--version"} <= set(cases)
    assert [option for option in cases if option not in ran.stdout] == []
    manual = (TOP / "docs" / "hwreg-sim.1").read_text().replace("\\-", "-")
    assert [option for option in cases if option not in manual] == []
