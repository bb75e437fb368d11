"""The power commands' accesses in the words of the board's log, and short accounts of runs that are too long to compare
access by access."""

from expected import DELAY

# What takes the firmware's tables away from a board.
NO_ROOT_POINTER = {"intel": "bytes f5a00 00", **dict.fromkeys(("amd", "hygon", "ati"), "bytes f5a10 00")}

# A clock on which 122 writes to the delay port make a second, some twelve looks at the time.
RUN = "cmos-run delays 2000"
MICROSECONDS_A_DELAY = 0x2000


def read(register, value):
    return [*DELAY, f"out8 0070 {register:02x}", f"in8 0071 -> {value:02x}"]


def write(register, value):
    return [*DELAY, f"out8 0070 {register:02x}", f"out8 0071 {value:02x}"]


def mode(register_b=0x02):
    """How the clock counts is asked once a run."""
    return read(0x0B, register_b)


def wait(polls=0):
    """Until no update is in progress, which takes so many polls."""
    return read(0x0C, 0x00) + (read(0x0A, 0xA6) + ["out8 00ed 00"]) * polls + read(0x0A, 0x26)


def time(hours, minutes, seconds, polls=0):
    """The time as its registers hold it."""
    return wait(polls) + read(4, hours) + read(2, minutes) + read(0, seconds)


def wake_enable(port, status=0x0001, enable=0x0020):
    return [
        f"in16 {port:04x} -> {status:04x}",
        f"out16 {port:04x} {status | 0x400:04x}",
        f"in16 {port + 2:04x} -> {enable:04x}",
        f"out16 {port + 2:04x} {enable | 0x400:04x}",
    ]


def alarm(hours, minutes, seconds, register_b=0x02, register_d=0x80, polls=0):
    lines = wait(polls) + write(1, seconds) + write(3, minutes) + write(5, hours)
    lines += read(0x0D, register_d) + write(0x0D, register_d & 0x80)
    return lines + read(0x0B, register_b) + write(0x0B, register_b | 0x20)


def registers(log):
    """The clock's registers as they were accessed: ("r", register, value) or ("w", register, value)."""
    found = []
    index = None
    for line in log:
        if line.startswith("out8 0070 "):
            index = int(line[-2:], 16)
        elif line.startswith("in8 0071 "):
            found.append(("r", index, int(line[-2:], 16)))
        elif line.startswith("out8 0071 "):
            found.append(("w", index, int(line[-2:], 16)))
    return found


def alarm_set(log):
    """Hours, minutes and seconds of the alarm as the registers have got them; None when it was not set."""
    written = {register: value for kind, register, value in registers(log) if kind == "w"}
    return tuple(written[register] for register in (5, 3, 1)) if 5 in written else None


def story(log):
    """What happened, in order: "time" for any number of looks at the clock, "wake enable", "alarm", files that are put
    on the disk and shell commands as the log has them."""
    told = []
    index = None
    for line in log:
        word = None
        if line.startswith("out8 0070 "):
            index = int(line[-2:], 16)
        elif line.startswith("in8 0071 ") and index == 0:
            word = "time"
        elif line.startswith("out8 0071 ") and index == 5:
            word = "alarm"
        elif line.startswith("out16 "):
            word = "wake enable"
        elif line.startswith(("fsync ", "system ")):
            word = line.removesuffix(" -> ok")
        if word is not None and told[-1:] != [word]:
            told.append(word)
    return told


def passes(log):
    """How often the time was read."""
    return sum(kind == "r" and register == 0 for kind, register, _ in registers(log))


def seconds_passed(log):
    """On the clock of RUN, between the first and the last look at the time."""
    looks = [at for at, line in enumerate(log) if line == "out8 0070 00"]
    return log[looks[0] : looks[-1]].count("out8 00ed 00") * MICROSECONDS_A_DELAY / 1e6
