"""Signals, one after the other, while hardware is switched: each waits until everything is put back. And at a wait or a
look for a key with nothing switched: each ends the program with the terminal as it was."""

import signal
import time

import pytest
from expected import CLOSE
from harness import WRAPPER, act_behind, signal_behind

pytestmark = pytest.mark.skipif(bool(WRAPPER), reason="the wrapper takes part in what signals do")

QUIET = ["unlogged 00ed 1", "unlogged 0cf8 8"]  # without delays and searches
STOPPING = [signal.SIGTSTP, signal.SIGTTIN, signal.SIGTTOU]
NOTHING = [signal.SIGCHLD, signal.SIGURG, signal.SIGWINCH, signal.SIGCONT, signal.SIGXFSZ]  # the last is ignored
NOT_HELD = [signal.SIGKILL, signal.SIGSTOP, signal.SIGILL, signal.SIGTRAP, signal.SIGBUS, signal.SIGFPE, signal.SIGSEGV,
            signal.SIGSYS, signal.SIGABRT]  # fmt: skip
ENDING = [number for number in range(1, 65) if number not in (*STOPPING, *NOTHING, *NOT_HELD)]

ENABLE = "mw32 fedc206c 00000001"
HOST = "efa"  # the ports of the SMBus host
START = "out8 efa2 48"
WRITTEN_BACK = "out8 efa0 42"
DIE_1, DIE_0 = "out32 0cfc 00000001", "out32 0cfc 00000000"


def behind(log, line, count=1):
    """How many lines there are up to the one of that number, and with it."""
    at = -1
    for _ in range(count):
        at = log.index(line, at + 1)
    return at + 1


def until_locked(log):
    return log[: -len(CLOSE)]


class State:
    """Hardware is switched behind some accesses of a command: how many, by the log of an undisturbed run, and what the
    log of a run has when everything is put back."""

    def __init__(self, args, where, back=until_locked, board="intel", extra=(), keys=None, quiet=QUIET):
        self.args, self.where, self.back, self.board, self.extra = args, where, back, board, [*quiet, *extra]
        self.keys = keys  # a wait for a key ends as by them
        self.wholes = {}

    def __str__(self):
        return self.args

    def whole(self, run, stdin=None):
        """The undisturbed run, made once."""
        if stdin not in self.wholes:
            self.wholes[stdin] = run(self.args, board=self.board, extra=self.extra, stdin=stdin)
        return self.wholes[stdin]

    def runs(self, run, runner, number, **options):
        """A run for each place, with what its log has up to the end of the state, and after it."""
        log = self.whole(run).log
        for place in self.where(log):
            result = run(self.args, board=self.board, extra=self.extra, runner=runner(log[:place], number, **options))
            ended = self.whole(run, self.keys)
            put_back = self.back(ended.log) if self.back is until_locked else self.back(ended.log, place)
            yield result, put_back, ended


def unlocked(log):
    """Behind the first key, the second, and the last access before the lock."""
    return [behind(log, "out8 004e a5"), behind(log, "out8 004e a5", 2), min(behind(log, "out8 004e aa") - 1, 200)]


def transaction(log):
    """Behind the start and the first poll of the first transaction, and behind the last start that fits."""
    first = behind(log, START)
    last = max(at for at, line in enumerate(log[:150]) if line == START) + 1
    return sorted({first, first + 1, last})


def transaction_ended(log, place):
    return log[: behind(log[place:], WRITTEN_BACK) + place]


def pages(log):
    """Only the addresses of the transactions are in the log: some of page 0, then some of page 1."""
    page_1 = behind(log, "out8 efa4 6e")
    return [behind(log, "out8 efa4 6c") + 20, page_1, page_1 + 5]


def enabled(log):
    return [behind(log, ENABLE), behind(log, ENABLE) + 1]


def selected(log):
    """Behind the selection of the die, of the register, and behind the last access before the die is set back."""
    return [behind(log, DIE_1), behind(log, DIE_1) + 2, behind(log, DIE_0) - 1]


def set_back(log, place):
    return log[: behind(log[place:], DIE_0) + place]


ESC = b"\x1b"
ADDRESSES = ["unlogged efa0 4", "unlogged efa5 3"]
SIO = [State(f"/SIO {words}", unlocked) for words in
       ("/DUMP /LOG /TEXT", "/RB 0x20", "/WB 0x24 0x5a", "/RI 0x23 6", "/WI 0x24 4 1", "")] + [
      State("/SIO /DUMP /TEXT", unlocked, keys=ESC)]  # fmt: skip
SMBUS = [State(f"/SMBUS {words}", transaction, transaction_ended) for words in
         ("/RB 0xa0 2", "/WB 0xa0 2 5", "/S 0xa0 0xa4", "/DUMP 0xa4")] + [
        State("/SMBUS /DUMP 0xa2", pages, extra=ADDRESSES)]  # fmt: skip
I2C = [State(f"/I2C {words}", enabled, board="amd") for words in ("/RB 0 0x50 1", "/WB 0 0x50 1 2")]
SMN = [State(f"/SMN {words}", selected, set_back, board="amd", quiet=QUIET[:1]) for words in
       ("/RD 1 0x18000", "/WB 1 0x18000 7 /WD")]  # fmt: skip
STATES = [*SIO, *SMBUS, *I2C, *SMN]


@pytest.mark.parametrize("number", ENDING)
@pytest.mark.parametrize("state", STATES, ids=str)
def test_a_signal_waits_until_everything_is_put_back_and_then_ends_the_program(run, state, number):
    for result, put_back, _ in state.runs(run, signal_behind, number):
        assert (result.status, result.err) == (-number, b"")
        assert result.log == put_back


@pytest.mark.parametrize("number", STOPPING)
@pytest.mark.parametrize("state", STATES, ids=str)
def test_a_stop_waits_until_everything_is_put_back_and_the_program_goes_on_behind_it(run, state, number):
    for result, put_back, ended in state.runs(run, signal_behind, number):
        assert result.log == [*put_back, f"stopped {int(number)}", *ended.log[len(put_back) :]]
        assert (result.text, result.status, result.err) == (ended.text, ended.status, b"")


def sent_behind(accesses, number, **options):
    return act_behind(accesses, lambda child: child.send_signal(number), **options)


@pytest.mark.parametrize("number", NOTHING)
@pytest.mark.parametrize("state", STATES, ids=str)
def test_a_signal_that_ends_nothing_changes_nothing(run, state, number):
    whole = state.whole(run)
    for result, _, _ in state.runs(run, sent_behind, number):
        assert (result.log, result.text, result.status) == (whole.log, whole.text, whole.status)


@pytest.mark.parametrize("how", ["ignored", "blocked"])
@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGHUP, signal.SIGTERM, signal.SIGTSTP, signal.SIGTTIN,
                                    signal.SIGPIPE, signal.SIGUSR1, 34, 64])
@pytest.mark.parametrize("state", [SIO[0], SIO[-1], SMBUS[0], SMBUS[-1], I2C[0], SMN[0]], ids=str)
def test_one_that_was_ignored_or_blocked_from_the_start_changes_nothing(run, state, number, how):
    whole = state.whole(run)
    for result, _, _ in state.runs(run, sent_behind, number, **{how: [number]}):
        assert (result.log, result.text, result.status) == (whole.log, whole.text, whole.status)


# ---- nothing is switched --------------------------------------------------------------------------------------------


def assert_ended_with_the_terminal_as_it_was(result, number):
    assert result.status == -number
    assert (result.tty_after, result.flags_after) == (result.tty_before, result.flags_before)


@pytest.mark.parametrize("number", ENDING)
def test_each_ends_a_wait_for_a_key(terminal, number):
    result = terminal("/MEM /DUMP 0x1000", keys=[(b"\r\r\n", number)])
    assert_ended_with_the_terminal_as_it_was(result, number)


@pytest.mark.parametrize("number", [signal.SIGUSR1, signal.SIGALRM, signal.SIGPROF, signal.SIGPWR, 32, 33, 34, 64])
@pytest.mark.parametrize("moment", [0, 0.01, 0.02, 0.03])
def test_each_ends_a_countdown(job, number, moment):
    one = job("/TIMEOUT /T 100", foreground=True)
    one.until(lambda: b"Time: " in one.screen)
    one.press(b"x")
    time.sleep(moment)
    one.send(number)
    one.expect(f"ended {-number}")
    one.assert_terminal_is_as_before()
