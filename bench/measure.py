"""The measurements of bench/run; see README.md."""

import collections
import os
import platform
import statistics
import subprocess
import sys
import tempfile
import time

import callgrind

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.dirname(HERE)
BUILD = os.path.join(os.environ["HWREG_BUILD"], "bench")
HWREG = os.environ["HWREG"]
LIBRARY = f"{BUILD}/libhwboard.so"
TIMER = f"{BUILD}/bench_timer"
EMPTY = [f"{BUILD}/bench_empty"]
INTEL = f"{TOP}/tests/board/boards/intel.board"
FILLED = f"{HERE}/filled.board"

START = 0x10000000  # of the memory that is copied and searched
LENGTH = 64 << 20
PAGE = 4096
LOOP = [f"{BUILD}/bench_pages", hex(START), hex(LENGTH)]
LOOP_NAME = "map, copy and unmap each page"
ROUNDS = 15

# The functions of libc that the board stands in for at a start.
DOORS = ["iopl", "open", "close", "system"]

# Per command: the medians of its runs. Milliseconds, milliseconds of processor time, MiB.
Taken = collections.namedtuple("Taken", "wall processor peak")


def board(path):
    """The environment in which a program runs on a simulated board."""
    return {"HWBOARD": path, "LD_PRELOAD": LIBRARY}


def on_board(path, *commands):
    return [[f"{name}={value}" for name, value in board(path).items()] + list(words) for words in commands]


def timer_words(timer, rounds, commands):
    words = [timer, str(rounds)]
    for command in commands:
        words += ["--", *command]
    return words


def medians(text, commands):
    """What the timer printed, as a list of Taken. A command that did not do its work is not worth a number."""
    runs = [[] for _ in commands]
    for line in text.splitlines():
        number, wall, processor, peak, status = map(int, line.split())
        if status < 0 or status in (6, 126, 127):  # 6: no access to the hardware
            sys.exit(f"bench: {' '.join(commands[number])} ended with {status}")
        runs[number].append((wall / 1e6, processor / 1e3, peak / 1024))
    return [Taken(*map(statistics.median, zip(*taken))) for taken in runs]


def measure(commands, scratch, rounds=ROUNDS):
    words = timer_words(TIMER, rounds, commands)
    done = subprocess.run(words, cwd=scratch, stdout=subprocess.PIPE, text=True, check=True)
    return medians(done.stdout, commands)


def read_log(words, scratch):
    """The access log of a run on the Intel board, as a list of lines."""
    log = f"{scratch}/log"
    environment = dict(board(INTEL), HWBOARD_LOG=log)
    subprocess.run([HWREG, *words], env=environment, cwd=scratch, stdout=subprocess.DEVNULL, check=False)
    with open(log, encoding="ascii") as stream:
        return stream.read().splitlines()


def table(title, head, rows):
    """Prints the rows, the first column to the left and the others to the right."""
    print(f"\n{title}\n")
    rows = [head, *rows]
    widths = [max(len(row[i]) for row in rows) for i in range(len(head))]
    for row in rows:
        cells = [text.rjust(width) for text, width in zip(row[1:], widths[1:])]
        print("  ".join(["   " + row[0].ljust(widths[0]), *cells]).rstrip())


def grouped(number):
    return f"{number:,}"


def measure_start(scratch):
    command = [HWREG, "/CPUID", "/RD", "0"]
    shown = subprocess.run(command, env=board(INTEL), stdout=subprocess.PIPE, check=False).stdout
    if b"CPUID read" not in shown:
        sys.exit("bench: hwreg does not work on the simulated board")
    bare = callgrind.count(EMPTY, {}, scratch)
    empty = callgrind.count(EMPTY, board(INTEL), scratch)
    program = callgrind.count(command, board(INTEL), scratch)
    library = os.path.basename(LIBRARY)
    # What the loader does for the library; the same in both runs.
    loading = empty.total - empty.entered[library] - bare.total
    simulated = program.entered[library] + loading
    own = program.total - simulated
    rows = [
        ["empty main", grouped(bare.total), "0", grouped(bare.total), "1.00", ""],
        ["hwreg /CPUID /RD 0", *map(grouped, (program.total, simulated, own)), f"{own / bare.total:.2f}", "<= 1.25"],
    ]
    table("Instructions of a start", ["", "executed", "the board's", "own", "ratio", "goal"], rows)
    show_start(callgrind.count(command, board(INTEL), scratch, ["main", *DOORS]), own - bare.total)
    dynamic = subprocess.run(["readelf", "-d", HWREG], stdout=subprocess.PIPE, text=True, check=True).stdout
    needed = [line.split("[")[1].rstrip("]") for line in dynamic.splitlines() if "(NEEDED)" in line]
    table("Shared libraries", ["", "needs", "goal"], [["hwreg", " ".join(needed), "libc.so.6"]])


def show_start(main, more):
    """Where the instructions go that the empty program does not execute."""
    rows = [
        ["before and after main", "ld.so, libc", grouped(more - main.total)],
        ["main", "", grouped(main.total)],
    ]
    rows += [["  " + function, place, grouped(cost)] for (function, place), cost in main.functions.most_common(8)]
    table("Where the instructions go that the empty main does not execute", ["", "in", "instructions"], rows)


def measure_pci(scratch):
    dump = ["/PCI", "/DUMP", "/NOMSG"]
    lines = read_log(dump, scratch)
    ports = sum(line.startswith(("in", "out")) for line in lines)
    others = sum(line.startswith(("mr", "mw", "ms", "mmap", "pread", "pwrite")) for line in lines)
    replay = [f"{BUILD}/bench_ports", f"{scratch}/log"]
    program, empty, loop, loaded = measure(
        on_board(INTEL, [HWREG, *dump], EMPTY, [*replay, "1"], [*replay, "0"]), scratch
    )
    ours, theirs = program.processor - empty.processor, loop.processor - loaded.processor
    rows = [
        ["hwreg /PCI /DUMP /NOMSG", f"{ours:.1f}", f"{ours / theirs:.3f}", "<= 1.1"],
        ["the same port accesses in a loop", f"{theirs:.1f}", "1", ""],
    ]
    table(f"All of configuration space: {grouped(ports)} port accesses, {others} others", ["", "ms", "ratio", "goal"], rows)


def measure_pages(commands, scratch):
    """MiB a second at which commands go through the memory, on the board that has it filled."""
    *taken, empty = measure(on_board(FILLED, *commands, EMPTY), scratch)
    return [(LENGTH >> 20) / (run.processor - empty.processor) * 1e3 for run in taken]


def rate_row(name, rate, loop, goal):
    return [name, f"{rate:.0f}", f"{rate / loop:.2f}", goal]


def measure_memory(scratch):
    os.symlink("/dev/null", f"{scratch}/NULL")
    copy = ["/MEM", "/RF", "NULL", hex(START), hex(LENGTH)]
    kept = ["/MEM", "/RF", "FILE", hex(START), hex(LENGTH)]
    commands = [[HWREG, *copy], LOOP, [HWREG, *kept], [*LOOP, "PEER"]]
    dropped, loop, written, writing = measure_pages(commands, scratch)
    rows = [
        rate_row("hwreg /MEM /RF to /dev/null", dropped, loop, ">= 0.8"),
        rate_row(LOOP_NAME, loop, loop, ""),
        rate_row("hwreg /MEM /RF to a file", written, writing, ""),
        rate_row("map, copy, unmap and write each page", writing, writing, ""),
    ]
    table("64 MiB of memory", ["", "MiB/s", "ratio", "goal"], rows)

    # Not on the filled board, whose own pages would be counted.
    program, empty = measure(on_board(INTEL, [HWREG, *copy], EMPTY), scratch, 3)
    table(
        "Peak memory",
        ["", "MiB", "goal"],
        [["hwreg /MEM /RF", f"{program.peak:.1f}", "< 48"], ["empty main", f"{empty.peak:.1f}", ""]],
    )
    show_maps(read_log(copy, scratch))


def show_maps(lines):
    counts = {door: collections.Counter() for door in ("mmap", "munmap")}
    for line in lines:
        door, *words = line.split()
        if door in counts:
            counts[door][words[1] if door == "mmap" else words[0]] += 1
    pages = {f"{at:08x}" for at in range(START, START + LENGTH, PAGE)}
    rows = []
    for door, counted in counts.items():
        once = sum(counted[page] == 1 for page in pages)
        rows.append([door, grouped(counted.total()), grouped(once), f"{len(pages):,} and {len(pages):,}"])
    table(f"Calls for {len(pages):,} pages", ["", "calls", "pages with one", "goal"], rows)


def measure_search(scratch):
    found, loop = measure_pages([[HWREG, "/MEM", "/S", hex(START), hex(LENGTH), "Tag"], LOOP], scratch)
    rows = [
        rate_row("hwreg /MEM /S, a text that is not there", found, loop, ">= 0.5"),
        rate_row(LOOP_NAME, loop, loop, ""),
    ]
    table("A search through 64 MiB", ["", "MiB/s", "ratio", "goal"], rows)


# In the guest 1 MiB at 18000000 (page 98304) is taken from the kernel, so that both ways of reading reach it.
GUEST_COPY = "hwreg /MEM /RF COPY 0x18000000 0x100000"
GUEST_PAIRS = [
    ("1 MiB to a file", GUEST_COPY, "dd", "dd if=/dev/mem of=DD bs=4k skip=98304 count=256"),
    ("1 MiB to a file", GUEST_COPY, "page loop", "bench_pages 0x18000000 0x100000 LOOP"),
    ("memory, dword", "hwreg /MEM /RD 0xF0000", "busybox devmem", "busybox devmem 0xF0000 32"),
    ("port, byte", "hwreg /IO /RB 0x3FF", "inb", "inb 0x3ff"),
    ("MSR", "hwreg /MSR /RD 0 0x1B", "rdmsr", "rdmsr -p 0 0x1b"),
    ("CPUID leaf", "hwreg /CPUID /RD 0", "cpuid", "cpuid -1 -r -l 0"),
    ("PCI register, byte", "hwreg /PCI /RB 0 0x1F 2 0x3C", "setpci", "setpci -s 00:1f.2 3c.b"),
    ("SMBIOS, a search", "hwreg /SMBIOS /S x", "dmidecode", "dmidecode -u"),
    ("SMBus, 256 bytes", "hwreg /SMBUS /DUMP 0xA0 /LOG", "i2cdump", "i2cdump -y 0 0x50 b"),
]
GUEST_ROUNDS = 25
GUEST_PREPARATION = "modprobe -a msr cpuid i2c-dev i2c-i801 && dd if=/dev/urandom of=/dev/mem bs=4k seek=98304 count=256"
GUEST_PROGRAMS = ["bench_timer", "bench_empty", "bench_pages"]


def measure_guest(_scratch):
    sys.path.insert(0, f"{TOP}/tests/guest")
    import guest  # finds the build folder and the program in the environment

    pairs = [[ours.split(), theirs.split(), ["bench_empty"]] for _, ours, _, theirs in GUEST_PAIRS]
    commands = [guest.Command(timer_words("bench_timer", GUEST_ROUNDS, pair), seconds=120) for pair in pairs]
    machine = guest.Machine(append="iomem=relaxed memmap=1M$0x18000000", seconds=600)
    boot = guest.run(
        machine,
        [GUEST_PREPARATION, "uname -sr", *commands, "cmp COPY DD && cmp COPY LOOP"],
        {f"/usr/bin/{name}": f"{BUILD}/{name}" for name in GUEST_PROGRAMS},
    )
    if any(result.status != 0 for result in boot.results):
        sys.exit("bench: in the guest: " + "; ".join(f"{r.ending} {r.stderr.strip()}" for r in boot.results))
    rows = []
    for (name, _, peer_name, _), pair, result in zip(GUEST_PAIRS, pairs, boot.results[2:]):
        program, peer, empty = (taken.wall for taken in medians(result.stdout, pair))
        rows.append([name, peer_name, *(f"{ms:.2f}" for ms in (program, peer, program / peer, empty))])
    head = ["", "peer", "hwreg ms", "peer ms", "ratio", "empty main ms"]
    table("Whole runs on a real kernel in an emulated machine", head, rows)
    print(f"\n{first_line('qemu-system-x86_64', '--version')}; guest's {boot.results[1].stdout.strip()}")


def first_line(*words):
    return subprocess.run(words, stdout=subprocess.PIPE, text=True, check=True).stdout.splitlines()[0]


SECTIONS = {
    "start": measure_start,
    "pci": measure_pci,
    "memory": measure_memory,
    "search": measure_search,
    "guest": measure_guest,
}


def main():
    print(time.strftime("%Y-%m-%d"))
    print(first_line("g++", "--version"))
    print(first_line("ldd", "--version"))
    print(platform.system(), platform.release())
    for section in sys.argv[1:]:
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        with tempfile.TemporaryDirectory(prefix="hwreg-bench-", dir=memory) as scratch:
            SECTIONS[section](scratch)


if __name__ == "__main__":
    main()
