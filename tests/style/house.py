"""The tree that the rules are about: its folders and files, their includes and functions; and how a rule is judged.

Each rule is a procedure over a tree's path, so that it can be tried on a tiny tree with a planted fault.
"""

import functools
import json
import os
import pathlib
import re
import shutil
import subprocess

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()

FLOORS = ["Main", "Project", "Platform", "BasicLib", "Common", "Base"]  # the program: includes point to the right
BESIDE = ["tools"]  # programs that stand on Platform and below as Project does
SOURCES = {".c", ".cpp", ".h"}
NO_CODE = re.compile(r"""//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<!\w)'(?:\\.|[^'\\\n])+'""", re.DOTALL)


def files(top, *folders):
    """The files below the folders, or of the whole tree: without what git, Python and the builds keep in it."""
    for folder in folders or (".",):
        for place, names, found in os.walk(top / folder):
            names[:] = sorted(name for name in names if name not in (".git", "__pycache__", ".pytest_cache"))
            if pathlib.Path(place) == top:
                names[:] = [name for name in names if not name.startswith("build")]
            yield from (pathlib.Path(place, name) for name in sorted(found))


def sources(top, *folders):
    return [path for path in files(top, *folders) if path.suffix in SOURCES]


def program(top):
    return sources(top, *FLOORS, *BESIDE)


def code(path):
    """A source's text with blanks in place of comments and literals; the lines stay."""
    return NO_CODE.sub(lambda found: re.sub(r"[^\n]", " ", found[0]), path.read_text())


def literals(path):
    """(line, text) of each string literal."""
    text = path.read_text()
    for found in NO_CODE.finditer(text):
        if found[0].startswith('"'):
            yield text.count("\n", 0, found.start()) + 1, found[0][1:-1]


def includes(top, path):
    """(line, name) of each include that is quoted or names a file of the tree."""
    for number, line in enumerate(path.read_text().splitlines(), 1):
        found = re.match(r'\s*#\s*include\s*(["<])([^">]+)', line)
        if found and (found[1] == '"' or (top / found[2]).is_file()):
            yield number, found[2]


def tags(top, paths, kinds="f"):
    """What ctags tells of things in files, functions unless other kinds are named: path, name, line and end."""
    if not paths:
        return []
    names = "\n".join(str(path.relative_to(top)) for path in paths)
    command = ["ctags", "-L", "-", "--output-format=json", "--languages=C,C++", f"--kinds-C={kinds}",
               f"--kinds-C++={kinds}", "--fields=+ne", "-o", "-"]
    run = subprocess.run(command, cwd=top, input=names, capture_output=True, text=True, check=True)
    return sorted((json.loads(line) for line in run.stdout.splitlines()), key=lambda tag: (tag["path"], tag["line"]))


@functools.cache
def configured():
    """A build folder with compile commands that clang takes, and with the link commands of all targets; never built."""
    folder = BUILD / "style"
    shutil.rmtree(folder, ignore_errors=True)  # CMake leaves the commands of targets that are no more
    subprocess.run(["cmake", "-S", TOP, "-B", folder, "-G", "Unix Makefiles", "-DCMAKE_BUILD_TYPE=Debug",
                    "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DHWREG_TESTS=ON", "-DHWREG_FUZZ=ON"],
                   check=True, stdout=subprocess.DEVNULL)
    return folder


def judge(found, stated, advice):
    """Fails for what was found (place: finding) and is not stated (place: reason), and for what is stated in vain."""
    wrong = [finding for place, finding in found.items() if place not in stated]
    idle = [f"{place}: stated, but no longer so: take it out of the table" for place in stated if place not in found]
    none(wrong + idle, advice)


def none(findings, advice):
    if findings:
        pytest.fail("\n".join([f"{advice}:", *findings]), pytrace=False)
