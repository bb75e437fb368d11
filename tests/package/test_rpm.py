"""The rpms in a root of their own, as on a system with rpm.

There are no packages of such a system here: one package of files of Debian's stands in for all that ours ask for. rpm
itself finds out what it provides, but for the names that its files cannot tell. The root of Debian has no dnf.
"""

import os
import re
import shutil
import subprocess

import pytest

import roots
from roots import FOLDER, Root, output
from typed import typed

PROGRAMS = ["bash", "basename", "cat", "clear", "dirname", "env", "flock", "grep", "python3.11", "readlink",
            "realpath", "sed", "timeout", "true"]
MODULES = "/usr/lib/python3.11/lib-dynload/*.so"
STAND_INS = """
%global __os_install_post %{nil}
%global _build_id_links none
%global _binary_payload w1.gzdio
Name: stand-ins
Version: 1
Release: 1
Summary: what a system has
License: those of its parts
AutoReq: no
Provides: bash, coreutils, grep, kmod, sed, rtld(GNU_HASH)
%description
%install
cp -a FILES/. %{buildroot}
%files
/*
"""
ASKED = {"hwreg": {"kmod", "/usr/bin/clear"}, "hwreg-static": set(),
         "hwreg-sim": {"bash", "coreutils", "grep", "sed", "/usr/bin/env", "/usr/bin/python3",
                       "hwreg = 1.01-1"},
         "python3-hwreg": {"python(abi) = 3.11", "/usr/bin/flock", "/usr/bin/timeout"}}


def rpm(root, *words, **options):
    return subprocess.run(["rpm", "--force-debian", "--root", root.path, *words], text=True, capture_output=True,
                          check=False, **options)


@pytest.fixture(scope="module")
def rpms(release):
    return {re.match(r"(.*)-1\.01-1\.", path.name)[1]: path for path in release.glob("*-1.01-1.[xn]*.rpm")}


def collect(folder):
    """Files of a Debian system, as a root in which its programs run."""
    builder = roots.builder()
    programs = [f"/usr/bin/{name}" for name in PROGRAMS]
    libraries = set(re.findall(r"(/lib\S+) \(0x", builder.must(f"ldd {' '.join(programs)} {MODULES}")))
    for path in [*programs, *(f"/usr{path}" for path in libraries)]:
        (folder / path[1:]).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(builder.path / path[1:], folder / path[1:])
    for path in ("usr/lib/python3.11", "usr/lib/locale"):
        shutil.copytree(builder.path / path, folder / path)
    for name in ("bin", "lib", "lib64"):
        (folder / name).symlink_to(f"usr/{name}")
    (folder / "usr/bin/sh").symlink_to("bash")
    (folder / "usr/bin/python3").symlink_to("python3.11")
    for name in ("dev", "proc", "tmp"):
        (folder / name).mkdir()
    (folder / "dev/fd").symlink_to("/proc/self/fd")


@pytest.fixture(scope="module")
def bare(tmp_path_factory):
    """A root with nothing but what stands in for the system's packages."""
    work = tmp_path_factory.mktemp("stand-ins")
    collect(work / "files")
    (work / "recipe").write_text(STAND_INS.replace("FILES", f"{work}/files"))
    subprocess.run(["rpmbuild", "-bb", "--define", f"_topdir {work}", work / "recipe"], check=True,
                   capture_output=True)
    root = Root(FOLDER / "work" / "rpm")
    shutil.rmtree(root.path, ignore_errors=True)
    root.path.mkdir(parents=True)
    package, = work.glob("RPMS/*/*.rpm")
    ran = rpm(root, "-i", package)
    assert ran.returncode == 0, ran.stderr
    os.mknod(root.path / "dev/null", 0o20666, os.makedev(1, 3))
    (root.path / "dev/null").chmod(0o666)
    yield root
    shutil.rmtree(root.path)


@pytest.fixture(scope="module")
def root(bare, rpms):
    """The same with our packages, as the page has it installed, with rpm in place of dnf."""
    words = typed("Fedora", "dnf install").split()[2:]
    assert [os.path.basename(word) for word in words] == [rpms[name].name for name in ("hwreg", "hwreg-sim")]
    ran = rpm(bare, "-i", *words, rpms["hwreg-static"], rpms["python3-hwreg"], cwd=rpms["hwreg"].parent)
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 0)
    return bare


@pytest.mark.parametrize("name", ASKED)
def test_they_ask_for_what_they_need(rpms, name):
    asked = {line.strip() for line in output("rpm", "-qp", "--requires", rpms[name]).splitlines()}
    of_libc = {line for line in asked if re.match(r"libc\.so\.6\(|rtld\(|rpmlib\(", line)}
    assert asked - of_libc == ASKED[name]
    assert max(map(int, re.findall(r"GLIBC_2\.(\d+)", " ".join(of_libc))), default=0) <= 34


def test_nothing_is_installed_where_what_they_need_is_not_there(rpms, tmp_path):
    ran = rpm(Root(tmp_path), "-i", *rpms.values())
    missing = set(re.findall(r"^\t(\S+(?: = \S+)?) is needed by", ran.stderr, re.MULTILINE))
    assert ran.returncode != 0 and {"kmod", "bash", "/usr/bin/clear", "python(abi) = 3.11"} <= missing


@pytest.mark.parametrize("name", ASKED)
def test_they_run_nothing_when_they_come_and_go(rpms, name):
    assert output("rpm", "-qp", "--scripts", "--triggers", rpms[name]) == ""


def test_the_library_is_offered_to_nobody_else(rpms):
    assert "libhwboard" not in output("rpm", "-qp", "--provides", rpms["hwreg-sim"])


def test_every_file_belongs_to_root_and_can_be_read(rpms):
    modes = [line.split()[:4] for path in rpms.values() for line in output("rpm", "-qplv", path).splitlines()]
    assert {(owner, group) for _, _, owner, group in modes} == {("root", "root")}
    assert {mode for mode, *_ in modes} == {"drwxr-xr-x", "-rwxr-xr-x", "-rw-r--r--", "lrwxrwxrwx"}


def test_simulated_machines_work(root):
    ran = root.run("hwreg-sim /PCI /RB 0 0 0 0", user="65534:65534")
    assert (ran.stdout, ran.stderr, ran.returncode) == ("PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n", "", 0x86)
    logged = root.run("hwreg-sim --log --explain /PCI /RB 0 0 0 0", user="65534:65534")
    assert "Vendor ID" in logged.stderr


@pytest.mark.parametrize("program", ["hwreg", "hwreg-static"])
def test_the_program_ends_silently_with_6_without_privilege(root, program):
    ran = root.run(f"{program} /PCI /RB 0 0 0 0", user="65534:65534")
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 6)


def test_scripts_import_the_package(root):
    """Debian's Python, which stands in here, does not look where others do."""
    script = ("import importlib.metadata, hwreg; print(hwreg.Machine(hwreg.Sim('intel')).pci.read(0, 0, 0, 0, 16), "
              "importlib.metadata.version('hwreg'))")
    ran = root.run("python3", "-c", script, user="65534:65534", PYTHONPATH="/usr/lib/python3.11/site-packages")
    assert (ran.stdout, ran.stderr) == (f"{0x8086} 1.01\n", "")


@pytest.mark.parametrize("first", ["rpmbuild --rebuild", "rpmbuild -ta"])
def test_the_sources_can_be_built(releaser, release, rpms, first):
    """As the page says; of the build, what goes into the packages is looked at: the rest is scripts/release's."""
    place = releaser.path / "srv/rebuilt"
    shutil.rmtree(place, ignore_errors=True)
    place.mkdir()
    for name in ("hwreg-1.01.tar.xz", "hwreg-1.01-1.src.rpm"):
        shutil.copy(release / name, place)
    line, = [line for line in typed("Fedora", "rpmbuild").splitlines() if line.startswith(first)]
    line = line.replace("rpmbuild", "rpmbuild --nodeps --define '_topdir /srv/rebuilt' --define '_smp_mflags -j2'")
    releaser.must(f"cd /srv/rebuilt && {line}")
    for path in rpms.values():
        made, = place.glob(f"RPMS/*/{path.name}")
        assert names(made) == names(path)


def names(path):
    return [name for name in output("rpm", "-qpl", path).splitlines() if ".build-id" not in name]


def test_nothing_is_left_after_they_are_removed(root, rpms):
    """(The last test: it takes the packages away.)"""
    ran = rpm(root, "-e", *rpms)
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 0)
    left = [path for path in root.files() if "hwreg" in path or "hwboard" in path]
    assert [path for path in left if not path.startswith("var/lib/rpm")] == []
