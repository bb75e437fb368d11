"""The page on board files says what the simulator's tables say, and its examples make a machine."""

import os
import re
import subprocess

import pytest

from harness import BUILD, TOP

PAGE = TOP / "docs" / "hwreg-board.5"
TABLES = [TOP / "sim" / "Keywords.cpp", TOP / "sim" / "BoardReader.cpp"]
OF_FILES = ["include", "capture", "end"]


def plain(line):
    return re.sub(r"\\(f[BIR]|e|-|&)", lambda found: {"-": "-", "e": "\\"}.get(found[1], ""), line)


def entries(text):
    """The keywords of the page with their operands, and the example of each."""
    found = re.findall(r"^\.TP\n\\fB(\S+)\\fR ?(.*)\n((?:.*\n)*?)\.EX\n((?:.*\n)*?)\.EE\n", text, re.MULTILINE)
    return [(plain(word), plain(operands), plain(example)) for word, operands, _, example in found]


def table(path):
    rows = re.findall(r'^ *\{"([a-z0-9-]+)",\s+"((?:[^"\\]|\\.)*)",\s+\w+\}', path.read_text(), re.MULTILINE)
    return {word: operands.replace('\\"', '"') for word, operands in rows}


def check(tmp_path, text):
    (tmp_path / "page.board").write_text(text)
    (tmp_path / "mistake.bin").write_bytes(b"\xea")
    ran = subprocess.run([TOP / "sim" / "hwreg-sim", "--check", "page.board"], cwd=tmp_path, check=False,
                         capture_output=True, text=True, env={**os.environ, "HWREG_BUILD": str(BUILD)})  # fmt: skip
    return ran.stderr, ran.returncode


def test_the_page_has_each_keyword_with_its_operands():
    said = {word: operands for word, operands, _ in entries(PAGE.read_text())}
    known = {word: operands for path in TABLES for word, operands in table(path).items()}
    assert len(known) > 60 and set(OF_FILES) < set(known)
    assert said == known


def test_each_example_shows_its_keyword():
    for word, _, example in entries(PAGE.read_text()):
        assert re.search(rf"^{re.escape(word)}( |$)", example, re.MULTILINE), word


def test_the_examples_make_a_machine(tmp_path):
    text = "".join(example for word, _, example in entries(PAGE.read_text()) if word not in OF_FILES)
    assert check(tmp_path, text) == ("", 0)


def test_the_capture_of_the_page_is_whole(tmp_path):
    (capture,) = re.findall(r"^\.EX\n(capture 1\n(?:[^.\n].*\n)+?end\n)\.EE", PAGE.read_text(), re.MULTILINE)
    assert check(tmp_path, plain(capture)) == ("", 0)
    assert check(tmp_path, plain(capture).removesuffix("end\n"))[1] == 125


@pytest.mark.parametrize("page", ["docs/boards.md", "README.md"])
def test_no_other_page_has_a_second_copy(page):
    assert "pci-remove BB:DD.F" not in (TOP / page).read_text()
