"""Names of registers: PCI, MSRs, CMOS, ports, Super I/O, SMBIOS, CPUID, SPD and the FADT. Each procedure gives a
name for any number, a plain one where nothing is known."""

from hwregboard.names_msr import msr_name as msr_name
from hwregboard.names_pci import Register as Register
from hwregboard.names_pci import capabilities as capabilities
from hwregboard.names_pci import capability_name as capability_name
from hwregboard.names_pci import class_name as class_name
from hwregboard.names_pci import layout as layout
from hwregboard.names_pci import pci_register as pci_register
from hwregboard.names_pci import pci_register_name as pci_register_name

# The AT's usage of the memory behind ports 70h and 71h.
CMOS = {
    0x00: "Seconds", 0x01: "Seconds Alarm", 0x02: "Minutes", 0x03: "Minutes Alarm", 0x04: "Hours", 0x05: "Hours Alarm",
    0x06: "Day of Week", 0x07: "Day of Month", 0x08: "Month", 0x09: "Year", 0x0A: "Register A", 0x0B: "Register B",
    0x0C: "Register C", 0x0D: "Register D", 0x0E: "Diagnostic Status", 0x0F: "Shutdown Status", 0x10: "Floppy Types",
    0x12: "Hard Disk Types", 0x14: "Equipment", 0x15: "Base Memory Low", 0x16: "Base Memory High",
    0x17: "Extended Memory Low", 0x18: "Extended Memory High", 0x19: "Hard Disk C Type", 0x1A: "Hard Disk D Type",
    0x2E: "Checksum High", 0x2F: "Checksum Low", 0x30: "Memory above 1 MiB Low", 0x31: "Memory above 1 MiB High",
    0x32: "Century",
}  # fmt: skip

PORTS = (
    (0x00, 0x0F, "DMA controller 1"), (0x20, 0x21, "Interrupt controller 1"), (0x2E, 0x2F, "Super I/O configuration"),
    (0x40, 0x43, "Timer"), (0x4E, 0x4F, "Super I/O configuration"), (0x60, 0x60, "Keyboard data"),
    (0x61, 0x61, "System Control Port B"), (0x64, 0x64, "Keyboard status and command"), (0x70, 0x70, "CMOS index"),
    (0x71, 0x71, "CMOS data"), (0x72, 0x72, "Extended CMOS index"), (0x73, 0x73, "Extended CMOS data"),
    (0x80, 0x80, "POST code"), (0x81, 0x8F, "DMA page registers"), (0x92, 0x92, "System Control Port A"),
    (0xA0, 0xA1, "Interrupt controller 2"), (0xB2, 0xB2, "APM control"), (0xB3, 0xB3, "APM status"),
    (0xC0, 0xDF, "DMA controller 2"), (0xED, 0xED, "Delay"), (0xF0, 0xF1, "Coprocessor error"),
    (0x170, 0x177, "Secondary IDE"), (0x1F0, 0x1F7, "Primary IDE"), (0x200, 0x207, "Game port"), (0x278, 0x27F, "LPT2"),
    (0x2E8, 0x2EF, "COM4"), (0x2F8, 0x2FF, "COM2"), (0x376, 0x376, "Secondary IDE control"), (0x378, 0x37F, "LPT1"),
    (0x3B0, 0x3DF, "VGA"), (0x3E8, 0x3EF, "COM3"), (0x3F0, 0x3F5, "Floppy"), (0x3F6, 0x3F6, "Primary IDE control"),
    (0x3F7, 0x3F7, "Floppy"), (0x3F8, 0x3FF, "COM1"), (0x4D0, 0x4D1, "Interrupt edge and level control"),
    (0xC00, 0xC01, "PCI interrupt map"), (0xCD6, 0xCD6, "Power management index"),
    (0xCD7, 0xCD7, "Power management data"), (0xCF9, 0xCF9, "Reset Control"),
    (0xCF8, 0xCFB, "PCI configuration address"), (0xCFC, 0xCFF, "PCI configuration data"),
)  # fmt: skip

SUPERIO = {
    0x02: "Configure Control", 0x07: "Logical Device Number", 0x20: "Chip ID High", 0x21: "Chip ID Low",
    0x22: "Chip Version", 0x23: "Clock Selection", 0x24: "Global Options", 0x30: "Activate", 0x60: "I/O Base 0 High",
    0x61: "I/O Base 0 Low", 0x62: "I/O Base 1 High", 0x63: "I/O Base 1 Low", 0x64: "I/O Base 2 High",
    0x65: "I/O Base 2 Low", 0x70: "Interrupt 0", 0x71: "Interrupt 0 Type", 0x72: "Interrupt 1",
    0x73: "Interrupt 1 Type", 0x74: "DMA 0", 0x75: "DMA 1",
}  # fmt: skip

SMBIOS = (
    "BIOS Information", "System Information", "Base Board", "Chassis", "Processor", "Memory Controller",
    "Memory Module", "Cache", "Port Connector", "System Slot", "On Board Device", "OEM Strings",
    "System Configuration Options", "BIOS Language", "Group Associations", "System Event Log",
    "Physical Memory Array", "Memory Device", "32-bit Memory Error", "Memory Array Mapped Address",
    "Memory Device Mapped Address", "Built-in Pointing Device", "Portable Battery", "System Reset",
    "Hardware Security", "System Power Controls", "Voltage Probe", "Cooling Device", "Temperature Probe",
    "Electrical Current Probe", "Out-of-band Remote Access", "Boot Integrity Services", "System Boot",
    "64-bit Memory Error", "Management Device", "Management Device Component", "Management Device Threshold Data",
    "Memory Channel", "IPMI Device", "Power Supply", "Additional Information", "Onboard Device",
    "Management Controller Host Interface", "TPM Device", "Processor Additional Information", "Firmware Inventory",
    "String Property",
)  # fmt: skip

# Fields of the structures that tell one machine or firmware from another, by type and offset: width (0: a string).
SMBIOS_FIELDS: dict[int, dict[int, tuple[int, str]]] = {
    0: {4: (0, "Vendor"), 5: (0, "Version"), 6: (2, "Segment"), 8: (0, "Release Date"), 9: (1, "ROM Size"),
        0x0A: (8, "Characteristics"), 0x12: (2, "Extended Characteristics"), 0x14: (1, "Major Release"),
        0x15: (1, "Minor Release"), 0x16: (1, "EC Major Release"), 0x17: (1, "EC Minor Release")},
    1: {4: (0, "Manufacturer"), 5: (0, "Product Name"), 6: (0, "Version"), 7: (0, "Serial Number"), 8: (16, "UUID"),
        0x18: (1, "Wake-up Type"), 0x19: (0, "SKU Number"), 0x1A: (0, "Family")},
    2: {4: (0, "Manufacturer"), 5: (0, "Product Name"), 6: (0, "Version"), 7: (0, "Serial Number"), 8: (0, "Asset Tag"),
        9: (1, "Features"), 0x0A: (0, "Location"), 0x0B: (2, "Chassis Handle"), 0x0D: (1, "Type")},
    3: {4: (0, "Manufacturer"), 5: (1, "Type"), 6: (0, "Version"), 7: (0, "Serial Number"), 8: (0, "Asset Tag"),
        9: (1, "Boot-up State"), 0x0A: (1, "Power Supply State"), 0x0B: (1, "Thermal State"),
        0x0C: (1, "Security Status"), 0x0D: (4, "OEM Information")},
    4: {4: (0, "Socket"), 5: (1, "Type"), 6: (1, "Family"), 7: (0, "Manufacturer"), 8: (8, "ID"), 0x10: (0, "Version"),
        0x11: (1, "Voltage"), 0x12: (2, "External Clock"), 0x14: (2, "Max Speed"), 0x16: (2, "Current Speed"),
        0x18: (1, "Status"), 0x19: (1, "Upgrade"), 0x1A: (2, "L1 Handle"), 0x1C: (2, "L2 Handle"),
        0x1E: (2, "L3 Handle"), 0x20: (0, "Serial Number"), 0x21: (0, "Asset Tag"), 0x22: (0, "Part Number"),
        0x23: (1, "Core Count"), 0x24: (1, "Core Enabled"), 0x25: (1, "Thread Count"), 0x26: (2, "Characteristics"),
        0x28: (2, "Family 2")},
    7: {4: (0, "Socket"), 5: (2, "Configuration"), 7: (2, "Maximum Size"), 9: (2, "Installed Size"),
        0x0B: (2, "Supported SRAM"), 0x0D: (2, "Current SRAM"), 0x0F: (1, "Speed"), 0x10: (1, "Error Correction"),
        0x11: (1, "System Type"), 0x12: (1, "Associativity")},
    9: {4: (0, "Designation"), 5: (1, "Type"), 6: (1, "Data Bus Width"), 7: (1, "Current Usage"), 8: (1, "Length"),
        9: (2, "ID"), 0x0B: (1, "Characteristics 1"), 0x0C: (1, "Characteristics 2"), 0x0D: (2, "Segment"),
        0x0F: (1, "Bus"), 0x10: (1, "Device/Function")},
    16: {4: (1, "Location"), 5: (1, "Use"), 6: (1, "Error Correction"), 7: (4, "Maximum Capacity"),
         0x0B: (2, "Error Handle"), 0x0D: (2, "Number of Devices")},
    17: {4: (2, "Array Handle"), 6: (2, "Error Handle"), 8: (2, "Total Width"), 0x0A: (2, "Data Width"),
         0x0C: (2, "Size"), 0x0E: (1, "Form Factor"), 0x0F: (1, "Set"), 0x10: (0, "Locator"), 0x11: (0, "Bank Locator"),
         0x12: (1, "Type"), 0x13: (2, "Type Detail"), 0x15: (2, "Speed"), 0x17: (0, "Manufacturer"),
         0x18: (0, "Serial Number"), 0x19: (0, "Asset Tag"), 0x1A: (0, "Part Number"), 0x1B: (1, "Rank"),
         0x1C: (4, "Extended Size"), 0x20: (2, "Configured Speed"), 0x22: (2, "Minimum Voltage"),
         0x24: (2, "Maximum Voltage"), 0x26: (2, "Configured Voltage")},
}  # fmt: skip

# Offset and width of the FADT's fields (ACPI 6.5, table 5.9).
FADT = (
    (36, 4, "FIRMWARE_CTRL"), (40, 4, "DSDT"), (44, 1, "INT_MODEL"), (45, 1, "Preferred_PM_Profile"),
    (46, 2, "SCI_INT"),
    (48, 4, "SMI_CMD"), (52, 1, "ACPI_ENABLE"), (53, 1, "ACPI_DISABLE"), (54, 1, "S4BIOS_REQ"), (55, 1, "PSTATE_CNT"),
    (56, 4, "PM1a_EVT_BLK"), (60, 4, "PM1b_EVT_BLK"), (64, 4, "PM1a_CNT_BLK"), (68, 4, "PM1b_CNT_BLK"),
    (72, 4, "PM2_CNT_BLK"), (76, 4, "PM_TMR_BLK"), (80, 4, "GPE0_BLK"), (84, 4, "GPE1_BLK"), (88, 1, "PM1_EVT_LEN"),
    (89, 1, "PM1_CNT_LEN"), (90, 1, "PM2_CNT_LEN"), (91, 1, "PM_TMR_LEN"), (92, 1, "GPE0_BLK_LEN"),
    (93, 1, "GPE1_BLK_LEN"), (94, 1, "GPE1_BASE"), (95, 1, "CST_CNT"), (96, 2, "P_LVL2_LAT"), (98, 2, "P_LVL3_LAT"),
    (100, 2, "FLUSH_SIZE"), (102, 2, "FLUSH_STRIDE"), (104, 1, "DUTY_OFFSET"), (105, 1, "DUTY_WIDTH"),
    (106, 1, "DAY_ALRM"), (107, 1, "MON_ALRM"), (108, 1, "CENTURY"), (109, 2, "IAPC_BOOT_ARCH"), (112, 4, "Flags"),
    (116, 12, "RESET_REG"), (128, 1, "RESET_VALUE"), (129, 2, "ARM_BOOT_ARCH"), (131, 1, "FADT Minor Version"),
    (132, 8, "X_FIRMWARE_CTRL"), (140, 8, "X_DSDT"), (148, 12, "X_PM1a_EVT_BLK"), (160, 12, "X_PM1b_EVT_BLK"),
    (172, 12, "X_PM1a_CNT_BLK"), (184, 12, "X_PM1b_CNT_BLK"), (196, 12, "X_PM2_CNT_BLK"), (208, 12, "X_PM_TMR_BLK"),
    (220, 12, "X_GPE0_BLK"), (232, 12, "X_GPE1_BLK"), (244, 12, "SLEEP_CONTROL_REG"), (256, 12, "SLEEP_STATUS_REG"),
    (268, 8, "Hypervisor Vendor Identity"),
)  # fmt: skip
TABLE_HEADER = ((0, 4, "Signature"), (4, 4, "Length"), (8, 1, "Revision"), (9, 1, "Checksum"), (10, 6, "OEM ID"),
                (16, 8, "OEM Table ID"), (24, 4, "OEM Revision"), (28, 4, "Creator ID"), (32, 4, "Creator Revision"))
TABLE_TEXTS = ("OEM ID", "OEM Table ID", "Creator ID")

CPUID = {
    0x00: "Maximum leaf and vendor", 0x01: "Version and features", 0x02: "Cache and TLB descriptors",
    0x03: "Processor serial number", 0x04: "Cache parameters", 0x05: "MONITOR/MWAIT", 0x06: "Thermal and power",
    0x07: "Extended features", 0x09: "Direct cache access", 0x0A: "Performance monitoring", 0x0B: "Extended topology",
    0x0D: "Extended state", 0x0F: "Resource monitoring", 0x10: "Resource allocation", 0x12: "SGX",
    0x14: "Processor trace", 0x15: "TSC and crystal clock", 0x16: "Frequencies", 0x17: "SoC vendor",
    0x18: "Address translation", 0x19: "Key Locker", 0x1A: "Hybrid information", 0x1F: "Extended topology V2",
    0x80000000: "Maximum extended leaf", 0x80000001: "Extended features", 0x80000002: "Brand string 1",
    0x80000003: "Brand string 2", 0x80000004: "Brand string 3", 0x80000005: "L1 cache and TLB",
    0x80000006: "L2 and L3 cache", 0x80000007: "Power management", 0x80000008: "Address sizes", 0x8000000A: "SVM",
    0x80000019: "TLB 1G pages", 0x8000001A: "Performance optimisation", 0x8000001B: "IBS",
    0x8000001D: "Cache properties", 0x8000001E: "Topology", 0x8000001F: "Memory encryption",
    0x80000020: "Resource enforcement", 0x80000021: "Extended features 2",
    0x80000022: "Extended performance monitoring",
}  # fmt: skip

# DDR4 (JEDEC 21-C annex L); the first three and the type are those of any module.
SPD = (
    (0x00, 1, "Bytes Used"), (0x01, 1, "SPD Revision"), (0x02, 1, "DRAM Device Type"), (0x03, 1, "Module Type"),
    (0x04, 1, "Density and Banks"), (0x05, 1, "Addressing"), (0x06, 1, "Package Type"), (0x0B, 1, "Nominal Voltage"),
    (0x0C, 1, "Module Organization"), (0x0D, 1, "Bus Width"), (0x11, 1, "Timebases"), (0x12, 1, "tCKAVGmin"),
    (0x13, 1, "tCKAVGmax"), (0x14, 4, "CAS Latencies"), (0x18, 1, "tAAmin"), (0x19, 1, "tRCDmin"), (0x1A, 1, "tRPmin"),
    (0x7E, 2, "CRC of Base Configuration"), (0xFE, 2, "CRC of Module Section"), (0x140, 2, "Module Manufacturer"),
    (0x142, 1, "Manufacturing Location"), (0x143, 2, "Manufacturing Date"), (0x145, 4, "Serial Number"),
    (0x149, 20, "Part Number"), (0x15D, 1, "Module Revision"), (0x15E, 2, "DRAM Manufacturer"),
)  # fmt: skip


def cmos_name(index: int) -> str:
    return CMOS.get(index, f"CMOS {index:02x}")


def port_name(port: int) -> str:
    return next((name for first, last, name in PORTS if first <= port <= last), f"Port {port:x}")


def superio_name(register: int) -> str:
    return SUPERIO.get(register, f"Register {register:02x}")


def smbios_name(kind: int) -> str:
    if kind in (126, 127):
        return "Inactive" if kind == 126 else "End of Table"
    if kind < len(SMBIOS):
        return SMBIOS[kind]
    return "OEM-specific" if kind >= 128 else f"Type {kind}"


def cpuid_name(leaf: int) -> str:
    if 0x40000000 <= leaf < 0x40000100:
        return "Hypervisor"
    return CPUID.get(leaf, f"Leaf {leaf:x}")


def _field(rows: tuple[tuple[int, int, str], ...], offset: int, plain: str) -> tuple[int, int, str]:
    for start, width, name in rows:
        if start <= offset < start + width:
            return start, width, name
    return offset, 1, f"{plain} {offset:02x}"


def table_field(signature: str, offset: int) -> tuple[int, int, str]:
    """(offset, width, name) of an ACPI table's field that has the byte at an offset."""
    if signature in ("RSD PTR ", "FACS"):
        return offset, 1, f"Byte {offset:x}"
    return _field(TABLE_HEADER + (FADT if signature == "FACP" else ()), offset, "Byte")


def spd_field(offset: int) -> tuple[int, int, str]:
    return _field(SPD, offset, "Byte")
