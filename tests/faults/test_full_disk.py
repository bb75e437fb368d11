"""The n-th write of libc's own to a file fails, as on a full disk: strace gives the error to the system call."""

import os
import re
import subprocess

import pytest

import injection
from expected import LOST
from lines import every_line

PER_COMMAND = {}  # with a line for each way to write
for line in every_line():
    if "/?" not in line.words:
        writes = [word for word in ("/DUMP", "/RF", "/T") if word in line.words.split()]
        PER_COMMAND.setdefault((line.command, *writes), line)
WRITING = list(PER_COMMAND.values())


def run_with_failing_write(bench, name, number):
    """The run with its output in the file `out`; the write of that number to the file of that name fails."""
    bench.clear()
    log = bench.folder / "strace"
    first = bench.first
    preload = first.environment["LD_PRELOAD"]
    environment = {key: value for key, value in first.environment.items() if key != "LD_PRELOAD"}
    environment["ASAN_OPTIONS"] += ":detect_leaks=0"  # the leak sanitizer is a tracer itself
    command = ["strace", "-o", log, "-P", bench.work / name, "-e", "trace=write", "-e", "signal=none",
               "-e", f"inject=write:error=ENOSPC:when={number}", "-E", f"LD_PRELOAD={preload}", "-E",
               "HWBOARD_FAIL=count", *first.command]
    with open(bench.work / "out", "wb") as out:
        done = subprocess.run(command, input=bench.line.keys, stdout=out, stderr=subprocess.PIPE, env=environment,
                              cwd=bench.work, timeout=injection.SECONDS, check=False)
    result = injection.told(first.result(done.returncode, (bench.work / "out").read_bytes(), done.stderr), bench.work)
    return result, lost_part(log.read_text())


def lost_part(log):
    """(from, to) in what was written to the file, of the write that failed; None when none did."""
    at = 0
    for length, injected in re.findall(r"^write\(.*, (\d+)\) += -?\d+(.*INJECTED)?", log, re.MULTILINE):
        if injected:
            return at, at + int(length)
        at += int(length)
    return None


def as_it_ends(lost, usual, escaped):
    """The run that is to be expected: a page that was lost before it was whole is the last one, as if ESC was pressed
    behind it."""
    page = len(os.path.commonprefix([escaped.out, usual.out]))
    return escaped if lost[1] <= page else usual


def is_on_the_screen(out, lost, usual):
    """True for all but what the screen did not take. libc has part of a line in hand then, which is lost with it."""
    start, end = lost
    goes_on = start + len(usual) - len(out)
    in_hand = usual[end:goes_on].rstrip(b"\r\n")
    return goes_on >= end and out == usual[:start] + usual[goes_on:] and b"\n" not in in_hand


def is_in_the_file(name, lost, result, usual):
    """True for what went before. Of a dump the screen says so in one line more; nobody waits for a count of cycles."""
    said = b"Write to buffer fail!\n" if name.endswith(".BIN") else b""
    return result.files[name] == usual.files[name][:lost[0]] and result.out == usual.out + said


def accesses(log):
    """Without bringing a file to the disk, which is given up where it could not be written."""
    return [line for line in log if not line.startswith("fsync ")]


def complaints(name, lost, result, usual):
    place = f"{name} without {lost}"
    if result.status != usual.status or result.err != (LOST if name == "out" else b""):
        yield f"{place}: status {result.status}, {result.err}"
    if result.held or accesses(result.log) != accesses(usual.log):
        yield f"{place}: {result.held}, {len(result.log)} accesses for {len(usual.log)}, {result.log[-2:]}"
    if not (is_on_the_screen(result.out, lost, usual.out) if name == "out" else
            is_in_the_file(name, lost, result, usual)):
        yield f"{place}: {result.text[-200:]!r}"


@pytest.mark.parametrize("line", WRITING, ids=str)
def test_a_full_disk_is_survived_at_every_write(tmp_path, line):
    bench = injection.Bench(tmp_path, line)
    usual = bench.run("count")
    escaped = bench.run("count", keys=b"\x1b") if line.keys else usual
    found = []
    for name in ["out", *usual.files]:
        number, lost = 1, ()
        while lost is not None:
            result, lost = run_with_failing_write(bench, name, number)
            if lost is not None:
                ended = as_it_ends(lost, usual, escaped) if name == "out" else usual
                found += complaints(name, lost, result, ended)
            number += 1
        assert number > 2 or usual.out == b""
    assert not found, "\n".join(found)


def test_there_is_a_line_for_each_file_that_is_written(tmp_path):
    written = set()
    for line in WRITING:
        written |= set(injection.Bench(tmp_path, line).run("count").files)
    assert {"MEMORY.BIN", "PORTS.BIN", "RTCLOG"} <= written
