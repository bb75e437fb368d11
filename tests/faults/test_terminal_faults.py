"""Commands that look for keys, on a terminal, while what they need of it fails: they end, and leave it as it was."""

import termios

import pytest

import injection
import oracles
from harness import run_terminal
from lines import every_line

FUNCTIONS = {"tcgetattr", "tcsetattr", "tcgetpgrp", "signalfd", "poll", "getc", "ungetc", "fcntl", "setvbuf", "close"}
TYPED = b"\x1b\n" * 20  # ESC, with what a terminal that still takes lines waits for


def looks_for_keys(line):
    words = line.words.split()
    return line.words == "/SMBIOS" or ({"/DUMP", "/T"} & set(words) and "/INDEX" not in words)


WATCHING = [line for line in every_line() if looks_for_keys(line)]


def on_terminal(bench, wish):
    bench.clear()
    run = bench.prepared()
    run.environment["HWBOARD_FAIL"] = wish
    result = run_terminal(run, bench.work, [], (0, 1, 2), (25, 80), injection.SECONDS, TYPED)
    return injection.told(result, bench.work)


def modes(settings):
    """Without the characters, of which tcgetattr gives two as numbers when lines are off."""
    return settings[:6]


def printed(result):
    """Without blanks and without what the terminal echoes of the keys, which comes when it likes."""
    return "".join(result.text.replace("^[", "").split())


def text_is_as_usual(result, usual):
    """A key that was missed costs no page, but the next one is taken a page later. A terminal that stays non-blocking
    drops what it has no room for."""
    if any(line.startswith("failed getc ") for line in result.failed):
        return printed(result).startswith(printed(usual))
    if oracles.restoring_failed(result, "fcntl", 3):
        return oracles.is_part_of(printed(result), printed(usual))
    return printed(result) == printed(usual)


def complaints(result, usual):
    if result.status != usual.status or not text_is_as_usual(result, usual):
        yield f"status {result.status} with this text: {result.text[-200:]!r}"
    if result.held:
        yield f"still held at the end: {result.held}"
    before, after = modes(result.tty_before), modes(result.tty_after)
    if oracles.restoring_failed(result, "tcsetattr", 2):
        before[3] &= ~(termios.ICANON | termios.ECHO)
        after[3] &= ~(termios.ICANON | termios.ECHO)
    if before != after:
        yield f"the terminal is left with {after}"
    if oracles.descriptor_is_left_changed(result):
        yield "the terminal's descriptor is left non-blocking"
    yield from oracles.complaints_about_the_machine(result, usual)


@pytest.mark.parametrize("line", WATCHING, ids=str)
def test_the_terminal_is_left_as_it_was_whatever_fails(tmp_path, line):
    bench = injection.Bench(tmp_path, line)
    usual = on_terminal(bench, "count")
    assert "tcsetattr" in usual.calls and list(complaints(usual, usual)) == []
    calls = {function: count for function, count in usual.calls.items() if function in FUNCTIONS}
    found = []
    for _, wish in injection.wishes(calls):
        found += [f"{wish}: {complaint}" for complaint in complaints(on_terminal(bench, wish), usual)]
    assert not found, "\n".join(found)


def test_a_background_job_that_cannot_be_stopped_gets_the_end_of_input(tmp_path):
    """The read that stops it fails where it has no shell any more, as here."""
    bench = injection.Bench(tmp_path, next(line for line in WATCHING if line.words.startswith("/IO /DUMP")))
    unbroken = bench.run("count", keys=b"")
    bench.clear()
    run = bench.prepared()
    doors = f"LD_PRELOAD={run.environment.pop('LD_PRELOAD')}", "HWBOARD_FAIL=read 1+"
    run.command = ["sh", "-mc", 'env "$@" & wait $!', "sh", *doors, *run.command]
    run.executable = "/bin/sh"
    result = run_terminal(run, bench.work, [], (0, 1, 2), (25, 80), injection.SECONDS, TYPED)
    injection.told(result, bench.work)
    assert "failed read 1 -> EIO" in result.failed
    assert (result.status, result.log) == (unbroken.status, unbroken.log)
    assert modes(result.tty_after) == modes(result.tty_before)
