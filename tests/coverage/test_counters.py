"""Whatever a process has executed is counted, however it ends, and the program does not change by it."""

import concurrent.futures
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile

import pytest

import counts
from harness import BOARDS, new_folder, run, terminal  # noqa: F401 (fixtures)

MAIN = "Main/Main.cpp"
BOARD = {"HWBOARD": str(BOARDS / "intel.board"), "LD_PRELOAD": str(counts.BUILD / "libhwboard.so")}
READ = [str(counts.BUILD / "hwreg"), "/PCI", "/RB", "0", "0", "0", "0"]


@pytest.fixture
def folder():
    """Counters of the test's own, in a folder that any user can reach."""
    with tempfile.TemporaryDirectory() as path:
        os.chmod(path, 0o755)
        counts.begin(pathlib.Path(path))
        yield pathlib.Path(path)


def environment(folder):
    return {**counts.environment(folder), **BOARD}


def count_of(text, folder):
    """How often the line of Main.cpp with this text was executed."""
    (number,) = [at for at, line in enumerate((counts.TOP / MAIN).read_text().splitlines(), 1) if line.strip() == text]
    return counts.reached(folder)[MAIN].lines[number]


BEGIN, END = "argvToUpper(argv);", "EndOutput();"


def test_nothing_is_lost_where_many_count_at_once(folder):
    def go(_):
        return subprocess.run(READ, env=environment(folder), stdout=subprocess.DEVNULL, check=False).returncode

    with concurrent.futures.ThreadPoolExecutor(8) as runners:
        assert set(runners.map(go, range(200))) == {0x86}
    assert (count_of(BEGIN, folder), count_of(END, folder)) == (200, 200)


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGTERM, signal.SIGABRT, signal.SIGINT])
def test_a_process_that_a_signal_ends_has_counted(terminal, folder, number):
    result = terminal("/MEM /DUMP 0x1000 0x2000", keys=[number], env={"HWREG_COUNTERS": str(folder)})
    assert result.status == -number
    assert (count_of(BEGIN, folder), count_of(END, folder)) == (1, 0)


def test_another_users_process_has_counted(folder):
    if os.geteuid() != 0:
        pytest.skip("only root can start programs as another user")
    with tempfile.TemporaryDirectory() as place:
        os.chmod(place, 0o755)
        copy = shutil.copy(READ[0], place)
        done = subprocess.run([copy], user="nobody", env={"HWREG_COUNTERS": str(folder)}, check=False)
    assert done.returncode == 6  # no privilege
    assert (count_of("if (EnableAdvancedAcc() != EFI_SUCCESS)", folder), count_of(BEGIN, folder)) == (1, 0)


def test_a_child_of_a_unit_test_has_counted():
    """The access that faults is made in a child, which dies of it."""
    status, sources = counts.reached_by(counts.command_of(["unit", "PortIoDeathTest.*"]))
    assert status == 0
    assert sources["BasicLib/PortIo.cpp"].reached()


def test_the_program_does_the_same_without_counters(run, folder, tmp_path):
    """... and with them: output, status and accesses are compared."""
    counted = run("/PCI /DUMP 0 0 0", env={"HWREG_COUNTERS": str(folder)})
    assert count_of(END, folder) == 1
    uncounted = run("/PCI /DUMP 0 0 0", env={"HWREG_COUNTERS": str(tmp_path)})
    assert count_of(END, folder) == 1
    assert (counted.out, counted.err, counted.status, counted.log) == (
        uncounted.out, uncounted.err, uncounted.status, uncounted.log)
    assert list(tmp_path.glob("hwreg*")) == []


def test_what_one_command_reaches_is_told():
    status, sources = counts.reached_by(counts.command_of(["unit", "Arith.*"]))
    assert status == 0
    reached = {file for file, source in sources.items() if source.reached()}
    assert "Base/Arith.cpp" in reached and "Project/PciAcc.cpp" not in reached
