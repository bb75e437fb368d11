"""Procedures that the linker replaces for tests (--wrap) exist: it takes a name that nobody has without a word."""

import re
import subprocess

import pytest

from house import BUILD, TOP, configured, none, sources, tags


@pytest.fixture(scope="module")
def symbols():
    """(defined, used): the names that the program's object files define, and those that they take from another."""
    archive = BUILD / "libhwreg_modules.a"
    if not archive.exists():
        subprocess.run(["cmake", "-S", TOP, "-B", BUILD], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD, "--target", "hwreg_modules", "--parallel", "2"], check=True,
                   stdout=subprocess.DEVNULL)
    # Not nm: of objects for link-time optimisation it lists the compiler's symbols, which know nothing of malloc.
    listed = subprocess.run(["readelf", "-sW", archive], capture_output=True, text=True, check=True).stdout
    pairs = re.findall(r"(?:GLOBAL|WEAK) +DEFAULT +(\S+) (\S+)$", listed, re.MULTILINE)
    return {name for section, name in pairs if section != "UND"}, {name for section, name in pairs if section == "UND"}


def wrapped(build):
    """Folder and name of each --wrap with which one of its programs is linked."""
    pairs = set()
    for link in build.rglob("link.txt"):
        folder = link.relative_to(build).parts[:link.relative_to(build).parts.index("CMakeFiles")]
        pairs |= {("/".join(folder), name) for name in re.findall(r"--wrap[=,](\S+)", link.read_text())}
    return sorted(pairs)


def lost_wraps(top, wraps, symbols):
    defined, used = symbols
    for folder, name in wraps:
        here = f"{folder}/CMakeLists.txt: {name}"
        if name.startswith("_Z") and name not in defined:
            yield f"{here}: no procedure of the program has this name"
        if name not in used:
            yield f"{here}: no file of the program takes it from another"
        if not any(tag["name"] == f"__wrap_{name}" for tag in tags(top, sources(top, folder))):
            yield f"{here}: {folder} does not define __wrap_{name}"


def test_wrapped_names_are_the_programs_and_have_their_wraps(symbols):
    wraps = wrapped(configured())
    assert {"tests/fuzz", "tests/unit"} <= {folder for folder, _ in wraps}
    none(list(lost_wraps(TOP, wraps, symbols)), "correct these names: readelf -sW tells those of libhwreg_modules.a")


def test_planted_names_are_found(plant, symbols):
    top = plant({
        "tests/unit/CMakeFiles/unit.dir/link.txt": "c++ -Wl,--wrap=malloc -Wl,--wrap=_Z7IoRead8jj -o unit\n",
        "tests/unit/Help.cpp": 'extern "C" {\nvoid *__wrap_malloc(unsigned long size) {\n    return nullptr;\n}\n}\n',
    })
    wraps = wrapped(top)
    assert wraps == [("tests/unit", "_Z7IoRead8jj"), ("tests/unit", "malloc")]
    assert [line.split(": ")[2] for line in lost_wraps(top, wraps, symbols)] == [
        "no procedure of the program has this name", "no file of the program takes it from another",
        "tests/unit does not define __wrap__Z7IoRead8jj"]
