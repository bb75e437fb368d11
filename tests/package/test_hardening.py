"""What guards the programs that are handed out: asked of every ELF file of the packages and the static tarball."""

import dataclasses
import os
import re

import pytest

from roots import TOP, output

# Of the library of hwreg-sim, which runs on a desk, without privilege:
LIBRARY = "libhwboard.so"
COMPILED_WITH = {"-O2", "-fPIC", "-fstack-protector-strong", "-fstack-clash-protection", "-fcf-protection=full"}
PAGE = 0x1000


@dataclasses.dataclass
class File:
    name: str  # of the package and the file, as a failure shows it
    path: str
    headers: str  # what readelf tells of headers, dynamic section and notes
    symbols: str  # the dynamic ones

    @property
    def is_library(self):
        return self.name.endswith(LIBRARY)

    @property
    def is_static(self):
        return "(NEEDED)" not in self.headers


def elf_files(unpacked):
    for package, folder in sorted(unpacked.items()):
        if "-dbgsym" in package:
            continue
        for place, _, names in os.walk(folder):
            for name in sorted(names):
                path = os.path.join(place, name)
                if not os.path.islink(path) and open(path, "rb").read(4) == b"\x7fELF":
                    yield File(f"{package}: {name}", path, output("readelf", "-hldnW", path, env=os.environ),
                               output("readelf", "--dyn-syms", "-W", path))


@pytest.fixture(scope="module")
def files(unpacked):
    return list(elf_files(unpacked))


def lacking(files, pattern):
    return [file.name for file in files if not re.search(pattern, file.headers + file.symbols, re.MULTILINE)]


def test_every_program_is_looked_at(files):
    programs = ["hwreg", "hwreg-capture", "hwreg-check"]
    static = [f"{name}-static" for name in programs]
    assert sorted(file.name for file in files) == sorted(
        [f"{package}: {name}" for package, names in [
            ("hwreg_1.01_amd64.deb", programs), ("hwreg-1.01-1.x86_64.rpm", programs),
            ("hwreg-static_1.01_amd64.deb", static), ("hwreg-static-1.01-1.x86_64.rpm", static),
            ("hwreg-sim_1.01_amd64.deb", [LIBRARY]), ("hwreg-sim-1.01-1.x86_64.rpm", [LIBRARY]),
            ("hwreg-1.01-x86_64-static.tar.gz", programs)] for name in names])


def test_static_is_what_is_called_so(files):
    assert {file.name for file in files if file.is_static} == {file.name for file in files if "static" in file.name}
    assert lacking([file for file in files if file.is_static], r"^((?!INTERP)[\s\S])*\Z") == []


def test_they_lie_at_random_addresses(files):
    assert lacking(files, r"^ *Type: +DYN ") == []
    assert lacking([file for file in files if not file.is_library], r"\(FLAGS_1\) .*\bPIE\b") == []


def test_nothing_can_write_to_addresses_of_functions(files):
    assert lacking(files, r"^ *GNU_RELRO ") == []
    assert lacking(files, r"\(FLAGS_1\) .*\bNOW\b") == []


def test_no_stack_and_no_text_can_be_both_written_and_run(files):
    assert lacking(files, r"^ *GNU_STACK .* RW +0x") == []
    assert [file.name for file in files if re.search(r" RWE |\(TEXTREL\)", file.headers)] == []


def test_a_shadow_stack_can_be_used(files):
    """The mark for indirect branches would be untrue: the start file of Debian's libc has none."""
    assert lacking([file for file in files if not file.is_library], r"x86 feature: (IBT, )?SHSTK") == []


def test_the_stack_is_guarded_and_sizes_are_checked(files):
    """hwreg-sim's library gives the plain procedures in place of libc's, so it cannot ask libc for the checked ones."""
    shared = [file for file in files if not file.is_static]
    assert lacking(shared, r" UND __stack_chk_fail\b") == []
    assert lacking([file for file in shared if not file.is_library], r" UND __(?!stack)\w+_chk\b") == []


def test_a_stack_grows_page_by_page(files):
    """Of what is no libc: no step is larger than a page, and steps of a page are there, each of which is touched."""
    steps = {}
    for file in files:
        if not file.is_static:
            text = output("objdump", "-d", "--no-show-raw-insn", file.path)
            steps[file.name] = [(int(size, 16), touched) for size, touched in re.findall(
                r"\bsub +\$(0x[0-9a-f]{4,8}),%rsp\n.*\t(.*)", text) if int(size, 16) >= PAGE]
    assert any(steps.values())
    for name, taken in steps.items():
        touched = re.compile(r"or[lq] +\$0x0,(0x\w+)?\(%rsp")
        assert [(size, then) for size, then in taken if size > PAGE or not touched.match(then)] == [], name


@pytest.mark.parametrize("package", ["hwreg", "hwreg-static", "hwreg-sim"])
def test_every_file_was_compiled_with_the_guards(unpacked, package):
    """As the debugging symbols tell. What the linker compiles once more goes by what it was told for each procedure."""
    folder = unpacked[f"{package}-dbgsym_1.01_amd64.deb"]
    texts = [output("readelf", "-zp", ".debug_str", path) for path in folder.rglob("*.debug")]
    told = [line for text in texts for line in text.splitlines() if " GNU C" in line]
    assert told and [line for line in told if COMPILED_WITH - set(line.split())] == []


@pytest.mark.parametrize("define, want", [("_FORTIFY_SOURCE", "2"), ("O", "2")])
def test_what_is_given_twice_says_the_same(release, define, want):
    """Debian's flags and those of CMakeLists.txt stand in one line."""
    lines = (release / "build.log").read_text().splitlines()
    commands = [line for line in lines if re.match(r"\S*/c\+\+ .* -c ", line)]
    assert len(commands) > 100
    pattern = rf" -D?{define}=?(\w+)(?= )"
    assert {value for line in commands for value in re.findall(pattern, line)} == {want}


def test_the_sources_of_the_flags_are_one():
    assert "-fstack" not in (TOP / "debian/rules").read_text() + (TOP / "packaging/hwreg.spec").read_text()
