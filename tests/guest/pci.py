"""PCI functions as pciutils sees them, and as the program should print them."""

import re
from dataclasses import dataclass

# What the program calls the classes (base class and subclass) of the functions in the test machines; other
# classes it knows nothing about.
CLASS_NAMES = {
    0x0100: "SCSI Bus Controller",
    0x0101: "IDE Controller",
    0x0104: "RAID Controller",
    0x0106: "SATA Controller",
    0x0200: "Ethernet Controller",
    0x0300: "VGA Compatible Controller",
    0x0380: "Other Display Controller",
    0x0401: "Audio Device",
    0x0403: "HD Audio Device",
    0x0500: "RAM Controller",
    0x0600: "Host Bridge",
    0x0601: "ISA Bridge",
    0x0604: "PCI-to-PCI Bridge",
    0x0680: "Other Bridge",
    0x0700: "Compatibal Serial Controller",
    0x0780: "Other Communications Device",
    0x0805: "SD Host Controller",
    0x0880: "Other System Peripheral",
    0x0900: "Keyboard Controller",
    0x0902: "Mouse Controller",
    0x0980: "Other Input Controller",
    0x0C03: "USB Controller",
    0x0C05: "SMBus Controller",
    0x0C07: "IPMI xxxx Controller",
    # Not in the program's table.
    0x00FF: "Unknown PCI",
    0x0108: "Unknown PCI",
}

HEADER = "Bus Dev Fun VID_DID  ASPM IRQ_L IRQ_P Class\n"

# Link Control, ASPM field: what lspci says and what the program prints.
ASPM_FIELDS = {"Disabled": "DIS ", "L0s Enabled": "L0S ", "L1 Enabled": "L1  ", "L0s L1 Enabled": "L01 "}


@dataclass
class Function:
    bus: int
    device: int
    function: int
    class_code: int  # base class and subclass
    vendor: int
    device_id: int

    @property
    def slot(self):
        return f"{self.bus:02x}:{self.device:02x}.{self.function}"


def functions(listing):
    """The functions in the output of `lspci -n`, in bus, device, function order."""
    found = []
    for line in listing.splitlines():
        bus, device, function, class_code, vendor, device_id = re.match(
            r"(\w\w):(\w\w)\.(\d) (\w{4}): (\w{4}):(\w{4})", line
        ).groups()
        numbers = (int(text, 16) for text in (bus, device, function, class_code, vendor, device_id))
        found.append(Function(*numbers))
    return sorted(found, key=lambda f: (f.bus, f.device, f.function))


def config_spaces(dump):
    """The configuration spaces in the output of `lspci -xxx` or `-xxxx`, by slot."""
    spaces = {}
    for line in dump.splitlines():
        if match := re.match(r"(\w\w:\w\w\.\d) ", line):
            space = spaces.setdefault(match[1], bytearray())
        elif match := re.match(r"[0-9a-f]{2,3}: ((?:\w\w ?)+)$", line):
            space += bytes.fromhex(match[1])
    return spaces


def verbose_sections(verbose):
    """The sections of the output of `lspci -vv`, by slot."""
    return {section[:7]: section for section in verbose.strip().split("\n\n")}


def aspm_field(section):
    """The program's ASPM column for a function of which lspci says this."""
    if match := re.search(r"LnkCtl:\s*ASPM ([^;]*);", section):
        return ASPM_FIELDS[match[1]]
    # A root complex integrated endpoint has the capability but no link, so lspci has no such line for it.
    return "DIS " if re.search(r"\] Express ", section) else "NA  "


def interrupt_fields(section, line_register):
    """The program's two interrupt columns: the line as the register has it (the kernel routes interrupts otherwise
    and lspci tells that), the pin as lspci says."""
    match = re.search(r"Interrupt: pin ([A-D]) ", section)
    if not match and line_register == 0:
        return "NONE  NONE  "
    line = f"IRQ{line_register:02X} " if line_register else "NONE  "
    return line + (f"INT{match[1]}  " if match else "NULL  ")


def row(function, section, space):
    """The program's line about a function."""
    return (
        f"{function.bus:02X}  {function.device:02X}  {function.function:02X}  "
        f"{function.vendor:04X}{function.device_id:04X} {aspm_field(section)} "
        f"{interrupt_fields(section, space[0x3C])}{CLASS_NAMES[function.class_code]}\n"
    )


class Inventory:
    """Asks a machine for everything that its listing is compared with."""

    def __init__(self, boot):
        self.numeric = boot.ask("lspci -n")
        self.verbose = boot.ask("lspci -vvn")
        self.dump = boot.ask("lspci -xxx")

    def functions(self):
        return functions(self.numeric.stdout)

    def row_of(self, slot):
        function = next(f for f in self.functions() if f.slot == slot)
        return row(function, verbose_sections(self.verbose.stdout)[slot], config_spaces(self.dump.stdout)[slot])

    def listing(self):
        return HEADER + "".join(self.row_of(function.slot) for function in self.functions())


# Bytes of the widths by the letter in the program's switches.
SIZES = {"B": 1, "W": 2, "D": 4}


def read_line(width, address, offset, value):
    """What the program prints about a read. `address` is (bus, device, function)."""
    name = {"B": "Byte", "W": "Word", "D": "DWord"}[width]
    place = " ".join(f"{number:X}" for number in (*address, offset))
    return f"PCI Read {name} BDFO: {place}, return data:0x{value:0{2 * SIZES[width]}X}\n"


def write_line(width, address, offset, data, value):
    """What the program prints about a write: the data given and the value read back."""
    name = {"B": "Byte", "W": "Word", "D": "Dword"}[width]
    digits = 2 * SIZES[width]
    place = " ".join(f"{number:X}" for number in (*address, offset))
    return f"PCI Write {name} BDFO: {place}, Data:{data:0{digits}X}, return data:0x{value:0{digits}X}\n"


def slot_of(address):
    bus, device, function = address
    return f"{bus:02x}:{device:02x}.{function}"


def little_endian(data, offset, size):
    return int.from_bytes(data[offset : offset + size], "little")
