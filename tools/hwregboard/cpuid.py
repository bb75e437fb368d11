"""CPUID leaves: `cpuid -r`, libcpuid's raw files, AIDA64's dumps (libcpuid keeps them, too) and hwloc's archives of
`puN` files; written as `cpuid -f` takes them."""

import os
import re
from collections.abc import Iterable

from hwregboard.errors import Mistake, shown
from hwregboard.inputs import is_archive, lines_of, members, read_bytes, tree
from hwregboard.machine import ByCpu, Leaf, Machine
from hwregboard.msr import CPU_LINE, CPUS, cpu_number

PLAIN = re.compile(r"\s*0x([0-9a-f]{1,8}) 0x([0-9a-f]{1,8}): eax=0x([0-9a-f]{1,8}) ebx=0x([0-9a-f]{1,8})"
                   r" ecx=0x([0-9a-f]{1,8}) edx=0x([0-9a-f]{1,8})\s*$", re.IGNORECASE)  # fmt: skip
PLAIN_CPU = re.compile(r"\s*CPU(?:\s+(\d+))?\s*:\s*$")
AIDA = re.compile(r"\s*CPUID ([0-9A-F]{8}): ([0-9A-F]{8})-([0-9A-F]{8})-([0-9A-F]{8})-([0-9A-F]{8})(.*)$",
                  re.IGNORECASE)  # fmt: skip
AIDA_CPU = re.compile(r"-+\[ (?:CPUID Registers / )?Logical CPU #(\d+).*\]-+")
SUBLEAF = re.compile(r"\[SL ([0-9A-F]+)\]", re.IGNORECASE)
RAW = re.compile(r"\s*(\w+)\[(\d{1,3})\]=([0-9a-f]{1,8})[ ]+([0-9a-f]{1,8})[ ]+([0-9a-f]{1,8})[ ]+([0-9a-f]{1,8})\s*$")
RAW_CPU = re.compile(r".*[Ll]ogical CPU #(\d+)")
RAW_LEAF = re.compile(r"(?:intel|amd)_fn(?:([0-9a-f]{1,8})h|(\d{1,2}))$")
HWLOC = re.compile(r"([0-9a-f]{1,2})((?: [0-9a-f]{1,8}){4}) => ([0-9a-f]{1,8}) ([0-9a-f]{1,8}) ([0-9a-f]{1,8})"
                   r" ([0-9a-f]{1,8})\s*$")  # fmt: skip
PU = re.compile(r"(?:^|/)pu(\d{1,5})$")
LEAVES = 1 << 20


class Leaves:
    """Leaves by CPU, as one input gives them."""

    def __init__(self, file: str) -> None:
        self.file = file
        self.by_cpu: dict[int, dict[tuple[int, int], Leaf]] = {}
        self.current: dict[tuple[int, int], Leaf] = {}
        self.count = 0

    def cpu(self, number: int, line: int) -> None:
        if number >= CPUS:
            raise Mistake(self.file, line, f"there are no such CPUs: {number}")
        self.current = self.by_cpu.setdefault(number, {})

    def put(self, line: int, leaf: int, subleaf: int, words: tuple[str, ...]) -> None:
        if not self.by_cpu:
            self.cpu(0, line)
        if subleaf >> 32:
            raise Mistake(self.file, line, f"the number of a subleaf is too large: {shown(f'{subleaf:x}')}")
        eax, ebx, ecx, edx = (int(word, 16) for word in words)
        self.current.setdefault((leaf, subleaf), (eax, ebx, ecx, edx))
        self.count += 1
        if self.count > LEAVES:
            raise Mistake(self.file, line, f"more than {LEAVES} leaves")


def import_cpuid(machine: Machine, file: str, say: list[str]) -> None:
    leaves = Leaves(file)
    if os.path.isdir(file):
        import_hwloc(leaves, tree(file, PU))
    else:
        data = read_bytes(file)
        if is_archive(data):
            import_hwloc(leaves, members(file, data))
        elif data.startswith(b"# mask "):
            leaves.cpu(0, 1)
            hwloc_lines(leaves, file, data)
        else:
            import_lines(leaves, data)
    if not leaves.count:
        raise Mistake(file, 0, "no leaves of CPUID here (cpuid -r prints them)")
    store(machine, leaves)
    machine.sources.setdefault("cpuid", []).append(f"{file}: {len(leaves.by_cpu)} CPUs")


def store(machine: Machine, leaves: Leaves) -> None:
    """A leaf that all CPUs have alike is written once."""
    cpus = sorted(leaves.by_cpu)
    for key in dict.fromkeys(key for own in leaves.by_cpu.values() for key in own):
        values = {cpu: leaves.by_cpu[cpu].get(key) for cpu in cpus}
        by = ByCpu({cpu: value for cpu, value in values.items() if value is not None})
        if len(by) == len(cpus) and len(set(by.values())) == 1:
            by = ByCpu({None: by[cpus[0]]})
        machine.cpuid[key] = by
    machine.cpus = sorted(set(machine.cpus) | set(cpus))


def import_hwloc(leaves: Leaves, files: Iterable[tuple[str, bytes]]) -> None:
    for path, data in files:
        if found := PU.search(path):
            leaves.cpu(int(found[1]), 0)
            hwloc_lines(leaves, f"{leaves.file}({path})", data)


def hwloc_lines(leaves: Leaves, file: str, data: bytes) -> None:
    for number, line in lines_of(file, data):
        if not line.strip() or line.startswith("#"):
            continue
        found = HWLOC.match(line)
        if not found:
            raise Mistake(file, number, f"not a leaf: {shown(line)}")
        eax, _, ecx, _ = found[2].split()
        leaves.put(number, int(eax, 16), int(ecx, 16) if int(found[1], 16) & 4 else 0, found.groups()[2:])


def import_lines(leaves: Leaves, data: bytes) -> None:
    """The first section of a dump counts for a CPU; text that looks like no leaf is left out."""
    basic = {"basic_cpuid": 0, "ext_cpuid": 0x80000000}
    for number, line in lines_of(leaves.file, data):
        if found := PLAIN.match(line):
            leaves.put(number, int(found[1], 16), int(found[2], 16), found.groups()[2:])
        elif found := AIDA.match(line):
            subleaf = SUBLEAF.search(found[6])
            leaves.put(number, int(found[1], 16), int(subleaf[1], 16) if subleaf else 0, found.groups()[1:5])
        elif found := RAW.match(line):
            if found[1] in basic:
                leaves.put(number, basic[found[1]] + int(found[2]), 0, found.groups()[2:])
            elif named := RAW_LEAF.match(found[1]):
                leaf = int(named[1], 16) if named[1] else int(named[2])
                leaves.put(number, leaf, int(found[2]), found.groups()[2:])
        elif found := AIDA_CPU.match(line) or RAW_CPU.match(line) or CPU_LINE.match(line) or PLAIN_CPU.match(line):
            leaves.cpu(cpu_number(found[1] or "0"), number)
        elif line.lstrip().startswith(("CPUID ", "0x")) and leaves.count:
            raise Mistake(leaves.file, number, f"a leaf is damaged: {shown(line.strip())}")


def export_cpuid(machine: Machine) -> bytes:
    lines = []
    every = any(cpu is not None for by in machine.cpuid.values() for cpu in by)
    for cpu in (machine.cpus or [0]) if every else [0]:
        lines.append(f"CPU {cpu}:")
        for (leaf, subleaf), by in sorted(machine.cpuid.items()):
            if (values := by.of(cpu)) is not None:
                registers = zip(("eax", "ebx", "ecx", "edx"), values)
                lines.append(f"   0x{leaf:08x} 0x{subleaf:02x}: " + " ".join(f"{n}=0x{v:08x}" for n, v in registers))
    return ("\n".join(lines) + "\n").encode()
