"""What goes wrong in a run of a fuzzer fails the ring, and is told."""

import signal

import pytest

import run


@pytest.fixture
def build(tmp_path, monkeypatch):
    """build(script) makes a folder of builds whose hwreg_fuzz is that script of the shell."""
    monkeypatch.setattr(run, "LATE", 0.5)
    monkeypatch.setattr(run.archive, "read", lambda name: {"seed": b"a"})

    def make(script):
        for place in "fuzz", "fuzz-sanitize":
            (tmp_path / place).mkdir()
            program = tmp_path / place / "hwreg_fuzz"
            program.write_text(f"#!/bin/sh\n{script}\n")
            program.chmod(0o755)
        return tmp_path

    return make


GOOD = "echo 'stat::number_of_executed_units: 9000000'"


def fuzz(place, seconds=1):
    return run.fuzz(place, "words", "plain", seconds)


def recorded(place):
    return [line.split()[1:] for line in (place / "fuzz" / "executions").read_text().splitlines()]


def test_a_run_that_ends_well_is_counted(build):
    place = build(GOOD)
    assert run.run(place, place, "words")
    assert recorded(place) == [["words", "9000000", str(run.SECONDS), "sanitized", "0"],
                               ["words", "9000000", str(run.SECONDS_PLAIN), "plain", "0"]]


@pytest.mark.parametrize("script", ["exit 1", "kill -9 $$", f"{GOOD}; exit 77", "exit 0", "exec sleep 600"])
def test_a_run_that_dies_hangs_or_tries_nothing_fails(build, script):
    place = build(script)
    assert not run.run(place, place, "words")
    assert 'failures="0"' not in (place / "fuzz-words.xml").read_text()


def test_no_seeds_are_no_clean_seeds(build, monkeypatch):
    place = build(GOOD)
    monkeypatch.setattr(run.archive, "read", lambda name: {})
    assert not run.run(place, place, "words")


def test_a_run_that_does_not_end_is_killed(build):
    place = build("exec sleep 600")
    status, _ = run.start([place / "fuzz" / "hwreg_fuzz"], place / "log", 0)
    assert status == -signal.SIGKILL


def test_a_finding_is_one_and_its_log_outlives_the_next(build, monkeypatch):
    place = build('echo "#12\\tNEW cov: 3"; touch $PWD/finding; exit 77')
    findings = place / "fuzz" / "findings" / "words"
    findings.mkdir(parents=True)
    monkeypatch.chdir(findings)
    figures, found = fuzz(place)
    assert figures["executions"] == 12 and len(found) == 2
    assert recorded(place) == [["words", "12", "1", "plain", "1"]]
    assert [path.name.split("-")[0] for path in sorted(findings.iterdir())] == ["finding", "plain"]
