"""What documents quote is what lies in the tree, and all of them name the same lock."""

import re

import pytest

import examples

DOCS = examples.TOP / "docs"
LOCK = "/run/lock/hwreg.lock"
COUNTDOWN = f"hwreg /TIMEOUT /T 30 && flock {LOCK} hwreg /RTC 120 /T 0"
RULE = "There is one lock for all that start hwreg, and a countdown runs outside of it:"
PAGES = [examples.TOP / "README.md", DOCS / "hwreg.8"]
TEXTS = [examples.TOP / "README.md", *sorted(path for path in DOCS.iterdir() if path.suffix in (".md", ".txt", ".8"))]


@pytest.mark.parametrize("name", ["cycle", "cycle.service"])
def test_the_page_quotes_the_file(name):
    quoted = examples.files_shown((DOCS / "power-cycling.md").read_text())[name]
    assert quoted.rstrip("\n") + "\n" == (examples.TOP / "examples" / name).read_text()


def running_text(path):
    """Without the requests of a manual page and the breaks of its lines."""
    lines = [re.sub(r"^\.(BR|B|RB|EX|PP|in)\b ?", "", line) for line in path.read_text().splitlines()]
    return " ".join(" ".join(lines).replace(" ,", ",").replace("`", "").split())


@pytest.mark.parametrize("path", PAGES, ids=lambda path: path.name)
def test_the_rule_of_the_lock_is_told_in_the_same_words(path):
    assert RULE in running_text(path)


@pytest.mark.parametrize("path", [*PAGES, DOCS / "fleets.md", DOCS / "power-cycling.md"], ids=lambda path: path.name)
def test_the_countdown_is_shown_outside_of_the_lock(path):
    assert COUNTDOWN in running_text(path)


@pytest.mark.parametrize("path", TEXTS, ids=lambda path: path.name)
def test_each_document_takes_the_one_lock(path):
    """Or, for simulated machines side by side, one for each."""
    files = re.findall(r"\bflock (\S*/\S*|%h\S*) hwreg", running_text(path))
    assert set(files) <= {LOCK, "%h.lock"}


@pytest.mark.parametrize("name", ["cycle", "registers"])
def test_each_script_takes_it(name):
    assert set(re.findall(r"/run/lock/[\w.]+", (examples.TOP / "examples" / name).read_text())) == {LOCK}
