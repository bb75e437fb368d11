"""A copy of the program that has its owner's rights by its mode (set-user-ID): it must not lend them to others."""

import os
import shutil
import subprocess
import tempfile

import pytest

from harness import BUILD

NOT_READY = 6


@pytest.fixture
def copy():
    """A copy of the program where every user may run it, in a file system that heeds the mode."""
    if os.geteuid() != 0:
        pytest.skip("only root can start programs as another user")
    if b"__asan_init" in (BUILD / "hwreg").read_bytes():
        pytest.skip("the sanitizer opens files of its own")
    with tempfile.TemporaryDirectory() as folder:
        if os.statvfs(folder).f_flag & os.ST_NOSUID:
            pytest.skip("files here give no rights")
        os.chmod(folder, 0o755)
        yield shutil.copy(BUILD / "hwreg", folder)


def calls(copy, mode):
    """The exit status of a run by another user, what it prints, and its calls that open something or ask for ports."""
    os.chmod(copy, mode)
    command = ["strace", "-u", "nobody", "-o", f"{copy}.calls", "-e", "trace=open,openat,creat,iopl", copy, "/TIMEOUT"]
    done = subprocess.run(command, capture_output=True, check=False)
    with open(f"{copy}.calls") as log:
        lines = [line for line in log if line.startswith(("open", "creat", "iopl"))]
    return done.returncode, done.stdout + done.stderr, [line for line in lines if ".so" not in line]


def test_a_program_with_its_owners_rights_ends_before_it_opens_anything(copy):
    assert calls(copy, 0o4755) == (NOT_READY, b"", [])
    assert "iopl" in calls(copy, 0o755)[2][0]  # without them it asks, and the kernel refuses
