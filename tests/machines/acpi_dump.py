"""ACPI tables as acpidump writes them: `NAME @ ADDRESS` and rows of bytes."""

import lzma
import re
import struct

SIGNATURE = b"RSD PTR "


def text_of(dump):
    return lzma.decompress(dump.bytes()).decode("latin-1") if dump.name.endswith(".xz") else dump.text()


def tables_of(dump):
    """(name, address, bytes) of each table of a dump; an RSDP alone has no address."""
    data = dump.bytes()
    if data.startswith(SIGNATURE):
        return [("RSDP", None, data)]
    return tables_in(text_of(dump))


def tables_in(text):
    found = []
    for line in text.splitlines():
        if head := re.match(r"(RSD PTR|\w+!?) @ (?:0x)?([0-9a-fA-F]+)", line):
            found.append((head[1], int(head[2], 16), bytearray()))
        elif row := re.match(r" +([0-9a-fA-F]+): ((?:[0-9a-fA-F]{2} ){1,16}) ", line + "  "):
            assert int(row[1], 16) == len(found[-1][2]), line
            found[-1][2].extend(bytes.fromhex(row[2]))
    return [(name, address, bytes(data)) for name, address, data in found]


def length_of(table):
    """What a table says of its length; of an RSDP by its revision (ACPI 6.5, 5.2.5.3)."""
    if table.startswith(SIGNATURE):
        return struct.unpack_from("<I", table, 20)[0] if table[15] >= 2 else 20
    return struct.unpack_from("<I", table, 4)[0]
