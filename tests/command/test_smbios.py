"""/SMBIOS: where the structure table is found, how it is read, and the four things that are done with it."""

import itertools
import struct

import pytest

import firmware
from expected import CLOSE, OPEN, assert_run, copied_pages as pages, hex_view, on_screen, session
from firmware import (board_lines, bios, end, entry32, entry64, memory_device, oem_strings,
                      processor, smbios2, smbios3, structure, system, table)
from firmware_model import (Memory, legacy_entry, listing, raw_dump, smbios, table_copy, walk)

USAGE = " /SMBIOS: Show some types of SMBIOS\n /SMBIOS /S [String]: Search String in SMBIOS\n"
NO_TABLE = 7
NOT_FOUND = 14

ENTRY3 = 0x7A5BF000
ENTRY2 = 0x7A5C0FE0
TABLE3 = 0x7A5AD000
TABLE2 = 0x7A5BE104
LEGACY_TABLE = 0x7EB70000  # on a 64 KiB border

STRUCTURES = table(
    bios(0x00, "Maker", "F1.00", "02/03/2024"),
    system(0x01, "Simulated Systems", "Desktop I-8"),
    oem_strings(0x0B, "one", "Two", "THREE"),
    structure(126, 0x0C),  # no strings
    memory_device(0x41, 0x40, "DIMM_A1", "BANK 0", 8192, "Memory Works", "PART-0"),
    memory_device(0x42, 0x40, "DIMM_A2", "BANK 1", 0),
    end(0x7F),
)
OTHER = table(system(0x0100, "Other Maker", "Other"), end(0x0101))


def systab(*lines, where="sys"):
    return [f'systab {where} "{line}"' for line in lines]


def uefi(structures=STRUCTURES, address=TABLE3):
    """A machine whose system table file names a 64-bit entry point to this table."""
    return board_lines(smbios3(ENTRY3, address, structures)) + systab(f"SMBIOS3={ENTRY3:#x}")


def f_segment(*pieces):
    """A legacy BIOS: nothing in the F-segment but these."""
    return board_lines([(0xF0000, bytes(0x10000)), *pieces])


def smbios_run(run, words="", extra=(), **options):
    """With plain text and without pauses. A /S comes last: what stands behind it is no switch any more."""
    return run(f"/SMBIOS /LOG /TEXT {words}", board="base", extra=extra, **options)


def legacy(entry):
    """A legacy BIOS with STRUCTURES at LEGACY_TABLE and this entry point."""
    return f_segment((LEGACY_TABLE, STRUCTURES), (0xF5A00, bytes(entry)))


def assert_shows(result, text, status=0):
    assert result.text == text
    assert (result.err, result.status) == (b"", status)


# ---- accesses -------------------------------------------------------------------------------------------------------


def field(address):
    """One field of an entry point."""
    page = address & ~0xFFF
    return [f"mmap /dev/mem {page:08x} 2000 rw shared -> ok", f"munmap {page:08x} 2000"]


def systab_opens(sys="ok", proc=None):
    lines = [f"open /sys/firmware/efi/systab rdonly -> {sys}"]
    return lines + ([f"open /proc/efi/systab rdonly -> {proc}"] if proc else [])


NO_SYSTAB = systab_opens("ENOENT", "ENOENT")
CLOSE_SYSTAB = ["close /sys/firmware/efi/systab"]


def without_close_of_systab(log):
    """The file is closed, at a time of nobody's concern."""
    closes = [line for line in log if line.startswith("close /") and line.endswith("/systab")]
    assert len(closes) == 1
    return [line for line in log if line not in closes]


# ---- help -----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("word", ["/?", "/H", "-help"])
def test_help_is_two_lines_and_touches_no_table(run, word):
    assert_run(run(f"/SMBIOS {word}"), USAGE, 2, ["system clear"])


# ---- the system table file ------------------------------------------------------------------------------------------


def test_the_64_bit_entry_point_is_read_in_two_fields_and_the_table_page_by_page(run):
    length = len(STRUCTURES)
    at = TABLE3 + 0x1000 - 0x20  # across a page border
    result = smbios_run(run, extra=uefi(address=at))
    assert_shows(result, listing(STRUCTURES))
    assert 0x20 < length < 0x1000
    assert without_close_of_systab(result.log) == session(
        systab_opens(), field(ENTRY3 + 0x0C), field(ENTRY3 + 0x10), pages(at, 2))


def test_the_32_bit_entry_point_is_read_in_two_fields(run):
    # Its length and its address are the last bytes of a page.
    entry = 0x7A5C0FE4
    result = smbios_run(run, extra=board_lines(smbios2(entry, TABLE2, STRUCTURES)) + systab(f"SMBIOS={entry:#x}"))
    assert_shows(result, listing(STRUCTURES))
    assert without_close_of_systab(result.log) == session(
        systab_opens(), field(entry + 0x16), field(entry + 0x18), pages(TABLE2))


BOTH = [*smbios3(ENTRY3, TABLE3, STRUCTURES), *smbios2(ENTRY2, TABLE2, OTHER)]
LINES = ["ACPI20=0x7a2fe014", "ACPI=0x7a2fe000", f"SMBIOS3={ENTRY3:#x}", f"SMBIOS={ENTRY2:#x}"]


@pytest.mark.parametrize("order", itertools.permutations(range(4)), ids=str)
def test_the_first_line_that_names_an_entry_point_wins(run, order):
    lines = [LINES[i] for i in order]
    wins3 = order.index(2) < order.index(3)
    assert_shows(smbios_run(run, extra=board_lines(BOTH) + systab(*lines)), listing(STRUCTURES if wins3 else OTHER))


@pytest.mark.parametrize("value", [f"{ENTRY2:#x}", f"0X{ENTRY2:X}", f"0x0000{ENTRY2:08x}", str(ENTRY2), f"0{ENTRY2:o}",
                                   f"{ENTRY2 + (1 << 32):#x}"])
def test_the_address_is_read_in_the_base_that_its_prefix_tells_and_cut_to_32_bits(run, value):
    assert_shows(smbios_run(run, extra=board_lines(BOTH) + systab(f"SMBIOS={value}")), listing(OTHER))


@pytest.mark.parametrize("line", ["", "=", "=0x1000", "SMBIOS", "SMBIOS3", "SMBIOSX=0x1000", "SMBIOS32=0x1000",
                                  "smbios=0x1000", "SMBIOS =0x1000", " SMBIOS=0x1000", "HCDP=SMBIOS=0x1000",
                                  "#" * 200, "X" * 61 + "=0x1", "X" * 62, "X" * 63, "BOOTINFO=0x12345678 SMBIOS3=0x1"])
def test_other_lines_are_passed_over(run, line):
    lines = systab(line, f"SMBIOS={ENTRY2:#x}", line)
    assert_shows(smbios_run(run, extra=board_lines(BOTH) + lines), listing(OTHER))


@pytest.mark.parametrize("before, found", [(61, False), (62, True), (63, False), (124, True)])
def test_a_long_line_is_read_in_pieces_of_62_characters(run, before, found):
    result = smbios_run(run, extra=board_lines(BOTH) + systab("X" * before + f"SMBIOS={ENTRY2:#x}"))
    assert_shows(result, listing(OTHER) if found else "", 0 if found else NO_TABLE)


def test_the_value_begins_behind_the_first_equals_sign(run):
    lines = systab("SMBIOS=0=0x1000", f"SMBIOS={ENTRY2:#x}")  # address 0
    result = smbios_run(run, "/S Other", board_lines(BOTH) + lines)
    assert_shows(result, "ERROR: Cannot find Other in SMBIOS!\n", NOT_FOUND)


def test_a_file_without_such_a_line_ends_the_search_although_the_bios_area_has_a_table(run):
    legacy = f_segment(*smbios2(0xF5A00, 0xF0000 + 0x100, STRUCTURES))
    result = smbios_run(run, extra=legacy + systab("ACPI20=0x7a2fe014", "ACPI=0x7a2fe000"))
    assert_run(result, "", NO_TABLE, systab_opens(), CLOSE_SYSTAB)


@pytest.mark.parametrize("words", ["", "/S abc", "/DUMP", "/TYPE 17"])
def test_without_a_table_nothing_is_printed(run, words):
    assert_run(smbios_run(run, words, systab("ACPI=0x1000")), "", NO_TABLE, systab_opens(), CLOSE_SYSTAB)


@pytest.mark.parametrize("error", ["ENOENT", "EACCES", "EPERM"])
def test_the_second_file_is_read_when_the_first_cannot_be_opened(run, error):
    extra = board_lines(BOTH) + [f"systab sys {error}"] + systab(f"SMBIOS={ENTRY2:#x}", where="proc")
    result = smbios_run(run, extra=extra)
    assert_shows(result, listing(OTHER))
    assert without_close_of_systab(result.log)[4:6] == systab_opens(error, "ok")


def test_the_second_file_is_not_looked_at_when_the_first_can_be_opened(run):
    extra = board_lines(BOTH) + systab("ACPI=0x1000") + systab(f"SMBIOS={ENTRY2:#x}", where="proc")
    assert_run(smbios_run(run, extra=extra), "", NO_TABLE, systab_opens(), CLOSE_SYSTAB)


def test_the_length_is_the_low_half_of_the_maximum_size(run):
    memory = [(TABLE3, STRUCTURES), (ENTRY3, entry64(TABLE3, 0x00050000 + len(STRUCTURES)))]
    result = smbios_run(run, "/DUMP", board_lines(memory) + systab(f"SMBIOS3={ENTRY3:#x}"))
    assert_shows(result, raw_dump(STRUCTURES))


def test_the_address_is_the_low_half_of_the_64_bit_address(run):
    memory = [(TABLE3, STRUCTURES), (ENTRY3, entry64(TABLE3 + (5 << 32), len(STRUCTURES)))]
    assert_shows(smbios_run(run, extra=board_lines(memory) + systab(f"SMBIOS3={ENTRY3:#x}")), listing(STRUCTURES))


@pytest.mark.parametrize("form", ["32", "64"])
def test_nothing_but_length_and_address_is_looked_at_in_a_named_entry_point(run, form):
    size, length_at, address_at = (32, 0x16, 0x18) if form == "32" else (24, 0x0C, 0x10)
    entry = bytearray(b"\xa5" * size)
    struct.pack_into("<H", entry, length_at, len(STRUCTURES))
    struct.pack_into("<I", entry, address_at, TABLE2)
    line = f"{'SMBIOS' if form == '32' else 'SMBIOS3'}={ENTRY2:#x}"
    result = smbios_run(run, extra=board_lines([(TABLE2, STRUCTURES), (ENTRY2, bytes(entry))]) + systab(line))
    assert_shows(result, listing(STRUCTURES))


def test_a_table_that_says_it_has_no_bytes_has_no_structures(run):
    memory = [(TABLE3, STRUCTURES), (ENTRY3, entry64(TABLE3, 0))]
    extra = board_lines(memory) + systab(f"SMBIOS3={ENTRY3:#x}")
    for words in ("", "/DUMP", "/TYPE 0", "/TYPE 127"):
        assert_shows(smbios_run(run, words, extra), "")
    assert_shows(smbios_run(run, "/S Maker", extra), "ERROR: Cannot find Maker in SMBIOS!\n", NOT_FOUND)


def test_a_table_at_the_top_is_cut_at_4_gib(run):
    data = STRUCTURES[:0x40]
    memory = [(0xFFFFFFC0, data), (0, b"beyond"), (ENTRY3, entry64(0xFFFFFFC0, 0x80))]
    result = smbios_run(run, "/DUMP", board_lines(memory) + systab(f"SMBIOS3={ENTRY3:#x}"))
    assert_shows(result, raw_dump(data + bytes(0x40)))
    assert pages(0xFFFFF000) == [line for line in result.maps() if " 1000" in line]


# ---- the legacy way -------------------------------------------------------------------------------------------------


def test_without_a_file_the_bios_area_is_searched_for_the_64_bit_anchor(run):
    # The anchor lies in the second page; the copies of 24 bytes and of the table follow.
    result = smbios_run(run, extra=f_segment(*smbios3(0xF1230, LEGACY_TABLE, STRUCTURES)))
    steps = [NO_SYSTAB, pages(0xF0000, 2), pages(0xF1230), pages(LEGACY_TABLE)]
    assert_run(result, listing(STRUCTURES), 0, *steps)


def test_without_a_64_bit_anchor_it_is_searched_again_for_the_32_bit_one(run):
    # The word at +10h is read on its own before the 32 bytes are copied.
    result = smbios_run(run, extra=f_segment(*smbios2(0xF25F0, LEGACY_TABLE, STRUCTURES)))
    steps = [NO_SYSTAB, pages(0xF0000, 16), pages(0xF0000, 3), field(0xF2600), pages(0xF25F0), pages(LEGACY_TABLE)]
    assert_run(result, listing(STRUCTURES), 0, *steps)


def test_an_entry_point_across_a_page_border_is_copied_from_both_pages(run):
    result = smbios_run(run, extra=f_segment(*smbios2(0xF2FF6, LEGACY_TABLE, STRUCTURES)))
    steps = [NO_SYSTAB, pages(0xF0000, 16), pages(0xF0000, 3), field(0xF3006), pages(0xF2FF6, 2), pages(LEGACY_TABLE)]
    assert_run(result, listing(STRUCTURES), 0, *steps)


def test_an_anchor_across_a_page_border_is_found(run):
    for entry in (0xF1FFD, 0xF1FFF):
        assert_shows(smbios_run(run, extra=f_segment(*smbios3(entry, LEGACY_TABLE, STRUCTURES))), listing(STRUCTURES))
        assert_shows(smbios_run(run, extra=f_segment(*smbios2(entry, LEGACY_TABLE, STRUCTURES))), listing(STRUCTURES))


@pytest.mark.parametrize("entry", [0xF0000, 0xF0001, 0xF8765, 0xFFFE0 - 1])
def test_an_entry_point_need_not_be_aligned(run, entry):
    assert_shows(smbios_run(run, extra=f_segment(*smbios2(entry, LEGACY_TABLE, STRUCTURES))), listing(STRUCTURES))
    assert_shows(smbios_run(run, extra=f_segment(*smbios3(entry, LEGACY_TABLE, STRUCTURES))), listing(STRUCTURES))


@pytest.mark.parametrize("entry3, entry2", [(0xF1000, 0xF8000), (0xF8000, 0xF1000)])
def test_a_64_bit_anchor_wins_wherever_it_lies(run, entry3, entry2):
    pieces = [*smbios3(entry3, LEGACY_TABLE, STRUCTURES), *smbios2(entry2, 0x7EB80000, OTHER)]
    assert_shows(smbios_run(run, extra=f_segment(*pieces)), listing(STRUCTURES))


def test_the_text_of_a_64_bit_anchor_without_an_entry_point_behind_it_is_taken_for_one(run):
    # A message of the firmware: version 4Dh, length 3320h, address 696B5300h.
    message = b"_SM3_\0SMBIOS 3.0\0Skipping MPTABLE\0"
    pieces = [(0xF1031, message), *smbios2(0xF5A00, LEGACY_TABLE, STRUCTURES)]
    result = smbios_run(run, "/DUMP", f_segment(*pieces, (0x696B0000, b"found here")))
    assert_shows(result, raw_dump(b"found here".ljust(0x3320, b"\0")))
    steps = [NO_SYSTAB, pages(0xF0000, 2), pages(0xF1031), pages(0x696B0000, 4)]
    assert result.log == session(*steps)


def test_the_first_of_two_64_bit_anchors_wins(run):
    pieces = [*smbios3(0xF1000, LEGACY_TABLE, STRUCTURES), *smbios3(0xF2000, 0x7EB80000, OTHER)]
    assert_shows(smbios_run(run, extra=f_segment(*pieces)), listing(STRUCTURES))


def test_an_anchor_without_dmi_behind_it_is_passed_over_once(run):
    pieces = [(0xF1010, b"_SM_ is not here"), *smbios2(0xF25F0, LEGACY_TABLE, STRUCTURES)]
    result = smbios_run(run, extra=f_segment(*pieces))
    steps = [NO_SYSTAB, pages(0xF0000, 16), pages(0xF0000, 2), field(0xF1020), pages(0xF2000), pages(0xF25F0),
             pages(LEGACY_TABLE)]
    assert_run(result, listing(STRUCTURES), 0, *steps)


def test_the_second_anchor_is_used_without_a_look_at_its_dmi(run):
    entry = bytearray(entry32(LEGACY_TABLE, len(STRUCTURES)))
    entry[0x10:0x15] = b"_XYZ_"
    pieces = [(0xF1010, b"_SM_"), (0xF25F0, bytes(entry)), *smbios2(0xF4000, 0x7EB80000, OTHER),
              (LEGACY_TABLE, STRUCTURES)]
    assert_shows(smbios_run(run, extra=f_segment(*pieces)), listing(STRUCTURES))


def test_the_second_anchor_is_missed_in_the_page_of_the_first(run):
    # The search goes on in a page buffer that holds nothing of that page any more.
    pieces = [(0xF1010, b"_SM_"), *smbios2(0xF1100, 0x7EB80000, OTHER)]
    result = smbios_run(run, extra=f_segment(*pieces))
    steps = [NO_SYSTAB, pages(0xF0000, 16), pages(0xF0000, 2), field(0xF1020), pages(0xF2000, 14)]
    assert_run(result, "", NO_TABLE, *steps)
    third = [*pieces, *smbios2(0xF2000, LEGACY_TABLE, STRUCTURES)]
    assert_shows(smbios_run(run, extra=f_segment(*third)), listing(STRUCTURES))


def test_the_search_for_the_second_anchor_loads_the_next_page_when_the_first_ended_its_own(run):
    pieces = [(0xF1FFC, b"_SM_"), *smbios2(0xF2000, LEGACY_TABLE, STRUCTURES)]
    result = smbios_run(run, extra=f_segment(*pieces))
    steps = [NO_SYSTAB, pages(0xF0000, 16), pages(0xF0000, 2), field(0xF200C), pages(0xF2000), pages(0xF2000),
             pages(LEGACY_TABLE)]
    assert_run(result, listing(STRUCTURES), 0, *steps)


def test_two_anchors_without_dmi_are_not_followed_by_a_third_search(run):
    third = smbios2(0xF3000, LEGACY_TABLE, STRUCTURES)
    pieces = [(0xF1000, b"_SM_"), (0xF2000, b"_SM_" + bytes(28)), *third]
    result = smbios_run(run, "/DUMP", f_segment(*pieces))
    assert_shows(result, "")  # the second one says: no bytes, at 0
    assert result.log == session(NO_SYSTAB, pages(0xF0000, 16), pages(0xF0000, 2), field(0xF1010), pages(0xF2000),
                                 pages(0xF2000), pages(0))


def test_dmi_is_its_four_characters(run):
    entry = bytearray(entry32(LEGACY_TABLE, len(STRUCTURES)))
    entry[0x14] = 0  # "_DMI" without the last "_"
    assert_shows(smbios_run(run, extra=legacy(entry)), listing(STRUCTURES))


@pytest.mark.parametrize("pieces", [[], [(0xF1000, b"_SM_")], [(0xFFFFC, b"_SM_")], [(0xFFFFB, b"_SM3_")],
                                    [(0xF1000, b"_SM"), (0xF2000, b"SM_"), (0xF3000, b"_sm_"), (0xF4000, b"_SM-")],
                                    [(0xE0000, entry32(LEGACY_TABLE, 10)), (0xEFFFE, b"_SM_")]],
                         ids=["nothing", "no DMI", "_SM_ at the very end", "_SM3_ at the very end", "other texts",
                              "below the area"])
def test_without_an_entry_point_there_is_no_table(run, pieces):
    result = smbios_run(run, extra=f_segment(*pieces))
    assert (result.out, result.err, result.status) == (b"", b"", NO_TABLE)


def test_without_an_anchor_the_area_is_read_twice(run):
    assert_run(smbios_run(run, extra=f_segment()), "", NO_TABLE, NO_SYSTAB, pages(0xF0000, 16), pages(0xF0000, 16))


def test_a_byte_that_breaks_a_match_does_not_begin_another_one(run):
    pieces = [(0xF1000, b"_"), *smbios3(0xF1001, 0x7EB80000, OTHER), *smbios3(0xF2000, LEGACY_TABLE, STRUCTURES)]
    assert_shows(smbios_run(run, extra=f_segment(*pieces)), listing(STRUCTURES))


@pytest.mark.parametrize("table_at", [0x000E1234, 0x7EB7FFFF, 0x7EB70001])
def test_the_legacy_copy_begins_at_the_64_kib_border_below_the_table(run, table_at):
    border = table_at & ~0xFFFF
    below = table(system(1, "Below", "the table"), end(2))
    pieces = [(border, below.ljust(0x1000, b"\x01")), (0xF5A00, entry32(table_at, 0x200))]
    result = smbios_run(run, "/DUMP", f_segment(*pieces))
    assert_shows(result, raw_dump(below.ljust(0x200, b"\x01")))
    assert result.log[-4:-2] == pages(border)
    pieces[1] = (0xF5A00, entry64(table_at, 0x200))
    assert_shows(smbios_run(run, extra=f_segment(*pieces)), listing(below))


def test_a_named_table_is_copied_from_where_it_is(run):
    memory = [(0xE0000, OTHER), *smbios3(ENTRY3, 0xE1234, STRUCTURES)]
    assert_shows(smbios_run(run, extra=board_lines(memory) + systab(f"SMBIOS3={ENTRY3:#x}")), listing(STRUCTURES))


@pytest.mark.parametrize("major", [0, 1, 2, 3, 0xFF])
def test_a_32_bit_entry_point_is_read_as_one_whatever_its_version(run, major):
    entry = bytearray(entry32(LEGACY_TABLE, len(STRUCTURES)))
    entry[6] = major
    assert_shows(smbios_run(run, extra=legacy(entry)), listing(STRUCTURES))


@pytest.mark.parametrize("major", [3, 4, 0xFF])
def test_a_64_bit_entry_point_of_version_3_and_above_is_read_as_one(run, major):
    entry = bytearray(entry64(LEGACY_TABLE, len(STRUCTURES)))
    entry[7] = major
    assert_shows(smbios_run(run, extra=legacy(entry)), listing(STRUCTURES))


@pytest.mark.parametrize("major", [0, 2])
def test_a_64_bit_anchor_with_a_version_below_3_is_read_by_the_other_layout(run, major):
    # Its length is the u16 at 16h; the address would lie behind the 24 bytes that are copied, and is 0.
    entry = bytearray(entry64(0x0010_0000_7EB7_0000, len(STRUCTURES)))
    entry[7] = major
    result = smbios_run(run, "/DUMP", f_segment((0, b"at the beginning"), (0xF5A00, bytes(entry))))
    assert_shows(result, raw_dump(b"at the beginning"))


@pytest.mark.parametrize("broken", ["anchor sum", "DMI sum"])
def test_checksums_are_not_verified(run, broken):
    entry = bytearray(entry32(LEGACY_TABLE, len(STRUCTURES)))
    entry[4 if broken == "anchor sum" else 0x15] ^= 0x55
    assert_shows(smbios_run(run, extra=legacy(entry)), listing(STRUCTURES))


def test_the_checksum_of_a_64_bit_entry_point_is_not_verified(run):
    entry = bytearray(entry64(LEGACY_TABLE, len(STRUCTURES)))
    entry[5] ^= 0x55
    assert_shows(smbios_run(run, extra=legacy(entry)), listing(STRUCTURES))


def test_the_checksums_of_the_boards_are_right():
    summed = (b"_SM3_", b"_SM_", b"RSDT", b"XSDT", b"FACP", b"APIC", b"MCFG", b"RSD PTR ")
    found = [data for memory in (firmware.intel_memory(), firmware.amd_memory()) for _, data in memory
             if data.startswith(summed)]
    assert {text for text in summed for data in found if data.startswith(text)} == set(summed)
    for data in found:
        assert sum(data) & 0xFF == 0
        if data.startswith(b"_SM_"):
            assert sum(data[16:]) & 0xFF == 0
        if data.startswith(b"RSD PTR "):
            assert sum(data[:20]) & 0xFF == 0


# ---- mappings that are refused --------------------------------------------------------------------------------------

SECOND_OPEN = ["open /dev/mem rdwr cloexec -> ok"]


def refused(address, error="EAGAIN", length=0x1000):
    return [f"mmap /dev/mem {address & ~0xFFF:08x} {length:x} rw shared -> {error}"]


def log_without_systab(result):
    return [line for line in result.log if "systab" not in line]


def test_a_page_that_the_kernel_holds_cached_is_mapped_through_a_second_descriptor(run):
    result = smbios_run(run, extra=uefi() + [f"refuse {TABLE3:x} 1000 EAGAIN sync"])
    assert_shows(result, listing(STRUCTURES))
    steps = [OPEN, field(ENTRY3 + 0x0C), field(ENTRY3 + 0x10), refused(TABLE3), SECOND_OPEN, pages(TABLE3),
             CLOSE, ["close /dev/mem"]]
    assert log_without_systab(result) == [line for step in steps for line in step]


def test_the_second_descriptor_is_kept_for_the_run_and_tried_only_after_the_first(run):
    # Cached: the entry point and the second page of the table. Not cached: the table's first page.
    at = TABLE3 + 0xFF0
    extra = uefi(address=at) + [f"refuse {ENTRY3:x} 1000 EAGAIN sync", f"refuse {TABLE3 + 0x1000:x} 1000 EAGAIN sync"]
    result = smbios_run(run, extra=extra)
    assert_shows(result, listing(STRUCTURES))
    steps = [OPEN,
             refused(ENTRY3, length=0x2000), SECOND_OPEN, field(ENTRY3),
             refused(ENTRY3, length=0x2000), field(ENTRY3),
             pages(TABLE3),
             refused(TABLE3 + 0x1000), pages(TABLE3 + 0x1000),
             CLOSE, ["close /dev/mem"]]
    assert log_without_systab(result) == [line for step in steps for line in step]


def test_a_page_that_the_second_descriptor_cannot_map_either_reads_as_ones(run):
    result = smbios_run(run, "/DUMP", uefi() + [f"refuse {TABLE3:x} 1000 EAGAIN"])
    assert_shows(result, raw_dump(b"\xff" * len(STRUCTURES)))
    steps = [OPEN, field(ENTRY3 + 0x0C), field(ENTRY3 + 0x10), refused(TABLE3), SECOND_OPEN, refused(TABLE3),
             CLOSE, ["close /dev/mem"]]
    assert log_without_systab(result) == [line for step in steps for line in step]


@pytest.mark.parametrize("error", ["EPERM", "EINVAL", "ENOMEM", "EACCES"])
@pytest.mark.parametrize("sync", ["", " sync"])
def test_another_error_is_final(run, error, sync):
    result = smbios_run(run, "/DUMP", uefi() + [f"refuse {TABLE3:x} 1000 {error}{sync}"])
    assert_shows(result, raw_dump(b"\xff" * len(STRUCTURES)))
    steps = [OPEN, field(ENTRY3 + 0x0C), field(ENTRY3 + 0x10), refused(TABLE3, error), CLOSE]
    assert log_without_systab(result) == [line for step in steps for line in step]


def test_a_refused_page_in_the_middle_of_a_table_reads_as_ones(run):
    data = table(*(oem_strings(i, "x" * 100) for i in range(100)), end())
    result = smbios_run(run, extra=uefi(data) + [f"refuse {TABLE3 + 0x1000:x} 1000 EPERM"])
    assert len(data) > 0x2000
    assert_shows(result, listing(data[:0x1000] + b"\xff" * 0x1000 + data[0x2000:]))


def test_a_refused_entry_point_gives_the_failure_values_of_its_fields(run):
    # 16 ones for the length as for the address.
    result = smbios_run(run, "/S Maker", uefi() + [f"refuse {ENTRY3:x} 1000 EPERM"])
    assert_shows(result, "ERROR: Cannot find Maker in SMBIOS!\n", NOT_FOUND)
    steps = [OPEN, refused(ENTRY3, "EPERM", 0x2000) * 2, pages(0xFFFF, 17), CLOSE]
    assert log_without_systab(result) == [line for step in steps for line in step]


def test_the_word_behind_an_anchor_in_the_last_page_needs_the_page_behind_it(run):
    extra = f_segment(*smbios2(0xFF100, LEGACY_TABLE, STRUCTURES))
    assert_shows(smbios_run(run, extra=extra), listing(STRUCTURES))
    result = smbios_run(run, extra=extra + ["refuse 100000 1000 EPERM"])
    assert (result.out, result.status) == (b"", NO_TABLE)
    # The search goes on behind the anchor, in the last page of the area.
    assert result.log[-3:] == refused(0xFF000, "EPERM", 0x2000) + CLOSE


def test_refused_pages_of_the_bios_area_hold_no_anchor(run):
    extra = f_segment(*smbios2(0xF5A00, LEGACY_TABLE, STRUCTURES)) + ["refuse f5000 1000 EPERM"]
    assert_shows(smbios_run(run, extra=extra), "", NO_TABLE)


def test_without_physical_memory_no_table_is_found_by_the_legacy_way(run):
    extra = f_segment(*smbios2(0xF5A00, LEGACY_TABLE, STRUCTURES)) + ["mem ENOENT"]
    result = smbios_run(run, extra=extra)
    assert (result.out, result.err, result.status) == (b"", b"", NO_TABLE)
    assert result.maps() == []


@pytest.mark.parametrize("form", ["", "/S Maker", "/DUMP"])
def test_without_physical_memory_there_is_no_table_even_if_one_is_named(run, form):
    assert_shows(smbios_run(run, form, uefi() + ["mem ENOENT"]), "", NO_TABLE)


# ---- the listing ----------------------------------------------------------------------------------------------------


def test_every_structure_but_the_end_is_listed_with_type_length_and_handle_in_decimal(run):
    data = table(structure(0, 0x00, b"\1\2", ("abc",)), structure(221, 0xABCD), end(0x1234))
    result = smbios_run(run, extra=uefi(data))
    assert_shows(result,
                 "SMBIOS Type:000, Length:006, Handle:000\n" + hex_view(b"\x00\x06\x00\x00\1\2abc\0\0", plain=True) +
                 "SMBIOS Type:221, Length:004, Handle:43981\n" + hex_view(b"\xdd\x04\xcd\xab\0\0", plain=True))


def test_the_listing_is_coloured_unless_text_is_asked_for(run):
    result = run("/SMBIOS /LOG", board="base", extra=uefi())
    assert_shows(result, listing(STRUCTURES, plain=False))
    assert "\033" not in smbios_run(run, extra=uefi()).text


def test_nomsg_lists_as_well(run):
    assert_shows(smbios_run(run, "/NOMSG", uefi()), listing(STRUCTURES))
    assert_shows(smbios_run(run, "/DUMP /NOMSG", uefi()), listing(STRUCTURES))


@pytest.mark.parametrize("words", ["-smbios", "\\Smbios", "smbios"])
def test_the_command_word_in_its_forms(run, words):
    assert_shows(run(f"{words} /log /text", board="base", extra=uefi()), listing(STRUCTURES))


def test_what_stands_behind_the_end_structure_is_not_listed(run):
    data = STRUCTURES + OTHER
    assert_shows(smbios_run(run, extra=uefi(data)), listing(STRUCTURES))


def test_a_structure_without_strings_is_its_formatted_part_and_two_zeros(run):
    data = table(structure(126, 1, b"\xee" * 10), structure(2, 2, b"\0\0\0"), structure(3, 3), end())
    views = [found for _, found in walk(data)]
    assert [len(found) for found in views] == [16, 9, 6]
    assert_shows(smbios_run(run, extra=uefi(data)), listing(data))


def test_an_empty_string_ends_a_structure_and_the_walk_goes_on_behind_it(run):
    broken = structure(11, 1, b"\3", ("one", "", "F123456"))
    result = smbios_run(run, extra=uefi(table(broken, end())))
    shown = [line for line in result.text.splitlines() if line.startswith("SMBIOS")]
    # "F1" is taken for type and length, "23" for the handle.
    assert shown[:2] == ["SMBIOS Type:011, Length:005, Handle:001", "SMBIOS Type:070, Length:049, Handle:13106"]
    assert [data for _, data in walk(broken)][0] == b"\x0b\5\1\0\3one\0\0"


def test_the_length_of_the_table_is_not_consulted_by_a_walk(run):
    data = STRUCTURES.ljust(2000, b"\xee")
    assert_shows(smbios_run(run, extra=uefi(data)), listing(STRUCTURES))


def test_a_structure_of_more_than_a_page_is_shown_whole(run):
    data = table(oem_strings(1, "a" * 60, "b" * 3000, "c" * 1000), system(2, "Maker", "Product"), end())
    assert_shows(smbios_run(run, extra=uefi(data)), listing(data))


def test_a_table_of_64_kib_less_one_byte_is_listed_whole(run):
    filled = table(*(oem_strings(i, "text") for i in range(0xFFFF // 11 - 1)))
    data = filled + end()
    data += b"\xee" * (0xFFFF - len(data))
    assert_shows(smbios_run(run, extra=uefi(data)), listing(data))
    assert_shows(smbios_run(run, "/S EEEE", uefi(data)), "ERROR: Cannot find EEEE in SMBIOS!\n", NOT_FOUND)


SHOWN = [found for _, found in walk(STRUCTURES)]


def test_each_view_waits_for_a_key(terminal):
    result = terminal("/SMBIOS /TEXT", keys=[b" "] * 20, board="base", extra=uefi())
    assert result.out == on_screen(listing(STRUCTURES))
    assert (result.status, result.keys_sent) == (0, len(SHOWN))
    assert result.tty_after == result.tty_before


@pytest.mark.parametrize("shown", [1, 3, len(SHOWN)])
def test_esc_ends_the_listing_with_success(terminal, shown):
    keys = [b"\r"] * (shown - 1) + [b"\x1b"] + [b" "] * 9
    result = terminal("/SMBIOS /TEXT", keys=keys, board="base", extra=uefi())
    assert result.out == on_screen(listing(b"".join(SHOWN[:shown])))
    assert (result.status, result.keys_sent) == (0, shown)


def test_with_log_no_view_waits(terminal):
    result = terminal("/SMBIOS /TEXT /LOG", keys=[b" "] * 20, board="base", extra=uefi())
    assert result.out == on_screen(listing(STRUCTURES))
    assert (result.status, result.keys_sent) == (0, 0)


# ---- one type -------------------------------------------------------------------------------------------------------


def views(*found):
    return "".join(hex_view(data, plain=True) for data in found)


def test_every_structure_of_a_type_is_shown_without_a_line_of_its_own(run):
    assert_shows(smbios_run(run, "/TYPE 17", uefi()), views(SHOWN[4], SHOWN[5]))


def test_the_views_of_a_type_do_not_wait(terminal):
    result = terminal("/SMBIOS /TEXT /TYPE 17", keys=[b" "] * 5, board="base", extra=uefi())
    assert result.out == on_screen(views(SHOWN[4], SHOWN[5]))
    assert (result.status, result.keys_sent) == (0, 0)


def test_the_views_of_a_type_are_coloured(run):
    assert_shows(run("/SMBIOS /TYPE 1", board="base", extra=uefi()), hex_view(SHOWN[1]))


def test_esc_typed_ahead_ends_the_views_of_a_type(terminal):
    data = table(*(memory_device(i, 0x40, "DIMM", "BANK", 0) for i in range(3)), end())
    result = terminal("/SMBIOS /TEXT /TYPE 17", board="base", extra=uefi(data), typed=b"\x1b")
    assert result.out.replace(b"^[", b"") == on_screen(views(next(walk(data))[1]))
    assert result.status == 0


@pytest.mark.parametrize("words, kinds", [("/TYPE 0x11", [4, 5]), ("-type 0X11", [4, 5]), ("/TYPE 273", [4, 5]),
                                          ("/TYPE", [0]), ("/TYPE x", [0]), ("/NOMSG /TYPE 11", [2]),
                                          ("/TYPE 126 11", [3])])
def test_the_type_is_the_word_behind_the_switch_cut_to_8_bits(run, words, kinds):
    assert_shows(smbios_run(run, words, uefi()), views(*(SHOWN[i] for i in kinds)))


@pytest.mark.parametrize("words", ["/TYPE 4", "/TYPE 255", "/TYPE 128"])
def test_a_type_that_is_not_there_is_no_error(run, words):
    assert_shows(smbios_run(run, words, uefi()), "")


def test_the_end_structure_can_be_asked_for(run):
    assert_shows(smbios_run(run, "/TYPE 127", uefi()), views(end(0x7F)))


def test_structures_behind_the_end_structure_are_of_no_type(run):
    assert_shows(smbios_run(run, "/TYPE 1", uefi(STRUCTURES + OTHER)), views(SHOWN[1]))


# ---- the search -----------------------------------------------------------------------------------------------------


def at(text):
    return STRUCTURES.index(text.encode())


@pytest.mark.parametrize("text, printed", [("THREE", "THREE"), ("three", "THREE"), ("tHrEe", "THREE"),
                                           ("f1.00", "F1.00"), ("Two", "Two"), ("Desktop I-8", "Desktop I-8"),
                                           ("one", "one"), ("M", "M")])
def test_a_text_is_searched_in_capitals_and_then_as_typed(run, text, printed):
    result = smbios_run(run, f"/S '{text}'", uefi())
    assert_shows(result, f"Found {printed} in SMBIOS(Offset(0x{at(printed):X}))!\n")


def test_capitals_win_over_the_typed_text_wherever_they_lie(run):
    data = table(oem_strings(1, "abc", "ABC"), end())
    assert_shows(smbios_run(run, "/S abc", uefi(data)), f"Found ABC in SMBIOS(Offset(0x{data.index(b'ABC'):X}))!\n")


@pytest.mark.parametrize("text", ["NOWHERE", "nowhere", "TWO", "oneTwo", "#", "%s%n%lX"])
def test_a_text_that_is_nowhere_is_told_as_it_was_typed(run, text):
    result = run(["/SMBIOS", "/S", text], board="base", extra=uefi())
    assert_shows(result, f"ERROR: Cannot find {text} in SMBIOS!\n", NOT_FOUND)


def test_a_missing_text_is_not_found(run):
    assert_shows(smbios_run(run, "/S", uefi()), "ERROR: Cannot find  in SMBIOS!\n", NOT_FOUND)


def test_an_empty_text_is_found_at_the_beginning(run):
    assert_shows(smbios_run(run, "/S ''", uefi()), "Found  in SMBIOS(Offset(0x0))!\n")


@pytest.mark.parametrize("words", ["/s THREE", "-S THREE", "S THREE", "/S THREE Two", "/DUMP /S THREE",
                                   "/TYPE 17 /S THREE", "/NOMSG /S THREE"])
def test_the_search_wins_over_the_other_switches(run, words):
    assert_shows(smbios_run(run, words, uefi()), f"Found THREE in SMBIOS(Offset(0x{at('THREE'):X}))!\n")


def test_what_stands_behind_the_text_still_counts_as_a_switch(run):
    # ... and the words behind the search switch keep their case.
    assert_shows(smbios_run(run, "/S THREE /?", uefi()), USAGE, 2)
    assert_shows(smbios_run(run, "/S THREE /help", uefi()), f"Found THREE in SMBIOS(Offset(0x{at('THREE'):X}))!\n")


@pytest.mark.parametrize("length", [300, 511, 512, 513, 5000])
def test_a_text_of_any_length_is_printed_whole(run, length):
    text = "x" * length
    assert_shows(smbios_run(run, f"/S {text}", uefi()), f"ERROR: Cannot find {text} in SMBIOS!\n", NOT_FOUND)
    data = table(oem_strings(1, text), end())
    assert_shows(smbios_run(run, f"/S {text}", uefi(data)), f"Found {text} in SMBIOS(Offset(0x5))!\n")


def test_bytes_above_7f_are_searched_as_they_are(run):
    data = table(oem_strings(1, "caf\xe9"), end())
    result = run(["/SMBIOS", "/S", b"f\xe9".decode("utf-8", "surrogateescape")], board="base", extra=uefi(data))
    assert_shows(result, "Found f\xe9 in SMBIOS(Offset(0x7))!\n")


def test_a_byte_that_breaks_a_text_does_not_begin_it_again(run):
    data = table(oem_strings(1, "AAAB", "xAAB"), end())
    at_aab = data.index(b"xAAB") + 1
    assert_shows(smbios_run(run, "/S AAB", uefi(data)), f"Found AAB in SMBIOS(Offset(0x{at_aab:X}))!\n")
    data = table(oem_strings(1, "AAAB"), end())
    assert_shows(smbios_run(run, "/S AAB", uefi(data)), "ERROR: Cannot find AAB in SMBIOS!\n", NOT_FOUND)


def test_the_whole_copy_is_searched_and_nothing_behind_it(run):
    data = STRUCTURES + b"LAST"
    assert_shows(smbios_run(run, "/S LAST", uefi(data)), f"Found LAST in SMBIOS(Offset(0x{len(STRUCTURES):X}))!\n")
    memory = [(TABLE3, data), (ENTRY3, entry64(TABLE3, len(data) - 1))]
    result = smbios_run(run, "/S LAST", board_lines(memory) + systab(f"SMBIOS3={ENTRY3:#x}"))
    assert_shows(result, "ERROR: Cannot find LAST in SMBIOS!\n", NOT_FOUND)


def test_the_legacy_copy_is_searched_from_its_border(run):
    pieces = [(0xE0000, b"\0" * 0x20 + b"HERE"), (0xF5A00, entry32(0xE1234, 0x100))]
    assert_shows(smbios_run(run, "/S here", f_segment(*pieces)), "Found HERE in SMBIOS(Offset(0x20))!\n")


# ---- the raw dump ---------------------------------------------------------------------------------------------------

RAW = bytes(i * 7 & 0xFF for i in range(0x1000))


def raw(length):
    """A table of that many bytes with others behind them."""
    memory = [(TABLE3, RAW), (ENTRY3, entry64(TABLE3, length))]
    return board_lines(memory) + systab(f"SMBIOS3={ENTRY3:#x}")


def test_300_bytes_are_256_then_256_with_zeros_behind_the_table_then_the_last_44_again(run):
    assert_shows(smbios_run(run, "/DUMP", raw(300)), views(RAW[:256], RAW[256:300] + bytes(212), RAW[256:300]))


@pytest.mark.parametrize("length", [1, 16, 240, 241, 255, 256, 257, 511, 512, 513, 0xFFF])
def test_only_a_last_page_that_is_not_full_is_shown_twice(run, length):
    assert_shows(smbios_run(run, "/DUMP", raw(length)), raw_dump(RAW[:length]))


def test_the_raw_dump_is_coloured(run):
    result = run("/SMBIOS /DUMP /LOG", board="base", extra=raw(300))
    assert_shows(result, raw_dump(RAW[:300], plain=False))


def test_the_raw_dump_wins_over_a_type(run):
    assert_shows(smbios_run(run, "/DUMP /TYPE 17", raw(300)), raw_dump(RAW[:300]))


def test_the_pages_of_the_raw_dump_wait_for_a_key(terminal):
    result = terminal("/SMBIOS /DUMP /TEXT", keys=[b"x"] * 9, board="base", extra=raw(300))
    assert result.out == on_screen(raw_dump(RAW[:300]))
    assert (result.status, result.keys_sent) == (0, 3)


@pytest.mark.parametrize("pages_shown", [1, 2, 3])
def test_esc_ends_the_raw_dump_at_a_page(terminal, pages_shown):
    shown = [RAW[:256], RAW[256:512], RAW[512:600] + bytes(168), RAW[512:600]]
    keys = [b" "] * (pages_shown - 1) + [b"\x1b"] * 5
    result = terminal("/SMBIOS /DUMP /TEXT", keys=keys, board="base", extra=raw(600))
    # At the full view of the last page it also takes the place of the short one.
    assert result.out == on_screen(views(*shown[:pages_shown]))
    assert (result.status, result.keys_sent) == (0, pages_shown)


# ---- tables that are not sound --------------------------------------------------------------------------------------

CORRUPT = {
    "no end structure": STRUCTURES[:-6],
    "no end structure and zeros behind the last one": STRUCTURES[:-6] + bytes(100),
    "an end in the middle of the strings": STRUCTURES[:60],
    "an end in the middle of a formatted part": STRUCTURES[:len(SHOWN[0]) + 10],
    "an end in the middle of a header": STRUCTURES[:len(SHOWN[0]) + 3],
    "one byte of a header": STRUCTURES[:len(SHOWN[0]) + 1],
    "a type byte alone": b"\x01",
    "an end structure cut to its type": SHOWN[0] + b"\x7f",
    "strings without end": structure(1, 1, b"abc")[:-2] + b"text" * 100,
    "a formatted length beyond the end": b"\x01\xff\x01\x00" + b"text",
    "all ones": b"\xff" * 1000,
    "all zeros": bytes(1000),
    "a formatted length of 1": b"\x01\x01\x02\x03text\0\0" + STRUCTURES,
    "a formatted length of 2": b"\x01\x02\x02\x03text\0\0" + STRUCTURES,
    "a formatted length of 3": b"\x01\x03\x02\x03text\0\0" + STRUCTURES,
    "a formatted length of 0 in the middle": SHOWN[0] + b"\x01\x00\x02\x03text\0\0" + STRUCTURES,
    "a formatted part of zeros": structure(1, 1, bytes(40)) + STRUCTURES,
    "three zeros behind the strings": structure(1, 1, b"\1", ("text",)) + b"\0" + STRUCTURES,
    "a length that covers the next structures": b"\x01\x90\x01\x00" + STRUCTURES[4:],
}


@pytest.mark.parametrize("name", CORRUPT)
@pytest.mark.parametrize("words", ["", "/TYPE 1", "/TYPE 127", "/TYPE 255", "/DUMP"])
def test_a_walk_ends_at_the_end_of_the_copy(run, name, words):
    data = CORRUPT[name]
    behind = [(TABLE3, data + b"\x01\x08\x00\x00behind\0\0" * 50), (ENTRY3, entry64(TABLE3, len(data)))]
    result = smbios_run(run, words, board_lines(behind) + systab(f"SMBIOS3={ENTRY3:#x}"))
    assert_shows(result, smbios(data, *words.split())[0])
    if not words:
        assert "behind" not in result.text


# ---- the boards -----------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("name", firmware.board_texts())
def test_the_firmware_of_a_board_is_the_generated_one(name):
    # After a change: /usr/bin/python3 tests/support/firmware.py
    assert (firmware.BOARD_FIRMWARE / name).read_text() == firmware.board_texts()[name]


@pytest.mark.parametrize("board, structures", [("intel", firmware.INTEL_STRUCTURES), ("amd", firmware.AMD_STRUCTURES),
                                               ("hygon", firmware.AMD_STRUCTURES)])
def test_the_desktop_boards_have_a_table(run, board, structures):
    assert_shows(run("/SMBIOS /LOG /TEXT", board=board), listing(table(*structures)))
    assert len(structures) > 15


def test_the_intel_board_is_found_through_its_file_and_the_amd_board_in_the_bios_area(run):
    intel = run("/SMBIOS /S 'Desktop I-8'", board="intel")
    assert intel.text.startswith("Found Desktop I-8 in SMBIOS(Offset(0x")
    assert "mmap /dev/mem 000f0000 1000 rw shared -> ok" not in intel.log
    amd = run("/SMBIOS /S 'Desktop A-8'", board="amd")
    assert amd.text.startswith("Found Desktop A-8 in SMBIOS(Offset(0x")
    assert legacy_entry(Memory(firmware.amd_memory())) == (firmware.AMD_ENTRY - 0xF0000, 32)


def test_the_model_agrees_with_itself_on_the_boards():
    assert table_copy(Memory(firmware.amd_memory())) == table(*firmware.AMD_STRUCTURES)
    assert table_copy(Memory(firmware.intel_memory()), firmware.INTEL_SYSTAB) == table(*firmware.INTEL_STRUCTURES)


def test_a_processor_that_is_asked_for_by_its_type(run):
    data = table(processor(4, "U3E1", "Maker", "Version"), end())
    assert_shows(smbios_run(run, "/TYPE 4", uefi(data)), views(data[:-6]))
