#!/usr/bin/python3
"""Counts which edges of the program the fuzzers' inputs take, module by module.

    tests/fuzz/edges.py [--require SHARE] [--missing] [--build FOLDER] [NAME...]

runs each fuzzer (all unless some are named) on its seeds and on what its runs have kept (FOLDER/fuzz/corpus/NAME), in a
build without optimization, where an edge is one of the source's: a way into a procedure, or out of a condition. What no
input can reach stands in unreached.list, with a reason each; the share is of the others. Exit status 1 when a module
has less than SHARE per cent of them (0 unless given), when what is said to be out of reach is reached, or when a source
is not in the build. --missing lists the places whose edges are left.
"""

import argparse
import collections
import json
import pathlib
import re
import subprocess
import sys
import tempfile

import archive

FUZZ = pathlib.Path(__file__).resolve().parent
TOP = FUZZ.parents[1]
PROGRAM = ("Main", "Project", "Platform", "BasicLib", "Common", "Base")
READER = ("BoardFile", "BoardReader", "Complete", "Contents", "Keywords", "Mistake", "Settings")
READERS = {f"sim/{name}" for name in READER}  # of the simulator: its reader of board files
WITHOUT_PROCEDURES = {"Platform/PciClassCode"}
AT_A_TIME = 2000  # inputs of a process

Place = collections.namedtuple("Place", "file function text")
Edge = collections.namedtuple("Edge", "library offset")


def names():
    return re.findall(r'^    \{"(\w+)", ', (FUZZ / "Fuzzers.cpp").read_text(), re.M)


def inputs_of(name, build, folder):
    """Files of the fuzzer's inputs; seeds are unpacked into the folder."""
    for seed, data in archive.read(name).items():
        (folder / f"{name}-{seed}").write_bytes(data)
    corpus = build / "fuzz" / "corpus" / name
    found = sorted(corpus.iterdir()) if corpus.is_dir() else []
    return [*sorted(folder.glob(f"{name}-*")), *found]


def taken_by(name, build, folder):
    """Edge: whether an input has taken it."""
    program = build / "fuzz-edges" / "hwreg_fuzz"
    files, out, edges = inputs_of(name, build, folder), folder / f"{name}.edges", {}
    if not files:
        (folder / f"{name}-empty").write_bytes(b"")
        files = [folder / f"{name}-empty"]
    for first in range(0, len(files), AT_A_TIME):
        subprocess.run([program, name, out, *files[first:first + AT_A_TIME]], check=True, stdin=subprocess.DEVNULL)
        for line in out.read_text().splitlines():
            library, offset, taken = line.split()
            edge = Edge(library, int(offset, 16))
            edges[edge] = edges.get(edge, False) or taken == "1"
    return edges, len(files)


def places_of(edges):
    """Edge: where it is in the source."""
    places = {}
    for library in {edge.library for edge in edges}:
        ours = [edge for edge in edges if edge.library == library]
        asked = "".join(f"{edge.offset:#x}\n" for edge in ours)
        told = subprocess.run(["llvm-symbolizer", f"--obj={library}", "--output-style=JSON"], input=asked,
                              capture_output=True, text=True, check=True).stdout
        for edge, line in zip(ours, told.splitlines(), strict=True):
            symbol = json.loads(line)["Symbol"][0]
            places[edge] = place_of(symbol["FileName"], symbol["FunctionName"], symbol["Line"])
    return places


def place_of(path, function, line, sources={}):
    path = pathlib.Path(path)
    if not path.is_relative_to(TOP):
        return Place(str(path), function, "")
    if path not in sources:
        sources[path] = path.read_text().splitlines()
    text = sources[path][line - 1].strip() if 0 < line <= len(sources[path]) else ""
    return Place(str(path.relative_to(TOP)), re.sub(r"\(anonymous namespace\)::|\(.*", "", function), text)


def module_of(place):
    """A source and its header."""
    return place.file.rpartition(".")[0]


def is_counted(place):
    return place.file.startswith(tuple(f"{floor}/" for floor in PROGRAM)) or module_of(place) in READERS


def not_counted(modules):
    """The sources of which no edge is known: they are not in the build, or nobody loads them."""
    sources = {str(path.relative_to(TOP).with_suffix("")) for floor in PROGRAM for path in (TOP / floor).rglob("*.cpp")}
    return sorted((sources | READERS) - set(modules) - WITHOUT_PROCEDURES)


def unreached():
    """[(file, function, text or "*", reason)] of what no input can reach."""
    rows = []
    for line in (FUZZ / "unreached.list").read_text().splitlines():
        if line and not line.startswith("#"):
            row = re.fullmatch(r"(\S+) \| (\S+) \| (.+) \| (.+)", line)  # a source's line may have bars of its own
            if row is None:
                sys.exit(f"unreached.list: four parts, please: {line}")
            rows.append(row.groups())
    return rows


def matches(row, place):
    file, function, text, _ = row
    return file == place.file and function in ("*", place.function) and text in ("*", place.text)


class Count:
    """Of a module."""

    def __init__(self):
        self.edges = self.reached = self.exempt = 0
        self.missing = collections.Counter()

    def share(self):
        reachable = self.edges - self.exempt
        return 100 * self.reached / reachable if reachable else 100.0


def count(edges, places, rows):
    """The modules' counts, and the rows of which every edge was taken, or none is left."""
    modules, used = collections.defaultdict(Count), collections.Counter()
    for edge, taken in edges.items():
        place = places[edge]
        if not is_counted(place):
            continue
        module = modules[module_of(place)]
        row = next((row for row in rows if matches(row, place)), None)
        module.edges += 1
        module.reached += taken
        if not taken and row is not None:
            module.exempt += 1
            used[row] += 1
        elif not taken:
            module.missing[place] += 1
    reached = [row for row in rows if used[row] == 0]
    reached += [row for row in rows if row[2] == "*" and used[row] and any(
        taken and matches(row, places[edge]) for edge, taken in edges.items())]
    return modules, reached


def report(modules, require, missing):
    """The table; the modules below the share."""
    low = []
    print("| module | edges | reachable | reached | share |\n|---|---|---|---|---|")
    total = Count()
    for name, module in sorted(modules.items()):
        reachable = module.edges - module.exempt
        print(f"| `{name}` | {module.edges} | {reachable} | {module.reached} | {module.share():.1f} % |")
        for figure in ("edges", "exempt", "reached"):
            setattr(total, figure, getattr(total, figure) + getattr(module, figure))
        if module.share() < require:
            low.append(f"{name}: {module.share():.1f} % of the reachable edges, and not {require} %")
        for place, times in module.missing.items() if missing else ():
            print(f"    {place.file} | {place.function} | {place.text} | ({times})")
    print(f"| all | {total.edges} | {total.edges - total.exempt} | {total.reached} | {total.share():.1f} % |")
    return low


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--require", type=float, default=0, metavar="SHARE")
    parser.add_argument("--missing", action="store_true")
    parser.add_argument("--build", type=pathlib.Path, default=TOP / "build", metavar="FOLDER")
    parser.add_argument("names", nargs="*", metavar="NAME")
    given = parser.parse_args()
    subprocess.run([FUZZ / "build", "edges"], check=True, stdout=subprocess.DEVNULL)
    edges = {}
    with tempfile.TemporaryDirectory() as folder:
        for name in given.names or names():
            taken, inputs = taken_by(name, given.build.resolve(), pathlib.Path(folder))
            print(f"{name}: {inputs} inputs, {sum(taken.values())} edges", file=sys.stderr)
            for edge, is_taken in taken.items():
                edges[edge] = edges.get(edge, False) or is_taken
    modules, reached = count(edges, places_of(edges), unreached())
    wrong = report(modules, given.require, given.missing)
    wrong += [f"{module}: no edge of it is counted" for module in not_counted(modules)]
    wrong += [f"unreached.list: it is reached, or not there: {' | '.join(row[:3])}" for row in reached]
    print("".join(f"{line}\n" for line in wrong), end="", file=sys.stderr)
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
