"""The example of CONTRIBUTING.md does what the page says, in a copy of the tree."""

import os
import re
import shutil
import subprocess

import pytest

from examples import TOP

PAGE = (TOP / "CONTRIBUTING.md").read_text()
NEW_FILES = re.findall(r"^`([^`\n]+)`:\n\n```\w*\n(.*?)^```$", PAGE, re.DOTALL | re.MULTILINE)
CHANGES = "".join(re.findall(r"^```diff\n(.*?)^```$", PAGE, re.DOTALL | re.MULTILINE))
LEFT_OUT = shutil.ignore_patterns(".git", "build*", "__pycache__")

STROBE = "    IoWrite8(LPT_CONTROL, CONTROL_STROBE);\n    IoDelay(1);\n    IoWrite8(LPT_CONTROL, CONTROL_IDLE);\n"
SWAPPED = "    IoWrite8(LPT_CONTROL, CONTROL_IDLE);\n    IoDelay(1);\n    IoWrite8(LPT_CONTROL, CONTROL_STROBE);\n"
WAIT = "    if (!WaitNotBusy())\n"


def sh(*command, given=None, env=None):
    return subprocess.run(command, input=given, env={**os.environ, **(env or {})}, text=True, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def build(tree):
    ran = sh("cmake", "--build", tree / "build", "--parallel", "2", "--target", "hwreg", "--target", "hwboard")
    assert ran.returncode == 0 and "warning" not in ran.stdout, ran.stdout[-3000:]


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    """The tree with the page's changes in it, built."""
    tree = tmp_path_factory.mktemp("tree")
    shutil.copytree(TOP, tree, ignore=LEFT_OUT, dirs_exist_ok=True)
    for name, text in NEW_FILES:
        (tree / name).parent.mkdir(exist_ok=True)
        (tree / name).write_text(text)
    for words in re.findall(r"^    (chmod .*)$", PAGE, re.MULTILINE):
        assert sh("sh", "-c", f"cd '{tree}' && {words}").returncode == 0
    patched = sh("patch", "-p1", "--no-backup-if-mismatch", "-d", tree, given=CHANGES)
    assert patched.returncode == 0 and "fuzz" not in patched.stdout, patched.stdout
    configured = sh("cmake", "-S", tree, "-B", tree / "build", "-DCMAKE_BUILD_TYPE=Debug")
    assert configured.returncode == 0, configured.stdout
    build(tree)
    return tree


def run_tests(tree, *which):
    return sh("/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", *which,
              env={"HWREG_BUILD": str(tree / "build")})


def test_page_has_the_pieces_of_a_change():
    assert [name for name, _ in NEW_FILES] == [
        "Platform/Printer.h", "Platform/Printer.cpp", "Project/Lpt.h", "Project/Lpt.cpp", "sim/models/Printer.h",
        "sim/models/Printer.cpp", "sim/boards/printer.board", "sim/boards/acme.board", "tests/command/test_acme.py",
        "tests/command/test_lpt.py", "tests/libraries/ring",
        "tests/libraries/test_libraries.py",
    ]  # fmt: skip
    changed = re.findall(r"^\+\+\+ b/(.*)$", CHANGES, re.MULTILINE)
    assert changed == ["Common/Global.h", "Main/Parser.cpp", "Main/Commands.h", "Main/Commands.cpp", "Main/Main.cpp",
                       "sim/Keywords.cpp", "sim/CMakeLists.txt", "docs/hwreg-board.5", "BasicLib/Chipset.h",
                       "BasicLib/Chipset.cpp"]


def test_new_test_of_the_page_passes(tree):
    ran = run_tests(tree, tree / "tests/command/test_lpt.py")
    assert ran.returncode == 0 and "3 passed" in ran.stdout, ran.stdout


def test_chipset_of_the_page_is_served_as_its_row_says(tree):
    ran = run_tests(tree, tree / "tests/command/test_acme.py")
    assert ran.returncode == 0 and "2 passed" in ran.stdout, ran.stdout
    path = tree / "BasicLib/Chipset.cpp"
    text = path.read_text()
    path.write_text(re.sub(r".*VENDOR_ACME.*\n", "", text))
    build(tree)
    ran = run_tests(tree, tree / "tests/command/test_acme.py")
    path.write_text(text)
    build(tree)
    assert ran.returncode == 1 and "2 failed" in ran.stdout, ran.stdout


def test_what_the_page_adds_keeps_the_floors(tree):
    ran = run_tests(tree, tree / "tests/style/test_floors.py")
    assert ran.returncode == 0, ran.stdout


def test_documents_are_missed(tree):
    ran = run_tests(tree, tree / "tests/docs/test_words.py")
    assert ran.returncode == 1 and "'LPT'" in ran.stdout
    assert "FAILED" in ran.stdout and "test_every_switch_word_is_in_a_form" in ran.stdout


def run_ring(tree):
    return sh(tree / "scripts" / "test", "libraries", env={"HWREG_BUILD": str(tree / "build")})


def test_ring_of_the_page_is_found_and_passes(tree):
    assert "\n    scripts/test libraries\n" in PAGE
    ran = run_ring(tree)
    assert ran.returncode == 0 and ran.stdout.endswith("\n1 passed, 0 failed\n"), ran.stdout


def test_ring_of_the_page_fails_when_the_program_asks_for_more(tree):
    path = tree / "CMakeLists.txt"
    text = path.read_text()
    path.write_text(text.replace("-static-libstdc++ -static-libgcc", "").replace("--as-needed", "--no-as-needed"))
    ran = run_ring(tree)
    path.write_text(text)
    assert ran.returncode == 1 and ran.stdout.endswith("\n0 passed, 1 failed\n"), ran.stdout
    build(tree)


def test_row_of_the_ring_is_missed(tree):
    ran = run_tests(tree, tree / "tests/docs/test_rings.py")
    assert ran.returncode == 1 and "FAILED" in ran.stdout and "test_readme_has_a_row_for_each_ring" in ran.stdout


@pytest.mark.parametrize("good, bad", [(STROBE, SWAPPED), (WAIT, "    if (WaitNotBusy(), false)\n")],
                         ids=["strobe swapped", "no wait"])
def test_breaking_the_command_as_the_page_says_fails_its_test(tree, good, bad):
    path = tree / "Platform/Printer.cpp"
    text = path.read_text()
    assert text.count(good) == 1
    path.write_text(text.replace(good, bad))
    build(tree)
    ran = run_tests(tree, tree / "tests/command/test_lpt.py")
    path.write_text(text)
    assert ran.returncode == 1 and "failed" in ran.stdout
