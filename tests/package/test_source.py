"""The program built of its source as docs/installing.md says, where there is a compiler and no network."""

import shutil

import pytest

import roots
from typed import typed


@pytest.fixture(scope="module")
def root(release):
    root = roots.builder()
    place = root.path / "srv/source"
    shutil.rmtree(place, ignore_errors=True)
    place.mkdir(parents=True)
    shutil.copy(release / "hwreg-1.01.tar.xz", place)
    yield root
    shutil.rmtree(root.path / "usr/local")
    (root.path / "usr/local").mkdir()


def test_what_cmake_installs_works(root):
    root.must(f"set -e; cd /srv/source; {typed('From the source', 'tar')}")
    ran = root.run("/usr/local/bin/hwreg-sim /PCI /RB 0 0 0 0", user="nobody")
    assert (ran.stdout, ran.returncode) == ("PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n", 0x86)
    installed = (root.path / "srv/source/hwreg-1.01/build/install_manifest.txt").read_text().split()
    assert {"/usr/local/sbin/hwreg", "/usr/local/share/man/man8/hwreg.8.gz"} <= set(installed)


@pytest.mark.parametrize("option", ["", " -static"])
def test_one_line_makes_the_program_alone(root, option):
    root.must("cd /srv/source && rm -rf hwreg-1.01 && tar -xJf hwreg-1.01.tar.xz")
    line = typed("From the source", "g++").strip()
    root.must(f"cd /srv/source/hwreg-1.01 && {line}{option}")
    ran = root.run("/srv/source/hwreg-1.01/hwreg /PCI /RB 0 0 0 0", user="nobody")
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 6)
