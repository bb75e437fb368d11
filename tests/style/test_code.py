"""What the program's code may be made of, and where it may touch hardware."""

import itertools
import re

from house import BESIDE, FLOORS, TOP, code, literals, none, program, sources, tags

# Plain procedures over plain structures.
BANNED = r"\b(using\s+namespace|(?<!enum )class|template|new|delete|throw|try|catch|dynamic_cast)\b"

# Casts written in another way than static_cast<...>() and its kin.
NUMBER = r"(u?int(8|16|32|64)_t|size_t|off_t|unsigned|int|char|long)"
CASTS = rf"(?<![\w>:.*] )(?<![\w>:.*]){NUMBER}\((?=[^)*])|\((const )?{NUMBER}( \*)?\)(?=[\w(])"

# Instructions and calls that reach hardware, and headers that bring them.
DOORS = r"\b(asm|__asm|__asm__|mmap|mmap64|munmap|iopl|ioperm)\b"
DOOR_HEADERS = r"^\s*#\s*include\s*<(sys/io|sys/mman|cpuid|x86intrin|immintrin)\.h>"


def words(top, pattern, folders):
    """Places in the code, comments and literals left out, that match."""
    for path in sources(top, *folders):
        text = code(path)
        for found in re.finditer(pattern, text, re.MULTILINE):
            yield f"{path.relative_to(top)}:{text.count(chr(10), 0, found.start()) + 1}: {found[0].strip()}"


def device_files(top, folders):
    for path in sources(top, *folders):
        for line, text in literals(path):
            if text.startswith("/dev/") and text != "/dev/null":
                yield f"{path.relative_to(top)}:{line}: {text}"


def undescribed(top):
    """Functions in headers without a comment above them, or above the first line of their group."""
    headers = [path for path in program(top) if path.suffix == ".h"]
    for tag in tags(top, headers, "fp"):
        above = (top / tag["path"]).read_text().splitlines()[:tag["line"] - 1]
        group = list(itertools.takewhile(str.strip, reversed(above)))
        if not any(line.lstrip().startswith("//") for line in group):
            yield f"{tag['path']}:{tag['line']}: {tag['name']}"


def test_the_program_is_plain_procedures():
    none(list(words(TOP, BANNED, [*FLOORS, *BESIDE])), "a plain procedure over a plain structure will do")


def test_casts_are_of_one_dialect():
    places = [place for place in words(TOP, CASTS, [*FLOORS, *BESIDE, "sim"]) if ".c:" not in place]  # C has no other
    none(places, "write static_cast<type>(value)")


def test_only_basiclib_touches_hardware():
    others = [floor for floor in [*FLOORS, *BESIDE] if floor != "BasicLib"]
    assert list(words(TOP, DOORS, ["BasicLib"])) and list(device_files(TOP, ["BasicLib"]))
    none([*words(TOP, DOORS, others), *words(TOP, DOOR_HEADERS, others), *device_files(TOP, others)],
         "move these to BasicLib, which issues the instructions, maps memory and opens device files")


def test_functions_in_headers_are_described():
    none(list(undescribed(TOP)), "say what it does, its arguments' units and ranges, and what it gives on failure")


def test_planted_code_is_found(plant):
    top = plant({
        "Base/A.h": "// The heap is new.\nint One();\nint Two(int a,\n        int b);\n\nint Three();\n",
        "Base/A.cpp": 'const char *gText = "throw"; // class\n\nint *One() {\n    return new int;\n}\n',
        "Main/B.cpp": '#include <sys/mman.h>\nchar c = \'"\';\nint mem = open("/dev/mem", 0);\nvoid *p = mmap();\n',
    })
    assert list(words(top, BANNED, FLOORS)) == ["Base/A.cpp:4: new"]
    cast = plant({"sim/C.cpp": "int a = int(b);\nchar c = (char)a;\nint f(int a);\nvoid (*g)(int) = nullptr;\n"})
    assert [line.split(": ")[0] for line in words(cast, CASTS, ["sim"])] == ["sim/C.cpp:1", "sim/C.cpp:2"]
    assert list(words(top, DOORS, ["Main"])) == ["Main/B.cpp:4: mmap"]
    assert list(words(top, DOOR_HEADERS, ["Main"])) == ["Main/B.cpp:1: #include <sys/mman.h>"]
    assert list(device_files(top, FLOORS)) == ["Main/B.cpp:3: /dev/mem"]
    assert list(undescribed(top)) == ["Base/A.h:6: Three"]
