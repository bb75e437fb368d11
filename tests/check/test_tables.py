"""Whether the commands find firmware's tables, and of which kind the memory modules are."""

import re
import struct

import pytest

from kernel import holds, quoted, table

DMI = "/sys/firmware/dmi/tables/DMI"
ENTRY = "/sys/firmware/dmi/tables/smbios_entry_point"
DDR4, DDR5, LPDDR4, DDR3 = 0x1A, 0x22, 0x1E, 0x18
END = bytes([127, 4, 0xFF, 0xFE, 0, 0])


def module(kind, size=8192):
    """A structure of type 17 (DMTF DSP0134, 7.18)."""
    head = struct.pack("<BBHHHHHHBBBBB", 17, 0x54, 0x1100, 0, 0xFFFE, 64, 64, size, 9, 0, 0, 0, kind)
    return head + bytes(0x54 - len(head)) + b"\0\0"


@pytest.mark.parametrize("data, state, text", [
    (module(DDR4) + END, "good", "memory is DDR4"),
    (module(DDR4) * 6 + module(DDR4, size=0) * 2 + END, "good", "memory is DDR4"),
    (module(DDR4) * 8 + END, "caution", "8 modules of DDR4: those at ACh and AEh"),
    (module(DDR3) + END, "good", "DDR3"),
    (module(DDR5) + END, "caution", "memory is DDR5: its SPD is not in two pages"),
    (module(LPDDR4) + END, "caution", "LPDDR4"),
    (module(0x77) + END, "unknown", "not told"),
    (module(DDR4, size=0) + END, "unknown", "not told"),
    (module(DDR4)[:0x11], "unknown", "not told"),
    (module(DDR4)[:0x31], "good", "DDR4"),
    (b"\x11\0" * 50, "unknown", "not told"),
    (b"\x11", "unknown", "not told"),
    (bytes(4096), "unknown", "not told"),
    (b"\xff" * 65536, "unknown", "not told"),
], ids=range(14))  # fmt: skip
def test_the_kind_of_memory(found, data, state, text):
    told = found(*table(DMI, data))["spd"]
    holds({"spd": told}, {"spd": (state, text, "ee1004" if state == "caution" else "")})


def test_without_the_kernels_table_the_one_in_memory_tells(found):
    assert found()["spd"][0] == "good"
    assert found("mem EACCES")["spd"][:2] == (
        "unknown", "of what kind the memory modules are is not told (the SMBIOS table cannot be read)")


def entry64(address, length):
    return b"_SM3_" + bytes([0, 24, 3, 3, 0, 1, 0]) + struct.pack("<IQ", length, address)


def entry32(address, length):
    return b"_SM_" + bytes(18) + struct.pack("<HI", length, address) + bytes(3)


TABLE = module(DDR4) + END


@pytest.mark.parametrize("extra, state, text", [
    ([], "good", "at 7eb70000h"),
    (table(ENTRY, entry32(0x7EB70000, 0x383)), "good", "at 7eb70000h"),
    ([*table(ENTRY, entry32(0x7EB70000, 0x383)), *quoted("/proc/iomem", "10000000-1fffffff : Reserved")], "good",
     "at 7eb70000h"),
    ([*table(ENTRY, entry64(0x7EB70001, 0x10383)), *quoted("/proc/iomem", "10000000-1fffffff : Reserved")], "bad",
     "something else in that place"),
    (["text f0010 \"_SM3_ is looked for\""], "bad", "which it is not"),
    (["refuse 7eb70000 1000 EPERM"], "bad", "not granted; see io-strict-devmem"),
    (["refuse 7eb70000 1000 EAGAIN"], "bad", "not granted; see pat"),
    (["fill 7eb70000 100 ff"], "bad", "which it is not"),
    (table(DMI, b"other bytes"), "bad", "which it is not"),
    (quoted("/proc/iomem", "7eb00000-7ebfffff : Reserved"), "good", "at 7eb70000h"),
    (quoted("/proc/iomem", "7eb00000-7ebfffff : PCI Bus 0000:00", "  7eb70000-7eb7ffff : 0000:00:02.0"), "bad",
     "something else in that place"),
    (quoted("/proc/iomem", "10000000-1fffffff : Reserved"), "bad", "something else in that place"),
    (['systab sys "SMBIOS=0x1234"'], "bad", "which it is not|not granted"),
    (['systab sys "ACPI20=0x1234"'], "bad", "find no SMBIOS table"),
    (["mem EACCES"], "bad", "see dev-mem"),
], ids=range(15))  # fmt: skip
def test_smbios(found, extra, state, text):
    told = found(*extra, board="amd")["smbios"]
    assert told[0] == state and re.search(text, told[1]), told
    assert bool(told[2]) == (state != "good")


def test_a_table_that_begins_behind_a_border(found):
    """The legacy way copies from a border of 64 KiB on."""
    address = 0x7EB70100
    point = entry32(address, 64)
    extra = ["fill f0000 10000 ff", f"bytes f0000 {point.hex(' ')}", "bytes f0010 5f 44 4d 49 5f",
             *table(ENTRY, point), *table(DMI, TABLE)]
    told = found(*extra, board="amd")["smbios"]
    assert told[0] == "bad" and "at 7eb70000h" in told[1] and "border of 64 KiB" in told[1]


@pytest.mark.parametrize("extra, state, text", [
    ([], "good", "at f5a10h"),
    (['text f0010 "RSD PTR is looked for"'], "bad", "text at f0010h"),
    (["fill f0000 10000 ff"], "bad", "no ACPI root pointer in F0000h-FFFFFh, where /ACPI and /RTC look$"),
    (["fill f0000 10000 ff", *quoted("/sys/firmware/acpi/tables/FACP", "FACP")], "bad", "UEFI firmware has put it"),
    (["refuse f0000 1000 EPERM"], "bad", "below 1 MiB is not granted"),
], ids=range(5))  # fmt: skip
def test_the_root_pointer(found, extra, state, text):
    told = found(*extra, board="amd")["rsdp"]
    assert told[0] == state and re.search(text, told[1]), told
