"""The lists beside this file: survivors that have been looked at, and the mutants of the ring.

A mutant is known by its file, its function, the text of its line and its change, so that a list lasts as long as the
line does: four fields and a fifth one, with " ¦ " between them, on a line. An "…" in a field stands for any text."""

import dataclasses
import pathlib
import re

import engine

HERE = pathlib.Path(__file__).resolve().parent
LISTED = HERE / "survivors.list"
DRAWN = HERE / "drawn.list"
BETWEEN = " ¦ "


def key(mutant):
    return mutant.file, mutant.function, mutant.text, mutant.change


def line(mutant):
    return BETWEEN.join(key(mutant))


def read(path=LISTED):
    """{key: the reason, or the test that kills it}"""
    found = {}
    for number, text in enumerate(path.read_text().splitlines(), 1):
        if text and not text.startswith("#"):
            fields = text.split(BETWEEN)
            assert len(fields) == 5 and fields[4].strip(), f"{path.name}:{number}: five fields"
            found[tuple(fields[:4])] = fields[4]
    return List(found)


class List:
    """The entries of a file: `read` gives them, `of` the one that a mutant belongs to."""

    def __init__(self, entries):
        self.entries = entries
        self.patterns = {entry: re.compile(BETWEEN.join(map(pattern, entry))) for entry in entries
                         if any("…" in field for field in entry)}

    def of(self, mutant):
        if key(mutant) in self.entries:
            return key(mutant)
        return next((entry for entry, pattern in self.patterns.items() if pattern.fullmatch(line(mutant))), None)

    def gone(self, mutants):
        """The entries that belong to no mutant any more."""
        found = {self.of(mutant) for mutant in mutants}
        return [BETWEEN.join(entry) for entry in self.entries if entry not in found]


def pattern(field):
    return ".*".join(re.escape(part) for part in field.split("…"))


def write_drawn(killed):
    head = [text for text in DRAWN.read_text().splitlines() if text.startswith("#")] if DRAWN.exists() else []
    DRAWN.write_text("\n".join([*head, *(f"{line(mutant)}{BETWEEN}{by}" for mutant, by in killed)]) + "\n")


def check_drawn(mutants, listed):
    """Asks the one test for each mutant of drawn.list, and without one; True when all of them are killed or listed."""
    drawn, by_key = read(DRAWN), {key(mutant): mutant for mutant in mutants.values()}
    reach = engine.Reach([], {}, {})
    units, commands = engine.UnitServer(0, reach), engine.CommandServer(0, reach, 1)
    wrong = [f"no mutant is so, draw anew: {entry}" for entry in drawn.gone(mutants.values())]
    for entry, test in drawn.entries.items():
        mutant = by_key.get(entry)
        if mutant is None:
            continue
        reach.tests[mutant.number] = reach.tests[engine.NONE] = [test]
        reach.seconds[test] = 0.01 if "::" not in test else 1
        server = commands if "::" in test else units
        if server.test(dataclasses.replace(mutant, number=engine.NONE))[0] != "survived":
            wrong.append(f"{test} fails without a mutant")
        elif server.test(mutant)[0] == "survived" and listed.of(mutant) is None:
            wrong.append(f"{test} does not notice it any more: {line(mutant)}")
    units.stop()
    commands.stop()
    print("\n".join([*wrong, f"{len(drawn.entries) - len(wrong)} of {len(drawn.entries)} killed or listed"]))
    return not wrong and len(drawn.entries) > 0
