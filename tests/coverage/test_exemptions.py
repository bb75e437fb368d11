"""The list of what nothing can reach: what is missing in it and what is too much are told."""

import collections

import pytest

import exemptions
from counts import Source

FILE = "Base/Arith.cpp"
ROW = (exemptions.counts.TOP / FILE).read_text().splitlines()[3].strip()
HEAD = f"{FILE} Sum\n    {ROW}\n"


def source(line, *branches):
    return {FILE: Source({4: line}, {4: "Sum"}, {(4, "Sum", number): count for number, count in enumerate(branches)})}


def complaints(sources, text):
    return list(exemptions.complaints(exemptions.missing(sources), exemptions.exempted(text)))


def test_nothing_is_to_be_said_where_all_is_reached():
    assert complaints(source(2, 1, 1), "# a comment\n\n") == []


def test_a_branch_that_nothing_reaches_needs_an_entry():
    assert complaints(source(2, 2, 0), "") == [
        f"nothing reaches this, and the list has no reason:\n{HEAD}        1: "]
    assert complaints(source(2, 2, 0), HEAD + "        1: cannot fail\n            at all\n") == []


def test_an_entry_of_another_branch_does_not_do():
    assert len(complaints(source(2, 2, 0), HEAD + "        0: cannot fail\n")) == 2


def test_an_entry_whose_branch_is_reached_is_told():
    assert complaints(source(2, 1, 1), HEAD + "        1: cannot fail\n") == [
        f"this is reached, or is gone, and stands in the list:\n{HEAD}        1: "]


def test_an_entry_whose_line_is_gone_is_told():
    assert len(complaints(source(2, 1, 1), f"{FILE} Sum\n    no such line\n        0: cannot fail\n")) == 1


def test_a_line_that_nothing_reaches_stands_for_its_branches():
    assert complaints(source(0, 0, 0), HEAD + "        line: cannot be called\n") == []
    assert len(complaints(source(0, 0, 0), "")) == 1


def test_two_lines_of_the_same_text_are_two():
    text = HEAD + "        0: cannot fail\n"
    assert exemptions.exempted(text + text) == collections.Counter({(FILE, "Sum", ROW, "0"): 2})


@pytest.mark.parametrize("text", ["one-word\n", "    no head\n", "F f\n        0: no line\n", HEAD + "        0:\n",
                                  HEAD + "        x: what\n", HEAD + "            no place\n"])
def test_a_list_that_makes_no_sense_is_refused(text):
    with pytest.raises(ValueError, match="line "):
        exemptions.exempted(text)
