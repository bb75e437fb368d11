"""What is wrong with a file, told by file and line."""

import re

STRANGE = re.compile(r"[^\n -~]")


class Mistake(Exception):
    """`FILE:LINE: what is wrong`, or `FILE: what is wrong` with line 0."""

    def __init__(self, file: str, line: int, text: str) -> None:
        place = f"{file}:{line}" if line else file
        super().__init__(letters(f"{place}: {text}"))


def letters(text: str) -> str:
    """Text for a message: what is no letter of ASCII is written as its number."""
    return STRANGE.sub(lambda found: found[0].encode("unicode_escape").decode(), text)


def printable(line: str) -> str:
    """A line for a terminal, to which somebody else's file says nothing but letters."""
    return line if line.isprintable() else letters(line)


def shown(word: str) -> str:
    """A word of somebody else's file, cut to what fits a message."""
    return (word if len(word) <= 40 else word[:37] + "...").replace("\n", "\\n")
