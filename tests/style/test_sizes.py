"""Files and functions are short, and the commands are few lines in all."""

import pytest

from house import TOP, judge, none, program, sources, tags

FILE_LINES = 350
FUNCTION_LINES = 60
COMMAND_LINES = 2500  # of Project/ in all

# Longer ones, each with its reason: "Folder/File.cpp" or "Folder/File.cpp: Function".
LONG_FILES = {}
LONG_FUNCTIONS = {}


def lines(path):
    return path.read_text().count("\n")


def long_files(top):
    counts = {path.relative_to(top): lines(path) for path in program(top)}
    return {str(path): f"{path}:{count}: {count} lines" for path, count in counts.items() if count > FILE_LINES}


def long_functions(top):
    found = {}
    for tag in tags(top, program(top)):
        length = tag["end"] - tag["line"] + 1
        if length > FUNCTION_LINES:
            found[f"{tag['path']}: {tag['name']}"] = f"{tag['path']}:{tag['line']}: {tag['name']} has {length} lines"
    return found


def test_files_are_short():
    judge(long_files(TOP), LONG_FILES, f"cut these files into modules of at most {FILE_LINES} lines")


def test_functions_are_short():
    assert len(tags(TOP, program(TOP))) > 300
    judge(long_functions(TOP), LONG_FUNCTIONS, f"cut these functions: at most {FUNCTION_LINES} lines")


def test_commands_are_few_lines():
    total = sum(lines(path) for path in sources(TOP, "Project"))
    none([f"Project/: {total} lines"] if total > COMMAND_LINES else [],
         f"at most {COMMAND_LINES} lines: move what is no operand, message or order of accesses to the floors below")


def test_planted_lengths_are_found(plant):
    body = "    // one\n" * 58
    short, long = "int Short() {\n" + body + "}\n", "int Long() {\n" + body + "    // more\n}\n"
    top = plant({"Base/A.cpp": short + "\n" + long, "Base/B.h": "\n" * 351, "Base/C.h": "\n" * 350})
    assert long_functions(top) == {"Base/A.cpp: Long": "Base/A.cpp:62: Long has 61 lines"}
    assert long_files(top) == {"Base/B.h": "Base/B.h:351: 351 lines"}


def test_what_is_stated_passes_as_long_as_it_is_so():
    judge({"Base/B.h": "Base/B.h:351: 351 lines"}, {"Base/B.h": "a table of the standard"}, "cut it")
    with pytest.raises(pytest.fail.Exception, match="Base/B.h: stated, but no longer so"):
        judge({}, {"Base/B.h": "a table of the standard"}, "cut it")
