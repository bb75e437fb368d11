"""The static programs where there is nothing else: in a root with busybox alone."""

import json
import os
import shutil
import subprocess

import pytest

import roots
from roots import FOLDER, TOP, Root, output
from typed import typed

NAME = "hwreg-1.01-x86_64-static.tar.gz"


@pytest.fixture(scope="module")
def root(release):
    """Debian's static busybox, and the tarball, unpacked as the page says."""
    root = Root(FOLDER / "work" / "busybox")
    shutil.rmtree(root.path, ignore_errors=True)
    (root.path / "usr/local").mkdir(parents=True)
    package, = roots.clean().path.glob("root/busybox-static_*.deb")
    subprocess.run(["dpkg-deb", "-x", package, FOLDER / "work/unpacked"], check=True)
    (root.path / "bin").mkdir()
    shutil.copy(FOLDER / "work/unpacked/bin/busybox", root.path / "bin")
    shutil.rmtree(FOLDER / "work/unpacked")
    os.link(root.path / "bin/busybox", root.path / "bin/tar")
    os.link(root.path / "bin/busybox", root.path / "bin/gzip")
    shutil.copy(release / NAME, root.path)
    root.must(typed("Any other Linux", "tar"), shell="/bin/busybox sh")
    yield root
    shutil.rmtree(root.path)


def test_there_is_nothing_else(root):
    found = {path for path, (mode, *_) in root.files().items() if not path.startswith("usr/") and mode & 0o100000}
    assert found == {"bin/busybox", "bin/tar", "bin/gzip", NAME}


@pytest.mark.parametrize("words", ["", "/PCI /RB 0 0 0 0", "/MEM /H"])
def test_the_program_ends_silently_with_6_without_privilege(root, words):
    ran = root.run(f"hwreg {words}", user="65534:65534", shell="/bin/busybox sh")
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 6)


def test_the_check_tells_what_is_refused(root):
    ran = root.run("hwreg-check --json /PCI /RB 0 0 0 0", user="65534:65534", shell="/bin/busybox sh")
    told = json.loads(ran.stdout)
    assert (told["verdict"], told["status"], ran.returncode, ran.stderr) == ("refused", 6, 1, "")


def test_the_capture_tells_what_is_missing(root):
    ran = root.run("hwreg-capture", user="65534:65534", shell="/bin/busybox sh")
    assert (ran.stdout, ran.returncode) == ("", 6) and "root" in ran.stderr


def test_the_help_screens_reference_and_the_rest_are_where_others_have_them(root):
    found = {path.removeprefix("usr/local/") for path in root.files() if path.startswith("usr/local/s")}
    assert {"sbin/hwreg", "sbin/hwreg-check", "sbin/hwreg-capture", "share/man/man8/hwreg.8.gz",
            "share/man/man8/hwreg-check.8.gz", "share/man/man8/hwreg-capture.8.gz", "share/doc/hwreg/copyright",
            "share/doc/hwreg/installing.md", "share/bash-completion/completions/hwreg",
            "share/fish/vendor_completions.d/hwreg.fish", "share/zsh/site-functions/_hwreg",
            "share/hwreg/completion/candidates",
            "share/bash-completion/completions/hwreg-check"} <= found
    assert not [path for path in found if "static" in path or "lintian" in path or "sim" in path]
    reference = root.path / "usr/local/share/doc/hwreg/ReadMe.doc"
    assert reference.read_text() == (TOP / "docs/commands.txt").read_text()


def test_zsh_looks_for_the_completion_where_it_lies(root):
    folders = output("zsh", "-fc", "print -l $fpath").splitlines()
    assert "/usr/local/share/zsh/site-functions" in folders
    link = root.path / "usr/local/share/zsh/site-functions/_hwreg"
    assert link.resolve() == root.path / "usr/local/share/hwreg/completion/_hwreg" and link.exists()


def test_the_tarball_has_one_folder_and_no_owner(release):
    lines = [line.split() for line in output("tar", "--numeric-owner", "-tvf", release / NAME).splitlines()]
    assert {line[1] for line in lines} == {"0/0"}
    assert {line[5].split("/")[0] for line in lines} == {"hwreg-1.01-x86_64-static"}
