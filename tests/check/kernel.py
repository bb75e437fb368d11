"""Files of a kernel, as lines of a board; and what hwreg-check finds of a machine that has them."""

import os
import re
import struct

import pytest

ROOT = ['file "/proc/self/status" "CapEff:\t000001ffffffffff"', 'file "/proc/self/status" "Seccomp:\t0"']
MODULE = 'file "/lib/modules/RELEASE/kernel/arch/x86/kernel/msr.ko" "ELF"'  # the one that the board's modules.dep names
LOCKED = 'file "/sys/kernel/security/lockdown" "none [integrity] confidentiality"'
RAM = 'file "/proc/iomem" "00100000-7fffffff : System RAM"'


def quoted(path, *lines):
    """A file of these lines."""
    return [f'file "{path}" "{line}"' for line in lines]


def table(path, data):
    """A file of these bytes."""
    return [f'file-bytes "{path}" {at:x} {data[at:at + 16].hex(" ")}' for at in range(0, len(data), 16)]


def mcfg(*entries, tail=b"", length=None):
    """The table MCFG with (base, segment, first bus, last bus) and what stands behind."""
    body = b"".join(struct.pack("<QHBBI", *entry, 0) for entry in entries) + tail
    head = b"MCFG" + struct.pack("<I", 44 + len(body) if length is None else length) + bytes(36)
    return table("/sys/firmware/acpi/tables/MCFG", head + body)


@pytest.fixture
def found(check, tmp_path, monkeypatch):
    """found(extra lines, board=...) -> name of a finding: its state, what was found, and the remedy. The machine has a
    modprobe and a shutdown; RELEASE stands for the release of the kernel that runs."""
    folder = tmp_path / "programs"
    folder.mkdir()
    for name in ("modprobe", "shutdown"):
        (folder / name).write_text("#!/bin/false\n")
        (folder / name).chmod(0o755)
    monkeypatch.setenv("PATH", f"{folder}:/usr/bin:/bin")

    def go(*extra, board="intel"):
        lines = [line.replace("RELEASE", os.uname().release) for line in [*ROOT, MODULE, *extra]]
        told = check(board=board, extra=lines)
        return {finding["name"]: (finding["state"], finding["found"], finding["remedy"])
                for finding in told["findings"]}

    return go


def holds(told, expected):
    """Compares findings with (state, pattern of the text, pattern of the remedy, "" for none)."""
    for name, (state, text, remedy) in expected.items():
        assert told[name][0] == state, (name, told[name])
        assert re.search(text, told[name][1]), (name, told[name])
        assert re.search(remedy, told[name][2]) and bool(remedy) == bool(told[name][2]), (name, told[name])
