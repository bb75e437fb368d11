"""The dumps that are there: those of Debian's source packages and those of the folders that $HWREG_MACHINES names.

A folder of dumps has a folder for each kind (README.md tells which); other files in it are left alone. An archive
counts when it has what its kind is about.
"""

import dataclasses
import functools
import hashlib
import os
import pathlib
import shutil
import tarfile

from harness import BUILD

MACHINES = BUILD / "machines"
KINDS = ("lspci", "smbios", "spd", "cpuid-msr", "acpi", "cmos", "chipsec")


@dataclasses.dataclass(frozen=True)
class Dump:
    source: str  # "debian", or "given"
    kind: str
    name: str
    path: pathlib.Path
    tree: pathlib.Path = None  # the folder of an archive's dumps

    def __str__(self):
        return f"{self.source}-{self.name}"

    def bytes(self):
        return self.path.read_bytes()

    def text(self):
        return self.path.read_text(encoding="latin-1")


def given_folders():
    """What $HWREG_MACHINES names; a folder that is not there is a mistake."""
    folders = [pathlib.Path(name) for name in os.environ.get("HWREG_MACHINES", "").split(":") if name]
    for folder in folders:
        assert folder.is_dir(), f"HWREG_MACHINES names {folder}, which is no folder"
    return folders


def unpacked(archive, kind):
    """The folder of an archive's dumps, made once; hard and symbolic links are none."""
    checksum = hashlib.sha256(archive.read_bytes()).hexdigest()
    folder = MACHINES / "trees" / f"{kind}-{checksum}"
    if not folder.exists():
        making = folder.with_name(f"{folder.name}.{os.getpid()}")
        making.mkdir(parents=True, exist_ok=True)
        with tarfile.open(archive) as tar:
            tar.extractall(making, [member for member in tar if member.isfile() and is_wanted(member.name, kind)])
        try:
            making.rename(folder)
        except OSError:  # the other worker was first
            shutil.rmtree(making)
    return folder


def is_wanted(path, kind):
    """Of sysfs the configuration spaces; of the CPUID dumps a file for each processor."""
    name = path.rpartition("/")[2]
    return name == "config" if kind == "lspci" else name.startswith("pu") and name.removeprefix("pu").isdecimal()


def dumps_in(source, folder):
    for kind in KINDS:
        for path in sorted((folder / kind).glob("*")):
            tree = unpacked(path, kind) if path.name.endswith(".tar.bz2") else None
            if tree is None or any(tree.iterdir()):
                yield Dump(source, kind, path.name, path, tree)


@functools.cache
def all_dumps():
    found = list(dumps_in("debian", MACHINES / "debian"))
    for folder in given_folders():
        found += dumps_in("given", folder)
    return found


def dumps(kind):
    return [dump for dump in all_dumps() if dump.kind == kind]


def only(wanted):
    """@only(wanted): a test of those dumps of its kind of which wanted(dump) is true."""

    def mark(test):
        test.wanted = wanted
        return test

    return mark
