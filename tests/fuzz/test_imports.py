"""imports.txt names what the program calls of the C library itself: nothing there may outlive a run unseen."""

import pathlib
import subprocess

from test_variables import BUILD

FUZZ = pathlib.Path(__file__).resolve().parent
# Replaced functions, the board, the compiler's and the fuzzer's own.
OTHERS = ("__wrap_", "Board", "FailBeyondMapping", "__sanitizer_", "__sancov_", "_ITM_", "__cxa_finalize",
          "__gmon_start__")


def imported(library):
    """The names that the loader has to find: those of its relocations."""
    listed = subprocess.run(["readelf", "--relocs", "--wide", library], capture_output=True, text=True, check=True)
    rows = [line.split() for line in listed.stdout.splitlines()]
    names = {row[4].partition("@")[0] for row in rows if len(row) > 4 and row[3] == "0000000000000000"}
    return {name for name in names if not name.startswith(OTHERS)}


def stated(text):
    rows = [row.split("  ")[0] for row in text.splitlines() if row and not row.startswith("#")]
    return {name for row in rows for name in row.split()}


def test_what_is_called_of_the_c_library_and_not_replaced_is_listed():
    there, listed = imported(BUILD / "libhwreg_fuzzed.so"), stated((FUZZ / "imports.txt").read_text())
    assert there - listed == set(), "tell in tests/fuzz/imports.txt what these leave behind, or replace them"
    assert listed - there == set(), "these are not called any more"


def test_a_function_that_is_new_is_seen(tmp_path):
    source = tmp_path / "New.cpp"
    source.write_text("#include <string.h>\nchar *Copy(const char *text) {\n    return strdup(text);\n}\n")
    library = tmp_path / "libnew.so"
    subprocess.run(["clang++", "-shared", "-fPIC", "-fno-builtin", source, "-o", library], check=True)
    assert imported(library) - stated((FUZZ / "imports.txt").read_text()) == {"strdup"}


def test_what_a_function_may_leave_is_no_part_of_its_name():
    assert stated("# a\n\nopen close   descriptors: looked at\n") == {"open", "close"}
