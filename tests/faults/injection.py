"""Runs a command line with one call of the program failing (Faults.cpp), and tells what was left behind."""

import fcntl
import re
import shutil
import subprocess

from harness import BUILD, Run, Timeout

SECONDS = 30
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
        shutil.rmtree(self.work, ignore_errors=True)
        self.work.mkdir()
        for name, content in self.line.files.items():
            (self.work / name).write_bytes(content)
        self.first.log_file.unlink(missing_ok=True)

    def run(self, wish, keys=None):
        """With HWBOARD_FAIL=wish; the files that it leaves are in `files`, the flags of its output before and after in
        `flags_before` and `flags_after`."""
        self.clear()
        environment = {**self.first.environment, "HWBOARD_FAIL": wish}
        typed = self.folder / "keys"  # a file, not a pipe: the keys are there from the beginning
        typed.write_bytes(self.line.keys if keys is None else keys)
        printed = self.folder / "out"
        with open(typed, "rb") as stdin, open(printed, "wb") as stdout:
            before = fcntl.fcntl(stdout, fcntl.F_GETFL)
            try:
                done = subprocess.run(self.first.command, executable=self.first.executable, stdin=stdin, stdout=stdout,
                                      stderr=subprocess.PIPE, env=environment, cwd=self.work, timeout=SECONDS,
                                      check=False)
            except subprocess.TimeoutExpired as late:
                raise Timeout(self.first.result(None, printed.read_bytes(), late.stderr or b""), SECONDS) from None
            after = fcntl.fcntl(stdout, fcntl.F_GETFL)
        result = self.first.result(done.returncode, printed.read_bytes(), done.stderr, flags_before=before,
                                   flags_after=after)
        return told(result, self.work)


def told(result, work):
    """Takes the lines of the failure library out of the log."""
    theirs = ("failed ", "called ", "held ", "mistaken ")
    lines = [line for line in result.log if line.startswith(theirs)]
    result.failed = [line for line in lines if line.startswith("failed ")]
    result.calls = {name: int(count) for name, count in re.findall(r"called (\w+) (\d+)", "\n".join(lines))}
    result.held = [line for line in lines if line.startswith(("held ", "mistaken "))]
    result.whole_log = result.log
    result.log = [line for line in result.log if not line.startswith(theirs)]
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
