"""The measurements of bench/run; see README.md."""

import collections
import os
import platform
import subprocess
import sys
import tempfile
import time

import callgrind
from guest_runs import measure_guest
from runs import BUILD, HERE, HWREG, TOP, first_line, grouped, medians, say, table, timer_words, write_record

sys.path.append(f"{TOP}/tests/support")
import firmware  # tables as firmware lays them out

LIBRARY = f"{BUILD}/libhwboard.so"
TIMER = f"{BUILD}/bench_timer"
EMPTY = [f"{BUILD}/bench_empty"]
INTEL = f"{TOP}/sim/boards/intel.board"
BASE = f"{TOP}/sim/boards/base.board"
FILLED = f"{HERE}/filled.board"

START = 0x10000000  # of the memory that is copied and searched
LENGTH = 64 << 20
PAGE = 4096
LOOP = [f"{BUILD}/bench_pages", hex(START), hex(LENGTH)]
LOOP_NAME = "map, copy and unmap each page"
ROUNDS = 15

# The functions of libc that the board stands in for at a start.
DOORS = ["iopl", "open", "close", "system"]


def board(path):
    """The environment in which a program runs on a simulated board."""
    return {"HWBOARD": path, "LD_PRELOAD": LIBRARY}


def on_board(path, *commands):
    return [[f"{name}={value}" for name, value in board(path).items()] + list(words) for words in commands]


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


def measure_start(scratch):
    # On a board without CPUID leaves: where it answers them, a signal handler of its own would count as the program's.
    plain = board(BASE)
    command = [HWREG, "/CPUID", "/RD", "0"]
    shown = subprocess.run(command, env=plain, stdout=subprocess.PIPE, check=False).stdout
    if b"CPUID read" not in shown:
        sys.exit("bench: hwreg does not work on the simulated board")
    bare = callgrind.count(EMPTY, {}, scratch)
    empty = callgrind.count(EMPTY, plain, scratch)
    library = os.path.basename(LIBRARY)
    # What the loader does for the library; the same in all runs.
    loading = empty.total - empty.entered[library] - bare.total
    programs = [[path, *command[1:]] for path in (HWREG, f"{BUILD}/bench_lazy", f"{BUILD}/bench_bare")]
    counted = [callgrind.count(words, plain, scratch) for words in programs]
    simulated = [program.entered[library] + loading for program in counted]
    owns = [program.total - boards for program, boards in zip(counted, simulated)]
    alone, *times = measure(on_board(BASE, EMPTY, *programs), scratch, 201)
    rows = [["empty main", grouped(bare.total), "0", grouped(bare.total), "1.00", "", "", ""]]
    names = ["hwreg /CPUID /RD 0", "  bound as it calls, not at its start", "  and without the other guards"]
    goals = ["<= 1.52", "<= 1.22", ""]
    for name, program, boards, own, taken, goal in zip(names, counted, simulated, owns, times, goals):
        rows.append([name, grouped(program.total), grouped(boards), grouped(own), f"{own / bare.total:.2f}", goal,
                     f"{(taken.wall - alone.wall) * 1e3:.0f}", f"{taken.wall / times[0].wall:.3f}"])
    table("Instructions of a start, and microseconds beyond the empty main's",
          ["", "executed", "the board's", "own", "ratio", "goal", "us", "of the whole run"], rows)
    own = owns[0]
    show_start(callgrind.count(command, plain, scratch, ["main", *DOORS]), own - bare.total)
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
        ["hwreg /PCI /DUMP /NOMSG", f"{ours:.1f}", f"{ours / theirs:.3f}", "<= 1.02"],
        ["the same port accesses in a loop", f"{theirs:.1f}", "1", ""],
    ]
    title = f"All of configuration space: {grouped(ports)} port accesses, {others} others"
    table(title, ["", "ms", "ratio", "goal"], rows)


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


# A firmware table of this many memory devices: nearly 64 KiB, long enough to be timed.
MEMORY_DEVICES = 700
SMBIOS_ENTRY, SMBIOS_TABLE = 0x50000000, 0x50010000


def write_smbios_board(path, structures):
    memory = firmware.smbios3(SMBIOS_ENTRY, SMBIOS_TABLE, structures)
    lines = [f"include {TOP}/sim/boards/base.board", *firmware.board_lines(memory)]
    with open(path, "w", encoding="ascii") as stream:
        stream.write("\n".join([*lines, f'systab sys "SMBIOS3={SMBIOS_ENTRY:#x}"', ""]))


def measure_smbios(scratch):
    devices = [firmware.memory_device(i, 0, f"DIMM_{i}", f"BANK {i}", 8192, "Memory Works", f"PART-{i}")
               for i in range(MEMORY_DEVICES)]
    structures = firmware.table(*devices, firmware.end())
    board_file, table_file = f"{scratch}/smbios.board", f"{scratch}/table"
    write_smbios_board(board_file, structures)
    with open(table_file, "wb") as stream:
        stream.write(structures)
    listing, view = [HWREG, "/SMBIOS", "/LOG"], [f"{BUILD}/bench_view", table_file]
    shown, alone = (subprocess.run(words, env=board(board_file), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   check=False).stdout.splitlines() for words in (listing, view))
    if [line for line in shown if not line.startswith(b"SMBIOS Type")] != alone:
        sys.exit("bench: the listing does not show what the hex view alone shows")
    walk = [HWREG, "/SMBIOS", "/TYPE", "255"]
    *taken, empty = measure(on_board(board_file, listing, view, walk, EMPTY), scratch)
    ours, theirs, hidden = (run.processor - empty.processor for run in taken)
    rows = [
        ["hwreg /SMBIOS /LOG", f"{ours:.2f}", f"{ours / theirs:.3f}", "<= 1"],
        ["the hex view alone", f"{theirs:.2f}", "1", ""],
        ["hwreg /SMBIOS /TYPE 255: start, copy and walk, nothing to show", f"{hidden:.2f}", "", ""],
    ]
    title = f"A listing of {MEMORY_DEVICES} structures, {grouped(len(structures))} bytes"
    table(title, ["", "ms", "ratio", "goal"], rows)


SECTIONS = {
    "start": measure_start,
    "pci": measure_pci,
    "memory": measure_memory,
    "search": measure_search,
    "smbios": measure_smbios,
    "guest": measure_guest,
}


def main():
    record = "--record" in sys.argv
    say(time.strftime("%Y-%m-%d"))
    say(first_line("g++", "--version"))
    say(first_line("ldd", "--version"))
    say(f"{platform.system()} {platform.release()}")
    for section in sys.argv[1 + record:]:
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        with tempfile.TemporaryDirectory(prefix="hwreg-bench-", dir=memory) as scratch:
            SECTIONS[section](scratch)
    if record:
        write_record()


if __name__ == "__main__":
    main()
