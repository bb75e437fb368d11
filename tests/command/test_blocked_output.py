"""Nobody takes what the program prints: one signal ends it all the same, with the hardware put back."""

import contextlib
import fcntl
import os
import pathlib
import pty
import re
import select
import signal
import socket
import subprocess
import termios
import time

import pytest
from expected import CLOSE
from harness import LIMIT, SLOWNESS, WRAPPER, Run, stop_of, take_rest

SOON = 10 * SLOWNESS  # after a signal: 1 to 70 ms, but for what a busy machine puts in between


@contextlib.contextmanager
def full_pipe():
    reading, writing = os.pipe()
    fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, 4096)
    os.write(writing, b"#" * 4096)
    yield reading, writing
    os.close(reading)
    os.close(writing)


@contextlib.contextmanager
def full_socket():
    """Without a byte of room: what is left is less than any write takes."""
    reading, writing = socket.socketpair()
    writing.setblocking(False)
    for size in (4096, 64, 1):
        with contextlib.suppress(BlockingIOError):
            while True:
                writing.send(b"#" * size)
    writing.setblocking(True)
    yield reading.fileno(), writing.fileno()
    reading.close()
    writing.close()


@contextlib.contextmanager
def stopped_terminal():
    """As by Ctrl+S."""
    master, slave = pty.openpty()
    termios.tcflow(slave, termios.TCOOFF)
    yield master, slave
    os.close(slave)
    os.close(master)


FULL = {"pipe": full_pipe, "socket": full_socket, "terminal": stopped_terminal}
FORMS = {"/SIO /DUMP /LOG": "intel", "/SIO /DUMP": "intel", "/SIO /RB 0x20": "intel", "/I2C /RB 0 0x50 1": "amd"}


class Blocked:
    """The program with its input from a terminal, so that a view waits for a key; its output is full."""

    def __init__(self, run, cwd, output):
        self.run = run
        self.reading, self.writing = output
        self.keys, terminal = pty.openpty()
        self.child = subprocess.Popen(
            run.command, executable=run.executable, stdin=terminal, stdout=self.writing, stderr=subprocess.PIPE,
            env=run.environment, cwd=cwd, process_group=0)  # fmt: skip
        os.close(terminal)

    def log(self):
        return self.run.log_file.read_text().splitlines() if self.run.log_file.exists() else []

    def status(self):
        return pathlib.Path(f"/proc/{self.child.pid}/status").read_text()

    def wait_until_it_hangs(self, enough):
        """Until so many accesses are in the log, and then for it to sleep over the output."""
        deadline = time.monotonic() + LIMIT
        quiet = 0
        while quiet < 20:  # it looks for signals now and then
            assert time.monotonic() < deadline and self.child.poll() is None
            time.sleep(0.005)
            asleep = re.search(r"State:\t(\w)", self.status())[1] == "S"
            quiet = quiet + 1 if asleep and len(self.log()) >= enough else 0

    def end(self, number):
        """Sends the signal; seconds until the program has ended."""
        before = time.monotonic()
        self.child.send_signal(number)
        self.child.wait(LIMIT)
        return time.monotonic() - before

    def close(self):
        self.child.kill()
        self.child.communicate()
        os.close(self.keys)


@pytest.fixture
def blocked(tmp_path, new_folder):
    with contextlib.ExitStack() as stack:

        def go(args, kind):
            run = Run(new_folder(), args, FORMS[args], [], False, "hwreg", None)
            one = Blocked(run, tmp_path, stack.enter_context(FULL[kind]()))
            stack.callback(one.close)
            return one

        yield go


def whole_run(run, args):
    """The run with somebody who reads: the view that waits for a key ends by ESC."""
    return run(args, board=FORMS[args], stdin=b"\x1b" if args == "/SIO /DUMP" else None)


def reaches(whole, args):
    """The accesses with which it comes to the full output: it still has to lock the chip where a key is waited for."""
    return len(whole.log) - len(CLOSE) - (1 if args == "/SIO /DUMP" else 0)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT])
@pytest.mark.parametrize("kind", FULL)
@pytest.mark.parametrize("args", FORMS)
def test_one_signal_ends_it_with_everything_put_back(run, blocked, record_property, args, kind, number):
    whole = whole_run(run, args)
    one = blocked(args, kind)
    flags = fcntl.fcntl(one.writing, fcntl.F_GETFL)
    one.wait_until_it_hangs(reaches(whole, args))
    took = one.end(number)
    record_property("seconds", took)
    assert (one.child.returncode, one.log()) == (-number, whole.log[: -len(CLOSE)])
    assert fcntl.fcntl(one.writing, fcntl.F_GETFL) == flags
    assert took < SOON


@pytest.mark.parametrize("args", FORMS)
def test_once_locked_it_waits_for_the_reader_as_any_program(run, blocked, args):
    whole = whole_run(run, args)
    one = blocked(args, "pipe")
    one.wait_until_it_hangs(reaches(whole, args))
    assert one.log() == whole.log[: reaches(whole, args)]


@pytest.mark.skipif(bool(WRAPPER), reason="the wrapper takes no notice of a stop")
@pytest.mark.parametrize("kind", ["pipe", "socket"])
@pytest.mark.parametrize("args", FORMS)
def test_a_stop_then_a_reader_all_text_arrives(run, blocked, args, kind):
    whole = whole_run(run, args)
    one = blocked(args, kind)
    flags = fcntl.fcntl(one.writing, fcntl.F_GETFL)
    one.wait_until_it_hangs(reaches(whole, args))
    one.child.send_signal(signal.SIGTSTP)
    deadline = time.monotonic() + LIMIT
    while stop_of(one.child) is None:
        assert time.monotonic() < deadline
    assert one.log() == whole.log[: -len(CLOSE)]
    assert fcntl.fcntl(one.writing, fcntl.F_GETFL) == flags
    one.child.send_signal(signal.SIGCONT)
    text = b""
    while one.child.poll() is None and time.monotonic() < deadline:
        if select.select([one.reading], [], [], 0.01)[0]:
            text += os.read(one.reading, 65536)
    text = (text + take_rest(one.reading)).lstrip(b"#")
    assert (text.decode("latin-1"), one.child.returncode, one.log()) == (whole.text, whole.status, whole.log)


@pytest.mark.parametrize("kind", ["pipe", "socket"])
def test_a_slow_reader_gets_the_view_before_the_key_is_asked_for(run, blocked, kind):
    whole = whole_run(run, "/SIO /DUMP")
    one = blocked("/SIO /DUMP", kind)
    one.wait_until_it_hangs(reaches(whole, "/SIO /DUMP"))
    text = b""
    deadline = time.monotonic() + LIMIT
    while len(text.lstrip(b"#")) < len(whole.out) and time.monotonic() < deadline:
        if select.select([one.reading], [], [], 0.01)[0]:
            text += os.read(one.reading, 100)
    assert text.lstrip(b"#") == whole.out
    assert one.child.poll() is None
    os.write(one.keys, b"\x1b")
    assert one.child.wait(LIMIT) == 0
    assert one.log() == whole.log


