"""/SMBIOS on real firmware, compared with dmidecode, with the kernel's copy of the table, and with the rules applied to
what dd reads."""

import re
import struct

import pytest

import tables
from boots import PC, Q35, TABLES_NOPAT, TABLES_STOCK
from firmware_model import Memory, legacy_entry, smbios, table_copy, walk

UEFI = {"stock": TABLES_STOCK, "nopat": TABLES_NOPAT}
LEGACY = {"q35": Q35, "pc": PC}
PAM0 = {"q35": "90", "pc": "59"}

tables.put_probe(TABLES_STOCK, TABLES_NOPAT)


def ask_uefi(words, **options):
    return {name: boot.ask(words, **options) for name, boot in UEFI.items()}


# What the kernel says when a page is to be mapped in another way than it does itself.
BEFORE = ask_uefi("dmesg -c >/dev/null")
LISTING = ask_uefi(["hwreg", "/SMBIOS", "/LOG", "/TEXT"])
REFUSALS = ask_uefi("dmesg | grep -c 'map pfn expected mapping type uncached-minus'")
RAW = ask_uefi(["hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"])
KERNELS = ask_uefi("cat /sys/firmware/dmi/tables/DMI")
DMIDECODE = ask_uefi("dmidecode")
SYSTAB = ask_uefi("cat /sys/firmware/efi/systab")
TYPES = (0, 1, 2, 3, 4, 11, 16, 17, 19, 32, 127)
OF_TYPE = {kind: ask_uefi(["hwreg", "/SMBIOS", "/TYPE", str(kind), "/TEXT"]) for kind in (*TYPES, 126)}
TEXTS = ["System Works", "system works", "first free text", "second free text", "SECOND FREE TEXT", "DIMM 0",
         "MEM-0017", "PART-17"]
SEARCH = {text: ask_uefi(["hwreg", "/SMBIOS", "/S", text]) for text in TEXTS}
MISSED = ask_uefi(["hwreg", "/SMBIOS", "/S", "No such Text"])
SPEEDS = ask_uefi(tables.PROBE)
DMIDECODE_CPU = ask_uefi("dmidecode -t 4")

# A standard input that stays open and silent: a view that waits for a key does not come back.
SILENT = ("rm -f /tmp/silent; mkfifo /tmp/silent; sleep 60 >/tmp/silent & "
          "timeout {} hwreg /SMBIOS /TEXT {} </tmp/silent; echo \"status $?\"; kill $!")
UNPAUSED = ask_uefi(SILENT.format(15, "/TYPE 17"))
PAUSED = TABLES_STOCK.ask(SILENT.format(2, ""))


@pytest.fixture(params=UEFI)
def boot(request):
    return request.param


def kernels_table(boot):
    return KERNELS[boot].stdout.encode("latin-1")


def listed(text):
    """Type, length, handle and bytes of each structure of a listing."""
    parts = re.split(r"^SMBIOS Type:(\d{3}), Length:(\d{3}), Handle:(\d{3,})\n", text, flags=re.MULTILINE)
    assert parts[0] == ""
    return [((int(kind), int(length), int(handle)), tables.bytes_of_view(view))
            for kind, length, handle, view in zip(*[iter(parts[1:])] * 4)]


def test_the_kernel_refuses_the_uncached_map_of_the_table_unless_told_not_to():
    assert int(REFUSALS["stock"].stdout) > 0
    assert int(REFUSALS["nopat"].stdout) == 0


def test_the_system_table_file_names_one_entry_point_or_both():
    assert re.search(r"^SMBIOS3=0x\w+\nSMBIOS=0x\w+$", SYSTAB["stock"].stdout, re.MULTILINE)
    assert re.search(r"^SMBIOS=0x\w+$", SYSTAB["nopat"].stdout, re.MULTILINE)
    assert "SMBIOS3" not in SYSTAB["nopat"].stdout


def test_the_listing_is_the_kernels_table_byte_for_byte(boot):
    expected = list(walk(kernels_table(boot)))
    assert listed(LISTING[boot].stdout) == expected
    assert (LISTING[boot].ending, LISTING[boot].stderr) == ("exit 0", "")
    assert {kind for (kind, _, _), _ in expected} >= {0, 1, 2, 3, 4, 11, 16, 17}


def test_the_listing_prints_nothing_else(boot):
    assert LISTING[boot].stdout == smbios(kernels_table(boot))[0]


def test_types_lengths_and_handles_are_those_of_dmidecode(boot):
    found = re.findall(r"^Handle 0x([0-9A-F]{4}), DMI type (\d+), (\d+) bytes", DMIDECODE[boot].stdout, re.MULTILINE)
    expected = [(int(kind), int(length), int(handle, 16)) for handle, kind, length in found]
    assert [header for header, _ in listed(LISTING[boot].stdout)] == [header for header in expected if header[0] != 127]
    assert len(expected) > 10


def test_the_raw_dump_is_the_kernels_table(boot):
    assert RAW[boot].stdout == smbios(kernels_table(boot), "/DUMP")[0]


@pytest.mark.parametrize("kind", OF_TYPE)
def test_the_structures_of_a_type_are_those_of_the_kernels_table(boot, kind):
    answer = OF_TYPE[kind][boot]
    assert answer.stdout == smbios(kernels_table(boot), "/TYPE", str(kind))[0]
    assert (answer.ending, answer.stdout == "") == ("exit 0", kind == 126)


def test_the_structures_of_a_type_are_shown_without_a_pause(boot):
    assert UNPAUSED[boot].stdout == OF_TYPE[17][boot].stdout + "status 0\n"
    assert UNPAUSED[boot].stdout.count("\r\n00 ") == 1


def test_the_listing_pauses_where_a_type_does_not():
    assert PAUSED.stdout == "status 143\n"  # until timeout ended it


@pytest.mark.parametrize("text", TEXTS)
def test_a_text_of_qemus_command_line_is_found_where_it_stands(boot, text):
    table = kernels_table(boot)
    printed = text.upper() if text.upper().encode() in table else text
    answer = SEARCH[text][boot]
    if printed.encode() in table:
        offset = table.index(printed.encode())
        assert answer.stdout == f"Found {printed} in SMBIOS(Offset(0x{offset:X}))!\n"
        assert answer.ending == "exit 0"
    else:
        assert text == "system works"  # typed in neither the table's case nor capitals
        assert (answer.stdout, answer.ending) == (f"ERROR: Cannot find {text} in SMBIOS!\n", "exit 14")


def test_a_text_that_nobody_gave_is_not_found(boot):
    assert (MISSED[boot].stdout, MISSED[boot].ending) == ("ERROR: Cannot find No such Text in SMBIOS!\n", "exit 14")


def test_the_speeds_of_the_processor_are_those_of_dmidecode(boot):
    told = dict(re.findall(r"^\t(Max Speed|Current Speed): (\d+) MHz$", DMIDECODE_CPU[boot].stdout, re.MULTILINE))
    assert told == {"Max Speed": "4321", "Current Speed": "1234"}
    # The procedure for both gives the current one in the high half.
    assert SPEEDS[boot].stdout.splitlines()[2:] == ["1234 4321", "1234"]


# ---- without a system table file ------------------------------------------------------------------------------------


def ask_legacy(words, **options):
    return {name: boot.ask(words, **options) for name, boot in LEGACY.items()}


AREA = ask_legacy(tables.DD_BIOS_AREA)
LEGACY_RAW = ask_legacy(["hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"])
LEGACY_LISTING = ask_legacy(["hwreg", "/SMBIOS", "/LOG", "/TEXT"])
NO_FILE = ask_legacy("ls /sys/firmware/efi/systab /proc/efi/systab 2>&1 | grep -c 'No such file'")

# The firmware's code holds the text of a 64-bit anchor before any entry point. Without it the real one is found.
FIRST_ANCHOR = (tables.DD_BIOS_AREA + " | od -An -v -tx1 | tr -d ' \\n' | "
                "awk '{ at = 1; while ((i = index(substr($0, at), \"5f534d335f\")) && (at + i) % 2) at += i; "
                "if (i) printf \"0x%x\", 0xF0000 + (at + i - 2) / 2 }'")


def without_anchor(name):
    """Shell text that hides the anchor, runs $1 and puts the byte back."""
    byte = "busybox devmem $at 8"
    hide = tables.in_writable_bios_area(PAM0[name], f"{byte} 0x2d")
    show = tables.in_writable_bios_area(PAM0[name], f"{byte} 0x5f")
    return f"at=$({FIRST_ANCHOR}); {hide}; %s; {show}"


def ask_without_anchor(command):
    return {name: boot.ask(without_anchor(name).replace("%s", command)) for name, boot in LEGACY.items()}


AREA_WITHOUT = ask_without_anchor(tables.DD_BIOS_AREA)
RAW_WITHOUT = ask_without_anchor("hwreg /SMBIOS /DUMP /LOG /TEXT")
LISTING_WITHOUT = ask_without_anchor("hwreg /SMBIOS /LOG /TEXT")
SEARCH_WITHOUT = ask_without_anchor("hwreg /SMBIOS /S QEMU")
AREA_AFTER = ask_legacy(tables.DD_BIOS_AREA)


@pytest.fixture(params=LEGACY)
def machine(request):
    return request.param


def test_there_is_no_system_table_file(machine):
    assert NO_FILE[machine].stdout == "2\n"


def test_a_legacy_table_is_that_of_the_rule_applied_to_the_bios_area(machine):
    area = tables.bios_area(AREA[machine])
    assert legacy_entry(Memory([(0xF0000, area)])) == (area.index(b"_SM3_"), 24)
    copy = table_copy(Memory([(0xF0000, area)]))  # what it points to is a hole, which reads as zeros here
    assert len(copy) > 0x1000
    assert (LEGACY_RAW[machine].stdout, LEGACY_RAW[machine].ending) == (smbios(copy, "/DUMP")[0], "exit 0")
    assert (LEGACY_LISTING[machine].stdout, LEGACY_LISTING[machine].ending) == (smbios(copy)[0], "exit 0")


def test_without_the_stray_anchor_the_32_bit_entry_point_is_used(machine):
    area = tables.bios_area(AREA_WITHOUT[machine])
    offset, size = legacy_entry(Memory([(0xF0000, area)]))
    assert (area[offset : offset + 4], area[offset + 16 : offset + 20], size) == (b"_SM_", b"_DMI", 32)
    length, address = struct.unpack_from("<HI", area, offset + 0x16)
    assert 0xF0000 < address < 0x100000
    copy = area[:length]  # from the 64 KiB border below the table
    assert table_copy(Memory([(0xF0000, area)])) == copy
    assert (RAW_WITHOUT[machine].stdout, RAW_WITHOUT[machine].ending) == (smbios(copy, "/DUMP")[0], "exit 0")
    assert LISTING_WITHOUT[machine].stdout == smbios(copy)[0]
    assert SEARCH_WITHOUT[machine].stdout == smbios(copy, "/S", "QEMU")[0]


def test_the_bios_area_is_left_as_it_was(machine):
    assert AREA_AFTER[machine].stdout == AREA[machine].stdout
