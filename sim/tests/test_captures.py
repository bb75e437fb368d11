"""Board files that hold what was read on a machine: `capture` and `end`, functions whose bytes are given, bytes that
nobody knows, leaves of single CPUs."""

import os
import subprocess

import pytest
from harness import BUILD, TOP

SIM = TOP / "sim" / "hwreg-sim"

WINDOW = 0xB0000000
MACHINE = ["iopl ok", "mem ok", "cpus 0", "pci-ports", f"ecam {WINDOW:x} 1"]
HOST_BRIDGE = ["pci 00:00.0 verbatim", "config 00 86 80 c0 29 07 01 90 20 02 00 00 06 00 00 80 00"]


@pytest.fixture
def probe(run, tmp_path):
    """The probe on a machine of the test's own file, which begins as a capture does unless told otherwise."""

    def go(words, *lines, first="capture 1", last="end"):
        path = tmp_path / "captured.board"
        path.write_text("\n".join(line for line in [first, *MACHINE, *lines, last] if line) + "\n")
        return run(words, board=path, program="hwboard_probe")

    return go


def read_ports(offset, width=8, function=0):
    return f"out32 cf8 {0x80000000 | function << 8 | offset & 0xfc:x} in{width} {0xcfc + offset % 4:x} "


def read_window(offset, width=32, function=0):
    return f"map 3 {WINDOW + (function << 12):x} 1000 rw load mov{width} {offset:x} unmap "


def answers(result):
    return [line.split(" ", 1)[1] for line in result.text.splitlines() if line.startswith(("in ", "load "))]


def by_ports(probe, offsets, *lines):
    return answers(probe("iopl 3 " + "".join(map(read_ports, offsets)), *lines))


def by_window(probe, offsets, *lines):
    return answers(probe("open /dev/mem rws " + "".join(map(read_window, offsets)), *lines))


def test_a_function_is_what_its_bytes_say_and_zero_elsewhere(probe):
    assert by_ports(probe, [0, 1, 2, 3, 0x0b, 0x0e, 0x40], *HOST_BRIDGE) == ["86", "80", "c0", "29", "6", "80", "0"]


def test_it_has_4096_bytes_when_one_of_the_upper_ones_is_given(probe):
    assert by_window(probe, [0, 0x100, 0xffc], *HOST_BRIDGE) == ["29c08086", "ffffffff", "ffffffff"]
    assert by_window(probe, [0, 0x100, 0xffc], *HOST_BRIDGE, "config fff 5a") == ["29c08086", "0", "5a000000"]
    assert by_window(probe, [0x100], *HOST_BRIDGE, "config ff 1") == ["ffffffff"]


def test_what_can_be_written_follows_from_the_header_and_base_addresses_stay(probe):
    device = ["pci 00:00.0 verbatim", "config 10 04 00 10 de", "config 3c 0b 01"]
    bridge = [*device, "config 0e 01"]
    writes = "iopl 3 " + "".join(f"out32 cf8 {0x80000000 + at:x} out32 cfc ffffffff in32 cfc "
                                 for at in (0x04, 0x10, 0x18, 0x3c))
    assert answers(probe(writes, *device)) == ["547", "de100004", "0", "1ff"]
    assert answers(probe(writes, *bridge)) == ["547", "de100004", "ffffff", "fff01ff"]


def test_the_window_shows_what_it_is_told_to_and_the_ports_what_is_stored(probe):
    lines = [*HOST_BRIDGE, "config 40 11 22 33 44", "window 41 aa bb"]
    assert by_ports(probe, [0x40, 0x41, 0x42, 0x43], *lines) == ["11", "22", "33", "44"]
    assert by_window(probe, [0x40, 0x44], *lines) == ["44bbaa11", "0"]


def test_unknown_bytes_read_ff(probe):
    assert by_ports(probe, [2, 3], *HOST_BRIDGE, "config 2 ?? 12") == ["ff", "12"]
    assert by_window(probe, [0x40], *HOST_BRIDGE, "window 40 ?? 1") == ["1ff"]
    assert answers(probe("open /dev/mem rws map 3 1000 1000 rw load mov32 0", "bytes 1000 1 ?? 3")) == ["3ff01"]
    assert answers(probe("iopl 3 out8 70 40 in8 71 out8 70 41 in8 71", "cmos", "cmos-bytes 40 ?? 7")) == ["ff", "7"]
    host = [*HOST_BRIDGE, "config 4 1", "config 20 1 10", "config 40 1", "smbus-host pci 0", "smbus-spd a0"]
    transfer = "out8 1004 a1 out8 1003 {} out8 1002 48 in8 1000 in8 1005 out8 1000 ff "
    words = "iopl 3 " + transfer.format(0) + transfer.format(1)
    assert answers(probe(words, *host, "smbus-bytes 0 ?? 23"))[1::2] == ["ff", "23"]


def test_a_later_line_goes_on_with_the_function(probe):
    lines = [*HOST_BRIDGE, "pci 00:00.0 1234:5678", "config 40 9", "pci 00:00.0", "config 41 8"]
    assert by_ports(probe, [0, 3, 0x0b, 0x40, 0x41], *lines) == ["34", "56", "6", "9", "8"]


LEAVES = ["cpuid 1 0 a b c d", "cpuid 1 0 1a b c d cpus 0", "cpuid 1 0 2a b c d cpus 1-3,5"]


@pytest.mark.parametrize("cpus, eax", [("cpus 0-3", "1a"), ("cpus 1-3", "2a"), ("cpus 4 5", "a")])
def test_cpuid_answers_as_the_first_cpu(probe, cpus, eax):
    result = probe("cpuid 1", cpus, *LEAVES)
    assert int(result.text.split()[1], 16) == int(eax, 16)


def test_lists_of_cpus_may_have_commas(run):
    registers = run("/MSR /RD /ALL 0x1B", extra=["cpus 0-5", "msr 1b 1", "msr 1b 2 cpus 0,2-3,5"]).text
    assert [line[-1] for line in registers.splitlines()] == list("212212")


# A file that was cut off is known


def test_a_capture_may_have_comments_around_it(probe):
    assert by_ports(probe, [0], "# of a machine", *HOST_BRIDGE) == ["86"]
    assert answers(probe("iopl 3 in8 80", first="# of a machine\n\ncapture 1", last="end # of it\n\n# x")) == ["ff"]


def test_it_may_be_included_and_gone_on_with(run, tmp_path):
    (tmp_path / "captured.board").write_text("\n".join(["capture 1", *MACHINE, *HOST_BRIDGE, "end"]))
    result = run("iopl 3 " + read_ports(0), board=tmp_path / "captured.board", extra=["pci 00:00.0 4321:1"],
                 program="hwboard_probe")
    assert answers(result) == ["21"]


@pytest.mark.parametrize("first, line, last, complaint", [
    ("capture 1", "", "", '6: the file is cut off: its last line is not "end"'),
    ("capture 1", "", "en", '7: unknown keyword: "en"'),
    ("capture 2", "", "end", '1: this format of captures is not known: "2"'),
    ("cpus 0", "capture 1", "end", '7: not the first line of the file: "capture"'),
    ("cpus 0", "", "end", '7: no "capture" line comes before: "end"'),
    ("capture 1", "end", "cpus 0", '8: nothing may follow "end": "cpus"'),
    ("capture 1", "pci 00:00.0 verbatim", "pci 00:00.0 verbatim", '8: the function is there already: "00:00.0"'),
    ("capture 1", "config 0 1", "end", '7: no "pci" line comes before: "config"'),
    ("capture 1", "pci 00:00.0 verbatim\nconfig fff 1 2", "end", '8: configuration space ends at 1000h: "2"'),
    ("capture 1", "pci 00:00.0 verbatim\nconfig 0 100", "end", '8: the number is too large: "100"'),
    ("capture 1", "cpuid 1 0 0 0 0 0 cpu 1", "end", '7: not "cpus": "cpu"'),
])
def test_mistakes_are_told(probe, first, line, last, complaint):
    result = probe("iopl 3", line, first=first, last=last)
    assert f"captured.board:{complaint}\n" in result.err.decode()
    assert result.out == b"" and result.status != 0


# A large capture is read quickly


def dump(keyword, start, data):
    return [f"{keyword} {start + at:x} {data[at:at + 16].hex(' ')}" for at in range(0, len(data), 16)]


def large_capture():
    """60 functions of 4096 bytes and a BIOS area, none of it zero."""
    lines = ["capture 1", *MACHINE, f"ecam {WINDOW:x} 1"]
    for device in range(30):
        for function in range(2):
            space = bytes((at * 7 + device) % 255 + 1 for at in range(4096))
            lines += [f"pci 00:{device:02x}.{function} verbatim", *dump("config", 0, space)]
    lines += dump("bytes", 0xE0000, bytes(at % 251 + 1 for at in range(128 << 10)))
    return "\n".join([*lines, "end", ""])


def seconds_of(board):
    """Of processor time, which does not depend on what else the machine does."""

    def once():
        ran = subprocess.Popen([SIM, "--board", board, "/IO", "/RB", "0x80"], stdout=subprocess.DEVNULL,
                               env={**os.environ, "HWREG_BUILD": str(BUILD)})  # fmt: skip
        usage = os.wait4(ran.pid, 0)[2]
        ran.returncode = 0  # it has been waited for
        return usage.ru_utime + usage.ru_stime

    return min(once() for _ in range(10))


def test_a_large_capture_costs_little_time(tmp_path):
    (tmp_path / "large.board").write_text(large_capture())
    (tmp_path / "small.board").write_text("iopl ok\nmem ok\n")
    more = seconds_of(tmp_path / "large.board") - seconds_of(tmp_path / "small.board")
    assert more < 0.05
