"""SMBIOS: what dmidecode --dump-bin writes, entry points and tables as the kernel has them; structures by name.

dmidecode's file is the entry point, whose table address says 20h, and at 20h the table.
"""

import dataclasses
import os
from collections.abc import Iterator

from hwregboard import names
from hwregboard.errors import Mistake
from hwregboard.inputs import read_bytes
from hwregboard.machine import Machine, Run, overlaid, read_memory
from hwregboard.placing import BIOS_AREA, ENTRY_AREA, TABLES, find_room, is_free, place

FILE_OFFSET = 32
END_OF_TABLE = 127
LEGACY_ALIGN = 0x10000  # where a table can be read that no systab names
ENTRY_TITLE = "smbios entry point"
TABLE_TITLE = "smbios table"


@dataclasses.dataclass(frozen=True)
class Kind:
    """Where an entry point keeps its checksum, the table's address and the table's length."""

    anchor: bytes
    size: int
    checksum: int
    address: tuple[int, int]
    length: tuple[int, int]


KINDS = (
    Kind(b"_SM3_", 24, 0x05, (0x10, 8), (0x0C, 4)),
    Kind(b"_SM_", 31, 0x15, (0x18, 4), (0x16, 2)),
    Kind(b"_DMI_", 15, 0x05, (0x08, 4), (0x06, 2)),
)


def kind_of(data: bytes) -> Kind | None:
    return next((kind for kind in KINDS if data.startswith(kind.anchor) and len(data) >= kind.size), None)


def field(data: bytes, where: tuple[int, int]) -> int:
    return int.from_bytes(data[where[0]:where[0] + where[1]], "little")


def with_address(entry: bytes, kind: Kind, address: int) -> bytes:
    """The entry point with another table address. The checksum follows by the difference, and stays wrong if it was."""
    start, width = kind.address
    changed = bytearray(entry)
    changed[start:start + width] = address.to_bytes(width, "little")
    changed[kind.checksum] = (entry[kind.checksum] + sum(entry[start:start + width])
                              - sum(changed[start:start + width])) & 0xFF  # fmt: skip
    return bytes(changed)


# ---- structures


@dataclasses.dataclass(frozen=True)
class Structure:
    kind: int
    handle: int
    body: bytes
    strings: tuple[bytes, ...]

    @property
    def name(self) -> str:
        return f"type {self.kind} {names.smbios_name(self.kind)}"

    def string(self, offset: int) -> str:
        number = self.body[offset] if offset < len(self.body) else 0
        text = self.strings[number - 1] if 0 < number <= len(self.strings) else b""
        return text.decode("latin-1").encode("ascii", "backslashreplace").decode()


def structures(table: bytes) -> Iterator[Structure]:
    """The structures as far as they are whole."""
    at = 0
    while at + 4 <= len(table):
        length = table[at + 1]
        end = table.find(b"\0\0", at + length)
        if length < 4 or end < 0:
            return
        strings = tuple(table[at + length:end].split(b"\0")) if end > at + length else ()
        yield Structure(table[at], field(table, (at + 2, 2)), table[at:at + length], strings)
        if table[at] == END_OF_TABLE:
            return
        at = end + 2


# ---- import


def import_dmi(machine: Machine, files: list[str], say: list[str]) -> None:
    """One file with both, or an entry point and a table in files of their own, or their folder."""
    entry = table = b""
    paths = [path for file in files for path in expanded(file)]
    for path in paths:
        data = read_bytes(path)
        kind = kind_of(data)
        if kind:
            # The byte behind a 31-byte entry point is part of dmidecode's 32.
            entry = data[:FILE_OFFSET].rstrip(b"\0").ljust(kind.size, b"\0")
            table = data[FILE_OFFSET:] or table
        elif data.startswith((b"_SM", b"_DMI_")):
            raise Mistake(path, 0, "the entry point is cut off")
        elif (first := next(structures(data), None)) is None or first.kind == END_OF_TABLE:
            raise Mistake(path, 0, "neither an SMBIOS entry point nor a table (dmidecode --dump-bin writes both)")
        else:
            table = data
    source = ", ".join(paths)
    if not table:
        machine.missing.append("smbios table: the dump has an entry point alone")
        place(machine, ENTRY_TITLE, find_room(machine, len(entry), (ENTRY_AREA,)), entry, source, [])
        return
    place_tables(machine, entry, table, source, say)


def expanded(file: str) -> list[str]:
    if not os.path.isdir(file):
        return [file]
    found = [path for name in ("smbios_entry_point", "DMI") if os.path.exists(path := os.path.join(file, name))]
    if not found:
        raise Mistake(file, 0, "the folder has neither smbios_entry_point nor DMI")
    return found


def place_tables(machine: Machine, entry: bytes, table: bytes, source: str, say: list[str]) -> None:
    notes = []
    if not entry:
        entry = made_entry(len(table))
        notes.append("made by the importer: the dump has the table alone")
    kind = kind_of(entry)
    at = find_room(machine, len(entry), (ENTRY_AREA,))
    place(machine, ENTRY_TITLE, at, entry, source, notes)
    told = field(entry, kind.address)
    if told == FILE_OFFSET or not is_free(machine, told, len(table)):
        address = find_room(machine, len(table), (BIOS_AREA, TABLES), LEGACY_ALIGN)
        notes.append(f"the table's address and the checksum are the importer's; the dump says {told:x}")
        machine.parts[-1].runs[0].data[:] = with_address(entry, kind, address)
    else:
        address = told
    if field(entry, kind.length) > len(table):
        say.append(f"{source}: the table has {len(table)} bytes; its entry point says {field(entry, kind.length)}")
        machine.missing.append(f"smbios table: {field(entry, kind.length) - len(table)} bytes at its end")
    place(machine, f"{TABLE_TITLE}, {len(table)} bytes", address, table, source, [])


def made_entry(size: int) -> bytes:
    """A 64-bit entry point of version 3.0 for a table at FILE_OFFSET."""
    entry = bytearray(b"_SM3_\0\x18\x03\0\0\x01\0" + size.to_bytes(4, "little") + FILE_OFFSET.to_bytes(8, "little"))
    entry[5] = -sum(entry) & 0xFF
    return bytes(entry)


# ---- out of a machine


def find_smbios(machine: Machine) -> tuple[bytes, bytes] | None:
    """(entry point, table) by the names of its memory, else by looking through the BIOS area as the kernel does."""
    runs = overlaid(machine.parts)
    table = next((bytes(part.runs[0].data) for part in machine.parts if part.title.startswith(TABLE_TITLE)), b"")
    for part in machine.parts:
        if part.title.startswith(ENTRY_TITLE):
            return bytes(part.runs[0].data), table or table_of(runs, bytes(part.runs[0].data))
    for run in runs:
        for at in range(-run.address % 16, len(run.data), 16):
            if run.data[at:at + 1] == b"_" and ENTRY_AREA[0] <= run.address + at < ENTRY_AREA[1]:
                entry = bytes(run.data[at:at + 32])
                kind = kind_of(entry)
                if kind and (table or table_of(runs, entry)):
                    return entry[:kind.size], table or table_of(runs, entry)
    return None


def table_of(runs: list[Run], entry: bytes) -> bytes:
    kind = kind_of(entry)
    return read_memory(runs, field(entry, kind.address), min(field(entry, kind.length), 1 << 24))[0] if kind else b""


def export_dmi(machine: Machine) -> bytes:
    found = find_smbios(machine)
    if not found:
        raise Mistake(machine.name, 0, "the machine has no SMBIOS entry point")
    entry, table = found
    kind = kind_of(entry)
    if kind is None:
        raise Mistake(machine.name, 0, "the machine's SMBIOS entry point is not whole")
    return with_address(entry[:FILE_OFFSET], kind, FILE_OFFSET).ljust(FILE_OFFSET, b"\0") + table
