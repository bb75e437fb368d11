"""The manual pages are clean and built as usual."""

import os
import re
import subprocess

import pytest

from texts import MANUAL

PAGES = pytest.mark.parametrize("page", sorted(MANUAL.parent.glob("*.[158]")), ids=lambda page: page.name)

# man-pages(7), "Sections within a manual page"
SECTIONS = ["NAME", "LIBRARY", "SYNOPSIS", "CONFIGURATION", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "RETURN VALUE",
            "ERRORS", "ENVIRONMENT", "FILES", "ATTRIBUTES", "VERSIONS", "STANDARDS", "HISTORY", "NOTES", "CAVEATS",
            "BUGS", "EXAMPLES", "AUTHORS", "REPORTING BUGS", "COPYRIGHT", "SEE ALSO"]  # fmt: skip


def output(*command):
    """Exit status, and what the command says of the page, on either descriptor; with -Z the second one alone."""
    environment = {**os.environ, "LC_ALL": "C.UTF-8", "MANROFFSEQ": "", "MANWIDTH": "80"}
    ran = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, capture_output=True, check=False)
    said = ran.stderr if "-Z" in command else ran.stdout + ran.stderr
    return ran.returncode, said.decode()


@PAGES
def test_mandoc_has_nothing_to_say(page):
    assert output("mandoc", "-T", "lint", page) == (0, "")


@PAGES
def test_man_has_no_warnings(page):
    assert output("man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page) == (0, "")


def test_a_mistake_in_the_page_is_seen(tmp_path):
    broken = tmp_path / "broken.8"
    broken.write_text(MANUAL.read_text() + ".BOLD text\n\\fQ\n")
    assert "BOLD" in output("mandoc", "-T", "lint", broken)[1]
    assert "warning" in output("man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", broken)[1]


@PAGES
def test_sections_are_the_usual_ones_in_the_usual_order(page):
    sections = re.findall(r"^\.SH (.*)$", page.read_text(), re.MULTILINE)
    assert [name for name in SECTIONS if name in sections] == sections
    assert {"NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS", "EXAMPLES", "SEE ALSO"} <= set(sections)


def test_whatis_finds_the_page_by_its_name():
    assert output("lexgrog", MANUAL)[1].endswith('"hwreg - read and write the registers of a PC"\n')


def test_version_is_the_programs(run):
    title = re.search(r'^\.TH HWREG 8 \d{4}-\d\d-\d\d "hwreg (.*)"$', MANUAL.read_text(), re.MULTILINE)
    assert f"Rev {title.group(1)} BUILD" in run("/?").text
