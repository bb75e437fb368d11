"""Words of hwreg's command line: which are switches, and which switch the machine off."""

from __future__ import annotations

import os
from collections.abc import Sequence

from hwreg.errors import WrongArgument

# hwreg takes such a word for a switch wherever it stands, bare or behind one of "/", "-" and "\". The ring compares
# the list with the program's.
SWITCHES = frozenset("""
    ? H HELP NOMSG LOG SIO IO MEM PCI SMB SMBUS MSR CPUID RI RB RW RD RQ WI WB WW WD WQ INDEX DUMP DEBUG TEXT S RTC
    SHUTDOWN TIMEOUT RF SMBIOS RESET GRESET SLEEP F ACPI TYPE USB EDID SMN SMU FLASH I2C
""".split())
POWER = frozenset(["RTC", "SHUTDOWN"])


def bare(word: str) -> str:
    return word[1:] if word[:1] in ("/", "-", "\\") else word


def is_switch(word: str) -> bool:
    """Whether the word is a switch behind /S, where words stay as they were typed."""
    return bare(word) in SWITCHES


def in_capitals(word: str) -> str:
    """As hwreg turns it into them: the letters of ASCII alone, so that none but "s" becomes "S"."""
    return "".join(letter.upper() if letter.isascii() else letter for letter in word)


def as_read(words: Sequence[str]) -> list[str]:
    """The words as hwreg compares them with its switches: all up to /S are turned into capitals."""
    end = next((place for place, word in enumerate(words) if bare(in_capitals(word)) == "S"), len(words))
    return [bare(in_capitals(word)) for word in words[:end]] + [bare(word) for word in words[end:]]


def is_power(words: Sequence[str]) -> bool:
    """Whether the line can switch the machine off or restart it. /? would keep it from that; it is not relied on."""
    return not POWER.isdisjoint(as_read(words))


def countdown_of(words: Sequence[str]) -> str | None:
    """The operand of /T, if it is one that takes time."""
    for word, operand in zip(as_read(words), [*words[1:], ""]):
        if word == "T" and operand.strip("0xX_"):
            return operand
    return None


def check(words: Sequence[str]) -> None:
    """That they can be given to a program."""
    for word in words:
        if not isinstance(word, str):
            raise WrongArgument(f"a word is {word!r}: it must be a text")
        try:
            zero = b"\0" in os.fsencode(word)
        except UnicodeEncodeError:
            raise WrongArgument(f"a word is {word!r}: it has characters that no program can be given") from None
        if zero:
            raise WrongArgument(f"a word is {word!r}: it has a zero in it")


def plain(name: str, word: str) -> str:
    """A text or file name that hwreg takes as one operand behind /S."""
    check([word])
    if not word:
        raise WrongArgument(f"{name} is empty")
    if is_switch(word):
        raise WrongArgument(f"{name} is {word!r}: hwreg takes that word for its switch")
    return word
