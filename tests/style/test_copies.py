"""No two places of the program have the same shape."""

import pathlib
import re
import subprocess

from house import TOP, judge, program, tags

TOKENS = 40  # about six lines
LINES = 6

# Places that are alike on purpose, each with its reason: "File: Function ~ File: Function".
ALIKE = {
    "Main/Main.cpp: InvokeEntries ~ Main/Main.cpp: InvokeEntries": "the order of the commands: a test and a call each",
    "tools/check/Answer.cpp: AnswerCommand ~ tools/check/Answer.cpp: AnswerCommand": "a command and its answer, each",
}


def bodies(top, folder):
    """Writes each function's body into a file of its own, in which text to print has left its line empty; gives the
    functions by the files' names."""
    found = {}
    for number, tag in enumerate(tags(top, program(top))):
        body = (top / tag["path"]).read_text().splitlines()[tag["line"]:tag["end"]]
        path = folder / f"{number:05}"
        path.write_text("".join(re.sub(r'^\s*Printf\("[^"]*"\);$', "", line) + "\n" for line in body))
        found[str(path)] = tag
    return found


def lines(path, first, last):
    return sum(1 for line in pathlib.Path(path).read_text().splitlines()[first - 1:last] if line.strip())


def copies(top, folder):
    """The runs of tokens that two bodies share, names and numbers left out of account: place, finding."""
    found = {}
    tags = bodies(top, folder)
    run = subprocess.run(["sim_c++", f"-r{TOKENS}", "-n", "-T", *tags], capture_output=True, text=True, check=True)
    side = r"(\S+): line (\d+)-(\d+)"
    for match in re.finditer(rf"{side}\s*\|{side}", run.stdout):
        runs = [(name, int(first), int(last)) for name, first, last in (match.group(1, 2, 3), match.group(4, 5, 6))]
        if all(lines(*run) >= LINES for run in runs):
            place = " ~ ".join(sorted(f"{tags[name]['path']}: {tags[name]['name']}" for name, _, _ in runs))
            at = [f"{tags[name]['path']}:{tags[name]['line'] + first}" for name, first, _ in runs]
            found[place] = f"{at[0]} and {at[1]}, {lines(*runs[0])} lines: {place}"
    return found


def test_the_program_has_no_copies(tmp_path):
    judge(copies(TOP, tmp_path), ALIKE, "write these once, or state in ALIKE why they are alike")


def test_a_planted_copy_is_found(plant, tmp_path):
    body = "".join(f"    if (a == {number})\n        b = Next({number}, b);\n" for number in (1, 2)) + """\
    for (int i = 0; i < 9; ++i)
        b += i;
    return b;
}
"""
    top = plant({
        "Base/A.cpp": "int First(int a, int b) {\n" + body,
        "Main/B.cpp": "\nint Second(int x, int y) {\n" + body.replace("a", "x").replace("b", "y"),
        "Main/C.cpp": "int Third(int x, int y) {\n    return x + y;\n}\n",
    })
    (tmp_path / "bodies").mkdir()
    assert copies(top, tmp_path / "bodies") == {
        "Base/A.cpp: First ~ Main/B.cpp: Second":
            "Base/A.cpp:2 and Main/B.cpp:3, 8 lines: Base/A.cpp: First ~ Main/B.cpp: Second"}
