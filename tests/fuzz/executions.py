#!/usr/bin/python3
"""Adds up what the fuzzers' runs have tried, as rows of the table in tests/fuzz/README.md.

    tests/fuzz/executions.py [--since DATE] [FILE]

FILE (build/fuzz/executions) has a line for each run: date, fuzzer, executions, seconds, "plain" or "sanitized",
findings.
"""

import argparse
import collections
import pathlib

TOP = pathlib.Path(__file__).resolve().parents[2]
KINDS = ("plain", "sanitized")


class Sum:
    """Of a fuzzer's runs."""

    def __init__(self):
        self.executions = dict.fromkeys(KINDS, 0)
        self.seconds = dict.fromkeys(KINDS, 0)
        self.findings = 0
        self.last = ""

    def add(self, date, kind, executions, seconds, findings):
        self.executions[kind] += executions
        self.seconds[kind] += seconds
        self.findings += findings
        self.last = max(self.last, date)

    def rate(self, kind):
        return f"{self.executions[kind] / self.seconds[kind]:,.0f}" if self.seconds[kind] else "-"


def add_up(text, since=""):
    """Fuzzer: sum, in the order of their first runs; "all" last."""
    sums = collections.defaultdict(Sum)
    for line in text.splitlines():
        date, name, executions, seconds, kind, findings = line.split()
        if date >= since:
            for into in name, "":
                sums[into].add(date, kind, int(executions), int(seconds), int(findings))
    everything = sums.pop("", Sum())
    return {**sums, "all": everything}


def rows(sums):
    for name, done in sums.items():
        shown = "all" if name == "all" else f"`{name}`"
        yield (f"| {done.last} | {shown} | {sum(done.executions.values()):,} | {done.rate('plain')} | "
               f"{done.rate('sanitized')} | {done.findings} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--since", default="", metavar="DATE")
    parser.add_argument("file", nargs="?", type=pathlib.Path, default=TOP / "build" / "fuzz" / "executions")
    given = parser.parse_args()
    print("| last | fuzzer | executions | a second | sanitized | findings |\n|---|---|---|---|---|---|")
    print("\n".join(rows(add_up(given.file.read_text(), given.since))))


if __name__ == "__main__":
    main()
