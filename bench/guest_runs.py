"""Whole runs of the program and of its peers in emulated machines; see README.md."""

import collections
import dataclasses
import re
import subprocess
import sys

from runs import BUILD, TOP, first_line, grouped, medians, say, table, timer_words

sys.path += [f"{TOP}/tests/guest", f"{TOP}/tests/support/qemu"]
import boots
import guest
import image

ROUNDS = 41
SCRATCH = boots.SCRATCH  # a MiB that the kernel leaves alone, so that both ways of reading reach it
COPY = f"hwreg /MEM /RF COPY {SCRATCH:#x} 0x100000"
LIST = "hwreg /PCI /DUMP /NOMSG"
LISTING = "hwreg /SMBIOS /LOG /TEXT"

# Two command lines for one purpose; ours is run by the dynamic program and by the static one. `same` compares what they
# print, given both texts. `accesses` names what the two do to the hardware where that is not to be counted in accesses
# to ports. `more` are the steps that the program does more often than the peer, besides those that are counted:
# instructions, port accesses and page faults. `linked` is how the peer is.
Pair = collections.namedtuple("Pair", "ours label theirs same accesses more linked", defaults=[None, {}, "dynamic"])
GOALS = {"dynamic": 1.05, "static": 1.0}  # of the time of a peer that is linked as the program is

# Steps, as bench_costs names them; the first is the difference of the empty programs.
DYNAMIC = "start as a dynamic program, not a static one"
PORT = "read of a port"
MAP, MAP_TWO = "map, read once and unmap a page", "map, read once and unmap two pages"
READ = "read(2) of a page"
IOPL, MEMORY, MSR = "iopl", "open and close /dev/mem", "open and close /dev/cpu/0/msr"
FAULT = "first write to a page of new memory"
INSTRUCTION = "instruction of a loop"
SHELL = "a shell that starts an empty program"
BIND, BOUND = "function of libc looked up at the start", 40  # so many has bench_bound

# What every run begins and ends with; the second where the peer opens the memory device too.
START = {IOPL: 2, MEMORY: 1, MSR: 1}
START_MEMORY = {IOPL: 2, MSR: 1}
TABLE_MAPS = {**START, MAP_TWO: 2, MAP: 1}  # two fields of the entry point, and the table


def numbers(pattern, base=16):
    return lambda text: [int(found, base) for found in re.findall(pattern, text, re.MULTILINE)]


def equal(ours, theirs):
    """Both have been found, and are the same."""
    return lambda text, other: bool(ours(text)) and ours(text) == theirs(other)


DATA = numbers(r"return data:0x(\w+)")
MSRS = equal(numbers(r"MSR: 0x(\w+)"), numbers(r"^(\w+)$"))
REGISTER = equal(DATA, numbers(r"^(\w\w)$"))


def functions(text):
    """Bus, device and function of each row of a list of either kind."""
    return [tuple(row) for row in re.findall(r"^(\w\w)(?:  |:)(\w\w)(?:  0|\.)(\w) ", text.lower(), re.MULTILINE)]


def cells(text):
    """The bytes of a hex view, without the column numbers above it."""
    rows = re.findall(r"^[0-9A-F][0-9A-F]:? ((?:[0-9A-F]{2} )+)", text.upper(), re.MULTILINE)
    return bytes.fromhex("".join(rows))


def structures(text):
    """The bytes that dmidecode prints; of the ends of texts it prints some and others not."""
    rows = re.findall(r"^\t\t((?:[0-9A-F]{2} ?)+)$", text, re.MULTILINE)
    return bytes.fromhex("".join(rows))


def same_structures(text, other):
    listed = cells(text).replace(b"\0", b"")
    return len(listed) > 100 and listed + b"\x7f\x04\xff\xfe" == structures(other).replace(b"\0", b"")


def same_alarm(text, other):
    """To some seconds, as they are set one after the other."""
    times = [re.search(rf"{before}(\d\d):(\d\d):(\d\d)", shown) for before, shown in
             (("SetCmos timer:  ", text), (r"wakeup using .* ", other))]
    seconds = [sum(int(part) * unit for part, unit in zip(time.groups(), (3600, 60, 1))) for time in times if time]
    return len(seconds) == 2 and abs(seconds[0] - seconds[1]) < 10


def same_found(text, other):
    return other.strip() != "" and f"Found {other.split()[0]} in SMBIOS" in text


def copied(_text, _other):
    return True  # the files are compared when all are there


ALARM = "hwreg /RTC 3600"
ALARM_PEER = "rtcwake -m no -s 3600"
BYTE = equal(numbers(r": 0x(\w\w)$"), numbers(r"^0x(\w\w)$"))

PAIRS = [
    Pair("bench_empty", "an empty main", "bench_empty", copied),
    Pair("hwreg /MSR /RD 0 0x1B", "rdmsr -p 0", "rdmsr -p 0 0x1b", MSRS, ("1 MSR", "1 MSR"), START),
    # The processors are counted by their nodes, up to the one that is missing.
    Pair("hwreg /MSR /RD /ALL 0x1B", "rdmsr -a", "rdmsr -a 0x1b", MSRS, ("4 MSRs", "4 MSRs"), {**START, MSR: 6}),
    Pair("hwreg /CPUID /RD 0", "cpuid", "cpuid -1 -r -l 0",
         equal(numbers(r"E.x:(\w{8})"), numbers(r"e.x=0x(\w{8})")), ("1 CPUID", "1 CPUID"), START),
    Pair("hwreg /PCI /RB 0 0x1F 2 0x3C", "setpci", "setpci -s 00:1f.2 3c.b", REGISTER, None, START),
    Pair("hwreg /PCI /RB 0 0x1F 2 0x3C", "setpci -A intel-conf1", "setpci -A intel-conf1 -s 00:1f.2 3c.b", REGISTER,
         None, START),
    Pair(LIST, "lspci", "lspci", equal(functions, functions), None, START),
    Pair(LIST, "lspci -A intel-conf1", "lspci -A intel-conf1", equal(functions, functions), None, START),
    Pair(LIST, "lspci -n", "lspci -n", equal(functions, functions), None, START),
    Pair(LIST, "lspci -n -A intel-conf1", "lspci -n -A intel-conf1", equal(functions, functions), None, START),
    Pair("hwreg /MEM /RD 0xF0000", "busybox devmem", "busybox devmem 0xF0000 32",
         equal(DATA, numbers(r"^0x(\w+)$")), ("1 load", "1 load"), {**START_MEMORY, MAP_TWO: 1, MAP: -1}, "static"),
    Pair("hwreg /MEM /RD 0xF0000", "memtool md", "memtool md -l 0xF0000+4",
         equal(DATA, numbers(r": (\w{8}) ")), ("1 load", "1 load"), {**START_MEMORY, MAP_TWO: 1, MAP: -1}),
    Pair(COPY, "busybox dd bs=4k", f"dd if=/dev/mem of=DD bs=4k skip={SCRATCH >> 12} count=256", copied,
         ("256 maps", "256 reads"), {**START_MEMORY, MAP: 256, READ: -256}, "static"),
    *[Pair(COPY, "map, copy, unmap", f"bench_pages{kind} {SCRATCH:#x} 0x100000 LOOP", copied, ("256 maps", "256 maps"),
           START_MEMORY, linked) for kind, linked in (("", "dynamic"), ("_static", "static"))],
    Pair("hwreg /IO /RB 0x87", "inb", "inb 0x87", equal(DATA, numbers(r"^(\d+)$", 10)), None, START),
    Pair("hwreg /SMBUS /RB 0xA0 0x10", "i2cget", "i2cget -y 0 0x50 0x10 b", BYTE, None, START),
    Pair("hwreg /SMBUS /DUMP 0xA0 /LOG /TEXT", "i2cdump", "i2cdump -y 0 0x50 b", equal(cells, cells), None, START),
    Pair(ALARM, "rtcwake -m no", ALARM_PEER, same_alarm, None, {**START, SHELL: 1}),
    Pair(ALARM, "rtcwake, shutdown", f"sh -c {ALARM_PEER};shutdown", same_alarm, None, START),
]
TABLE_PAIRS = [
    Pair("hwreg /SMBIOS /S BRD-0002", "dmidecode -s", "dmidecode -s baseboard-serial-number", same_found,
         ("3 maps", "2 files"), TABLE_MAPS),
    Pair("hwreg /SMBIOS /S BRD-0002", "dmidecode -s, memory", "dmidecode --no-sysfs -s baseboard-serial-number",
         same_found, ("3 maps", "2 maps"), {**START_MEMORY, MAP: 1}),
    Pair(LISTING, "dmidecode -u", "dmidecode -u", same_structures, ("3 maps", "2 files"), TABLE_MAPS),
    Pair(LISTING, "dmidecode -u, memory", "dmidecode --no-sysfs -u", same_structures, ("3 maps", "2 maps"),
         {**START_MEMORY, MAP: 1}),
    Pair(LISTING, "dmidecode", "dmidecode", lambda text, other: "BRD-0002" in other, ("3 maps", "2 files"), TABLE_MAPS),
]

MACHINE = dataclasses.replace(boots.Q35.machine, cpu="", seconds=300, qemu=["-rtc", "base=2024-02-03T12:00:00"])
TABLE_MACHINE = dataclasses.replace(boots.TABLES_NOPAT.machine, seconds=300)
PREPARATION = (
    "modprobe -a msr cpuid i2c-dev i2c-i801 && outb 0x87 0x5a && i2cset -y 0 0x50 0x10 0x5a b && "
    f"dd if=/dev/urandom of=/dev/mem bs=4k seek={SCRATCH >> 12} count=256"
)
PROGRAMS = ["bench_timer", "bench_count", "bench_costs", "bench_empty", "bench_empty_static", "bench_bound",
            "bench_pages", "bench_pages_static", "hwreg-static"]
# What /RTC asks the system for ends at once here.
FILES = {**{f"/usr/bin/{name}": f"{BUILD}/{name}" for name in PROGRAMS}, "/usr/bin/shutdown": f"{BUILD}/bench_empty"}


def words_of(line):
    """A line without quotes; what `sh -c` is given is all the rest."""
    shell, _, script = line.partition("sh -c ")
    return ["sh", "-c", script.replace(";", "; ")] if not shell and script else line.split()


def static(line):
    """The line for the static program, which leaves its copy in a file of its own."""
    name, _, words = line.partition(" ")
    return f"{name}{'_' if name == 'bench_empty' else '-'}static {words.replace('COPY', 'STATIC')}"


def lines_of(pair):
    """Our line, that of the static program, and the peer's."""
    return [words_of(line) for line in (pair.ours, static(pair.ours), pair.theirs)]


def boot(machine, commands):
    """The texts that the commands print. All of them have to work."""
    results = guest.run(machine, [guest.Command(words, seconds=120) for words in commands], FILES).results
    for words, result in zip(commands, results):
        if result.status is None or result.status in (126, 127):
            sys.exit(f"bench: in the guest: {words}: {result.ending} {result.stderr.strip()}")
    return [result.stdout for result in results]


def check(pair, ours, statics, theirs):
    for shown in (ours, statics):
        if not pair.same(shown, theirs):
            sys.exit(f"bench: not the same:\n{pair.ours}\n{shown}\n{pair.theirs}\n{theirs}")


def time_pairs(machine, pairs, before, after):
    """Medians, a list of [ours, static, theirs], and what the commands before and after the runs print."""
    once = [words for pair in pairs for words in lines_of(pair)]
    again = [timer_words("bench_timer", ROUNDS, lines_of(pair)) for pair in pairs]
    texts = boot(machine, [*before, *once, *again, *after])
    shown, timed = texts[len(before):][:len(once)], texts[len(before) + len(once):][:len(again)]
    for i, pair in enumerate(pairs):
        check(pair, *shown[3 * i:3 * i + 3])
    times = [medians(text, lines_of(pair)) for pair, text in zip(pairs, timed)]
    return times, texts[:len(before)] + texts[len(texts) - len(after):]


def count_pairs(machine, pairs, before, scratch):
    """A list of [ours, static, theirs], each (instructions in user space, accesses to ports by program and kernel)."""
    out = f"{scratch}/counts"
    plugin = ["-plugin", f"{BUILD}/libbench_counter.so,out={out}"]
    commands = [["bench_count", f"/usr/bin/{name}", *words] for pair in pairs for name, *words in lines_of(pair)]
    boot(dataclasses.replace(machine, qemu=machine.qemu + plugin), [*before, *commands])
    with open(out, encoding="ascii") as stream:
        counts = [[int(word) for word in line.split()] for line in stream]
    if len(counts) != len(commands):
        sys.exit("bench: a command was not counted")
    sums = [(instructions, ports + kernel) for instructions, ports, kernel in counts]
    return [sums[i:i + 3] for i in range(0, len(sums), 3)]


def accesses_of(pair, ports):
    if pair.accesses:
        return pair.accesses
    return [f"{grouped(number)} port{'s' * (number != 1)}" if number else "none" for number in (ports[0], ports[2])]


def is_compared(pair, kind):
    """The static program with every peer, the dynamic one with those that are dynamic, too."""
    return kind == "static" or pair.linked == "dynamic"


def ratios(pair, measured):
    ours, statics, theirs = measured
    return [f"{ours / theirs:.2f}" if is_compared(pair, "dynamic") else "", f"{statics / theirs:.2f}"]


def pair_row(pair, times, counts):
    instructions, ports = zip(*counts)
    times = [taken.wall for taken in times]
    return [pair.ours.removeprefix("hwreg "), pair.label, pair.linked, *(f"{ms:.2f}" for ms in times),
            *ratios(pair, times), *map(grouped, instructions), *ratios(pair, instructions), *accesses_of(pair, ports)]


def looked_up(path):
    """How many functions of shared libraries a program has looked up at its start."""
    shown = subprocess.run(["readelf", "-dWr", path], stdout=subprocess.PIPE, text=True, check=True).stdout
    at_start = "R_X86_64_(?:GLOB_DAT|64|COPY|JUMP_SLOT) " if "BIND_NOW" in shown else "R_X86_64_(?:GLOB_DAT|64|COPY) "
    return len(re.findall(rf"{at_start} *[0-9a-f]+ \S+ \+", shown))


def looked_up_by(words):
    """Those of a program of the guest and of its libraries but libc; what starts a script is not looked at."""
    name = image.ALIASES.get(words[0], words[0])
    tree = f"{guest.GUEST}/tree"
    if name.startswith(("bench_", "hwreg")):
        return looked_up(f"{BUILD}/{name}")
    program = image.find_program(tree, name)
    libraries = image.libraries(program, [f"{tree}/lib/x86_64-linux-gnu", f"{tree}/usr/lib/x86_64-linux-gnu"])
    own = [path for path in libraries if not re.search(r"/(libc|ld-linux-x86-64)\.so", path)]
    return sum(map(looked_up, [program, *own]))


def looked_up_more(pair, kind):
    ours, _, theirs = lines_of(pair)
    return (kind == "dynamic" and looked_up_by(ours)) - (pair.linked == "dynamic" and looked_up_by(theirs))


def read_costs(text, empty, bound):
    """Milliseconds of each step. `empty` are the times of the empty programs, `bound` the timer's of the one with
    functions to look up and of the one without."""
    lines = [line.split(" ", 1) for line in text.splitlines()]
    with_functions, without = medians(bound, [["bench_bound"], ["bench_empty"]])
    return {**{what: int(picoseconds) / 1e9 for picoseconds, what in lines}, DYNAMIC: empty[0].wall - empty[1].wall,
            BIND: (with_functions.wall - without.wall) / BOUND}


def counted_steps(times, counts):
    """What the first does more often, as far as it is counted."""
    instructions, ports = (ours - theirs for ours, theirs in zip(*counts))
    return {INSTRUCTION: instructions, PORT: ports, FAULT: round(times[0].faults - times[1].faults)}


def reason_rows(pair, times, counts, costs, start):
    """Where a program misses its goal: by how much it is slower, and the steps that it does more often, the dearest
    first. `start` holds the steps that a dynamic start counts more than a static one."""
    for number, kind in enumerate(("dynamic", "static")):
        slower = times[number].wall - times[2].wall
        if times[number].wall <= GOALS[kind] * times[2].wall or not pair.more or not is_compared(pair, kind):
            continue
        counted = counted_steps([times[number], times[2]], [counts[number], counts[2]])
        starts = (kind == "dynamic") - (pair.linked == "dynamic")
        steps = {**pair.more, DYNAMIC: starts, BIND: looked_up_more(pair, kind),
                 **{what: count - starts * start[what] for what, count in counted.items()}}
        taken = sorted(((count * costs[what], count, what) for what, count in steps.items()), reverse=True)
        yield [pair.ours.removeprefix("hwreg "), kind, pair.label, f"{slower:.3f}", ""]
        yield from (["", "", "", f"{ms:.3f}", f"{count:,} x {what}"] for ms, count, what in taken
                    if abs(ms) >= slower / 20)
        yield ["", "", "", f"{slower - sum(ms for ms, _, _ in taken):.3f}", "all that is not named"]


def measure_guest(scratch):
    compare = "cmp COPY DD && cmp COPY LOOP && cmp COPY STATIC && echo same"
    bind = timer_words("bench_timer", ROUNDS, [["bench_bound"], ["bench_empty"]])
    after = [compare, ["bench_costs", hex(SCRATCH)], bind, "uname -sr"]
    prepare = [PREPARATION, "test -c /dev/i2c-0 && test -c /dev/cpu/0/msr && test -c /dev/rtc0 && echo ready"]
    driver = ["modprobe msr"]  # or the program's first run loads it
    times, (_, ready, compared, costs, bound, system) = time_pairs(MACHINE, PAIRS, prepare, after)
    if (ready, compared) != ("ready\n", "same\n"):
        sys.exit("bench: the guest's devices are not there, or the copies differ")
    table_times, _ = time_pairs(TABLE_MACHINE, TABLE_PAIRS, driver, [])
    counts = count_pairs(MACHINE, PAIRS, prepare, scratch)
    table_counts = count_pairs(TABLE_MACHINE, TABLE_PAIRS, driver, scratch)
    rows = [pair_row(*row) for row in zip(PAIRS + TABLE_PAIRS, times + table_times, counts + table_counts)]
    head = ["hwreg", "peer", "linked", "ms", "static", "peer's", "ratio", "static",
            "instr.", "static", "peer's", "ratio", "static", "accesses", "peer's"]
    table("Whole runs on a real kernel in an emulated machine", head, rows, left=(0, 1, 2))
    costs = read_costs(costs, times[0], bound)
    table("What single steps cost there", ["", "us"], [[what, f"{ms * 1e3:.4g}"] for what, ms in costs.items()])
    start = counted_steps(times[0][:2], counts[0][:2])
    reasons = [reason_rows(*row, costs, start) for row in zip(PAIRS + TABLE_PAIRS, times + table_times,
                                                               counts + table_counts)]
    table("Where a program is above its goal, and what it does more often", ["hwreg", "", "peer", "ms", "of them"],
          [row for rows_of_pair in reasons for row in rows_of_pair], left=(0, 1, 2, 4))
    say(f"\n{first_line('qemu-system-x86_64', '--version')}; guest's {system.strip()}")
