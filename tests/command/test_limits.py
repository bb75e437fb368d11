"""Limits and dispositions: files that must not grow, core dumps, and what the program's shell commands start with."""

import os
import re
import resource
import signal
import subprocess

import pytest
from expected import OPEN
from harness import WRAPPER, Run, act_behind, prepare_child, run_program

# ---- a file that must not grow --------------------------------------------------------------------------------------


def limit_files(size):
    return lambda child: resource.prlimit(child.pid, resource.RLIMIT_FSIZE, (size, size))


@pytest.mark.parametrize("room", [0, 1, 0x1000, 0x1FFFF])
@pytest.mark.parametrize("args", ["/MEM /RF DUMP.BIN 0x100000 0x20000", "/IO /RF DUMP.BIN 0 0x20000"])
def test_a_dump_that_reaches_the_limit_is_cut_there_and_says_so(run, tmp_path, args, room):
    result = run(args, extra="unlogged 0 10000", runner=act_behind(OPEN[:-1], limit_files(room)))
    assert (result.text, result.status, result.err) == ("Waitting ...\n\nWrite to buffer fail!\n", 0, b"")
    assert (tmp_path / "DUMP.BIN").stat().st_size == room


@pytest.mark.parametrize("args, name", [("/RTC 60 /T 0", "RTCLOG"), ("/RTC 0 /T 0", "RBTLOG")])
def test_a_count_that_reaches_the_limit_keeps_nothing_up(run, tmp_path, args, name):
    whole = run(args)
    (tmp_path / name).unlink()
    result = run(args, runner=act_behind(OPEN[:-1], limit_files(0)))
    assert (result.text, result.status, result.err) == (whole.text, whole.status, b"")
    assert result.systems() == whole.systems() != []
    assert (tmp_path / name).read_bytes() == b""


# ---- shell commands -------------------------------------------------------------------------------------------------

# What is ignored from the start. (Of blocked signals nothing is seen: Debian's shell unblocks all when it starts.)
STARTS = {"": [], "sizes": ["XFSZ"], "interrupt": ["INT"], "pipe": ["PIPE"], "more": ["HUP", "USR1", "XFSZ", "TSTP"]}
COMMANDS = {"/RTC 0 /T 1": "shutdown", "/RTC 60": "shutdown", "/?": "clear"}


def ignored_by(path):
    """The signals that a process ignored when it copied its status; but for 32 and 33, with which the C library starts
    a shell in a way of its own."""
    return int(re.search(r"(?m)^SigIgn:\t(.*)$", path.read_text())[1], 16) & ~(3 << 31)


@pytest.mark.skipif(bool(WRAPPER), reason="the wrapper has signals of its own")
@pytest.mark.parametrize("start", STARTS)
@pytest.mark.parametrize("args", COMMANDS)
def test_a_shell_command_starts_with_the_signals_that_the_program_was_started_with(run, tmp_path, args, start):
    folder = tmp_path / "bin"
    folder.mkdir()
    (folder / COMMANDS[args]).write_text("#!/bin/sh\nexec cp /proc/self/status seen\n")
    (folder / COMMANDS[args]).chmod(0o755)

    def started(prepared, *rest):
        ignored = [f"--ignore-signal={name}" for name in STARTS[start]]
        prepared.command = ["env", *ignored, prepared.executable, *prepared.words]
        prepared.executable = "/usr/bin/env"
        return run_program(prepared, *rest)

    run(["/proc/self/status", "expected"], program="/usr/bin/cp", board=None, runner=started)
    run(args, extra=[f"system real {COMMANDS[args]}", "cmos-run delays 2000"], runner=started,
        env={"PATH": f"{folder}:/usr/bin:/bin"})
    assert ignored_by(tmp_path / "seen") == ignored_by(tmp_path / "expected")
    assert (ignored_by(tmp_path / "seen") != 0) == bool(start)


@pytest.mark.skipif(bool(WRAPPER), reason="the wrapper would be what is limited")
def test_after_a_shell_command_too_a_file_that_must_not_grow_ends_nothing(run, tmp_path):
    def limited(prepared, *rest):
        prepared.command = ["prlimit", f"--fsize={5 << 30}", prepared.executable, *prepared.words]
        prepared.executable = "/usr/bin/prlimit"
        return run_program(prepared, *rest)

    with open(tmp_path / "out", "wb") as file:
        file.seek((5 << 30) - 5)  # the help screen comes behind the command that clears it
        result = run("/?", stdout=file, runner=limited)
    (tmp_path / "out").unlink()
    assert (result.status, result.systems()) == (0, ["clear"])
    assert result.err == b"hwreg: output was lost\n"


# ---- core dumps -----------------------------------------------------------------------------------------------------


def dumped(command, executable, cwd, env, number):
    """True when the process, which has printed something and waits for input, leaves a core dump at the signal."""

    def unlimited():
        prepare_child([], None)()
        resource.setrlimit(resource.RLIMIT_CORE, (1 << 24, 1 << 24))

    reading, writing = os.pipe()
    child = subprocess.Popen(command, executable=executable, cwd=cwd, env=env, stdin=reading, stdout=subprocess.PIPE,
                             preexec_fn=unlimited)
    child.stdout.read(1)
    child.send_signal(number)
    end = os.waitid(os.P_PID, child.pid, os.WEXITED | os.WNOWAIT)
    child.communicate()
    os.close(reading)
    os.close(writing)
    assert end.si_status == number
    return end.si_code == os.CLD_DUMPED


@pytest.mark.skipif(bool(WRAPPER), reason="the wrapper makes the dump")
@pytest.mark.parametrize("number", [signal.SIGQUIT, signal.SIGABRT, signal.SIGSYS])
def test_no_core_dump_holds_what_was_read(tmp_path, new_folder, number):
    shell = ["sh", "-c", "echo ready; read line"]
    try:
        if not dumped(shell, "/bin/sh", tmp_path, dict(os.environ), number):
            pytest.skip("nothing leaves a core dump here")
    except PermissionError:
        pytest.skip("core dumps are not allowed here")
    prepared = Run(new_folder(), "/MEM /DUMP 0x1000", "intel", [], False, "hwreg", None)
    assert not dumped(prepared.command, prepared.executable, tmp_path, prepared.environment, number)
