"""Where the instructions of a program begin, as the simulator decodes them, compared with binutils' disassembler."""

import bisect
import pathlib
import re
import shutil
import ssl  # noqa: F401 (brings libcrypto)
import subprocess
import sys

import pytest

from harness import BUILD


def output_of(*words):
    return subprocess.run(words, capture_output=True, text=True, check=True, timeout=300).stdout


def functions_of(path):
    """Begin and end of each function as the simulator finds it, and where its instructions begin; in front of one that
    it does not know there is the word "unknown"."""
    for line in output_of(BUILD / "hwboard_starts", path).splitlines():
        first, end, *starts = line.split()
        yield int(first, 16), int(end, 16), ["unknown" if word == "unknown" else int(word, 16) for word in starts]


# What the disassembler shows as one, and is two to the processor: a wait, and an instruction of the x87.
WAITS_FIRST = r"f(stcw|stsw|save|stenv|init|clex)\b"


def disassembled(path, *options):
    """Where instructions begin, sorted, and the places that are none."""
    text = output_of("objdump", "-d", "-w", "--no-show-raw-insn", *options, path)
    starts, bad = [], []
    for found in re.finditer(r"^ *([0-9a-f]+):\t(.*)", text, re.MULTILINE):
        starts.append(int(found[1], 16))
        if re.match(WAITS_FIRST, found[2]):
            starts.append(starts[-1] + 1)
        if "(bad)" in found[2]:
            bad.append(starts[-1])
    return starts, bad


def within(numbers, first, end):
    return numbers[bisect.bisect_left(numbers, first):bisect.bisect_left(numbers, end)]


def differences(path):
    starts, bad = disassembled(path)
    compared = 0
    for first, end, ours in functions_of(path):
        theirs = within(starts, first, end)
        if theirs[:1] != [first]:  # out of step behind data
            theirs, wrong = disassembled(path, f"--start-address={first}", f"--stop-address={end}")
            bad = sorted([*bad, *wrong])
        if not theirs or within(bad, first, end):
            continue
        compared += len(theirs)
        if ours != theirs:
            at = next(i for i, start in enumerate([*theirs, None]) if ours[i:i + 1] != [start])
            yield f"{path}: in the function {first:x} to {end:x} behind {theirs[at - 1]:x}: {ours[at:at + 2]}"
    yield compared


def crypto():
    """A library with hand-written code for every processor."""
    return re.search(r"\S+/libcrypto\S+", pathlib.Path("/proc/self/maps").read_text())[0]


PROGRAMS = {"hwreg": BUILD / "hwreg", "libhwboard": BUILD / "libhwboard.so", "libcrypto": crypto(),
            "bash": shutil.which("bash")}  # fmt: skip


@pytest.mark.parametrize("name", PROGRAMS)
def test_instructions_begin_where_the_disassembler_says(name):
    *found, compared = differences(PROGRAMS[name])
    assert found == [] and compared > 5000


@pytest.mark.parametrize("name", PROGRAMS)
def test_functions_begin_and_end_where_the_table_for_unwinding_says(name):
    told = re.findall(r"FDE .*pc=([0-9a-f]+)\.\.([0-9a-f]+)", output_of("readelf", "--debug-dump=frames",
                                                                        PROGRAMS[name]))
    told = sorted({(int(first, 16), int(end, 16)) for first, end in told if first != end})
    assert sorted({(first, end) for first, end, _ in functions_of(PROGRAMS[name])}) == told and told


if __name__ == "__main__":  # any other files: python3 sim/tests/test_encoding.py FILE...
    for file in sys.argv[1:]:
        print(file, *differences(file), sep="\n    ")
