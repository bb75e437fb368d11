"""SMBIOS tables: each structure with its strings as the dump has it, and as dmidecode tells it."""

import itertools
import re

from collection import only
from explained import judge
from program import changed, hwreg, memory, tool, views
from smbios_dump import (
    END, TABLE_AT, dmidecode, dump_file, structures, table_address, table_of, told_by_dmidecode)

ENTRY = re.compile(r"^# smbios entry point\n(?:# .*\n)*bytes ([0-9a-f]+)", re.MULTILINE)
HEAD = re.compile(rb"SMBIOS Type:(\d+), Length:(\d+), Handle:(\d+)\n")
PAGE = 256
BOUNDARY = 0x10000


def imported(dump, folder, name="machine"):
    board = folder / f"{name}.board"
    tool("import", "--dmi", dump.path, "-o", board)
    return board


def shown_board(board):
    """The machine with a system table file when its table is not at a 64 KiB boundary, where the program's copy begins
    without one."""
    at = int(ENTRY.search(board.read_text())[1], 16)
    entry = memory(board, at, TABLE_AT)
    if table_address(entry) % BOUNDARY == 0:
        return board
    return changed(board, f'systab sys "{"SMBIOS3" if entry.startswith(b"_SM3_") else "SMBIOS"}={at:#x}"')


def has_table(dump):
    """A file may hold an entry point alone."""
    return table_of(dump.bytes()) is not None


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


@only(has_table)
def test_the_program_lists_the_structures_of_the_dump(smbios_dump, tmp_path):
    """But for the one that ends the table."""
    there = (one for one in structures(table_of(smbios_dump.bytes())) if one.type != END)
    wanted = [(one.type, one.length, one.handle, one.data) for one in there]
    found = listed(hwreg(shown_board(imported(smbios_dump, tmp_path)), "/SMBIOS", "/LOG", "/TEXT"))
    judge(smbios_dump, differences_of("structure", wanted, found), "structure")


def differences_of(what, wanted, found):
    rows = enumerate(itertools.zip_longest(wanted, found))
    return {f"{what} {number}": f"{one} in the dump, {other} shown" for number, (one, other) in rows if one != other}


@only(has_table)
def test_the_program_shows_the_table_of_the_dump(smbios_dump, tmp_path):
    table = table_of(smbios_dump.bytes())
    shown = table_shown(hwreg(shown_board(imported(smbios_dump, tmp_path)), "/SMBIOS", "/DUMP", "/LOG", "/TEXT"))
    judge(smbios_dump, differences_of("byte", table, shown), "byte")


@only(has_table)
def test_dmidecode_tells_the_same_of_what_the_program_lists(smbios_dump, tmp_path):
    """What it says of the dump, structure by structure; the strings are in what it says of the bytes shown."""
    table = table_of(smbios_dump.bytes())
    found = listed(hwreg(shown_board(imported(smbios_dump, tmp_path)), "/SMBIOS", "/LOG", "/TEXT"))
    told = [one for one in told_by_dmidecode(dump_file(table), tmp_path) if one[0] != END]
    heads = [(kind, length, handle, data[:length]) for kind, length, handle, data in found]
    differences = differences_of("head", told, heads)
    again = dump_file(b"".join(data for *_, data in found))
    differences.update(differences_of("text", parts(dump_file(table), tmp_path), parts(again, tmp_path)))
    judge(smbios_dump, differences, "head|text")


def parts(data, folder):
    """What it says of each structure but the one that ends the table."""
    return [part for part in dmidecode(data, folder, "-q").split("\n\n") if not part.startswith("End Of Table")]
