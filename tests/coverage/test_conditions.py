"""Each term of each condition is shown to decide by the tests of `unit` and `command`, which the ring has run before,
but for those of exempted_terms.txt. And: the table is whole, the records are true, and the judgement is right."""

import collections
import subprocess

import pytest

import conditions
import exemptions
from rewriting import BUILD, Source

FOLDER = BUILD / "conditions"


@pytest.fixture(scope="module")
def files():
    return conditions.sources()


@pytest.fixture
def sample(tmp_path):
    """sample(code) is the source with this code, and its conditions."""

    def make(code):
        (tmp_path / "Sample.cpp").write_text(code)
        source = Source("Sample.cpp", top=tmp_path, flags=["-std=c++17"])
        return source, conditions.table([source])

    return make


def test_each_term_is_shown_to_decide_or_stands_in_the_list(files):
    found = conditions.judged(conditions.table(files), conditions.records_of(FOLDER))
    listed = exemptions.exempted(conditions.LIST.read_text())
    wrong = list(exemptions.complaints(conditions.missing(found), listed))
    assert not wrong, "\n".join(["of these terms no test shows that they decide, or the list is wrong:", *wrong])


def test_the_records_are_those_of_this_tree(files):
    table = conditions.table(files)
    assert len(conditions.records_of(FOLDER)) == sum(condition.size() for condition in table)
    assert all((FOLDER / "tree" / source.path).read_bytes() ==
               conditions.recording(source, [one for one in table if one.file == source.path]) for source in files)


def operators(part):
    return [part.kind, *[kind for inner in part.parts for kind in operators(inner)]]


def test_no_operator_of_the_program_is_missing_in_the_table(files):
    for source in files:
        tokens = [token.spelling for token in source.unit.get_tokens(extent=source.unit.cursor.extent)]
        found = conditions.conditions_in(source, source.top)
        kinds = [kind for condition in found for kind in operators(condition.root)]
        assert (kinds.count("and"), kinds.count("or")) == (tokens.count("&&"), tokens.count("||")), source.path


def test_conditions_stand_anywhere(sample):
    table = sample("bool F(int a, int *b) {\n"
                   "    while (a > 1 && // a comment\n"
                   "           !(b || F(a == 2 || a == 3, b)))\n"
                   "        --a;\n"
                   "    auto inner = [=] { return a && b; };\n"
                   "    return a ? inner() && !!b : !a;\n"
                   "}\n"
                   "int gOne = !gOne ? 1 : 2;\n")[1]
    assert [(one.line, one.function, one.text, one.texts) for one in table] == [
        (2, "F", "a > 1 && !(b || F(a == 2 || a == 3, b))", ["a > 1", "b", "F(a == 2 || a == 3, b)"]),
        (3, "F", "a == 2 || a == 3", ["a == 2", "a == 3"]),
        (5, "F", "a && b", ["a", "b"]),
        (6, "F", "a ? inner() && !!b : !a", ["a", "inner()", "b", "a"])]


def records(condition, rows):
    """The records of evaluations, each a digit for each term: "0" false, "1" true, "-" not evaluated."""
    held = bytearray(condition.size())
    for row in rows:
        digits = ["-01".index(digit) for digit in row]
        number = sum(digit * 3 ** place for place, digit in enumerate(digits))
        held[2 * number + conditions.value(condition.root, digits)] = 1
    return held


@pytest.mark.parametrize("text, rows, shown", [
    ("a && b", "11 0-", "a"),
    ("a && b", "11 10", "b"),
    ("a && b", "10 0-", ""),  # nothing differs in the outcome
    ("a && b", "11", ""),
    ("a || b", "00 01 1-", "ab"),
    ("a || b", "1- 01", ""),
    ("!a && b", "01 1-", "a"),
    ("(a && b) || c", "11- 100 101", "bc"),
    ("(a && b) || c", "11- 101 0-0", "ac"),  # another term may differ, too, where it masks nothing
    ("(a || b) && c", "1-0 011", "c"),  # a differs as the outcome does, but it was masked
    ("(a || b) && c", "011 00-", "b"),
    ("(a || b) && c", "1-1 010", "c"),
    ("a ? b : c", "11- 0-0", "a"),
    ("a ? b : c", "11- 0-1", ""),
    ("a ? b : c", "11- 10- 0-1 0-0", "abc"),
])
def test_a_term_is_shown_where_the_outcome_hangs_on_it(sample, text, rows, shown):
    condition = sample(f"bool F(bool a, bool b, bool c) {{ return {text}; }}\n")[1][0]
    found = conditions.judged([condition], records(condition, rows.split()))
    assert "".join(condition.texts[int(place[3])] for place, seen in found.items() if all(seen)) == shown


def test_a_record_that_cannot_be_is_told(sample):
    condition = sample("bool F(bool a, bool b) { return a && b; }\n")[1][0]
    held = bytearray(condition.size())
    held[2 * (2 + 3 * 2)] = 1  # both were true, and the outcome false
    with pytest.raises(AssertionError, match="a && b"):
        conditions.judged([condition], held)


CHILDREN = r"""
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

constexpr bool Between(int number) {
    return number > 1 && number < 4;
}
static_assert(Between(2)); // where the compiler evaluates it there is nothing to record

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "descriptor") == 0)
        return dup(0); // the lowest that is free
    if (fork() == 0) {
        if (argc == 1 || argc == 3)
            raise(SIGKILL);
        _exit(0);
    }
    wait(nullptr);
    return Between(argc);
}
"""


@pytest.fixture
def children(sample, tmp_path):
    """The sample that starts a child, built to record, and its table."""
    source, table = sample(CHILDREN)
    (tmp_path / "Recording.cpp").write_bytes(conditions.recording(source, table))
    held = tmp_path / "records"
    held.write_bytes(bytes(sum(condition.size() for condition in table)))
    subprocess.run(["g++", "-std=c++17", "-O2", "-Wall", "-Wextra", "-Werror", "-include",
                    conditions.HERE / "conditions.h", f'-DCONDITIONS_FILE="{held}"',
                    f"-DCONDITIONS_BYTES={held.stat().st_size}", "-o", tmp_path / "sample", tmp_path / "Recording.cpp"],
                   check=True)
    return tmp_path, table


def evaluated(folder, table, text):
    condition = next(one for one in table if one.text == text)
    return sorted(conditions.evaluations(condition, (folder / "records").read_bytes()))


def test_children_and_processes_that_are_killed_leave_their_records(children):
    folder, table = children
    subprocess.run([folder / "sample", "one", "more"], check=False)
    assert evaluated(folder, table, "argc == 1 || argc == 3") == [([1, 2], True)]
    assert evaluated(folder, table, "number > 1 && number < 4") == [([2, 2], True)]
    subprocess.run([folder / "sample"], check=False)
    assert evaluated(folder, table, "argc == 1 || argc == 3") == [([1, 2], True), ([2, 0], True)]


def test_recording_leaves_no_descriptor_open(children):
    folder, table = children
    assert subprocess.run([folder / "sample", "descriptor"], stdin=subprocess.DEVNULL, check=False).returncode == 3
    assert evaluated(folder, table, 'argc == 2 && strcmp(argv[1], "descriptor") == 0') == [([2, 2], True)]


def test_without_its_file_the_program_runs_all_the_same(children):
    folder, _ = children
    (folder / "records").unlink()
    assert subprocess.run([folder / "sample", "descriptor"], stdin=subprocess.DEVNULL, check=False).returncode == 3
    assert not (folder / "records").exists()


def test_equal_conditions_of_a_function_are_judged_one_by_one(sample):
    table = sample("bool F(bool a, bool b) { return (a && b) == true || (a && b) == false; }\n")[1]
    inner = [condition for condition in table if condition.text == "a && b"]
    assert len(inner) == 2
    held = bytearray(sum(condition.size() for condition in table))
    held[inner[0].start:inner[0].start + inner[0].size()] = records(inner[0], ["11", "10", "0-"])
    place = ("Sample.cpp", "F", "a && b", "0")
    assert conditions.missing(conditions.judged(inner, held)) == collections.Counter({place: 1, (*place[:3], "1"): 1})
