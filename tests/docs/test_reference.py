"""The command reference: every entry is built alike, and its forms are the program's."""

import itertools
import re

import pytest

import texts
from examples import plain_sessions

ENTRIES = texts.reference_entries()
TEXT = texts.REFERENCE.read_text()

# A value for each operand that does no more than a form has to.
SAMPLES = {
    "address": "0xFFFFFF00", "argument": "1", "bit": "3", "bus": "0", "controller": "0", "cpu": "0", "data": "0x12",
    "data-port": "0x71", "delay": "0", "device": "0x1f", "die": "0", "file": "made.bin", "from": "0xA0",
    "function": "0", "high": "0", "index-port": "0x70", "leaf": "0", "length": "0x10", "low": "1", "message": "0xFF",
    "msr": "0x1A0", "offset": "0x40", "port": "0xFF00", "register": "0x20", "seconds": "60", "slave": "0xA0",
    "text": "made", "to": "0xA2", "type": "4", "value": "1",
}  # fmt: skip


def variants(form):
    """The command lines that a form stands for: each choice, with and without what may be left out."""
    full = re.sub(r"[\[\].]", "", form)
    short = re.sub(r" \[[^\]]*\](\.\.\.)?", "", form)
    for text in {full, short}:
        choices = [word.split("|") for word in text.split()]
        for words in itertools.product(*choices):
            yield " ".join(SAMPLES.get(word, word) for word in words)


LINES = sorted({line for form in texts.reference_forms() for line in variants(form)})


@pytest.mark.parametrize("entry", ENTRIES, ids=lambda entry: entry.names[0])
def test_entry_has_the_headings_in_their_order(entry):
    assert entry.headings == texts.HEADINGS
    assert all(entry.parts[heading].strip() for heading in texts.HEADINGS)


@pytest.mark.parametrize("entry", ENTRIES, ids=lambda entry: entry.names[0])
def test_entry_describes_the_operands_of_its_forms(entry):
    described = entry.operands()
    assert set(described) == set().union(*map(texts.operands_of, entry.forms))
    assert len(described) == len(set(described))


@pytest.mark.parametrize("entry", ENTRIES, ids=lambda entry: entry.names[0])
def test_entry_shows_an_example_of_its_own(entry):
    sessions = plain_sessions(entry.parts["EXAMPLE"].split("\n"))
    commands = [command for session in sessions for command, _ in session.steps]
    for name in entry.names:
        words = set(name.split())
        assert any(words <= set(command.split()) for command in commands)


@pytest.mark.parametrize("line", LINES)
def test_program_takes_the_form(run, line):
    result = run(line, extra="delay 0ed" if line.startswith("/SMB") else ())
    refused = result.text == "" and result.status in (2, 15, 255)
    assert not refused
    assert result.text or line.startswith(("/SHUTDOWN", "/TIMEOUT", "/RTC 60 /RESET", "/RTC 60 /GRESET"))


def test_every_sample_is_used():
    assert set().union(*map(texts.operands_of, texts.reference_forms())) == set(SAMPLES)


def test_list_of_commands_is_complete():
    listed = re.search(r"^  Commands +(.*?)\n\n", TEXT, re.DOTALL | re.MULTILINE).group(1)
    assert re.split(r"\s{2,}| and ", listed) == [name for entry in ENTRIES for name in entry.names]


def test_text_is_plain_and_fits_a_terminal():
    assert TEXT.isascii() and "\t" not in TEXT and TEXT.endswith(".\n")
    lines = TEXT.split("\n")
    for session in plain_sessions(lines):
        lines[session.first : session.first + session.count] = [""] * session.count
    assert [line for line in lines if len(line) > 79 or line != line.rstrip()] == []
