"""Small made-up dumps of one machine, as the tools write them."""


def little(value, width):
    return value.to_bytes(width, "little")


def rows(data, digits=2, start=0):
    return "".join(f"{start + at:0{digits}x}: {data[at:at + 16].hex(' ')}\n" for at in range(0, len(data), 16))


def configuration(vendor, device, kind, size=256, **registers):
    """Configuration space; registers are named x40=bytes."""
    data = bytearray(size)
    data[0:4] = little(vendor, 2) + little(device, 2)
    data[8:12] = bytes([2, 0]) + little(kind, 2)
    for name, value in registers.items():
        at = int(name[1:], 16)
        data[at:at + len(value)] = value
    return bytes(data)


# With PCI Express at 40h, MSI behind it, and advanced error reporting.
CARD = configuration(0x8086, 0x1533, 0x0200, 4096, x04=b"\x07\x00\x10\x00", x10=little(0xF7000000, 4), x34=b"\x40",
                     x40=b"\x10\x70\x02\x00", x50=b"\x42\x00\x11\x30", x70=b"\x05\x00\x80\x00", xe0=b"\x11\x22",
                     x100=little(0x14010001, 4), x140=little(0x00010003, 4), x144=b"\x01\x02\x03\x04")  # fmt: skip
FUNCTIONS = {
    "00:00.0": configuration(0x8086, 0x29C0, 0x0600, x04=b"\x06\x00\x90\x20", x60=little(0xB0000001, 8)),
    "00:1f.3": configuration(0x8086, 0x2930, 0x0C05, x04=b"\x01\x00\x80\x02", x20=little(0xEFA1, 4), x40=b"\x01"),
    "03:00.0": CARD,
}


def lspci(functions=None, size=4096):
    text = ""
    for place, data in (functions or FUNCTIONS).items():
        text += f"{place} Some device: Acme (rev 02)\n\tControl: I/O+ Mem+\n" + rows(data[:size]) + "\n"
    return text


def structure(kind, handle, body, *strings):
    text = b"".join(string.encode() + b"\0" for string in strings) or b"\0"
    return bytes([kind, 4 + len(body)]) + little(handle, 2) + body + text + b"\0"


def smbios_table(version="1.01", serial="12345"):
    return (structure(0, 0, b"\x01\x02\x00\xf0\x03\xff" + bytes(8) + bytes(4), "Acme BIOS", version, "11/22/2026")
            + structure(1, 1, b"\x01\x02\x03\x04" + bytes(range(16)) + b"\x06\x00\x00", "Acme", "Board", "A", serial)
            + structure(127, 2, b""))  # fmt: skip


def entry_point(table, address=32, kind="_SM_"):
    if kind == "_SM3_":
        entry = bytearray(b"_SM3_\0\x18\x03\x02\x00\x01\0" + little(len(table), 4) + little(address, 8))
        entry[5] = -sum(entry) & 0xFF
        return bytes(entry)
    middle = bytearray(b"_DMI_\0" + little(len(table), 2) + little(address, 4) + little(3, 2) + b"\x28")
    middle[5] = -sum(middle) & 0xFF
    entry = bytearray(b"_SM_\0\x1f\x02\x08" + little(200, 2) + b"\0" + bytes(5) + middle)
    entry[4] = -sum(entry) & 0xFF
    return bytes(entry)


def dmi(kind="_SM_", **changes):
    table = smbios_table(**changes)
    return entry_point(table, kind=kind).ljust(32, b"\0") + table


def acpi_table(signature, body, revision=1):
    data = bytearray(signature.encode() + little(36 + len(body), 4) + bytes([revision, 0]) + b"ACME  BOARD01 "
                     + little(1, 4) + b"ACME" + little(1, 4) + body)  # fmt: skip
    data[9] = -sum(data) & 0xFF
    return bytes(data)


PLACES = {"FACP": 0x7FFE0000, "DSDT": 0x7FFE1000, "FACS": 0x7FFE2000, "MCFG": 0x7FFE3000, "XSDT": 0x7FFE4000}


def acpi_tables(oem=0):
    """(name, address, bytes) as firmware lays them out."""
    facs = b"FACS" + little(64, 4) + bytes(56)
    fadt = bytearray(208)
    fadt[0:8] = little(PLACES["FACS"], 4) + little(PLACES["DSDT"], 4)
    fadt[10:12] = little(9, 2)
    fadt[20:24] = little(0x600, 4)
    mcfg = bytes(8) + little(0xB0000000, 8) + little(0, 2) + b"\x00\xff" + bytes(4)
    xsdt = little(PLACES["FACP"], 8) + little(PLACES["MCFG"], 8)
    root = bytearray(b"RSD PTR \0ACME  \x02" + bytes(4) + little(36, 4) + little(PLACES["XSDT"], 8) + bytes(4))
    root[8] = -sum(root[:20]) & 0xFF
    root[32] = -sum(root) & 0xFF
    bodies = {"FACP": acpi_table("FACP", bytes(fadt), 3), "DSDT": acpi_table("DSDT", bytes([oem]) + bytes(range(200))),
              "FACS": facs, "MCFG": acpi_table("MCFG", mcfg), "XSDT": acpi_table("XSDT", xsdt)}  # fmt: skip
    return [(name, PLACES[name], data) for name, data in bodies.items()] + [("RSDP", 0xF0400, bytes(root))]


def acpidump(tables=None, style="{name} @ 0x{address:016X}", places=True):
    text = ""
    for name, address, data in tables or acpi_tables():
        text += style.format(name=name, address=address if places else 0) + "\n"
        for at in range(0, len(data), 16):
            shape = "".join(chr(byte) if 0x20 <= byte < 0x7F else "." for byte in data[at:at + 16])
            text += f"    {at:04X}: {data[at:at + 16].hex(' ').upper():47}  {shape}\n"
        text += "\n"
    return text


def cpuid_text(cpus=2):
    text = ""
    for cpu in range(cpus):
        text += (f"CPU {cpu}:\n   0x00000000 0x00: eax=0x00000001 ebx=0x756e6547 ecx=0x6c65746e edx=0x49656e69\n"
                 f"   0x00000001 0x00: eax=0x000906ea ebx=0x{cpu:02x}100800 ecx=0x7ffafbbf edx=0xbfebfbff\n")
    return text


MSRS = "0x1b 0xfee00900\n0x3a 0x5\n0x8b 0xca00000000\n"
SUPERIO = """superiotool r4.0
Found ITE IT8728F (id=0x8728, rev=0x1) at 0x2e
Register dump:
idx 20 21 22 23
val 87 28 01 00
def 87 28 01 00
LDN 0x01 (COM1)
idx 30 60 61 70
val 01 03 f8 ??
def 00 03 f8 04
"""
SPD = bytes([0x23, 0x11, 0x0C, 0x02]) + bytes(0x149 - 4) + b"MODULE 8G           " + bytes(512 - 0x149 - 20)
CMOS = bytes(range(128)) + bytes(128)


def everything():
    """Name of the file, contents, and the option, of every dump."""
    return [("lspci.txt", lspci().encode(), "--lspci"), ("dmi.bin", dmi(), "--dmi"),
            ("acpi.txt", acpidump().encode(), "--acpi"), ("cpuid.txt", cpuid_text().encode(), "--cpuid"),
            ("msr.txt", MSRS.encode(), "--msr"), ("superio.txt", SUPERIO.encode(), "--superio"),
            ("spd.bin", SPD, "--spd"), ("cmos.bin", CMOS, "--cmos")]  # fmt: skip


def import_words(files):
    return [word for name, _, option in files for word in (option, f"a0={name}" if option == "--spd" else name)]
