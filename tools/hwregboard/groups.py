"""Many machines put into groups of the same, and what sets each group apart from the largest one."""

import concurrent.futures
import os
import sys

from hwregboard.board import read_board
from hwregboard.comparison import Difference
from hwregboard.differences import compared, counts, lines
from hwregboard.errors import Mistake, printable
from hwregboard.machine import Machine
from hwregboard.volatile import Rules

mBase: Machine | None = None  # of a worker process: the machine that others are compared with
mRules = Rules()

Key = tuple[tuple[tuple[str, str, str | None, str | None], ...], str]


def begin(file: str, rules: Rules) -> None:
    global mBase, mRules
    mBase, mRules = read_board(file), rules


def judge(file: str) -> tuple[Key, list[Difference]] | str:
    """What sets a machine apart from the base, and a sum of what the base does not tell; or why it cannot be read."""
    try:
        comparison = compared(mBase or Machine(), read_board(file), mRules)
    except Mistake as error:
        return str(error)
    found = comparison.found
    key = tuple((each.place, each.name, each.old, each.new) for each in found if not each.reason)
    return (key, comparison.unjudged.hexdigest()), found


def against(base: str, files: list[str], rules: Rules) -> list[tuple[Key, list[Difference]] | str]:
    """judge() of each file, on all processors."""
    workers = max(1, min(os.cpu_count() or 1, len(files) // 8))
    begin(base, rules)
    if workers == 1:
        return [judge(file) for file in files]
    with concurrent.futures.ProcessPoolExecutor(workers, initializer=begin, initargs=(base, rules)) as pool:
        return list(pool.map(judge, files, chunksize=max(1, min(16, len(files) // workers // 4))))


def grouped(files: list[str], rules: Rules) -> tuple[list[list[str]], dict[str, list[Difference]], list[str]]:
    """(groups, the largest first; what sets the first file of each apart from the largest one's; troubles)."""
    troubles: list[str] = []
    base = ""
    for file in files:  # the first one that can be read
        try:
            read_board(file)
        except Mistake as error:
            troubles.append(str(error))
            continue
        base = file
        break
    if not base:
        return [], {}, troubles
    rest = files[files.index(base):]
    found: dict[Key, list[str]] = {}
    apart: dict[str, list[Difference]] = {}
    for file, answer in zip(rest, against(base, rest, rules)):
        if isinstance(answer, str):
            troubles.append(answer)
            continue
        found.setdefault(answer[0], []).append(file)
        apart[file] = answer[1]
    groups = sorted(found.values(), key=lambda group: -len(group))
    if groups[0][0] != base:
        leaders = [group[0] for group in groups[1:]]
        answers = against(groups[0][0], leaders, rules)
        apart = {file: answer[1] for file, answer in zip(leaders, answers) if not isinstance(answer, str)}
    return groups, apart, troubles


def print_groups(files: list[str], rules: Rules) -> bool:
    """Prints the groups; True when there is more than one. Files that cannot be read are told and make a Mistake."""
    groups, apart, troubles = grouped(files, rules)
    for number, group in enumerate(groups, 1):
        print(f"group {number}: {len(group)} machine{'s' if len(group) > 1 else ''}")
        if number > 1:
            for line in lines(apart.get(group[0], []), groups[0][0], group[0]):
                print(f"  differs: {printable(line)}")
            if not counts(apart.get(group[0], [])):
                print("  differs: in what the first machine does not tell")
        for file in group:
            print(f"  machine: {file}")
    sys.stdout.flush()
    if troubles:
        told = "\n".join(troubles)
        raise Mistake("diff --group", 0, f"{len(troubles)} of {len(files)} files cannot be read:\n{told}")
    return len(groups) > 1
