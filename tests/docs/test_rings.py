"""The rings are found, say what they test, and their failures are noticed."""

import os
import re
import shutil
import signal
import subprocess

import pytest

from examples import TOP

NAMES = sorted(path.parent.name for path in (TOP / "tests").glob("*/ring"))

PASSING = '<testsuite><testcase name="a"/><testcase name="b"><skipped/></testcase></testsuite>'
FAILING = '<testsuite><testcase name="a"/><testcase name="c"><failure/></testcase></testsuite>'


def said_by(name):
    """What a ring's second line says: what it tests, and how long."""
    line = (TOP / "tests" / name / "ring").read_text().splitlines()[1]
    assert re.fullmatch(r"# .+; \d+ (s|min)", line), f"{name}: {line}"
    return tuple(line.removeprefix("# ").rsplit("; ", 1))


def test_readme_has_a_row_for_each_ring():
    text = (TOP / "README.md").read_text()
    rows = re.findall(r"^\| `(\w+)` \| (.*) \| (\d+ \w+) \|$", text, re.MULTILINE)
    assert {name: (what, time) for name, what, time in rows} == {name: said_by(name) for name in NAMES}


def run_script(tree, *words):
    environment = {**os.environ, "HWREG_BUILD": str(tree / "build")}
    return subprocess.run([tree / "scripts" / "test", *words], env=environment, text=True, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


@pytest.fixture
def tree(tmp_path):
    """A tree that has the scripts, what rings share, and no ring."""
    for name in ("scripts", "tests/support"):
        shutil.copytree(TOP / name, tmp_path / name, ignore=shutil.ignore_patterns("__pycache__"))
    return tmp_path


def make_ring(tree, name, result, status=0, quick="", seconds=0):
    """A ring whose tests have ended so; what was chosen of it goes into the file `chosen`."""
    path = tree / "tests" / name / "ring"
    path.parent.mkdir()
    path.write_text(f"#!/usr/bin/env bash\n# the {name} things; 1 s\n{quick}\n"
                    '. "$(dirname "${BASH_SOURCE[0]}")/../support/ring.sh"\n'
                    f"sleep {seconds}\necho '{result}' >\"$results/{name}.xml\"\n"
                    f"echo \"chosen: ${{1-}}\" >'{tree}/{name}.chosen'\nexit {status}\n")
    path.chmod(0o755)


def last_line(ran):
    return ran.stdout.splitlines()[-1]


def test_each_ring_is_in_the_usage():
    ran = run_script(TOP, "--help")
    assert ran.returncode == 0
    for name in NAMES:
        assert re.search(rf"^  {name} +{re.escape('; '.join(said_by(name)))}$", ran.stdout, re.MULTILINE)


def test_a_new_folder_is_a_ring(tree):
    make_ring(tree, "scratch", PASSING)
    ran = run_script(tree, "scratch", "some words")
    assert (last_line(ran), ran.returncode) == ("1 passed, 0 failed, 1 skipped", 0)
    assert (tree / "scratch.chosen").read_text() == "chosen: some words\n"
    assert "scratch    the scratch things; 1 s" in run_script(tree, "--help").stdout


def test_all_rings_are_added_up_and_a_failure_of_one_is_the_whole_runs(tree):
    make_ring(tree, "good", PASSING)
    make_ring(tree, "bad", FAILING, status=1)
    ran = run_script(tree, "all")
    assert (last_line(ran), ran.returncode) == ("2 passed, 1 failed, 1 skipped", 1)
    assert "== good" in ran.stdout and "bad has failed" in ran.stdout


@pytest.mark.parametrize("words", [["all"], ["broken"], []], ids=["all", "alone", "quick"])
def test_a_ring_that_breaks_makes_the_whole_fail(tree, words):
    make_ring(tree, "broken", PASSING, status=1, quick="# quick")
    ran = run_script(tree, *words)
    assert (last_line(ran), ran.returncode) == ("1 passed, 0 failed, 1 skipped", 1)


def test_a_failed_test_makes_the_whole_fail_whatever_its_ring_says(tree):
    make_ring(tree, "bad", FAILING)
    assert run_script(tree, "bad").returncode == 1


def test_what_a_ring_starts_in_the_background_of_a_shell_can_be_interrupted(tree):
    make_ring(tree, "scratch", PASSING)
    ring = tree / "tests" / "scratch" / "ring"
    ring.write_text(ring.read_text().replace("sleep 0\n", "grep SigIgn /proc/self/status\n"))
    before = signal.signal(signal.SIGINT, signal.SIG_IGN)  # as a shell does
    try:
        ran = run_script(tree, "all")
    finally:
        signal.signal(signal.SIGINT, before)
    ignored = int(re.search(r"^SigIgn:\s*([0-9a-f]+)$", ran.stdout, re.MULTILINE)[1], 16)
    assert not ignored & 1 << signal.SIGINT - 1


def test_a_run_without_tests_fails(tree):
    make_ring(tree, "empty", "<testsuite/>")
    ran = run_script(tree, "empty")
    assert (last_line(ran), ran.returncode) == ("0 passed, 0 failed", 1)


def test_without_words_the_quick_rings_run_and_the_others_are_named(tree):
    make_ring(tree, "first", PASSING, quick="# quick", seconds=0.5)
    make_ring(tree, "part", PASSING, quick="# quick: [one]")
    make_ring(tree, "slow", PASSING)
    ran = run_script(tree)
    assert (last_line(ran), ran.returncode) == ("2 passed, 0 failed, 2 skipped", 0)
    assert ran.stdout.splitlines()[-2] == "left out: part (but for [one]), slow; scripts/test all runs everything"
    assert (tree / "part.chosen").read_text() == "chosen: [one]\n"
    assert not (tree / "slow.chosen").exists()


def test_a_result_of_an_earlier_run_is_not_counted(tree):
    make_ring(tree, "bad", FAILING)
    make_ring(tree, "good", PASSING)
    run_script(tree, "bad")
    assert run_script(tree, "good").returncode == 0


def test_what_is_no_ring_is_told_and_nothing_is_run(tree):
    make_ring(tree, "scratch", PASSING)
    ran = run_script(tree, "scrath")
    assert ran.returncode == 2 and "scripts/test RING" in ran.stdout
    assert not (tree / "scratch.chosen").exists()
