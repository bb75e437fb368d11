"""Captures of machines: made, read, and asked the same questions as the machine itself."""

import concurrent.futures
import dataclasses
import os
import re
import shlex
import subprocess

import pytest

from harness import BUILD, LIMIT, TOP

QUESTIONS = TOP / "tests" / "support" / "capture_questions"

# Registers that tell another thing each time they are read, by the beginning of the question, and why. Everything
# else has to be the same.
VOLATILE = {
    "/MSR /RD /ALL 0x10": "the time-stamp counter",
    "/MSR /RD /ALL 0xe7": "a counter of cycles",
    "/MSR /RD /ALL 0xe8": "a counter of cycles",
}

# Bytes of the CMOS dump that a clock changes: time, date, and registers A to C.
CLOCK = {0, 2, 4, 6, 7, 8, 9, 10, 12}
CMOS_DUMP = "/IO /INDEX /DUMP 0x70 0x71"


@dataclasses.dataclass
class Capture:
    """A board file that hwreg-capture has written."""

    path: object
    text: str
    log: list

    def lines(self, *keywords):
        """The words of each line that begins with one of the keywords, comments left out."""
        found = (re.sub(r" *#.*", "", line).split() for line in self.text.splitlines())
        return [words for words in found if words and words[0] in keywords]

    def missing(self):
        return [line.removeprefix("# missing: ") for line in self.text.splitlines() if line.startswith("# missing: ")]

    def functions(self):
        """The bytes of each function's configuration space, by its address."""
        spaces = {}
        for words in self.lines("pci", "config"):
            if words[0] == "pci":
                at = words[1]
                spaces[at] = bytearray(256)
                continue
            offset, data = int(words[1], 16), bytes.fromhex("".join(words[2:]))
            if offset >= 256 and len(spaces[at]) == 256:
                spaces[at] += bytes(4096 - 256)
            spaces[at][offset:offset + len(data)] = data
        return spaces

    def memory(self, address, length):
        """Bytes of memory; those of which the file says nothing are 0."""
        found = bytearray(length)
        for words in self.lines("bytes", "fill"):
            at = int(words[1], 16)
            count = int(words[2], 16) if words[0] == "fill" else len(words) - 2
            if at + count <= address or at >= address + length:
                continue
            data = bytes.fromhex(words[3]) * count if words[0] == "fill" else bytes.fromhex("".join(words[2:]))
            first, last = max(at, address), min(at + count, address + length)
            found[first - address:last - address] = data[first - at:last - at]
        return bytes(found)


@pytest.fixture
def capture(run, tmp_path):
    """capture(options, board="intel", extra=()) runs hwreg-capture on a board and gives the Capture."""

    def go(options="", board="intel", extra=(), **more):
        path = tmp_path / f"{len(list(tmp_path.iterdir()))}.captured.board"
        result = run(f"-o {path} {options}", board=board, extra=extra, program="hwreg-capture", **more)
        assert (result.status, result.out, result.err) == (0, b"", b"")
        return Capture(path, path.read_text(), result.log)

    return go


def questions(path):
    """The command lines that a capture can be asked."""
    asked = subprocess.run([QUESTIONS, path], capture_output=True, text=True, check=True)
    assert asked.stderr == ""
    return asked.stdout.splitlines()


def answer(board, line, folder):
    """(status, output, contents of the file that it writes) of one command line on a board. One CPU runs it: CPUID
    differs from one to the next."""
    folder.mkdir(exist_ok=True)
    words = [word.replace("@", "DUMP") for word in shlex.split(line)]
    dump = folder / "DUMP"
    dump.unlink(missing_ok=True)
    environment = {**os.environ, "HWBOARD": str(board), "LD_PRELOAD": str(BUILD / "libhwboard.so"),
                   "ASAN_OPTIONS": "verify_asan_link_order=0"}  # the board comes before the sanitizer's library
    done = subprocess.run(["taskset", "1", BUILD / "hwreg", *words], env=environment, cwd=folder, timeout=LIMIT,
                          stdin=subprocess.DEVNULL, capture_output=True, check=False)
    return done.returncode, done.stdout + done.stderr, dump.read_bytes() if dump.exists() else None


def answers(board, lines, folder):
    """The answers to all lines, two at a time."""
    folder.mkdir()
    with concurrent.futures.ThreadPoolExecutor(2) as two:
        return list(two.map(lambda at: answer(board, at[1], folder / str(at[0])), enumerate(lines)))


def without_clock(text):
    """A view of the CMOS memory with the bytes that its clock changes left out."""
    rows = re.findall(rb"^([0-9A-F]{2}) ((?:[0-9A-F]{2} ){16})", text, re.MULTILINE)
    assert rows
    data = b"".join(row.replace(b" ", b"") for _, row in rows)
    return [data[2 * at:2 * at + 2] for at in range(len(data) // 2) if at % 128 not in CLOCK]


def differences(lines, live, replayed):
    """The questions whose answers differ, volatile registers left out, each with both answers."""
    found = []
    for line, one, other in zip(lines, live, replayed, strict=True):
        if line in VOLATILE:
            continue
        if line.startswith(CMOS_DUMP):
            one, other = without_clock(one[1]), without_clock(other[1])
        if one != other:
            found.append((line, one, other))
    return found
