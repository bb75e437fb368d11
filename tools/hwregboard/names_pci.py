"""Names of PCI classes, header registers, capabilities and their registers.

PCI Local Bus 3.0, PCI-to-PCI Bridge 1.2, PCI Express Base 5.0, and the registers of Intel's chipsets that firmware
sets. Offsets of a capability's registers count from its first byte.
"""

import bisect
import functools
from typing import NamedTuple


class Register(NamedTuple):
    start: int
    width: int  # bytes
    name: str
    kind: str  # tells what is volatile: "header", "bridge", or the capability's key such as "10" or "x0001"
    inside: int  # offset inside the header or capability; PENDING for MSI's register of that name


PENDING = -1

Rows = tuple[tuple[int, int, str], ...]

COMMON: Rows = (
    (0x00, 2, "Vendor ID"), (0x02, 2, "Device ID"), (0x04, 2, "Command"), (0x06, 2, "Status"), (0x08, 1, "Revision ID"),
    (0x09, 3, "Class Code"), (0x0C, 1, "Cache Line Size"), (0x0D, 1, "Latency Timer"), (0x0E, 1, "Header Type"),
    (0x0F, 1, "BIST"), (0x34, 1, "Capabilities Pointer"), (0x3C, 1, "Interrupt Line"), (0x3D, 1, "Interrupt Pin"),
)  # fmt: skip
ENDPOINT: Rows = COMMON + tuple((0x10 + 4 * bar, 4, f"BAR{bar}") for bar in range(6)) + (
    (0x28, 4, "CardBus CIS Pointer"), (0x2C, 2, "Subsystem Vendor ID"), (0x2E, 2, "Subsystem ID"),
    (0x30, 4, "Expansion ROM Base Address"), (0x3E, 1, "Min_Gnt"), (0x3F, 1, "Max_Lat"),
)  # fmt: skip
BRIDGE: Rows = COMMON + (
    (0x10, 4, "BAR0"), (0x14, 4, "BAR1"), (0x18, 1, "Primary Bus"), (0x19, 1, "Secondary Bus"),
    (0x1A, 1, "Subordinate Bus"), (0x1B, 1, "Secondary Latency Timer"), (0x1C, 1, "I/O Base"), (0x1D, 1, "I/O Limit"),
    (0x1E, 2, "Secondary Status"), (0x20, 2, "Memory Base"), (0x22, 2, "Memory Limit"),
    (0x24, 2, "Prefetchable Memory Base"), (0x26, 2, "Prefetchable Memory Limit"),
    (0x28, 4, "Prefetchable Base Upper 32"), (0x2C, 4, "Prefetchable Limit Upper 32"), (0x30, 2, "I/O Base Upper 16"),
    (0x32, 2, "I/O Limit Upper 16"), (0x38, 4, "Expansion ROM Base Address"), (0x3E, 2, "Bridge Control"),
)  # fmt: skip

CAPABILITIES = {
    0x01: "Power Management", 0x02: "AGP", 0x03: "Vital Product Data", 0x04: "Slot Identification", 0x05: "MSI",
    0x06: "CompactPCI Hot Swap", 0x07: "PCI-X", 0x08: "HyperTransport", 0x09: "Vendor-Specific", 0x0A: "Debug Port",
    0x0B: "CompactPCI Resource Control", 0x0C: "Hot-Plug", 0x0D: "Bridge Subsystem", 0x0E: "AGP 8x",
    0x0F: "Secure Device", 0x10: "PCI Express", 0x11: "MSI-X", 0x12: "SATA", 0x13: "Advanced Features",
    0x14: "Enhanced Allocation", 0x15: "Flattening Portal Bridge",
}  # fmt: skip
EXTENDED = {
    0x01: "Advanced Error Reporting", 0x02: "Virtual Channel", 0x03: "Device Serial Number", 0x04: "Power Budgeting",
    0x05: "Root Complex Link", 0x06: "Root Complex Internal Link", 0x07: "Root Complex Event Collector", 0x08: "MFVC",
    0x09: "Virtual Channel", 0x0A: "RCRB Header", 0x0B: "Vendor-Specific Extended", 0x0D: "Access Control Services",
    0x0E: "ARI", 0x0F: "ATS", 0x10: "SR-IOV", 0x11: "MR-IOV", 0x12: "Multicast", 0x13: "Page Request",
    0x15: "Resizable BAR", 0x16: "Dynamic Power Allocation", 0x17: "TPH Requester", 0x18: "Latency Tolerance Reporting",
    0x19: "Secondary PCI Express", 0x1B: "PASID", 0x1D: "Downstream Port Containment", 0x1E: "L1 PM Substates",
    0x1F: "Precision Time Measurement", 0x20: "M-PCIe", 0x21: "FRS Queueing", 0x22: "Readiness Time Reporting",
    0x23: "Designated Vendor-Specific", 0x24: "VF Resizable BAR", 0x25: "Data Link Feature",
    0x26: "Physical Layer 16.0 GT/s", 0x27: "Lane Margining", 0x28: "Hierarchy ID", 0x29: "Native PCIe Enclosure",
    0x2A: "Physical Layer 32.0 GT/s", 0x2B: "Alternate Protocol", 0x2E: "Data Object Exchange",
}  # fmt: skip

PCI_EXPRESS: Rows = (
    (0x02, 2, "PCI Express Capabilities"), (0x04, 4, "Device Capabilities"), (0x08, 2, "Device Control"),
    (0x0A, 2, "Device Status"), (0x0C, 4, "Link Capabilities"), (0x10, 2, "Link Control"), (0x12, 2, "Link Status"),
    (0x14, 4, "Slot Capabilities"), (0x18, 2, "Slot Control"), (0x1A, 2, "Slot Status"), (0x1C, 2, "Root Control"),
    (0x1E, 2, "Root Capabilities"), (0x20, 4, "Root Status"), (0x24, 4, "Device Capabilities 2"),
    (0x28, 2, "Device Control 2"), (0x2A, 2, "Device Status 2"), (0x2C, 4, "Link Capabilities 2"),
    (0x30, 2, "Link Control 2"), (0x32, 2, "Link Status 2"), (0x34, 4, "Slot Capabilities 2"),
    (0x38, 2, "Slot Control 2"), (0x3A, 2, "Slot Status 2"),
)  # fmt: skip
# By key: a capability's number in hexadecimal, behind an "x" when it is an extended one.
REGISTERS: dict[str, Rows] = {
    "01": ((2, 2, "PMC"), (4, 2, "PMCSR"), (6, 1, "PMCSR Bridge Extensions"), (7, 1, "Data")),
    "02": ((2, 2, "Version"), (4, 4, "AGP Status"), (8, 4, "AGP Command")),
    "03": ((2, 2, "VPD Address"), (4, 4, "VPD Data")),
    "05": ((2, 2, "Message Control"),),  # the rest depends on its width: see msi_rows
    "07": ((2, 2, "PCI-X Command"), (4, 4, "PCI-X Status")),
    "08": ((2, 2, "HyperTransport Command"),),
    "09": ((2, 1, "Length"),),
    "0a": ((2, 2, "Debug Port Offset"),),
    "0d": ((4, 2, "Subsystem Vendor ID"), (6, 2, "Subsystem ID")),
    "10": PCI_EXPRESS,
    "11": ((2, 2, "Message Control"), (4, 4, "Table Offset"), (8, 4, "PBA Offset")),
    "12": ((2, 2, "Revision"), (4, 4, "BAR Offset")),
    "13": ((2, 1, "Length"), (3, 1, "AF Capabilities"), (4, 1, "AF Control"), (5, 1, "AF Status")),
    "x0001": ((4, 4, "Uncorrectable Error Status"), (8, 4, "Uncorrectable Error Mask"),
              (0x0C, 4, "Uncorrectable Error Severity"), (0x10, 4, "Correctable Error Status"),
              (0x14, 4, "Correctable Error Mask"), (0x18, 4, "Capabilities and Control"), (0x1C, 4, "Header Log 1"),
              (0x20, 4, "Header Log 2"), (0x24, 4, "Header Log 3"), (0x28, 4, "Header Log 4"),
              (0x2C, 4, "Root Error Command"), (0x30, 4, "Root Error Status"), (0x34, 4, "Error Source ID")),
    "x0002": ((4, 4, "Port VC Capability 1"), (8, 4, "Port VC Capability 2"), (0x0C, 2, "Port VC Control"),
              (0x0E, 2, "Port VC Status"), (0x10, 4, "VC0 Resource Capability"), (0x14, 4, "VC0 Resource Control"),
              (0x1A, 2, "VC0 Resource Status")),
    "x0003": ((4, 4, "Serial Number Low"), (8, 4, "Serial Number High")),
    "x0004": ((4, 1, "Data Select"), (8, 4, "Data"), (0x0C, 1, "Power Budget Capability")),
    "x000b": ((4, 4, "VSEC Header"),),
    "x000d": ((4, 2, "ACS Capability"), (6, 2, "ACS Control")),
    "x000e": ((4, 2, "ARI Capability"), (6, 2, "ARI Control")),
    "x000f": ((4, 2, "ATS Capability"), (6, 2, "ATS Control")),
    "x0010": ((4, 4, "SR-IOV Capabilities"), (8, 2, "SR-IOV Control"), (0x0A, 2, "SR-IOV Status"),
              (0x0C, 2, "InitialVFs"), (0x0E, 2, "TotalVFs"), (0x10, 2, "NumVFs"), (0x14, 2, "First VF Offset"),
              (0x16, 2, "VF Stride"), (0x1A, 2, "VF Device ID"), (0x1C, 4, "Supported Page Sizes"),
              (0x20, 4, "System Page Size"), *((0x24 + 4 * bar, 4, f"VF BAR{bar}") for bar in range(6))),
    "x0013": ((4, 2, "Page Request Control"), (6, 2, "Page Request Status")),
    "x0015": tuple(row for bar in range(6) for row in ((4 + 8 * bar, 4, f"Resizable BAR Capability {bar}"),
                                                       (8 + 8 * bar, 4, f"Resizable BAR Control {bar}"))),
    "x0017": ((4, 4, "TPH Requester Capability"), (8, 4, "TPH Requester Control")),
    "x0018": ((4, 2, "Max Snoop Latency"), (6, 2, "Max No-Snoop Latency")),
    "x0019": ((4, 4, "Link Control 3"), (8, 4, "Lane Error Status")),
    "x001b": ((4, 2, "PASID Capability"), (6, 2, "PASID Control")),
    "x001d": ((4, 2, "DPC Capability"), (6, 2, "DPC Control"), (8, 2, "DPC Status"), (0x0A, 2, "DPC Error Source ID")),
    "x001e": ((4, 4, "L1 PM Substates Capabilities"), (8, 4, "L1 PM Substates Control 1"),
              (0x0C, 4, "L1 PM Substates Control 2")),
    "x001f": ((4, 4, "PTM Capability"), (8, 4, "PTM Control")),
    "x0023": ((4, 4, "DVSEC Header 1"), (8, 2, "DVSEC Header 2")),
    "x0025": ((4, 4, "Data Link Feature Capabilities"), (8, 4, "Data Link Feature Status")),
    "x0026": ((4, 4, "16.0 GT/s Capabilities"), (8, 4, "16.0 GT/s Control"), (0x0C, 4, "16.0 GT/s Status")),
    "x0027": ((4, 2, "Margining Port Capabilities"), (6, 2, "Margining Port Status")),
}  # fmt: skip

# Registers behind the header of Intel's functions, by class (base and sub class).
INTEL: dict[int, Rows] = {
    0x0600: ((0x40, 8, "EPBAR"), (0x48, 8, "MCHBAR"), (0x50, 2, "GGC"), (0x54, 4, "DEVEN"), (0x60, 8, "PCIEXBAR"),
             (0x68, 8, "DMIBAR"), (0x70, 8, "MESEG_BASE"), (0x78, 8, "MESEG_MASK"), (0x88, 1, "SMRAMC"),
             (0x90, 8, "REMAPBASE"), (0x98, 8, "REMAPLIMIT"), (0xA0, 8, "TOM"), (0xA8, 8, "TOUUD"), (0xB0, 4, "BDSM"),
             (0xB4, 4, "BGSM"), (0xB8, 4, "TSEGMB"), (0xBC, 4, "TOLUD"), (0xDC, 4, "SKPD"),
             *((0x80 + pam, 1, f"PAM{pam}") for pam in range(7))),
    0x0601: ((0x40, 4, "ACPI Base"), (0x44, 1, "ACPI Control"), (0x48, 4, "GPIO Base"), (0x4C, 1, "GPIO Control"),
             (0x60, 4, "PIRQ A-D Routing"), (0x64, 1, "Serial IRQ Control"), (0x68, 4, "PIRQ E-H Routing"),
             (0x80, 2, "LPC I/O Decode Ranges"), (0x82, 2, "LPC I/O Enables"), (0x84, 4, "LPC Generic I/O Range 1"),
             (0x88, 4, "LPC Generic I/O Range 2"), (0x8C, 4, "LPC Generic I/O Range 3"),
             (0x90, 4, "LPC Generic I/O Range 4"), (0x98, 4, "LPC Generic Memory Range"), (0xD0, 4, "FWH ID Select 1"),
             (0xD4, 2, "FWH ID Select 2"), (0xD8, 2, "BIOS Decode Enable"), (0xDC, 1, "BIOS Control"),
             (0xF0, 4, "Root Complex Base")),
    0x0C05: ((0x40, 1, "Host Configuration"),),
    0x0106: ((0x90, 2, "Address Map"), (0x92, 2, "Port Control and Status")),
}  # fmt: skip

CLASSES = {
    0x0000: "Unclassified device", 0x0001: "VGA compatible unclassified device", 0x0100: "SCSI storage controller",
    0x0101: "IDE interface", 0x0102: "Floppy disk controller", 0x0104: "RAID bus controller", 0x0105: "ATA controller",
    0x0106: "SATA controller", 0x0107: "SAS controller", 0x0108: "Non-Volatile memory controller",
    0x0180: "Mass storage controller", 0x0200: "Ethernet controller", 0x0207: "Infiniband controller",
    0x0280: "Network controller", 0x0300: "VGA compatible controller", 0x0302: "3D controller",
    0x0380: "Display controller", 0x0400: "Multimedia video controller", 0x0401: "Multimedia audio controller",
    0x0403: "Audio device", 0x0480: "Multimedia controller", 0x0500: "RAM memory", 0x0501: "FLASH memory",
    0x0502: "CXL", 0x0580: "Memory controller", 0x0600: "Host bridge", 0x0601: "ISA bridge", 0x0602: "EISA bridge",
    0x0604: "PCI bridge", 0x0605: "PCMCIA bridge", 0x0607: "CardBus bridge", 0x0609: "Semi-transparent PCI bridge",
    0x0680: "Bridge", 0x0700: "Serial controller", 0x0701: "Parallel controller", 0x0703: "Modem",
    0x0780: "Communication controller", 0x0800: "PIC", 0x0801: "DMA controller", 0x0802: "Timer", 0x0803: "RTC",
    0x0804: "PCI Hot-plug controller", 0x0805: "SD Host controller", 0x0806: "IOMMU", 0x0880: "System peripheral",
    0x0900: "Keyboard controller", 0x0980: "Input device controller", 0x0A00: "Generic Docking Station",
    0x0B40: "Co-processor", 0x0C00: "FireWire (IEEE 1394)", 0x0C03: "USB controller", 0x0C04: "Fibre Channel",
    0x0C05: "SMBus", 0x0C06: "InfiniBand", 0x0C07: "IPMI Interface", 0x0C80: "Serial bus controller",
    0x0D00: "IRDA controller", 0x0D11: "Bluetooth", 0x0D80: "Wireless controller", 0x1000: "Network encryption device",
    0x1080: "Encryption controller", 0x1100: "DPIO module", 0x1101: "Performance counters",
    0x1180: "Signal processing controller", 0x1200: "Processing accelerators", 0x1300: "Non-Essential Instrumentation",
}  # fmt: skip


def class_name(code: int) -> str:
    """The name of a class by its 16 bits (base and sub class)."""
    return CLASSES.get(code) or CLASSES.get(code & 0xFF00 | 0x80) or f"Class {code:04x}"


def capabilities(config: bytes) -> list[tuple[int, str]]:
    """(offset, key) of each capability in its list's order. A list that loops or leaves the space ends there."""
    found: list[tuple[int, str]] = []
    if len(config) >= 0x40 and config[6] & 0x10:
        offset = config[0x14 if config[0x0E] & 0x7F == 2 else 0x34] & 0xFC
        seen = set()
        while 0x40 <= offset <= len(config) - 2 and offset < 0x100 and offset not in seen and config[offset] != 0xFF:
            seen.add(offset)
            found.append((offset, f"{config[offset]:02x}"))
            offset = config[offset + 1] & 0xFC
    offset, seen = 0x100, set()
    while 0x100 <= offset <= len(config) - 4 and offset not in seen:
        seen.add(offset)
        header = int.from_bytes(config[offset:offset + 4], "little")
        if header in (0, 0xFFFFFFFF):
            break
        found.append((offset, f"x{header & 0xFFFF:04x}"))
        offset = header >> 20 & 0xFFC
    return found


def capability_name(key: str) -> str:
    table = EXTENDED if key.startswith("x") else CAPABILITIES
    return table.get(int(key.lstrip("x"), 16), f"Capability {key.lstrip('x')}")


def msi_rows(control: int) -> Rows:
    """MSI's registers behind Message Control: their places depend on the address's width and on masks."""
    rows = [(4, 4, "Message Address")]
    data = 8
    if control & 0x80:
        rows.append((8, 4, "Message Upper Address"))
        data = 12
    rows.append((data, 2, "Message Data"))
    if control & 0x100:
        rows += [(data + 4, 4, "Mask Bits"), (data + 8, 4, "Pending Bits")]
    return tuple(rows)


def capability_rows(config: bytes, offset: int, key: str) -> Rows:
    if key.startswith("x"):
        return (0, 4, "Header"), *REGISTERS.get(key, ())
    rows = (0, 1, "Capability ID"), (1, 1, "Next Pointer"), *REGISTERS.get(key, ())
    if key == "10" and config[offset + 2] & 0xF < 2:
        rows = tuple(row for row in rows if row[0] < 0x24)
    if key == "05":
        rows += msi_rows(int.from_bytes(config[offset + 2:offset + 4], "little"))
    return rows


@functools.lru_cache(maxsize=4096)
def layout(config: bytes) -> tuple[Register, ...]:
    """The named registers of a function, by their offset; none overlaps another."""
    bridge = len(config) > 0x0E and config[0x0E] & 0x7F == 1
    found = {start: Register(start, width, name, "bridge" if bridge else "header", start)
             for start, width, name in (BRIDGE if bridge else ENDPOINT)}  # fmt: skip
    lists = capabilities(config)
    for offset, key in lists:
        title = capability_name(key)
        # A capability ends where the next one begins, whatever registers a longer version of it has.
        end = min((other for other, _ in lists if other > offset), default=len(config))
        for inside, width, name in capability_rows(config, offset, key):
            start = offset + inside
            if start not in found and start + width <= end:
                row = PENDING if name == "Pending Bits" else inside
                found[start] = Register(start, width, f"{title}: {name}", key, row)
    if config[:2] == b"\x86\x80":
        for start, width, name in INTEL.get(int.from_bytes(config[0x0A:0x0C], "little"), ()):
            found.setdefault(start, Register(start, width, name, "intel", start))
    ordered, end = [], 0
    for start in sorted(found):
        if start >= end:
            ordered.append(found[start])
            end = start + found[start].width
    return tuple(ordered)


def pci_register(config: bytes | None, offset: int) -> Register:
    """The register that an offset belongs to. Without a function's bytes the header is taken for a device's; what has
    no name is a dword of its own, or what named ones leave of it."""
    registers = layout(bytes(config or b""))
    index = bisect.bisect_right(registers, offset, key=lambda register: register.start) - 1
    if index >= 0 and offset < registers[index].start + registers[index].width:
        return registers[index]
    start = max(offset & ~3, registers[index].start + registers[index].width if index >= 0 else 0)
    end = min((offset | 3) + 1, registers[index + 1].start if index + 1 < len(registers) else 0x1000)
    owner = max(((place, key) for place, key in capabilities(bytes(config or b"")) if place <= offset), default=None)
    if owner and (offset < 0x100) == (owner[0] < 0x100) and offset - owner[0] < 0x40:
        name = f"{capability_name(owner[1])}: +{start - owner[0]:02x}"
    else:
        name = f"Register {start:02x}"
    return Register(start, end - start, name, "", start)


def pci_register_name(config: bytes | None, offset: int) -> str:
    return pci_register(config, offset).name
