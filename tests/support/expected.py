"""What the program prints, and which accesses it makes in the words of the board's log: said here once."""

BANNER_NOTICE_LENGTH = 33
LOST = b"hwreg: output was lost\n"  # on standard error

# ---- accesses -------------------------------------------------------------------------------------------------------

DELAY = ["out8 00ed 00"] * 2
OPEN = [
    "iopl 3",
    "open /dev/mem rdwr sync cloexec -> ok",
    "open /dev/cpu/0/msr rdonly cloexec -> ok",
    "close /dev/cpu/0/msr",
]
CLOSE = ["iopl 0", "close /dev/mem"]
CLEAR = ["system clear"]


def session(*steps):
    """The log of a whole run: start-up, the steps (lists of lines) and the end."""
    return [line for step in (OPEN, *steps, CLOSE) for line in step]


def place(function, offset=0):
    """Configuration address of "bb:dd.f": bus, device and function in bits 23:8, the offset whole below them."""
    bus, rest = function.split(":")
    device, number = rest.split(".")
    return int(bus, 16) << 16 | int(device, 16) << 11 | int(number) << 8 | offset


def legacy(function, offset, access):
    """One access through configuration mechanism 1; `access` is the line of the data port."""
    return [*DELAY, f"out32 0cf8 {0x80000000 + place(function, offset):08x}", access]


def mapped(page, access):
    """One access of a single read or write to memory: two pages are mapped for it and unmapped again."""
    lines = [access] if access else []
    return [f"mmap /dev/mem {page:08x} 2000 rw shared -> ok", *lines, f"munmap {page:08x} 2000"]


def copied_pages(address, count=1):
    """Copying so many pages one by one, from that of an address on."""
    first = address & ~0xFFF
    places = [f"{page:08x} 1000" for page in range(first, first + count * 0x1000, 0x1000)]
    return [line for place in places for line in (f"mmap /dev/mem {place} rw shared -> ok", f"munmap {place}")]


def refused(page, error="EPERM"):
    return [f"mmap /dev/mem {page:08x} 2000 rw shared -> {error}"]


def msr_read(cpu, index, value):
    """`value` as 16 digits, or the name of the error."""
    node = f"/dev/cpu/{cpu}/msr"
    return [f"open {node} rdonly cloexec -> ok", f"pread {node} {index:x} 8 -> {value}", f"close {node}"]


def msr_write(cpu, index, value, result="ok"):
    node = f"/dev/cpu/{cpu}/msr"
    return [f"open {node} wronly cloexec -> ok", f"pwrite {node} {index:x} 8 {value} -> {result}", f"close {node}"]


def msr_absent(cpu, mode="rdonly"):
    return [f"open /dev/cpu/{cpu}/msr {mode} cloexec -> ENOENT"]


def msr_count(count):
    """Counting the CPUs: each node up to the first that is not there."""
    probes = [[f"open /dev/cpu/{n}/msr rdonly cloexec -> ok", f"close /dev/cpu/{n}/msr"] for n in range(count)]
    return [line for probe in probes for line in probe] + msr_absent(count)


# How the configuration window is found: the maker of the host bridge, then its own register.
INTEL_BASE = legacy("00:00.0", 0x00, "in16 0cfc -> 8086") + legacy("00:00.0", 0x60, "in32 0cfc -> e0000001")
AMD_BASE = legacy("00:00.0", 0x00, "in16 0cfc -> 1022") + msr_read(0, 0xC0010058, "00000000f8000021")

# ---- texts ----------------------------------------------------------------------------------------------------------

HELP_LIST = (
    "  CMD: \n"
    "      /IO:    Io Access;            /MEM:    Memory Access;\n"
    "      /PCI:   Pci Access;           /SMBUS:  Smbus Access;\n"
    "      /MSR:   MSR Access;           /SMBIOS: SMBios Access;\n"
    "  ===========================================================\n"
    "  OPT:/RI [Addr, ...]:                   Read Bit;\n"
    "      /RB [Addr, ...]:                   Read Byte;\n"
    "      /RW [Addr, ...]:                   Read Word;\n"
    "      /RD [Addr, ...]:                   Read Dword;\n"
    "      /WI [Addr, ...] [iData]:           Write Bit;\n"
    "      /WB [Addr, ...] [bData]:           Write Byte;\n"
    "      /WW [Addr, ...] [wData]:           Write Word;\n"
    "      /WD [Addr, ...] [dData]:           Write Dword;\n"
    "   More detail please refer ReadMe.doc. \n"
)

IO_USAGE = (
    " /IO /RB(RW/RD) 0x80: Read 1-BYTE(WROD/DWORD) from IO 80h port\n"
    " /IO /WB(WW/WD) 0x80 0x12: Write 1-BYTE(WROD/DWORD) 0x12 to 80h port\n"
    " /IO /DUMP 0x500: Dump IO data from 0x500\n"
    " /IO /INDEX /RB 0x72 0x73 0x10: Read 1-BYTE from IO port 72h/73h 0x10\n"
    " /IO /INDEX /DUMP 0x70 0x71: Dump IO Index data from 0x70/0x71\n"
    " /IO /RF IO.bin 0 0x100: Dump IO from 0 t0 0x100 to IO.bin file\n"
)
MEM_USAGE = (
    " /MEM /WD [MemAddr] [Data]: Write1-DWORD Data to MemAddr\n"
    " /MEM /RB 0xFF550: Read 1-BYTE from memory 0xFF550\n"
    " /MEM /DUMP 0xFF550: Dump memory data from 0xFF550\n"
    " /MEM /RF SMBIOS.bin 0xFF550 0x100: Dump 256 bytes to SMBIOS.bin\n"
)
PCI_USAGE = (
    " /PCI /RB 0 0x1f 0 0: Read 1-BYTE from PCI B0D1FF0 offset 0\n"
    " /PCI /WB 0 0x1f 0 0x2C 0x12: Write 0x12 to B0D1FF0 offset 0x2C\n"
    " /PCI /DUMP /NOMSG: List all PCI controller without data message\n"
    " /PCI /DUMP /TEXT: Dump all PCI device data\n"
)
CPU_USAGE = (
    " /MSR /WD [CpuNo] [MsrAddr] [EDX] [EAX]: Write CPUn MSR EDX:EAX(64 Bit) to MsrAddr\n"
    " /MSR /RD /ALL [MsrReg]: Dump All valid CPUs MsrReg\n"
    " /CPUID /RD [CpuIdIndex]: Read CPUID CpuIdIndex\n"
)
FILE_USAGE = (
    " /MEM /RF SMBIOS.bin 0xFF550 0x100: Dump 256 bytes to SMBIOS.bin\n"
    " /IO /RF IO.bin 0 0x100: Dump IO from 0 t0 0x100 to IO.bin file\n"
)
SIO_USAGE = " /SIO /dump: Dump SuperIO Reg\n"
SMBUS_USAGE = (
    " /SMBUS /RB 0xa0 0: Read 1-BYTE data from smbus 0xA0 offset 0\n"
    " /SMBUS /WB 0xa0 0 0xFF: Write 1-BYTE 0xFF to smbus 0xA0 offset 0\n"
    " /SMBUS /DUMP 0xa0: Dump datas from smbus 0xA0\n"
    " /SMBUS /S 0xA0 0xA8: Search valid smbus device from 0xA0 to 0xA8\n"
)
POWER_USAGE = (
    " /RTC [seconds]: Set wakeup timer. If seconds==0, reset.\n"
    " /RTC [seconds] /T [seconds2]: Set wakeup timer and delay seconds2\n"
    " /SHUTDOWN: Shutdown system right now\n"
)
SMBIOS_USAGE = " /SMBIOS: Show some types of SMBIOS\n /SMBIOS /S [String]: Search String in SMBIOS\n"
ACPI_USAGE = " /ACPI /dump: Dump Rsdp\n"
NBIO_USAGE = (
    " /SMN /RD [DieNum] [RegesterInde]: Read SMN from DieNum RegesterInde\n"
    " /SMN /WD [DieNum] [RegesterIndex] [Data]: Write SMN Data to DieNum RegesterInde\n"
    " /SMN /RI [DieNum] [RegesterIndex] [BITn]: Read SMN from DieNum RegesterInde BITn\n"
    " /SMN /WI [DieNum] [RegesterIndex] [BITn] [Data]: Write SMN Data to DieNum RegesterInde BITn\n"
    " /SMU /RD/WD [RequestId] [Data0], [Data1] ...: Read/Write SMU Msg Data0 ...to RequestId\n"
)
I2C_USAGE = (
    " /I2C /rb [I2cNo] [SlaveAddr] [Offset]: Read BYTE from I2cNo SlaveAddr Offset\n"
    " /I2C /wb [I2cNo] [SlaveAddr] [Offset] [Data]: Write BYTE from I2cNo SlaveAddr Offset Data\n"
)
# What each command word answers with the help switch, in the order in which the words are asked for.
USAGE = {
    "IO": IO_USAGE,
    "MEM": MEM_USAGE,
    "PCI": PCI_USAGE,
    "SMB": SMBUS_USAGE,
    "SMBUS": SMBUS_USAGE,
    "MSR": CPU_USAGE,
    "CPUID": CPU_USAGE,
    "RTC": POWER_USAGE,
    "SHUTDOWN": POWER_USAGE,
    "TIMEOUT": POWER_USAGE,
    "RF": FILE_USAGE,
    "SMBIOS": SMBIOS_USAGE,
    "ACPI": ACPI_USAGE,
    "SIO": SIO_USAGE,
    "SMN": NBIO_USAGE,
    "SMU": NBIO_USAGE,
    "I2C": I2C_USAGE,
}


def usage_status(word):
    """The SMBus command answers -1 as a byte, the others 0x80000002."""
    return 0xFF if word in ("SMB", "SMBUS") else 0x80000002


PCI_HEADER = "Bus Dev Fun VID_DID  ASPM IRQ_L IRQ_P Class\n"

COLOURS = {3: "\033[0;36m", 6: "\033[0;33m", 7: "\033[0m", 12: "\033[1;31m"}


def hex_view(data, plain=False):
    """The paged view of some bytes: yellow headings, red cells, cyan characters; without colours when plain."""

    def colour(number):
        return "" if plain else COLOURS[number]

    columns = range(min(len(data), 16))
    text = "  " + colour(6) + "".join(f" {i:02X}" for i in columns) + "   " * (16 - len(columns))
    text += " " * 6 + " " + "".join(f"{i:X}" for i in columns) + "\r\n" + "00 " + colour(7)
    for start in range(0, len(data), 16):
        row = data[start : start + 16]
        if start > 0:
            text += "\r\n" + colour(6) + f"{(start >> 4) & 0xFF:02X} " + colour(7)
        for i in range(16):
            text += colour(12) + (f"{row[i]:02X} " if i < len(row) else "   ") + colour(7)
        text += " " * 6
        for byte in row:
            text += colour(3) + (chr(byte) if 0x20 <= byte <= 0x7F else ".") + colour(7)
        if (start + 16) % 256 == 0:
            text += "\r\n"
    return text + ("\r\n" if len(data) % 256 != 0 else "")


def on_screen(text):
    """What a terminal that puts a carriage return before each line feed makes of a text."""
    return text.replace("\n", "\r\n").encode("latin-1")


def assert_run(result, text, status, *steps):
    """The whole outcome of a run: output, nothing on stderr, exit status (cut to 8 bits) and the access log."""
    assert result.text == text
    assert result.err == b""
    assert result.status == status & 0xFF
    assert result.log == session(*steps)


def assert_is_help_screen(result, vendor):
    """The general help: the banner, its first line off centre, the vendor and the list."""
    lines = result.text.split("\n")
    notice = lines[1]
    assert lines[0] == " " * 23 + "Utility -- Rev 1.01 BUILD 2019-07-10"
    assert (notice[:23], notice[-23:]) == ("*" * 21 + "  ", "  " + "*" * 21)
    assert len(notice) == 46 + BANNER_NOTICE_LENGTH and "*" not in notice[21:-21]
    assert "\n".join(lines[2:]) == f"  Help list({vendor}):\n" + HELP_LIST
    assert (result.err, result.status) == (b"", 0)
