"""A capture only reads, unless it is asked for more, and leaves hardware as it was."""

import contextlib
import re
import signal
import subprocess
import time

import pytest

# What may be written without an option: index registers and the delay port.
INDEX_PORTS = {"0cf8", "0070", "0072", "0cd6", "00ed"}


def writes(log):
    """The accesses of a log that change something: stores, writes to ports that hold no index, to MSRs, commands."""
    found = []
    for line in log:
        word, _, rest = line.partition(" ")
        port = re.match(r"out\d+$", word) and rest.split()[0]
        if (port and port not in INDEX_PORTS) or re.match(r"mw\d+$|pwrite$|system$", word):
            found.append(line)
    return found


@pytest.mark.parametrize("board", ["intel", "amd", "unknown", "cpugap"])
def test_without_options_nothing_is_written(capture, board):
    log = capture(board=board, extra="watch e0000 20000" if board == "intel" else ()).log
    assert len(log) > 100000
    assert writes(log) == []
    assert [line for line in log if line.startswith("mr")] or board != "intel"


@pytest.mark.parametrize("words, line", [
    ("/IO /WB 0x80 1", "out8 0080 01"),
    ("/PCI /WB 0 0 0 0xdc 1", "out8 0cfc 01"),
    ("/MEM /WB 0xe0000 1", "mw8 e0000 1"),
    ("/MSR /WD 0 0x1a0 0 0", "pwrite /dev/cpu/0/msr 1a0 8 0000000000000000 -> ok"),
    ("/SHUTDOWN", "system "),
])
def test_a_write_is_noticed(run, words, line):
    found = writes(run(words, extra=["watch e0000 20000", "system print"]).log)
    assert found and (line.split()[0] == found[0].split()[0])


@pytest.mark.parametrize("option, allowed", [("--superio", {"004e", "004f"}), ("--spd", {"0cfc"} | {
    f"{port:04x}" for port in range(0xEFA0, 0xEFB0)}), ("--memory 100000-1fffff", set()), ("--ports 60-64", set())])
def test_an_option_writes_where_it_says(capture, option, allowed):
    found = writes(capture(option).log)
    assert {line.split()[1] for line in found} <= allowed
    assert bool(found) == bool(allowed)


def test_the_die_is_selected_and_set_back(capture):
    found = writes(capture("--smn 1 18000", board="amd").log)
    assert found[0] == "out32 0cfc 00000001" and found[-1] == "out32 0cfc 00000000"


def test_a_signal_waits_until_the_super_io_chip_is_locked(run, tmp_path):
    path = tmp_path / "never.board"

    def interrupt(runner, cwd, stdin, stdout, stderr, timeout):
        child = subprocess.Popen(runner.command, env=runner.environment, stderr=subprocess.PIPE)
        deadline = time.monotonic() + timeout
        while "out8 004e a5" not in tail(runner.log_file) and time.monotonic() < deadline:
            pass
        child.send_signal(signal.SIGINT)
        err = child.communicate(timeout=timeout)[1]
        return runner.result(child.returncode, b"", err)

    def tail(log):
        with contextlib.suppress(OSError), open(log, "rb") as file:
            file.seek(max(0, log.stat().st_size - 4096))
            return file.read().decode()
        return ""

    result = run(f"--superio -o {path}", program="hwreg-capture", runner=interrupt, timeout=60)
    ports = [line for line in result.log if line.split(" ")[1] in ("004e", "004f")]
    assert ports[:2] == ["out8 004e a5"] * 2 and ports[-1] == "out8 004e aa"
    assert result.status == -signal.SIGINT and list(tmp_path.glob("never*")) == []
