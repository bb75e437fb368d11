"""Hex views as bytes. A view begins with a line of column numbers; a row has a label of two digits, 16 cells and the
characters."""

from __future__ import annotations

import re

CELLS = slice(3, 51)
HEADER = re.compile(r"   00(?: 01| {3}).*")
ROW = re.compile(r"[0-9A-F]{2} (?:[0-9A-F]{2} |   ){16}.*")


def views_in(text: str) -> list[bytes]:
    """The bytes of each view, whatever stands between them."""
    return [view for _, view in headed_views_in(text) if view]


def headed_views_in(text: str) -> list[tuple[str, bytes]]:
    """Each view with the line before it; a line without a view has no bytes."""
    found: list[tuple[str, bytearray]] = []
    line_before = ""
    for line in text.replace("\r\n", "\n").split("\n"):
        if HEADER.fullmatch(line):
            found.append((line_before, bytearray()))
            line_before = ""
        elif found and ROW.fullmatch(line):
            found[-1][1].extend(int(cell, 16) for cell in line[CELLS].split())
        elif line:
            line_before = line
    return [(before, bytes(view)) for before, view in found]
