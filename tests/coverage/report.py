#!/usr/bin/python3
"""Tells what the tests have reached, per file and in all: FOLDER/coverage.txt (and standard output) and coverage.json.

    tests/coverage/report.py FOLDER
"""

import json
import pathlib
import sys

import counts
import exemptions

COUNTED = ("lines", "branches")
FIELDS = ("lines", "lines reached", "branches", "branches reached", "exempted")


def figures(sources, listed):
    """{file: {field: number}}, and the sums as "all"."""
    rows = {}
    for file, source in sources.items():
        reached = [sum(1 for count in counted.values() if count > 0) for counted in (source.lines, source.branches)]
        places = sum(number for place, number in listed.items() if place[0] == file)
        rows[file] = dict(zip(FIELDS, (len(source.lines), reached[0], len(source.branches), reached[1], places)))
    rows["all"] = {field: sum(row[field] for row in rows.values()) for field in FIELDS}
    return rows


def share(row, field):
    return 100 * row[f"{field} reached"] / row[field] if row[field] else 100


def table(rows):
    yield f"{'':32}{'lines':>18}{'branches':>19}  exempted"
    for file, row in rows.items():
        cells = [f"{row[f'{field} reached']:5} /{row[field]:5} {share(row, field):5.1f}" for field in COUNTED]
        yield f"{file:32}{cells[0]:>18}{cells[1]:>19}{row['exempted']:10}"


def main(folder):
    sources = counts.reached()
    rows = figures(sources, exemptions.exempted(exemptions.LIST.read_text()))
    text = "\n".join(table(rows)) + "\n"
    (folder / "coverage.txt").write_text(text)
    branches = {file: {"lines": source.lines, "branches": [[*key, count] for key, count in source.branches.items()]}
                for file, source in sources.items()}
    (folder / "coverage.json").write_text(json.dumps({"figures": rows, "files": branches}, indent=1))
    sys.stdout.write(text)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
