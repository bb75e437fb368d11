"""/MEM /S: the search for a text in a range of physical memory.

Which hits are seen is told in search_rule.py."""

import os
import random

import pytest
from expected import assert_run, copied_pages
from harness import BUILD
from search_rule import ENDS_THE_RANGE, NOT_FOUND, hits_by_the_rule, report

START = 0x200000


def page_copies(start, count):
    """The copies of the range's pages; a range that starts within a page takes two mappings for each."""
    lines = []
    for page in range(start, start + count * 0x1000, 0x1000):
        for at in sorted({page & ~0xFFF, page + 0xFFF & ~0xFFF}):
            lines += copied_pages(at)
    return lines


@pytest.fixture
def search(run):
    """search({offset: text, ...}, length, text) on memory that is zero otherwise"""

    def go(contents, length, text, start=START, **more):
        lines = [f"bytes {START + offset:08x} {' '.join(f'{byte:02x}' for byte in data.encode('latin-1'))}"
                 for offset, data in contents.items()]
        words = ["/MEM", "/S", hex(start), hex(length), os.fsdecode(text.encode("latin-1"))]
        return run(words, extra=[*lines, *more.pop("extra", [])], **more)

    return go


def check(result, text, offsets, status=NOT_FOUND):
    assert (result.text, result.status) == (report(text, [START + offset for offset in offsets]), status)
    assert result.err == b""


# Where hits are found


@pytest.mark.parametrize("offset", [0, 1, 0x800, 0xFFC, 0x1000, 0x2345, 0x3000])
def test_a_hit_is_reported_with_its_count_and_the_address_of_its_first_byte(search, offset):
    check(search({offset: "MARK"}, 0x4000, "MARK"), "MARK", [offset])


@pytest.mark.parametrize("offset", [0xFFD, 0xFFE, 0xFFF, 0x1FFE])
def test_a_hit_may_cross_a_page_border(search, offset):
    check(search({offset: "MARK"}, 0x4000, "MARK"), "MARK", [offset])


def test_of_two_hits_in_a_page_the_first_is_seen(search):
    check(search({0x1100: "MARK", 0x1200: "MARK"}, 0x4000, "MARK"), "MARK", [0x1100])


def test_a_hit_behind_one_that_crossed_into_its_page_is_not_seen(search):
    check(search({0xFFE: "MARK", 0x1800: "MARK", 0x2000: "MARK"}, 0x4000, "MARK"), "MARK", [0xFFE, 0x2000])


def test_hits_in_several_pages_are_seen_two_on_a_line(search):
    hits = [0x10, 0x1000, 0x2FFC, 0x3FFE, 0x5123]
    result = search(dict.fromkeys(hits, "MARK"), 0x8000, "MARK")
    check(result, "MARK", hits)
    assert [line.count("return address") for line in result.text.split("\n")] == [0, 2, 2, 1]


def test_a_hit_that_ends_with_its_page_leaves_the_next_page_whole(search):
    check(search({0xFFC: "MARK", 0x1000: "MARK"}, 0x2000, "MARK"), "MARK", [0xFFC, 0x1000])


def test_more_than_9_hits_are_counted_in_four_digits(search):
    hits = range(0, 0x10000, 0x1000)
    result = search(dict.fromkeys(hits, "MARK"), 0x10000, "MARK")
    check(result, "MARK", hits)
    assert " (0016) MARK return address: 0020F000 \n" in result.text


# The end of the range


@pytest.mark.parametrize("length", [4, 0x104, 0x1000, 0x1002, 0x2000])
def test_a_hit_on_the_last_byte_is_not_printed_but_told_by_the_status(search, length):
    check(search({length - 4: "MARK"}, length, "MARK"), "MARK", [], ENDS_THE_RANGE)


def test_earlier_hits_are_printed_before_the_one_on_the_last_byte(search):
    check(search({0x20: "MARK", 0x1FFC: "MARK"}, 0x2000, "MARK"), "MARK", [0x20], ENDS_THE_RANGE)


@pytest.mark.parametrize("length", [0, 1, 0x100, 0x103])
def test_a_hit_that_leaves_the_range_is_none(search, length):
    check(search({0x100: "MARK"}, length, "MARK"), "MARK", [])


def test_a_range_of_no_bytes_is_not_looked_at(search):
    result = search({0: "MARK"}, 0, "MARK")
    assert_run(result, report("MARK", []), NOT_FOUND)


# The rule of the search


def test_a_hit_that_begins_within_a_partial_match_is_not_seen(search):
    check(search({0: "AAAB"}, 0x1000, "AAB"), "AAB", [])


@pytest.mark.parametrize("memory, at", [("XAAB", 1), ("AAXAAB", 3), ("AAAAAB", 3)])
def test_a_hit_behind_a_broken_match_is_seen(search, memory, at):
    check(search({0x10: memory}, 0x1000, "AAB"), "AAB", [0x10 + at])


def test_case_counts(search):
    check(search({0: "MARK", 0x1000: "Mark", 0x2000: "mark"}, 0x3000, "Mark"), "Mark", [0x1000])


def test_the_words_before_the_search_may_be_in_any_case(run):
    result = run("/mem /s 0x200000 0x1000 aBc", extra='text 00200010 "aBc"')
    assert (result.text, result.status) == (report("aBc", [0x200010]), NOT_FOUND)


@pytest.mark.parametrize("text", ["\x80", "\xff\xfe\x80\x7f", "M\xe4rz", "\x01\x02", "two words", "%s%d%%", "-x"])
def test_a_text_may_hold_any_bytes(search, text):
    check(search({0x1234: text}, 0x4000, text), text, [0x1234])


def test_a_text_longer_than_a_page_is_found(search):
    text = "".join(chr(0x41 + i % 26 + (i // 26) % 7) for i in range(5000))
    pieces = {0x800 + at: text[at : at + 200] for at in range(0, 5000, 200)}
    check(search(pieces, 0x4000, text), text, [0x800])


@pytest.mark.parametrize("seed", range(8))
def test_hits_are_those_of_the_rule_in_memory_full_of_near_hits(run, tmp_path, seed):
    chance = random.Random(seed)
    length = chance.choice([0x1000, 0x2FF0, 0x3000, 0x3801])
    start = START + chance.choice([0, 1, 0x7F8])
    memory = bytes(chance.choices(b"AB", k=0x5000))
    text = "".join(chance.choices("AB", k=chance.choice([3, 7, 10, 13])))
    (tmp_path / "contents").write_bytes(memory)
    hits, status = hits_by_the_rule(memory[start - START :], length, text.encode())
    result = run(f"/MEM /S {start:#x} {length:#x} {text}", extra=f'file {START:08x} "{tmp_path}/contents"')
    assert result.text == report(text, [start + hit for hit in hits])
    assert result.status == status


# Where the range lies


def test_each_page_is_copied_once(search):
    result = search({0x1800: "MARK"}, 0x3000, "MARK")
    assert_run(result, report("MARK", [START + 0x1800]), NOT_FOUND, page_copies(START, 3))


def test_the_last_page_is_copied_whole_however_little_of_it_is_asked_for(search):
    assert search({}, 0x1001, "MARK").maps() == page_copies(START, 2)


def test_a_hit_in_the_first_page_leaves_the_others_uncopied_when_it_ends_the_range(search):
    assert search({0x100: "MARK"}, 0x104, "MARK").maps() == page_copies(START, 1)


@pytest.mark.parametrize("offset", [0x10, 0xFFE, 0x100E, 0x100D, 0x2010])
def test_a_range_may_start_within_a_page(search, offset):
    result = search({offset: "MARK"}, 0x3000, "MARK", start=START + 0x10)
    assert_run(result, report("MARK", [START + offset]), NOT_FOUND, page_copies(START + 0x10, 3))


def test_the_rest_of_a_page_is_counted_from_the_ranges_start(search):
    hits = {0x100: "MARK", 0x100C: "MARK", 0x1010: "MARK"}  # 100Ch still belongs to the page of the first
    check(search(hits, 0x3000, "MARK", start=START + 0x10), "MARK", [0x100, 0x1010])


@pytest.mark.parametrize("start, length", [(0xFFFFF000, 0x1000), (0xFFFFF000, 0x2000), (0xFFFFE000, 0x2000),
                                           (0xFFFFFFF0, 0x10)])
def test_a_hit_just_below_4_gib_is_seen(run, start, length):
    result = run(f"/MEM /S {start:#x} {length:#x} 02/03/24", extra=["bytes fffffff5 00 00 00 00 00 00 00 00",
                                                                   'text fffffff0 "02/03/24"'])
    assert (result.text, result.status) == (report("02/03/24", [0xFFFFFFF0]), NOT_FOUND)


def test_a_hit_on_the_last_byte_below_4_gib_ends_the_range(run):
    result = run("/MEM /S 0xFFFFF000 0x1000 LAST", extra='text fffffffc "LAST"')
    assert (result.text, result.status) == (report("LAST", []), ENDS_THE_RANGE)


def test_a_range_that_runs_past_4_gib_goes_on_at_address_0(run):
    result = run("/MEM /S 0xFFFFF000 0x3000 WRAP", extra='text 00000820 "WRAP"')
    assert (result.text, result.status) == (report("WRAP", [0x820]), NOT_FOUND)


def test_of_a_page_that_runs_past_4_gib_the_rest_is_taken_for_zeros(run):
    result = run("/MEM /S 0xFFFFF800 0x2000 WRAP", extra=['text 00000700 "WRAP"', 'text 00000820 "WRAP"'])
    assert (result.text, result.status) == (report("WRAP", [0x820]), NOT_FOUND)


def test_start_and_length_are_cut_to_32_bits(run):
    result = run("/MEM /S 0x100200000 0x500001000 MARK", extra='text 00200010 "MARK"')
    assert (result.text, result.status) == (report("MARK", [0x200010]), NOT_FOUND)


def test_a_refused_page_is_a_page_of_ones(search):
    result = search({0x100: "\xff\xff", 0x1100: "MARK", 0x2100: "MARK"}, 0x3000, "\xff\xff\xff",
                    extra=["refuse 00201000 1000 EPERM"])
    check(result, "\xff\xff\xff", [0x1000])


def test_what_stands_behind_a_refused_page_is_found(search):
    result = search({0x1100: "MARK", 0x2100: "MARK"}, 0x3000, "MARK", extra=["refuse 00201000 1000 EPERM"])
    check(result, "MARK", [0x2100])


def test_without_the_memory_device_nothing_is_found(search):
    check(search({0: "MARK"}, 0x3000, "MARK", board="nomem"), "MARK", [])


# Operands


def test_without_a_text_nothing_is_searched(run):
    for args in ("/MEM /S", "/MEM /S 0x200000", "/MEM /S 0x200000 0x1000"):
        result = run(args)
        assert result.status == 2
        assert result.text.startswith("<- (Ctrl+C: abort!)  searching: ")
        assert result.maps() == []


def test_an_empty_text_is_found_nowhere(run):
    result = run(["/MEM", "/S", "0x200000", "0x1000", ""])
    assert result.status != 0
    assert "return address" not in result.text


def test_words_behind_the_text_are_ignored(run):
    result = run("/MEM /S 0x200000 0x1000 MARK FOUR 0x5", extra='text 00200010 "MARK FOUR"')
    assert result.text == report("MARK", [0x200010])


def test_a_text_that_spells_an_access_word_makes_that_access(run):
    result = run("/MEM /S 0x200000 0x1000 RB")
    assert (result.text, result.status) == ("Memory Read Byte MemAddr: 0, return data:0x53\n", 0x53)


def test_a_program_of_that_name_is_not_taken_for_the_search_word(run):
    result = run(["-c", 'exec -a S "$0" /MEM 0x200000 0x1000 MARK', BUILD / "hwreg"], program="/bin/bash")
    assert (result.text, result.status) == ("ERROR:Make sure format is correct!\n", NOT_FOUND)
    assert result.maps() == []
