"""A command line, at least, for each choice of each form of the command reference, and how one knows that it has
reached the hardware: a pattern that its output, the files that it leaves or its accesses match then, and never when the
kernel or the machine has refused it.

The forms are read from the reference, so a new command is covered as soon as it is documented; one that has no row here
fails the ring.
"""

import itertools
import re

import texts

RUN = "cmos-run delays 2000"  # a clock on which 122 delays make a second
LINES = ["unlogged ed 1", "latch ff00 100 counting", RUN]  # of all machines

INTEL = ["intel", "noiopl", "nomem", "nomsr", "latemsr", "refusedmap", "caploop", "cpugap"]
AMD = ["amd", "hygon", "ati"]
# What the machines of simulated boards answer as, and further ones, each a board with lines of its own.
MACHINES = {**{name: ("intel", name, []) for name in INTEL}, **{name: ("amd", name, []) for name in AMD},
            "unknown": ("unknown", "unknown", [])}  # fmt: skip
RESTRICTIONS = {
    "no-iopl": ["iopl EPERM"],
    "no-mem": ["mem EACCES"],
    "no-msr": ["msr-nodes never"],
    "msr-refused": ["msr-nodes EPERM"],
    "late-msr": ["msr-nodes modprobe"],
    "no-devices": ["refuse 80000000 80000000 EPERM"],
    "no-memory": ["refuse 100000 7ff00000 EPERM"],
    "nothing": ["refuse 0 100000000 EPERM"],
}
MACHINES |= {f"amd-{name}": ("amd", "amd", lines) for name, lines in RESTRICTIONS.items()}


def seen(everywhere=None, **kinds):
    """The pattern of each kind; None where the machine cannot do it."""
    return {"": everywhere, **kinds}


def only(**kinds):
    """The same for operands that are tried on machines of these kinds alone."""
    return kinds


DATA = "return data:0x0*"
CPUS = r"Cpu\[00\](.*\n)+Cpu\[05\].*"
REFUSED = None
STORE = r"(.*\n)+mw\d+ (e0|f8)10010c "  # in the configuration window, not in memory
WAKE = r"^out16 {} 0420$(.*\n)+system shutdown -P now$"

# Operands, by the form without its choices, and the pattern of each kind of machine ("": all others).
ROWS = {
    "/IO /RB|/RW|/RD port": [("0x503", seen(DATA + "(06050403|403|3)$"))],
    "/IO /WB|/WW|/WD port data": [("0x80 0xA5", seen(DATA + "A5$"))],
    "/IO /RI port bit": [("0x504 0", seen("return data:0$")), ("0x502 9", seen("return data:1$"))],
    "/IO /WI port bit value": [("0x80 3 1", seen("return data:1$"))],
    "/IO /DUMP port": [("0xFF00", seen("^0F F0 F1 F2"))],
    "/IO /INDEX /RB|/RW|/RD index-port data-port register": [
        ("0x70 0x71 0x15", seen("return data:0x([0-9A-F]*80)$"))],
    "/IO /INDEX /WB|/WW|/WD index-port data-port register data": [
        ("0x70 0x71 0x32 0x5A", seen("return data:0x([0-9A-F]*5A)$"))],
    "/IO /INDEX /RI index-port data-port register bit": [("0x70 0x71 0x15 0", seen("return data:0$"))],
    "/IO /INDEX /WI index-port data-port register bit value": [("0x70 0x71 0x32 1 0", seen("return data:0$"))],
    "/IO /INDEX /DUMP index-port data-port": [("0x70 0x71", seen("^01 00 00 00 00 06 80 02 FF FF"))],
    "/MEM /RB|/RW|/RD address": [("0xFE001", seen(DATA + "(6C75)?(6D)?69$"))],
    "/MEM /WB|/WW|/WD address data": [("0x1000 0xA5", seen(DATA + "A5$"))],
    "/MEM /RI address bit": [("0xFE001 1", seen("return data:0$"))],
    "/MEM /WI address bit value": [("0x1000 3 0", seen("return data:0$"))],
    "/MEM /DUMP address": [("0xFFFFFF00", seen("^0F EA 5B E0 00 F0"))],
    "/MEM /S address length text": [("0xFD000 0x3000 firmware", seen("return address: 000FE011"))],
    "/MEM /RF file address length": [("memory.bin 0xFE000 0x10", seen("^MEMORY.BIN 53696d756c61746564"))],
    "/IO /RF file port length": [("ports.bin 0x500 0x10", seen("^PORTS.BIN 000102030405"))],
    "/PCI /RB|/RW|/RD bus device function offset": [
        ("1 0 0 0", seen(DATA + "(A808144D|144D|4D)$", unknown=DATA + "(15338086|8086|86)$")),
        ("1 0 0 0x100", seen(DATA + "(14[0-9A-F]20001|20001|1)$", unknown=REFUSED))],
    "/PCI /WB|/WW|/WD bus device function offset data": [
        ("1 0 0 0x3C 0xA5", seen("return data:0x[0-9A-F]*A5$")),
        ("1 0 0 0x10C 0x20", seen(DATA + "(46)?(2020|20)$" + STORE, unknown=REFUSED))],
    "/PCI /RI bus device function offset bit": [
        ("1 0 0 0 5", seen("return data:0$")), ("1 0 0 0x100 8", seen("return data:0$", unknown=REFUSED))],
    "/PCI /WI bus device function offset bit value": [
        ("1 0 0 0x3C 1 0", seen("return data:0$")),
        ("1 0 0 0x10C 4 0", seen("return data:0$" + STORE, unknown=REFUSED))],
    "/PCI /DUMP": [("", seen("^01 +00 +00 +144DA808", unknown="^01 +00 +00 +80861533"))],
    "/PCI /DUMP bus device function": [("1 0 0", seen("^00 4D 14 08 A8", unknown="^00 86 80 33 15"))],
    "/MSR /RD|/RQ cpu msr": [("0 0x1B", seen("return MSR: 0x00000000_FEE00[9D]00", unknown=REFUSED))],
    "/MSR /RD|/RQ /ALL|/A msr": [("0x1B", seen(CPUS + "0x00000000_FEE00[8C]00", unknown=REFUSED))],
    "/MSR /WD|/WQ cpu msr high low": [("0 0x20E 0x12 0x55AA", seen("0x00000012_000055AA", unknown=REFUSED))],
    "/MSR /WD|/WQ /ALL|/A msr high low": [
        ("0x20E 0x12 0x55AA", seen(CPUS + "0x00000012_000055AA", unknown=REFUSED))],
    "/CPUID /RD|/RQ leaf": [("0", seen("Ebx:756E6547", amd="Ebx:(68747541|6F677948)"))],
    "/SIO /DUMP": [("", only(intel="^02 87 28 07", amd="^02 D4 23", unknown="^02 FF FF FF"))],
    "/SIO /RB register": [("0x20", only(intel="data = 0x87$", amd="data = 0xD4$", unknown="data = 0xFF$"))],
    "/SIO /WB register data": [
        ("0x26 0x5A", only(intel="data = 0x5A$")), ("0x24 0x5A", only(amd="data = 0x5A$")),
        ("0x24 0x5A", only(unknown="data = 0xFF$"))],
    "/SIO /RI register bit": [("0x20 3", seen("data = 0x0$", unknown="data = 0x1$"))],
    "/SIO /WI register bit value": [
        ("0x26 1 0", only(intel="data = 0x0$", unknown="data = 0x1$")), ("0x24 1 0", only(amd="data = 0x0$"))],
    "/SMBUS|/SMB /RB|/RW|/RD slave offset": [("0xA0 2", seen(": 0x[0-9A-F]*0C$", unknown=REFUSED))],
    "/SMBUS|/SMB /WB|/WW|/WD slave offset data": [("0xA4 0x10 0x5A", seen("0x[0-9A-F]*5A$", unknown=REFUSED))],
    "/SMBUS|/SMB /DUMP slave": [("0xA0", seen(r"^00 23 11 0C 02(.*\n)+.* 04 CD 00 24 05", unknown=REFUSED))],
    "/SMBUS|/SMB /S from to": [("0xA0 0xA4", seen(r"0xA4\(data:92\)", unknown=REFUSED))],
    "/I2C /RB|/RW|/RD controller slave offset": [("0 0x50 0", seen(REFUSED, amd="0x[0-9A-F]*34$"))],
    "/I2C /WB|/WW|/WD controller slave offset data": [("0 0x50 4 0x5A", seen(REFUSED, amd=": 0x[0-9A-F]*5A$"))],
    "/SMN /RB|/RW|/RD die register": [("0 0x18000", seen(REFUSED, amd=DATA + "(1122)?(33)?44$"))],
    "/SMN /WB|/WW die register data [/WD]": [("0 0x18000 0x5A", seen(REFUSED, amd=DATA + "5A$"))],
    "/SMN /WD die register data": [("0 0x18000 0x5A", seen(REFUSED, amd=DATA + "5A$"))],
    "/SMN /RI die register bit": [("0 0x18000 0", seen(REFUSED, amd="return data:0$"))],
    "/SMN /WI die register bit value": [("0 0x18000 2 0", seen(REFUSED, amd="return data:0$"))],
    "/SMU /RD|/WD message [argument]...": [("2 1", seen(REFUSED, amd=r"SmuArg\[0\]=0x00465500"))],
    "/SMBIOS": [("", seen("Type:017", unknown=REFUSED))],
    "/SMBIOS /TYPE type": [("17", seen("DIMM_A2", unknown=REFUSED))],
    "/SMBIOS /DUMP": [("", seen("Simula", unknown=REFUSED))],
    "/SMBIOS /S text": [("dimm_a2", seen("Found DIMM_A2", unknown=REFUSED))],
    "/ACPI /DUMP": [("", seen("RSD PTR", unknown=REFUSED))],
    "/RTC seconds [/F] [/T delay]": [("60 1", seen(WAKE.format(1802), amd=WAKE.format("0802"), unknown=REFUSED))],
    "/RTC seconds /RESET|/GRESET [/T delay]": [("60 1", seen("^system shutdown -r now$"))],
    "/SHUTDOWN [/T delay]": [("1", seen("^system shutdown -P now$"))],
    "/TIMEOUT /T delay": [("1", seen("^Time: 04:05:06(.*\n)+in8 0071 -> 07$"))],
}

# What no machine carries out: nothing follows the countdown, nothing is written.
NEVER = re.compile(r"/RTC .*/GRESET|/SMN /W[BW] (?!.*/WD)")


def alternatives(form, all_of_them):
    """A form with each choice made, or the first ones, with and without what may be left out."""
    for text in sorted({re.sub(r"[\[\].]", "", form), re.sub(r" \[[^\]]*\](\.\.\.)?", "", form)}):
        choices = [word.split("|") for word in text.split()]
        for words in itertools.product(*(choice if all_of_them else choice[:1] for choice in choices)):
            yield " ".join(words)


def fill(form, operands):
    values = iter(operands.split())
    words = [word if word.startswith("/") else next(values, "") for word in form.split()]
    return " ".join(words).strip()


def lines(all_of_them=True):
    """Each line with its patterns."""
    assert set(ROWS) == set(texts.reference_forms()), set(ROWS) ^ set(texts.reference_forms())
    for form, rows in ROWS.items():
        for text in alternatives(form, all_of_them):
            for operands, patterns in rows:
                words = fill(text, operands)
                views = " /TEXT /LOG" if "/DUMP" in words or "/SMBIOS" in words else ""
                yield words + views, dict.fromkeys(patterns) if NEVER.match(words) else patterns
