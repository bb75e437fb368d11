"""Counts the instructions that a command executes, with valgrind's callgrind."""

import collections
import os
import re
import subprocess

NAME = re.compile(r"(c?)(ob|fn)=\((\d+)\)(?: (.*))?")


class Profile:
    """What one run executed: `total` instructions, `objects` by object file (base name), `functions` by (function,
    object), and `entered` by object: the cost of the calls into it from other objects, with all they call."""

    def __init__(self):
        self.total = 0
        self.objects = collections.Counter()
        self.functions = collections.Counter()
        self.entered = collections.Counter()


def count(words, environment, scratch, toggles=()):
    """Runs the command under callgrind and gives its Profile. Counting starts or stops where one of the functions
    `toggles` is entered, and goes back where it is left."""
    path = f"{scratch}/callgrind.out"
    command = ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={path}"]
    command += [f"--toggle-collect={function}" for function in toggles]
    subprocess.run([*command, *words], env=dict(environment, PATH=os.environ["PATH"]),
                   stdout=subprocess.DEVNULL, check=False)
    with open(path, encoding="utf-8") as stream:
        profile = parse(stream)
    os.remove(path)  # the next run's must not be taken for it
    return profile


def parse(stream):
    """The Profile in a callgrind output file (valgrind manual, "Callgrind Format")."""
    profile = Profile()
    names = {"ob": {}, "fn": {}}  # a name is written out the first time only
    where = {"ob": "", "fn": ""}
    called = None  # the object of a call whose cost is the next line
    callee = None
    for line in stream:
        name = NAME.match(line)
        if name:
            of_callee, kind, number, text = name.groups()
            if text:
                names[kind][number] = os.path.basename(text) if kind == "ob" else text
            if not of_callee:
                where[kind] = names[kind][number]
            elif kind == "ob":
                callee = names[kind][number]
        elif line.startswith("calls="):
            called = callee or where["ob"]
        elif line[0] in "0123456789+-*":
            cost = int(line.split()[1])
            if called is None:
                profile.total += cost
                profile.objects[where["ob"]] += cost
                profile.functions[where["fn"], where["ob"]] += cost
            elif called != where["ob"]:
                profile.entered[called] += cost
            called = callee = None
    return profile
