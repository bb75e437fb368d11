"""Accesses beside a running dump on one board. The program takes no lock: CF8h and CFCh are two accesses, and what
another instance does between them leads the second one elsewhere. flock keeps the instances apart.

The figures are kept in the JUnit file (results/together.xml), for the manual page.
"""

import concurrent.futures
import contextlib
import os
import subprocess
import threading
import time

import pytest
from harness import BOARDS, BUILD, LIMIT, is_at_work, is_full, pipe_with_room_for, take_log

RUNS = 400
ROUNDS = 50  # of so many runs, until one goes wrong; of 400 some 50 do on two idle processors, a few on busy ones
WAITING = 16  # instances that wait for the lock at a time: a dump has it for half a second

# A function whose registers from 40h on keep what is written: one for each that waits. The window shows them without
# the ports.
SCRATCH = ["pci 00:1e.0 8086:5c5c class 118000"] + [f"dword {0x40 + 4 * i:x} 0 rw ffffffff" for i in range(WAITING)]
WINDOW = 0xE00F0000


class Machine:
    """The simulated machine whose configuration space and address register all instances share."""

    def __init__(self, folder):
        board = folder / "together.board"
        board.write_text("\n".join([f'include "{BOARDS}/intel.board"', *SCRATCH, ""]))
        self.lock = ["flock", str(folder / "lock")]
        self.environment = {**os.environ, "HWBOARD": str(board), "HWBOARD_REGISTERS": str(folder / "registers"),
                            "LD_PRELOAD": str(BUILD / "libhwboard.so")}
        self.environment.pop("HWBOARD_LOG", None)

    def hwreg(self, words, lock=()):
        return self.start(words, lock).communicate(timeout=LIMIT)[0]

    def start(self, words, lock=()):
        return subprocess.Popen([*lock, str(BUILD / "hwreg"), *words.split()], env=self.environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    @contextlib.contextmanager
    def dumping(self, lock):
        """Dump after dump; gives the list of what they have shown."""
        shown, end = [], threading.Event()

        def go():
            while not end.is_set():
                shown.append(self.hwreg("/PCI /DUMP /NOMSG /LOG", lock))

        dumper = threading.Thread(target=go)
        dumper.start()
        try:
            yield shown
        finally:
            end.set()
            dumper.join()

    def read_is_right(self, _number, lock):
        return self.hwreg("/PCI /RD 0 0 0 0", lock) == "PCI Read DWord BDFO: 0 0 0 0, return data:0x3E308086\n"

    def write_is_right(self, number, lock):
        """Whether the register holds a value that it did not hold before."""
        offset = 0x40 + 4 * (number % WAITING)
        self.hwreg(f"/PCI /WD 0 0x1e 0 {offset:#x} {number + 1:#x}", lock)
        return self.hwreg(f"/MEM /RD {WINDOW + offset:#x}").endswith(f" return data:0x{number + 1:08X}\n")

    def count_wrong(self, is_right, numbers, lock=()):
        return sum(not is_right(self, number, lock) for number in numbers)


@pytest.fixture
def machine(tmp_path):
    return Machine(tmp_path)


ACCESSES = pytest.mark.parametrize("is_right", [Machine.read_is_right, Machine.write_is_right], ids=["read", "write"])


@ACCESSES
def test_alone_each_access_is_right(machine, is_right):
    assert machine.count_wrong(is_right, range(2 * WAITING)) == 0


def test_a_write_goes_where_the_other_instance_has_pointed(machine, tmp_path):
    """It is held up between the two ports by a log that takes no more lines."""
    write = "/PCI /WD 0 0x1e 0 0x40 0x12345678"
    machine.environment["HWBOARD_LOG"] = str(tmp_path / "undisturbed")
    machine.hwreg(write)
    lines = (tmp_path / "undisturbed").read_text().splitlines()
    before = lines[: lines.index("out32 0cfc 12345678")]
    machine.environment["HWBOARD_LOG"] = str(tmp_path / "pipe")
    pipe, size = pipe_with_room_for(before, tmp_path / "pipe")
    held = machine.start(write.replace("0x40", "0x44"))
    deadline = time.monotonic() + LIMIT
    while not is_full(pipe, size) or is_at_work(held.pid):
        assert held.poll() is None and time.monotonic() < deadline
        time.sleep(0.001)
    del machine.environment["HWBOARD_LOG"]
    assert machine.hwreg("/PCI /RD 0 0x1e 0 0x48").endswith(":0x00000000\n")
    log = take_log(pipe, held, LIMIT).decode().splitlines()
    os.close(pipe)
    assert held.communicate()[0].endswith(" Data:12345678, return data:0x00000000\n")
    assert "out32 0cf8 8000f044" in log and "out32 0cf8 8000f048" not in log
    kept = [machine.hwreg(f"/MEM /RD {WINDOW + offset:#x}")[-9:-1] for offset in (0x44, 0x48)]
    assert kept == ["00000000", "12345678"]


@pytest.mark.skipif(len(os.sched_getaffinity(0)) < 2, reason="on one processor it takes too long")
@ACCESSES
def test_beside_a_dump_without_a_lock_some_go_wrong(machine, is_right, record_testsuite_property):
    with machine.dumping(()):
        for round_ in range(ROUNDS):
            wrong = machine.count_wrong(is_right, range(round_ * RUNS, (round_ + 1) * RUNS))
            if wrong:
                break
    record_testsuite_property(f"not {is_right.__name__}", f"{wrong} of {RUNS} in round {round_ + 1}")
    assert wrong > 0


@ACCESSES
def test_beside_a_dump_under_flock_none_goes_wrong(machine, is_right):
    undisturbed = machine.hwreg("/PCI /DUMP /NOMSG /LOG")
    with machine.dumping(machine.lock) as dumps, concurrent.futures.ThreadPoolExecutor(WAITING) as waiting:
        shares = [range(first, RUNS, WAITING) for first in range(WAITING)]
        wrong = list(waiting.map(lambda share: machine.count_wrong(is_right, share, machine.lock), shares))
    assert sum(wrong) == 0
    assert len(dumps) > 5  # they did run side by side
    assert set(dumps) == {undisturbed}
