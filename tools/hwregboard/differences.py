"""Two machines compared: by function, register and name, with what does not count left out (volatile.py).

A byte that one side does not know is no difference. What only one side has is said once.
"""

from collections.abc import Iterable

from hwregboard import names, tables, volatile
from hwregboard.comparison import Comparison, Difference
from hwregboard.machine import BRIEF, ByCpu, Cells, Function, Machine, SuperIo, cpu_list

REGISTERS = ("eax", "ebx", "ecx", "edx")


def compare(first: Machine, second: Machine, rules: volatile.Rules) -> list[Difference]:
    return compared(first, second, rules).found


def compared(first: Machine, second: Machine, rules: volatile.Rules) -> Comparison:
    comparison = Comparison(rules)
    for part in (compare_doors, compare_cpuid, compare_msrs, compare_pci, tables.compare_memory, compare_cmos,
                 compare_superio, compare_smn, compare_slaves, compare_lines):  # fmt: skip
        part(comparison, first, second)
    return comparison


def counts(found: Iterable[Difference]) -> bool:
    return any(not difference.reason for difference in found)


def lines(found: Iterable[Difference], first: str, second: str) -> list[str]:
    return [difference.line(first, second) for difference in found]


# ---- doors and single lines


def compare_doors(comparison: Comparison, first: Machine, second: Machine) -> None:
    ours, theirs = dict(first.doors), dict(second.doors)
    ours["cpus"], theirs["cpus"] = cpu_list(first.cpus), cpu_list(second.cpus)
    for key in sorted(ours.keys() | theirs.keys()):
        if key not in ours or key not in theirs:
            comparison.only("doors", key, key in ours, theirs.get(key))
        elif ours[key] != theirs[key]:
            comparison.add("doors", key, ours[key], theirs[key])


def by_place(plain: list[str]) -> dict[str, str]:
    """Lines such as `pm1 600 1 20 0` by their first two words; the rest of several is joined."""
    found: dict[str, str] = {}
    for line in plain:
        words = line.split(None, 2)
        key = " ".join(words[:2])
        found[key] = (found[key] + "; " if key in found else "") + (words[2] if len(words) > 2 else "")
    return found


def compare_lines(comparison: Comparison, first: Machine, second: Machine) -> None:
    ours, theirs = by_place(first.lines), by_place(second.lines)
    for key in sorted(ours.keys() | theirs.keys()):
        reason = volatile.LINES.get(key.split()[0], "")
        if key not in ours or key not in theirs:
            comparison.only("line", key, key in ours, "" if reason else theirs.get(key))
        elif ours[key] != theirs[key]:
            comparison.add("line", key, ours[key], theirs[key], reason)


# ---- MSRs and CPUID


def by_cpu(first: ByCpu, second: ByCpu, cpus: list[int]) -> dict[tuple, list[int]]:
    """The CPUs by the pair of values that they have, where the two differ."""
    pairs: dict[tuple, list[int]] = {}
    if first == second:
        return pairs
    for cpu in cpus:
        pair = first.of(cpu), second.of(cpu)
        if pair[0] != pair[1]:
            pairs.setdefault(pair, []).append(cpu)
    return pairs


def common_cpus(first: Machine, second: Machine) -> list[int]:
    return sorted(set(first.cpus or [0]) & set(second.cpus or [0]))


def of_cpus(cpus: list[int], all_cpus: list[int]) -> str:
    return "" if cpus == all_cpus else f" (cpus {cpu_list(cpus)})"


def compare_msrs(comparison: Comparison, first: Machine, second: Machine) -> None:
    cpus = common_cpus(first, second)
    for index in comparison.sides("msrs", first.msrs, second.msrs, lambda key: (f"msr {key:x}", names.msr_name(key)),
                                  lambda by: sorted(by.items(), key=repr)):  # fmt: skip
        row = volatile.MSR.get(index)
        for (old, new), places in by_cpu(first.msrs[index], second.msrs[index], cpus).items():
            name = names.msr_name(index) + of_cpus(places, cpus)
            if old is None or new is None:
                comparison.only(f"msr {index:x}", name, new is None, "" if row else new)
            else:
                comparison.add(f"msr {index:x}", name, f"{old:x}", f"{new:x}", volatile.count_masked(old, new, row))


def compare_cpuid(comparison: Comparison, first: Machine, second: Machine) -> None:
    cpus = common_cpus(first, second)

    def title(key: tuple[int, int]) -> tuple[str, str]:
        return f"cpuid {key[0]:x} {key[1]:x}", names.cpuid_name(key[0])

    for key in comparison.sides("cpuid", first.cpuid, second.cpuid, title, lambda by: sorted(by.items(), key=repr)):
        place, name = title(key)
        for (old, new), places in by_cpu(first.cpuid[key], second.cpuid[key], cpus).items():
            if old is None or new is None:
                comparison.only(place, name + of_cpus(places, cpus), new is None, new)
                continue
            for number, register in enumerate(REGISTERS):
                if old[number] != new[number]:
                    reason = volatile.count_masked(old[number], new[number], volatile.CPUID.get((key[0], number)))
                    comparison.add(f"{place} {register}", name + of_cpus(places, cpus), f"{old[number]:x}",
                                   f"{new[number]:x}", reason)  # fmt: skip


# ---- PCI


def differing(first: Cells, second: Cells) -> list[int]:
    """Where both know a byte and it is another one."""
    return [at for at, (old, new, known, known_too) in enumerate(zip(first.data, second.data, first.mask, second.mask))
            if old != new and known == known_too == Cells.KNOWN]  # fmt: skip


def value_text(cells: Cells, start: int, width: int) -> str:
    """A register's bytes as a number, the lowest last."""
    return "".join(cells.hex(start, width).split()[::-1])


def compare_pci(comparison: Comparison, first: Machine, second: Machine) -> None:
    def title(place: str) -> tuple[str, str]:
        function = first.functions.get(place) or second.functions[place]
        return f"pci {place}", f"{function.identity} {names.class_name(function.class_code)}"

    for place in comparison.sides("pci", first.functions, second.functions, title, judged):
        compare_function(comparison, first.functions[place], second.functions[place])


def judged(function: Function) -> object:
    """A function's bytes without the bits that do not count."""
    data = bytearray(function.cells.data)
    for register in names.layout(function.config):
        row = volatile.PCI.get((register.kind, register.inside))
        if row:
            value = int.from_bytes(data[register.start:register.start + register.width], "little")
            kept = value & ~row[0]
            data[register.start:register.start + register.width] = kept.to_bytes(register.width, "little")
    return bytes(data), bytes(function.cells.mask), function.extra


def compare_function(comparison: Comparison, old: Function, new: Function) -> None:
    place = f"pci {old.place}"
    if len(old.cells.data) != len(new.cells.data):
        comparison.only(place, "extended configuration space", len(old.cells.data) > BRIEF, judged(new))
    if old.cells.data != new.cells.data or old.cells.mask != new.cells.mask:
        compare_registers(comparison, place, old, new)
    if old.windows != new.windows:
        for at in sorted(old.windows.keys() | new.windows.keys()):
            pair = [byte for side in (old, new) for byte in [side.windows.get(at, side.cells.data[at])
                                                             if at < len(side.cells.data) else None]]  # fmt: skip
            if None not in pair and pair[0] != pair[1]:
                comparison.add(f"{place} window {at:x}", names.pci_register_name(old.config, at), f"{pair[0]:02x}",
                               f"{pair[1]:02x}")  # fmt: skip
    if old.extra != new.extra:
        comparison.add(place, "devices", "; ".join(old.extra) or "none", "; ".join(new.extra) or "none")


def compare_registers(comparison: Comparison, place: str, old: Function, new: Function) -> None:
    if 0 in old.cells.mask:
        comparison.unjudged.update(bytes(byte for byte, known in zip(new.cells.data, old.cells.mask) if not known))
    config = old.config
    done = -1
    for at in differing(old.cells, new.cells):
        if at < done:
            continue
        register = names.pci_register(config, at)
        done = register.start + register.width
        values = [int.from_bytes(cells.data[register.start:done], "little") for cells in (old.cells, new.cells)]
        reason = volatile.count_masked(*values, volatile.PCI.get((register.kind, register.inside)))
        comparison.add(f"{place} {register.start:02x}", register.name,
                       *(value_text(cells, register.start, register.width) for cells in (old.cells, new.cells)), reason)


# ---- CMOS, Super I/O, SMN, SPD


def compare_cmos(comparison: Comparison, first: Machine, second: Machine) -> None:
    ours, theirs = (machine.has_cmos and 1 in machine.cmos.mask for machine in (first, second))
    if ours != theirs:
        kept = bytearray(second.cmos.data)
        for index, (bits, _) in volatile.CMOS.items():
            kept[index] &= ~bits
        comparison.only("cmos", "", bool(ours), bytes(kept))
    for at in differing(first.cmos, second.cmos):
        old, new = first.cmos.data[at], second.cmos.data[at]
        reason = volatile.count_masked(old, new, volatile.CMOS.get(at))
        comparison.add(f"cmos {at:02x}", names.cmos_name(at), f"{old:02x}", f"{new:02x}", reason)


def chip_registers(chips: list[SuperIo]) -> dict[tuple[int, int, int], int | None]:
    """By chip, device and register."""
    return {(number, device, register): byte for number, chip in enumerate(chips)
            for device, registers in chip.devices.items() for register, byte in registers.items()}  # fmt: skip


def compare_superio(comparison: Comparison, first: Machine, second: Machine) -> None:
    for number, (old, new) in enumerate(zip(first.superio, second.superio)):
        if old.words != new.words:
            comparison.add(f"superio {number}", "ports and keys", old.words, new.words)
    ours, theirs = chip_registers(first.superio), chip_registers(second.superio)

    def title(key: tuple[int, int, int]) -> tuple[str, str]:
        device = "global" if key[1] < 0 else f"device {key[1]:02x}"
        return f"superio {key[0]} {device} {key[2]:02x}", names.superio_name(key[2])

    for key in comparison.sides("superio", ours, theirs, title, lambda byte: byte):
        old, new = ours[key], theirs[key]
        if old is not None and new is not None and old != new:
            comparison.add(*title(key), f"{old:02x}", f"{new:02x}")


def compare_smn(comparison: Comparison, first: Machine, second: Machine) -> None:
    def title(key: tuple[int, int]) -> tuple[str, str]:
        return f"smn {key[0]:x} {key[1]:x}", ""

    for key in comparison.sides("smn", first.smn, second.smn, title, lambda value: value):
        if first.smn[key] != second.smn[key]:
            comparison.add(*title(key), first.smn[key], second.smn[key])


def compare_slaves(comparison: Comparison, first: Machine, second: Machine) -> None:
    for address in comparison.sides("spd", first.slaves, second.slaves, lambda key: (f"spd {key:02x}", ""),
                                    lambda slave: bytes(slave.cells.data)):  # fmt: skip
        old, new = first.slaves[address], second.slaves[address]
        if old.keyword != new.keyword:
            comparison.add(f"spd {address:02x}", "kind", old.keyword, new.keyword)
        done = -1
        for at in differing(old.cells, new.cells):
            if at < done:
                continue
            start, width, name = names.spd_field(at) if old.cells.data[2:3] == b"\x0c" else (at, 1, f"Byte {at:02x}")
            done = start + width
            comparison.add(f"spd {address:02x} {start:02x}", name, old.cells.hex(start, width),
                           new.cells.hex(start, width))  # fmt: skip
        size = min(len(old.cells.data), len(new.cells.data))
        if len(old.cells.data) != len(new.cells.data):
            comparison.only(f"spd {address:02x} {size:x}", "and what follows", len(old.cells.data) > size,
                            bytes(new.cells.data[size:]))  # fmt: skip
