"""The oracle of texts turns down what it is not to let pass."""

import types

import pytest

import oracles
from lines import Line

LIST = "".join(f"Cpu[0{number}] return MSR: 0x00000000_0085008{number}\n" for number in range(6))
READ = "Port: FE80, return data:0x03\n"
PAGES = ["00 41 42\r\n", "00 43 44\r\n", "00 45 46\r\n"]
I2C_ERROR = "Read addr 0x50 offset 0x04 error!\n"


def said(text, status=0):
    return types.SimpleNamespace(text=text, status=status)


def is_as_stated(words, wish, result, usual, unbroken=None):
    return oracles.text_is_as_stated(Line(words, "intel", (), None), wish, result, usual, unbroken or usual)


@pytest.mark.parametrize("words, wish, usual", [
    ("/MEM /RB 0x1000", "munmap 1", said(READ, 3)),
    ("/MEM /RB 0x1000", "mmap 1 EPERM", said(READ, 3)),
    ("/?", "system 1", said("one\ntwo\n", 2)),
    ("/MSR /RD 0 0x1A0", "pread 1", said(LIST, 0)),
    ("/RTC 60 /F /T 1", "fclose 1", said(LIST, 0)),
    ("/SIO /DUMP", "write 1 EAGAIN", said(LIST, 0)),
    ("/SIO /DUMP", "fmemopen 1", said(LIST, 0)),
])
def test_what_no_table_names_must_be_printed(words, wish, usual):
    assert is_as_stated(words, wish, usual, usual)
    assert not is_as_stated(words, wish, said("", usual.status), usual)
    assert not is_as_stated(words, wish, said(usual.text[: usual.text.index("\n") + 1] * 2, usual.status), usual)


def test_numbers_may_differ_where_values_do_and_nowhere_else():
    other = said(READ.replace("03", "FF"), 3)
    assert is_as_stated("/MEM /RB 0x1000", "mmap 1 EPERM", other, said(READ, 3))
    assert not is_as_stated("/MEM /RB 0x1000", "munmap 1", other, said(READ, 3))


@pytest.mark.parametrize("lost, passes", [
    (READ.replace("FE80", ""), True),
    ("", True),
    (READ.replace("FE80", "").replace("03", ""), False),
    (READ.replace("03", "04"), False),
])
def test_an_allocation_of_the_formatter_may_cost_one_piece(lost, passes):
    assert is_as_stated("/IO /RB 0xFE80", "calloc 2", said(lost), said(READ)) is passes


def test_an_allocation_of_the_formatter_may_not_cost_the_rest():
    assert not is_as_stated("/ACPI", "calloc 2", said(LIST[:40]), said(LIST))


@pytest.mark.parametrize("words, wish, text, status", [
    ("/MEM /RF F 0 1", "open 3", "FileOpen fail!\n", 21),
    ("/MEM /RF F 0 1", "fstat 1", "FileOpen fail!\n", 21),
    ("/MEM /RF F 0 1", "fdopen 1", "FileOpen fail!\n", 21),
    ("/MEM /RF F 0 1", "fwrite 1", READ + "Write to buffer fail!\n", 0),
    ("/RTC 60 /F /T 1", "fdopen 2", READ + "RTCLOG write fail!\n", 0),
    ("/I2C /RB 0 0x50 4", "mmap 22 EPERM", I2C_ERROR, 255),
])
def test_a_stated_message_must_come_with_its_status(words, wish, text, status):
    assert is_as_stated(words, wish, said(text, status), said(READ))
    for wrong in (said(text, 1), said("", status), said(text.rpartition("\n")[0][:-5] + "\n", status)):
        assert not is_as_stated(words, wish, wrong, said(READ))


@pytest.mark.parametrize("wish", ["open 3", "fstat 1", "fdopen 1"])
def test_a_counter_that_cannot_be_opened_is_told_in_its_place(wish):
    usual, missing = READ + "RTCLOG count is: 5\n" + READ, READ + "Have no RTCLOG file!\n" + READ
    assert is_as_stated("/RTC 60 /F /T 1", wish, said(missing), said(usual))
    for wrong in (said(usual), said(missing, 1), said(READ + READ), said(missing.replace("RTC", "RBT"))):
        assert not is_as_stated("/RTC 60 /F /T 1", wish, wrong, said(usual))


def test_a_write_that_fails_costs_its_text_and_no_other():
    usual = said("".join(PAGES))
    for kept, passes in ((PAGES, False), (PAGES[:2], True), (PAGES[1:], True), ([PAGES[0], PAGES[2]], True),
                         ([PAGES[1], PAGES[0]], False)):
        assert is_as_stated("/SIO /DUMP", "write 1 ENOSPC", said("".join(kept)), usual) is passes
    assert not is_as_stated("/SIO /DUMP", "write 1 ENOSPC", said(PAGES[0], 5), usual)


def test_fewer_cpus_are_the_first_ones():
    first, rest = LIST[: len(LIST) // 2], LIST[len(LIST) // 2 :]
    assert is_as_stated("/MSR /RD /ALL 0x1A0", "open 4", said(first), said(LIST))
    assert not is_as_stated("/MSR /RD /ALL 0x1A0", "open 4", said(rest), said(LIST))
    assert not is_as_stated("/MSR /RD /ALL 0x1A0", "open 4", said(first[:-5]), said(LIST))


def test_a_key_that_is_missed_costs_no_page():
    usual, unbroken = said("".join(PAGES[:2])), said("".join(PAGES))
    for count, passes in ((1, False), (2, True), (3, True)):
        assert is_as_stated("/MEM /DUMP 0", "getc 1", said("".join(PAGES[:count])), usual, unbroken) is passes
    assert not is_as_stated("/MEM /DUMP 0", "getc 1", said(unbroken.text + PAGES[0]), usual, unbroken)
