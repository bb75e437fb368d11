"""Room in a machine's memory for tables whose place the dump does not tell, or that lie where something else does."""

from hwregboard.errors import Mistake
from hwregboard.machine import Machine, Part, overlaid

BIOS_AREA = (0xE0000, 0x100000)
ENTRY_AREA = (0xF0000, 0x100000)  # where entry points are looked for, 16 bytes apart
TABLES = (0x7E000000, 0x80000000)  # an importer's own choice
TOP = 1 << 32
GAP = 16


def is_free(machine: Machine, address: int, count: int) -> bool:
    """Is this memory below 4 GiB, above the interrupt vectors, and does nothing lie there?"""
    if not 0x400 <= address <= TOP - count:
        return False
    return all(run.end <= address or run.address >= address + count for part in machine.parts for run in part.runs)


def find_room(machine: Machine, count: int, areas: tuple[tuple[int, int], ...], align: int = 16) -> int:
    """The first place of an area, with a gap behind, so that what lies there ends where it ends."""
    runs = overlaid(machine.parts)
    for first, end in areas:
        address = first
        for run in runs:
            if run.end <= address or run.address >= address + count + GAP:
                continue
            address = (run.end + align) // align * align
        if address + count <= end:
            return address
    raise Mistake(machine.name or "import", 0, f"no room for {count} bytes of tables")


def place(machine: Machine, title: str, address: int, data: bytes, source: str, notes: list[str]) -> None:
    part = Part(title, source=source, notes=notes)
    part.put(address, data)
    machine.parts.append(part)
