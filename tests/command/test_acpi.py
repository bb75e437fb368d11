"""/ACPI: the root pointer in the BIOS area."""

import pytest

import firmware
from expected import CLOSE, OPEN, assert_run, copied_pages as pages, hex_view, on_screen
from firmware import board_lines, rsdp
from firmware_model import Memory, acpi_dump, find_table, power_management

USAGE = " /ACPI /dump: Dump Rsdp\n"
NOT_FOUND = 14

ROOT = 0xF5A00
POINTER = rsdp(0x7A2FE0A8, 0x7A2FE1A8) + b"next"  # 40 bytes are shown


def f_segment(*pieces):
    return board_lines([(0xF0000, bytes(0x10000)), *pieces])


def acpi_run(run, *pieces, words="/DUMP /LOG /TEXT", extra=(), **options):
    return run(f"/ACPI {words}", board="base", extra=f_segment(*pieces) + list(extra), **options)


def assert_shows(result, data):
    assert result.text == hex_view(data, plain=True)
    assert (result.err, result.status) == (b"", 0)


def assert_not_found(result):
    assert (result.out, result.err, result.status) == (b"", b"", NOT_FOUND)


@pytest.mark.parametrize("word", ["/?", "-h", "HELP", "/dump /?"])
def test_help_is_one_line_and_reads_nothing(run, word):
    assert_run(run(f"/ACPI {word}"), USAGE, 2, ["system clear"])


def test_the_root_pointer_is_shown_in_40_bytes(run):
    # The pages up to it are searched; its own one is copied once more.
    result = acpi_run(run, (ROOT, POINTER))
    assert_run(result, hex_view(POINTER, plain=True), 0, pages(0xF0000, 6), pages(ROOT))


def test_the_view_is_coloured_unless_text_is_asked_for(run):
    assert acpi_run(run, (ROOT, POINTER), words="/DUMP /LOG").text == hex_view(POINTER)


@pytest.mark.parametrize("words", ["", "/NOMSG", "/DUMP /NOMSG", "/LOG"])
def test_without_dump_it_is_found_and_not_shown(run, words):
    assert_run(acpi_run(run, (ROOT, POINTER), words=words), "", 0, pages(0xF0000, 6), pages(ROOT))


@pytest.mark.parametrize("words", ["", "/DUMP"])
def test_without_a_root_pointer_nothing_is_printed(run, words):
    assert_run(acpi_run(run, words=words), "", NOT_FOUND, pages(0xF0000, 16))


@pytest.mark.parametrize("words", ["/dump -acpi /log /text", "acpi dump log text", "\\Acpi \\Dump \\Log \\Text"])
def test_the_words_in_their_forms(run, words):
    assert_shows(run(words, board="base", extra=f_segment((ROOT, POINTER))), POINTER)


def test_the_view_waits_for_a_key(terminal):
    result = terminal("/ACPI /DUMP /TEXT", keys=[b" "] * 3, board="base", extra=f_segment((ROOT, POINTER)))
    assert result.out == on_screen(hex_view(POINTER, plain=True))
    assert (result.status, result.keys_sent) == (0, 1)


def test_esc_at_the_view_is_no_error(terminal):
    result = terminal("/ACPI /DUMP /TEXT", keys=[b"\x1b"], board="base", extra=f_segment((ROOT, POINTER)))
    assert (result.status, result.keys_sent) == (0, 1)


@pytest.mark.parametrize("root", [0xF0000, 0xF0001, 0xF1FFA, 0xF7FFF, 0xFFFD0])
def test_the_root_pointer_may_lie_anywhere_in_the_area(run, root):
    assert_shows(acpi_run(run, (root, POINTER)), POINTER)


def test_a_root_pointer_across_a_page_border_is_copied_from_both_pages(run):
    result = acpi_run(run, (0xF2FF0, POINTER))
    assert_run(result, hex_view(POINTER, plain=True), 0, pages(0xF0000, 3), pages(0xF2FF0, 2))


def test_the_first_of_two_wins(run):
    assert_shows(acpi_run(run, (ROOT, POINTER), (ROOT + 0x40, rsdp(1))), POINTER)


@pytest.mark.parametrize("root", [0xE0000, 0xEFFF9, 0x9FC00, 0x100000, 0x7A2FE000])
def test_a_root_pointer_outside_of_the_area_is_not_found(run, root):
    # The first KiB of the extended BIOS data area and memory above 1 MiB are not searched.
    assert_not_found(acpi_run(run, (root, POINTER)))


def test_a_text_that_begins_below_the_area_is_not_found(run):
    assert_not_found(acpi_run(run, (0xEFFFA, POINTER)))


def test_a_text_that_ends_with_the_area_is_not_found(run):
    assert_not_found(acpi_run(run, (0xFFFF9, b"RSD PTR")))
    shown = acpi_run(run, (0xFFFF8, b"RSD PTR!"), (0x100000, b"beyond".ljust(32)))
    assert_shows(shown, b"RSD PTR!beyond".ljust(40))


def test_seven_characters_are_the_text(run):
    assert_shows(acpi_run(run, (ROOT, b"RSD PTRx".ljust(40, b"\xee"))), b"RSD PTRx".ljust(40, b"\xee"))


@pytest.mark.parametrize("text", [b"RSD PT", b"rsd ptr ", b"RSD_PTR ", b"RSDPTR "])
def test_another_text_is_none(run, text):
    assert_not_found(acpi_run(run, (ROOT, text)))


def test_a_byte_that_breaks_a_match_does_not_begin_another_one(run):
    assert_not_found(acpi_run(run, (ROOT - 1, b"R" + POINTER)))
    assert_shows(acpi_run(run, (ROOT - 1, b"R" + POINTER), (0xF8000, POINTER)), POINTER)


@pytest.mark.parametrize("at", [8, 15, 32])
def test_checksums_and_revision_are_not_looked_at(run, at):
    data = bytearray(POINTER)
    data[at] ^= 0x5A
    assert_shows(acpi_run(run, (ROOT, bytes(data))), bytes(data))


def test_the_root_pointer_of_acpi_1_is_shown_with_what_stands_behind_it(run):
    assert_shows(acpi_run(run, (ROOT, rsdp(0x1FFE2000, revision=0)), (ROOT + 20, b"_SM_")),
                 rsdp(0x1FFE2000, revision=0) + b"_SM_" + bytes(16))


# ---- mappings that are refused --------------------------------------------------------------------------------------


def test_a_page_that_the_kernel_holds_cached_is_mapped_through_a_second_descriptor(run):
    result = acpi_run(run, (ROOT, POINTER), extra=["refuse f5000 1000 EAGAIN sync"])
    assert_shows(result, POINTER)
    again = ["mmap /dev/mem 000f5000 1000 rw shared -> EAGAIN"]
    steps = [OPEN, pages(0xF0000, 5), again, ["open /dev/mem rdwr cloexec -> ok"], pages(0xF5000), again,
             pages(0xF5000), CLOSE, ["close /dev/mem"]]
    assert result.log == [line for step in steps for line in step]


@pytest.mark.parametrize("error", ["EAGAIN", "EPERM"])
def test_a_page_that_cannot_be_mapped_holds_no_root_pointer(run, error):
    assert_not_found(acpi_run(run, (ROOT, POINTER), extra=[f"refuse f5000 1000 {error}"]))


def test_what_cannot_be_mapped_behind_the_text_is_shown_as_ones(run):
    result = acpi_run(run, (0xFFFF0, POINTER), extra=["refuse 100000 1000 EPERM"])
    assert_shows(result, POINTER[:16] + b"\xff" * 24)


def test_without_physical_memory_none_is_found(run):
    result = acpi_run(run, (ROOT, POINTER), extra=["mem ENOENT"])
    assert_not_found(result)
    assert result.maps() == []


# ---- the boards -----------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("board, memory, ports", [("intel", firmware.intel_memory(), "1800 0cf9 06"),
                                                  ("amd", firmware.amd_memory(), "0800 0cf9 06")])
def test_the_desktop_boards_have_a_root_pointer_that_leads_to_a_fadt(run, board, memory, ports):
    pointer = next(data for _, data in memory if data.startswith(b"RSD PTR "))
    result = run("/ACPI /DUMP /LOG /TEXT", board=board)
    assert_shows(result, pointer + b"\xff" * 4)  # the rest of the area is flash without contents
    ones = [(0xF0000, b"\xff" * 0x10000)]
    assert acpi_dump(Memory(ones + memory)) == (result.text, 0)
    assert power_management(Memory(memory)) == ports
    for signature in (b"APIC", b"MCFG", b"FACP"):
        through_xsdt, through_rsdt = (find_table(Memory(memory), signature, mode) for mode in (1, 2))
        assert through_xsdt == through_rsdt
        assert Memory(memory).bytes(through_xsdt, 4) == signature
