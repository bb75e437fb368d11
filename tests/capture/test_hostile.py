"""Firmware that lies cannot stop a capture, and what it makes of it gives the commands the same."""

import os

import pytest

from captures import answers, differences
from corrupt_firmware import make_case
from harness import board_file

SEEDS = [f"capture:{number}" for number in range(16)]
TABLES_AT = 0x7A000000


@pytest.mark.parametrize("seed", SEEDS)
def test_corrupt_tables_are_captured_and_read_the_same(run, seed, tmp_path):
    case = make_case(seed)
    lines = ["fill e0000 20000 00", *case.board()]
    path = tmp_path / "captured.board"
    begun = os.times().children_user
    result = run(f"-o {path} --no-serials", board="unknown", extra=lines, program="hwreg-capture")
    assert (result.status, result.err) == (0, b"") and os.times().children_user - begun < 20
    plain = run(f"-o {path}", board="unknown", extra=lines, program="hwreg-capture")
    assert plain.status == 0
    asked = ["/SMBIOS /TYPE 17 /LOG /TEXT", "/SMBIOS /S text", "/SMBIOS /TYPE 127 /LOG /TEXT", "/ACPI /DUMP /LOG /TEXT"]
    live = answers(board_file(tmp_path, "unknown", lines), asked, tmp_path / "live")
    assert not differences(asked, live, answers(path, asked, tmp_path / "replayed"))


def root(entries, length=None):
    """A root pointer and an XSDT of those entries, which may say another length."""
    length = 36 + 8 * len(entries) if length is None else length
    table = b"XSDT" + length.to_bytes(4, "little") + bytes(28) + b"".join(at.to_bytes(8, "little") for at in entries)
    pointer = b"RSD PTR \0MAKER \2" + bytes(4) + (36).to_bytes(4, "little") + TABLES_AT.to_bytes(8, "little") + bytes(8)
    rows = [f"bytes {TABLES_AT + at:x} {table[at:at + 128].hex(' ')}" for at in range(0, len(table), 128)]
    return ["fill e0000 20000 00", f"bytes f6000 {pointer.hex(' ')}", *rows]


def header(at, name, length):
    return f"bytes {at:x} {(name + length.to_bytes(4, 'little') + bytes(28)).hex(' ')}"


@pytest.mark.parametrize("lines", [
    pytest.param(root([TABLES_AT] * 5), id="a root that names itself"),
    pytest.param([*root([TABLES_AT + 0x10000]), header(TABLES_AT + 0x10000, b"SSDT", 0)], id="a length of 0"),
    pytest.param([*root([TABLES_AT + 0x10000]), header(TABLES_AT + 0x10000, b"SSDT", 0xFFFFFFFF)], id="all ones"),
    pytest.param([*root([0xFFFFFFF0]), header(0xFFFFFFF0, b"SSDT", 0x1000)[:60]], id="the end of memory"),
    pytest.param([*root([TABLES_AT + 0x10000] * 9000)], id="thousands of entries"),
    pytest.param([*root([]), f"fill {TABLES_AT + 36:x} 20000 41"], id="entries that lead nowhere"),
    pytest.param(root([], 0xFFFFFFFF), id="a root of all ones"),
    pytest.param([*root([TABLES_AT + 0x10000 + 64 * k for k in range(2000)]),
                  *(header(TABLES_AT + 0x10000 + 64 * k, b"SSDT", 64) for k in range(2000))], id="thousands of tables"),
    pytest.param(["fill e0000 20000 5f", "fill f0000 10000 00", *(
        f"bytes {0xF0000 + 32 * k:x} 5f 53 4d 5f 00 1f 02 08 00 00 00 00 00 00 00 00 5f 44 4d 49 5f 00 ff ff {k:02x} "
        "00 00 7a 00 00 28" for k in range(200))], id="hundreds of entry points"),
])  # fmt: skip
def test_it_ends_whatever_the_tables_say(run, lines, tmp_path):
    path = tmp_path / "captured.board"
    result = run(f"-o {path} --no-serials", board="unknown", extra=lines, program="hwreg-capture")
    assert (result.status, result.err) == (0, b"")
    assert path.read_text().endswith("\nend\n") and path.stat().st_size < 30 << 20
