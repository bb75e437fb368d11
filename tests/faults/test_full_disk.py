"""The n-th write of libc's own to a file fails, as on a full disk: strace gives the error to the system call."""

import subprocess

import pytest

import injection
import oracles
from expected import CLOSE
from lines import every_line

PER_COMMAND = {}  # with a line for each way to write
for line in every_line():
    if line.signature is None and "/?" not in line.words:
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
    return result, "(INJECTED)" in log.read_text()


def complaints(bench, name, number, result, usual):
    # Nobody asks whether a line has reached the screen; a dump that was cut short says so in one line more.
    if result.status != usual.status or result.err:
        yield f"write {number} to {name}: status {result.status}, {result.err}"
    if result.held or result.log[-2:] != CLOSE:
        yield f"write {number} to {name}: {result.held}, {result.log[-2:]}"
    text = result.text.replace("Write to buffer fail!\n", "")
    if not oracles.is_part_of(text, usual.text):
        yield f"write {number} to {name}: {result.text[-200:]!r}"
    if name.endswith(".BIN") and "Write to buffer fail!" not in result.text:
        yield f"write {number} to {name}: nothing was said of it"


@pytest.mark.parametrize("line", WRITING, ids=str)
def test_a_full_disk_is_survived_at_every_write(tmp_path, line):
    bench = injection.Bench(tmp_path, line)
    usual = bench.run("count")
    found = []
    for name in ["out", *usual.files]:
        number, failed = 1, True
        while failed:
            result, failed = run_with_failing_write(bench, name, number)
            if failed:
                found += complaints(bench, name, number, result, usual)
            number += 1
        assert number > 2 or usual.out == b""
    assert not found, "\n".join(found)


def test_there_is_a_line_for_each_file_that_is_written(tmp_path):
    written = set()
    for line in WRITING:
        written |= set(injection.Bench(tmp_path, line).run("count").files)
    assert {"MEMORY.BIN", "PORTS.BIN", "RTCLOG"} <= written
