"""The command lines whose foretold and real endings are compared: all that the forms of the reference stand for, and
others whose ending depends on the kernel or the machine.

A register is brought to a value that no failure shows (`before`), and is looked at afterwards with another tool, which
puts it back (`after`). What differs between the machines stands in shell variables, which MACHINES sets.
"""

from dataclasses import dataclass, field

# A MiB of memory that the kernel leaves alone on all of these machines.
SCRATCH = 0x18000000

MACHINES = {
    "q35": 'ISA="0 0x1f 0" DISK="0 0x1f 2" AT=00:1f.2 FAR="1 0 0" FAR_AT=01:00.0 HOST=i2c-i801 HOST_AT=00:1f.3',
    "ovmf": 'ISA="0 0x1f 0" DISK="0 0x1f 2" AT=00:1f.2 FAR="1 0 0" FAR_AT=01:00.0 HOST=i2c-i801 HOST_AT=00:1f.3',
    "pc": 'ISA="0 1 0" DISK="0 1 1" AT=00:01.1 FAR="0 0 0" FAR_AT=00:00.0 HOST=i2c-piix4 HOST_AT=00:01.3',
}

WORKS, REFUSED, OTHER = "works", "refused", "other"
EITHER = f"{REFUSED} or {OTHER}"  # it prints no data, and does not fail
TIME = r"\d\d:\d\d:\d\d"


@dataclass
class Line:
    words: str  # as a shell reads them, behind `hwreg`
    before: str = ""
    after: str = ""
    tool: str = ""  # what another program says of it: numbers that the line has to show
    keys: str = ""  # typed into it
    never: dict = field(default_factory=dict)  # where no kernel lets it work: machine to how it ends at best
    where: tuple = tuple(MACHINES)
    file: str = ""  # it writes this one
    zeros: bool = False  # zeros are how a failure shows, too
    moving: str = ""  # what is another each time, as a regular expression

    @property
    def switches(self):
        """The words that choose form and alternative."""
        return [word for word in self.words.split() if word.startswith("/") and word not in ("/LOG", "/TEXT", "/NOMSG")]


def nowhere(kind):
    return dict.fromkeys(MACHINES, kind)


def port_lines():
    uart, uart_after = "ports outb 0x3ff 0x5a", "ports inb 0x3ff outb 0x3ff 0"
    page = "ports outb 0x81 0x34 outb 0x82 0x12 outb 0x83 0x56"
    address, address_after = "ports outl 0xcf8 0x80fedcb8", "ports inl 0xcf8 outl 0xcf8 0"
    yield Line("/IO /RB 0x3FF", uart, uart_after, tool="inb 0x3ff")
    yield Line("/IO /RW 0x81", page, tool="inw 0x81")
    yield Line("/IO /RD 0xCF8", address, address_after, tool="inl 0xcf8")
    yield Line("/IO /WB 0x3FF 0xA5", uart, uart_after)
    yield Line("/IO /WW 0x81 0xBEEF", page, "ports inw 0x81 outw 0x81 0")
    yield Line("/IO /WD 0xCF8 0x80123454", address, address_after)
    yield Line("/IO /RI 0x3FF 0", uart, uart_after)
    yield Line("/IO /RI 0x3FF 1", uart, uart_after)
    yield Line("/IO /WI 0x3FF 3 0", uart, uart_after)
    yield Line("/IO /DUMP 0x3FF /TEXT", uart, uart_after, keys=r"\033")
    yield Line("/IO /RF io.bin 0x81 3", page, file="IO.BIN", tool="inb 0x81; inb 0x82; inb 0x83")
    yield Line("/IO /RI 0x3FF 32", uart, never=nowhere(EITHER))
    yield Line("/IO /RB 0x103FF", uart, uart_after)
    yield Line("/IO /RQ 0x3FF", never=nowhere(REFUSED))
    yield Line("/IO /RF . 0x81 3", page, never=nowhere(REFUSED))
    yield from index_lines()


def index_lines():
    numbers = range(0x50, 0x54)
    cmos = "ports " + " ".join(f"outb 0x70 {at:#x} outb 0x71 {at + 0x61:#x}" for at in numbers)
    after = "ports " + " ".join(f"outb 0x70 {at:#x} inb 0x71" for at in numbers)
    for words in ("/RB 0x70 0x71 0x50", "/RW 0x70 0x71 0x50", "/RD 0x70 0 0x50", "/WB 0x70 0x71 0x50 0x3C",
                  "/WW 0x70 0x71 0x50 0x1234", "/WD 0x70 0x71 0x50 0x12345678", "/RI 0x70 0x71 0x50 3",
                  "/RI 0x70 0x71 0x50 0", "/WI 0x70 0x71 0x50 0 0", "/DUMP 0x70 0x71"):  # fmt: skip
        tool = "outb 0x70 0x50; inb 0x71" if words.startswith("/RB") else ""
        moving = "^0[08] .*" if "DUMP" in words else ""  # the clock
        yield Line(f"/IO /INDEX {words}", cmos, after, tool, moving=moving)


def memory_lines():
    at = SCRATCH + 0x100
    fill = "scratch fill"
    shown = "scratch show"
    for words in (f"/RB {at:#x}", f"/RW {at:#x}", f"/RD {at:#x}", f"/WB {at:#x} 0x5A", f"/WW {at:#x} 0xBEEF",
                  f"/WD {at:#x} 0x12345678", f"/RI {at:#x} 1", f"/WI {at:#x} 0 0"):  # fmt: skip
        tool = f"busybox devmem {at:#x} 32" if words.startswith("/RD") else ""
        yield Line(f"/MEM {words}", fill, shown, tool)
    yield Line(f"/MEM /DUMP {at:#x} /TEXT", fill, keys=r"\033", zeros=True)
    yield Line(f"/MEM /S {SCRATCH:#x} 0x2000 marker", fill)
    yield Line(f"/MEM /RF m.bin {at:#x} 0x200", fill, file="M.BIN", zeros=True)
    yield Line(f"/S /MEM /RF m.bin {at:#x} 0x200", fill, file="m.bin", zeros=True)
    # what kernels refuse: what a driver or the kernel has claimed, what it maps cached, its own memory
    yield Line("/MEM /RD 0xB0000000")
    yield Line("/MEM /RD 0xFEC00000")
    yield Line("/MEM /RD 0xFED00000")
    yield Line("/MEM /RD $FACP", tool="dd if=/sys/firmware/acpi/tables/FACP bs=4 count=1 2>/dev/null | od -An -tx4")
    yield Line("/MEM /RD 0xF0000", tool="busybox devmem 0xF0000 32", where=("q35", "pc"))
    yield Line("/MEM /RB 0xFFFF0", never=nowhere(REFUSED))  # its two pages reach into system memory
    yield Line("/MEM /RD 0x1000000", never=nowhere(REFUSED))
    yield Line("/MEM /WD 0x1000000 0", never=nowhere(REFUSED))
    yield Line("/MEM /RF m.bin 0xFF000 0x2000", never=nowhere(OTHER), file="M.BIN", zeros=True)
    yield Line("/MEM /RF m.bin 0xFFFFF000 0x2000", never=nowhere(REFUSED))
    yield Line("/MEM /RF m.bin 0xFFFFFF00 0x100", file="M.BIN", zeros=True)
    yield Line("/MEM /RF none/m.bin 0xF0000 16", never=nowhere(REFUSED))


def pci_lines():
    scratch, shown = "setpci -s $AT e0.l=3c5a69a6", "setpci -s $AT e0.l e0.l=0"
    yield Line("/PCI /RB $ISA 0", tool="setpci -s ${AT%.*}.0 0.b")
    yield Line("/PCI /RW $ISA 0", tool="setpci -s ${AT%.*}.0 0.w")
    yield Line("/PCI /RD $ISA 0", tool="setpci -s ${AT%.*}.0 0.l")
    for words in ("/RD $DISK 0xE0", "/WB $DISK 0xE1 0x99", "/WW $DISK 0xE2 0xBEEF", "/WD $DISK 0xE0 0x12345678",
                  "/RI $DISK 0xE0 0", "/RI $DISK 0xE0 1", "/WI $DISK 0xE0 1 0"):  # fmt: skip
        yield Line(f"/PCI {words}", scratch, shown)
    yield Line("/PCI /DUMP /NOMSG")
    yield Line("/PCI /DUMP /LOG /TEXT", scratch, moving="^06 .*")  # the register that two settings change
    yield Line("/PCI /DUMP $DISK /LOG /TEXT", scratch)
    # through the window; a conventional function has nothing there, which reads as all ones
    window = {"pc": OTHER}
    yield Line("/PCI /RD $FAR 0x100", tool="setpci -s $FAR_AT 100.l", never=window)
    yield Line("/PCI /WD $FAR 0x10C 0x00462030", "setpci -s $FAR_AT 10c.l=00062030",
               "$BACK; setpci -s $FAR_AT 10c.l 10c.l=00062030", never=window)
    yield Line("/PCI /RB 0 32 0 0", never=nowhere(OTHER), where=("q35", "ovmf"))  # device 0 of bus 1
    yield Line("/PCI /RB $ISA 0x1000", never=nowhere(EITHER))  # all ones
    yield Line("/PCI /RB 0 0x15 0 0", tool="echo ff")
    yield Line("/PCI /RQ 0 0 0 0", never=nowhere(REFUSED))
    yield Line("/PCI", never=nowhere(REFUSED))


def cpu_lines():
    for access in ("/RD", "/RQ"):
        yield Line(f"/MSR {access} 1 0x1B", tool="rdmsr -p 1 0x1b", zeros=True)
        for everyone in ("/ALL", "/A"):
            yield Line(f"/MSR {access} {everyone} 0x1B", tool="rdmsr -a 0x1b", zeros=True)
        yield Line(f"/CPUID {access} 0", tool="cpuid -1 -r -l 0 -s 0 | grep -o '=0x[0-9a-f]*' | tr -d =")
    for access in ("/WD", "/WQ"):
        for cpus, shown in (("2", "-p 2"), ("/ALL", "-a"), ("/A", "-a")):
            yield Line(f"/MSR {access} {cpus} 0x20E 0x12345678 0x9ABCDEF0",
                       after=f"rdmsr {shown} 0x20e; wrmsr -a 0x20e 0", zeros=True)
    yield Line("/MSR /RD 0 0x1B", tool="rdmsr -p 0 0x1b", zeros=True)
    yield Line("/MSR /RD 7 0x1B", never=nowhere(REFUSED), zeros=True)
    yield Line("/MSR 0 0x1B", never=nowhere(REFUSED))
    yield Line("/CPUID /RD 0x80000002", tool="cpuid -1 -r -l 0x80000002 -s 0 | grep -o '=0x[0-9a-f]*' | tr -d =")


def bus_lines():
    driver, release = "busybox modprobe -a i2c-dev $HOST", "rmmod $HOST"
    away = {"pc": REFUSED}
    shown = f"{driver}; for at in 5 6; do i2cget -y 0 0x50 $at b; done; i2cset -y 0 0x50 6 0x6e b; {release}"
    for name in ("/SMBUS", "/SMB"):
        for access in ("/RB", "/RW", "/RD"):
            yield Line(f"{name} {access} 0xA0 5", never=away)
        for access in ("/WB", "/WW", "/WD"):
            yield Line(f"{name} {access} 0xA0 6 0x3C", after=shown, never=away)
        yield Line(f"{name} /DUMP 0xA0 /TEXT", never=away)
        yield Line(f"{name} /S 0xA0 0xA4", never=away)
    for words in ("/SIO /DUMP /LOG /TEXT", "/SIO /RB 0x20", "/SIO /WB 7 0x0B", "/SIO /RI 0x20 3", "/SIO /WI 0x30 0 1"):
        yield Line(words)  # nobody is there: all ones are the truth
    for access in ("/RB", "/RW", "/RD"):
        yield Line(f"/I2C {access} 0 0x50 2", never=nowhere(REFUSED))
    for access in ("/WB", "/WW", "/WD"):
        yield Line(f"/I2C {access} 0 0x50 4 1", never=nowhere(REFUSED))
    for access in ("/RB 0 0x18000", "/RW 0 0x18000", "/RD 0 0x18000", "/WB 0 0x18000 1", "/WW 0 0x18000 1",
                   "/WB 0 0x18000 1 /WD", "/WW 0 0x18000 1 /WD", "/WD 0 0x18000 1", "/RI 0 0x18000 3",
                   "/WI 0 0x18000 3 1"):  # fmt: skip
        yield Line(f"/SMN {access}", never=nowhere(REFUSED))
    for access in ("/RD", "/WD"):
        for arguments in ("", " 1", " 1 2 3 4 5 6"):
            yield Line(f"/SMU {access} 2{arguments}", never=nowhere(REFUSED))


def firmware_lines():
    """SeaBIOS holds the text "_SM3_" in front of its entry point, and OVMF has no RSDP below 1 MiB."""
    for words in ("/SMBIOS /LOG /TEXT", "/SMBIOS /DUMP /LOG /TEXT"):
        yield Line(words, never={"q35": OTHER, "pc": OTHER})
    for words in ("/SMBIOS /TYPE 1 /TEXT", "/SMBIOS /S QEMU"):
        yield Line(words, never={"q35": EITHER, "pc": EITHER})
    yield Line("/ACPI /DUMP /LOG /TEXT", never={"ovmf": REFUSED})


def power_lines():
    """The shutdown of these guests only notes what was asked for, and no alarm comes due while they run. An alarm wakes
    only where the PM1 block lets it, which is looked for by way of an RSDP below 1 MiB."""
    reset = "rm -f /run/asked *LOG; ports outb 0x70 11 outb 0x71 2 outw 0x602 0x20"
    shown = "cat /run/asked; ports outb 0x70 11 inb 0x71 inw 0x602; ls *LOG; cat *LOG"
    for words in ("3000", "3000 /F", "3000 /T 0", "3000 /F /T 0", "6 /F"):
        yield Line(f"/RTC {words}", reset, shown, moving=TIME, never={"ovmf": EITHER})  # the machine stays asleep
    for words in ("3000 /RESET", "3000 /RESET /T 0", "0"):
        yield Line(f"/RTC {words}", reset, shown)
    yield Line("/RTC 3000 /GRESET", reset, shown, never=nowhere(REFUSED))  # nothing is done
    yield Line("/RTC 3000 /GRESET /T 0", reset, shown, never=nowhere(REFUSED))
    yield Line("/RTC 6", reset, shown, never=nowhere(REFUSED))
    yield Line("/RTC 90000", reset, shown, never=nowhere(EITHER), moving=TIME)
    yield Line("/SHUTDOWN", reset, shown)
    yield Line("/SHUTDOWN /T 0", reset, shown)
    yield Line("/TIMEOUT /T 1", moving=TIME)


def other_lines():
    yield Line("/PCI /?")
    yield Line("/EDID /NOMSG", never=nowhere(REFUSED))
    yield Line("0x1B", never=nowhere(REFUSED))


LINES = [*port_lines(), *memory_lines(), *pci_lines(), *cpu_lines(), *bus_lines(), *firmware_lines(), *power_lines(),
         *other_lines()]  # fmt: skip
