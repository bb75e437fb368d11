"""ACPI tables: acpidump's text, raw tables, the root pointer; written as acpixtract takes them."""

import dataclasses
import re

from hwregboard.errors import Mistake, shown
from hwregboard.inputs import LIMIT, lines_of, read_bytes
from hwregboard.machine import Machine, Run, overlaid, read_memory
from hwregboard.placing import BIOS_AREA, ENTRY_AREA, TABLES, find_room, is_free, place

HEADER = re.compile(r"([A-Za-z][A-Za-z0-9!_ ]{2,8}?)(?:\s*@\s*(?:0x)?([0-9a-fA-F]{1,16}))?\s*$")
ROW = re.compile(r"\s+([0-9a-fA-F]{1,8}):\s((?:[0-9a-fA-F?]{2}(?: |$)){1,16})")
TITLE = re.compile(r"acpi (\S.*?) at ([0-9a-f]{1,16}), (\d{1,9}) bytes(, made by the importer)?")
RSDP = b"RSD PTR "
DUMPED = "in the dump: "
MADE = ", made by the importer"
MOST = 1000  # tables of a machine; the importer makes two more


@dataclasses.dataclass
class Table:
    address: int
    data: bytes

    @property
    def signature(self) -> str:
        return (self.data[:8] if self.data.startswith(RSDP) else self.data[:4]).decode("latin-1")

    @property
    def title(self) -> str:
        name = "RSDP" if self.data.startswith(RSDP) else re.sub(r"[^!-~]", "?", self.signature)
        return f"acpi {name} at {self.address:x}, {len(self.data)} bytes"


# ---- reading


def read_tables(file: str) -> list[Table]:
    data = read_bytes(file)
    if not data:
        raise Mistake(file, 0, "empty")
    if b"\0" in data[:4096] and not data.startswith((b"\xff\xfe", b"\xfe\xff")):
        return raw_tables(file, data)
    return text_tables(file, data)


def raw_tables(file: str, data: bytes) -> list[Table]:
    tables = []
    at = 0
    while at < len(data):
        if data.startswith(RSDP, at):
            size = 36 if data[at + 15:at + 16] not in (b"", b"\0") else 20
        else:
            size = int.from_bytes(data[at + 4:at + 8], "little")
            if size < 36 or not re.match(rb"[A-Z0-9!_]{4}", data[at:at + 4]):
                raise Mistake(file, 0, f"no ACPI table begins at byte {at:x}h")
        if at + size > len(data):
            raise Mistake(file, 0, f"the table at byte {at:x}h is cut off: it has {size} bytes")
        tables.append(Table(0, data[at:at + size]))
        at += size
    return tables


def text_tables(file: str, data: bytes) -> list[Table]:
    found: list[tuple[int, int, bytearray]] = []  # line, address, bytes
    for number, line in lines_of(file, data):
        row = ROW.match(line)
        if row:
            if not found:
                raise Mistake(file, number, f"bytes before the first table: {shown(line.strip())}")
            put_row(file, number, found[-1][2], int(row[1], 16), row[2].split())
        elif header := HEADER.match(line):
            found.append((number, int(header[2] or "0", 16), bytearray()))
        elif found and re.match(r"\s+[0-9a-fA-F]{1,8}:\s", line):
            raise Mistake(file, number, f"a row of bytes is damaged: {shown(line.strip())}")
    tables = [(number, Table(address, bytes(table))) for number, address, table in found if table]
    for number, table in tables:
        size = 20 if table.signature == RSDP.decode() else int.from_bytes(table.data[4:8], "little")
        if len(table.data) < 20 or size > len(table.data):
            raise Mistake(file, number, f"the table is cut off: it has {size} bytes, the dump {len(table.data)}")
    if not tables:
        raise Mistake(file, 0, "no ACPI tables here (acpidump prints them)")
    return [table for _, table in tables]


def put_row(file: str, number: int, table: bytearray, offset: int, words: list[str]) -> None:
    if offset != len(table):
        raise Mistake(file, number, f"the row is not the next one: {offset:x}")
    try:
        table += bytes(int(word, 16) for word in words)
    except ValueError:
        raise Mistake(file, number, "a row of bytes is damaged: a byte of a table is not known") from None


# ---- placing


def import_acpi(machine: Machine, files: list[str], say: list[str]) -> None:
    """Tables stay where the dump has them when that is known, below 4 GiB and free; others are placed. Root tables that
    do not tell where all tables lie now are replaced."""
    tables: list[Table] = []
    for file in files:
        before = list(tables)
        tables += [table for table in read_tables(file) if not any(
            table.data == other.data and table.address in (0, other.address) for other in before)]  # fmt: skip
    if len(tables) > MOST:
        raise Mistake(files[-1], 0, f"more than {MOST} tables")
    source = ", ".join(files)
    root = next((table for table in tables if table.data.startswith(RSDP)), None)
    tables = [table for table in tables if table is not root]
    addresses_from_pointers(tables, root)
    moved = False
    for table in sorted(tables, key=lambda table: table.address == 0):
        notes = []
        if not is_free(machine, table.address, len(table.data)):
            told = table.address
            table.address = find_room(machine, len(table.data), (TABLES,), 64)
            notes.append(f"placed by the importer; the dump says {told:x}" if told else "placed by the importer")
            moved = True
        place(machine, table.title, table.address, table.data, source, notes)
    place_roots(machine, tables, root, source, moved)
    if moved:
        say.append(f"{source}: tables whose place is not known, or not free, are placed by the importer")


def pointer(data: bytes, offset: int, width: int) -> int:
    return int.from_bytes(data[offset:offset + width], "little")


def addresses_from_pointers(tables: list[Table], root: Table | None) -> None:
    """Dumps without addresses: the FADT knows where DSDT and FACS are, the root pointer where RSDT and XSDT are."""
    known = {}
    for table in tables:
        if table.signature == "FACP":
            known["DSDT"] = pointer(table.data, 140, 8) or pointer(table.data, 40, 4)
            known["FACS"] = pointer(table.data, 132, 8) or pointer(table.data, 36, 4)
    if root is not None:
        known["RSDT"], known["XSDT"] = pointer(root.data, 16, 4), pointer(root.data, 24, 8)
    for table in tables:
        if not table.address:
            table.address = known.pop(table.signature, 0)


def with_checksum(data: bytes, offset: int, count: int) -> bytes:
    changed = bytearray(data)
    changed[offset] = 0
    changed[offset] = -sum(changed[:count]) & 0xFF
    return bytes(changed)


def listed(table: Table) -> set[int]:
    width = 8 if table.signature == "XSDT" else 4
    return {pointer(table.data, at, width) for at in range(36, len(table.data) - width + 1, width)}


def place_roots(machine: Machine, tables: list[Table], root: Table | None, source: str, moved: bool) -> None:
    roots = [table for table in tables if table.signature in ("RSDT", "XSDT")]
    plain = {table.address for table in tables if table.signature not in ("RSDT", "XSDT", "DSDT", "FACS")}
    lists = set().union(*(listed(table) for table in roots))
    notes = []
    pointers = {table.address for table in roots}
    whole = bool(roots) and (not moved or plain <= lists)
    if root is not None and whole and pointers & {pointer(root.data, 16, 4), pointer(root.data, 24, 8)}:
        made = root.data
    elif root is not None and not roots and not moved and (xsdt := pointer(root.data, 24, 8)) and \
            is_free(machine, xsdt, 36 + 8 * len(plain)):  # fmt: skip
        build_xsdt(machine, plain, xsdt, source)
        made = root.data
    else:
        address = roots[-1].address if whole else build_xsdt(machine, plain, 0, source)
        signature = roots[-1].signature if whole else "XSDT"
        made = adapted_root(root, address, signature)
        notes.append(DUMPED + root.data.hex() if root is not None else "made by the importer: the dump has none")
    address = root.address if root is not None else 0
    if not BIOS_AREA[0] <= address < BIOS_AREA[1] or not is_free(machine, address, len(made)):
        if address:
            notes.append(f"placed by the importer; the dump says {address:x}")
        address = find_room(machine, len(made), (ENTRY_AREA, BIOS_AREA))
    title = Table(address, made).title + (MADE if root is None else "")
    place(machine, title, address, made, source, notes)


def build_xsdt(machine: Machine, plain: set[int], address: int, source: str) -> int:
    size = 36 + 8 * len(plain)
    head = b"XSDT" + size.to_bytes(4, "little") + b"\x01\0" + b"HWREG " + b"IMPORTED" + (1).to_bytes(4, "little")
    data = (head + b"HWRG" + (1).to_bytes(4, "little")).ljust(36, b"\0")
    data = with_checksum(data + b"".join(each.to_bytes(8, "little") for each in sorted(plain)), 9, size)
    address = address or find_room(machine, size, (TABLES,), 64)
    place(machine, Table(address, data).title + MADE, address, data, source, [])
    return address


def adapted_root(root: Table | None, address: int, signature: str) -> bytes:
    data = bytearray(root.data if root is not None else RSDP + b"\0HWREG \x02".ljust(12, b"\0"))
    data = data.ljust(36, b"\0")
    data[15] = max(data[15], 2) if signature == "XSDT" else data[15]
    data[20:24] = (36).to_bytes(4, "little")
    data[16:20] = address.to_bytes(4, "little") if signature == "RSDT" else bytes(4)
    data[24:32] = bytes(8) if signature == "RSDT" else address.to_bytes(8, "little")
    return with_checksum(with_checksum(bytes(data), 8, 20), 32, 36)


# ---- out of a machine


def find_tables(machine: Machine, made: bool = True) -> list[Table]:
    """The tables by the names of their memory; those that the importer has made, too, if wanted."""
    runs = overlaid(machine.parts)
    found: list[Table] = []
    size = 0
    for part in machine.parts:
        if (title := TITLE.match(part.title)) and (made or not title[4]):
            address = int(title[2], 16)
            data = read_memory(runs, address, min(int(title[3]), 1 << 24))[0]
            dumped = next((note for note in part.notes if note.startswith(DUMPED)), "")
            if dumped and not made:
                data = bytes.fromhex(re.sub(r"[^0-9a-f].*", "", dumped.removeprefix(DUMPED)))
            found.append(Table(address, data))
            size += len(data)
            if len(found) > MOST + 2 or size > LIMIT:
                raise Mistake(machine.name, 0, f"more than {MOST} ACPI tables, or more than 64 MiB of them")
    named = any(part.title.startswith("acpi RSDP ") for part in machine.parts)
    root = None if named else root_pointer(runs)
    if root is not None and not found:
        follow(runs, pointer(root.data, 24, 8) or pointer(root.data, 16, 4), found)
    return found + [root] if root is not None else found


def root_pointer(runs: list[Run]) -> Table | None:
    """The one in the BIOS area, which a capture has no name for; with it a machine without names can be walked."""
    for run in runs:
        at = run.data.find(RSDP)
        while at >= 0 and (run.address + at) % 16:
            at = run.data.find(RSDP, at + 1)
        if at >= 0 and BIOS_AREA[0] <= run.address + at < BIOS_AREA[1]:
            size = 36 if run.data[at + 15:at + 16] > b"\x01" else 20
            return Table(run.address + at, bytes(run.data[at:at + size]))
    return None


def follow(runs: list[Run], root: int, found: list[Table]) -> None:
    """The tables that a root table leads to, each behind the one that names it."""
    ahead = [root]
    while ahead and len(found) <= MOST:
        address = ahead.pop()
        size = pointer(read_memory(runs, address, 8)[0], 4, 4)
        data = read_memory(runs, address, min(size, 1 << 24))[0]
        if len(data) < 36 or any(table.address == address for table in found):
            continue
        table = Table(address, data)
        found.append(table)
        if table.signature in ("RSDT", "XSDT"):
            ahead += sorted(listed(table), reverse=True)
        elif table.signature == "FACP":
            ahead += [pointer(data, 132, 8) or pointer(data, 36, 4), pointer(data, 140, 8) or pointer(data, 40, 4)]


def export_acpi(machine: Machine) -> bytes:
    tables = find_tables(machine, made=False)
    if not tables:
        raise Mistake(machine.name, 0, "the machine has no ACPI tables")
    lines = []
    for table in tables:
        name = "RSDP" if table.signature == RSDP.decode() else table.signature
        lines.append(f"{name} @ 0x{table.address:016X}")
        for at in range(0, len(table.data), 16):
            row = table.data[at:at + 16]
            shape = "".join(chr(byte) if 0x20 < byte < 0x7F else "." for byte in row)
            lines.append(f"    {at:04X}: {row.hex(' ').upper():48} {shape}")
        lines.append("")
    return ("\n".join(lines) + "\n").encode()
