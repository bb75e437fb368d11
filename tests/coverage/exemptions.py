"""The lines and branches that nothing reaches, and the list of those that nothing can reach (exempted.txt).

A place is (file, function, text of the line, number of the branch or "line"): it stays the same while lines move. Two
lines of a function with the same text are two places of the same name. A line that nothing reaches stands for its
branches, too.
"""

import collections
import pathlib
import re

import counts

LIST = pathlib.Path(__file__).with_name("exempted.txt")
HEAD = re.compile(r"(\S+) (\S+)")
TEXT = re.compile(r" {4}(\S.*)")
WHICH = re.compile(r" {8}(line|\d+): (\S.*)")
MORE = re.compile(r" {12}(\S.*)")


def missing(sources):
    """The places that were not reached, as a Counter."""
    places = collections.Counter()
    for file, source in sources.items():
        text = (counts.TOP / file).read_text().splitlines()
        for line, count in source.lines.items():
            if count == 0:
                places[file, source.functions[line], text[line - 1].strip(), "line"] += 1
        for (line, function, index), count in source.branches.items():
            if count == 0 and source.lines[line] > 0:
                places[file, function, text[line - 1].strip(), str(index)] += 1
    return places


def exempted(text):
    """The places of a list, as a Counter; ValueError where it is none."""
    places = collections.Counter()
    head, line, place = None, None, None
    for number, row in enumerate(text.splitlines(), 1):
        if not row.strip() or row.startswith("#"):
            continue
        if found := HEAD.fullmatch(row):
            head, line, place = found.groups(), None, None
        elif head and (found := WHICH.fullmatch(row)) and line:
            place = (*head, line, found[1])
            places[place] += 1
        elif place and MORE.fullmatch(row):
            continue  # a long reason
        elif head and (found := TEXT.fullmatch(row)):
            line, place = found[1], None
        else:
            raise ValueError(f"line {number}: {row}")
    return places


def entry(place):
    """As it would stand in the list, but for the reason."""
    file, function, text, which = place
    return f"{file} {function}\n    {text}\n        {which}: "


def complaints(missed, listed):
    """What is wrong with the list, in words."""
    for place in (missed - listed).elements():
        yield f"nothing reaches this, and the list has no reason:\n{entry(place)}"
    for place in (listed - missed).elements():
        yield f"this is reached, or is gone, and stands in the list:\n{entry(place)}"
