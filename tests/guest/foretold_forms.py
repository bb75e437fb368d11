"""The lines that a form of the reference stands for, without their operands' names and values."""

import functools
import itertools
import re

import texts
from foretold_lines import LINES


def alternatives(form):
    """Of "/IO /RB|/RW port": {"/IO /RB x", "/IO /RW x"}."""
    pieces = [""]
    for part in re.findall(r"\[[^]]*\](?:\.\.\.)?|\S+", form):
        if part.endswith("..."):
            choices = ["", "x", "x x x x x x"]
        elif part.startswith("["):
            choices = ["", *alternatives(part[1:-1])]
        else:
            choices = part.split("|")
        pieces = [f"{before} {choice}".strip() for before, choice in itertools.product(pieces, choices)]
    return {shape(piece) for piece in pieces}


def shape(words):
    """The switch words but for options, with an x for each operand."""
    for place in ("$ISA", "$DISK", "$FAR"):
        words = words.replace(place, "x x x")
    parts = [word for word in words.split() if word not in ("/LOG", "/TEXT", "/NOMSG")]
    return " ".join(word if word.startswith("/") else "x" for word in parts)


@functools.cache
def short_list():
    """The first line of each form."""
    found = {}
    for number, line in enumerate(LINES):
        for form in texts.reference_forms():
            if shape(line.words) in alternatives(form):
                found.setdefault(form, number)
    return set(found.values())
