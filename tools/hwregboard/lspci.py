"""lspci -x, -xxx and -xxxx: read, and written as lspci -F takes it. Trees of sysfs and archives of them, too."""

import os
import re
from collections.abc import Iterable

from hwregboard import names
from hwregboard.board import is_place
from hwregboard.errors import Mistake, shown
from hwregboard.inputs import is_archive, lines_of, members, read_bytes
from hwregboard.machine import BRIEF, FULL, Cells, Function, Machine

HEADER = re.compile(r"(?:([0-9a-fA-F]{4,8}):)?([0-9a-fA-F]{2}:[0-9a-fA-F]{2}\.[0-7])(?![0-9a-fA-F.])")
ROW = re.compile(r"([0-9a-fA-F]{2,4}):((?:[ \t]+(?:[0-9a-fA-F]{2}|\?\?|[xX]{2}))+)[ \t]*$")
ROW_BEGINS = re.compile(r"[0-9a-fA-F]{2,4}:[ \t]+\S")
IN_TREE = re.compile(r"(?:^|/)([0-9a-fA-F]{4,8}):([0-9a-fA-F]{2}:[0-9a-fA-F]{2}\.[0-7])/config$")
LARGEST = 32 << 20  # bytes of all functions: 128 K brief ones, or 8192 with extended configuration space


class Collector:
    """Functions found in one input, with what has to be said about them."""

    def __init__(self, machine: Machine, file: str, say: list[str]) -> None:
        self.machine = machine
        self.file = file
        self.say = say
        self.found: dict[str, Function] = {}
        self.elsewhere: list[str] = []
        self.latest = Function("", Cells(0))
        self.size = 0  # of the functions before the latest

    def begin(self, domain: str, place: str, line: int) -> Function | None:
        place = place.lower()
        if not is_place(place):
            raise Mistake(self.file, line, f"no PCI bus has such a device: {place}")
        if int(domain or "0", 16):
            self.elsewhere.append(f"{domain}:{place}")
            return None
        if place in self.found:
            self.say.append(f"{self.file}:{line}: {place} is there twice; what comes later counts")
        self.size += len(self.latest.cells.data)
        if self.size > LARGEST:
            raise Mistake(self.file, line, f"more than {LARGEST >> 20} MiB of configuration space")
        self.latest = self.found[place] = Function(place, Cells(BRIEF, absent=True))
        return self.latest

    def end(self) -> None:
        machine = self.machine
        for place in self.elsewhere[:8]:
            machine.missing.append(f"pci {place}: ports CF8h and CFCh reach domain 0 alone")
        if self.elsewhere[8:]:
            machine.missing.append(f"pci: {len(self.elsewhere) - 8} more functions of other domains")
        if self.elsewhere:
            self.say.append(f"{self.file}: {len(self.elsewhere)} functions of other PCI domains are left out")
        bare = [place for place, function in self.found.items() if not function.cells.mask.strip(b"\2")]
        for place in bare:
            machine.missing.append(f"pci {place}: the dump has no bytes of it")
            del self.found[place]
        if not self.found:
            raise Mistake(self.file, 0, "no bytes of a PCI function (lspci -x, -xxx or -xxxx prints them)"
                          + (" in domain 0" if self.elsewhere else ""))  # fmt: skip
        short = 0
        for place, function in self.found.items():
            size = held(function)
            short += size < BRIEF
            function.cells.mask = function.cells.mask.replace(b"\2", b"\0")
            if place in machine.functions:
                self.say.append(f"{self.file}: {place} came from another file, too; this one counts")
            machine.functions[place] = function
        if short:
            self.say.append(f"{self.file}: {short} functions with less than 256 bytes; what is not there is unknown")
        machine.sources.setdefault("pci", []).append(f"{self.file}: {len(self.found)} functions")


def held(function: Function) -> int:
    """The bytes up to the last one that the dump has."""
    return len(function.cells.mask.rstrip(b"\x02"))


def import_lspci(machine: Machine, file: str, say: list[str]) -> None:
    data = read_bytes(file)
    if is_archive(data):
        return import_tree(machine, file, members(file, data), say)
    collector = Collector(machine, file, say)
    function: Function | None = None
    begun = False
    for number, line in lines_of(file, data):
        row = ROW.match(line)
        header = HEADER.match(line)
        if row and not header:
            if not begun:
                raise Mistake(file, number, f"bytes before the first function: {shown(line)}")
            if function is not None:
                put_row(file, number, function, int(row[1], 16), row[2].split())
        elif header:
            begun = True
            function = collector.begin(header[1] or "", header[2], number)
        elif ROW_BEGINS.match(line) and begun:
            raise Mistake(file, number, f"a row of bytes is damaged: {shown(line)}")
    collector.end()


def put_row(file: str, number: int, function: Function, offset: int, words: list[str]) -> None:
    if offset % 16 or len(words) > 16 or offset >= FULL:
        raise Mistake(file, number, f"no row of configuration space begins at {offset:x}h with {len(words)} bytes")
    if offset >= BRIEF:
        function.cells.grow(FULL, Cells.ABSENT)
    mask = bytes(word not in ("??", "XX", "xx", "Xx", "xX") for word in words)
    function.cells.put(offset, bytes(int(word, 16) if known else 0 for word, known in zip(words, mask)), mask)


def import_tree(machine: Machine, file: str, files: Iterable[tuple[str, bytes]], say: list[str]) -> None:
    """Files `config` in folders named by domain, bus, device and function."""
    collector = Collector(machine, file, say)
    for path, config in files:
        found = IN_TREE.search(path)
        if not found:
            continue
        if len(config) > FULL:
            raise Mistake(f"{file}({path})", 0, "more than 4096 bytes of configuration space")
        function = collector.begin(found[1], found[2], 0)
        if function is not None and config:
            if len(config) > BRIEF:
                function.cells.grow(FULL, Cells.ABSENT)
            function.cells.put(0, config)
    collector.end()


def import_sysfs(machine: Machine, file: str, say: list[str]) -> None:
    if not os.path.isdir(file):
        data = read_bytes(file)
        if not is_archive(data):
            raise Mistake(file, 0, "neither a folder nor an archive")
        return import_tree(machine, file, members(file, data), say)
    import_tree(machine, file, configs_below(file), say)


def configs_below(folder: str) -> Iterable[tuple[str, bytes]]:
    """In /sys/bus/pci/devices the functions are links, which are looked into; other links are not followed."""
    for place, folders, found in os.walk(folder):
        links = [name for name in folders if is_place(name[-7:].lower()) and os.path.islink(os.path.join(place, name))]
        for path in [os.path.join(place, name, "config") for name in links] + [
                os.path.join(place, name) for name in found if name == "config"]:  # fmt: skip
            if IN_TREE.search(path) and os.path.isfile(path):
                yield path, read_bytes(path)


def export_lspci(machine: Machine) -> bytes:
    """A row is left out when nothing of it is known; other bytes that are not known are written as ff."""
    lines = []
    for place, function in sorted(machine.functions.items()):
        cells = function.cells
        title = names.class_name(function.class_code)
        lines.append(f"{place} {title}: {function.identity} (rev {cells.data[8]:02x})")
        last = len(cells.mask.rstrip(b"\0\x02"))
        for row in range(0, len(cells.data), 16):
            if row < last:
                lines.append(f"{row:02x}: " + cells.hex(row, 16).replace("??", "ff"))
        lines.append("")
    return ("\n".join(lines) + "\n").encode()

