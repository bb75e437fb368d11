"""variables.txt names each variable that a run of the program can change, and nothing else."""

import os
import pathlib
import subprocess

FUZZ = pathlib.Path(__file__).resolve().parent
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", FUZZ.parents[1] / "build")) / "fuzz"
OBJECTS = BUILD / "tests" / "fuzz" / "CMakeFiles" / "hwreg_fuzzed.dir"
OF_THE_COMPILER = "__sancov_"


def variables(symbols):
    """The names in the sections of variables, out of what `nm --format=sysv` has printed."""
    for line in symbols.splitlines():
        columns = [column.strip() for column in line.split("|")]
        if len(columns) == 7 and columns[6].startswith((".data", ".bss")) and ".rel.ro" not in columns[6]:
            if columns[3] == "OBJECT" and not columns[0].startswith(OF_THE_COMPILER):
                yield columns[0]


def compiled(file, folder):
    """The object file itself, or what comes of it where the linker is to optimize it."""
    if not file.read_bytes().startswith(b"BC"):
        return file
    subprocess.run(["clang++", "-fPIC", "-c", "-x", "ir", file, "-o", folder / file.name], check=True)
    return folder / file.name


def found(folder):
    """File and name of each, in the program's objects (those of tests/ are no part of it)."""
    for file in OBJECTS.rglob("*.cpp.o"):
        if file.name == "Fuzzed.cpp.o" or "tests" in file.relative_to(OBJECTS).parts:
            continue
        listed = subprocess.run(["nm", "--demangle", "--format=sysv", compiled(file, folder)], capture_output=True,
                                text=True, check=True)
        yield from ((file.name.removesuffix(".o"), name) for name in variables(listed.stdout))


def stated(text):
    lines = [line for line in text.splitlines() if line and not line.startswith("#")]
    return {tuple(line.split()[:2]) for line in lines}


def test_all_variables_are_listed_and_no_others(tmp_path):
    there, listed = set(found(tmp_path)), stated((FUZZ / "variables.txt").read_text())
    assert len(there) > 20
    assert there - listed == set(), "tell in tests/fuzz/variables.txt what these are for"
    assert listed - there == set(), "these are not there any more"


def test_a_new_variable_is_found(tmp_path):
    source = tmp_path / "New.cpp"
    source.write_text("extern const int table[];\nconst int table[] = {1};\nextern const char *const word;\n"
                      "const char *const word = \"a\";\n"
                      "int Next() {\n    static int count = 0;\n    return table[0] + ++count;\n}\nint gSeed = 3;\n")
    subprocess.run(["clang++", "-fPIC", "-c", source, "-o", tmp_path / "New.o"], check=True)
    listed = subprocess.run(["nm", "--demangle", "--format=sysv", tmp_path / "New.o"], capture_output=True, text=True,
                            check=True)
    assert sorted(variables(listed.stdout)) == ["Next()::count", "gSeed"]


def test_comments_and_purposes_are_no_part_of_a_name():
    assert stated("# a\n\nA.cpp b  what it is for\n") == {("A.cpp", "b")}
