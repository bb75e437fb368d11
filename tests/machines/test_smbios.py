"""SMBIOS tables: each structure with its strings as the dump has it, and as dmidecode tells it."""

import re

import pytest
from explained import judge
from program import hwreg, memory, tool, views
from smbios_dump import dump_file, dmidecode, structures, table_of, told_by_dmidecode

HEAD = re.compile(rb"SMBIOS Type:(\d+), Length:(\d+), Handle:(\d+)\n")
PAGE = 256


def imported(dump, folder, name="machine"):
    board = folder / f"{name}.board"
    tool("import", "--dmi", dump.path, "-o", board)
    return board


def table_in(dump):
    table = table_of(dump.bytes())
    if table is None:
        pytest.skip("an entry point without its table")
    return table


def listed(out):
    """(type, length, handle, bytes) of each structure that the program lists."""
    heads = [tuple(int(number) for number in head) for head in HEAD.findall(out)]
    found = views(out)
    assert len(heads) == len(found)
    return [(*head, view) for head, view in zip(heads, found)]


def table_shown(out):
    """The table as /SMBIOS /DUMP shows it: pages, and the last one twice when it is not full: with zeros, then cut."""
    pages = views(out)
    if pages and len(pages[-1]) < PAGE:
        assert pages[-2] == pages[-1].ljust(PAGE, b"\0")
        del pages[-2]
    return b"".join(pages)


def test_the_program_lists_the_structures_of_the_dump(smbios_dump, tmp_path):
    wanted = [(one.type, one.length, one.handle, one.data) for one in structures(table_in(smbios_dump))]
    found = listed(hwreg(imported(smbios_dump, tmp_path), "/SMBIOS", "/LOG", "/TEXT"))
    differences = {}
    for number in range(max(len(wanted), len(found))):
        one, other = (rows[number] if number < len(rows) else None for rows in (wanted, found))
        if one != other:
            differences[f"structure {number}"] = f"{one} in the dump, {other} shown"
    judge(smbios_dump, differences)


def test_the_program_shows_the_table_of_the_dump(smbios_dump, tmp_path):
    table = table_in(smbios_dump)
    shown = table_shown(hwreg(imported(smbios_dump, tmp_path), "/SMBIOS", "/DUMP", "/LOG", "/TEXT"))
    differences = {} if shown == table else {"table": f"{len(table)} bytes in the dump, {len(shown)} others shown"}
    judge(smbios_dump, differences)


def test_dmidecode_tells_the_same_of_what_the_program_lists(smbios_dump, tmp_path):
    """What it says of the dump, structure by structure; the strings are in what it says of the bytes shown."""
    table = table_in(smbios_dump)
    found = listed(hwreg(imported(smbios_dump, tmp_path), "/SMBIOS", "/LOG", "/TEXT"))
    told = told_by_dmidecode(dump_file(table), tmp_path)
    assert [(kind, length, handle, data[:length]) for kind, length, handle, data in found] == told
    again = dump_file(b"".join(data for *_, data in found))
    assert dmidecode(again, tmp_path, "-q") == dmidecode(dump_file(table), tmp_path, "-q")
