"""What is wrong with a file, told by file and line."""


class Mistake(Exception):
    """`FILE:LINE: what is wrong`, or `FILE: what is wrong` with line 0."""

    def __init__(self, file: str, line: int, text: str) -> None:
        place = f"{file}:{line}" if line else file
        super().__init__(f"{place}: {text}".encode("ascii", "backslashreplace").decode())


def shown(word: str) -> str:
    """A word of somebody else's file, cut to what fits a message."""
    return word if len(word) <= 40 else word[:37] + "..."
