"""Two calls of a run that fail: which second ones there are, and what the run may be like."""

import injection
import oracles
from expected import LOST

# What ends something: the next of these are behind a failure what cleans up after it.
CLEANUP = {"close", "munmap", "fclose", "tcsetattr", "fcntl", "fflush", "fsync", "write", "iopl"}
NEAREST = 1
OTHERS = 1
FIRSTS = 25  # of a function, in a line


def firsts(line, calls, sample):
    """The wishes of single failures, of which the sample takes some of each function."""
    by_function = {}
    for function, wish in [*injection.wishes(calls), *injection.wishes_for_no_memory(line, calls)]:
        by_function.setdefault(function, []).append(wish)
    return [wish for wishes in by_function.values() for wish in sample.of(wishes, FIRSTS)]


class Failed:
    """The run in which one call fails."""

    def __init__(self, bench, wish, usual):
        self.bench = bench
        self.wish = wish
        self.function = wish.split()[0]
        self.usual = usual
        self.result = bench.run(f"trace; {wish}")
        log = self.result.whole_log
        failed = next(at for at, line in enumerate(log) if line.startswith("failed "))
        self.accesses = sum(not line.startswith(injection.THEIRS) for line in log[:failed])


def seconds(result, sample):
    """The calls behind a failure: the nearest that clean up, and some of the others."""
    behind = [call for call in result.trace if call.failures > 0]
    nearest = [call for call in behind if call.function in CLEANUP][:NEAREST]
    others = [call for call in behind if call not in nearest]
    return [*nearest, *sample.of(others, OTHERS)]


def is_device(call):
    return call.about.startswith("/dev/") or call.about == "/"


def as_usually_numbered(call, trace):
    """The wish for a call as the tables of the oracles number it: a file that is opened has its number among the files,
    whatever devices were opened in vain before."""
    before = trace[: trace.index(call) + 1]
    files = [other for other in before if other.function == "open" and other.about != "." and not is_device(other)]
    if call.function in ("fstat", "fdopen"):
        return f"{call.function} {len(files)}"
    if call.function == "open" and call in files:
        return f"open {2 + len(files)}"
    if call.function == "open" and call.number > 2:
        return f"open {100 + call.number}"
    return call.wish


def restores_flags(call, trace):
    """True for the last of the three calls of fcntl that make a descriptor non-blocking for a moment."""
    calls = [other for other in trace if other.function == "fcntl"]
    at = calls.index(call)
    return call.about == "F_SETFL" and at > 0 and calls[at - 1].about == "F_SETFL"


def tells_of_lost_output(call, result):
    """True for the calls that say at the end that output was lost."""
    last = {other.function: other for other in result.trace}
    return result.err == LOST and call in (last.get("poll"), last.get("write"))


def expected_error(alone, second):
    result = alone.result
    if tells_of_lost_output(second, result):
        return b""
    return LOST if result.err == LOST or oracles.loses_output(f"{second.wish} ENOSPC") else b""


def complaints(alone, second, both, unbroken):
    """What is wrong with a run in which a second call failed, in words."""
    line, first, usual = alone.bench.line, alone.result, alone.usual
    functions = {alone.function, second.function}
    if both.status < 0:
        yield f"killed by signal {-both.status}"
        return
    if both.err != expected_error(alone, second):
        yield f"standard error: {both.err}"
    flags_are_lost = first.flags_after != first.flags_before or (
        second.function == "fcntl" and restores_flags(second, first.trace))
    if both.flags_after != both.flags_before and not flags_are_lost:
        yield f"standard output is left with flags {both.flags_after:o}"
    if len(both.failed) < 2:
        yield "the call did not come"
    yield from oracles.complaints_about_the_machine(both, usual)
    yield from oracles.complaints_about_what_is_held(both, "munmap" if "munmap" in functions else second.function)
    if set(both.files) - set(usual.files):
        yield f"new files: {set(both.files) - set(usual.files)}"
    if not oracles.only_known_effects(line, both, unbroken if functions & oracles.KEYS else usual):
        yield "it changed something that it does not change otherwise"
    if "iopl 0" not in both.log and not {alone.wish, second.wish} & {"iopl 1", "iopl 2"}:
        yield "the end of the run is missing"
    if not oracles.status_is_explained(line, both, first):
        yield f"status {both.status} is not documented"
    if not text_is_as_stated(alone, second, both):
        yield f"status {both.status} with this text: {both.text[-300:]!r}"


def text_is_as_stated(alone, second, both):
    """The text is what the second failure may make of that of the first one. Of two that give other values the second
    may undo what the first did, or take away what stood in for it."""
    wish = as_usually_numbered(second, alone.result.trace)
    if second.function == "write":
        wish += " ENOSPC"
    unbroken = alone.result
    if second.function in oracles.KEYS:
        unbroken = alone.bench.run(alone.wish, keys=b"")
    if tells_of_lost_output(second, alone.result):
        return (both.text, both.status) == (alone.result.text, alone.result.status)
    wishes, models = [wish], [alone.result]
    if {alone.function, second.function} <= oracles.VALUES:
        wishes.append(alone.wish)
        models.append(alone.usual)
    return any(oracles.text_is_as_stated(alone.bench.line, wish, both, model, unbroken)
               for wish in wishes for model in models)
