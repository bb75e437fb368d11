"""Runs to which a signal comes, and what is wrong with them."""

import contextlib
import os
import signal

import switched
from sample import ALL

TO_ALL = [1, 2, 15]  # HUP, INT and TERM come everywhere where time allows


@contextlib.contextmanager
def signals_by_default():
    """A shell's background job hands signals that are ignored to its children: here they are none."""
    changed = {number: signal.signal(number, lambda *_: None) for number in (1, 2, 3)
               if signal.getsignal(number) == signal.SIG_IGN}  # fmt: skip
    try:
        yield
    finally:
        for number, before in changed.items():
            signal.signal(number, before)


def is_cut_off(content, before, usual):
    """A file is as it was, or what has been written of it by then."""
    return content == before or usual is not None and usual.startswith(content)


def complaints_about_what_is_printed(line, result, usual):
    if not usual.out.startswith(result.out) or not usual.err.startswith(result.err):
        yield f"it printed {result.text[-200:]!r}, {result.err}"
    for name, content in result.files.items():
        if not is_cut_off(content, line.files.get(name), usual.files.get(name)):
            yield f"{name} holds {content[:40]}"


def complaints(line, number, logs, result, usual):
    """What is wrong with a run that a signal should have ended, with one of these logs."""
    if result.status != -number:
        yield f"status {result.status}"
    if result.log not in logs:
        yield f"{len(result.log)} accesses for {[len(log) for log in logs]}, the last: {result.log[-2:]}"
    if result.flags_after not in (result.flags_before, usual.flags_after):
        yield f"standard output is left with flags {result.flags_after:o}"
    yield from complaints_about_what_is_printed(line, result, usual)


def complaints_of_nothing(result, usual):
    """Of a run to which a signal came that changes nothing."""
    if (result.status, result.out, result.err) != (usual.status, usual.out, usual.err):
        yield f"status {result.status}, {result.text[-200:]!r}, {result.err}"
    if result.log != usual.log or result.files != usual.files or result.held:
        yield f"{len(result.log)} accesses for {len(usual.log)}, {result.held}"


def endings(sample):
    """The signals for a place."""
    return [*TO_ALL, sample.one(switched.ENDING)] if ALL else [sample.one(switched.ENDING)]


def at_accesses(bench, where, sample, usual, wish="count"):
    expected = switched.Places(bench.line, usual.log)
    for place in where:
        for number in endings(sample):
            result = bench.run(wish, signal=f"SIG{number} {place}")
            for found in complaints(bench.line, number, [expected.behind(place)], result, usual):
                yield f"{wish}, SIG{number} {place}: {found}"


def at_calls(bench, calls, sample, usual, first=""):
    expected = switched.Places(bench.line, usual.log)
    for call in calls:
        for number in endings(sample):
            wish = f"{first}{call.wish} SIG{number}"
            result = bench.run(wish)
            for found in complaints(bench.line, number, expected.at_call(call.accesses), result, usual):
                yield f"{wish}: {found}"


class Stops:
    """Waits for a child, and lets it go on where it has stopped: `logs` has what was in the log by then."""

    def __init__(self, bench):
        self.bench = bench
        self.logs = []

    def __call__(self, child):
        while True:
            _, status = os.waitpid(child.pid, os.WUNTRACED)
            if not os.WIFSTOPPED(status):
                child.returncode = os.waitstatus_to_exitcode(status)
                return
            self.logs.append((os.WSTOPSIG(status), self.bench.first.log_file.read_text().splitlines()))
            os.kill(child.pid, signal.SIGCONT)
