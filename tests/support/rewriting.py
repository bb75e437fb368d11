"""Rewrites the shipped sources for a measurement, and builds the program and its unit tests from what came out.

libclang tells where things are in a source; Edits puts text in between; Build compiles the rewritten sources and links
them with the objects of the tests, which stay as they are. The sources of the tree are never changed.

    for path in shipped():
        source = Source(path)
        edits = Edits(source.text)
        for cursor in source.functions():
            ...
            edits.wrap(*span(cursor), "Seen(17, ", ")")
        rewritten[path] = edits.apply()
    Build(folder, rewritten, "Seen.h", ["Seen.cpp"]).make()
"""

import bisect
import hashlib
import os
import pathlib
import re
import shlex
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor

from clang.cindex import CursorKind, Index, TranslationUnit  # of the package python3-clang

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
FOLDERS = ("Main", "Project", "Platform", "BasicLib", "Common", "Base")
# What neither libclang nor a measurement needs. libc's checks would call other functions (__open_2 for open) where a
# rewritten source has a variable in place of a constant.
FOREIGN = re.compile(r"-flto.*|-ffat-lto-objects|-W(?!l,).*|-o|-[DU]_FORTIFY_SOURCE.*")


def shipped(suffix=".cpp"):
    """The program's sources (or headers), as paths from the top of the tree."""
    return sorted(str(path.relative_to(TOP)) for folder in FOLDERS for path in (TOP / folder).rglob("*" + suffix))


def compile_flags():
    """The flags with which the build folder compiles the program's modules, without those of the link-time optimiser,
    of libc's checks and of the warnings."""
    text = (BUILD / "CMakeFiles/hwreg_modules.dir/flags.make").read_text()
    words = shlex.split(" ".join(re.findall(r"^CXX_(?:DEFINES|FLAGS) =(.*)$", text, re.MULTILINE)))
    return [word for word in words if not FOREIGN.fullmatch(word)]


def span(cursor):
    """Where the text of a cursor begins and ends, in bytes."""
    return cursor.extent.start.offset, cursor.extent.end.offset


class Source:
    """A source as libclang sees it. `path` is the one from the top of the tree."""

    def __init__(self, path, top=TOP, flags=None):
        self.path = path
        self.file = str(pathlib.Path(top) / path)
        self.text = pathlib.Path(self.file).read_bytes()
        flags = compile_flags() if flags is None else flags
        arguments = [flag for flag in flags if not flag.startswith(("-O", "-fno-tree"))]
        self.unit = Index.create().parse(self.file, ["-x", "c++", f"-I{top}", *arguments],
                                         options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        wrong = [str(told) for told in self.unit.diagnostics if told.severity >= 3]
        assert not wrong, f"{path}: {wrong[0]}"
        own = [cursor for cursor in self.unit.cursor.get_children() if self.owns(cursor)]
        self.macros = [span(cursor) for cursor in own if cursor.kind == CursorKind.MACRO_INSTANTIATION]
        self.top = [cursor for cursor in own if not cursor.kind.is_preprocessing()]
        self.starts = [0] + [found.end() for found in re.finditer(rb"\n", self.text)]

    def owns(self, cursor):
        """True for what stands in this file and not in one that it includes."""
        return cursor.location.file is not None and cursor.location.file.name == self.file

    def functions(self):
        """The cursors of the functions that have a body here."""
        found = []
        for cursor in self.declarations():
            if cursor.kind == CursorKind.FUNCTION_DECL and cursor.is_definition():
                found.append(cursor)
        return found

    def declarations(self):
        """What stands at the top of the file and in its namespaces."""
        waiting = list(self.top)
        while waiting:
            cursor = waiting.pop(0)
            if cursor.kind == CursorKind.NAMESPACE:
                waiting[:0] = list(cursor.get_children())
            else:
                yield cursor

    def within_macro(self, cursor):
        """True for what is a part of a macro's expansion or of its arguments: its text cannot be wrapped."""
        start, end = span(cursor)
        return any(first <= start and end <= last and (start, end) != (first, last) for first, last in self.macros)

    def line(self, offset):
        """The number of the line in which that byte stands."""
        return bisect.bisect_right(self.starts, offset)

    def line_text(self, offset):
        return self.text.splitlines()[self.line(offset) - 1].decode().strip()

    def slice(self, start, end):
        return self.text[start:end].decode()

    def operator(self, cursor):
        """(start, end, text) of the operator between the two operands of a binary operator or an assignment."""
        left, right = list(cursor.get_children())[:2]
        between = (span(left)[1], span(right)[0])
        for token in cursor.get_tokens():
            start, end = token.extent.start.offset, token.extent.end.offset
            if between[0] <= start and end <= between[1] and token.spelling not in "()":
                return start, end, token.spelling
        return None


class Edits:
    """Insertions into a text, which may nest: what was wrapped first is inside of what is wrapped later around the same
    bytes."""

    def __init__(self, text):
        self.text_before = text
        self.parts = []  # (offset, order among those of the offset, bytes, bytes of the text that it replaces)

    def wrap(self, start, end, before, after):
        number = len(self.parts)
        self.parts.append((start, (1, -end, -number), before.encode(), 0))
        self.parts.append((end, (0, -start, number), after.encode(), 0))

    def replace(self, start, end, text):
        self.parts.append((start, (2, 0, len(self.parts)), text.encode(), end - start))

    def insert(self, offset, text):
        """In front of all else that stands there, but behind what ends there."""
        self.parts.append((offset, (1, -len(self.text_before) - 1, len(self.parts)), text.encode(), 0))

    def apply(self, start=0, end=None):
        """The text with all edits, or a part of it with those that lie in it as a whole."""
        whole, end = end is None, len(self.text_before) if end is None else end
        out, at = [], start
        for offset, order, text, replaced in sorted(self.parts):
            if whole or self.within(offset, order, start, end):
                out += [self.text_before[at:offset], text]
                at = offset + replaced
        return b"".join([*out, self.text_before[at:end]])

    @staticmethod
    def within(offset, order, start, end):
        kind, other = order[0], -order[1]  # where the other half of a pair is
        if kind == 2:
            return start <= offset < end
        return start <= min(offset, other) and max(offset, other) <= end


def write_if_changed(path, data):
    if not path.exists() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def call(command, cwd):
    ran = subprocess.run(command, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if ran.returncode != 0:
        raise RuntimeError(f"{shlex.join(command)}\n{ran.stdout[-6000:]}")


class Build:
    """The program and its unit tests from rewritten sources, in a folder. `bin` in it can take the place of a build
    folder ($HWREG_BUILD) for the tests of commands.

    rewritten   bytes by the paths from the top of the tree; what is missing stays as it is. Headers may be among them;
                the unit tests keep those of the tree.
    header      a header that each source includes before all else
    extra       further sources, linked into both
    unit_main   a source that takes the place of tests/unit/UnitMain.cpp
    flags       for the compiler, behind those of the build"""

    def __init__(self, folder, rewritten, header, extra=(), unit_main=None, flags=()):
        self.folder = pathlib.Path(folder).resolve()
        self.rewritten = rewritten
        self.header = pathlib.Path(header).resolve()
        self.extra = [pathlib.Path(path).resolve() for path in extra]
        self.unit_main = unit_main and pathlib.Path(unit_main).resolve()
        self.flags = [*compile_flags(), "-w", *flags]
        self.bin = self.folder / "bin"

    def make(self, jobs=2):
        for path in [*shipped(".cpp"), *shipped(".h")]:
            write_if_changed(self.folder / "tree" / path, self.rewritten.get(path) or (TOP / path).read_bytes())
        headers = b"".join((self.folder / "tree" / path).read_bytes() for path in shipped(".h"))
        common = hashlib.sha256(headers + self.header.read_bytes())
        with ThreadPoolExecutor(jobs) as pool:
            made = dict(pool.map(lambda path: (path, self.compile(path, common)), self.sources()))
        self.bin.mkdir(exist_ok=True)
        self.link_others()
        main = made.pop(self.folder / "tree/Main/Main.cpp")
        unit_main = made.pop(self.unit_main, None)
        self.link("CMakeFiles/hwreg.dir", {"CMakeFiles/hwreg_objects.dir/Main/Main.cpp.o": main}, list(made.values()))
        self.link("tests/unit/CMakeFiles/hwreg_unit.dir",
                  {"CMakeFiles/hwreg_unit.dir/UnitMain.cpp.o": unit_main} if unit_main else {}, list(made.values()))

    def sources(self):
        own = [self.folder / "tree" / path for path in shipped()]
        return [*own, *self.extra, *([self.unit_main] if self.unit_main else [])]

    def compile(self, source, common):
        """The object of a source, made only where something has changed."""
        name = re.sub(r"\W", "_", os.path.relpath(source, self.folder / "tree"))
        target = self.folder / "objects" / f"{name}.o"
        tree = TOP if source == self.unit_main else self.folder / "tree"
        command = ["c++", *self.flags, f"-I{tree}", "-include", str(self.header), "-c", str(source), "-o", str(target)]
        key = common.copy()
        key.update(source.read_bytes() + repr(command).encode())
        stamp = target.with_suffix(".key")
        if not (target.exists() and stamp.exists() and stamp.read_text() == key.hexdigest()):
            target.parent.mkdir(parents=True, exist_ok=True)
            call(command, self.folder)
            stamp.write_text(key.hexdigest())
        return target

    def link(self, rules, replaced, objects):
        """Links what the build folder links, with these objects in place of the modules."""
        words = shlex.split((BUILD / rules / "link.txt").read_text())
        cwd = (BUILD / rules).parent.parent
        out = self.bin / pathlib.Path(words[words.index("-o") + 1]).name
        words[words.index("-o") + 1] = str(out)
        words = [str(replaced.get(word, word)) for word in words if not word.startswith("-flto")]
        at = next(number for number, word in enumerate(words) if word.endswith("libhwreg_modules.a"))
        words[at:at + 1] = [str(path) for path in objects]
        inputs = [path for path in (cwd / word for word in words) if path.is_file() and path != out]
        key = repr(words) + repr([path.stat().st_mtime_ns for path in inputs])
        stamp = self.folder / "objects" / f"{out.name}.key"
        if not (out.exists() and stamp.exists() and stamp.read_text() == key):
            out.unlink(missing_ok=True)
            call(words, cwd)
            stamp.write_text(key)

    def link_others(self):
        """What the tests of commands use beside the program."""
        for path in BUILD.glob("*"):
            mine = self.bin / path.name
            if path.name.startswith(("hwboard", "libhw")) and path.is_file() or path.name in ("hwreg-capture",
                                                                                             "hwreg-check"):
                if not mine.exists() or mine.stat().st_mtime_ns != path.stat().st_mtime_ns:
                    mine.unlink(missing_ok=True)
                    shutil.copy2(path, mine)
