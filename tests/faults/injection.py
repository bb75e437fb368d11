"""Runs a command line with calls of the program failing (Faults.cpp), and tells what was left behind."""

import dataclasses
import fcntl
import os
import re
import select
import subprocess

from harness import BUILD, Run, Timeout

SECONDS = 300
LIBRARIES = f"{BUILD}/libhwfaults.so:{BUILD}/libhwboard.so"

# Further errors to fail with, where the program looks at them.
ERRORS = {"mmap": ("EPERM", "EAGAIN"), "write": ("ENOSPC", "EAGAIN")}


class Bench:
    """A folder in which a line is run again and again."""

    def __init__(self, folder, line):
        self.line = line
        self.folder = folder
        self.work = folder / "work"
        self.first = self.prepared()

    def prepared(self):
        run = Run(self.folder, self.line.words, self.line.board, self.line.extra, False, "hwreg", None)
        run.environment["LD_PRELOAD"] = LIBRARIES
        return run

    def clear(self):
        self.work.mkdir(exist_ok=True)
        for path in self.work.iterdir():
            path.unlink()
        for name, content in self.line.files.items():
            (self.work / name).write_bytes(content)
        self.first.log_file.unlink(missing_ok=True)

    def run(self, wish, keys=None, wait=None, **board):
        """With HWBOARD_FAIL=wish, and for the board HWBOARD_SIGNAL or HWBOARD_LIES; the files that it leaves are in
        `files`, the flags of its output before and after in `flags_before` and `flags_after`. wait(child) stands in for
        the wait for its end where it may stop."""
        self.clear()
        environment = {**self.first.environment, "HWBOARD_FAIL": wish}
        environment.update((f"HWBOARD_{name.upper()}", str(value)) for name, value in board.items())
        typed = self.folder / "keys"  # a file, not a pipe: the keys are there from the beginning
        typed.write_bytes(self.line.keys if keys is None else keys)
        printed, complained = self.folder / "out", self.folder / "err"
        with open(typed, "rb") as stdin, open(printed, "wb") as stdout, open(complained, "wb") as stderr:
            before = fcntl.fcntl(stdout, fcntl.F_GETFL)
            child = subprocess.Popen(self.first.command, executable=self.first.executable, stdin=stdin, stdout=stdout,
                                     stderr=stderr, env=environment, cwd=self.work, process_group=0 if wait else None)
            late = not ended(child, wait)
            after = fcntl.fcntl(stdout, fcntl.F_GETFL)
        result = self.first.result(child.returncode, printed.read_bytes(), complained.read_bytes(),
                                   flags_before=before, flags_after=after)
        if late:
            raise Timeout(result, SECONDS)
        return told(result, self.work)


def ended(child, wait=None):
    """Waits for the end of a run; False when that did not come in time."""
    if wait:
        wait(child)
        return True
    descriptor = os.pidfd_open(child.pid)
    in_time = select.select([descriptor], [], [], SECONDS)[0] != []
    os.close(descriptor)
    if not in_time:
        child.kill()
    child.wait()
    return in_time


@dataclasses.dataclass(frozen=True)
class Call:
    """A call that a run has made: what it was about, after how many accesses, and how many calls had failed by then."""

    function: str
    number: int
    about: str
    accesses: int
    failures: int

    @property
    def wish(self):
        return f"{self.function} {self.number}"


THEIRS = ("failed ", "called ", "held ", "mistaken ", "call ", "sent ")


def traced(log):
    """The calls of a run whose wish was to trace them."""
    accesses = failures = 0
    for line in log:
        if line.startswith("call "):
            _, function, number, about = line.split(" ", 3)
            yield Call(function, int(number), about, accesses, failures)
        accesses += not line.startswith(THEIRS)
        failures += line.startswith("failed ")


def told(result, work):
    """Takes the lines of the failure library out of the log."""
    lines = [line for line in result.log if line.startswith(THEIRS)]
    result.trace = list(traced(result.log))
    result.failed = [line for line in lines if line.startswith("failed ")]
    result.calls = {name: int(count) for name, count in re.findall(r"called (\w+) (\d+)", "\n".join(lines))}
    result.held = [line for line in lines if line.startswith(("held ", "mistaken "))]
    result.whole_log = result.log
    result.log = [line for line in result.log if not line.startswith(THEIRS)]
    result.files = {path.name: path.read_bytes() for path in work.iterdir()} if work.exists() else {}
    return result


def wishes_for_no_memory(line, calls):
    """Where less memory will do, it is refused from some allocation on for good."""
    if "/RF" in line.words or line.command == "/SMBIOS":
        for number in range(1, calls.get("malloc", 0) + 1):
            yield "malloc", f"malloc {number}+"


def wishes(calls):
    """HWBOARD_FAIL for each call of a run, with its function."""
    for function, count in calls.items():
        for error in ERRORS.get(function, ("",)):
            for number in range(1, count + 1):
                yield function, f"{function} {number} {error}".strip()
