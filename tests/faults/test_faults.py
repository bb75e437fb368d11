"""Every call that can fail does, one in each run: for one command line of each form, each function and each number."""

import pytest

import injection
import oracles
from expected import LOST
from lines import every_line


def complaints(line, usual, unbroken, result, function, wish):
    """What is wrong with a run, in words. `unbroken` is the usual run with no key pressed."""
    model = unbroken if function in oracles.KEYS else usual
    if result.status < 0:
        yield f"killed by signal {-result.status}"
        return
    if result.err != (LOST if oracles.loses_output(wish) else b""):
        yield f"standard error: {result.err}"
    if oracles.descriptor_is_left_changed(result):
        yield f"standard output is left with flags {result.flags_after:o}"
    if len(result.failed) != 1 and not (wish.endswith("+") and result.failed):
        yield "the call did not come"
    yield from oracles.complaints_about_the_machine(result, model)
    yield from oracles.complaints_about_what_is_held(result, function)
    if set(result.files) - set(model.files):
        yield f"new files: {set(result.files) - set(model.files)}"
    if not oracles.only_known_effects(line, result, model):
        yield "it changed something that it does not change otherwise"
    if wish.startswith("iopl 1"):
        yield from nothing_was_done(result)
        return
    if "iopl 0" not in result.log and wish != "iopl 2":
        yield "the end of the run is missing"
    if not oracles.status_is_explained(line, result, model):
        yield f"status {result.status} is not documented"
    if not oracles.text_is_as_stated(line, wish, result, usual, unbroken):
        yield f"status {result.status} with this text: {result.text[-300:]!r}"


def nothing_was_done(result):
    if (result.status, result.text, result.log) != (oracles.FAILED_START, "", []):
        yield f"without privilege: {result.status}, {result.text!r}, {result.log}"


def complaints_of_all_runs(bench):
    usual = bench.run("count")
    if usual.held or usual.failed or usual.status < 0 or usual.err:
        yield f"without a failure: {usual.status}, {usual.held}, {usual.err}"
    unbroken = bench.run("count", keys=b"") if oracles.KEYS & set(usual.calls) else usual
    wishes = [*injection.wishes(usual.calls), *injection.wishes_for_no_memory(bench.line, usual.calls)]
    for function, wish in wishes:
        for complaint in complaints(bench.line, usual, unbroken, bench.run(wish), function, wish):
            yield f"{wish}: {complaint}"


@pytest.mark.parametrize("line", every_line(), ids=str)
def test_whatever_fails_the_run_ends_well(tmp_path, line):
    found = list(complaints_of_all_runs(injection.Bench(tmp_path, line)))
    assert not found, "\n".join(found)
