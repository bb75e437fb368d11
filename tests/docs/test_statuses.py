"""The exit statuses in README.md, the reference and the manual page: the same ones in the same words, those of each
command's own part among them, and the program's."""

import re
import subprocess

import pytest

import texts
from examples import TOP

VALUE, SIGNAL = "the value read", "128 + n"
REMARK = re.compile(r"\([^()]*\)")

# A line for each status and each command that the table names with it, on the board named or on intel.
LINES = {
    VALUE: {
        "/IO": "/IO /RB 0x64", "/MEM": "/MEM /RB 0xFFFFE", "/PCI": "/PCI /RB 0 0 0 0", "/MSR": "/MSR /RD 0 0x1A0",
        "/CPUID": "/CPUID /RD 0", "/SMBUS": "/SMBUS /S 0xA0 0xAE", "/I2C": "--board amd /I2C /RB 0 0x50 2",
        "/SMN": "--board amd /SMN /RB 1 0x18000",
    },
    0: {
        "/IO": "/IO /DUMP 0xFF00 /LOG", "/MEM": "/MEM /RF x 0 1", "/PCI": "/PCI /DUMP /NOMSG", "/SIO": "/SIO /RB 0x20",
        "/SMU": "--board amd /SMU /RD 2", "/SMBIOS": "/SMBIOS /TYPE 4", "/ACPI": "/ACPI", "/RTC": "/RTC 60",
        "/SHUTDOWN": "/SHUTDOWN", "/TIMEOUT": "/TIMEOUT", "": "/H",
    },
    2: {
        "": "/IO /H", "/IO": "/IO", "/MEM": "/MEM 0", "/PCI": "/PCI /RQ", "/MSR": "/MSR /WB", "/CPUID": "/CPUID",
        "/RTC": "/RTC 6", "/SMN": "--board amd /SMN /RD 17 0",
    },
    6: {"": "--board noiopl /H"},
    7: {"/SMBIOS": "--board base /SMBIOS"},
    12: {"/SMBUS": "/SMBUS /DUMP 0xA0"},
    14: {"/SMBIOS": "/SMBIOS /S nothing", "/ACPI": "--board base /ACPI", "/MEM": "/MEM /S 0xF0000 0x10000 firmware"},
    15: {"": "/LOG", "/SMN": "/SMN /RD 0 0", "/SMU": "/SMU /RD 2"},
    21: {
        "/MEM": "/MEM /S 0xFE000 0x19 firmware", "/IO": "/IO /RF x 1 0", "/RTC": "/RTC 0",
        "/SHUTDOWN": "/SHUTDOWN /T 9", "/TIMEOUT": "/TIMEOUT /T 9",
    },
    255: {"/SMBUS": "/SMBUS /H", "/I2C": "/I2C /RB 0 0x50 0"},
}  # fmt: skip
NOT_RUN = {
    3: "no line ends so",
    5: "memory is refused in the ring faults",
    9: "memory is refused in the ring faults",
    SIGNAL: "tests/command/test_signals.py",
}
RUN = [(status, line) for status, lines in LINES.items() for line in lines.values()]


def plain(text):
    """In one line, without markup and without the program's own numbers."""
    return " ".join(re.sub(r" \(0x8\w+\)|`", "", " ".join(text.split())).rstrip(".").split())


def table(rows):
    return {int(key) if key.isdigit() else key: plain(text) for key, text in rows}


def readme():
    return table(re.findall(r"^\| (the value read|\d+|128 \+ n) \| (.*) \|$", (TOP / "README.md").read_text(), re.M))


def reference():
    part = texts.common_part("EXIT STATUS")
    return table(re.findall(r"^  (the value read|\d+|128 \+ n)  +(\S.*\n(?: {19}.*\n)*)", part, re.M))


def manual():
    page = subprocess.run(["mandoc", "-T", "ascii", "-O", "width=400", texts.MANUAL], capture_output=True, check=True)
    part = re.sub(r".\x08", "", page.stdout.decode()).split("\nEXIT STATUS\n")[1].split("\nFILES\n")[0]
    rows = re.findall(r"^ {7}(the value read|128 \+ n|\d+)\s+(\S.*)", part, re.M)
    return table((key, text[0].lower() + text[1:]) for key, text in rows)


def commands_in(text):
    """The commands that a row names, its remarks left out."""
    names = {name for entry in texts.reference_entries() for name in entry.names}
    return set(re.findall(r"/[A-Z0-9]+", REMARK.sub("", text))) & {name.split()[0] for name in names}


def test_reference_has_the_statuses_of_the_readme():
    assert reference() == readme()


def test_manual_page_has_the_statuses_of_the_readme():
    assert manual() == readme()


def test_every_status_has_its_lines_or_a_reason_for_none():
    assert set(LINES) | set(NOT_RUN) == set(readme())
    assert not set(LINES) & set(NOT_RUN)


@pytest.mark.parametrize("status", LINES)
def test_every_command_of_a_status_has_a_line(status):
    assert set(LINES[status]) - {""} == commands_in(readme()[status])


@pytest.mark.parametrize("entry", texts.reference_entries(), ids=lambda entry: entry.names[0])
def test_statuses_of_a_command_are_in_the_table_with_its_name(entry):
    part = re.sub(r"low 8 bits|byte 2|above 16", "", " ".join(entry.parts["EXIT STATUS"].split()))
    statuses = {int(number) for number in re.findall(r"(?<![\w/])\d+(?!\w)", part)}
    assert statuses or "value" in part
    for status in statuses:
        row = readme()[status]
        assert status in (0, 2) or {name.split()[0] for name in entry.names} & commands_in(row), f"{status}: {row}"


@pytest.mark.parametrize("status, line", RUN, ids=[f"{status} {line}" for status, line in RUN])
def test_program_ends_so(run, status, line):
    board, words = re.fullmatch(r"(?:--board (\w+) )?(.*)", line).groups()
    result = run(words, board=board or "intel", stdin=b"\x1b")  # ESC, for those that wait for it
    if status == VALUE:
        status = int(re.findall(r"[0-9A-Fa-f]+", result.text.split(", Ebx")[0])[-1], 16) & 0xFF
        assert status > 0
    assert result.status == status
