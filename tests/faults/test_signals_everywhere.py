"""A signal behind every access of every command, and at its calls: it acts where docs/commands.txt says, with
everything put back, and what was printed and written by then is as usual."""

import pytest

import injection
import signalled
import switched
from lines import every_line
from sample import Sample, places

CALLS = 6  # of a line
STOPS = 3  # where hardware is switched, and as many anywhere
NOTHING = 3

LINES = every_line()


@pytest.fixture(autouse=True)
def by_default():
    with signalled.signals_by_default():
        yield


@pytest.mark.parametrize("line", LINES, ids=str)
def test_behind_every_access_a_signal_ends_the_run_as_stated(tmp_path, line):
    bench, sample = injection.Bench(tmp_path, line), Sample(line)
    usual = bench.run("count")
    found = list(signalled.at_accesses(bench, places(sample, len(usual.log)), sample, usual))
    assert not found, sample.told(found)


@pytest.mark.parametrize("line", LINES, ids=str)
def test_at_a_call_a_signal_ends_the_run_as_stated(tmp_path, line):
    bench, sample = injection.Bench(tmp_path, line), Sample(line)
    usual = bench.run("trace")
    found = list(signalled.at_calls(bench, sample.of(usual.trace, CALLS), sample, usual))
    assert not found, sample.told(found)


@pytest.mark.parametrize("failure", ["signalfd 1", "poll 1"])
def test_a_key_that_is_there_hides_no_signal_that_cannot_be_watched_for(tmp_path, failure):
    [view] = [line for line in LINES if line.words == "/SIO /DUMP" and line.board == "intel"]
    bench, sample = injection.Bench(tmp_path, view), Sample(view)
    usual = bench.run(failure)
    unlocked = switched.held_places(view, usual.log)[0]
    found = list(signalled.at_accesses(bench, [unlocked], sample, usual, failure))
    assert not found, sample.told(found)


def complaints_of_stop(bench, number, place, usual):
    """The run stops where it would end, and goes on as if nothing had been; a view ends as by ESC."""
    where = switched.Places(bench.line, usual.log).behind(place)
    stops = signalled.Stops(bench)
    result = bench.run("count", signal=f"SIG{number} {place}", wait=stops)
    if stops.logs != [(number, where)]:
        yield f"stopped {[(stop, len(log)) for stop, log in stops.logs]} for {len(where)} accesses"
    if where == usual.log[: len(where)]:
        yield from signalled.complaints_of_nothing(result, usual)
    elif result.log != [*where, *usual.log[switched.locked(usual.log) :]] or result.status != usual.status:
        yield f"it went on with {result.log[len(where):]}, status {result.status}"


@pytest.mark.parametrize("line", LINES, ids=str)
def test_a_stop_comes_where_an_end_would_and_the_run_goes_on(tmp_path, line):
    bench, sample = injection.Bench(tmp_path, line), Sample(line)
    usual = bench.run("count")
    found = []
    held = switched.held_places(line, usual.log)
    for place in [*sample.of(held, STOPS), *sample.of(range(1, len(usual.log) + 1), STOPS)]:
        number = sample.one(switched.STOPPING)
        found += [f"SIG{number} {place}: {one}" for one in complaints_of_stop(bench, number, place, usual)]
    assert not found, sample.told(found)


@pytest.mark.parametrize("line", LINES, ids=str)
def test_a_signal_that_ends_nothing_changes_nothing(tmp_path, line):
    bench, sample = injection.Bench(tmp_path, line), Sample(line)
    usual = bench.run("count")
    found = []
    for place in sample.of(range(1, len(usual.log) + 1), NOTHING):
        number = sample.one(switched.ending_nothing(usual.log[place - 1]))
        result = bench.run("count", signal=f"SIG{number} {place}")
        found += [f"SIG{number} {place}: {one}" for one in signalled.complaints_of_nothing(result, usual)]
    assert not found, sample.told(found)
