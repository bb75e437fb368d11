"""Where hwreg takes the configuration window to be on imported machines, and whether hwreg-check knows that better: on
some host bridges the register that it asks is another one."""

import json
import os
import struct
import subprocess

import pytest

from harness import BUILD
from test_pci import imported, machines_of
from program import changed

MCFG = "/sys/firmware/acpi/tables/MCFG"
BASE, ELSEWHERE = 0xE0000000, 0xC0000000
INTEL = 0x8086
MSR_MAKERS = {0x1022, 0x1D94, 0x1002}
# Host bridges whose register 60h is no window register: the processors and chipsets with QPI or DMI at 00:00.0.
WITHOUT = {
    **dict.fromkeys(range(0x3400, 0x3408), "X58 and 5520"),
    **dict.fromkeys(range(0xD130, 0xD138), "first Core generation"),
    **dict.fromkeys((0x3C00, 0x0E00, 0x2F00, 0x6F00), "X79 and X99"),
}


def mcfg(base, first=0, last=255):
    """The line of a table that has one entry, for domain 0."""
    table = bytearray(60)
    struct.pack_into("<4sI", table, 0, b"MCFG", len(table))
    struct.pack_into("<QHBB", table, 44, base, 0, first, last)
    table[9] = -sum(table) & 0xFF
    return f'file-bytes "{MCFG}" 0 {table.hex(" ")}'


def preflight(board, *words):
    environment = {**os.environ, "HWBOARD": str(board), "LD_PRELOAD": str(BUILD / "libhwboard.so")}
    ran = subprocess.run([BUILD / "hwreg-check", "--json", *words], env=environment, capture_output=True, check=False,
                         timeout=300)  # fmt: skip
    assert ran.stderr == b"" and 0 <= ran.returncode <= 2, ran
    return json.loads(ran.stdout)


def state(board, *lines):
    """How the window stands on the machine with these lines, by the report and by a register that needs it."""
    board = changed(board, *lines) if lines else board
    (finding,) = [one for one in preflight(board)["findings"] if one["name"] == "config-window"]
    verdict = preflight(board, "/PCI", "/RD", "0", "0", "0", "0x100")["verdict"]
    assert (verdict == "works") == (finding["state"] == "good"), (verdict, finding)
    return finding["state"]


def moved(base):
    """The window lies elsewhere, as the table says."""
    return [f"hole {base:x} 4000000", f"ecam {ELSEWHERE:x} 100", mcfg(ELSEWHERE)]


def register(host):
    """Register 60h, as the dump has it; a byte that it has not is 0 on the machine."""
    return struct.unpack_from("<Q", host.ljust(0x68, b"\0"), 0x60)[0]


def test_a_window_that_hwreg_misses_is_told(lspci_dump, tmp_path):
    for _, functions, path in machines_of(lspci_dump, tmp_path):
        board = imported(path, tmp_path)
        host = functions.get((0, 0, 0), b"\xff" * 4)
        vendor, device = struct.unpack_from("<HH", host)
        if vendor == INTEL:
            base = register(host) & 0xFFF00000
            right = register(host) & 1 and device not in WITHOUT
            assert state(board) == ("good" if right else "bad")
            assert state(board, *moved(base)) == "bad"
            assert not right or state(board, mcfg(base)) == "good"
        elif vendor in MSR_MAKERS:
            assert state(board) == "bad"  # the dumps have no MSRs
            there = [f"msr c0010058 {BASE | 0x21:x}", f"ecam {BASE:x} 100"]
            assert state(board, *there) == "good"
            assert state(board, *there, mcfg(BASE)) == "good"
            assert state(board, *there, *moved(BASE)) == "bad"
        else:
            assert state(board) == "caution"


@pytest.mark.parametrize("name", ["tree-asus-p6t6", "cap-atomicops"])
def test_machines_without_the_register_are_among_them(name):
    """X58 and X99."""
    from collection import dumps
    from pci_dump import functions_of

    found = [dump for dump in dumps("lspci") if dump.name.endswith(name)]
    assert found
    for dump in found:
        assert struct.unpack_from("<H", functions_of(dump)[0, 0, 0, 0], 2)[0] in WITHOUT
