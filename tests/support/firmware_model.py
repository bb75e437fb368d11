"""What /SMBIOS and /ACPI are expected to read and print, from what stands in memory: the rules told a second time.

    memory = Memory(pieces, refused=[(0x50000000, 0x1000)])
    copy = table_copy(memory, ["SMBIOS=0x1000"])      # the table as the command holds it; None when there is none
    text, status = smbios(copy, "/TYPE", "17")
"""

import dataclasses
import struct

from expected import hex_view

PAGE = 0x1000
TOP = 1 << 32
BIOS_AREA = 0xF0000
BIOS_AREA_SIZE = 0x10000
SYSTAB_LINE = 62  # characters of the system table file that are looked at together
GUARD = bytes(512)  # a structure that runs out of the copy meets zeros


@dataclasses.dataclass
class Memory:
    """Pieces (address, bytes), later ones over earlier ones and zeros between them; ranges (start, length) that
    nobody can map."""

    pieces: list
    refused: list = ()

    def bytes(self, address, length):
        data = bytearray(length)
        for start, piece in self.pieces:
            first, last = max(start, address), min(start + len(piece), address + length)
            if first < last:
                data[first - address : last - address] = piece[first - start : last - start]
        return bytes(data)

    def mappable(self, address, length):
        return not any(start < address + length and address < start + size for start, size in self.refused)

    def read(self, address, width):
        """One access: two pages are mapped for it; 0xFFFF for whatever width when they are refused."""
        page = address & ~(PAGE - 1)
        if not self.mappable(page, 2 * PAGE):
            return 0xFFFF
        return int.from_bytes(self.bytes(address, width), "little")

    def copy(self, address, length):
        """A range page by page: ones for pages that are refused, zeros beyond 4 GiB."""
        data = bytearray(length)
        for page in range(address & ~(PAGE - 1), min(address + length, TOP), PAGE):
            first, last = max(page, address), min(page + PAGE, address + length, TOP)
            read = self.bytes(first, last - first) if self.mappable(page, PAGE) else b"\xff" * (last - first)
            data[first - address : last - address] = read
        return bytes(data)


def search(data, pattern, pos=0):
    """Position behind the match, None without one. A byte that breaks a match is not tried as the beginning of another
    one, and a match at the very end of the data does not count."""
    matched = 0
    while pos < len(data) and matched < len(pattern):
        if matched == 0:
            pos = data.find(pattern[:1], pos)
            if pos < 0:
                return None
        matched = matched + 1 if data[pos] == pattern[matched] else 0
        pos += 1
    return pos if matched == len(pattern) and pos < len(data) else None


def search_again(data, pattern, pos):
    """From pos on; the rest of the page in which pos lies is not loaded again and reads as zeros."""
    border = (pos + PAGE - 1) // PAGE * PAGE
    return search(data[:pos] + bytes(border - pos) + data[border:], pattern, pos)


# ---- SMBIOS ---------------------------------------------------------------------------------------------------------


def systab_lines(text):
    """The file as it is read: a line at a time, at most 62 characters of it."""
    while text:
        length = min(text.find("\n") + 1 or len(text), SYSTAB_LINE)
        yield text[:length].rstrip("\n")
        text = text[length:]


def by_systab(memory, lines):
    for line in systab_lines("".join(line + "\n" for line in lines)):
        name, equals, value = line.partition("=")
        if equals and name in ("SMBIOS3", "SMBIOS"):
            entry = int(value, 0) % TOP
            length_at, address_at = (0x0C, 0x10) if name == "SMBIOS3" else (0x16, 0x18)
            length = memory.read((entry + length_at) % TOP, 2)
            return memory.copy(memory.read((entry + address_at) % TOP, 4), length)
    return None


def legacy_entry(memory):
    """Offset in the BIOS area and size of the entry point; None without one."""
    area = memory.copy(BIOS_AREA, BIOS_AREA_SIZE)
    pos = search(area, b"_SM3_")
    if pos is not None:
        return pos - 5, 24
    pos = search(area, b"_SM_")
    if pos is not None and memory.read(BIOS_AREA + pos - 4 + 0x10, 4) != 0x494D445F:
        pos = search_again(area, b"_SM_", pos)
    return None if pos is None else (pos - 4, 32)


def by_legacy(memory):
    found = legacy_entry(memory)
    if found is None:
        return None
    offset, size = found
    entry = memory.copy(BIOS_AREA + offset, size) + bytes(32 - size)
    version = entry[7] if size == 24 else min(entry[6], 2)
    length_at, address_at = (0x0C, 0x10) if version > 2 else (0x16, 0x18)
    (length,) = struct.unpack_from("<H", entry, length_at)
    (address,) = struct.unpack_from("<I", entry, address_at)
    return memory.copy(address & 0xFFFF0000, length)  # from the 64 KiB border below the table


def table_copy(memory, systab=None):
    """systab: the lines of the system table file, None when there is none."""
    return by_legacy(memory) if systab is None else by_systab(memory, systab)


def structure_at(padded, at):
    """Formatted part and strings, up to the first zero word behind the formatted part."""
    return padded[at : padded.index(b"\0\0", at + padded[at + 1]) + 2]


def walk(copy):
    """Header and bytes of the structures in front of the end-of-table structure, or of the end of the copy."""
    padded = copy + GUARD
    at = 0
    while at < len(copy) and copy[at] != 127:
        data = structure_at(padded, at)
        yield struct.unpack_from("<BBH", padded, at), data
        at += len(data)


def of_type(copy, kind):
    if kind != 127:
        return [data for _, data in walk(copy) if data[0] == kind]
    found = []  # behind an end structure the search goes on, and up to the next one other structures may stand
    padded = copy + GUARD
    at = 0
    while at < len(copy):
        if copy[at] == 127:
            found.append(structure_at(padded, at))
        at += len(structure_at(padded, at))
    return found


def view(data, plain):
    return hex_view(data, plain) if data else ""


def listing(copy, plain=True):
    text = ""
    for (kind, length, handle), data in walk(copy):
        text += f"SMBIOS Type:{kind:03d}, Length:{length:03d}, Handle:{handle:03d}\n" + view(data, plain)
    return text


def raw_dump(copy, plain=True):
    """Pages of 256 bytes; a last one that is not full is shown with zeros behind it and then with its own length."""
    text = ""
    for at in range(0, len(copy), 256):
        page = copy[at : at + 256]
        text += view(page.ljust(256, b"\0"), plain)
        if len(page) < 256:
            text += view(page, plain)
    return text


def capitals(text):
    """Of the ASCII letters alone."""
    return text.encode("latin-1").upper().decode("latin-1")


def found_text(copy, text):
    for wanted in (capitals(text), text):
        pos = 0 if not wanted else search(copy + b"\0", wanted.encode("latin-1"))
        if pos is not None:
            return f"Found {wanted} in SMBIOS(Offset(0x{pos - len(wanted):X}))!\n", 0
    return f"ERROR: Cannot find {text} in SMBIOS!\n", 14


def smbios(copy, *words, plain=True):
    """Text and exit status of a run with these words behind /SMBIOS (of /LOG and /TEXT nothing is seen)."""
    if copy is None:
        return "", 7
    if "/S" in words:
        return found_text(copy, words[words.index("/S") + 1])
    if "/DUMP" in words:
        return raw_dump(copy, plain), 0
    if "/TYPE" in words:
        kind = int(words[words.index("/TYPE") + 1], 0) & 0xFF
        return "".join(view(data, plain) for data in of_type(copy, kind)), 0
    return listing(copy, plain), 0


# ---- ACPI -----------------------------------------------------------------------------------------------------------


def root_pointer(memory):
    """Its address, None without one."""
    pos = search(memory.copy(BIOS_AREA, BIOS_AREA_SIZE), b"RSD PTR")
    return None if pos is None else BIOS_AREA + pos - 7


def acpi_dump(memory, plain=True):
    address = root_pointer(memory)
    return ("", 14) if address is None else (view(memory.copy(address, 40), plain), 0)


def find_in(memory, root_table, entry_size, copied, signature):
    if root_table == 0:
        return None
    copy = memory.copy(root_table, copied)
    (length,) = struct.unpack_from("<I", copy, 4)
    if length == 0xFFFFFFFF:
        return None
    for at in range(36, min(length, 0x10000) - entry_size + 1, entry_size):
        if at + entry_size <= copied:
            (entry,) = struct.unpack_from("<I", copy, at)
        else:
            entry = memory.read((root_table + at) % TOP, 4)
        if memory.read(entry, 4) == signature:
            return entry
    return None


def find_table(memory, signature, mode=1):
    address = root_pointer(memory)
    if address is None:
        return None
    pointer = memory.copy(address, 40)
    (rsdt,) = struct.unpack_from("<I", pointer, 0x10)
    (xsdt,) = struct.unpack_from("<I", pointer, 0x18)
    number = int.from_bytes(signature, "little")
    found = find_in(memory, xsdt, 8, 164, number) if mode == 1 else None
    return find_in(memory, rsdt, 4, 1060, number) if found is None else found


def power_management(memory):
    """PM1a event block, reset register and value as text; None when there is no FADT."""
    address = find_table(memory, b"FACP")
    if address is None:
        return None
    fadt = memory.copy(address, 244)
    (event_block,) = struct.unpack_from("<H", fadt, 0x38)
    (reset_register,) = struct.unpack_from("<H", fadt, 0x78)
    return f"{event_block:04x} {reset_register:04x} {fadt[0x80]:02x}"
