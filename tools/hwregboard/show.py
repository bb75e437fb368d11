"""What a machine's file holds, for people to read."""

from collections.abc import Callable

from hwregboard import acpi, dmi, names
from hwregboard.machine import BRIEF, Cells, Function, Machine, cpu_list, overlaid


def cpus_of(cpus: list[int] | None) -> str:
    return "" if cpus is None else f" cpus {cpu_list(cpus)}"


def show_doors(machine: Machine) -> list[str]:
    lines = [f"{keyword} {value}".strip() for keyword, value in machine.doors.items()]
    return lines + ([f"{len(machine.cpus)} CPUs: {cpu_list(machine.cpus)}"] if machine.cpus else [])


def show_cpuid(machine: Machine) -> list[str]:
    lines = []
    for (leaf, subleaf), by in sorted(machine.cpuid.items()):
        for values, cpus in by.groups():
            registers = " ".join(f"{value:08x}" for value in values)
            lines.append(f"{leaf:08x} {subleaf:2x}: {registers}  {names.cpuid_name(leaf)}{cpus_of(cpus)}")
    return lines


def show_msrs(machine: Machine) -> list[str]:
    return [f"{index:08x}: {value:016x}  {names.msr_name(index)}{cpus_of(cpus)}"
            for index, by in sorted(machine.msrs.items()) for value, cpus in by.groups()]  # fmt: skip


def function_lines(function: Function) -> list[str]:
    known = function.cells.mask.count(Cells.KNOWN)
    size = len(function.cells.data)
    part = "" if known == size else f", {known} of {size} bytes known"
    kind = ", extended" if size > BRIEF else ""
    lines = [f"{function.place} {names.class_name(function.class_code)}: {function.identity} "
             f"(rev {function.cells.data[8]:02x}){kind}{part}"]  # fmt: skip
    for offset, key in names.capabilities(function.config):
        lines.append(f"  [{offset:02x}] {names.capability_name(key)}")
    return lines + [f"  {line}" for line in function.extra]


def show_pci(machine: Machine) -> list[str]:
    return [line for _, function in sorted(machine.functions.items()) for line in function_lines(function)]


def show_memory(machine: Machine) -> list[str]:
    lines = [f"{part.title or 'memory'}" + (f" (from {part.source})" if part.source else "") for part in machine.parts]
    return lines + [f"{run.address:08x}-{run.end - 1:08x}: {len(run.data)} bytes" for run in overlaid(machine.parts)]


def structure_line(structure: dmi.Structure) -> str:
    fields = names.SMBIOS_FIELDS.get(structure.kind, {})
    texts = [f'{name} "{structure.string(at)}"' for at, (width, name) in fields.items()
             if width == 0 and structure.string(at)]  # fmt: skip
    if not fields:
        texts = [repr(text.decode("latin-1")) for text in structure.strings]
    return f"{structure.handle:04x} {structure.name}" + (": " + ", ".join(texts) if texts else "")


def show_smbios(machine: Machine) -> list[str]:
    found = dmi.find_smbios(machine)
    if found is None:
        return []
    entry, table = found
    anchor = entry[:4].decode("latin-1")
    return [f"entry point {anchor}, {len(entry)} bytes; table, {len(table)} bytes",
            *(structure_line(structure) for structure in dmi.structures(table))]  # fmt: skip


def show_acpi(machine: Machine) -> list[str]:
    lines = []
    for table in acpi.find_tables(machine):
        text = table.data[10:24].decode("latin-1") if table.signature not in (acpi.RSDP.decode(), "FACS") else ""
        wrong = " checksum is wrong" if text and sum(table.data) & 0xFF else ""
        lines.append(f"{table.title.removeprefix('acpi ')} {text.rstrip()}".rstrip() + wrong)
    return lines


def show_cmos(machine: Machine) -> list[str]:
    if 1 not in machine.cmos.mask:
        return []
    rows = []
    for at in range(256):
        if machine.cmos.mask[at] != Cells.ABSENT and (at in names.CMOS or machine.cmos.data[at]):
            rows.append(f"{at:02x}: {machine.cmos.hex(at, 1)}  {names.cmos_name(at)}")
    return rows


def show_superio(machine: Machine) -> list[str]:
    lines = []
    for chip in machine.superio:
        lines.append(f"chip at {chip.words}" + "".join(f" ({note})" for note in chip.notes))
        for device, registers in sorted(chip.devices.items()):
            lines.append("  global registers" if device < 0 else f"  device {device:02x}")
            lines += [f"    {at:02x}: {'??' if byte is None else f'{byte:02x}'}  {names.superio_name(at)}"
                      for at, byte in sorted(registers.items())]  # fmt: skip
    return lines


def show_spd(machine: Machine) -> list[str]:
    lines = []
    for address, slave in sorted(machine.slaves.items()):
        data = bytes(slave.cells.data)
        text = ""
        if data[2:3] == b"\x0c" and len(data) >= 0x15D:
            text = ", DDR4, part " + repr(data[0x149:0x15D].decode("latin-1").strip())
        elif data[2:3] == b"\x12" and len(data) >= 0x227:
            text = ", DDR5, part " + repr(data[0x209:0x227].decode("latin-1").strip())
        lines.append(f"{address:02x} {slave.keyword}: {len(data)} bytes{text}")
    return lines


def show_others(machine: Machine) -> list[str]:
    registers = [f"smn {die:x} {address:x}: {value}" for (die, address), value in sorted(machine.smn.items())]
    return machine.lines + registers


PARTS: dict[str, Callable[[Machine], list[str]]] = {
    "doors": show_doors, "cpuid": show_cpuid, "msrs": show_msrs, "pci": show_pci, "memory": show_memory,
    "smbios": show_smbios, "acpi": show_acpi, "cmos": show_cmos, "superio": show_superio, "spd": show_spd,
    "others": show_others, "resources": lambda machine: machine.resources, "missing": lambda machine: machine.missing,
}  # fmt: skip


def plain(line: str) -> str:
    """What a dump says reaches a terminal as letters alone."""
    return "".join(letter if letter.isprintable() and letter.isascii() else "?" for letter in line)


def print_machine(machine: Machine, part: str | None) -> None:
    if part is None:
        for line in machine.heading:
            print(plain(line))
        for section, sources in sorted(machine.sources.items()):
            for source in sources:
                print(plain(f"{section} from {source}"))
    for name, lines_of in PARTS.items():
        if part not in (None, name):
            continue
        body = lines_of(machine)
        if part is None and body:
            print(f"--- {name}")
        for line in body:
            print(plain(line))
