"""Where in a run hardware is switched, by the table of docs/commands.txt (SIGNALS), and so where a signal ends the run.

Places are counts of accesses: 3 is behind the third line of the log.
"""

import re

ENDING = [1, 2, 3, 10, 12, 13, 14, 15, 16, 24, 26, 27, 29, 30, *range(32, 65)]
STOPPING = [20, 21, 22]
NOTHING = [17, 18, 23, 28]
FILE_SIZE = 25  # SIGXFSZ

LOCK = "out8 004e aa"
HOST = "(efa|0b0)"  # the ports of Intel's and AMD's SMBus host
DELAY = "out8 00ed 00"


def ending_nothing(access):
    """The signals that change nothing behind an access. A command of the shell starts with SIGXFSZ as it was before the
    program, which ignores it at all other times."""
    return NOTHING if access.startswith("system ") else [*NOTHING, FILE_SIZE]



def find(log, pattern, start=0):
    """The place of the next line that matches, or None."""
    return next((at for at in range(start, len(log)) if re.match(pattern, log[at])), None)


def with_delays(log, at):
    """The place of the first of the delays that stand before a line."""
    while at > 0 and log[at - 1] == DELAY:
        at -= 1
    return at


def super_io(log):
    """From the first key until the chip is locked."""
    start = find(log, "out8 004e a5$")
    return [] if start is None else [(start + 1, locked(log))]


def locked(log):
    """The place behind the lock. A register of that number is selected in the same way before."""
    return max(at for at, line in enumerate(log) if line == LOCK) + 1


def transaction_end(log, start):
    """Behind the line that clears the status, and what follows when the transaction has failed."""
    end = find(log, f"out8 {HOST}0 ", start)
    if end is not None and end + 1 < len(log) and re.match(f"in8 {HOST}2 ", log[end + 1]):
        end = find(log, f"out8 {HOST}2 81$", end)
    return end + 1


def smbus(log):
    """Each transaction from the line that clears the status before it; both pages of a DDR4 module in one."""
    page = find(log, f"out8 {HOST}4 6d$")
    if page is not None:
        last = max(at for at, line in enumerate(log) if re.match(f"out8 {HOST}4 6c$", line))
        pages = (page + 1, transaction_end(log, find(log, f"out8 {HOST}0 ff$", last) + 1))
    found = []
    at = find(log, f"out8 {HOST}0 ff$")
    while at is not None:
        found.append((at + 1, transaction_end(log, at + 1)))
        at = find(log, f"out8 {HOST}0 ff$", found[-1][1])
    if page is None:
        return found
    return [pages, *(one for one in found if one[1] < pages[0] or one[0] > pages[1])]


def i2c(log):
    """The whole command."""
    start = find(log, "(in|out|mmap|pread)")
    return [] if start is None else [(start + 1, find(log, "iopl 0|close /dev/mem", start))]


def smn(log):
    """From the choice of a die to that of die 0."""
    places = [at for at, line in enumerate(log) if line == "out32 0cf8 800000c0"]
    return [(with_delays(log, first) + 1, last + 2) for first, last in zip(places[::2], places[1::2])]


STATES = {"/SIO": super_io, "/SMBUS": smbus, "/SMB": smbus, "/I2C": i2c, "/SMN": smn}


def switched(line, log):
    """(first, last): held back behind the accesses of these numbers, the last of which puts everything back."""
    return STATES[line.command](log) if line.command in STATES else []


def held_places(line, log):
    """Behind which accesses a signal is held back."""
    return [place for first, last in switched(line, log) for place in range(first, last)]


def page_ends(log):
    """Behind which accesses a view of the Super I/O waits for a key."""
    devices = [at for at in range(len(log) - 1) if log[at] == "out8 004e 07" and log[at + 1].startswith("out")]
    return [with_delays(log, at) for at in devices[1:]]


def waits_for_keys(line):
    return {"/SIO", "/DUMP"} <= set(line.words.split()) and "/LOG" not in line.words.split()


class Places:
    """What the log of a run is up to where a signal acts, by the log of the undisturbed run."""

    def __init__(self, line, log):
        self.log = log
        self.states = switched(line, log)
        self.ends = page_ends(log) if waits_for_keys(line) else []

    def put_back(self, last, place):
        """Up to the end of a state. A view's next wait for a key is as if ESC was pressed."""
        for end in self.ends:
            if place <= end:
                return [*self.log[:end], LOCK]
        return self.log[:last]

    def behind(self, place):
        """The log up to where a signal acts that comes behind so many accesses."""
        for first, last in self.states:
            if first <= place < last:
                return self.put_back(last, place)
        return self.log[:place]

    def at_call(self, place):
        """The same for a call behind so many accesses: a state may have begun before it, or a key been taken."""
        found = [self.behind(place)]
        for first, last in self.states:
            if place == first - 1:
                found.append(self.put_back(last, first))
            if first <= place < last and place in self.ends:
                found.append(self.put_back(last, place + 1))
        return found
