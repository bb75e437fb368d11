"""Small faults are noticed, and the tool that makes them makes what it says."""

import pathlib
import subprocess
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

import mutants  # noqa: E402
import survivors  # noqa: E402
from rewriting import Edits  # noqa: E402

FLAGS = ["-std=c++17"]


@pytest.fixture
def planted(tmp_path):
    """planted(text) makes the mutants of a source."""

    def make(text, name="Planted.cpp"):
        (tmp_path / name).write_text(text)
        maker = mutants.Maker(name, 1, tmp_path, FLAGS)
        return maker, maker.make()

    return make


@pytest.fixture
def built(planted, tmp_path):
    """built(text) gives run(number): the exit status of the program with that mutant."""

    def make(text):
        maker, rewritten = planted(text)
        (tmp_path / "Rewritten.cpp").write_bytes(rewritten)
        program = tmp_path / "planted"
        subprocess.run(["c++", "-std=c++17", "-w", "-Wno-narrowing", "-O2", "-include", HERE / "Mutants.h",
                        tmp_path / "Rewritten.cpp", HERE / "Mutants.cpp", "-o", program], check=True)

        def run(number):
            return subprocess.run([program], env={"HWREG_MUTANT": str(number)}, check=False).returncode

        return maker.mutants, run

    return make


def changes(maker, operator):
    return [mutant.change for mutant in maker.mutants if mutant.operator == operator]


@pytest.mark.parametrize(("text", "operator", "expected"), [
    ("int F(int a) { return a + 2; }", "arithmetic", ["a + 2 => -"]),
    ("int F(int a) { return a + 2; }", "constant", ["2 => 2 + 1", "2 => 2 - 1", "2 => 0"]),
    ("int F(int a) { return a & 0x06; }", "constant", ["0x06 => 0x06 & (0x06 - 1)", "0x06 => 0x06 | (0x06 + 1)"]),
    ("constexpr int N = 4; int F(int a) { return a + N; }", "constant", ["N => N + 1", "N => N - 1"]),
    ("bool F(int a) { return a < 2; }", "relational", ["a < 2 => <=", "a < 2 => >="]),
    ("bool F(bool a, bool b) { return a && b; }", "logical", ["a && b => ||", "a && b => a", "a && b => b"]),
    ("void G(); void F() { G(); }", "statement", ["G() => nothing"]),
    ("void F(int *a) { *a |= 4; }", "assignment", ["*a |= 4 => &=", "*a |= 4 => ="]),
    ("bool G(); void F() { while (G()) ; }", "condition", ["G() => !(G())"]),
    ("int F(int a) { switch (a) { case 3: return 1; } return 2; }", "label", ["case 3 => case 3 + 1"]),
    ("int G(int a, int b); int F(int a) { return G(a, 1); }", "arguments", ["G(a, 1) => G(1, a)"]),
    ("const char *F() { return \"%02X ab\\n\"; }", "text", ['"%02X ab\\n" => "%02X #b\\n"']),
    ("static const char *mNames[] = {\"one\"}; const char *F() { return mNames[0]; }", "text", ['"one" => "o#e"']),
    ("int *G(); int *F() { return G(); }", "return", ["return G() => nullptr"]),
], ids=lambda value: value if isinstance(value, str) and " " not in value else None)
def test_a_source_has_these_mutants(planted, text, operator, expected):
    maker, _ = planted(text)
    assert changes(maker, operator) == expected


def test_what_is_no_value_of_the_program_has_none(planted):
    maker, rewritten = planted("constexpr int N = 4; int mTable[N]; void F() { int a[9]; static_assert(N == 4); }")
    assert (maker.mutants, rewritten.count(b"On(")) == ([], 1)


def test_a_mutant_is_switched_on_from_outside_and_is_the_only_one(built):
    made, run = built("""
struct Row { char name[4]; const char *text; int number; };
static const Row mRows[] = {{"ab", "c", 1}, {"de", "f", 20}};
static int Pick(int a) { switch (a) { case 1: return 5; default: return 6; } }
int main() {
    int sum = mRows[1].number + mRows[0].number;
    for (int i = 0; i < 2; ++i)
        sum += mRows[i].name[0] == 'a' ? Pick(i + 1) : Pick(i);
    return sum;
}
""")
    plain = run(0)
    assert plain == 31
    by_change = {mutant.change: run(mutant.number) for mutant in made}
    assert by_change["20 => 20 + 1"] == plain + 1  # in a table
    assert by_change["mRows[1].number + mRows[0].number => -"] == plain - 2
    assert by_change['"ab" => "a#"'] == plain  # nothing asks for that letter: this one survives
    assert by_change["case 1 => case 1 + 1"] == 33
    assert by_change["i < 2 => <="] != plain
    assert sum(status != plain for status in by_change.values()) > 20


def test_edits_nest():
    edits = Edits(b"a + b*c")
    edits.wrap(4, 7, "M(", ")")
    edits.replace(5, 6, ",")
    edits.wrap(0, 7, "P(", ")")
    edits.replace(2, 3, ",")
    edits.wrap(0, 7, "Q(", ")")
    edits.insert(0, "x")
    assert (edits.apply(), edits.apply(4, 7), edits.apply(0, 1)) == (b"xQ(P(a , M(b,c)))", b"M(b,c)", b"a")


def test_a_list_without_its_mutant_is_told(tmp_path):
    listed = tmp_path / "list.txt"
    between = survivors.BETWEEN
    listed.write_text("# a comment\n" + between.join(["Base/A.cpp", "F", "a + 2;", "2 => 0", "why"]) + "\n" +
                      between.join(["Base/A.cpp", "…", "…", "F(…) => G(…)", "why"]) + "\n")
    some = [mutants.Mutant(1, "Base/A.cpp", "F", "constant", 1, "a + 2;", "2 => 0"),
            mutants.Mutant(2, "Base/A.cpp", "H", "arguments", 1, "F(1);", "F(1) => G(1)")]
    entries = survivors.read(listed)
    assert entries.gone(some) == [] and entries.of(some[1])[3] == "F(…) => G(…)"
    some[0].change = some[1].change = "2 => 1"
    assert len(entries.gone(some)) == 2 and entries.of(some[1]) is None


def test_a_survivor_without_a_reason_is_refused(tmp_path):
    listed = tmp_path / "list.txt"
    listed.write_text(survivors.BETWEEN.join(["Base/A.cpp", "F", "a + 2;", "2 => 0"]) + "\n")
    with pytest.raises(AssertionError, match="five fields"):
        survivors.read(listed)


def test_the_drawn_mutants_are_killed():
    ran = subprocess.run([HERE / "run", "--drawn"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                         check=False)
    assert ran.returncode == 0, ran.stdout[-4000:]
