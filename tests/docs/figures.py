#!/usr/bin/env /usr/bin/python3
"""The figures of docs/assurance.md: they are taken from the tree and from what long runs have left, never typed.

    tests/docs/figures.py                       tells which figures of the page are no longer so; exit status 1 for any
    tests/docs/figures.py --update              writes them anew
    tests/docs/figures.py --record NAME [FILE]  keeps what a long run has found, out of the FILE (or standard input)
                                                with what its command printed; without NAME: the names

A table of the page between <!-- counted --> and <!-- end --> has a command of the shell in each row, which counts the
row's figure in the tree. The tables between <!-- tests --> or <!-- measured --> and <!-- end --> are those of
records.txt: a line for each long run, with its date. `--record tests` takes the results of the rings that
`scripts/test` has left in the build folder.
"""

import datetime
import os
import pathlib
import re
import subprocess
import sys
import xml.etree.ElementTree as tree

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
PAGE = TOP / "docs" / "assurance.md"
RECORDS = TOP / "tests" / "docs" / "records.txt"
LARGE, LATE = 200, 0.05  # a figure from LARGE on may be so much behind: nobody updates the page for each new test

# What a long run has found: what it is, the command, and what of the command's last words is the figure.
MEASURED = {
    "coverage": ("lines and branches of the program that `unit`, `command` and `faults` reach", "scripts/test coverage",
                 r"^all +(\d+) */ *(\d+) +[\d.]+ +(\d+) */ *(\d+) +[\d.]+ +(\d+)$",
                 "{0} of {1} lines, {2} of {3} branches; {4} exempted"),
    "conditions": ("terms of conditions that tests show to decide (masking MC/DC)", "scripts/test coverage",
                   r"^(\d+) conditions with (\d+) terms: (.*)$", "{0} conditions, {1} terms: {2}"),
    "mutation": ("small faults put into the program that a test notices", "tests/mutation/run --seed 1 --count 2000",
                 r"^killed, listed survivors left out: (\d+) of (\d+) \((.*)\); (\d+) listed$",
                 "{2}: {0} of {1}; {3} more make no difference"),
    "edges": ("edges of the program that the fuzzers' inputs take, of those that an input can take",
              "tests/fuzz/edges.py", r"^\| all \| (\d+) \| (\d+) \| (\d+) \| (.*) \|$", "{3}: {2} of {1}"),
    "fuzz": ("inputs of all fuzzers, all runs together, and the findings on the way",
             "tests/fuzz/long.py 600; tests/fuzz/executions.py",
             r"^\| [-\d]+ \| all \| ([\d,]+) \| .* \| (\d+) \|$", "{0} inputs; findings: {1}"),
    "desk": ("inputs of hwreg-board's fuzzers in one run, and what is left to mend",
             "tests/desk/fuzz/run.py",
             r"^in all: (\d+) executions, .*?(\d+) findings", "{0} inputs; findings: {1}"),
    "suite": ("all rings", "scripts/test all", r"^(\d+) passed, (\d+) failed(?:, (\d+) skipped)?$",
              "{0} passed, {1} failed, {2} skipped"),
}  # fmt: skip


def grouped(number):
    return f"{int(number):,}"


def with_commas(text):
    return re.sub(r"(?<![\d.,])\d{4,}(?![\d.])", lambda found: grouped(found[0]), text)


# ---- counted


def count(command):
    """What a command of the shell counts in the tree."""
    done = subprocess.run(["bash", "-c", command], cwd=TOP, capture_output=True, text=True, check=False)
    if not done.stdout.strip().isdigit():
        raise ValueError(f"counts nothing: {command}: {done.stdout}{done.stderr}")
    return int(done.stdout)


def row_of(line):
    """(what, figure, command) of a row of a counted table, None for its head."""
    found = re.fullmatch(r"\| (.*?) \| ([\d,]*) \| `(.*)` \|", line)
    return found and (found[1], int(found[2].replace(",", "") or 0), found[3].replace(r"\|", "|"))


def counted(lines, again):
    """The table's lines; figures that are still so, or nearly, stay unless `again`."""
    for line in lines:
        row = row_of(line)
        if row is None:
            yield line
            continue
        what, told, command = row
        now = count(command)
        holds = now == told or not again and told >= LARGE and abs(now - told) <= LATE * told
        yield f"| {what} | {grouped(told if holds else now)} | `{command.replace('|', chr(92) + '|')}` |"


# ---- recorded


def records():
    """{name: (date, figure)} in the order of the file."""
    found = {}
    for line in RECORDS.read_text().splitlines():
        if not line.startswith("#"):
            date, name, figure = line.split(" ", 2)
            found[name] = date, figure
    return found


def write_records(found):
    head = [line for line in RECORDS.read_text().splitlines() if line.startswith("#")]
    rings = sorted(name for name in found if name.startswith("tests/"))
    rows = [f"{found[name][0]} {name} {found[name][1]}" for name in [*filter(found.get, MEASURED), *rings]]
    RECORDS.write_text("\n".join([*head, *rows, ""]))


def measured():
    yield "| what | figure | date | command |"
    yield "|---|---|---|---|"
    found = records()
    for name, (what, command, _, _) in MEASURED.items():
        if name in found:
            date, figure = found[name]
            yield f"| {what} | {with_commas(figure)} | {date} | `{command}` |"


def tests():
    yield "| ring | passed | failed | skipped | date |"
    yield "|---|---|---|---|---|"
    for name, (date, figure) in records().items():
        if name.startswith("tests/"):
            yield "| " + " | ".join([f"`{name[6:]}`", *map(grouped, figure.split()), date]) + " |"


def ring_results():
    """{ring: ([passed, failed, skipped], date)} of the JUnit files in the build folder."""
    found = {}
    for path in sorted((BUILD / "results").glob("*.xml")):
        counts, date = found.setdefault(path.stem.partition("-")[0], ([0, 0, 0], {}))
        for case in tree.parse(path).iter("testcase"):
            kinds = {child.tag for child in case}
            skipped = "skipped" in kinds or case.get("status") == "notrun"
            counts[1 if kinds & {"failure", "error"} else 2 if skipped else 0] += 1
        date["last"] = max(date.get("last", ""), str(datetime.date.fromtimestamp(path.stat().st_mtime)))
    return {ring: (counts, date["last"]) for ring, (counts, date) in found.items()}


def record(name, text):
    found = records()
    if name == "tests":
        rings = {path.parent.name for path in (TOP / "tests").glob("*/ring")}
        for ring, (counts, date) in ring_results().items():
            if ring in rings:
                found[f"tests/{ring}"] = date, " ".join(map(str, counts))
    else:
        _, _, pattern, form = MEASURED[name]
        matches = list(re.finditer(pattern, text, re.MULTILINE))
        if not matches:
            sys.exit(f"{name}: no line is so: {pattern}")
        found[name] = str(datetime.date.today()), form.format(*(group or "0" for group in matches[-1].groups()))
    write_records(found)


# ---- the page


def updated(text, again):
    """The page with figures as they are now."""
    makers = {"counted": lambda lines: counted(lines, again), "measured": lambda _: measured(),
              "tests": lambda _: tests()}  # fmt: skip
    out, inside, lines = [], None, []
    for line in text.splitlines():
        if inside and line == "<!-- end -->":
            out += makers[inside](lines)
            inside = None
        if inside:
            lines.append(line)
        else:
            out.append(line)
        if begin := re.fullmatch(r"<!-- (counted|measured|tests) -->", line):
            inside, lines = begin[1], []
    return "\n".join([*out, ""])


def main(words):
    if words[:1] == ["--record"]:
        if len(words) < 2 or words[1] not in {*MEASURED, "tests"}:
            sys.exit(f"names: tests {' '.join(MEASURED)}")
        text = "" if words[1] == "tests" else pathlib.Path(words[2]).read_text() if words[2:] else sys.stdin.read()
        record(words[1], text)
        return 0
    text = PAGE.read_text()
    now = updated(text, words == ["--update"])
    if words == ["--update"]:
        PAGE.write_text(now)
        return 0
    if words:
        sys.exit(__doc__)
    stale = [f"{old}\n  is now: {new}" for old, new in zip(text.splitlines(), now.splitlines()) if old != new]
    stale += ["the tables have other rows now"] if text.count("\n") != now.count("\n") else []
    print("\n".join(stale))
    return 1 if stale else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
