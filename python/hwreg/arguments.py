"""Arguments are looked at before anything runs: hwreg checks nothing."""

from __future__ import annotations

import math
from collections.abc import Sequence

from hwreg.errors import WrongArgument

WIDTHS = (8, 16, 32)
LAST_BIT = 31
LAST_PORT = 0xFFFF
LAST_ADDRESS = 0xFFFFFFFF


def number(name: str, value: int, most: int, least: int = 0) -> int:
    """The plain number: one of an Enum spells its name."""
    if isinstance(value, bool) or not isinstance(value, int):
        raise WrongArgument(f"{name} is {value!r}: it must be a whole number")
    if not least <= value <= most:
        raise WrongArgument(f"{name} is {spelled(value)}: it must be {spelled(least)} to {spelled(most)}")
    return int(value)


def seconds(name: str, value: float) -> float:
    if isinstance(value, bool) or not isinstance(value, (int, float)) or not 0 < value < math.inf:
        raise WrongArgument(f"{name} is {value!r}: it must be some seconds")
    return float(value)


def spelled(value: int) -> str:
    """A number as it stands in messages and on the command line."""
    value = int(value)
    return str(value) if -10 < value < 10 else f"{value:#x}"


def width_of(width: int, widths: Sequence[int] = WIDTHS) -> int:
    if isinstance(width, bool) or not isinstance(width, int) or width not in widths:
        raise WrongArgument(f"width is {width!r}: it must be one of {', '.join(map(str, widths))}")
    return int(width)


def data(value: int, width: int) -> int:
    return number("value", value, (1 << width) - 1)


def bit_number(bit: int) -> int:
    return number("bit", bit, LAST_BIT)


def bit_value(value: bool | int) -> int:
    if value not in (0, 1):
        raise WrongArgument(f"value is {value!r}: a bit is 0 or 1, False or True")
    return int(value)


def width_of_bit(bit: int) -> int:
    """That of the access by which hwreg reaches a bit."""
    return 8 if bit < 8 else 16 if bit < 16 else 32


def place(name: str, value: int, width: int, last: int, unaligned: bool) -> int:
    """A place whose register lies within its space, and at a multiple of its width unless that is said."""
    count = width // 8
    number(name, value, last)
    if value + count - 1 > last:
        raise WrongArgument(f"{name} is {spelled(value)}: {width} bits there go beyond {spelled(last)}")
    if value % count and not unaligned:
        raise WrongArgument(f"{name} is {spelled(value)}: that is no multiple of {count}, the bytes of {width} bits; "
                            "say unaligned=True if it is meant")  # fmt: skip
    return value


def span(name: str, first: int, length: int, last: int) -> None:
    """A range that ends within its space."""
    number(name, first, last)
    number("length", length, last + 1, 1)
    if first + length - 1 > last:
        raise WrongArgument(f"{spelled(length)} bytes from {name} {spelled(first)} on go beyond {spelled(last)}")
