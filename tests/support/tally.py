#!/usr/bin/python3
"""Adds up the JUnit files of a folder and prints how many tests passed, failed and were skipped.

    tests/support/tally.py FOLDER

Exit status 1 when a test failed or none ran.
"""

import pathlib
import sys
import xml.etree.ElementTree as tree


def outcome(case):
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    if case.find("skipped") is not None or case.get("status") == "notrun":
        return "skipped"
    return "passed"


def main():
    counts = {"passed": 0, "failed": 0, "skipped": 0}
    for path in pathlib.Path(sys.argv[1]).glob("*.xml"):
        for suite in tree.parse(path).getroot().iter("testsuite"):
            for case in suite.findall("testcase"):
                counts[outcome(case)] += 1
    shown = [name for name in counts if counts[name] or name != "skipped"]
    print(", ".join(f"{counts[name]} {name}" for name in shown))
    return 1 if counts["failed"] or not any(counts.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
