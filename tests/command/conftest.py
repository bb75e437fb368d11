import os
import shlex
import subprocess

import pytest

pytest.register_assert_rewrite("expected")  # the reasons of its assertions are shown as those of a test

from harness import BUILD, LIMIT, TOP, new_folder, run, terminal  # noqa: E402, F401 (fixtures)
from jobs import job  # noqa: E402, F401 (fixture)


def pytest_collection_modifyitems(items):
    """$HWREG_SAMPLE: of so many tests one is run."""
    items[:] = items[:: int(os.environ.get("HWREG_SAMPLE", "1"))]


@pytest.fixture
def on_disk(run, tmp_path):
    """on_disk(args, options="size=64k") runs the program in a new file system of its own, mounted with the options;
    the files that it leaves there are put beside it. `then` is a shell command to run before."""

    def go(args, options, then="true", **more):
        disk = tmp_path / "disk"
        disk.mkdir(exist_ok=True)
        script = (f'mount -t tmpfs -o {options} none "{disk}" && cd "{disk}" && {then} || exit 99; '
                  f'"{BUILD}/hwreg" {args}; status=$?; cp -r . "{tmp_path}/left"; exit $status')
        result = run(["-m", "sh", "-c", script], program="/usr/bin/unshare", **more)
        if result.status in (1, 99) and b"not permitted" in result.err or b"denied" in result.err:
            pytest.skip("may not mount here: " + result.err.decode())
        return result

    return go


@pytest.fixture
def sim(tmp_path):
    """sim(words, ...) runs hwreg-sim with these words (as a shell splits them) in the test's folder."""

    def go(words="", program=TOP / "sim" / "hwreg-sim", path=os.environ["PATH"], build=BUILD, **options):
        options = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **options}
        environment = {**os.environ, "HWREG_BUILD": str(build), "PATH": path}
        return subprocess.run([program, *shlex.split(words)], cwd=tmp_path, env=environment, text=True, timeout=LIMIT,
                              stdin=subprocess.DEVNULL, check=False, **options)

    return go
