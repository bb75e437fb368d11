"""Formatting: clang-format for C and C++, and plain lines everywhere."""

import re
import subprocess

import pytest

from house import SOURCES, TOP, files, none, sources

TEXTS = {".py", ".md", ".cmake", ".board", ".commands", ".dict", ".txt", ".sh", ".spec", ".1", ".8", *SOURCES}
COLUMNS = {**dict.fromkeys(SOURCES, 110), ".py": 120, ".cmake": 120, ".txt": 120, ".spec": 120, "": 120}  # "": scripts


def texts(top):
    """The files that people write: by their suffix, or as scripts by their first line."""
    for path in files(top):
        if path.suffix in TEXTS or path.name == "CMakeLists.txt" or not path.suffix and path.read_bytes()[:2] == b"#!":
            yield path


def unformatted(top):
    paths = [path.relative_to(top) for path in sources(top)]
    run = subprocess.run(["clang-format", "--dry-run", "-Werror", "--style=file", *paths], cwd=top,
                         capture_output=True, text=True)
    found = re.findall(r"^([^:\n]+:\d+):\d+: error", run.stderr, re.MULTILINE)
    return sorted(set(found)) or ([run.stderr] if run.returncode else [])


def unclean(top):
    for path in texts(top):
        text = path.read_text()
        here = path.relative_to(top)
        for number, line in enumerate(text.split("\n"), 1):
            if "\t" in (line.removeprefix("\t") if path.name == "rules" else line):  # make wants one before commands
                yield f"{here}:{number}: a tab"
            if line.endswith((" ", "\r")):
                yield f"{here}:{number}: blanks at the end"
        if text and not text.endswith("\n"):
            yield f"{here}:{number}: no newline at the end of the file"


def wide(top):
    for path in texts(top):
        for number, line in enumerate(path.read_text().splitlines(), 1):
            if len(line) > COLUMNS.get(path.suffix, len(line)):
                yield f"{path.relative_to(top)}:{number}: {len(line)} columns"


def test_sources_are_as_clang_format_wants_them():
    none(unformatted(TOP), "run clang-format -i on these files")


def test_lines_have_no_tabs_and_no_blanks_at_the_end():
    none(list(unclean(TOP)), "take these out")


def test_lines_are_not_too_wide():
    none(list(wide(TOP)), "break these lines: C and C++ at 110 columns, Python and scripts at 120")


@pytest.mark.parametrize("rule, text, line", [
    (unformatted, "int  a;\n", "Base/A.cpp:1"),
    (unclean, "int a;\n\tint b;\n", "Base/A.cpp:2: a tab"),
    (unclean, "int a; \n", "Base/A.cpp:1: blanks at the end"),
    (unclean, "int a;", "Base/A.cpp:1: no newline at the end of the file"),
    (wide, f"// {'a' * 108}\n", "Base/A.cpp:1: 111 columns"),
])
def test_planted_lines_are_found(plant, rule, text, line):
    top = plant({".clang-format": (TOP / ".clang-format").read_text(), "Base/A.cpp": text, "Base/B.h": "int b;\n"})
    assert list(rule(top)) == [line]
