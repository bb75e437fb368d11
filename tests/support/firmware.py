"""Tables as firmware lays them out in memory, for boards: SMBIOS (DMTF DSP0134) and ACPI 6.4.

A memory image is a list of pieces (address, bytes); `board_lines` puts it on a board:

    memory = smbios3(0x7A5BF000, 0x7A5BD000, table(system(1, "Maker", "Product"), end(2)))
    run("/SMBIOS", extra=[*board_lines(memory), 'systab sys "SMBIOS3=0x7a5bf000"'])

Run as a program it writes the firmware of the boards that have one, boards/firmware/*.board.
"""

import pathlib
import struct

BOARD_FIRMWARE = pathlib.Path(__file__).resolve().parents[2] / "sim" / "boards" / "firmware"


def board_lines(memory):
    """The pieces as lines of a board file, later ones over earlier ones."""
    return [line for address, data in memory for line in bytes_lines(address, data, 256)]


def bytes_lines(address, data, width):
    return [f"bytes {address + i:08x} {data[i:i + width].hex(' ')}" for i in range(0, len(data), width)]


def checked(data, at, first=0, last=None):
    """The same with the byte at `at` chosen so that the bytes from first to last add up to zero."""
    data = bytearray(data)
    data[at] = 0
    data[at] = -sum(data[first:last]) & 0xFF
    return bytes(data)


# ---- SMBIOS structures (DSP0134 3.2, 7) -----------------------------------------------------------------------------


def structure(kind, handle, body=b"", strings=()):
    """Header, formatted part, strings: each with its NUL, one NUL more behind them, two when there are none."""
    texts = b"".join(text.encode("latin-1") + b"\0" for text in strings) or b"\0"
    return struct.pack("<BBH", kind, 4 + len(body), handle) + body + texts + b"\0"


def table(*structures):
    return b"".join(structures)


def end(handle=0xFEFF):
    return structure(127, handle)


def bios(handle, maker, version, date):
    body = struct.pack("<BBHBBQHBBBBH", 1, 2, 0xF000, 3, 0xFF, 0x0B98B9880, 0x0D03, 5, 17, 255, 255, 16)
    return structure(0, handle, body, (maker, version, date))


def system(handle, maker, product, version="1.0", serial="SN0001"):
    body = bytes([1, 2, 3, 4]) + bytes(range(0x10, 0x20)) + bytes([6, 0, 0])
    return structure(1, handle, body, (maker, product, version, serial))


def baseboard(handle, chassis, maker, product):
    return structure(2, handle, bytes([1, 2, 0, 0, 0, 9, 0]) + struct.pack("<HBB", chassis, 10, 0), (maker, product))


def enclosure(handle, maker):
    return structure(3, handle, struct.pack("<BBBBBBBBBIBBBBB", 1, 3, 0, 0, 0, 3, 3, 3, 3, 0, 0, 1, 0, 3, 0), (maker,))


def processor(handle, socket, maker, version, clock=100, maximum=4900, current=3600, cores=8, threads=16):
    body = struct.pack("<BBBBQBBHHHBB", 1, 3, 0xC6, 2, 0xBFEBFBFF000906EC, 3, 0x8B, clock, maximum, current, 0x41, 0x36)
    body += struct.pack("<HHHBBBBBBH", 0x0A, 0x0B, 0x0C, 0, 0, 0, cores, cores, threads, 0x00FC)
    body += struct.pack("<HHHH", 0xC6, cores, cores, threads)
    return structure(4, handle, body, (socket, maker, version))


def cache(handle, name, level, kilobytes):
    body = struct.pack("<BHHHHHBBBB", 1, 0x180 | (level - 1), kilobytes, kilobytes, 0x20, 0x20, 0, 5, 5, 7)
    return structure(7, handle, body + struct.pack("<II", kilobytes, kilobytes), (name,))


def slot(handle, name, bus, place):
    return structure(9, handle, struct.pack("<BBBBBHBBHBB", 1, 0xA5, 13, 4, 3, 1, 0x0C, 1, 0, bus, place), (name,))


def oem_strings(handle, *texts):
    return structure(11, handle, bytes([len(texts)]), texts)


def memory_array(handle, gigabytes, devices):
    return structure(16, handle, struct.pack("<BBBIHHQ", 3, 3, 3, gigabytes << 20, 0xFFFE, devices, 0))


def memory_device(handle, array, socket, bank, megabytes, maker="", part=""):
    """An empty socket has 0 megabytes."""
    names = [socket, bank] + ([maker, "00000001", part] if megabytes else [])
    numbers = (3, 4, 5) if megabytes else (0, 0, 0)
    speed = 2666 if megabytes else 0
    body = struct.pack("<HHHHHBBBBBHHBBBB", array, 0xFFFE, 64, 64, megabytes, 9, 0, 1, 2, 0x1A, 0x80, speed,
                       numbers[0], numbers[1], 0, numbers[2])
    return structure(17, handle, body + struct.pack("<BIHHHH", 1, 0, speed, 1200, 1200, 1200), names)


def memory_map(handle, array, kilobytes):
    return structure(19, handle, struct.pack("<IIHBQQ", 0, kilobytes - 1, array, 2, 0, 0))


def boot_status(handle):
    return structure(32, handle, bytes(16))


# ---- SMBIOS entry points (DSP0134 3.2, 5.2.1 and 5.2.2) -------------------------------------------------------------


def entry32(address, length, version=(2, 8), count=10):
    """"_SM_", with "_DMI_" at 10h."""
    first = struct.pack("<4sBBBBHB5s", b"_SM_", 0, 0x1F, *version, 0x60, 0, bytes(5))
    second = struct.pack("<5sBHIHB", b"_DMI_", 0, length, address, count, version[0] << 4 | version[1])
    return checked(first + checked(second, 5), 4)


def entry64(address, length, version=(3, 2)):
    """"_SM3_"."""
    return checked(struct.pack("<5sBBBBBBBIQ", b"_SM3_", 0, 24, *version, 0, 1, 0, length, address), 5)


def smbios2(entry, at, structures, version=(2, 8)):
    """Entry point and table in memory."""
    return [(at, structures), (entry, entry32(at, len(structures), version))]


def smbios3(entry, at, structures, version=(3, 2)):
    return [(at, structures), (entry, entry64(at, len(structures), version))]


# ---- ACPI (ACPI 6.4, 5.2) -------------------------------------------------------------------------------------------


def rsdp(rsdt, xsdt=0, revision=2):
    """The root pointer: 20 bytes of ACPI 1.0, 36 with the XSDT of later revisions."""
    first = checked(struct.pack("<8sB6sBI", b"RSD PTR ", 0, b"SIMULA", revision, rsdt), 8)
    return first if revision == 0 else checked(first + struct.pack("<IQBxxx", 36, xsdt, 0), 32)


def sdt(signature, body, revision=1, length=None):
    """A description table; with another length than its own for tables that lie."""
    size = 36 + len(body) if length is None else length
    header = struct.pack("<4sIBB6s8sI4sI", signature, size, revision, 0, b"SIMULA", b"SIMBOARD", 1, b"SIM ", 1)
    return checked(header + body, 9)


def rsdt(addresses, length=None):
    return sdt(b"RSDT", b"".join(struct.pack("<I", address) for address in addresses), 1, length)


def xsdt(addresses, length=None):
    return sdt(b"XSDT", b"".join(struct.pack("<Q", address) for address in addresses), 1, length)


def fadt(event_block, reset_register=0xCF9, reset_value=0x06, length=276):
    body = bytearray(length - 36)
    struct.pack_into("<H", body, 0x2E - 36, 9)  # SCI interrupt
    struct.pack_into("<I", body, 0x38 - 36, event_block)
    struct.pack_into("<I", body, 0x40 - 36, event_block + 4)  # PM1a control
    struct.pack_into("<BB", body, 0x58 - 36, 4, 2)
    if length > 0x80:
        struct.pack_into("<I", body, 0x70 - 36, 0x000005A5)  # with a reset register
        struct.pack_into("<BBBBQB", body, 0x74 - 36, 1, 8, 0, 1, reset_register, reset_value)
    return sdt(b"FACP", bytes(body), 5)


def acpi(root, tables_at, tables, revision=2):
    """A root pointer and, from an address on, RSDT, XSDT (not in revision 0) and the tables, each on 16 bytes."""
    places = []
    at = tables_at + 0x200
    for data in tables:
        places.append((at, data))
        at += (len(data) + 15) // 16 * 16
    addresses = [address for address, _ in places]
    memory = [(tables_at, rsdt(addresses))]
    if revision:
        memory.append((tables_at + 0x100, xsdt(addresses)))
    return [*memory, *places, (root, rsdp(tables_at, tables_at + 0x100, revision))]


# ---- the firmware of the boards -------------------------------------------------------------------------------------

DIMM = "SIM4R08G-2666"


def desktop(maker, version, date, product, cpu, slots):
    """What the firmware of a desktop machine tells: with empty sockets, and caches behind the processor."""
    dimms = [memory_device(0x41 + i, 0x40, f"DIMM_{name}", f"BANK {i}", 8192 * (i % 2), "Memory Works", f"{DIMM}-{i}")
             for i, name in enumerate(("A1", "A2", "B1", "B2"))]
    return [
        bios(0x00, maker, version, date),
        system(0x01, "Simulated Systems", product),
        baseboard(0x02, 0x03, "Simulated Systems", product),
        enclosure(0x03, "Simulated Systems"),
        cache(0x0A, "L1 Cache", 1, 512),
        cache(0x0B, "L2 Cache", 2, 2048),
        cache(0x0C, "L3 Cache", 3, 16384),
        cpu,
        *[slot(0x20 + i, name, bus, place) for i, (name, bus, place) in enumerate(slots)],
        oem_strings(0x30, "Nothing here is at risk"),
        memory_array(0x40, 64, 4),
        *dimms,
        memory_map(0x50, 0x40, 16 << 20),
        boot_status(0x60),
        end(0x7F),
    ]


INTEL_STRUCTURES = desktop(
    "Simulated Firmware", "F1.00", "02/03/2024", "Desktop I-8",
    processor(0x0D, "U3E1", "Intel(R) Corporation", "Simulated processor @ 3.60GHz"),
    [("M2A", 1, 0x00), ("PCIEX1_1", 2, 0x00), ("PCIEX4", 3, 0x00)])
AMD_STRUCTURES = desktop(
    "Simulated Firmware", "A1.00", "02/03/2024", "Desktop A-8",
    processor(0x0D, "AM4", "Advanced Micro Devices, Inc.", "Simulated processor", 100, 4400, 3600),
    [("M2_1", 1, 0x00), ("PCIEX16_1", 2, 0x00)])

# UEFI with a legacy root pointer: the table's address comes from the system table file, the 64-bit entry point first.
INTEL_SYSTAB = ["ACPI20=0x7a2fe014", "ACPI=0x7a2fe000", "SMBIOS3=0x7a5bf000", "SMBIOS=0x7a5c0000"]
INTEL_TABLE = 0x7A5BD000
INTEL_ROOT = 0xF5A00
# A legacy BIOS: entry point and root pointer in the F-segment, no system table file.
AMD_ENTRY = 0xFC5E0
AMD_TABLE = 0x7EB70000
AMD_ROOT = 0xF5A10


def other_tables():
    """What stands beside the FADT: local APICs of eight CPUs, the configuration window."""
    cpus = b"".join(struct.pack("<BBBBI", 0, 8, i, i, 1) for i in range(8))
    return [sdt(b"APIC", struct.pack("<II", 0xFEE00000, 1) + cpus, 3),
            sdt(b"MCFG", bytes(8) + struct.pack("<QHBBI", 0xE0000000, 0, 0, 0xFF, 0))]


def intel_memory():
    structures = table(*INTEL_STRUCTURES)
    return [
        *smbios3(0x7A5BF000, INTEL_TABLE, structures),
        (0x7A5C0000, entry32(INTEL_TABLE, len(structures), count=len(INTEL_STRUCTURES))),
        *acpi(INTEL_ROOT, 0x7A2FE0A8, [*other_tables(), fadt(0x1800)]),
    ]


def amd_memory():
    return [
        *smbios2(AMD_ENTRY, AMD_TABLE, table(*AMD_STRUCTURES)),
        *acpi(AMD_ROOT, 0x7EDF9028, [fadt(0x800, length=244), *other_tables()]),
    ]


def board_text(title, systab, memory):
    lines = [f"# {title} Made by tests/support/firmware.py."]
    lines += [f'systab sys "{line}"' for line in systab]
    for address, data in memory:
        lines += ["", *bytes_lines(address, data, 32)]
    return "\n".join(lines) + "\n"


def board_texts():
    return {
        "intel.board": board_text("UEFI firmware of the Intel board.", INTEL_SYSTAB, intel_memory()),
        "amd.board": board_text("Legacy BIOS of the AMD board.", [], amd_memory()),
    }


if __name__ == "__main__":
    BOARD_FIRMWARE.mkdir(exist_ok=True)
    for name, text in board_texts().items():
        (BOARD_FIRMWARE / name).write_text(text)
