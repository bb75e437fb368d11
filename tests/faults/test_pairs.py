"""Behind a call that has failed something else happens: a second call fails, in the cleanup of the first failure or
anywhere, or a signal comes."""

import pytest

import injection
import oracles
import pairs
import signalled
import switched
from lines import every_line
from sample import Sample

SIGNALS = 1  # behind accesses, and as many at calls


def of_second_failures(alone, sample, unbroken):
    for second in pairs.seconds(alone.result, sample):
        wish = f"{alone.wish}; {second.wish}"
        for complaint in pairs.complaints(alone, second, alone.bench.run(wish), unbroken):
            yield f"{wish}: {complaint}"


def of_signals(alone, sample):
    """The run with the failure alone is the undisturbed one here. A signal that came before the failure is held back
    past it where hardware is switched."""
    places = range(1, len(alone.result.log) + 1)
    held = switched.held_places(alone.bench.line, alone.result.log)
    before = sample.of([place for place in held if place <= alone.accesses], SIGNALS)
    behind = sample.of(places[alone.accesses :], SIGNALS)
    calls = [call for call in alone.result.trace if call.failures > 0]
    yield from signalled.at_accesses(alone.bench, [*before, *behind], sample, alone.result, alone.wish)
    yield from signalled.at_calls(alone.bench, sample.of(calls, SIGNALS), sample, alone.result, f"{alone.wish}; ")


def complaints_of_line(bench, sample):
    usual = bench.run("trace")
    unbroken = bench.run("count", keys=b"") if oracles.KEYS & set(usual.calls) else usual
    for first in pairs.firsts(bench.line, usual.calls, sample):
        alone = pairs.Failed(bench, first, usual)
        yield from of_second_failures(alone, sample, unbroken)
        yield from of_signals(alone, sample)


@pytest.mark.parametrize("line", every_line(), ids=str)
def test_whatever_happens_behind_a_failure_the_run_ends_well(tmp_path, line):
    sample = Sample(line)
    with signalled.signals_by_default():
        found = list(complaints_of_line(injection.Bench(tmp_path, line), sample))
    assert not found, sample.told(found)
