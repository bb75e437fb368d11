"""Memory of two machines compared: SMBIOS structures and ACPI tables by their fields, the rest by address."""

from collections.abc import Callable, Iterable, Iterator

from hwregboard import acpi, dmi, names, volatile
from hwregboard.comparison import Comparison
from hwregboard.machine import Machine, Run, overlaid, read_memory

GAP = 16  # bytes that are the same between two that differ, which are then told in one line
SHOWN = 16  # bytes of a line
PLACES = 64  # lines of a table or an area; then their number is told

Range = tuple[int, int]


def compare_memory(comparison: Comparison, first: Machine, second: Machine) -> None:
    runs = overlaid(first.parts), overlaid(second.parts)
    if runs[0] == runs[1]:
        return
    told = compare_smbios(comparison, first, second) + compare_acpi(comparison, first, second)
    compare_rest(comparison, *(list(without(each, told)) for each in runs))


# ---- SMBIOS


def numbered(table: bytes) -> dict[tuple[int, int], dmi.Structure]:
    """Structures by type and how many of that type came before: handles move when a structure is added."""
    found: dict[tuple[int, int], dmi.Structure] = {}
    seen: dict[int, int] = {}
    for structure in dmi.structures(table):
        seen[structure.kind] = seen.get(structure.kind, -1) + 1
        found[structure.kind, seen[structure.kind]] = structure
    return found


def smbios_ranges(machine: Machine, found: tuple[bytes, bytes] | None) -> list[Range]:
    """Where entry point and table lie."""
    ranges = []
    for part in machine.parts:
        if part.title.startswith((dmi.ENTRY_TITLE, dmi.TABLE_TITLE)):
            ranges += [(run.address, run.end) for run in part.runs]
    if found and (kind := dmi.kind_of(found[0])):
        address = dmi.field(found[0], kind.address)
        ranges.append((address, address + len(found[1])))
        for part in machine.parts:
            for run in part.runs:
                if (at := run.data.find(found[0])) >= 0:
                    ranges.append((run.address + at, run.address + at + len(found[0])))
    return ranges


def compare_smbios(comparison: Comparison, first: Machine, second: Machine) -> list[Range]:
    ours, theirs = dmi.find_smbios(first), dmi.find_smbios(second)
    if ours is None or theirs is None:
        if ours != theirs:
            comparison.only("smbios", "", ours is not None, theirs)
        return smbios_ranges(first, ours) + smbios_ranges(second, theirs)
    if ours != theirs:
        if ours[0] != theirs[0]:
            comparison.add("smbios entry point", "", ours[0].hex(" "), theirs[0].hex(" "))
        sides = numbered(ours[1]), numbered(theirs[1])

        def title(key: tuple[int, int]) -> tuple[str, str]:
            return f"smbios {key[0]}.{key[1]}", names.smbios_name(key[0])

        before = len(comparison.found)
        for key in comparison.sides("smbios", *sides, title, lambda structure: structure):
            compare_structure(comparison, *title(key), sides[0][key], sides[1][key])
        if ours[1] != theirs[1] and len(comparison.found) == before and not comparison.rules.patterns:
            compare_bytes(comparison, "smbios table", ours[1], theirs[1])
    return smbios_ranges(first, ours) + smbios_ranges(second, theirs)


def compare_structure(comparison: Comparison, place: str, title: str, old: dmi.Structure, new: dmi.Structure) -> None:
    if old == new:
        return
    if old.handle != new.handle:
        comparison.add(place, f"{title} Handle", f"{old.handle:04x}", f"{new.handle:04x}")
    fields = names.SMBIOS_FIELDS.get(old.kind, {})
    told: set[str] = set()
    at = 4
    while at < min(len(old.body), len(new.body)):
        width, name = fields.get(at, (1, f"byte {at:02x}"))
        if width == 0:
            texts = old.string(at), new.string(at)
            told |= set(texts)
            if texts[0] != texts[1] or old.body[at] and new.body[at] and old.body[at] != new.body[at]:
                comparison.add(f"{place} {at:02x}", f"{title} {name}", *(f'"{text}"' for text in texts))
        elif old.body[at:at + width] != new.body[at:at + width]:
            texts = tuple(each.body[at:at + width][::-1].hex() for each in (old, new))
            comparison.add(f"{place} {at:02x}", f"{title} {name}", *texts)
        at += max(width, 1)
    if len(old.body) != len(new.body):
        comparison.add(place, f"{title} Length", f"{len(old.body):x}", f"{len(new.body):x}")
        comparison.unjudged.update(new.body)
    compare_strings(comparison, place, title, old, new, told)


def compare_strings(comparison: Comparison, place: str, title: str, old: dmi.Structure, new: dmi.Structure,
                    told: set[str]) -> None:  # fmt: skip
    """Strings that no named field has told."""
    for number in range(max(len(old.strings), len(new.strings))):
        texts = [repr(each.strings[number].decode("latin-1").encode("ascii", "backslashreplace").decode())[1:-1]
                 if number < len(each.strings) else None for each in (old, new)]  # fmt: skip
        if texts[0] != texts[1] and not (set(texts) - {None} <= told):
            comparison.add(place, f"{title} string {number + 1}",
                           *(None if text is None else f'"{text}"' for text in texts))  # fmt: skip


# ---- ACPI


def keyed(machine: Machine) -> dict[str, acpi.Table]:
    """Tables by signature, OEM table ID where several have one signature, and how many came before."""
    found: dict[str, acpi.Table] = {}
    plain = acpi.find_tables(machine)
    signatures = [table.signature for table in plain]
    for table in plain:
        key = "RSDP" if table.signature == acpi.RSDP.decode() else table.signature
        if signatures.count(table.signature) > 1:
            key += " " + "".join(chr(byte) for byte in table.data[16:24] if 0x21 <= byte < 0x7F)
        number = 1
        while (f"{key} {number}" if number > 1 else key) in found:
            number += 1
        found[f"{key} {number}" if number > 1 else key] = table
    return found


def compare_acpi(comparison: Comparison, first: Machine, second: Machine) -> list[Range]:
    ours, theirs = keyed(first), keyed(second)
    placed = {int(title[2], 16) for machine in (first, second) for part in machine.parts
              if any(note.startswith("placed by the importer") for note in part.notes) or acpi.MADE in part.title
              if (title := acpi.TITLE.match(part.title))}  # fmt: skip
    for key in comparison.sides("acpi", ours, theirs, lambda key: (f"acpi {key}", ""), lambda table: table.data):
        old, new = ours[key], theirs[key]
        if old.address != new.address and not {old.address, new.address} & placed:
            comparison.add(f"acpi {key}", "address", f"{old.address:x}", f"{new.address:x}")
        if old.data != new.data:
            compare_table(comparison, key, old, new)
    return [(table.address, table.address + len(table.data)) for table in (*ours.values(), *theirs.values())]


def compare_table(comparison: Comparison, key: str, old: acpi.Table, new: acpi.Table) -> None:
    size = min(len(old.data), len(new.data))
    plain = []
    done = -1
    for at in (at for at in range(size) if old.data[at] != new.data[at]):
        if at < done:
            continue
        start, width, name = names.table_field(old.signature, at)
        if name.startswith("Byte"):
            plain.append(at)
            continue
        done = start + width
        texts = [data[start:done].decode("ascii", "backslashreplace") if name in names.TABLE_TEXTS
                 else data[start:done][::-1].hex() for data in (old.data, new.data)]  # fmt: skip
        comparison.add(f"acpi {key} {start:02x}", name, *texts)
    if len(old.data) != len(new.data):
        comparison.unjudged.update(new.data)
        other = plain[0] if plain else size
        comparison.add(f"acpi {key}", "contents", f"{len(old.data)} bytes",
                       f"{len(new.data)} bytes, the first other one at {other:x}")  # fmt: skip
        return
    reasons = volatile.FACS if key == "FACS" else {}
    places(comparison, f"acpi {key}", 0, old.data, new.data, plain,
           lambda at: next((reason for start, reason in reasons.items() if start <= at < start + 8), ""))  # fmt: skip


# ---- runs of bytes


def places(comparison: Comparison, place: str, base: int, old: bytes, new: bytes, others: list[int],
           reason: Callable[[int], str]) -> None:  # fmt: skip
    """One line for each row of bytes that differ; beyond PLACES their number."""
    rows: list[list[int]] = []
    for at in others:
        if rows and at - rows[-1][1] < GAP and reason(base + at) == reason(base + rows[-1][0]):
            rows[-1][1] = at
        else:
            rows.append([at, at])
    for start, last in rows[:PLACES]:
        end = min(last + 1, start + SHOWN)
        more = f" ({last + 1 - start} bytes)" if last + 1 > end else ""
        comparison.add(f"{place} {base + start:x}", "", old[start:end].hex(" "), new[start:end].hex(" ") + more,
                       reason(base + start))  # fmt: skip
    if rows[PLACES:]:
        comparison.unjudged.update(new)
        first, last = rows[PLACES][0], rows[-1][1]
        comparison.add(f"{place} {base + first:x}", f"to {base + last:x}", f"{len(rows) - PLACES} more places",
                       "other bytes")  # fmt: skip


def compare_bytes(comparison: Comparison, place: str, old: bytes, new: bytes) -> None:
    size = min(len(old), len(new))
    places(comparison, place, 0, old, new, [at for at in range(size) if old[at] != new[at]], lambda at: "")
    if len(old) != len(new):
        comparison.only(f"{place} {size:x}", "and what follows", len(old) > size, new[size:])


def without(runs: list[Run], ranges: list[Range]) -> Iterator[Range]:
    """(start, end) of what runs have outside of ranges."""
    for run in runs:
        start = run.address
        for first, end in sorted(ranges):
            if end <= start or first >= run.end:
                continue
            if first > start:
                yield Run(start, run.data[start - run.address:first - run.address], cut(run, start, first))
            start = max(start, end)
        if start < run.end:
            yield Run(start, run.data[start - run.address:], cut(run, start, run.end))


def cut(run: Run, start: int, end: int) -> bytearray | None:
    return None if run.mask is None else run.mask[start - run.address:end - run.address]


def volatile_memory(address: int) -> str:
    return next((reason for first, last, reason in volatile.MEMORY if first <= address <= last), "")


def compare_rest(comparison: Comparison, first: list[Run], second: list[Run]) -> None:
    bounds = sorted({at for run in first + second for at in (run.address, run.end)})
    lone: list[tuple[int, int, bool]] = []
    for start, end in zip(bounds, bounds[1:]):
        old, known = read_memory(first, start, end - start)
        new, known_too = read_memory(second, start, end - start)
        if old and new:
            compare_area(comparison, start, (old, known), (new, known_too))
        elif old or new:
            if lone and lone[-1][1:] == (start, bool(old)):
                lone[-1] = lone[-1][0], end, bool(old)
            else:
                lone.append((start, end, bool(old)))
    for start, end, in_first in lone:
        content = b"" if volatile_memory(start) else read_memory(second, start, end - start)[0]
        comparison.only(f"memory {start:x}-{end - 1:x}", "", in_first, content)


def compare_area(comparison: Comparison, start: int, old: tuple[bytes, bytes], new: tuple[bytes, bytes]) -> None:
    if 0 in old[1]:
        comparison.unjudged.update(bytes(byte for byte, known in zip(new[0], old[1]) if not known))
    if old[0] == new[0]:
        return
    others = list(differing_bytes(old, new))
    places(comparison, "memory", start, old[0], new[0], others, volatile_memory)


def differing_bytes(old: tuple[bytes, bytes], new: tuple[bytes, bytes]) -> Iterable[int]:
    """Page by page: most are the same."""
    for page in range(0, len(old[0]), 256):
        if old[0][page:page + 256] != new[0][page:page + 256]:
            for at in range(page, min(page + 256, len(old[0]))):
                if old[0][at] != new[0][at] and old[1][at] and new[1][at]:
                    yield at
