"""clang-tidy, with .clang-tidy, has nothing to say about the program."""

import concurrent.futures
import re
import subprocess

from house import BESIDE, FLOORS, TOP, configured, none, program

# As in CMakeLists.txt for clang, which counts more as -Wconversion than GCC does; headers of the program count, too.
FLAGS = ["--quiet", f"--config-file={TOP}/.clang-tidy", "--extra-arg=-Wno-sign-conversion",
         f"--header-filter=/({'|'.join([*FLOORS, *BESIDE])})/"]


def tidy(top, path, *flags):
    """What clang-tidy says of a source, "file:line: text" in each line."""
    run = subprocess.run(["clang-tidy", *FLAGS, path, *flags], cwd=top, capture_output=True, text=True)
    found = re.findall(r"^(\S+?:\d+):\d+: (?:warning|error): (.*)$", run.stdout, re.MULTILINE)
    said = [f"{place.removeprefix(f'{top}/')}: {text}" for place, text in found]
    return said or ([f"{path}: {run.stdout}{run.stderr}"] if run.returncode or "warning:" in run.stdout else [])


def test_clang_tidy_is_quiet():
    paths = sorted((path for path in program(TOP) if path.suffix == ".cpp"), key=lambda path: -path.stat().st_size)
    flags = "-p", configured()
    with concurrent.futures.ThreadPoolExecutor(2) as two:
        said = two.map(lambda path: tidy(TOP, path, *flags), paths)
        none(sorted({line for lines in said for line in lines}), "mend these, or state the reason beside a NOLINT")


def test_planted_faults_are_found(plant):
    top = plant({
        "Base/A.h": "inline int Both(int a) {\n    if (a > 0)\n        return 1;\n    else\n        return 1;\n}\n",
        "Base/A.cpp": '#include "Base/A.h"\nint Divided(int a) {\n    int none = 0;\n    return a / none;\n}\n',
        "Base/B.cpp": '#include "Base/B.h"\n',
    })
    rest = ["--", "-I", str(top), "-std=c++17"]
    assert sorted(line.split(": ")[0] for line in tidy(top, top / "Base/A.cpp", *rest)) == [
        "Base/A.cpp:4", "Base/A.h:2"]
    assert tidy(top, top / "Base/B.cpp", *rest) == ["Base/B.cpp:1: 'Base/B.h' file not found [clang-diagnostic-error]"]
