"""What all measurements share: where things are, timed runs, tables, and the record of what was printed."""

import collections
import os
import re
import statistics
import subprocess
import sys
import textwrap

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.dirname(HERE)
BUILD = os.path.join(os.environ["HWREG_BUILD"], "bench")
HWREG = os.environ["HWREG"]
README = f"{HERE}/README.md"
RECORD = "## Last results\n\n"

# Per command: the medians of its runs. Milliseconds, milliseconds of processor time, MiB, page faults.
Taken = collections.namedtuple("Taken", "wall processor peak faults")

printed = []  # lines


def say(text=""):
    print(text, flush=True)
    printed.extend(text.split("\n"))


def write_record():
    """Puts what was printed in the place of what README.md holds from the last time."""
    with open(README, encoding="utf-8") as stream:
        before, found, _ = stream.read().partition(RECORD)
    if not found:
        sys.exit(f"bench: {README} has no {RECORD.strip()!r}")
    text = re.sub(r"\n{3,}", "\n\n", "\n".join(printed))
    with open(README, "w", encoding="utf-8") as stream:
        stream.write(before + found + textwrap.indent(text.strip("\n"), "    ") + "\n")


def table(title, head, rows, left=(0,)):
    """Prints the rows, the columns `left` to the left and the others to the right."""
    say(f"\n{title}\n")
    rows = [head, *rows]
    widths = [max(len(row[i]) for row in rows) for i in range(len(head))]
    for row in rows:
        cells = [cell.ljust(width) if i in left else cell.rjust(width)
                 for i, (cell, width) in enumerate(zip(row, widths))]
        say(("   " + "  ".join(cells)).rstrip())


def grouped(number):
    return f"{number:,}"


def first_line(*words):
    return subprocess.run(words, stdout=subprocess.PIPE, text=True, check=True).stdout.splitlines()[0]


def timer_words(timer, rounds, commands):
    words = [timer, str(rounds)]
    for command in commands:
        words += ["--", *command]
    return words


def medians(text, commands):
    """What the timer printed, as a list of Taken. A command that did not do its work is not worth a number."""
    runs = [[] for _ in commands]
    for line in text.splitlines():
        number, wall, processor, peak, faults, status = map(int, line.split())
        if status < 0 or status in (6, 126, 127):  # 6: no access to the hardware
            sys.exit(f"bench: {' '.join(commands[number])} ended with {status}")
        runs[number].append((wall / 1e6, processor / 1e3, peak / 1024, faults))
    return [Taken(*map(statistics.median, zip(*taken))) for taken in runs]
