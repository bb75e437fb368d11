"""The figures of docs/assurance.md are those of the tree and of what long runs have left."""

import re
import subprocess

import pytest

import figures

COUNTED = """before
<!-- counted -->
| what | figure | counted by |
|---|---|---|
| things | 3 | `echo 3` |
| many | 1,000 | `echo 1000 \\| cat` |
<!-- end -->
<!-- measured -->
<!-- end -->
"""


@pytest.fixture
def records(tmp_path, monkeypatch):
    path = tmp_path / "records.txt"
    path.write_text("# head\n")
    monkeypatch.setattr(figures, "RECORDS", path)
    monkeypatch.setattr(figures, "BUILD", tmp_path)
    return path


def test_the_page_says_what_is_so():
    ran = subprocess.run([figures.__file__], capture_output=True, text=True, check=False)
    assert ran.returncode == 0, f"{ran.stdout}{ran.stderr}tests/docs/figures.py --update writes them anew"


def test_every_figure_of_the_page_is_in_a_table_that_is_held():
    """But for bounds, each of which is named here."""
    tables = r"<!-- (counted|measured|tests) -->.*?<!-- end -->"
    text = re.sub(r"`[^`]*`|^    .*", "", re.sub(tables, "", figures.PAGE.read_text(), flags=re.DOTALL), flags=re.M)
    assert re.findall(r"(?<![\w-])\d[\d,.]*(?= [\w%])", text) == ["200", "5", "1,024", "0"]


@pytest.mark.parametrize("told, now, held", [
    ("3", "3", True), ("3", "4", False), ("199", "200", False), ("200", "205", True), ("1,000", "1050", True),
    ("1,000", "1051", False), ("1,000", "949", False),
])  # fmt: skip
def test_small_figures_are_exact_and_large_ones_nearly(told, now, held):
    line = f"| things | {told} | `echo {now}` |"
    assert (next(figures.counted([line], False)) == line) == held
    assert next(figures.counted([line], True)) == f"| things | {figures.grouped(now)} | `echo {now}` |"


def test_a_page_without_news_stays_as_it_is(records):
    page = figures.updated(COUNTED, False)
    assert figures.updated(page, True) == page
    assert page.replace("| what | figure | date | command |\n|---|---|---|---|\n", "") == COUNTED


def test_a_command_that_counts_nothing_is_a_mistake():
    with pytest.raises(ValueError, match="counts nothing: cat nowhere"):
        figures.count("cat nowhere")


SAID = {
    "coverage": ("all                                5900 / 5923  99.6  3204 / 3210  99.8         6",
                 "5,900 of 5,923 lines, 3,204 of 3,210 branches; 6 exempted"),
    "conditions": ("400 conditions with 1000 terms: 990 shown, 10 exempted",
                   "400 conditions, 1,000 terms: 990 shown, 10 exempted"),
    "mutation": ("killed, listed survivors left out: 12000 of 12001 (100.0 %); 40 listed",
                 "100.0 %: 12,000 of 12,001; 40 more make no difference"),
    "edges": ("| all | 5000 | 4000 | 3900 | 97.5 % |", "97.5 %: 3,900 of 4,000"),
    "fuzz": ("| 2026-11-22 | all | 123,456,789 | 9,000 | 1,000 | 12 |", "123,456,789 inputs; findings: 12"),
    "desk": ("in all: 12345 executions, 200 a second of the processor, 0 findings", "12,345 inputs; findings: 0"),
    "suite": ("9000 passed, 0 failed", "9,000 passed, 0 failed, 0 skipped"),
}  # fmt: skip


@pytest.mark.parametrize("name", figures.MEASURED)
def test_what_a_long_run_says_is_kept_and_shown(records, name):
    said, shown = SAID[name]
    figures.record(name, f"some words\n{said}\n")
    figures.record(name, f"{said}\nand others\n")
    assert len(records.read_text().splitlines()) == 2
    row = f"| {shown} | {figures.datetime.date.today()} | `{figures.MEASURED[name][1]}` |"
    assert row in figures.updated(COUNTED, False)
    with pytest.raises(SystemExit, match=f"{name}: no line is so"):
        figures.record(name, "something else\n")


def test_the_results_of_rings_are_added_up(records, tmp_path):
    (tmp_path / "results").mkdir()
    for name, cases in {"unit": '<testcase/><testcase status="notrun"/>', "sanitize-unit": "<testcase/>",
                        "sanitize-command": "<testcase><failure/></testcase><testcase><skipped/></testcase>",
                        "scratch": "<testcase/>"}.items():  # fmt: skip
        (tmp_path / "results" / f"{name}.xml").write_text(f"<testsuites><testsuite>{cases}</testsuite></testsuites>")
    figures.record("tests", "")
    today = figures.datetime.date.today()
    assert list(figures.tests())[2:] == [f"| `sanitize` | 1 | 1 | 1 | {today} |", f"| `unit` | 1 | 0 | 1 | {today} |"]
