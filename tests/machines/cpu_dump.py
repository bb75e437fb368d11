"""CPUID leaves and MSRs as dumps hold them, each format read by rules of its own here.

Leaves: {cpu: {(leaf, subleaf): (eax, ebx, ecx, edx)}}; MSRs: {cpu: {index: value}}.
"""

import re
import xml.etree.ElementTree

MATTERS_ECX = 4  # of the mask that stands in front of hwloc's lines: this register had a value of its own


def of_hwloc(text):
    """`MASK EAX EBX ECX EDX => EAX EBX ECX EDX`, of one processor."""
    leaves = {}
    for line in text.splitlines():
        if line.startswith("#") or not line.strip():
            continue
        asked, told = line.split("=>")
        mask, leaf, _, subleaf, _ = (int(word, 16) for word in asked.split())
        leaves[leaf, subleaf if mask & MATTERS_ECX else 0] = tuple(int(word, 16) for word in told.split())
    return leaves


def of_hwloc_tree(folder):
    """Of a machine: a file `pu0`, `pu1` ... for each processor."""
    files = {int(path.name.removeprefix("pu")): path for path in folder.rglob("pu*") if path.is_file()}
    return {cpu: of_hwloc(path.read_text()) for cpu, path in sorted(files.items())}


def of_registers(text):
    """Such as libcpuid's tests have: `CPUID LEAF: EAX-EBX-ECX-EDX [SL SUBLEAF]` below a line for each processor."""
    cpus, leaves = {}, None
    for line in text.splitlines():
        if head := re.match(r"-+\[ .*Logical CPU #(\d+) ", line):
            leaves = cpus.setdefault(int(head[1]), {})
        elif found := re.match(r"CPUID ([0-9A-F]{8}): ((?:[0-9A-F]{8}-?){4})(?: \[SL ([0-9A-F]{2})\])?", line):
            told = tuple(int(word, 16) for word in found[2].split("-"))
            leaves.setdefault((int(found[1], 16), int(found[3] or "0", 16)), told)
    return cpus


def of_xml(text):
    """libvirt's: one processor, its leaves and some MSRs."""
    leaves, msrs = {}, {}
    for element in xml.etree.ElementTree.fromstring(text):
        values = {name: int(value, 16) for name, value in element.attrib.items()}
        if element.tag == "cpuid":
            told = tuple(values[name] for name in ("eax", "ebx", "ecx", "edx"))
            leaves[values["eax_in"], values["ecx_in"]] = told
        elif element.tag == "msr":
            msrs[values["index"]] = values["edx"] << 32 | values["eax"]
    return {0: leaves}, {0: msrs}


def as_cpuid_r(leaves):
    """One processor's leaves as `cpuid -1 -r` writes them, the tool by which libvirt's were gathered."""
    rows = (f"   0x{leaf:08x} 0x{subleaf:02x}: eax=0x{told[0]:08x} ebx=0x{told[1]:08x} ecx=0x{told[2]:08x} "
            f"edx=0x{told[3]:08x}\n" for (leaf, subleaf), told in leaves.items())  # fmt: skip
    return "CPU:\n" + "".join(rows)


def of_cpuid_r(text):
    """What `cpuid -r` writes: `CPU 0:` and lines `0xLEAF 0xSUBLEAF: eax=0x... ebx=0x... ecx=0x... edx=0x...`."""
    processors = {}
    for line in text.splitlines():
        if head := re.fullmatch(r"CPU (\d+):", line):
            leaves = processors.setdefault(int(head[1]), {})
        elif line.strip():
            numbers = [int(number, 16) for number in re.findall(r"0x([0-9a-f]+)", line)]
            leaves[numbers[0], numbers[1]] = tuple(numbers[2:])
    return processors


def processors_of(dump):
    """Leaves and MSRs of all processors of a dump."""
    if dump.tree:
        return of_hwloc_tree(dump.tree), {}
    if dump.name.endswith(".xml"):
        return of_xml(dump.text())
    return of_registers(dump.text()), {}
