"""Scripts of a lab at once against one board, each through the Python package over ssh: with the lock of the
package none of their accesses goes wrong. Without it some do, of which the manual page tells."""

import concurrent.futures
import contextlib
import os
import pathlib

import pytest

from board import Board, board_machine
from hwreg import LOCK_FILE

pytestmark = pytest.mark.timeout(1800)
SCRIPT = pathlib.Path(__file__).with_name("traffic.py")
RUNS = 400
ROUNDS = 40  # of a quarter as many reads without the lock, until one goes wrong


@pytest.fixture(scope="module")
def board(tmp_path_factory):
    with Board(tmp_path_factory.mktemp("lab"), board_machine(firmware="seabios", smp=2, threads="multi")) as board:
        board.run("relay", "on", "3")
        board.wait()
        yield board


def traffic(board, *words):
    """What went wrong, of how many."""
    ran = board.run("python3", str(SCRIPT), *map(str, words))
    assert ran.returncode == 0, ran.stdout
    wrong, count = ran.stdout.split()
    return int(wrong), int(count)


@contextlib.contextmanager
def dumping(board, lock, scripts=1):
    """Other scripts that dump; gives what each will have to tell in the end."""
    over = board.folder / "over"
    over.unlink(missing_ok=True)
    with concurrent.futures.ThreadPoolExecutor(scripts) as pool:
        dumpers = [pool.submit(traffic, board, "dump", lock) for _ in range(scripts)]
        try:
            yield dumpers
        finally:
            over.touch()


def test_with_the_lock_nothing_goes_wrong(board):
    """A script that reads, one that writes and one that dumps."""
    with dumping(board, LOCK_FILE) as (dumper,), concurrent.futures.ThreadPoolExecutor(1) as pool:
        writer = pool.submit(traffic, board, "write", LOCK_FILE, RUNS)
        assert traffic(board, "read", LOCK_FILE, RUNS) == (0, RUNS)
        assert writer.result() == (0, RUNS)
    wrong, dumps = dumper.result()
    assert wrong == 0 and dumps > RUNS / 10  # they did run side by side


@pytest.mark.skipif(len(os.sched_getaffinity(0)) < 2, reason="on one processor it takes too long")
def test_without_the_lock_some_reads_go_wrong(board, record_testsuite_property):
    with dumping(board, "-", scripts=3):
        for round_ in range(ROUNDS):
            wrong, _ = traffic(board, "read", "-", RUNS // 4)
            if wrong:
                break
    record_testsuite_property("wrong without the lock", f"{wrong} of {RUNS // 4} in round {round_ + 1}")
    assert wrong > 0
