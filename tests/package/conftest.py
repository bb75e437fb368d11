"""The tree as it stands, what scripts/release makes of it, and the systems in which that is tried."""

import os
import pathlib
import shutil
import subprocess

import pytest

import roots
from roots import FOLDER, TOP, field, output, run_release


@pytest.fixture(scope="session")
def releaser():
    """A system with what scripts/release needs, and no network that it could install more from."""
    return roots.releaser()


@pytest.fixture(scope="session")
def source():
    """A repository of its own with this tree as one commit, whatever has been committed of it."""
    folder = FOLDER / "source"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    names = output("git", "-C", TOP, "ls-files", "-z", "--cached", "--others", "--exclude-standard").split("\0")
    for name in sorted({name for name in names if name and os.path.lexists(TOP / name)}):
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(TOP / name, folder / name, follow_symlinks=False)
    git = ["git", "-C", folder, "-c", "user.name=Somebody", "-c", "user.email=somebody@hwreg.example"]
    subprocess.run([*git, "init", "-q"], check=True)
    subprocess.run([*git, "add", "--all"], check=True)
    subprocess.run([*git, "commit", "-q", "-m", "The tree"], check=True)
    return folder


@pytest.fixture(scope="session")
def release(releaser, source):
    """What scripts/release makes of the tree."""
    return run_release(releaser, source, "/srv/first", "env")


@pytest.fixture(scope="session")
def packages(release):
    """The paths of the Debian packages by their names, but those with debugging symbols."""
    found = [path for path in release.glob("*.deb") if "-dbgsym" not in path.name]
    return {field(path, "Package"): path for path in found}


@pytest.fixture(scope="session")
def unpacked(release, tmp_path_factory):
    """The folders into which everything is unpacked that is handed out as programs, by its file's name."""
    folders = {}
    for path in [*release.glob("*.deb"), *release.glob("*64.rpm"), *release.glob("*.tar.gz")]:
        folder = folders[path.name] = tmp_path_factory.mktemp(path.name)
        if path.suffix == ".deb":
            subprocess.run(["dpkg-deb", "-x", path, folder], check=True)
        elif path.suffix == ".rpm":
            unpack_rpm(path, folder)
        else:
            subprocess.run(["tar", "-xf", path, "-C", folder], check=True)
    return folders


def unpack_rpm(path: pathlib.Path, folder):
    archive = subprocess.run(["rpm2archive", "-n", "-"], stdin=path.open("rb"), stdout=subprocess.PIPE, check=True)
    subprocess.run(["tar", "-x", "-C", folder], input=archive.stdout, check=True)
