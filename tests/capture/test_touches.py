"""A capture only reads, unless it is asked for more, and leaves hardware as it was."""

import fcntl
import os
import re
import signal
import subprocess

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


def signal_after(access, number):
    """A runner that sends a signal soon after an access: the log goes through a pipe of one page, so the program comes
    no further than that meanwhile."""

    def go(run, cwd, stdin, stdout, stderr, timeout):
        reader, writer = os.pipe()
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        child = subprocess.Popen(run.command, env={**run.environment, "HWBOARD_LOG": f"/proc/self/fd/{writer}"},
                                 pass_fds=[writer], stderr=subprocess.PIPE)  # fmt: skip
        os.close(writer)
        with open(reader, "rb", buffering=0) as pipe, open(run.log_file, "wb") as log:
            waiting = True
            while part := pipe.read(512):
                log.write(part)
                if waiting and access in part:
                    child.send_signal(number)
                    waiting = False
        return run.result(child.wait(timeout), b"", child.communicate()[1])

    return go


def test_a_signal_waits_until_the_super_io_chip_is_locked(run, tmp_path):
    path = tmp_path / "never.board"
    result = run(f"--superio -o {path}", program="hwreg-capture", runner=signal_after(b"out8 004f", signal.SIGINT))
    ports = [line for line in result.log if line.split(" ")[1] in ("004e", "004f")]
    assert ports[:2] == ["out8 004e a5"] * 2 and ports[-1] == "out8 004e aa"
    assert result.status == -signal.SIGINT and list(tmp_path.glob("never*")) == []
