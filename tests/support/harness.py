"""Runs the program on a simulated board and tells what it did.

    def test_read_byte(run):
        result = run("/PCI /RB 0 0 0 0", board="intel")
        assert result.status == 0x86
        assert result.ports() == ["out32 0cf8 80000000", "in8 0cfc -> 86"]

The build folder is $HWREG_BUILD, or build/ at the top of the tree. $HWREG_WRAPPER is a command that runs the program
with its words (valgrind); what it writes to $HWREG_REPORT.* fails the test.
"""

import contextlib
import dataclasses
import fcntl
import itertools
import os
import pathlib
import pty
import re
import select
import shlex
import shutil
import signal
import struct
import subprocess
import termios
import time

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
BOARDS = TOP / "sim" / "boards"

NO_STEP = b"cannot be stepped through"  # the board says so where the processor is emulated

NAMES = ["stdin", "stdout", "stderr"]
CLOSED = "closed"  # for stdin, stdout, stderr: the descriptor is not open at all
WRAPPER = shlex.split(os.environ.get("HWREG_WRAPPER", ""))
SLOWNESS = 10 if WRAPPER else 1  # of the wrapper
LIMIT = 300  # seconds for anything that is waited for: on a busy machine, too, only what hangs takes longer
# Seconds without further output after which a program on a terminal is taken to wait for a key, and the same when there
# has been no output at all since the last key, or the program is still at work: then seconds of its own work, since a
# machine may be busy.
PAUSE = 0.5 if WRAPPER else 0.1
SILENCE = 1.0 * SLOWNESS

# A shell's background jobs ignore the first two, what nohup starts the third, and Python the last.
DEFAULT_SIGNALS = (signal.SIGINT, signal.SIGQUIT, signal.SIGHUP, signal.SIGTERM, signal.SIGPIPE)


@dataclasses.dataclass
class Result:
    """What one run left behind. `status` is the exit code, or minus the signal that ended the process."""

    args: list
    status: int
    out: bytes
    err: bytes
    log: list
    folder: pathlib.Path
    memory_file: pathlib.Path = None
    # on a terminal: settings (as tcgetattr gives them) and status flags (F_GETFL) before and after
    tty_before: list = None
    tty_after: list = None
    flags_before: int = None
    flags_after: int = None
    keys_sent: int = 0  # of those that the terminal fixture was given

    @property
    def text(self):
        return self.out.decode("latin-1")

    def lines(self, *starts):
        """The log lines that begin with one of the words."""
        return [line for line in self.log if line.split(" ", 1)[0].rstrip("0123456789") in starts]

    def ports(self, delays=False):
        """The port accesses, without the writes to the delay port unless asked for."""
        return [line for line in self.lines("in", "out") if delays or not line.startswith("out8 00ed ")]

    def memory_accesses(self):
        """Loads and stores to devices and watched memory."""
        return self.lines("mr", "mw", "ms")

    def maps(self):
        return self.lines("mmap", "munmap")

    def msrs(self):
        return self.lines("pread", "pwrite")

    def systems(self):
        """The shell commands."""
        return [line.removeprefix("system ") for line in self.lines("system")]

    def memory(self, address, length):
        """The board's memory after the run, which was given keep_memory=True."""
        with open(self.memory_file, "rb") as file:
            file.seek(address)
            return file.read(length)


def contents(path):
    """The pages of a sparse file that hold anything but zeros."""
    pages = {}
    with open(path, "rb") as file:
        end, at = os.fstat(file.fileno()).st_size, 0
        while at < end:
            try:
                start = os.lseek(file.fileno(), at, os.SEEK_DATA)
            except OSError:  # no data behind this place
                break
            at = os.lseek(file.fileno(), start, os.SEEK_HOLE)
            for page in range(start & ~0xFFF, at, 0x1000):
                data = os.pread(file.fileno(), 0x1000, page)
                if any(data):
                    pages[page] = data
    return pages


class Timeout(AssertionError):
    """The program did not end in time. `result` holds what it had done by then."""

    def __init__(self, result, seconds):
        super().__init__(f"{result.args} did not end within {seconds} s; output so far: {result.out[-500:]!r}")
        self.result = result


def board_file(folder, board, extra):
    """The path of a board, with further lines in a file of its own that includes it. On a board of sim/boards the clock
    stands still unless a line starts it again, so that a run is like any other."""
    path = pathlib.Path(board)
    lines = [extra] if isinstance(extra, str) else list(extra)
    if path.suffix != ".board":
        path = BOARDS / f"{board}.board"
        lines.insert(0, "cmos-stop")
    if not lines:
        return path
    made = folder / "extended.board"
    made.write_text("\n".join([f'include "{path}"', *lines, ""]))
    return made


class Run:
    """The files and the environment of one run, in a folder of its own."""

    def __init__(self, folder, args, board, extra, keep_memory, program, env, name=None):
        self.folder = folder
        self.words = shlex.split(args) if isinstance(args, str) else [str(word) for word in args]
        self.executable = str(BUILD / program)
        self.command = [self.executable if name is None else name, *self.words]
        self.wrapped = bool(WRAPPER) and program == "hwreg" and name is None
        if self.wrapped:
            self.command = [*WRAPPER, self.executable, *self.words]
            self.executable = shutil.which(WRAPPER[0])
        self.log_file = folder / "access.log"
        self.memory_file = folder / "memory" if keep_memory else None
        self.sanitizer_log = folder / "sanitizer"
        self.environment = {**os.environ, **(env or {})}
        # The board comes before the sanitizer's library; what that one reports goes to a file, not to descriptor 2.
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS"):
            given = self.environment.get(name, "")
            self.environment[name] = (f"{given}:abort_on_error=1:verify_asan_link_order=0:halt_on_error=1:"
                                      f"print_stacktrace=1:log_path={self.sanitizer_log}").lstrip(":")
        self.environment["HWREG_REPORT"] = str(self.sanitizer_log)
        if self.wrapped:
            self.environment["HWBOARD_NO_STEP"] = "1"
        if board is not None:
            self.environment["HWBOARD"] = str(board_file(folder, board, extra))
            self.environment["HWBOARD_LOG"] = str(self.log_file)
            self.environment["LD_PRELOAD"] = str(BUILD / "libhwboard.so")
        if keep_memory:
            self.environment["HWBOARD_MEMFILE"] = str(self.memory_file)

    def result(self, status, out, err, **more):
        log = self.log_file.read_text().splitlines() if self.log_file.exists() else []
        result = Result(self.words, status, out, err, log, self.folder, self.memory_file, **more)
        if self.wrapped and NO_STEP in out + err:
            pytest.skip("the wrapper does not execute single steps, by which device memory is simulated")
        complaints = list(complaints_in(self.folder))
        assert not complaints, complaints[0]
        assert b"runtime error:" not in err, err
        return result


def complaints_in(folder):
    """What a sanitizer or valgrind has reported; the latter also tells of signals that end the program."""
    for path in folder.glob("sanitizer.*"):
        text = path.read_text().split("Process terminating with default action")[0]
        if re.sub(r"(?m)^==\d+== *$", "", text).strip():
            yield text


def prepare_child(closed, terminal, ignored=(), blocked=()):
    """What the child does before it becomes the program. A child that does nothing then starts in half the time: Python
    need not copy itself."""

    def prepare():
        for number in DEFAULT_SIGNALS:
            signal.signal(number, signal.SIG_DFL)
        for number in ignored:
            signal.signal(number, signal.SIG_IGN)
        signal.pthread_sigmask(signal.SIG_BLOCK, blocked)
        if terminal is not None:
            fcntl.ioctl(terminal, termios.TIOCSCTTY, 0)
        for descriptor in closed:
            os.close(descriptor)

    return prepare


def run_program(run, cwd, stdin, stdout, stderr, timeout):
    streams = [stdin, stdout, stderr]
    closed = [number for number, stream in enumerate(streams) if stream is CLOSED]
    if closed and run.wrapped:
        pytest.skip("the wrapper's report would take the place of a closed descriptor")
    given = stdin if isinstance(stdin, bytes) else None
    child = subprocess.Popen(
        run.command,
        executable=run.executable,
        stdin=subprocess.PIPE if given is not None else subprocess.DEVNULL if stdin in (None, CLOSED) else stdin,
        stdout=subprocess.PIPE if stdout is None else subprocess.DEVNULL if stdout is CLOSED else stdout,
        stderr=subprocess.PIPE if stderr is None else subprocess.DEVNULL if stderr is CLOSED else stderr,
        env=run.environment,
        cwd=cwd,
        preexec_fn=prepare_child(closed, None) if closed else None,
    )
    try:
        out, err = child.communicate(given, timeout=timeout)
    except subprocess.TimeoutExpired:
        child.kill()
        out, err = child.communicate()
        raise Timeout(run.result(child.returncode, out or b"", err or b""), timeout) from None
    return run.result(child.returncode, out or b"", err or b"")


def pipe_with_room_for(accesses, path):
    """Makes a named pipe in which the lines of these accesses have room and no other; its descriptor and size."""
    os.mkfifo(path)
    pipe = os.open(path, os.O_RDWR | os.O_NONBLOCK)
    size = fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, 1)  # one page, the least there is
    filling = size - sum(len(line) + 1 for line in accesses)
    assert filling > 0, "too many accesses for one page: leave ports out with `unlogged`"
    os.write(pipe, b"#" * filling)
    return pipe, size


def is_full(pipe, size):
    waiting = bytearray(4)
    fcntl.ioctl(pipe, termios.FIONREAD, waiting)
    return struct.unpack("i", waiting)[0] == size


def take_rest(pipe):
    taken = b""
    while select.select([pipe], [], [], 0)[0]:
        taken += os.read(pipe, 65536)
    return taken


def stop_of(child):
    """The signal that has stopped the process since the last time this was asked, or None."""
    with contextlib.suppress(ChildProcessError):  # it has ended
        if stop := os.waitid(os.P_PID, child.pid, os.WSTOPPED | os.WNOHANG):
            return stop.si_status
    return None


def take_log(pipe, child, timeout):
    """What comes through the pipe until the program has ended. When it stops, that is a line there, and it goes on."""
    log = b""
    deadline = time.monotonic() + timeout
    while child.poll() is None and time.monotonic() < deadline:
        if select.select([pipe], [], [], 0.01)[0]:
            log += os.read(pipe, 65536)
        elif number := stop_of(child):
            log += take_rest(pipe) + f"stopped {number}\n".encode()
            child.send_signal(signal.SIGCONT)
    return (log + take_rest(pipe)).lstrip(b"#")


def is_on_its_way(pid, number):
    """True while a signal has neither acted on the process nor is held back by it."""
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    pending, blocked = (int(re.search(rf"{name}:\t(\w+)", status)[1], 16) for name in ("ShdPnd", "SigBlk"))
    return (pending & ~blocked) >> (number - 1) & 1 == 1


def signal_behind(accesses, number, **options):
    """A runner (see the fixture `run`) that sends the program a signal right behind these accesses. The program goes on
    when the signal has acted, unless it holds it back."""

    def send(child):
        child.send_signal(number)
        deadline = time.monotonic() + LIMIT
        while child.poll() is None and is_on_its_way(child.pid, number) and time.monotonic() < deadline:
            time.sleep(0.0005)
        if WRAPPER:  # it has taken the signal itself
            with contextlib.suppress(subprocess.TimeoutExpired):
                child.wait(0.2)

    return act_behind(accesses, send, **options)


def act_behind(accesses, act, ignored=(), blocked=()):
    """A runner that calls act(child) right behind the accesses with which the log of an undisturbed run begins. The log
    is a pipe that has room for no more than these, so the program waits there; on a busy machine one more access may
    slip through. Where the program stops, the log has a line "stopped N", and it goes on."""
    prepare = prepare_child([], None, ignored, blocked) if ignored or blocked else None

    def go(run, cwd, stdin, stdout, stderr, timeout):
        pipe, size = pipe_with_room_for(accesses, run.log_file)
        child = subprocess.Popen(run.command, executable=run.executable, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=run.environment, cwd=cwd,
                                 process_group=0, preexec_fn=prepare)  # fmt: skip
        try:
            deadline = time.monotonic() + timeout
            while not is_full(pipe, size):
                assert child.poll() is None and time.monotonic() < deadline, "it did not come there"
                time.sleep(0.001)
            act(child)
            log = take_log(pipe, child, timeout)
        finally:
            child.kill()
            out, err = child.communicate()
            os.close(pipe)
        run.log_file.unlink()
        run.log_file.write_bytes(log)
        return run.result(child.returncode, out, err)

    return go


def status_of(process):
    """The fields of its status from the state on; none when it is gone."""
    with contextlib.suppress(FileNotFoundError, ProcessLookupError):
        return pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()
    return []


def children_of(process):
    with contextlib.suppress(FileNotFoundError, ProcessLookupError):
        return pathlib.Path(f"/proc/{process}/task/{process}/children").read_text().split()
    return []


def family_of(process):
    return [process, *(one for child in children_of(process) for one in family_of(child))]


def processor_time(process):
    """Seconds of work that it and its children have done."""
    ticks = (int(text) for one in family_of(process) for text in status_of(one)[11:15])
    return sum(ticks) / os.sysconf("SC_CLK_TCK")


def is_at_work(process):
    """True unless the process sleeps, with no child of its own."""
    return status_of(process)[:1] != ["S"] or children_of(process) != []


def all_sleep(process):
    return all(status_of(one)[:1] == ["S"] for one in family_of(process))


class Terminal:
    """A pseudo-terminal with the program on it."""

    def __init__(self, run, cwd, descriptors, size, typed):
        self.master, self.slave = pty.openpty()
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", *size, 0, 0))
        self.before = termios.tcgetattr(self.slave)
        self.flags_before = fcntl.fcntl(self.slave, fcntl.F_GETFL)
        self.screen = b""
        self.keys_sent = 0
        if typed:
            os.write(self.master, typed)
        self.run = run
        self.files = {number: run.folder / f"descriptor-{number}" for number in (1, 2) if number not in descriptors}
        opened = {number: open(path, "wb") for number, path in self.files.items()}
        self.child = subprocess.Popen(
            run.command,
            executable=run.executable,
            stdin=self.slave if 0 in descriptors else subprocess.DEVNULL,
            stdout=opened.get(1, self.slave),
            stderr=opened.get(2, self.slave),
            env=run.environment,
            cwd=cwd,
            start_new_session=True,
            # The slave is passed on for the controlling terminal and closed again with the rest.
            preexec_fn=prepare_child([], self.slave),
        )
        for file in opened.values():
            file.close()

    def read(self, seconds):
        """Takes output for at most so long; False when there was none."""
        if not select.select([self.master], [], [], seconds)[0]:
            return False
        self.screen += os.read(self.master, 65536)
        return True

    def wait(self, expected, seen, deadline, silence):
        """Until the text has come behind position `seen`, or (a number instead of a text) until output pauses for so
        many seconds. False when the program has ended before."""
        is_text = isinstance(expected, bytes)
        quiet_since, worked = time.monotonic(), processor_time(self.child.pid)
        while time.monotonic() < deadline:
            if is_text and expected in self.screen[seen:]:
                return True
            came = self.read(0.02 if is_text else expected)
            if not came and self.child.poll() is not None:
                return False
            if came:
                quiet_since, worked = time.monotonic(), processor_time(self.child.pid)
            elif not is_text:
                pid = self.child.pid
                asks = len(self.screen) > seen and not is_at_work(pid)
                silent = time.monotonic() - quiet_since if all_sleep(pid) else processor_time(pid) - worked
                if asks or silent > silence:
                    return True
        return False

    def finish(self, deadline):
        while self.child.poll() is None and time.monotonic() < deadline:
            self.read(0.01)
        late = self.child.poll() is None
        if late:
            self.child.kill()
            self.child.wait()
        while self.read(0):
            pass
        after = termios.tcgetattr(self.slave)
        flags_after = fcntl.fcntl(self.slave, fcntl.F_GETFL)
        os.close(self.slave)
        os.close(self.master)
        out = self.files[1].read_bytes() if 1 in self.files else self.screen
        err = self.files[2].read_bytes() if 2 in self.files else b""
        result = self.run.result(
            self.child.returncode,
            out,
            err,
            tty_before=self.before,
            tty_after=after,
            flags_before=self.flags_before,
            flags_after=flags_after,
            keys_sent=self.keys_sent,
        )
        return result, late


def run_terminal(run, cwd, keys, descriptors, size, timeout, typed, silence=SILENCE):
    deadline = time.monotonic() + timeout
    terminal = Terminal(run, cwd, descriptors, size, typed)
    seen = 0
    for item in keys:
        expected, key = item if isinstance(item, tuple) else (PAUSE, item)
        if not terminal.wait(expected, seen, deadline, silence):
            break
        seen = len(terminal.screen)
        if isinstance(key, bytes):
            os.write(terminal.master, key)
        else:
            terminal.child.send_signal(key)
        terminal.keys_sent += 1
    result, late = terminal.finish(deadline)
    if late:
        raise Timeout(result, timeout)
    return result


@pytest.fixture
def new_folder(tmp_path):
    """Gives each run a folder of its own for its log and its like."""
    numbers = itertools.count(1)

    def make():
        folder = tmp_path / f"run-{next(numbers)}"
        folder.mkdir()
        return folder

    return make


@pytest.fixture
def run(tmp_path, new_folder):
    """run(args, board="intel", ...) -> Result

    args         one text, split as a shell does, or a list of words
    board        name of a file in sim/boards, a path of one, or None for the machine itself
    extra        line or lines to add to the board
    stdin        bytes (a pipe that ends behind them), None (/dev/null), CLOSED, or a file
    stdout, stderr  None (taken into the result), CLOSED, or a file
    keep_memory  leaves the board's memory for result.memory(address, length)
    cwd          the test's temporary folder unless given
    program      another program of the build folder
    name         what stands before the words in the argument vector instead of the program's path
    runner       what runs it: run_program or signal_behind(...)
    """

    def go(args="", board="intel", extra=(), stdin=None, stdout=None, stderr=None, keep_memory=False,
           timeout=LIMIT, cwd=None, program="hwreg", env=None, name=None, runner=run_program):
        prepared = Run(new_folder(), args, board, extra, keep_memory, program, env, name)
        return runner(prepared, cwd or tmp_path, stdin, stdout, stderr, timeout)

    return go


@pytest.fixture
def terminal(tmp_path, new_folder):
    """terminal(args, keys=[...], board="intel", ...) -> Result, the program being on a pseudo-terminal

    keys         sent one after the other: bytes or a signal number, each when output pauses, or a pair of the text
                 (bytes) or the length of the pause (seconds) to wait for and what to send then. What is left when
                 the program has ended is not sent.
    descriptors  those of 0, 1, 2 that are the terminal; the others are /dev/null and files
    size         lines and columns
    typed        what was typed before the program was started
    silence      seconds that it may work without output until the next key is sent

    `out` of the result is what came to the screen (with the terminal's "\\r\\n"), or what descriptor 1 got elsewhere;
    `keys_sent` counts the keys that were asked for.
    """

    def go(args="", keys=(), board="intel", extra=(), descriptors=(0, 1, 2), size=(25, 80), keep_memory=False,
           timeout=LIMIT, cwd=None, program="hwreg", env=None, typed=b"", silence=SILENCE):
        prepared = Run(new_folder(), args, board, extra, keep_memory, program, env)
        return run_terminal(prepared, cwd or tmp_path, keys, descriptors, size, timeout, typed, silence)

    return go


__all__ = ["BOARDS", "BUILD", "CLOSED", "LIMIT", "Result", "Timeout", "act_behind", "new_folder", "run", "signal",
           "signal_behind", "terminal"]
