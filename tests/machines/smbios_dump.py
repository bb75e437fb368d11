"""SMBIOS tables as dumps hold them: `dmidecode --dump-bin` (entry point, its table 32 bytes behind it), or the bare
table. SMBIOS 3.6: 5.2.1, 5.2.2 (entry points), 6.1 (structures)."""

import dataclasses
import re
import struct
import subprocess

TABLE_AT = 32
END = 127


@dataclasses.dataclass
class Structure:
    type: int
    length: int
    handle: int
    data: bytes  # with its strings


def is_entry(data):
    return data.startswith((b"_SM_", b"_SM3_"))


def table_length(entry):
    return struct.unpack_from("<H", entry, 0x16)[0] if entry.startswith(b"_SM_") else struct.unpack_from(
        "<I", entry, 0x0C)[0]  # fmt: skip


def table_address(entry):
    return struct.unpack_from("<I", entry, 0x18)[0] if entry.startswith(b"_SM_") else struct.unpack_from(
        "<Q", entry, 0x10)[0]  # fmt: skip


def table_of(data):
    """The table's bytes, as many as there are; None in a file that holds an entry point alone."""
    if not is_entry(data):
        return data
    return data[TABLE_AT : TABLE_AT + table_length(data)] or None


def structures(table):
    """Those of a table, to the one that says it is the last or where the table is cut off."""
    at, found = 0, []
    while at + 4 <= len(table):
        kind, length, handle = struct.unpack_from("<BBH", table, at)
        end = table.find(b"\0\0", at + length)
        end = len(table) if end < 0 else end + 2
        found.append(Structure(kind, length, handle, table[at:end]))
        at = end
        if kind == END:
            break
    return found


def dump_file(table, version=(3, 0)):
    """A file that dmidecode --from-dump takes: the table behind an entry point made for it."""
    entry = bytearray(struct.pack("<5sBBBBBBBIQ", b"_SM3_", 0, 24, *version, 0, 1, 0, len(table), TABLE_AT))
    entry[5] = -sum(entry) & 0xFF
    return bytes(entry).ljust(TABLE_AT, b"\0") + table


def dmidecode(data, folder, *options):
    path = folder / "dmidecode-input"
    path.write_bytes(data)
    run = subprocess.run(["dmidecode", "--from-dump", path, *options], capture_output=True, check=True)
    return run.stdout.decode("latin-1")


def told_by_dmidecode(data, folder):
    """(type, length, handle, header and data) of each structure, by `dmidecode -u`."""
    found = []
    for part in dmidecode(data, folder, "-u").split("\n\n"):
        head = re.match(r"Handle 0x(\w+), DMI type (\d+), (\d+) bytes\n\tHeader and Data:\n((?:\t\t.*\n?)+)", part)
        if head:
            found.append((int(head[2]), int(head[3]), int(head[1], 16), bytes.fromhex(" ".join(head[4].split()))))
    return found
