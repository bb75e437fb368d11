"""The fuzzers of tests/desk/fuzz for a short time each, from a seed that stands here; and what they would not miss."""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]
FUZZERS = ("pci", "firmware", "registers", "cells", "together", "boards", "logs")
SECONDS = "2"


def fuzz(tree, *words, build=None, **environment):
    build = {"HWREG_BUILD": str(build)} if build else {}
    return subprocess.run([tree / "tests" / "desk" / "fuzz" / "run.py", *words], text=True, capture_output=True,
                          env={**os.environ, "FUZZ_SEED": "20261122", "FUZZ_SECONDS": SECONDS, **build, **environment},
                          check=False)  # fmt: skip


@pytest.mark.parametrize("fuzzer", FUZZERS)
def test_nothing_is_found(fuzzer):
    ran = fuzz(TOP, fuzzer)
    assert ran.returncode == 0 and f"{fuzzer}: " in ran.stdout and ", 0 findings" in ran.stdout, ran.stdout + ran.stderr


@pytest.fixture
def tree(tmp_path):
    """A tree with the fuzzers and the tool, to plant faults in; its build has the simulator."""
    for folder in ("tools", "tests/desk"):
        shutil.copytree(TOP / folder, tmp_path / folder, ignore=shutil.ignore_patterns("__pycache__"))
    build = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build"))
    (tmp_path / "build").mkdir()
    shutil.copy(build / "libhwboard.so", tmp_path / "build")
    return tmp_path


# What is planted, where one of these runs must find it, and how it is told.
FAULTS = [
    ("registers", "tools/hwregboard/superio.py", "except ValueError:", "except KeyError:", "ValueError in superio.py:"),
    ("registers", "tools/hwregboard/board.py", "at += max(count, 1)", "at += count",
     "does not end, import in board.py:byte_lines"),
    ("together", "tools/hwregboard/cells.py", "address & 0xF0 != MODULES", "address < 0",
     "the simulator refuses the board: "),
    ("pci", "tools/hwregboard/lspci.py", 'f"{row:02x}: "', 'f"{row ^ 16:02x}: "',
     "import of export --lspci gives another machine"),
    ("boards", "tools/hwregboard/errors.py", "super().__init__(letters(", "super().__init__(str(",
     "prints what is no letter"),
    ("boards", "tools/hwregboard/board.py", 'self.fail(f"unknown keyword: {shown(keyword)}")',
     'Mistake("nobody", 0, "?")', "fails without naming a file"),
    ("firmware", "tools/hwregboard/board.py", 'elif text.startswith("note: ") and self.section:',
     'elif text.startswith("note: "):', "what was imported is not read back"),
]


@pytest.mark.parametrize("fuzzer, file, old, new, told", FAULTS, ids=[fault[-1][:40] for fault in FAULTS])
def test_planted_faults_are_found_and_repeat(tree, fuzzer, file, old, new, told):
    path = tree / file
    text = path.read_text()
    assert text.count(old) == 1
    path.write_text(text.replace(old, new))
    ran = fuzz(tree, fuzzer, build=tree / "build", FUZZ_EXECUTIONS="4000", FUZZ_SECONDS="300", FUZZ_FIRST="1")
    assert ran.returncode == 1 and told in ran.stdout, ran.stdout + ran.stderr
    name = re.search(r"run.py --again (\S+)", ran.stdout[ran.stdout.index(told):])[1]
    again = fuzz(tree, "--again", name, build=tree / "build")
    assert again.returncode == 1 and told in again.stdout, again.stdout + again.stderr
