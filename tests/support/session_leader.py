"""The leader of a session on a terminal, for jobs.py: starts a program as a shell does, tells what becomes of it, and
gives the terminal to it or takes it away.

Its first word is the terminal's descriptor, the second that of a socket, the third the job as JSON. It writes a line
to the socket for each change of the program: its number, then "stopped N", "ended STATUS". It takes "f"
(the program gets the terminal) and "b" (the terminal is the leader's); both let the program go on.
"""

import contextlib
import fcntl
import json
import os
import select
import signal
import sys
import termios

DEFAULT = (signal.SIGPIPE, signal.SIGXFSZ, signal.SIGTTOU)  # Python ignores the first two, the leader the last


def become_program(terminal, job):
    if not job["orphan"]:
        os.setpgid(0, 0)
    if job["foreground"]:
        os.tcsetpgrp(terminal, os.getpgrp())
    for number in DEFAULT:
        signal.signal(number, signal.SIG_DFL)
    for number in job["ignored"]:
        signal.signal(number, signal.SIG_IGN)
    signal.pthread_sigmask(signal.SIG_SETMASK, job["blocked"])
    for number in (0, 1, 2):
        os.dup2(terminal, number)
    os.execve(job["executable"], job["command"], {**os.environ, "LD_PRELOAD": job["preload"]})


def take_terminal_away(terminal):
    """Another group gets the terminal; nobody outside of the leader's, in which the program is, waits for that one."""
    sleeper = os.fork()
    if sleeper == 0:
        os.setpgid(0, 0)
        os.tcsetpgrp(terminal, os.getpgrp())
        signal.pause()
    while os.tcgetpgrp(terminal) != sleeper:
        os.sched_yield()
    return sleeper


def told(status):
    if os.WIFSTOPPED(status):
        return f"stopped {os.WSTOPSIG(status)}"
    return f"ended {os.waitstatus_to_exitcode(status)}"


def lead(terminal, talk, program):
    """Until the program has ended, or nobody listens any more."""
    while True:
        if select.select([talk], [], [], 0.002)[0]:
            wish = os.read(talk, 1)
            if not wish:
                os.kill(program, signal.SIGKILL)
                return
            os.tcsetpgrp(terminal, program if wish == b"f" else os.getpgrp())
            os.kill(program, signal.SIGCONT)
        changed, status = os.waitpid(program, os.WUNTRACED | os.WNOHANG)
        if changed:
            os.write(talk, f"{told(status)}\n".encode())
            if not os.WIFSTOPPED(status):
                os.read(talk, 1)  # the session is there until nobody looks at its terminal any more
                return


def main():
    terminal, talk, job = int(sys.argv[1]), int(sys.argv[2]), json.loads(sys.argv[3])
    fcntl.ioctl(terminal, termios.TIOCSCTTY, 0)
    signal.signal(signal.SIGTTOU, signal.SIG_IGN)
    sleeper = take_terminal_away(terminal) if job["orphan"] else None
    program = os.fork()
    if program == 0:
        os.close(talk)
        become_program(terminal, job)
    if not job["orphan"]:
        with contextlib.suppress(PermissionError):  # it has done so itself, and is the program already
            os.setpgid(program, program)
    os.write(talk, f"{program}\n".encode())
    lead(terminal, talk, program)
    if sleeper is not None:
        os.kill(sleeper, signal.SIGKILL)


if __name__ == "__main__":
    main()
