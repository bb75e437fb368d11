"""The program as a job of a session: in the foreground of its terminal, or behind another job.

    def test_a_wait_stops(job):
        dump = job("/MEM /DUMP 0x1000")
        dump.expect("stopped 21")
        dump.foreground()
"""

import contextlib
import fcntl
import json
import os
import pathlib
import pty
import select
import socket
import subprocess
import sys
import termios
import time

import pytest

from harness import LIMIT, Run, status_of

LEADER = pathlib.Path(__file__).with_name("session_leader.py")
EXTPROC = 0x10000  # the terminal tells its master of each change of its modes (ioctl_tty(2), "TIOCPKT")
TIOCPKT_IOCTL = 0x40


class Job:
    """The program, its terminal and the leader of its session."""

    def __init__(self, run, cwd, foreground=False, orphan=False, ignored=(), blocked=(), tostop=False, watched=False):
        self.run = run
        self.master, self.slave = pty.openpty()
        self.watched = watched
        self.modes_changed = False
        self.screen = b""
        self.events = []
        self.change_modes(tostop)
        self.before = termios.tcgetattr(self.slave)
        self.flags_before = fcntl.fcntl(self.slave, fcntl.F_GETFL)
        self.talk, leaders = socket.socketpair()
        job = {"executable": run.executable, "command": run.command, "foreground": foreground, "orphan": orphan,
               "ignored": list(ignored), "blocked": list(blocked), "preload": run.environment["LD_PRELOAD"]}
        self.leader = subprocess.Popen(
            [sys.executable, LEADER, str(self.slave), str(leaders.fileno()), json.dumps(job)], cwd=cwd,
            env=run.environment | {"LD_PRELOAD": ""}, start_new_session=True,
            pass_fds=[self.slave, leaders.fileno()])  # fmt: skip
        leaders.close()
        self.pid = int(self.next_event())

    def change_modes(self, tostop):
        modes = termios.tcgetattr(self.slave)
        if tostop:
            modes[3] |= termios.TOSTOP
        if self.watched:
            modes[3] |= EXTPROC
        termios.tcsetattr(self.slave, termios.TCSANOW, modes)
        if self.watched:
            fcntl.ioctl(self.master, termios.TIOCPKT, b"\1\0\0\0")

    def take_screen(self):
        data = os.read(self.master, 65536)
        if self.watched:
            self.modes_changed |= bool(data[0] & TIOCPKT_IOCTL)
            data = data[1:] if data[0] == 0 else b""
        self.screen += data

    def look(self, seconds):
        """Takes what comes to the screen or from the leader within the time."""
        ready = select.select([self.master, self.talk], [], [], seconds)[0]
        if self.master in ready:
            self.take_screen()
        if self.talk in ready:
            self.events += self.talk.recv(4096).decode().split("\n")[:-1]

    def until(self, condition):
        deadline = time.monotonic() + LIMIT
        while not condition():
            assert time.monotonic() < deadline, f"{self.events} {self.screen[-300:]!r}"
            self.look(0.005)

    def next_event(self):
        self.until(lambda: self.events)
        return self.events.pop(0)

    def expect(self, event):
        """The next change of the program is this one."""
        assert self.next_event() == event
        self.take_rest()

    def take_rest(self):
        while select.select([self.master], [], [], 0)[0]:
            self.take_screen()

    def key_mode(self):
        """True while lines and echo are off."""
        return termios.tcgetattr(self.slave)[3] & (termios.ICANON | termios.ECHO) == 0

    def is_asleep(self):
        return status_of(self.pid)[:1] == ["S"]

    def wait_for_key_wait(self):
        self.until(lambda: self.key_mode() and self.is_asleep())
        self.take_rest()

    def press_to_the_end(self, key):
        """At each wait for a key the same one; gives the exit status."""
        while True:
            self.until(lambda: self.events or self.key_mode() and self.is_asleep())
            if self.events:
                return int(self.next_event().removeprefix("ended "))
            self.press(key)
            self.look(0.02)

    def assert_terminal_is_as_before(self):
        assert termios.tcgetattr(self.slave) == self.before
        assert fcntl.fcntl(self.slave, fcntl.F_GETFL) == self.flags_before

    def press(self, keys):
        os.write(self.master, keys)

    def foreground(self):
        self.talk.send(b"f")

    def background(self):
        self.talk.send(b"b")

    def send(self, number):
        os.kill(self.pid, number)

    def log(self):
        return self.run.log_file.read_text().splitlines()

    def text(self):
        return self.screen.decode("latin-1").replace("\r\n", "\n")

    def close(self):
        self.talk.close()
        with contextlib.suppress(subprocess.TimeoutExpired):
            self.leader.wait(20)
        self.leader.kill()
        self.leader.wait()
        os.close(self.slave)
        os.close(self.master)


@pytest.fixture
def job(tmp_path, new_folder):
    """job(args, board="intel", extra=(), ...) -> Job, started

    foreground   it has the terminal; else the leader has
    orphan       nobody could let it go on after a stop; another job has the terminal
    ignored, blocked  signals, from the start
    tostop       writing stops a background job
    watched      the terminal tells of each change of its modes (and no key is more than a byte)
    """
    jobs = []

    def go(args, board="intel", extra=(), cwd=None, **options):
        run = Run(new_folder(), args, board, extra, False, "hwreg", None)
        jobs.append(Job(run, cwd or tmp_path, **options))
        return jobs[-1]

    yield go
    for one in jobs:
        one.close()


__all__ = ["job"]
