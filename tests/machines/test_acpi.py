"""ACPI tables: the root pointer as the program shows it, and each table as it copies it out of memory."""

import re
import subprocess

from acpi_dump import SIGNATURE, length_of, tables_of, text_of
from collection import only
from explained import judge
from program import hwreg, memory, tool, views

TITLE = re.compile(r"^# acpi (\S+) at ([0-9a-f]+), (\d+) bytes", re.MULTILINE)


def imported(dump, folder, name="machine"):
    board = folder / f"{name}.board"
    tool("import", "--acpi", dump.path, "-o", board)
    return board


def places_in(board):
    """(address, length) of each table that the board's file names, in its order."""
    return [(int(address, 16), int(length)) for _, address, length in TITLE.findall(board.read_text())]


def test_the_program_copies_the_tables_of_the_dump(acpi_dump, tmp_path):
    board = imported(acpi_dump, tmp_path)
    wanted = tables_of(acpi_dump)
    known = {address: (name, data) for name, address, data in wanted if address}
    found = [(address, memory(board, address, length)) for address, length in places_in(board)]
    differences = {}
    for address, data in found:
        name, there = known.pop(address, ("a table", data))
        if data != there:
            differences[f"{name} at {address:x}"] = f"{len(there)} bytes in the dump, {len(data)} others in memory"
    for address, (name, there) in known.items():
        if memory(board, address, len(there)) != there:
            differences[f"{name} at {address:x}"] = f"{len(there)} bytes in the dump are not in memory"
    contents = [data for _, data in found]
    for name, _, data in wanted:
        if data not in contents:
            differences[f"{name}, {len(data)} bytes"] = "no table in memory has these bytes"
    judge(acpi_dump, differences)


def root_pointers(dump):
    return [data for _, _, data in tables_of(dump) if data.startswith(SIGNATURE)]


@only(root_pointers)
def test_the_program_shows_the_root_pointer_of_the_dump(acpi_dump, tmp_path):
    pointers = root_pointers(acpi_dump)
    shown = views(hwreg(imported(acpi_dump, tmp_path), "/ACPI", "/DUMP", "/LOG", "/TEXT"))
    assert shown[0][: length_of(pointers[0])] == pointers[0]


@only(lambda dump: not dump.bytes().startswith(SIGNATURE))
def test_acpixtract_takes_the_same_tables_from_the_dump(acpi_dump, tmp_path):
    (tmp_path / "dump").write_text(text_of(acpi_dump), encoding="latin-1")
    subprocess.run(["acpixtract", "-a", "dump"], cwd=tmp_path, capture_output=True, check=True)
    taken = sorted(path.read_bytes() for path in tmp_path.glob("*.dat"))
    assert taken == sorted(data for _, _, data in tables_of(acpi_dump))
