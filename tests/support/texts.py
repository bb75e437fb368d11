"""What the program's source and its documents say about switch words and forms, read by a machine.

A form is a line such as "/PCI /RB|/RW|/RD bus device function offset": switch words, and operands in small letters.
"""

import re
import subprocess

from harness import TOP

REFERENCE = TOP / "docs" / "commands.txt"
MANUAL = TOP / "docs" / "hwreg.8"
COMPLETION = TOP / "completion" / "hwreg"

HEADINGS = ["FORMS", "OPERANDS", "OUTPUT", "EXIT STATUS", "EXAMPLE", "NEEDS", "DANGERS"]

OPTIONS = {"?", "H", "HELP", "LOG", "TEXT", "NOMSG"}
WITHOUT_EFFECT = {"DEBUG", "EDID", "FLASH", "SLEEP", "USB"}
BY_HANDLERS_ALONE = {"A", "ALL", "T"}  # words that a command looks for itself: they have no flag


def switch_table():
    """The parser's words and, for each, the flags that it sets."""
    text = (TOP / "Main" / "Parser.cpp").read_text()
    table = re.search(r"mSwitchWords\[\] = \{\n(.*?)\n\};", text, re.DOTALL).group(1)
    rows = re.findall(r'\{"([^"]+)", ([^}]*)\}', table)
    assert len(rows) == len(table.splitlines())
    return {word: set(re.findall(r"Flag::(\w+)", flags)) for word, flags in rows}


def dispatched_flags():
    """The flags that choose a command."""
    text = (TOP / "Main" / "Commands.cpp").read_text()
    table = re.search(r"mCommands\[\] = \{\n(.*?)\n\};", text, re.DOTALL).group(1)
    return set(re.findall(r"Flag::(\w+)", table)) - {"HELP"}


class Entry:
    """One command of the reference: its title, and its parts by heading."""

    def __init__(self, title, body):
        self.title = title
        self.headings = re.findall(r"^([A-Z ]+)$", body, re.MULTILINE)
        self.parts = dict(zip(self.headings, re.split(r"^[A-Z ]+\n", body, flags=re.MULTILINE)[1:]))
        self.forms = [line.strip() for line in self.parts["FORMS"].strip().splitlines()]

    @property
    def names(self):
        """["/IO /INDEX"] of the title "/IO /INDEX - registers behind ..."."""
        return self.title.split(" - ")[0].split(", ")

    def operands(self):
        """The names described under OPERANDS."""
        return re.findall(r"^  ([a-z-]+)  +\S", self.parts["OPERANDS"], re.MULTILINE)


def reference_entries():
    commands = REFERENCE.read_text().split("\nCommands\n********\n")[1]
    pieces = re.split(r"^(/.*)\n=+\n", commands, flags=re.MULTILINE)[1:]
    return [Entry(title, body) for title, body in zip(pieces[::2], pieces[1::2])]


def common_part(heading):
    """A part of the reference that holds for all commands, such as DANGERS."""
    common = REFERENCE.read_text().split("\nIn common\n*********\n")[1].split("\nCommands\n********\n")[0]
    pieces = re.split(r"^([A-Z][A-Z ]+)\n\n", common, flags=re.MULTILINE)[1:]
    return dict(zip(pieces[::2], pieces[1::2]))[heading]


def reference_forms():
    return [form for entry in reference_entries() for form in entry.forms]


def manual_forms():
    """Those of the synopsis, as a reader sees it."""
    page = subprocess.run(["mandoc", "-T", "ascii", "-O", "width=200", MANUAL], capture_output=True, check=True)
    text = re.sub(r".\x08", "", page.stdout.decode())
    synopsis = re.search(r"^SYNOPSIS\n(.*?)\n\S", text, re.DOTALL | re.MULTILINE).group(1)
    lines = [line.strip() for line in synopsis.splitlines() if line.strip()]
    return [line.removeprefix("hwreg ") for line in lines]


def completion_forms():
    return re.findall(r"^/.*", (COMPLETION.parent / "forms").read_text(), re.MULTILINE)


def words_of(form):
    """The switch words of a form, without their slashes."""
    return set(re.findall(r"/([A-Z0-9]+)", form))


def operands_of(form):
    return set(re.findall(r"(?<![\w/-])[a-z][a-z-]*", form))
