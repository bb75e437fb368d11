"""The sessions of docs/fleets.md: what is typed behind "lab$ ", and what the page shows below."""

import pathlib
import re

import pages

TOP = pathlib.Path(__file__).resolve().parents[2]
PAGE = TOP / "docs" / "fleets.md"
PROMPT = "    lab$ "


def steps():
    return pages.steps(PAGE.read_text(), PROMPT)


def groups(lines):
    """What clush -b printed: for each group its header and its lines, what came before the first, and how nodes ended.
    In no order: groups of one size come as they finish, and the ends come on standard error, before or behind them."""
    ends = [line for line in lines if re.search(r": exited with exit code \d+$", line)]
    text = "\n".join(line for line in lines if line not in ends)
    first, *rest = re.split(r"^-{15}\n", text, flags=re.MULTILINE)
    found = {(header.strip(), body.strip()) for header, body in zip(rest[::2], rest[1::2])}
    return found, sorted(first.split("\n")), sorted(ends)
