"""A machine as a board file holds it: plain structures. board.py reads and writes them."""

import bisect
import dataclasses
from collections.abc import Iterable

BRIEF = 256  # bytes of a function without extended configuration space
FULL = 4096


class Cells:
    """Bytes of which some are not known (mask 0) and others never mentioned (mask 2)."""

    KNOWN, UNKNOWN, ABSENT = 1, 0, 2

    def __init__(self, size: int, absent: bool = False) -> None:
        self.data = bytearray(size)
        self.mask = bytearray([self.ABSENT if absent else self.KNOWN]) * size

    def grow(self, size: int, mask: int) -> None:
        if size > len(self.data):
            self.mask += bytes([mask]) * (size - len(self.data))
            self.data += bytes(size - len(self.data))

    def put(self, offset: int, data: bytes, mask: bytes | None = None) -> None:
        self.data[offset:offset + len(data)] = data
        self.mask[offset:offset + len(data)] = mask or b"\x01" * len(data)

    def unknown(self, offset: int, count: int) -> None:
        self.put(offset, bytes(count), bytes(count))

    def hex(self, offset: int, count: int) -> str:
        data, mask = self.data[offset:offset + count], self.mask[offset:offset + count]
        if self.UNKNOWN not in mask:
            return data.hex(" ")
        if not any(mask):
            return " ".join(["??"] * len(mask))
        return " ".join(f"{byte:02x}" if known else "??" for byte, known in zip(data, mask))


@dataclasses.dataclass
class Function:
    """A PCI function; `extra` holds the lines about what hangs on it (smbus-host, smn)."""

    place: str
    cells: Cells = dataclasses.field(default_factory=lambda: Cells(BRIEF))
    windows: dict[int, int | None] = dataclasses.field(default_factory=dict)
    extra: list[str] = dataclasses.field(default_factory=list)
    source: str = ""

    @property
    def config(self) -> bytes:
        return bytes(self.cells.data)

    @property
    def class_code(self) -> int:
        return int.from_bytes(self.cells.data[0x0A:0x0C], "little")

    @property
    def identity(self) -> str:
        data = self.cells.data
        return f"{data[1]:02x}{data[0]:02x}:{data[3]:02x}{data[2]:02x}"


@dataclasses.dataclass
class Run:
    """Bytes of memory. Without a mask all are known."""

    address: int
    data: bytearray
    mask: bytearray | None = None

    @property
    def end(self) -> int:
        return self.address + len(self.data)

    def append(self, data: bytes, mask: bytes | None) -> None:
        if mask is not None or self.mask is not None:
            known = self.mask if self.mask is not None else bytearray(b"\x01" * len(self.data))
            self.mask = known + (mask if mask is not None else b"\x01" * len(data))
        self.data += data


@dataclasses.dataclass
class Part:
    """Memory that a comment names, such as "acpi FACP at 1ffe1c30, 244 bytes"."""

    title: str
    runs: list[Run] = dataclasses.field(default_factory=list)
    source: str = ""
    notes: list[str] = dataclasses.field(default_factory=list)

    def put(self, address: int, data: bytes, mask: bytes | None = None) -> None:
        if self.runs and self.runs[-1].end == address:
            self.runs[-1].append(data, mask)
        else:
            self.runs.append(Run(address, bytearray(data), bytearray(mask) if mask is not None else None))


@dataclasses.dataclass
class Slave:
    """What hangs on the SMBus at an address; bytes beyond what the simulated slave holds count, too."""

    address: int
    keyword: str
    options: str = ""
    cells: Cells = dataclasses.field(default_factory=lambda: Cells(0, absent=True))


@dataclasses.dataclass
class SuperIo:
    """A Super I/O chip; the globals have the device number -1."""

    words: str
    devices: dict[int, dict[int, int | None]] = dataclasses.field(default_factory=dict)
    notes: list[str] = dataclasses.field(default_factory=list)


Leaf = tuple[int, int, int, int]


class ByCpu(dict):
    """Values of a register by CPU number; that of None holds for the CPUs without one of their own."""

    def of(self, cpu: int) -> object:
        return self.get(cpu, self.get(None))

    def put(self, cpus: Iterable[int] | None, value: object) -> None:
        if cpus is None:
            self.clear()
            self[None] = value
        else:
            self.update(dict.fromkeys(cpus, value))

    def groups(self) -> list[tuple[object, list[int] | None]]:
        """(value, CPUs) with the CPUs in order, None where one value holds for all others."""
        found: dict[object, list[int] | None] = {self[None]: None} if None in self else {}
        for cpu in sorted(cpu for cpu in self if cpu is not None):
            cpus = found.setdefault(self[cpu], [])
            if cpus is not None:
                cpus.append(cpu)
        return list(found.items())


@dataclasses.dataclass
class Machine:
    """Everything that a board file of a captured or imported machine says."""

    name: str = ""
    heading: list[str] = dataclasses.field(default_factory=list)  # comments at the top
    doors: dict[str, str] = dataclasses.field(default_factory=dict)  # lines of which there is one each, by keyword
    cpus: list[int] = dataclasses.field(default_factory=list)
    cpuid: dict[tuple[int, int], ByCpu] = dataclasses.field(default_factory=dict)
    msrs: dict[int, ByCpu] = dataclasses.field(default_factory=dict)
    msr_options: dict[int, str] = dataclasses.field(default_factory=dict)
    functions: dict[str, Function] = dataclasses.field(default_factory=dict)
    parts: list[Part] = dataclasses.field(default_factory=list)
    cmos: Cells = dataclasses.field(default_factory=lambda: Cells(256, absent=True))
    has_cmos: bool = False
    slaves: dict[int, Slave] = dataclasses.field(default_factory=dict)
    superio: list[SuperIo] = dataclasses.field(default_factory=list)
    smn: dict[tuple[int, int], str] = dataclasses.field(default_factory=dict)
    lines: list[str] = dataclasses.field(default_factory=list)  # other lines, as they stand
    sources: dict[str, list[str]] = dataclasses.field(default_factory=dict)  # section, and what it came from
    missing: list[str] = dataclasses.field(default_factory=list)
    resources: list[str] = dataclasses.field(default_factory=list)


def cpu_list(cpus: Iterable[int]) -> str:
    """0-3,5 for 0, 1, 2, 3 and 5."""
    ranges: list[list[int]] = []
    for cpu in sorted(set(cpus)):
        if ranges and ranges[-1][1] + 1 == cpu:
            ranges[-1][1] = cpu
        else:
            ranges.append([cpu, cpu])
    return ",".join(f"{first}-{last}" if last > first else str(first) for first, last in ranges)


def overlaid(parts: Iterable[Part]) -> list[Run]:
    """All memory in order of addresses, without overlaps: what comes later wins. Runs that touch are one."""
    pieces: list[tuple[int, int, Run]] = []
    starts: list[int] = []  # of what later runs cover, disjoint, in order
    ends: list[int] = []
    for run in reversed([run for part in parts for run in part.runs if run.data]):
        first = last = bisect.bisect_right(ends, run.address)
        at = run.address
        while last < len(starts) and starts[last] < run.end:
            if at < starts[last]:
                pieces.append((at, starts[last], run))
            at = ends[last]
            last += 1
        if at < run.end:
            pieces.append((at, run.end, run))
        starts[first:last] = [min([run.address, *starts[first:last][:1]])]
        ends[first:last] = [max(at, run.end)]
    whole = Part("")
    for start, end, run in sorted(pieces, key=lambda piece: piece[0]):
        cut = slice(start - run.address, end - run.address)
        whole.put(start, bytes(run.data[cut]), bytes(run.mask[cut]) if run.mask is not None else None)
    return whole.runs


def read_memory(runs: list[Run], address: int, count: int) -> tuple[bytes, bytes]:
    """The bytes at an address as far as they are mentioned without a gap, and their mask."""
    for run in runs:
        if run.address <= address < run.end:
            cut = slice(address - run.address, address - run.address + count)
            data = bytes(run.data[cut])
            return data, bytes(run.mask[cut]) if run.mask is not None else b"\x01" * len(data)
    return b"", b""
