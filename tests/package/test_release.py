"""scripts/release gives the same bytes to everybody, and what it makes can be made of its own sources."""

import hashlib
import re
import shutil
import subprocess

import pytest

import roots
from roots import output, run_release
from typed import PAGE


@pytest.fixture(scope="module")
def sums(release):
    return dict(reversed(line.split("  ")) for line in (release / "SHA256SUMS").read_text().splitlines())


def sum_of(path):
    return hashlib.sha256(path.read_bytes()).hexdigest()


def test_everything_is_there_with_its_sum(release, sums):
    debs = [f"{name}_1.01_amd64.deb" for name in ("hwreg", "hwreg-dbgsym", "hwreg-sim", "hwreg-sim-dbgsym",
                                                  "hwreg-static", "hwreg-static-dbgsym")]
    rpms = [f"{name}-1.01-1.x86_64.rpm" for name in ("hwreg", "hwreg-sim", "hwreg-static")]
    assert sorted(sums) == sorted([*debs, "python3-hwreg_1.01_all.deb", "hwreg_1.01.dsc", "hwreg_1.01.tar.xz", *rpms,
                                   "python3-hwreg-1.01-1.noarch.rpm", "hwreg-1.01-1.src.rpm", "hwreg-1.01.tar.xz",
                                   "hwreg-1.01-x86_64-static.tar.gz"])
    assert {name: sum_of(release / name) for name in sums} == sums
    beside = {path.name for path in release.iterdir()} - set(sums)
    assert beside == {"SHA256SUMS", "build.log", "hwreg_1.01_amd64.buildinfo", "hwreg_1.01_amd64.changes"}


def test_the_page_names_files_that_are_made(sums):
    named = re.findall(r"(?:python3-)?\bhwreg[\w.-]*\.(?:deb|rpm|tar\.[gx]z|dsc)\b", PAGE)
    assert len(set(named)) >= 10 and set(named) <= set(sums)


def test_the_source_is_the_tree(release, source):
    names = output("tar", "-tf", release / "hwreg-1.01.tar.xz").split("\n")
    tracked = output("git", "-C", source, "ls-files").split("\n")
    files = [name.removeprefix("hwreg-1.01/") for name in names if not name.endswith("/")]
    assert sorted(files) == sorted(tracked)


def test_nothing_is_compiled_with_a_warning_or_a_define_twice(release):
    lines = [line for line in (release / "build.log").read_text().splitlines() if "warning:" in line]
    assert [line for line in lines if not line.startswith(("dpkg-", "rpmbuild"))] == []


def test_the_same_commit_gives_the_same_bytes(releaser, source, release):
    """Elsewhere, 40 days later, for somebody else, with another time zone, language, umask and number of processors,
    and with settings of his own."""
    settings = {".rpmmacros": "%packager Somebody\n%optflags -O1\n",
                ".config/dpkg/buildflags.conf": "SET CXXFLAGS -O1\n"}
    for name, text in settings.items():
        path = releaser.path / "srv" / "other" / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
    later = 'umask 077; export LANG=C TZ=Asia/Kolkata HOME=/srv/other; taskset -c 0 faketime -f +40d "$0" "$@"'
    again = run_release(releaser, source, "/srv/other/deeper", "bash", "-c", later, user="nobody",
                        LC_ALL="POSIX", TMPDIR="/srv/other/deeper", CC="false", CXXFLAGS="-O1", LDFLAGS="-s",
                        DEB_BUILD_OPTIONS="noopt", TAR_OPTIONS="--owner=somebody", CMAKE_BUILD_TYPE="Debug")
    assert (again / "SHA256SUMS").read_text() == (release / "SHA256SUMS").read_text()


def test_the_debian_source_builds_where_nothing_but_the_build_depends_is(release, source, sums):
    root = roots.builder()
    place = root.path / "srv"
    shutil.rmtree(place, ignore_errors=True)
    place.mkdir()
    for name in ("hwreg_1.01.dsc", "hwreg_1.01.tar.xz"):
        shutil.copy(release / name, place)
    time = output("git", "-C", source, "log", "-1", "--format=%ct").strip()
    root.must("cd /srv && dpkg-source -x hwreg_1.01.dsc && cd hwreg-1.01 && dpkg-buildpackage -us -uc -b",
              SOURCE_DATE_EPOCH=time, DEB_BUILD_OPTIONS="parallel=2")
    made = {path.name: sum_of(path) for path in place.glob("*.deb")}
    assert made == {name: sum for name, sum in sums.items() if name.endswith(".deb")}


def test_what_is_not_committed_is_left_out_and_told(source, tmp_path):
    """It is told before anything is made: here, where nothing can be made, as there is no compiler to be found."""
    tree = tmp_path / "tree"
    subprocess.run(["cp", "-a", source, tree], check=True)
    (tree / "README.md").write_text("changed")
    (tree / "scripts" / "packages.sh").write_text("need_packages() { :; }\nrpmbuild() { false; }\ndpkg-buildpackage()"
                                                  " { false; }\n")
    ran = subprocess.run([tree / "scripts" / "release", tmp_path / "out"], capture_output=True, text=True, check=False)
    assert ran.returncode != 0 and "release: what is not committed is left out\n" in ran.stderr
    assert not (tmp_path / "out" / "SHA256SUMS").exists()
