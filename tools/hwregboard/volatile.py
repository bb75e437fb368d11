"""What changes by itself from one capture to the next and so is no difference, each row with its reason.

A row names a place by part and key, with bits where only some of a register's do not count.
"""

import fnmatch
import re

from hwregboard.errors import Mistake
from hwregboard.inputs import read_text
from hwregboard.names_pci import PENDING

ALL = (1 << 256) - 1
RULES = 10_000  # in a file of one's own

# By capability (names_pci) and offset in it: the bits, and the reason.
PCI: dict[tuple[str, int], tuple[int, str]] = {
    ("header", 0x06): (0xF908, "errors seen and a pending interrupt"),
    ("bridge", 0x06): (0xF908, "errors seen and a pending interrupt"),
    ("bridge", 0x1E): (0xF900, "errors seen on the secondary bus"),
    ("01", 0x04): (0x8000, "PME status"),
    ("05", PENDING): (ALL, "pending messages"),
    ("03", 0x02): (ALL, "address of the last access to vital product data"),
    ("03", 0x04): (ALL, "data of the last access to vital product data"),
    ("10", 0x0A): (0x002F, "errors seen and pending transactions"),
    ("10", 0x12): (0xC800, "link training and changes of bandwidth"),
    ("10", 0x1A): (0x013F, "events of the slot"),
    ("10", 0x20): (0x3FFFF, "PME status"),
    ("10", 0x2A): (ALL, "device status 2"),
    ("x0001", 0x04): (ALL, "errors seen"), ("x0001", 0x10): (ALL, "errors seen"),
    ("x0001", 0x18): (0x1F, "number of the first error"),
    ("x0001", 0x1C): (ALL, "header of an error"), ("x0001", 0x20): (ALL, "header of an error"),
    ("x0001", 0x24): (ALL, "header of an error"), ("x0001", 0x28): (ALL, "header of an error"),
    ("x0001", 0x30): (ALL, "errors seen"), ("x0001", 0x34): (ALL, "source of an error"),
    ("x0013", 0x06): (ALL, "page requests under way"),
    ("x0019", 0x08): (ALL, "errors of lanes"),
    ("x001d", 0x08): (0x1F, "containment events"), ("x001d", 0x0A): (ALL, "source of an error"),
}  # fmt: skip

MSR: dict[int, tuple[int, str]] = {
    0x10: (ALL, "time-stamp counter"), 0xE7: (ALL, "clock counter"), 0xE8: (ALL, "clock counter"),
    0xC00000E7: (ALL, "clock counter"), 0xC00000E8: (ALL, "clock counter"), 0xC00000E9: (ALL, "retired instructions"),
    0x34: (ALL, "counts SMIs"), 0x198: (ALL, "present ratio and voltage"), 0x199: (ALL, "the governor's request"),
    0x19C: (ALL, "present temperature"), 0x1B1: (ALL, "present temperature"), 0x1C9: (ALL, "last branches"),
    0x17A: (ALL, "machine check in progress"), 0x38E: (ALL, "counters that overflowed"),
    0x30D: (ALL, "counter"), 0x3F8: (ALL, "residency counter"), 0x3F9: (ALL, "residency counter"),
    0x3FA: (ALL, "residency counter"), 0x3FC: (ALL, "residency counter"), 0x3FD: (ALL, "residency counter"),
    0x3FE: (ALL, "residency counter"), 0x60D: (ALL, "residency counter"), 0x611: (ALL, "energy counter"),
    0x613: (ALL, "throttling counter"), 0x619: (ALL, "energy counter"), 0x61B: (ALL, "throttling counter"),
    0x621: (ALL, "present ratio"), 0x630: (ALL, "residency counter"), 0x631: (ALL, "residency counter"),
    0x632: (ALL, "residency counter"), 0x639: (ALL, "energy counter"), 0x641: (ALL, "energy counter"),
    0x64D: (ALL, "energy counter"), 0x64E: (ALL, "clock counter"), 0x64F: (ALL, "present reasons of a limit"),
    0x658: (ALL, "residency counter"), 0x659: (ALL, "residency counter"), 0x690: (ALL, "present reasons of a limit"),
    0x6B0: (ALL, "present reasons of a limit"), 0x6B1: (ALL, "present reasons of a limit"),
    0x6E0: (ALL, "the kernel's next timer"), 0x777: (ALL, "changes of performance"),
    0x830: (ALL, "last interrupt sent"),
    0x839: (ALL, "timer"), 0xC8E: (ALL, "counter"), 0xC0010063: (ALL, "present P-state"),
    0xC0010061: (ALL, "present limit of P-states"), 0xC0010062: (ALL, "the governor's request"),
    0xC0010071: (ALL, "present ratio and voltage"), 0xC0010293: (ALL, "present P-state"),
    0xC001029A: (ALL, "energy counter"), 0xC001029B: (ALL, "energy counter"),
    0xC0000100: (ALL, "the running task's"), 0xC0000101: (ALL, "the kernel's"), 0xC0000102: (ALL, "the kernel's"),
    **{0xC1 + at: (ALL, "counter") for at in range(8)}, **{0x309 + at: (ALL, "counter") for at in range(4)},
    **{0xC0010004 + at: (ALL, "counter") for at in range(4)},
    **{0xC0010201 + 2 * at: (ALL, "counter") for at in range(6)},
    **{0x680 + at: (ALL, "last branches") for at in range(32)},
    **{0x6C0 + at: (ALL, "last branches") for at in range(32)},
}  # fmt: skip

CMOS: dict[int, tuple[int, str]] = {
    **{index: (0xFF, "the clock") for index in (0, 2, 4, 6, 7, 8, 9, 0x32)},
    0x0A: (0x80, "an update of the clock in progress"), 0x0C: (0xFF, "interrupt flags, cleared by reading"),
}  # fmt: skip

CPUID: dict[tuple[int, int], tuple[int, str]] = {  # by leaf and number of the register
    (0x01, 2): (1 << 27, "what the kernel has switched on in CR4"),
    (0x07, 2): (1 << 4, "what the kernel has switched on in CR4"),
    (0x0D, 1): (ALL, "size of the state that the kernel has switched on"),
}  # fmt: skip

# (first, last, reason)
MEMORY = (  # of the BIOS data area; the ports, the equipment and the memory size in it are the firmware's
    (0x417, 0x43D, "keys"), (0x43E, 0x448, "the state of the floppy drives"), (0x449, 0x466, "the video mode"),
    (0x46C, 0x471, "timer ticks and the break key"), (0x48B, 0x497, "the state of drives and keys"),
    (0x500, 0x5FF, "BASIC's and POST's work area"),
)  # fmt: skip
FACS: dict[int, str] = {12: "the kernel's waking vector", 16: "global lock", 24: "the kernel's waking vector"}
LINES: dict[str, str] = {"pm1": "events and the control of sleep", "cmos-time": "the clock"}


def compiled(pattern: str) -> re.Pattern[str]:
    """What matches a pattern, the same text, or what begins with the pattern and a blank."""
    return re.compile("|".join([re.escape(pattern) + r"\Z", *(fnmatch.translate(pattern + end) for end in ("", " *"))]))


class Rules:
    """The built-in rows, and those of files: a pattern a line for what stands before the colon of a difference."""

    def __init__(self, files: list[str] | None = None, shown: bool = False) -> None:
        self.shown = shown
        self.patterns: list[tuple[re.Pattern[str], str]] = []
        for file in files or []:
            for number, line in enumerate(read_text(file).split("\n"), 1):
                pattern, _, reason = line.partition("#")
                if pattern.strip():
                    if "\0" in pattern:
                        raise Mistake(file, number, "this is no text")
                    self.patterns.append((compiled(pattern.strip().lower()), reason.strip() or f"{file}:{number}"))
                if len(self.patterns) > RULES:
                    raise Mistake(file, number, f"more than {RULES} patterns")

    def own(self, text: str) -> str:
        """The reason why a line of one's own leaves this out, or nothing."""
        text = text.lower()
        return next((reason for pattern, reason in self.patterns if pattern.match(text)), "")


def count_masked(old: int, new: int, row: tuple[int, str] | None) -> str:
    """The reason when two values differ in nothing but bits that do not count."""
    if row is None or (old ^ new) & ~row[0]:
        return ""
    return row[1]
