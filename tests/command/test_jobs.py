"""Job control: the program in the foreground of its terminal, stopped, or in the background, where another job has the
terminal and its modes."""

import fcntl
import os
import pty
import select
import signal
import subprocess
import termios
import time

import pytest
from expected import CLOSE
from harness import WRAPPER, processor_time
from power import RUN

pytestmark = pytest.mark.skipif(bool(WRAPPER), reason="the wrapper takes no notice of a stop")

ESC = b"\x1b"
LAST_PAGES = "/MEM /DUMP 0xfffffd00"  # three
LAST_ZEROS = "fill fffffd00 300 00"

# Looks for a key, but does not wait for one. The first two are done with hardware switched, or nothing.
LOOKS = {"/SIO /DUMP /LOG": [], "/PCI /DUMP /LOG": [], "/TIMEOUT /T 2": [RUN], "/RTC 60 /T 3": [RUN]}
# Waits for a key with nothing switched, and what is on the screen by then.
WAITS = {"/MEM /DUMP 0x1000": b"MemAddress:1000", "/IO /DUMP 0x500": b"IoAddress:0500",
         "/PCI /DUMP": b"00  00  00  8086", "/PCI /DUMP 1 0 0": b"01  00  00  144D",
         "/SMBIOS": b"", "/SMBUS /DUMP 0xa4": b"0xA4"}


def stopped(number):
    return f"stopped {int(number)}"


def assert_nothing_was_touched(done):
    done.assert_terminal_is_as_before()
    assert not done.modes_changed


# ---- behind another job: looks for a key ----------------------------------------------------------------------------


@pytest.mark.parametrize("args", LOOKS)
def test_in_the_background_it_runs_to_its_end_as_in_the_foreground(run, job, tmp_path, args):
    alone = run(args, extra=LOOKS[args])
    for foreground in (True, False):
        (tmp_path / "RTCLOG").unlink(missing_ok=True)
        one = job(args, extra=LOOKS[args], foreground=foreground, watched=True)
        one.expect(f"ended {alone.status}")
        assert (one.text(), one.log()) == (alone.text, alone.log)
        assert one.modes_changed == foreground
        one.assert_terminal_is_as_before()


@pytest.mark.parametrize("args", [*LOOKS, "/SIO /DUMP"])
def test_in_the_background_it_leaves_the_keys_to_others(job, args):
    one = job(args, extra=LOOKS.get(args, []))
    one.press(b"\x1b ls\n")
    one.expect("ended 0")
    assert select.select([one.slave], [], [], 0)[0]
    assert os.read(one.slave, 100) == b"\x1b ls\n"


@pytest.mark.parametrize("args", list(LOOKS)[:3])
def test_in_the_background_output_may_stop_it_with_nothing_switched(run, job, args):
    one = job(args, extra=LOOKS[args], tostop=True)
    one.expect(stopped(signal.SIGTTOU))
    if args.startswith("/SIO"):
        assert one.log() == run(args).log[: -len(CLOSE)]  # locked
    one.foreground()
    one.expect("ended 0")
    assert one.text() == run(args, extra=LOOKS[args]).text
    one.assert_terminal_is_as_before()


# ---- behind another job: waits for a key ----------------------------------------------------------------------------


@pytest.mark.parametrize("tostop", [False, True])
def test_in_the_background_a_wait_with_the_chip_unlocked_is_as_by_esc(run, job, tostop):
    escaped = run("/SIO /DUMP", stdin=ESC)
    one = job("/SIO /DUMP", watched=True, tostop=tostop)
    one.expect("ended 0")
    assert (one.text(), one.log()) == (escaped.text, escaped.log)
    assert_nothing_was_touched(one)


@pytest.mark.parametrize("args", WAITS)
def test_in_the_background_a_wait_stops_it_and_goes_on_in_the_foreground(run, job, args):
    one = job(args, watched=True)
    one.expect(stopped(signal.SIGTTIN))
    assert_nothing_was_touched(one)
    assert WAITS[args] in one.screen
    seen = one.screen
    one.foreground()
    one.wait_for_key_wait()
    assert one.screen == seen
    one.press(b" ")
    one.until(lambda: one.screen != seen or one.events)
    assert one.press_to_the_end(ESC) == run(args, stdin=ESC).status
    one.assert_terminal_is_as_before()


def test_a_wait_goes_on_with_the_next_page(run, job):
    one = job("/MEM /DUMP 0x1000")
    one.expect(stopped(signal.SIGTTIN))
    one.foreground()
    for _ in range(2):
        one.wait_for_key_wait()
        one.press(b" ")
    one.until(lambda: one.screen.count(b"continue") == 3)
    one.wait_for_key_wait()
    one.press(ESC)
    one.expect("ended 0")
    whole = run("/MEM /DUMP 0x1000", stdin=b"  \x1b")
    assert (one.text(), one.log()) == (whole.text, whole.log)
    one.assert_terminal_is_as_before()


def test_a_wait_in_the_background_takes_no_key(job):
    one = job("/MEM /DUMP 0x1000")
    one.expect(stopped(signal.SIGTTIN))
    one.press(b"ls\n")
    one.background()
    one.expect(stopped(signal.SIGTTIN))
    assert os.read(one.slave, 100) == b"ls\n"
    one.assert_terminal_is_as_before()


CANNOT_STOP = {"orphan": {"orphan": True}, "ignored": {"ignored": [signal.SIGTTIN]},
               "blocked": {"blocked": [signal.SIGTTIN]}}


@pytest.mark.parametrize("how", CANNOT_STOP)
def test_where_it_cannot_be_stopped_a_wait_is_as_at_the_end_of_input(run, job, how):
    whole = run(LAST_PAGES, extra=LAST_ZEROS)
    one = job(LAST_PAGES, extra=LAST_ZEROS, watched=True, **CANNOT_STOP[how])
    one.expect("ended 0")
    assert (one.text(), one.log()) == (whole.text, whole.log)
    assert_nothing_was_touched(one)


# ---- stopped and continued ------------------------------------------------------------------------------------------


@pytest.mark.parametrize("args", WAITS)
def test_ctrl_z_at_a_wait_then_bg_then_fg(run, job, args):
    one = job(args, foreground=True)
    one.wait_for_key_wait()
    one.press(b"\x1a")
    one.expect(stopped(signal.SIGTSTP))
    one.assert_terminal_is_as_before()
    one.background()
    one.expect(stopped(signal.SIGTTIN))
    one.assert_terminal_is_as_before()
    one.foreground()
    one.wait_for_key_wait()
    assert one.press_to_the_end(ESC) == run(args, stdin=ESC).status
    one.assert_terminal_is_as_before()


@pytest.mark.parametrize("args", ["/MEM /DUMP 0x1000", "/SIO /DUMP"])
def test_stopped_by_force_it_finds_other_modes_and_sets_its_own_again(job, args):
    one = job(args, foreground=True)
    one.wait_for_key_wait()
    one.send(signal.SIGSTOP)
    one.expect(stopped(signal.SIGSTOP))
    assert one.key_mode()
    termios.tcsetattr(one.slave, termios.TCSANOW, one.before)  # as a shell does
    one.foreground()
    one.wait_for_key_wait()
    seen = len(one.screen)
    one.press(b" ")
    one.until(lambda: len(one.screen) > seen)
    one.wait_for_key_wait()
    one.press(ESC)
    one.expect("ended 0")
    one.assert_terminal_is_as_before()


def stop_in_key_mode(one):
    """A countdown is in it for moments alone."""
    while True:
        one.send(signal.SIGSTOP)
        one.expect(stopped(signal.SIGSTOP))
        if one.key_mode():
            return
        one.send(signal.SIGCONT)


@pytest.mark.parametrize("args, background, status", [("/MEM /DUMP 0x1000", [stopped(signal.SIGTTIN)], 0),
                                                      ("/TIMEOUT /T 60", [], 21)])
def test_stopped_by_force_it_puts_back_the_modes_that_nobody_else_did(job, args, background, status):
    one = job(args, foreground=True)
    one.until(one.key_mode)
    stop_in_key_mode(one)
    one.background()
    for event in background:
        one.expect(event)
    assert one.key_mode() or args.startswith("/TIMEOUT")  # may have been about to put them back
    time.sleep(0.1)
    one.foreground()
    one.press(ESC)
    one.expect(f"ended {status}")
    one.assert_terminal_is_as_before()


def test_stopped_by_force_in_the_background_it_puts_back_what_the_shell_has_set_since(job):
    one = job("/MEM /DUMP 0x1000", foreground=True)
    one.wait_for_key_wait()
    stop_in_key_mode(one)
    one.background()
    one.expect(stopped(signal.SIGTTIN))
    assert one.key_mode()
    shells = list(one.before)
    shells[3] ^= termios.ECHOK
    termios.tcsetattr(one.slave, termios.TCSANOW, shells)
    one.foreground()
    one.wait_for_key_wait()
    one.press(ESC)
    one.expect("ended 0")
    assert termios.tcgetattr(one.slave) == shells


@pytest.mark.parametrize("args", ["/MEM /DUMP 0x1000", "/SIO /DUMP"])
@pytest.mark.parametrize("blocked", [[], [signal.SIGCONT], [signal.SIGTERM], [signal.SIGUSR1, signal.SIGTSTP]])
def test_a_signal_that_does_nothing_wakes_a_wait_at_most_once(job, args, blocked):
    one = job(args, foreground=True, blocked=blocked)
    one.wait_for_key_wait()
    for number in (*blocked, signal.SIGCONT, signal.SIGWINCH, signal.SIGCHLD, signal.SIGURG):
        one.send(number)
    before = processor_time(one.pid)
    time.sleep(0.3)
    assert processor_time(one.pid) - before < 0.1
    one.wait_for_key_wait()
    seen = len(one.screen)
    one.press(b" ")
    one.until(lambda: len(one.screen) > seen)
    one.wait_for_key_wait()
    one.press(ESC)
    one.expect("ended 0")
    one.assert_terminal_is_as_before()


@pytest.mark.parametrize("args, event", [("/MEM /DUMP 0x1000", stopped(signal.SIGTTIN)), ("/SIO /DUMP", "ended 0")])
def test_stopped_by_force_and_sent_to_the_background_it_leaves_the_modes_to_the_shell(run, job, args, event):
    one = job(args, foreground=True)
    one.wait_for_key_wait()
    one.send(signal.SIGSTOP)
    one.expect(stopped(signal.SIGSTOP))
    shells = list(one.before)
    shells[3] ^= termios.ECHO | termios.ECHOK
    termios.tcsetattr(one.slave, termios.TCSANOW, shells)
    one.background()
    one.expect(event)
    assert termios.tcgetattr(one.slave) == shells
    if event == "ended 0":  # the chip is locked
        assert one.log() == run(args, stdin=ESC).log


def test_ctrl_z_with_the_chip_unlocked_locks_it_first(run, job):
    escaped = run("/SIO /DUMP", stdin=ESC)
    one = job("/SIO /DUMP", foreground=True)
    one.wait_for_key_wait()
    one.press(b"\x1a")
    one.expect(stopped(signal.SIGTSTP))
    assert one.log() == escaped.log[: -len(CLOSE)]
    one.assert_terminal_is_as_before()
    one.foreground()
    one.expect("ended 0")
    assert one.log() == escaped.log
    assert one.text().replace("^Z", "") == escaped.text


@pytest.mark.parametrize("args, status", [("/TIMEOUT /T 6", 0), ("/RTC 60 /T 6", 0)])
def test_a_countdown_goes_on_in_the_background(job, args, status):
    one = job(args, extra=["cmos-run real 4"], foreground=True)
    one.until(lambda: b"Time: " in one.screen)
    one.press(b"\x1a")
    one.expect(stopped(signal.SIGTSTP))
    one.assert_terminal_is_as_before()
    one.background()
    one.press(ESC)
    one.expect(f"ended {status}")
    one.assert_terminal_is_as_before()
    assert ("system shutdown -P now" in one.log()) == args.startswith("/RTC")


# ---- terminals of others --------------------------------------------------------------------------------------------


def test_the_other_end_of_a_terminal_is_read_whatever_job_is_in_its_foreground(run):
    master, slave = pty.openpty()
    session = subprocess.Popen(["sleep", "60"], stdin=slave, start_new_session=True,
                               preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
    os.write(slave, b" \x1b")
    result = run("/MEM /DUMP 0x1000", stdin=master)
    assert result.text == run("/MEM /DUMP 0x1000", stdin=b" \x1b").text
    session.kill()
    session.wait()
    os.close(master)
    os.close(slave)
