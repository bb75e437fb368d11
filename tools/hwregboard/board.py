"""Board files of captured and imported machines: read and written.

What hand-written machines say beyond that (described functions, capabilities ...) is told to be captured first.
"""

import os
import pathlib
from collections.abc import Callable

from hwregboard import names
from hwregboard.errors import Mistake, shown
from hwregboard.inputs import read_text
from hwregboard.machine import BRIEF, FULL, ByCpu, Cells, Function, Machine, Part, Slave, SuperIo, cpu_list

DEPTH = 8  # of includes
BLANKS = " " * 15  # between 16 bytes
CPUS = 4096  # of a captured machine
VALUES = 1 << 22  # of MSRs and leaves that single CPUs have
MEMORY = 64 << 20  # bytes of memory that a file may mention
DOORS = ["iopl", "mem", "msr-nodes", "pci-ports", "ecam", "pm-registers"]
PLAIN = ["refuse", "systab", "pm1", "constant", "latch", "delay", "unlogged", "system-control",
         "cmos-time", "cmos-run", "cmos-stuck", "pm-bytes", "hole", "watch", "system", "text", "file", "file-bytes",
         "smbus-remove"]
OF_FUNCTIONS = ["smbus-host", "smn", "smu-mailbox"]
BY_HAND = ["byte", "word", "dword", "irq", "subsystem", "buses", "bar", "cap", "pcie", "xcap", "pci-remove", "i2c-core",
           "i2c-device", "i2c-words", "sequence", "smbus-fill", "smu-reply", "printer"]  # fmt: skip


def board_folders() -> list[pathlib.Path]:
    """Where the boards lie that come with the program."""
    here = pathlib.Path(__file__).resolve().parents[2]
    known = [here / "sim" / "boards", here / "hwreg" / "boards"]
    told = os.environ.get("HWBOARD_PATH")
    return [pathlib.Path(told), *known] if told else known


class Reader:
    """Reads one file and what it includes into a machine."""

    def __init__(self, machine: Machine) -> None:
        self.machine = machine
        self.file = ""
        self.line = 0
        self.title: str | None = ""  # of the next part of memory
        self.notes: list[str] = []  # to the next part
        self.source = ""
        self.section = ""
        self.function: Function | None = None
        self.slave: Slave | None = None
        self.size = 0
        self.values = 0
        self.handlers: dict[str, Callable[[str], None]] = {
            "config": self.config, "window": self.window, "bytes": self.bytes, "fill": self.fill, "msr": self.msr,
            "cpuid": self.cpuid, "cpus": self.cpus, "pci": self.pci, "cmos": self.cmos, "cmos-bytes": self.cmos_bytes,
            "smbus-eeprom": self.smbus, "smbus-spd": self.smbus, "smbus-bytes": self.smbus_bytes,
            "superio": self.superio, "superio-global": self.superio_registers,
            "superio-device": self.superio_registers, "smn-register": self.smn_register,
        }  # fmt: skip

    def fail(self, text: str) -> Mistake:
        return Mistake(self.file, self.line, text)

    # ---- a file

    def read(self, file: str, depth: int = 0) -> None:
        saved = self.file, self.line
        self.file, self.line = file, 0
        text = read_text(file)
        if not text.strip():
            raise Mistake(file, 0, "the file is empty")
        opened = closed = 0
        told = text.split("\n")
        while self.line < len(told):
            line = told[self.line]
            if line.startswith("bytes ") and not closed and (taken := self.block(told, self.line)):
                self.line += taken
                continue
            self.line += 1
            if "#" in line:
                line = self.without_comment(line)
            words = line.strip()
            if not words:
                continue
            if closed:
                raise self.fail(f'nothing may follow "end": {shown(words)}')
            keyword, _, rest = words.partition(" ")
            handler = self.handlers.get(keyword)
            if handler is not None:
                self.keyword = keyword
                handler(rest)
            elif keyword == "capture":
                if rest.strip() != "1":
                    raise self.fail(f"this format of captures is not known: {shown(rest)}")
                opened = self.line
            elif keyword == "end" and opened:
                closed = self.line
            elif keyword == "include":
                self.include(rest.strip().strip('"'), depth)
            else:
                self.other(keyword, rest, words)
        if opened and not closed:
            raise self.fail('the file is cut off: its last line is not "end"')
        self.file, self.line = saved

    def block(self, told: list[str], first: int) -> int:
        """Takes rows of 16 bytes that follow each other at once, as captures have thousands of them, and gives their
        number; 0 when there are no two such rows: they go the usual way."""
        word = told[first].split(" ", 2)[1]
        try:
            start = at = int(word, 16)
        except ValueError:
            return 0
        rows = []
        for number in range(first, len(told)):
            prefix = f"bytes {at:x} "
            row = told[number][len(prefix):]
            if len(row) != 47 or row[2::3] != BLANKS or not told[number].startswith(prefix):
                break
            rows.append(row)
            at += 16
        try:
            data = bytes.fromhex(" ".join(rows))
        except ValueError:
            return 0
        if len(rows) < 2 or len(data) != 16 * len(rows) or at > 1 << 32:
            return 0
        self.memory(start, data, None)
        return len(rows)

    def without_comment(self, line: str) -> str:
        quoted = False
        for at, letter in enumerate(line):
            if letter == '"':
                quoted = not quoted
            elif letter == "#" and not quoted:
                if not line[:at].strip():
                    self.comment(line[at + 1:].strip())
                return line[:at]
        return line

    def comment(self, text: str) -> None:
        machine = self.machine
        if text.startswith("---"):
            self.section, self.title = text.strip("- "), ""
        elif text.startswith("missing: "):
            machine.missing.append(text.removeprefix("missing: "))
        elif text.startswith("from: ") and self.section == "memory":
            self.source = text.removeprefix("from: ")
        elif text.startswith("from: ") and self.section == "superio":
            self.notes.append(text)
        elif text.startswith("from: "):
            machine.sources.setdefault(self.section, []).append(text.removeprefix("from: "))
        elif text.startswith(("iomem: ", "ioports: ")):
            machine.resources.append(text)
        elif text.startswith("smbus-bytes ") and self.slave:
            self.smbus_bytes(text.removeprefix("smbus-bytes "))  # beyond what the simulated slave holds
        elif text.startswith("note: ") and self.section:
            self.notes.append(text.removeprefix("note: "))
        elif not self.section:
            machine.heading.append(text)
        else:
            self.title = text

    def include(self, name: str, depth: int) -> None:
        if depth >= DEPTH:
            raise self.fail(f"too many includes inside each other: {shown(name)}")
        for folder in [pathlib.Path(self.file).parent, *board_folders()]:
            path = folder / name
            if os.path.isfile(path):
                saved = self.section, self.title
                self.read(str(path), depth + 1)
                self.section, self.title = saved
                return
        raise self.fail(f"there is no such file to include: {shown(name)}")

    def other(self, keyword: str, rest: str, words: str) -> None:
        if keyword in DOORS:
            self.machine.doors[keyword] = rest.strip()
        elif keyword in OF_FUNCTIONS:
            if keyword == "smbus-host" and rest.split()[:1] == ["pm"]:
                self.machine.lines.append(words)
            elif self.function is None:
                raise self.fail(f'no "pci" line comes before: {keyword}')
            else:
                self.function.extra.append(words)
        elif keyword in PLAIN:
            self.machine.lines.append(words)
        elif keyword in BY_HAND:
            raise self.by_hand(keyword)
        else:
            raise self.fail(f"unknown keyword: {shown(keyword)}")

    def by_hand(self, keyword: str) -> Mistake:
        return self.fail(f"a line of a described machine; capture that first (hwreg-sim --board {self.machine.name} "
                         f"--capture >captured.board): {shown(keyword)}")  # fmt: skip

    # ---- words

    def number(self, word: str, limit: int) -> int:
        try:
            value = int(word, 16)
        except ValueError:
            raise self.fail(f"not a number: {shown(word)}") from None
        if not 0 <= value <= limit or "_" in word or word[0] in "+-":
            raise self.fail(f"the number is too large: {shown(word)}" if value > limit
                            else f"not a number: {shown(word)}")  # fmt: skip
        return value

    def cells(self, rest: str, limit: int) -> tuple[int, bytes, bytes | None]:
        """(offset, bytes, mask) of a line of bytes; the mask is None when all are known."""
        word, _, digits = rest.strip().partition(" ")
        offset = self.number(word, limit) if word else 0
        try:
            data = bytes.fromhex(digits)
            if data and len(digits) == 3 * len(data) - 1:
                if offset + len(data) > limit + 1:
                    raise self.fail(f"the bytes end beyond {limit + 1:x}h: {word}")
                return offset, data, None
        except ValueError:
            pass
        words = digits.split()
        if not words:
            raise self.fail(f"no bytes behind: {shown(rest)}")
        mask = bytes(word != "??" for word in words)
        if offset + len(words) > limit + 1:
            raise self.fail(f"the bytes end beyond {limit + 1:x}h: {word}")
        data = bytes(self.number(word, 0xFF) if known else 0 for word, known in zip(words, mask))
        return offset, data, None if all(mask) else mask

    def cpu_numbers(self, words: list[str]) -> list[int]:
        cpus: set[int] = set()
        for word in ",".join(words).split(","):
            first, _, last = word.partition("-")
            if not first.isdecimal() or not (last or first).isdecimal() or not (
                    int(first) <= int(last or first) < CPUS):  # fmt: skip
                raise self.fail(f"not a list of CPUs: {shown(word)}")
            cpus.update(range(int(first), int(last or first) + 1))
        return sorted(cpus)

    def split_cpus(self, words: list[str]) -> tuple[list[str], list[int] | None]:
        """The words before `cpus LIST` and the list."""
        if "cpus" not in words:
            return words, None
        at = words.index("cpus")
        end = at + 1
        while end < len(words) and words[end][:1].isdigit():
            end += 1
        if end == at + 1:
            raise self.fail("no list of CPUs behind: cpus")
        cpus = self.cpu_numbers(words[at + 1:end])
        self.values += len(cpus)
        if self.values > VALUES:
            raise self.fail(f"the file has more than {VALUES} values of single CPUs")
        return words[:at] + words[end:], cpus

    # ---- lines

    def cpus(self, rest: str) -> None:
        self.machine.cpus = self.cpu_numbers(rest.split())

    def cpuid(self, rest: str) -> None:
        words, cpus = self.split_cpus(rest.split())
        if len(words) != 6:
            raise self.fail("a leaf has six numbers: cpuid")
        leaf, subleaf, *registers = (self.number(word, 0xFFFFFFFF) for word in words)
        self.machine.cpuid.setdefault((leaf, subleaf), ByCpu()).put(cpus, tuple(registers))

    def msr(self, rest: str) -> None:
        words, cpus = self.split_cpus(rest.split())
        if len(words) < 2:
            raise self.fail("an MSR has an index and a value: msr")
        index = self.number(words[0], 0xFFFFFFFF)
        self.machine.msrs.setdefault(index, ByCpu()).put(cpus, self.number(words[1], (1 << 64) - 1))
        if words[2:]:
            self.machine.msr_options[index] = " ".join(words[2:])

    def pci(self, rest: str) -> None:
        words = rest.split()
        place = words[0].lower() if words else ""
        if not is_place(place):
            raise self.fail(f"not the place of a function (BB:DD.F): {shown(place)}")
        if words[1:] == ["verbatim"]:
            if place in self.machine.functions:
                raise self.fail(f"the function is there already: {place}")
            self.function = self.machine.functions[place] = Function(place)
        elif len(words) == 1 and place in self.machine.functions:
            self.function = self.machine.functions[place]
        else:
            raise self.by_hand("pci " + shown(rest))

    def config(self, rest: str) -> None:
        if self.function is None:
            raise self.fail('no "pci" line comes before: config')
        offset, data, mask = self.cells(rest, FULL - 1)
        if offset + len(data) > BRIEF:
            self.function.cells.grow(FULL, Cells.KNOWN)
        self.function.cells.put(offset, data, mask)

    def window(self, rest: str) -> None:
        if self.function is None:
            raise self.fail('no "pci" line comes before: window')
        offset, data, mask = self.cells(rest, FULL - 1)
        for at, byte in enumerate(data):
            self.function.windows[offset + at] = byte if mask is None or mask[at] else None

    def memory(self, address: int, data: bytes, mask: bytes | None) -> None:
        parts = self.machine.parts
        if self.title is not None or not parts:
            parts.append(Part(self.title or "", notes=self.notes, source=self.source))
            self.title, self.notes, self.source = None, [], ""
        self.size += len(data)
        if self.size > MEMORY:
            raise self.fail("the file has more than 64 MiB of memory")
        parts[-1].put(address, data, mask)

    def bytes(self, rest: str) -> None:
        self.memory(*self.cells(rest, 0xFFFFFFFF))

    def fill(self, rest: str) -> None:
        words = rest.split()
        if len(words) != 3:
            raise self.fail("an address, a length and a byte make up: fill")
        address, count = self.number(words[0], 0xFFFFFFFF), self.number(words[1], 1 << 32)
        if words[2] == "address" or count > MEMORY:
            self.machine.lines.append(f"fill {rest.strip()}")
        else:
            mask = bytes(count) if words[2] == "??" else None
            byte = 0 if mask is not None else self.number(words[2], 0xFF)
            self.memory(address, bytes([byte]) * count, mask)

    def cmos(self, rest: str) -> None:
        self.machine.has_cmos = True

    def cmos_bytes(self, rest: str) -> None:
        self.machine.cmos.put(*self.cells(rest, 0xFF))

    def smbus(self, rest: str) -> None:
        address, _, options = rest.strip().partition(" ")
        number = self.number(address, 0xFF)
        self.slave = self.machine.slaves.setdefault(number, Slave(number, self.keyword))
        self.slave.options = options

    def smbus_bytes(self, rest: str) -> None:
        if self.slave is None:
            raise self.fail("no slave comes before: smbus-bytes")
        offset, data, mask = self.cells(rest, 0xFFF)
        self.slave.cells.grow(offset + len(data), Cells.ABSENT)
        self.slave.cells.put(offset, data, mask)

    def superio(self, rest: str) -> None:
        self.machine.superio.append(SuperIo(rest.strip(), notes=self.notes))
        self.notes = []

    def superio_registers(self, rest: str) -> None:
        if not self.machine.superio:
            raise self.fail(f'no "superio" line comes before: {self.keyword}')
        words = [word for word in rest.split() if word != "ro"]
        device = -1
        if self.keyword == "superio-device":
            device = self.number(words.pop(0) if words else "", 0xFF)
        registers = self.machine.superio[-1].devices.setdefault(device, {})
        offset, data, mask = self.cells(" ".join(words), 0xFF)
        for at, byte in enumerate(data):
            registers[offset + at] = byte if mask is None or mask[at] else None

    def smn_register(self, rest: str) -> None:
        words = rest.split()
        if len(words) < 3:
            raise self.fail("a die, an address and a value make up: smn-register")
        die, address, value = (self.number(word, 0xFFFFFFFF) for word in words[:3])
        self.machine.smn[die, address] = " ".join([f"{value:08x}", *words[3:]])


def is_place(text: str) -> bool:
    """00:1f.3"""
    digits = "0123456789abcdef"
    return (len(text) == 7 and text[2] == ":" and text[5] == "." and text[6] in "01234567"
            and all(text[at] in digits for at in (0, 1, 3, 4)) and int(text[3:5], 16) < 32)  # fmt: skip


def read_board(file: str) -> Machine:
    machine = Machine(name=file)
    Reader(machine).read(file)
    return machine


# ---- writing


def byte_lines(keyword: str, cells: Cells, zeros: bool, base: int = 0, end: int | None = None) -> list[str]:
    """16 bytes a line; without `zeros` lines that are all zero are left out; absent bytes cut a line."""
    lines = []
    for row in range(0, len(cells.data) if end is None else end, 16):
        mask = cells.mask[row:row + 16]
        if not zeros and not any(cells.data[row:row + 16]) and all(known == Cells.KNOWN for known in mask):
            continue
        at = 0
        while at < len(mask):
            count = 0
            while at + count < len(mask) and mask[at + count] != Cells.ABSENT:
                count += 1
            if count:
                lines.append(f"{keyword} {base + row + at:x} {cells.hex(row + at, count)}")
            at += max(count, 1)
    return lines


def memory_lines(address: int, data: bytes, mask: bytes | None) -> list[str]:
    """Rows of 16 bytes, and runs of rows that are one byte throughout as a line."""
    lines: list[str] = []
    at = 0
    while at < len(data):
        end = at
        while data[end:end + 16] == data[at:at + 1] * 16 and (mask is None or all(mask[end:end + 16])):
            end += 16
        if end - at >= 32:
            lines.append(f"fill {address + at:x} {end - at:x} {data[at]:02x}")
            at = end
            continue
        row = data[at:at + 16]
        if mask is None:
            text = row.hex(" ")
        else:
            text = " ".join(f"{byte:02x}" if known else "??" for byte, known in zip(row, mask[at:at + 16]))
        lines.append(f"bytes {address + at:x} {text}")
        at += 16
    return lines


def function_lines(function: Function) -> list[str]:
    title = f"{function.identity} {names.class_name(function.class_code)}"
    lines = [f"pci {function.place} verbatim  # {title}"]
    lines += ["  " + line for line in byte_lines("config", function.cells, zeros=False)]
    if len(function.cells.data) > BRIEF and not any(word.startswith("  config") and int(word.split()[1], 16) >= BRIEF
                                                    for word in lines):  # fmt: skip
        lines.append("  config 100 00")
    for at, byte in sorted(function.windows.items()):
        lines.append(f"  window {at:x} " + ("??" if byte is None else f"{byte:02x}"))
    return lines + ["  " + line for line in function.extra]


def superio_lines(chip: SuperIo) -> list[str]:
    lines = [*(f"# {note}" for note in chip.notes), f"superio {chip.words}"]
    for device, registers in sorted(chip.devices.items()):
        head = "superio-global" if device < 0 else f"superio-device {device:02x}"
        cells = Cells(256, absent=True)
        for register, byte in registers.items():
            cells.put(register, bytes([byte or 0]), bytes([byte is not None]))
        lines += byte_lines(head, cells, zeros=True)
    return lines


def slave_lines(slave: Slave) -> list[str]:
    held = 512 if slave.keyword == "smbus-spd" else 256
    lines = [f"{slave.keyword} {slave.address:02x} {slave.options}".strip()]
    for line in byte_lines("smbus-bytes", slave.cells, zeros=True):
        if int(line.split()[1], 16) < held:
            lines.append(line)
        else:
            lines.append(f"# {line}")
    if len(slave.cells.data) > held:
        lines.insert(1, f"# the simulated module has {held} bytes; the others stand in comments")
    return lines


def write_board(machine: Machine) -> str:
    """The machine as a board file's text."""
    lines = ["capture 1", *(f"# {line}" for line in machine.heading)]

    def section(name: str, body: list[str]) -> None:
        if body:
            came = [f"# from: {source}" for source in machine.sources.get(name, [])]
            lines.extend([f"# --- {name}", *came, *body])

    doors = [f"{keyword} {machine.doors[keyword]}".strip() for keyword in DOORS[:3] if keyword in machine.doors]
    section("doors", doors + ([f"cpus {cpu_list(machine.cpus)}"] if machine.cpus else []))
    section("cpuid", [f"cpuid {leaf:x} {subleaf:x} " + " ".join(f"{value:x}" for value in values) + cpus_words(cpus)
                      for (leaf, subleaf), by in sorted(machine.cpuid.items()) for values, cpus in by.groups()])
    section("msrs", [f"msr {index:x} {value:x}{cpus_words(cpus)} {machine.msr_options.get(index, '')}".rstrip()
                     + f"  # {names.msr_name(index)}"
                     for index, by in sorted(machine.msrs.items()) for value, cpus in by.groups()])  # fmt: skip
    body = [f"{keyword} {machine.doors[keyword]}".strip() for keyword in DOORS[3:5] if keyword in machine.doors]
    for place in sorted(machine.functions):
        body += function_lines(machine.functions[place])
    section("pci", body)
    body = []
    for part in machine.parts:
        body += [f"# from: {part.source}"] * bool(part.source)
        body += [f"# {part.title or 'memory'}", *(f"# note: {note}" for note in part.notes)]
        for run in part.runs:
            body += memory_lines(run.address, bytes(run.data), bytes(run.mask) if run.mask is not None else None)
    section("memory", body)
    section("cmos", ["cmos", *byte_lines("cmos-bytes", machine.cmos, zeros=True)] if machine.has_cmos else [])
    body = [line for chip in machine.superio for line in superio_lines(chip)]
    section("superio", body)
    section("smn", [f"smn-register {die:x} {address:x} {value}"
                    for (die, address), value in sorted(machine.smn.items())])  # fmt: skip
    section("others", ["pm-registers"] * ("pm-registers" in machine.doors) + machine.lines)
    section("spd", [line for _, slave in sorted(machine.slaves.items()) for line in slave_lines(slave)])
    section("missing", [f"# missing: {text}" for text in machine.missing])
    section("resources", [f"# {line}" for line in machine.resources])
    return "\n".join([*lines, "end", ""])


def cpus_words(cpus: list[int] | None) -> str:
    return "" if cpus is None else f" cpus {cpu_list(cpus)}"
