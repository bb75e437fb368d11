"""Lists of MSRs: `0xINDEX VALUE` as rdmsr users write them, libcpuid's and AIDA64's lines, hwreg's own, chipsec's
recordings; written as `0xINDEX 0xVALUE`."""

import json
import re

from hwregboard.errors import Mistake, shown
from hwregboard.inputs import as_text, lines_of, read_bytes
from hwregboard.machine import ByCpu, Machine

HEX = r"(?:0[xX])?[0-9a-fA-F]+"
CPU_LINE = re.compile(r"[^0-9a-zA-Z]*(?:Logical )?CPU[ #]*(\d+)\b[^0-9a-zA-Z]*$", re.IGNORECASE)
ENTRY = re.compile(
    rf"\s*(?:CPU[ #\[]*(\d+)[\]:, ]*)?\s*(?:MSR(?:\s+read\s+from)?)?[\s\[]*({HEX})h?\]?"
    rf"(?:\s*,\s*return\s+MSR)?\s*(?:[:=,]\s*|\s+)({HEX}(?:[ _:-]{HEX}){{0,3}})(?:\s+[\[(#;].*)?\s*$", re.IGNORECASE)
SKIPPED = re.compile(r"\s*(?:[#;/-]|$)|[a-zA-Z_]+=")
CPUS = 1024  # that the simulator has


def cpu_number(text: str) -> int:
    return int(text) if len(text) < 8 else CPUS


def joined(text: str) -> int:
    """One number, or parts of 32 or 16 bits with the highest first."""
    words = [word.lower().removeprefix("0x") for word in re.split(r"[ _:-]", text)]
    if len(words) > 1 and any(len(word) > 64 // (4 * len(words)) for word in words):
        raise ValueError("too long")
    value = 0
    for word in words:
        value = value << (64 // len(words)) | int(word, 16)
    if value >> 64:
        raise ValueError("too large")
    return value


def store(machine: Machine, index: int, cpu: int | None, value: int) -> None:
    by = machine.msrs.setdefault(index, ByCpu())
    by.put(None if cpu is None else [cpu], value)


def import_msr(machine: Machine, file: str, say: list[str]) -> None:
    data = read_bytes(file)
    before = len(machine.msrs)
    if as_text(data[:4096]).lstrip().startswith("{"):
        import_chipsec(machine, file, data, say)
    else:
        import_lines(machine, file, data)
    if not machine.msrs:
        raise Mistake(file, 0, "no MSRs here (0xINDEX 0xVALUE in a line each)")
    machine.sources.setdefault("msrs", []).append(f"{file}: {len(machine.msrs) - before} MSRs")


def import_lines(machine: Machine, file: str, data: bytes) -> None:
    cpu: int | None = None
    for number, line in lines_of(file, data):
        if header := CPU_LINE.match(line):
            cpu = cpu_number(header[1])
            if cpu >= CPUS:
                raise Mistake(file, number, f"there are no such CPUs: {shown(header[1])}")
            continue
        if SKIPPED.match(line):
            continue
        entry = ENTRY.match(" ".join(line.split()))  # single blanks: several patterns of the row could take each
        try:
            if not entry:
                raise ValueError("no MSR")
            index, own = int(entry[2].rstrip("hH"), 16), int(entry[1]) if entry[1] else cpu
            if index >> 32 or own is not None and own >= CPUS:
                raise ValueError("too large")
            store(machine, index, own, joined(entry[3]))
        except ValueError:
            raise Mistake(file, number, f"not an MSR and its value: {shown(line.strip())}") from None


def numbers(text: object) -> list[int]:
    """(1,58) or (5, 0)"""
    if not isinstance(text, str) or not re.fullmatch(r"\(\s*\d{1,20}(?:\s*,\s*\d{1,20})*\s*\)", text):
        raise ValueError(f"not a row of numbers: {shown(str(text))}")
    return [int(word) for word in text.strip("() ").split(",")]


def import_chipsec(machine: Machine, file: str, data: bytes, say: list[str]) -> None:
    """`read_msr`: {"(cpu,index)": ["(low, high)", ...]}; of several values the first counts."""
    try:
        recorded = json.loads(as_text(data))
        values = recorded.get("read_msr", {})
        changed = 0
        for key, found in values.items():
            cpu, index = numbers(key)
            low, high = numbers(found[0])
            if cpu >= CPUS or (index | low | high) >> 32:
                raise ValueError(f"too large: {shown(key)}")
            changed += any(value != found[0] for value in found)
            store(machine, index, cpu, high << 32 | low)
    except (ValueError, AttributeError, TypeError, IndexError, KeyError, RecursionError) as error:
        raise Mistake(file, getattr(error, "lineno", 1), f"not a recording of MSRs: {error}") from None
    if changed:
        say.append(f"{file}: {changed} MSRs were read with several values; the first counts")


def export_msr(machine: Machine) -> bytes:
    lines = []
    for index, by in sorted(machine.msrs.items()):
        for value, cpus in by.groups():
            for cpu in cpus or [None]:
                lines.append(("" if cpu is None else f"CPU {cpu}: ") + f"0x{index:x} 0x{value:x}")
    return ("\n".join(lines) + "\n").encode()


def shared(by: ByCpu, cpus: list[int]) -> ByCpu:
    """One value for all where all CPUs have the same."""
    if None not in by and len(by) < len(cpus):
        return by
    values = {by.of(cpu) for cpu in cpus}
    if len(values) == 1 and set(by) <= {None, *cpus}:
        return ByCpu({None: values.pop()})
    return by

