#!/usr/bin/python3
"""The conditions with more than one term in the program's code, and whether the tests show that each term decides.

    conditions.py table           each condition: file, function, text, terms
    conditions.py build FOLDER    the program and its unit tests, recording into FOLDER/records, in FOLDER/bin
    conditions.py report FOLDER   what these records show

A condition is an expression of &&, ||, ! and ?: with two terms at least, wherever it stands: in an if, a loop, a
return, an operand. (A ?: belongs to it where it is a truth value itself.) A term is what these connect.

A term is shown to decide by two evaluations that differ in it and in the outcome, in each of which the outcome hangs on
it: no other term that was evaluated masks it (masking MC/DC; what was not evaluated masks nothing).
"""

import collections
import dataclasses
import pathlib
import re
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))

from clang.cindex import CursorKind  # noqa: E402 (of the package python3-clang)

import exemptions  # noqa: E402
from rewriting import Build, Edits, Source, shipped, span  # noqa: E402

LIST = HERE / "exempted_terms.txt"
WRAPPING = {CursorKind.PAREN_EXPR, CursorKind.UNEXPOSED_EXPR}
KINDS = {"&&": "and", "||": "or"}


@dataclasses.dataclass
class Node:
    """A part of a condition: "and", "or", "not", "choice" or "term"."""

    kind: str
    parts: list
    cursor: object
    number: int = -1  # of a term, from 0

    def terms(self):
        return [self] if self.kind == "term" else [term for part in self.parts for term in part.terms()]


@dataclasses.dataclass
class Condition:
    file: str
    line: int
    function: str
    text: str
    root: Node
    texts: list  # of the terms
    start: int = 0  # of its records

    def size(self):
        """Bytes of its records: two for each row of digits."""
        return 2 * 3 ** len(self.texts)


# The table.

def one_line(text):
    return " ".join(re.sub(r"//[^\n]*", "", text).split())


def node(source, cursor):
    """The tree of an expression; a term alone where it is no condition."""
    parts = list(cursor.get_children())
    if cursor.kind in WRAPPING and len(parts) == 1:
        inner = node(source, parts[0])
        return inner if inner.kind != "term" else Node("term", [], cursor)
    kind = None
    if cursor.kind == CursorKind.BINARY_OPERATOR:
        kind = KINDS.get(one_line(source.slice(span(parts[0])[1], span(parts[1])[0])))
    elif cursor.kind == CursorKind.UNARY_OPERATOR and source.text[span(cursor)[0]:].startswith(b"!"):
        kind = "not"
    elif cursor.kind == CursorKind.CONDITIONAL_OPERATOR and cursor.type.get_canonical().spelling == "bool":
        kind = "choice"
    return Node(kind, [node(source, part) for part in parts], cursor) if kind else Node("term", [], cursor)


def condition_at(source, cursor, function):
    """The condition that this expression is, or None."""
    if not cursor.kind.is_expression() or cursor.kind in WRAPPING:
        return None
    root = node(source, cursor)
    terms = root.terms()
    if len(terms) < 2:
        return None
    for number, term in enumerate(terms):
        term.number = number
    text, *texts = [one_line(source.slice(*span(place))) for place in [cursor, *[term.cursor for term in terms]]]
    return Condition(source.path, source.line(span(cursor)[0]), function, text, root, texts)


def conditions_in(source, cursors, function=""):
    for cursor in cursors:
        name = cursor.spelling if cursor.kind == CursorKind.FUNCTION_DECL else function
        found = condition_at(source, cursor, name)
        if found:
            yield found
        inside = [term.cursor for term in found.root.terms()] if found else [cursor]
        for part in inside:
            yield from conditions_in(source, part.get_children(), name)


def sources():
    return [Source(path) for path in [*shipped(".cpp"), *shipped(".h")]]


def table(files):
    """The conditions of these sources in the order of their places, with the places of their records."""
    conditions = [condition for source in files for condition in conditions_in(source, source.top)]
    start = 0
    for condition in conditions:
        condition.start = start
        start += condition.size()
    return conditions


# The build that records.

def recording(source, conditions):
    edits = Edits(source.text)
    for condition in conditions:
        for term in condition.root.terms():
            edits.wrap(*span(term.cursor), f"evaluation.Term({3 ** term.number}, ", ")")
        edits.wrap(*span(condition.root.cursor), f"conditions::Decide<{condition.start}>("
                   "[&](conditions::Evaluation &evaluation) { return ", "; })")
    return edits.apply()


def build(folder):
    files = sources()
    conditions = table(files)
    rewritten = {source.path: recording(source, [one for one in conditions if one.file == source.path])
                 for source in files}
    records = (folder / "records").absolute()
    size = sum(condition.size() for condition in conditions)
    flags = [f'-DCONDITIONS_FILE="{records}"', f"-DCONDITIONS_BYTES={size}"]
    Build(folder, rewritten, HERE / "conditions.h", flags=flags).make()
    records.unlink(missing_ok=True)  # a process of before may still have it
    records.write_bytes(bytes(size))
    records.chmod(0o666)  # some tests run the program as another user


# The report.

def value(part, digits):
    """What the operand was in an evaluation, None where it was not evaluated."""
    if part.kind == "term":
        return (None, False, True)[digits[part.number]]
    first = value(part.parts[0], digits)
    if first is None:
        return None
    if part.kind == "not":
        return not first
    if part.kind == "choice":
        return value(part.parts[1 if first else 2], digits)
    return value(part.parts[1], digits) if first == (part.kind == "and") else first


def hangs_on(part, term, digits):
    """True where the term was evaluated and, in that evaluation, nothing masks it within the condition."""
    if part.kind == "term":
        return part is term and digits[term.number] != 0
    place = next((i for i, inner in enumerate(part.parts) if any(term is leaf for leaf in inner.terms())), None)
    if place is None or not hangs_on(part.parts[place], term, digits):
        return False
    if part.kind in ("and", "or"):
        return value(part.parts[1 - place], digits) in (None, part.kind == "and")
    return True


def evaluations(condition, records):
    """(digits, outcome) of all that were recorded."""
    for row in range(condition.size()):
        if records[condition.start + row]:
            digits = [row // 2 // 3 ** place % 3 for place in range(len(condition.texts))]
            assert value(condition.root, digits) == bool(row % 2), f"{condition.file}: {condition.text}: {digits}"
            yield digits, bool(row % 2)


def is_shown(condition, term, rows):
    seen = {(digits[term.number], outcome) for digits, outcome in rows if hangs_on(condition.root, term, digits)}
    return any(one != other and first != second for one, first in seen for other, second in seen)


def judged(conditions, records):
    """Whether it is shown that a term decides, for each term by its place: (file, function, condition, its number)."""
    found = {}
    for condition in conditions:
        rows = list(evaluations(condition, records))
        for term in condition.root.terms():
            place = (condition.file, condition.function, condition.text, str(term.number))
            found.setdefault(place, []).append(is_shown(condition, term, rows))
    return found


def missing(found):
    """The places that are not shown, as a Counter."""
    return collections.Counter({place: shown.count(False) for place, shown in found.items() if False in shown})


def records_of(folder):
    return (folder / "records").read_bytes()


def show(conditions):
    for condition in conditions:
        print(f"{condition.file}:{condition.line}: {condition.function}: {condition.text}")
        for number, text in enumerate(condition.texts):
            print(f"    {number}: {text}")


def report(folder):
    conditions = table(sources())
    found = judged(conditions, records_of(folder))
    shown = sum(one for seen in found.values() for one in seen)
    for place in missing(found).elements():
        print(exemptions.entry(place))
    print(f"{len(conditions)} conditions with {sum(len(one.texts) for one in conditions)} terms: "
          f"{shown} shown to decide, {sum(exemptions.exempted(LIST.read_text()).values())} in the list")


def main(words):
    if words == ["table"]:
        show(table(sources()))
    elif len(words) == 2 and words[0] in ("build", "report"):
        {"build": build, "report": report}[words[0]](pathlib.Path(words[1]))
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
