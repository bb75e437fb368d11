"""One command line, at least, for each form of the command reference, and the machine on which it is run.

The forms are read from the reference, so a new command is covered as soon as it is documented; an operand that has no
value here fails the ring.
"""

import dataclasses
import itertools
import re

import texts
from power import RUN

# Values of operands, by the beginning of the form; longer beginnings win. Of several values each makes a line.
VALUES = {
    "": {"bit": "3", "data": "0x12", "value": "1"},
    "/IO": {"port": "0xFE80"},
    "/IO /INDEX": {"index-port": "0x70", "data-port": "0x71", "register": "0x32"},
    "/IO /RF": {"file": "ports.bin", "length": "0x10"},
    "/MEM": {"address": "0xFFFFFE80"},
    "/MEM /S": {"address": "0xFD000", "length": "0x3000", "text": "firmware"},
    "/MEM /RF": {"file": "memory.bin", "address": "0xFE001", "length": "0x1800"},
    "/PCI": {"bus": "0", "device": "1", "function": "0", "offset": ("0x40", "0x104")},
    "/MSR": {"cpu": "1", "msr": "0x1A0", "high": "0", "low": "0x850089"},
    "/CPUID": {"leaf": "0x80000000"},
    "/SIO": {"register": "0x20"},
    "/SMBUS": {"slave": ("0xA2", "0xA4"), "offset": "0x10", "from": "0xA0", "to": "0xA4"},
    "/I2C": {"controller": "0", "slave": "0x50", "offset": "4", "data": "0x4321"},
    "/SMN": {"die": "0", "register": "0x18000"},
    "/SMU": {"message": "2", "argument": "1 2"},
    "/SMBIOS": {"type": "4", "text": "dimm_a2"},
    "/RTC": {"seconds": "60", "delay": "1"},
    "/SHUTDOWN": {"delay": "1"},
    "/TIMEOUT": {"delay": "1"},
}

# The machines of a command, with further lines of the board.
INTEL = [("intel", [])]
QUIET = ["unlogged ed 1"]  # a poll delays again and again
MACHINES = {
    "/IO": [("intel", ["latch fe80 180 counting"])],
    "/MEM": [("intel", ["watch fffffe80 180"])],
    "/MSR": [("intel", []), ("latemsr", [])],
    "/SMBUS": [("intel", QUIET), ("amd", QUIET)],
    "/I2C": [("amd", [*QUIET, "i2c-core fedc2000 byte-time 0"])],
    "/SMN": [("amd", [])],
    "/SMU": [("amd", [])],
    "/SMBIOS": [("intel", []), ("amd", [])],
    "/RTC": [("intel", [RUN, *QUIET])],
    "/SHUTDOWN": [("intel", [RUN, *QUIET])],
    "/TIMEOUT": [("intel", [RUN, *QUIET])],
}


@dataclasses.dataclass(frozen=True)
class Line:
    """A command line on a machine; `entry` is the command's entry in the reference."""

    words: str
    board: str
    extra: tuple
    entry: texts.Entry

    @property
    def command(self):
        return self.words.split()[0] if self.words else ""

    @property
    def keys(self):
        """What is typed: one more page, then ESC; nothing during a countdown, which ESC would break off."""
        return b"" if self.command in ("/RTC", "/SHUTDOWN", "/TIMEOUT") else b" \x1b"

    @property
    def files(self):
        """What stands in the current directory before: the counter, where cycles are counted."""
        words = set(self.words.split())
        if not {"/RTC", "/T"} <= words:
            return {}
        return {"RBTLOG" if words & {"/RESET", "/GRESET"} else "RTCLOG": b"\x05\0\0\0"}

    def __str__(self):
        return f"{self.words or 'nothing'} on {self.board}"


def longest(table, form):
    """The values of all keys with which the form begins, later and longer ones over the others."""
    found = {}
    words = form.split()
    for key in sorted(table, key=len):
        if set(key.split()) <= set(words) and key.split()[:1] == words[:1] or key == "":
            found.update(table[key])
    return found


def alternatives(form, all_of_them):
    """A form with each choice made, or the first ones, with and without what may be left out. A second name of a
    command is the parser's matter."""
    for text in {re.sub(r"[\[\].]", "", form), re.sub(r" \[[^\]]*\](\.\.\.)?", "", form)}:
        name, *rest = [word.split("|") for word in text.split()]
        for words in itertools.product(name[:1], *(choice if all_of_them else choice[:1] for choice in rest)):
            yield " ".join(words)


def command_lines(form):
    values = longest(VALUES, form)
    choices = []
    for word in form.split():
        value = word if word.startswith("/") else values[word]
        choices.append(value if isinstance(value, tuple) else (value,))
    return [" ".join(words) for words in itertools.product(*choices)]


def lines_of(entry):
    """Every choice on the first machine of the command; on the others the first choices."""
    command = entry.names[0].split()[0].split("|")[0]
    for number, (board, extra) in enumerate(MACHINES.get(command, INTEL)):
        forms = sorted({text for form in entry.forms for text in alternatives(form, number == 0)})
        for form in [*forms, f"{command} /?"]:
            for words in command_lines(form):
                yield Line(words, board, tuple(extra), entry)


def every_line():
    entries = texts.reference_entries()
    lines = [Line(words, "intel", (), entries[0]) for words in ("", "/LOG", "/?", "nonsense")]
    lines += [line for entry in entries for line in lines_of(entry)]
    return list({str(line): line for line in lines}.values())
