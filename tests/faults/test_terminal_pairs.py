"""On a terminal: a signal at any call that has to do with keys, and a second failure behind a first one. The terminal
is left as it was."""

import pytest

import injection
import oracles
import pairs
import signalled
import switched
from sample import Sample
from test_terminal_faults import FUNCTIONS, WATCHING, modes, on_terminal

SIGNALS = 6  # of a line
FIRSTS = 4
RESTORING = {"tcsetattr": 2, "fcntl": 3}  # each so many calls, the last puts back what the others changed


@pytest.fixture(autouse=True)
def by_default():
    with signalled.signals_by_default():
        yield


def traced(bench):
    usual = on_terminal(bench, "trace")
    return usual, [call for call in usual.trace if call.function in FUNCTIONS]


def complaints_of_signal(result, number, logs):
    if result.status != -number:
        yield f"status {result.status}"
    if result.log not in logs:
        yield f"{len(result.log)} accesses for {[len(log) for log in logs]}"
    if modes(result.tty_before) != modes(result.tty_after):
        yield f"the terminal is left with {modes(result.tty_after)}"


@pytest.mark.parametrize("line", WATCHING, ids=str)
def test_a_signal_at_a_call_leaves_the_terminal_as_it_was(tmp_path, line):
    bench, sample = injection.Bench(tmp_path, line), Sample(line)
    usual, calls = traced(bench)
    expected = switched.Places(line, usual.log)
    found = []
    for call in sample.of(calls, SIGNALS):
        number = sample.one(switched.ENDING)
        wish = f"{call.wish} SIG{number}"
        result = on_terminal(bench, wish)
        found += [f"{wish}: {one}" for one in complaints_of_signal(result, number, expected.at_call(call.accesses))]
    assert not found, sample.told(found)


def was_not_put_back(result, trace, function):
    """True when a call that puts something back was one of those that failed."""
    failed = {line.removeprefix("failed ").split(" ->")[0] for line in result.failed}
    if function == "fcntl":
        return any(call.wish in failed and pairs.restores_flags(call, trace)
                   for call in trace if call.function == function)
    return any(int(wish.split()[1]) % 2 == 0 for wish in failed if wish.startswith("tcsetattr "))


def both_failed(result):
    """A terminal that stays non-blocking drops what it has no room for: a view may end before the second one comes."""
    return len(result.failed) == 2 or oracles.restoring_failed(result, "fcntl", 3)


def complaints_of_pair(result, trace, usual):
    if result.status != usual.status:
        yield f"status {result.status}"
    if result.held or not both_failed(result):
        yield f"{result.failed}, {result.held}"
    if modes(result.tty_before) != modes(result.tty_after) and not was_not_put_back(result, trace, "tcsetattr"):
        yield f"the terminal is left with {modes(result.tty_after)}"
    if result.flags_before != result.flags_after and not was_not_put_back(result, trace, "fcntl"):
        yield "the terminal's descriptor is left non-blocking"
    yield from oracles.complaints_about_the_machine(result, usual)


@pytest.mark.parametrize("line", WATCHING, ids=str)
def test_two_failures_leave_the_terminal_as_it_was(tmp_path, line):
    bench, sample = injection.Bench(tmp_path, line), Sample(line)
    usual, calls = traced(bench)
    found = []
    for first in sample.of(calls, FIRSTS):
        alone = on_terminal(bench, f"trace; {first.wish}")
        behind = [call for call in alone.trace if call.failures > 0 and call.function in FUNCTIONS]
        nearest = [call for call in behind if call.function in RESTORING][:1]
        for second in [*nearest, *sample.of([call for call in behind if call not in nearest], 1)]:
            wish = f"{first.wish}; {second.wish}"
            result = on_terminal(bench, wish)
            found += [f"{wish}: {one}" for one in complaints_of_pair(result, alone.trace, usual)]
    assert not found, sample.told(found)
