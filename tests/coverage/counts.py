#!/usr/bin/python3
"""What the tests reach of the program: the counters of a build with HWREG_COVERAGE=ON, read by gcov.

    tests/coverage/counts.py begin                        sets all counters to zero
    tests/coverage/counts.py reach [COMMAND WORD...]      the lines that this command reaches, as JSON
    tests/coverage/counts.py reach unit FILTER            ... that these unit tests do
    tests/coverage/counts.py reach command test_io.py     ... that these tests of tests/command do

The build is that of $HWREG_BUILD. `reach` has counters of its own: any number of them may run at once.
"""

import dataclasses
import json
import os
import pathlib
import struct
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build" / "coverage")).resolve()
COUNTERS = BUILD / "counters"
SHIPPED = ("Main", "Project", "Platform", "BasicLib", "Common", "Base")
PROGRAMS = ("hwreg", "hwreg_unit", "hwboard_tables")


@dataclasses.dataclass
class Source:
    """How often each line was executed, and each branch: (line, function, number of the branch in that line)."""

    lines: dict = dataclasses.field(default_factory=dict)
    functions: dict = dataclasses.field(default_factory=dict)  # of the lines
    branches: dict = dataclasses.field(default_factory=dict)

    def reached(self):
        return sorted(line for line, count in self.lines.items() if count > 0)


def environment(folder):
    """For a process that is to count in this folder."""
    return {**os.environ, "HWREG_BUILD": str(BUILD), "HWREG_COUNTERS": str(folder)}


def tell(program, folder):
    """The counters of a program as the stream that Counters.cpp writes; makes their file where there is none."""
    done = subprocess.run([BUILD / program], env={**environment(folder), "HWREG_TELL_COUNTERS": "1"},
                          stdout=subprocess.PIPE, check=True)
    return done.stdout


def begin(folder=COUNTERS):
    """Makes the files of counters, all zero. The processes of any user may count."""
    folder.mkdir(parents=True, exist_ok=True)
    folder.chmod(0o777)
    for program in PROGRAMS:
        (folder / program).unlink(missing_ok=True)
        tell(program, folder)
        (folder / program).chmod(0o666)


def data_files(stream):
    """(path, bytes) of each of gcov's files in the stream: pieces with their lengths, an empty one before each file."""
    files, at = [], 0
    while at < len(stream):
        (length,) = struct.unpack_from("I", stream, at)
        piece = stream[at + 4 : at + 4 + length]
        at += 4 + length
        if length == 0:
            files.append([])
        else:
            files[-1].append(piece)
    return [(pathlib.Path(name.decode()), b"".join(pieces)) for name, *pieces in files]


def told_by_gcov(program, folder):
    """What gcov says of each object of a program."""
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch)
        names = []
        for number, (path, data) in enumerate(data_files(tell(program, folder))):
            names.append(f"{number}.gcda")
            (scratch / names[-1]).write_bytes(data)
            (scratch / f"{number}.gcno").symlink_to(path.with_suffix(".gcno"))
        done = subprocess.run(["gcov", "--json-format", "--branch-probabilities", "--stdout", *names], cwd=scratch,
                              capture_output=True, check=True)
    return [json.loads(line) for line in done.stdout.splitlines()]


def add_file(source, file):
    names = {function["name"]: function["demangled_name"].split("(")[0] for function in file["functions"]}
    for line in file["lines"]:
        number = line["line_number"]
        source.lines[number] = source.lines.get(number, 0) + line["count"]
        function = source.functions[number] = names[line["function_name"]]
        for index, branch in enumerate(line["branches"]):
            key = number, function, index
            source.branches[key] = source.branches.get(key, 0) + branch["count"]


def reached(folder=COUNTERS):
    """{file: Source} of what has been counted since begin(folder)."""
    sources = {}
    for program in PROGRAMS:
        for unit in told_by_gcov(program, folder):
            for file in unit["files"]:
                path = pathlib.Path(file["file"])
                if path.is_relative_to(TOP) and path.relative_to(TOP).parts[0] in SHIPPED:
                    add_file(sources.setdefault(str(path.relative_to(TOP)), Source()), file)
    return dict(sorted(sources.items()))


def reached_by(command):
    """(status, {file: Source}): what a command reaches by itself; its output goes to standard error."""
    with tempfile.TemporaryDirectory() as folder:
        begin(pathlib.Path(folder))
        done = subprocess.run(command, env=environment(folder), stdout=sys.stderr, check=False)
        return done.returncode, reached(pathlib.Path(folder))


def command_of(words):
    if words[0] == "unit":
        return [str(BUILD / "hwreg_unit"), "--gtest_brief=1", f"--gtest_filter={words[1]}"]
    if words[0] == "command":
        tests = [str(TOP / "tests" / "command" / word) for word in words[1:]]
        return ["/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", *tests]
    return words


def main(words):
    if words == ["begin"]:
        begin()
        return 0
    if len(words) < 2 or words[0] != "reach":
        print(__doc__, file=sys.stderr)
        return 2
    status, sources = reached_by(command_of(words[1:]))
    json.dump({file: source.reached() for file, source in sources.items() if source.reached()}, sys.stdout)
    print()
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
