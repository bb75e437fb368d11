"""Two programs on one machine: without the lock one comes between the steps of the other, with it none does.

The machine is a board whose registers several runs of hwreg share. One of them is held up between two of its accesses:
its log is a pipe that takes no more lines.
"""

import concurrent.futures
import contextlib
import dataclasses
import fcntl
import os
import signal
import subprocess
import sys
import time
from collections.abc import Callable

import pytest

from harness import BOARDS, BUILD, TOP, is_at_work, is_full, pipe_with_room_for
from hwreg import Local, Machine, Sim, TimedOut

SECONDS = 300
RUNS = 400
WAITING = 16  # reads or writes that wait for the lock at a time: a dump has it for long
SCRATCH = ["pci 00:1e.0 8086:5c5c class 118000"] + [f"dword {0x40 + 4 * i:x} 0 rw ffffffff" for i in range(WAITING)]
WINDOW = 0xE00F0000  # shows these registers without the ports


class Bench:
    """A machine that several programs use, and a lock file."""

    def __init__(self, folder, board, lines):
        self.folder = folder
        self.lock = str(folder / "lock")
        (folder / "shared.board").write_text("\n".join([f'include "{BOARDS}/{board}.board"', *lines, ""]))

    def program(self, name, log=""):
        """A program that is hwreg on the board, and writes the number of its process."""
        path = self.folder / name
        path.write_text(f"#!/bin/sh\necho $$ >'{path}.pid'\nexec env LD_PRELOAD='{BUILD}/libhwboard.so' "
                        f"HWBOARD='{self.folder}/shared.board' HWBOARD_REGISTERS='{self.folder}/registers' "
                        f"HWBOARD_LOG='{log}' '{BUILD}/hwreg' \"$@\"\n")  # fmt: skip
        path.chmod(0o755)
        return str(path)

    def machine(self, lock=True, name="program", log="/dev/null"):
        return Machine(Local(self.program(name, log)), lock=self.lock if lock else None, timeout=SECONDS)

    def is_held(self):
        with open(self.lock, "a", encoding="ascii") as file:
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                return True
        return False


def wait_for(condition):
    deadline = time.monotonic() + SECONDS
    while not condition():
        assert time.monotonic() < deadline
        time.sleep(0.002)


@dataclasses.dataclass
class Pair:
    """A write that is held up before an access, what another program asks meanwhile, and where to look afterwards."""

    name: str
    board: str
    lines: list
    write: Callable
    before: str
    other: Callable
    answer: int
    look: Callable
    written: int


PAIRS = [
    Pair("CF8h and CFCh", "intel", SCRATCH,
         lambda m: m.pci.write(0, 0x1E, 0, 0x44, 0x12345678, 32), "out32 0cfc 12345678",
         lambda m: m.pci.read(0, 0x1E, 0, 0x48, 32), 0, lambda m: m.memory.read(WINDOW + 0x44, 32), 0x12345678),
    Pair("70h and 71h", "intel", ["cmos-bytes 40 11 22"],
         lambda m: m.index.write(0x70, 0x71, 0x40, 0x5A), "out8 0071 5a",
         lambda m: m.index.read(0x70, 0x71, 0x41), 0x22, lambda m: m.index.read(0x70, 0x71, 0x40), 0x5A),
    Pair("4Eh and 4Fh", "intel", ["superio-global 2a 00"],
         lambda m: m.superio.write(0x2A, 0x5A), "out8 004f 5a",
         lambda m: m.superio.read(0x20), 0x87, lambda m: m.superio.read(0x2A), 0x5A),
    Pair("SMBus host", "intel", ["unlogged cf8 8", "unlogged ed 1"],
         lambda m: m.smbus.write(0xA4, 0x10, 0x5A), "out8 efa2 48",
         lambda m: m.smbus.read(0xA0, 2), 0x0C, lambda m: m.smbus.read(0xA4, 0x10), 0x5A),
    Pair("SMN", "amd", ["smn-register 0 18000 11223344"],
         lambda m: m.smn.write(0, 0x18000, 0x12345678), "out32 0cfc 12345678",
         lambda m: m.smn.read(0, 0x5A86C), 0x815, lambda m: m.smn.read(0, 0x18000), 0x12345678),
]  # fmt: skip


@contextlib.contextmanager
def held_up(bench, pair, lock):
    """The write, in a thread, has come to its access and no further; gives a call that lets it go on."""
    rehearsal = Bench(bench.folder / "rehearsal", pair.board, pair.lines)
    pair.write(rehearsal.machine(log=str(bench.folder / "undisturbed")))
    lines = (bench.folder / "undisturbed").read_text().splitlines()
    path = bench.folder / "pipe"
    pipe, size = pipe_with_room_for(lines[: lines.index(pair.before)], path)
    writer = bench.machine(lock, "writer", str(path))
    with concurrent.futures.ThreadPoolExecutor(1) as pool:
        value = pool.submit(pair.write, writer)
        try:
            wait_for(lambda: is_full(pipe, size))
            wait_for(lambda: not is_at_work(int((bench.folder / "writer.pid").read_text())))
            yield lambda: outcome(value, pipe)
        finally:
            outcome(value, pipe)
            os.close(pipe)


def outcome(value, pipe):
    """What the write gives when its log is read."""
    while not value.done():
        with contextlib.suppress(BlockingIOError):
            os.read(pipe, 65536)
        time.sleep(0.001)
    return value.result()


@pytest.fixture
def bench(tmp_path, request):
    (tmp_path / "rehearsal").mkdir()
    return Bench(tmp_path, request.param.board, request.param.lines), request.param


BENCHES = pytest.mark.parametrize("bench", PAIRS, ids=[pair.name for pair in PAIRS], indirect=True)


@BENCHES
def test_without_the_lock_a_write_goes_elsewhere(bench):
    bench, pair = bench
    other = bench.machine(lock=False)
    with held_up(bench, pair, lock=False) as go_on:
        assert pair.other(other) == pair.answer
        go_on()
    assert pair.look(other) != pair.written


@BENCHES
def test_with_the_lock_the_other_waits_and_both_are_right(bench):
    bench, pair = bench
    other = bench.machine()
    with concurrent.futures.ThreadPoolExecutor(1) as pool, held_up(bench, pair, lock=True) as go_on:
        answer = pool.submit(pair.other, other)
        with pytest.raises(TimeoutError):
            answer.result(0.3)
        assert bench.is_held() and not (bench.folder / "program.pid").exists()
        assert go_on() == pair.written
        assert answer.result() == pair.answer
    assert pair.look(other) == pair.written and not bench.is_held()


CLOCK = dataclasses.replace(PAIRS[1], lines=[*PAIRS[1].lines, "cmos-run real"])


@pytest.mark.parametrize("bench", [CLOCK], ids=["70h and 71h"], indirect=True)
def test_a_countdown_outside_of_the_lock_leads_a_write_into_the_clock(bench):
    bench, pair = bench
    other = bench.machine()
    with held_up(bench, pair, lock=True) as go_on:
        other.rtc.countdown(1)
        go_on()
    assert pair.look(other) == 0x11
    assert other.index.read(0x70, 0x71, 0) == 0x5A  # the seconds


# ---- two programs that go on and on

PRELUDE = """
import sys
from hwreg import Local, Machine, Sim
"""
DUMP = PRELUDE + """
machine = Machine(Local(sys.argv[1]), lock=sys.argv[2])
while True:
    print(hash(tuple(machine.pci.functions())), flush=True)
"""


def script(text, *operands, **options):
    environment = {**os.environ, "PYTHONPATH": str(TOP / "python"), "PYTHONHASHSEED": "0"}
    return subprocess.Popen([sys.executable, "-c", text, *operands], env=environment, stdout=subprocess.PIPE, text=True,
                            **options)  # fmt: skip


def reads_right(machine, _number):
    return machine.pci.read(0, 0, 0, 0, 32) == 0x3E308086


def writes_right(machine, number):
    """Whether the register holds a value that it did not hold before."""
    offset = 0x40 + 4 * (number % WAITING)
    return machine.pci.write(0, 0x1E, 0, offset, number + 1, 32) == number + 1


@pytest.mark.parametrize("is_right", [reads_right, writes_right])
def test_beside_a_running_dump_every_access_is_right(tmp_path, is_right):
    bench = Bench(tmp_path, "intel", SCRATCH)
    machine = bench.machine()
    assert is_right(machine, 0)
    with script(DUMP, bench.program("dump"), bench.lock) as dump:
        try:
            with concurrent.futures.ThreadPoolExecutor(WAITING) as waiting:
                right = list(waiting.map(lambda number: is_right(machine, number), range(RUNS)))
        finally:
            dump.kill()
            shown = dump.communicate()[0].split()
    assert right == [True] * RUNS
    assert len(shown) > 5 and len(set(shown)) == 1  # they did run side by side


COUNT = PRELUDE + """
machine = Machine(Sim("intel", state=sys.argv[1]))
for bit in range(int(sys.argv[2]), 32, 2):
    assert machine.memory.write_bit(0x2000, bit, 1)
    machine.index.write(0x70, 0, 0x40, bit)
    assert machine.superio.read(0x20) == 0x87
"""


def test_two_scripts_share_a_simulated_machine(tmp_path):
    scripts = [script(COUNT, str(tmp_path / "machine"), number) for number in "01"]
    assert [run.wait(SECONDS) for run in scripts] == [0, 0]
    assert Machine(Sim("intel", state=tmp_path / "machine")).memory.read(0x2000, 32) == 0xFFFFFFFF


# ---- scripts that end too soon

ONE = PRELUDE + """
Machine(Local(sys.argv[1]), lock=sys.argv[2]).io.read(0x80, 8)
"""


def slow_program(folder):
    """Runs until a signal ends it."""
    path = folder / "slow"
    path.write_text(f"#!/bin/sh\necho $$ >'{path}.new'\nmv '{path}.new' '{path}.pid'\nexec sleep 600\n")
    path.chmod(0o755)
    return path


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGKILL])
def test_the_lock_is_held_as_long_as_hwreg_runs_and_no_longer(tmp_path, number):
    bench, slow = Bench(tmp_path, "intel", []), slow_program(tmp_path)
    with script(ONE, str(slow), bench.lock, stderr=subprocess.DEVNULL) as run:
        wait_for((tmp_path / "slow.pid").exists)
        assert bench.is_held()
        run.send_signal(number)
        run.wait(SECONDS)
        if number != signal.SIGINT:  # hwreg is let end, under the lock; Ctrl+C ends it, too
            assert bench.is_held()
            os.kill(int((tmp_path / "slow.pid").read_text()), signal.SIGTERM)
        wait_for(lambda: not bench.is_held())


def test_an_exception_ends_hwreg_and_gives_the_lock_back(tmp_path):
    bench, slow = Bench(tmp_path, "intel", []), slow_program(tmp_path)
    with pytest.raises(TimedOut, match="ended after 0.5 s"):
        Machine(Local(str(slow)), lock=bench.lock, timeout=0.5).io.read(0x80, 8)
    assert not bench.is_held()


def test_who_does_not_get_the_lock_gives_up(tmp_path):
    bench = Bench(tmp_path, "intel", [])
    with open(bench.lock, "a", encoding="ascii") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        machine = bench.machine()
        machine.timeout = 0.2
        with pytest.raises(TimedOut, match="lock was held by somebody else for 0.2 s"):
            machine.io.read(0x80, 8)
        with pytest.raises(TimedOut, match="held by somebody else"):
            machine.memory.dump(0, 16)
    assert not (tmp_path / "program.pid").exists()


def test_util_linux_flock_and_the_package_keep_each_other_out(tmp_path):
    bench = Bench(tmp_path, "intel", [])
    with (subprocess.Popen(["flock", bench.lock, "cat"], stdin=subprocess.PIPE) as other,
          concurrent.futures.ThreadPoolExecutor(1) as pool):
        wait_for(bench.is_held)
        value = pool.submit(bench.machine().io.read, 0x61, 8)
        with pytest.raises(TimeoutError):
            value.result(0.3)
        assert not (tmp_path / "program.pid").exists()
        other.stdin.close()
        assert value.result() == 0x10


def test_a_countdown_does_not_hold_the_lock(tmp_path):
    bench = Bench(tmp_path, "intel", ["cmos-run real"])
    machine = bench.machine()
    machine.power = True
    with concurrent.futures.ThreadPoolExecutor(1) as pool, open(bench.lock, "a", encoding="ascii") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        done = pool.submit(machine.rtc.restart, delay=1, folder=str(tmp_path))
        try:
            wait_for((tmp_path / "program.pid").exists)  # it runs while somebody else has the lock
        finally:
            fcntl.flock(file, fcntl.LOCK_UN)
    assert done.result() == 1
