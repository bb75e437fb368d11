"""The differences between a dump and what the program shows of its machine that are known, each with its reason.

A test names what differs by a place ("0001:00:00.0 ports 3c", "structure 5") and asks `judge`: each difference has to
stand here, and what stands here has to occur, as long as the dump is there.
"""

import re

import pytest

# dumps, places (regular expressions for the whole), reason
EXPLAINED = [
]


def judge(dump, differences, kind=".*"):
    """`differences`: {place: what differs there}; `kind`: what its places begin with, where the dump has several tests.
    Fails for those without a reason, and for a reason without one."""
    rules = [row for row in EXPLAINED if re.fullmatch(row[0], str(dump)) and re.match(kind, row[1])]
    unknown = {place: text for place, text in differences.items()
               if not any(re.fullmatch(places, place) for _, places, _ in rules)}  # fmt: skip
    gone = [(places, reason) for _, places, reason in rules
            if not any(re.fullmatch(places, place) for place in differences)]  # fmt: skip
    if unknown:
        shown = "\n".join(f"  {place}: {text}" for place, text in list(unknown.items())[:20])
        pytest.fail(f"{dump}: {len(unknown)} differences that nobody has explained:\n{shown}", pytrace=False)
    if gone:
        pytest.fail(f"{dump}: explained, but no longer so: {gone}", pytrace=False)
