"""The options of hwreg-sim, and scripts/run, which hands them on from the source tree."""

import json
import os
import subprocess

import pytest
from harness import BOARDS, BUILD, TOP

READ_HOST = "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n"
LAST_LINES = ["in8 0cfc -> 22", "iopl 0", "close /dev/mem"]


@pytest.fixture
def script(sim):
    return lambda words, **more: sim(words, program=TOP / "scripts" / "run", **more)


@pytest.fixture(params=["hwreg-sim", "scripts/run"])
def either(request, sim, script):
    return script if request.param == "scripts/run" else sim


BEHIND = "stands behind the words of hwreg; options come first, words that look like one behind --"
NO_WORD = "is no word of hwreg; the option is"


MISTAKES = [
    ("--board nowhere /IO", "no board 'nowhere'; hwreg-sim --boards lists them"),
    ("--board ./nowhere /IO", "no board './nowhere'; hwreg-sim --boards lists them"),
    ("--board /PCI /RB 0 0 0 0", "no board '/PCI'; hwreg-sim --boards lists them"),
    ("--board", "--board needs an operand"),
    ("--board= /IO /RB 0x61", "--board needs an operand"),
    ("--board '' /IO /RB 0x61", "--board needs an operand"),
    ("--board --log /IO /RB 0x61", "--board needs an operand"),
    ("--board -- /IO /RB 0x61", "--board needs an operand"),
    ("--state", "--state needs an operand"),
    ("--state= /IO /RB 0x61", "--state needs an operand"),
    ("--state '' /IO /RB 0x61", "--state needs an operand"),
    ("--state --reset /IO /RB 0x61", "--state needs an operand"),
    ("--check board /IO", "--check runs nothing: no words belong behind it"),
    ("--log= /IO /RB 0x61", "--log needs an operand"),
    ("--log=--board amd /IO /RB 0x61", "--log needs an operand"),
    ("--reset /IO /RB 0x61", "--reset needs --state"),
    ("--explain /IO /RB 0x61", "--explain needs --log"),
    ("--boards amd", "--boards runs nothing: no words belong behind it"),
    ("--lines /IO /RB 0x61", "--lines runs nothing: no words belong behind it"),
    ("--reset=yes /IO /RB 0x61", "no option '--reset=yes'; hwreg-sim --help lists them"),
    ("--bord amd /IO", "no option '--bord'; hwreg-sim --help lists them"),
    ("--bord=amd /IO", "no option '--bord=amd'; hwreg-sim --help lists them"),
    ("--Board amd /IO", "no option '--Board'; hwreg-sim --help lists them"),
    ("--board amd --board intel /IO", "--board is given twice"),
    ("--board=amd --board=amd /IO", "--board is given twice"),
    ("--state a --state=b /IO", "--state is given twice"),
    ("--log --log=b /IO", "--log is given twice"),
    ("/PCI --log /RB 0 0 0 0", f"'--log' {BEHIND}"),
    ("/PCI --log=file /RB 0 0 0 0", f"'--log=file' {BEHIND}"),
    ("/PCI /RB 0 0 0 0 --board amd", f"'--board' {BEHIND}"),
    ("/PCI /RB 0 0 0 0 --anything", f"'--anything' {BEHIND}"),
    ("-board amd /PCI /RB 0 0 0 0", f"'-board' {NO_WORD} --board"),
    ("-Board=amd /PCI /RB 0 0 0 0", f"'-Board=amd' {NO_WORD} --Board=amd"),
    ("--board amd -state file /PCI", f"'-state' {NO_WORD} --state"),
    ("/PCI -log=file", f"'-log=file' {NO_WORD} --log=file"),
]  # fmt: skip


@pytest.mark.parametrize("words, complaint", MISTAKES)
def test_a_mistake_in_an_option_is_told_and_nothing_is_run(sim, tmp_path, words, complaint):
    ran = sim(words)
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", f"hwreg-sim: {complaint}\n", 125)
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("words, complaint", MISTAKES[::5])
def test_run_leaves_no_mistake_to_the_program(script, words, complaint):
    ran = script(words)
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", f"hwreg-sim: {complaint}\n", 125)


@pytest.mark.parametrize("words", ["-PCI -RB 0 0 0 0", "\\\\PCI /RB 0 0 0 0", "-- /PCI /RB 0 0 0 0", "pci -rb 0 0 0 0"])
def test_words_of_hwreg_are_no_mistakes(either, words):
    ran = either(words)
    assert (ran.stdout, ran.stderr, ran.returncode) == (READ_HOST, "", 0x86)


def test_behind_two_dashes_are_words(either):
    assert either("-- --board amd").stdout == either("").stdout  # no switch word: the help screen
    assert either("--board amd -- -board intel /PCI /RB 0 0 0 0").returncode == 0x22


def test_the_log_goes_where_it_is_told_to(either, tmp_path):
    assert either("--board amd --log /PCI /RB 0 0 0 0").stderr.splitlines()[-3:] == LAST_LINES
    for count in (1, 2):
        ran = either("--log=accesses --board=amd /PCI /RB 0 0 0 0")
        assert (ran.stderr, ran.returncode) == ("", 0x22)
        lines = (tmp_path / "accesses").read_text().splitlines()
        assert lines[-3:] == LAST_LINES and lines.count("iopl 3") == count


# --state; sim/tests/test_state.py tells of the file


def test_a_run_begins_as_the_last_one_with_the_file_has_ended(either):
    assert either("--state machine /MEM /WB 0x1000 0x5A").returncode == 0x5A
    assert either("--state=machine /MEM /RB 0x1000").returncode == 0x5A
    assert either("/MEM /RB 0x1000").returncode == 0
    assert either("--state other /MEM /RB 0x1000").returncode == 0
    assert either("--reset --state machine /MEM /RB 0x1000").returncode == 0
    assert either("--state machine /MEM /RB 0x1000").returncode == 0


@pytest.mark.parametrize("board, write, read, says", [
    ("intel", "/PCI /WD 1 0 0 0x10c 0x00400000", "/MEM /RD 0xE010010C", "0x00400000"),
    ("intel", "/MSR /WD 3 0x1A0 0 0x850088", "/MSR /RD /ALL 0x1A0", "0x00000000_00850088"),
    ("intel", "/SIO /WB 0x26 0xA5", "/SIO /RB 0x26", "0xA5"),
    ("intel", "/SMB /WB 0xA4 0x10 0x5A", "/SMB /RB 0xA4 0x10", "0x5A"),
    ("intel", "/PCI /WD 0 0x1f 4 0x20 0xEF81", "/SMB /RB 0xA0 0", "0x23"),
    ("amd", "/IO /INDEX /WB 0xCD6 0xCD7 1 0x0C", "/SMB /RB 0xA0 0", "0x23"),
    ("amd", "/I2C /WW 2 0x50 1 0xBEEF", "/I2C /RW 2 0x50 1", "0xBEEF"),
    ("amd", "/IO /WW 0x802 0x0420", "/IO /RW 0x802", "0x0420"),
])  # fmt: skip
def test_what_a_command_has_written_is_read_by_the_next(sim, board, write, read, says):
    assert says not in sim(f"--board {board} {read}").stdout or "SMB" in read
    sim(f"--board {board} --state machine {write}")
    assert says in sim(f"--board {board} --state machine {read}").stdout
    sim(f"--board {board} --state machine --reset {write}")
    assert says in sim(f"--board {board} --state machine {read}").stdout


def test_a_module_that_was_loaded_stays_loaded(sim):
    words = "--board latemsr --state machine --log /MSR /RD 0 0x1B"
    assert "system modprobe msr" in sim(words).stderr
    second = sim(words)
    assert "system" not in second.stderr and second.stdout == sim("/MSR /RD 0 0x1B").stdout


def test_runs_at_once_lose_nothing(tmp_path):
    command = [TOP / "sim" / "hwreg-sim", "--state", "machine"]
    environment = {**os.environ, "HWREG_BUILD": str(BUILD)}
    runs = [subprocess.Popen([*command, "/IO", "/INDEX", "/WB", "0x72", "0x73", str(i), str(i + 100)], cwd=tmp_path,
                             env=environment, stdout=subprocess.DEVNULL) for i in range(20)]  # fmt: skip
    assert [one.wait() for one in runs] == [i + 100 for i in range(20)]
    for i in range(20):
        words = ["/IO", "/INDEX", "/RB", "0x72", "0x73", str(i)]
        assert subprocess.run([*command, *words], cwd=tmp_path, env=environment, capture_output=True,
                              check=False).returncode == i + 100  # fmt: skip


INCREMENT = """
value=$("$0" --state machine /IO /INDEX /RB 0x72 0x73 0x10 >/dev/null; echo $?)
"$0" --state machine /IO /INDEX /WB 0x72 0x73 0x10 $((value + 1)) >/dev/null
"""


def test_scripts_that_lock_each_other_out_count_together(tmp_path):
    script = ["flock", "lock", "bash", "-c", INCREMENT, str(TOP / "sim" / "hwreg-sim")]
    environment = {**os.environ, "HWREG_BUILD": str(BUILD)}
    for one in [subprocess.Popen(script, cwd=tmp_path, env=environment) for _ in range(20)]:
        one.wait()
    read = [script[-1], "--state", "machine", "/IO", "/INDEX", "/RB", "0x72", "0x73", "0x10"]
    assert subprocess.run(read, cwd=tmp_path, env=environment, capture_output=True, check=False).returncode == 20


def test_a_state_of_another_board_is_refused(either):
    either("--state machine /IO /RB 0x61")
    ran = either("--board amd --state machine /IO /RB 0x61")
    assert (ran.stdout, ran.returncode) == ("", 125)
    assert ran.stderr == ("machine: the state of another board, or of this one before its files were "
                          "changed; --reset begins anew\n")


def test_version_and_boards_leave_the_state_alone(sim, tmp_path):
    assert sim("--state machine --version").stdout == sim("--version").stdout
    assert sim("--state machine --boards").stdout == sim("--boards").stdout
    assert not (tmp_path / "machine").exists()


def test_what_stands_in_the_environment_is_no_option(sim, tmp_path, monkeypatch):
    for name in ("CHECK", "STATE", "RESET"):
        monkeypatch.setenv(f"HWBOARD_{name}", str(tmp_path / "machine"))
    ran = sim("/PCI /RB 0 0 0 0")
    assert (ran.stdout, ran.stderr, ran.returncode) == (READ_HOST, "", 0x86)
    assert not (tmp_path / "machine").exists()


# --capture, --preflight

COMPANION = """#!/bin/bash
printf '%s\\n' "$HWBOARD" "$HWBOARD_PATH" "$HWBOARD_STATE" "$@"
"""
COMPANIONS = [("--capture", "hwreg-capture"), ("--preflight", "hwreg-check")]


@pytest.mark.parametrize("option, companion", COMPANIONS)
def test_a_companion_is_run_with_all_words_behind_its_option(sim, tmp_path, option, companion):
    build = tmp_path / "build"
    build.mkdir()
    (build / "libhwboard.so").symlink_to(BUILD / "libhwboard.so")
    (build / companion).write_text(COMPANION)
    (build / companion).chmod(0o755)
    ran = sim(f"--board amd --state machine {option} --board x -- --log -cpu", build=build)
    assert (ran.stderr, ran.returncode) == ("", 0)
    assert ran.stdout.splitlines() == [f"{BOARDS}/amd.board", str(BOARDS), "machine", "--board", "x", "--", "--log",
                                       "-cpu"]  # fmt: skip


@pytest.mark.parametrize("option, companion", COMPANIONS)
def test_without_the_companion_nothing_is_run(sim, tmp_path, option, companion):
    ran = sim(option, build=tmp_path)
    assert (ran.stdout, ran.returncode) == ("", 125) and f"{tmp_path}/{companion}" in ran.stderr


@pytest.mark.parametrize("kind, words", [("-static-pie", "/IO /RB 0x61"), ("-static", "/IO /RB 0x61"),
                                         ("-static-pie", "--version"), ("-static", "--capture")])
def test_a_program_that_would_reach_the_hardware_itself_is_not_run(sim, tmp_path, kind, words):
    (tmp_path / "libhwboard.so").symlink_to(BUILD / "libhwboard.so")
    name = "hwreg-capture" if words == "--capture" else "hwreg"
    (tmp_path / "touches.c").write_text('#include <stdio.h>\nint main(void) { puts("touched"); return 0; }\n')
    subprocess.run(["gcc", kind, "-o", tmp_path / name, tmp_path / "touches.c"], check=True)
    ran = sim(words, build=tmp_path)
    assert (ran.stdout, ran.returncode) == ("", 125)
    assert ran.stderr.endswith(f"{name} is static or set-user-ID: no simulated machine can stand in front of it\n")


@pytest.mark.parametrize("mode", [0o4755, 0o2755])
def test_a_program_with_rights_of_its_own_is_not_run(sim, tmp_path, mode):
    (tmp_path / "libhwboard.so").symlink_to(BUILD / "libhwboard.so")
    (tmp_path / "hwreg").write_text("#!/bin/sh\necho touched\n")
    (tmp_path / "hwreg").chmod(mode)
    ran = sim("/IO /RB 0x61", build=tmp_path)
    assert (ran.stdout, ran.returncode) == ("", 125) and "set-user-ID" in ran.stderr


@pytest.mark.parametrize("folder", ["my tools", "a:b", "new\nline"])
@pytest.mark.parametrize("words", ["/IO /RB 0x61", "--version", "--check ./x"])
def test_a_library_that_the_loader_cannot_name_is_not_gone_without(sim, tmp_path, folder, words):
    build = tmp_path / folder
    build.mkdir()
    (build / "libhwboard.so").symlink_to(BUILD / "libhwboard.so")
    (build / "hwreg").write_text("#!/bin/sh\necho touched\n")
    (build / "hwreg").chmod(0o755)
    ran = sim(words, build=build)
    assert (ran.stdout, ran.returncode) == ("", 125) and "no blank or colon may be in its path" in ran.stderr


def test_what_a_command_will_do_is_told(either):
    ran = either("--board noiopl --preflight --json /IO /RB 0x61")
    assert json.loads(ran.stdout)["verdict"] == "refused" and ran.returncode == 1


# scripts/run


def test_run_builds_and_runs_on_the_intel_machine(script):
    ran = script("/PCI /RB 0 0 0 0")
    assert (ran.stdout, ran.stderr, ran.returncode) == (READ_HOST, "", 0x86)


def test_what_run_has_built_can_be_installed(script, tmp_path):
    script("/IO /RB 0x61")
    for made in BUILD.glob("packaging/*/*.gz"):
        made.unlink()
    subprocess.run(["cmake", "--install", BUILD, "--prefix", tmp_path], stdout=subprocess.DEVNULL, check=True)
    found = {str(path.relative_to(tmp_path)) for path in tmp_path.rglob("*")}
    assert {"sbin/hwreg", "bin/hwreg-sim", "lib/hwreg/libhwboard.so", "share/man/man8/hwreg.8.gz"} <= found


def test_run_lists_the_boards(script, sim):
    assert script("--boards").stdout == sim("--boards").stdout


def test_run_explains_itself_and_the_simulator(script, sim):
    text = script("--help").stdout
    assert text.endswith(sim("--help").stdout) and "scripts/run --host WORD..." in text


@pytest.mark.parametrize("words, complaint", [
    ("-host /PCI", "'-host': --host comes first, with two dashes"),
    ("/PCI --host", "'--host': --host comes first, with two dashes"),
    ("--board amd --host /PCI", "'--host': --host comes first, with two dashes"),
    ("--host --board amd /PCI", "--host takes no other option"),
    ("--host --log /PCI", "--host takes no other option"),
])
def test_run_tells_this_machine_from_a_simulated_one(script, words, complaint):
    ran = script(words)
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", f"scripts/run: {complaint}\n", 125)


@pytest.mark.skipif(os.path.exists("/dev/mem"), reason="this machine has its own hardware within reach")
def test_run_on_the_host_reaches_the_host(script):
    ran = script("--host /PCI /RB 0 0 0 0")
    assert (ran.stdout, ran.returncode) == ("", 6)
