#!/usr/bin/env /usr/bin/python3
"""Runs the shell sessions that stand in documents and compares what they print with what the document shows.

    tests/docs/examples.py FILE...            shows the differences; exit status 1 when there are any
    tests/docs/examples.py --update FILE...   writes what is really printed into the files

A session is a run of indented lines (in a manual page: the lines between .EX and .EE) that begins with a command
behind "$ ". The commands of one session share a shell and a folder, in which lie the files that the document shows: the
indented lines below "A file `NAME`:". They are real shell lines: pipes, $? and files work. hwreg-sim and scripts/run
are the ones of this tree, with the program of the build folder ($HWREG_BUILD, or build/). Lines end without carriage
returns and blanks.
"""

import argparse
import difflib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TOP / "tests" / "support"))  # where it is started by hand
from pages import files_shown  # noqa: E402

BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
SECONDS = 300
MARK = "\x1e"  # printed before each command: no program prints it


class Session:
    """Commands and the output shown behind each, with the place in the document."""

    def __init__(self, first, indent, lines):
        self.files = {}  # contents by name
        self.first = first  # index of the first line
        self.count = len(lines)
        self.indent = indent
        self.steps = []  # pairs of a command and the lines shown
        for line in lines:
            text = line[len(indent) :]
            if text.startswith("$ "):
                self.steps.append((text[2:], []))
            else:
                self.steps[-1][1].append(text)


def plain_sessions(lines):
    index = 0
    while index < len(lines):
        begin = re.match(r"( {4,})\$ ", lines[index])
        if begin is None:
            index += 1
            continue
        indent = begin.group(1)
        end = index
        while end < len(lines) and (lines[end] == "" or lines[end].startswith(indent)):
            end += 1
        while lines[end - 1] == "":
            end -= 1
        yield Session(index, indent, lines[index:end])
        index = end


def manual_sessions(lines):
    for index, line in enumerate(lines):
        if line == ".EX" and lines[index + 1].startswith("$ "):
            end = lines.index(".EE", index)
            yield Session(index + 1, "", [from_roff(text) for text in lines[index + 1 : end]])


def from_roff(line):
    return re.sub(r"\\(.)", lambda found: {"&": "", "e": "\\"}.get(found.group(1), found.group(1)), line)


def to_roff(line):
    text = line.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text[:1] in (".", "'") else text


def is_manual(path):
    return path.suffix in (".1", ".5", ".8")


def sessions(path):
    text = path.read_text()
    lines = text.split("\n")
    found = list(manual_sessions(lines) if is_manual(path) else plain_sessions(lines))
    for session in found:
        session.files = files_shown(text)
    return found


def make_launchers(folder):
    """Makes bin/hwreg-sim, bin/hwreg-board and Debian's python3, to be found in the path, and scripts/run."""
    for name, program in (("bin/hwreg-sim", "sim/hwreg-sim"), ("bin/hwreg-board", "tools/hwreg-board"),
                          ("bin/python3", "/usr/bin/python3"), ("scripts/run", "scripts/run")):  # fmt: skip
        path = folder / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(f"#!/bin/sh\nexec '{TOP / program}' \"$@\"\n")
        path.chmod(0o755)
    # Simulated machines run none, but it is looked for.
    (folder / "bin" / "shutdown").symlink_to("/bin/false")


def perform(session):
    """What each command of the session prints, as lists of lines."""
    script = "status=0\n"
    for command, _ in session.steps:
        script += f"printf '{MARK}'\n(exit $status)\n{command}\nstatus=$?\n"
    with tempfile.TemporaryDirectory() as name:
        make_launchers(pathlib.Path(name))
        for file, text in session.files.items():
            (pathlib.Path(name) / file).write_text(text)
        environment = {**os.environ, "HWREG_BUILD": str(BUILD), "PATH": f"{name}/bin:{os.environ['PATH']}",
                       "PYTHONPATH": str(TOP / "python")}  # fmt: skip
        ran = subprocess.run(["bash", "-c", script], cwd=name, env=environment, stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=SECONDS, check=False)
    printed = ran.stdout.decode("latin-1").split(MARK)[1:]
    return [[line.rstrip() for line in text.rstrip().split("\n")] if text.strip() else [] for text in printed]


def shown(session, outputs):
    """The lines of the session with these outputs."""
    lines = []
    for (command, _), output in zip(session.steps, outputs, strict=True):
        lines += [f"$ {command}", *output]
    return lines


def differences(session):
    """A readable difference between the document and the program; empty when there is none."""
    documented = shown(session, [output for _, output in session.steps])
    return list(difflib.unified_diff(documented, shown(session, perform(session)), "document", "program", lineterm=""))


def update(path):
    lines = path.read_text().split("\n")
    for session in reversed(sessions(path)):
        new = shown(session, perform(session))
        new = [to_roff(line) for line in new] if is_manual(path) else [(session.indent + line).rstrip() for line in new]
        lines[session.first : session.first + session.count] = new
    path.write_text("\n".join(lines))


def main():
    parser = argparse.ArgumentParser(description="Compares the examples of documents with what the program prints.")
    parser.add_argument("--update", action="store_true", help="write what is printed into the files")
    parser.add_argument("files", nargs="+", type=pathlib.Path)
    arguments = parser.parse_args()
    found = False
    for path in arguments.files:
        if arguments.update:
            update(path)
            continue
        for session in sessions(path):
            text = differences(session)
            if text:
                found = True
                print(f"{path}:{session.first + 1}", *text, sep="\n")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
