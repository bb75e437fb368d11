"""Includes point down from floor to floor, and never in a circle."""

import graphlib
import re

from house import BESIDE, FLOORS, TOP, code, includes, judge, none, program, sources

# Commands do not know each other, but for these: a header that all may include, or one file's include of another.
COMMANDS = {
    "Project/AccessForm.h": "what the register commands share",
    "Project/IoAcc.cpp -> Project/IoIndexAcc.h": "/IO /INDEX is a form of /IO",
}


# What hwreg-check has beside Platform and below: it takes words as the program takes them.
CHECK_TAKES = ["Main/Commands.h", "Main/Parser.h", "Project/AccessForm.h"]


def floors(top):
    """The folders that each folder may include."""
    may = {floor: FLOORS[i:] for i, floor in enumerate(FLOORS)}
    beside = {folder: [folder, *FLOORS[2:]] for folder in BESIDE}
    check = {"tools/check": ["tools/check", *CHECK_TAKES, *FLOORS[2:]],
             "tools/check/lines": ["tools/check/lines", "tools/check/machine", *CHECK_TAKES, *FLOORS[2:]],
             "tools/check/machine": ["tools/check/machine", *FLOORS[2:]]}  # fmt: skip
    return {**may, **beside, **check, "sim": ["sim"]}


def named(top, path, name):
    """The file of the tree that an include names: from the top, or for tests and the simulator from their folders."""
    near = [] if path.relative_to(top).parts[0] in [*FLOORS, *BESIDE] else [path.parent, top / "sim"]
    for folder in [top, *near]:
        if (folder / name).is_file():
            return (folder / name).resolve().relative_to(top.resolve())
    return None


def lost_includes(top):
    for path in sources(top):
        for line, name in includes(top, path):
            if named(top, path, name) is None:
                yield f"{path.relative_to(top)}:{line}: {name}"


def sources_of(top, folder, folders):
    """A folder's sources without those of a deeper one that has a row of its own."""
    deeper = [top / other for other in folders if other.startswith(f"{folder}/")]
    return [path for path in sources(top, folder) if not any(path.is_relative_to(other) for other in deeper)]


def upward_includes(top):
    may = floors(top)
    for folder, below in may.items():
        for path in sources_of(top, folder, may):
            for line, name in includes(top, path):
                target = named(top, path, name)
                if target and not any(target.is_relative_to(lower) for lower in below):
                    yield f"{path.relative_to(top)}:{line}: {target}, but {folder} may include only {', '.join(below)}"


def circle(top):
    """The includes that lead from a module (a source and its header) back to it; of several circles the first."""
    edges = {}
    for path in sources(top, *FLOORS, *BESIDE, "sim"):
        here = path.relative_to(top)
        for line, name in includes(top, path):
            target = named(top, path, name)
            if target and target.with_suffix("") != here.with_suffix(""):
                edges.setdefault(here.with_suffix(""), {})[target.with_suffix("")] = f"{here}:{line}: {target}"
    try:
        graphlib.TopologicalSorter(edges).prepare()
    except graphlib.CycleError as error:
        ring = error.args[1][::-1]
        return [edges[module][other] for module, other in zip(ring, ring[1:])]
    return []


def known_commands(top, stated):
    """Includes of one command by another: place, finding."""
    found = {}
    for path in sources(top, "Project"):
        for line, name in includes(top, path):
            here, target = path.relative_to(top), named(top, path, name)
            if target and target.parts[0] == "Project" and target.with_suffix("") != here.with_suffix(""):
                place = str(target) if str(target) in stated else f"{here} -> {target}"
                found[place] = f"{here}:{line}: {target}"
    return found


def without_own_header_first(top):
    for path in sources(top, *FLOORS, *BESIDE):
        if path.suffix != ".cpp" or (not path.with_suffix(".h").exists() and re.search(r"\bmain\(", code(path))):
            continue
        line, first = next(includes(top, path), (1, None))
        own = path.with_suffix(".h").relative_to(top)
        if first is None or named(top, path, first) != own:
            yield f"{path.relative_to(top)}:{line}: {first}, and not {own}"


def included_sources(top):
    for path in sources(top):
        for line, name in includes(top, path):
            if not name.endswith(".h"):
                yield f"{path.relative_to(top)}:{line}: {name}"


def test_every_include_names_a_file_from_the_top_of_the_tree():
    none(list(lost_includes(TOP)), "write the include from the top of the tree")


def test_includes_point_down():
    assert program(TOP)
    none(list(upward_includes(TOP)), "a floor knows those below it alone: move the procedure or hand the value down")


def test_includes_make_no_circle():
    none(circle(TOP), "these modules include each other in a circle: move what they share to a module below them")


def test_commands_do_not_know_each_other():
    judge(known_commands(TOP, COMMANDS), COMMANDS,
          "a command includes another: move what they share to Platform or below, or state the reason in COMMANDS")


def test_a_source_includes_its_own_header_first():
    none(list(without_own_header_first(TOP)), "include the module's own header first: it then stands on its own")


def test_nothing_includes_a_source():
    none(list(included_sources(TOP)), "test the object code, through the header")


def test_planted_includes_are_found(plant):
    top = plant({
        "Main/Main.cpp": '#include "Project/A.h"\nint main() {\n}\n',
        "Project/A.h": "#pragma once\n",
        "Project/A.cpp": '#include "Base/Up.h"\n#include "Project/A.h"\n#include "Project/B.h"\n',
        "Project/B.h": '#include "Gone.h"\n',
        "Base/Up.h": '#include <Project/A.h>\n#include "tools/T.cpp"\n',
        "tools/T.cpp": '#include "Main/Parser.h"\n',
        "Main/Parser.h": "",
        "tools/check/machine/Note.h": '#include "tools/check/lines/Line.h"\n#include "Main/Parser.h"\n',
        "tools/check/lines/Line.h": '#include "tools/check/machine/Cpus.h"\n#include "tools/check/Answer.h"\n'
                                    '#include "Main/Parser.h"\n#include "Main/A.h"\n',
        "tools/check/machine/Cpus.h": "",
        "tools/check/Answer.h": "",
        "Main/A.h": "",
        "sim/S.h": '#include "Base/Up.h"\n#include "models/M.h"\n',
        "sim/models/M.h": '#include "../S.h"\n#include "S.h"\n',
    })
    assert list(lost_includes(top)) == ["Project/B.h:1: Gone.h"]
    assert [line.split(", but ")[0] for line in upward_includes(top)] == [
        "Base/Up.h:1: Project/A.h", "Base/Up.h:2: tools/T.cpp", "tools/T.cpp:1: Main/Parser.h",
        "tools/check/lines/Line.h:2: tools/check/Answer.h", "tools/check/lines/Line.h:4: Main/A.h",
        "tools/check/machine/Note.h:1: tools/check/lines/Line.h", "tools/check/machine/Note.h:2: Main/Parser.h",
        "sim/S.h:1: Base/Up.h"]
    assert sorted(circle(top)) == ["Base/Up.h:1: Project/A.h", "Project/A.cpp:1: Base/Up.h"]
    assert known_commands(top, {}) == {"Project/A.cpp -> Project/B.h": "Project/A.cpp:3: Project/B.h"}
    assert list(without_own_header_first(top)) == ["Project/A.cpp:1: Base/Up.h, and not Project/A.h",
                                                   "tools/T.cpp:1: Main/Parser.h, and not tools/T.h"]
    assert list(included_sources(top)) == ["Base/Up.h:2: tools/T.cpp"]
    (top / "Base/Up.h").write_text("")
    assert sorted(circle(top)) == ["sim/S.h:2: sim/models/M.h", "sim/models/M.h:2: sim/S.h"]
    (top / "sim/S.h").write_text("")
    assert circle(top) == []
