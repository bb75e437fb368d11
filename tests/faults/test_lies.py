"""Devices that lie: values come out wrong by a seed (HWBOARD_LIES). Every command ends, leaves the hardware as stated
and prints what the reference knows.

    LIES=1000             so many seeds for each line
    FAULTS_SEED=739000    those of that seed, as a failing test tells
"""

import os
import re

import pytest

import injection
import oracles
import texts
from lines import every_line
from sample import ALL, SHARE, Sample

SEEDS = int(os.environ.get("LIES", 240 if ALL else 24 // SHARE))
STUCK = 1000  # reads, for which a place gives the same value, at most
FOR_EVER = 0
BOUND = 20000  # accesses, behind which SIGTERM ends what still runs

# These wait for a device without end, or for half an hour: the SMU's response, the clock's next second and its update.
WAITING = {"/SMU", "/RTC", "/SHUTDOWN", "/TIMEOUT"}

# What is said of values that the usual runs do not have.
FURTHER = {
    "/SMBUS": ["Read addr 0xA2 offset 0x10 error!", "Write addr 0xA2 offset 0x10 error!", "Dump addr 0xA2 error!",
               "Dump (DDR4) addr 0xA2 error!", "Dump SMBus from slave address 0xA2:",
               "Dump SMBus(DDR4) from slave address 0xA2:"],
    "/I2C": ["I2C init error", "Read addr 0x50 offset 0x04 error!", "Write addr 0x50 offset 0x04 error!"],
}  # fmt: skip
# The index port by which a chipset of AMD's is asked for a block, and the function's ports that are switched on where
# they seem to be off.
ELSEWHERE = {"/SMBUS": {("out8", "0cd6"), ("out32", "0cfc")}, "/RTC": {("out8", "0cd6")}}
MAKERS = [f"  Help list({maker}):" for maker in ("Intel", "AMD", "Higon", "Unknown")]
PCI_ROW = r"(?m)^( *\d\d  [0-9A-F]{2}  [0-9A-F]{2}|[0-9A-F]{2}  [0-9A-F]{2}  [0-9A-F]{2})  [0-9A-F]{8} " \
          r"(DIS|L0S|L1|L01|NA) +(NONE|IRQ[0-9A-F]{2}) +(NONE|NULL|INT[A-D]|[0-9A-F]{2}) +\S.*$"  # fmt: skip

LINES = [line for line in every_line() if "/?" not in line.words.split()]
TIRELESS = [line for line in LINES if line.command != "/SMBUS" or ALL]  # a transaction takes a million polls then


def printed_kinds(text):
    return set(oracles.kinds(re.sub(PCI_ROW, "row", text)))


@pytest.fixture(scope="module")
def known_kinds(tmp_path_factory):
    """By command: the kinds of lines in usual runs, and those of the reference."""
    found = {}
    for line in LINES:
        folder = tmp_path_factory.mktemp("usual")
        known = found.setdefault(line.command, {"view", "row"})
        known |= printed_kinds(injection.Bench(folder, line).run("count").text)
    examples = re.findall(r"(?m)^    (.*)$", texts.REFERENCE.read_text()) + MAKERS
    for command, known in found.items():
        known |= printed_kinds("\n".join([*examples, *FURTHER.get(command, [])]))
    return found


# ---- the end --------------------------------------------------------------------------------------------------------


def goes_on_searching(log):
    """A walk over functions of PCI: never back, and no register again and again."""
    addresses = [int(line.split()[2], 16) for line in log[-3000:] if line.startswith("out32 0cf8 ")]
    functions = [address >> 8 for address in addresses]
    again = max((addresses.count(address) for address in set(addresses[-200:])), default=0)
    return len(addresses) > 300 and functions == sorted(functions) and again <= 8


def polls(log):
    """The same few registers are read without end."""
    return len({tuple(line.split()[:2]) for line in log[-1000:]}) <= 12


def end_is_stated(line, result):
    if result.status >= 0:
        return True
    bounded = result.status == -15 and len(result.log) >= BOUND
    return bounded and (goes_on_searching(result.log) or (line.command in WAITING and polls(result.log)))


# ---- what it did ----------------------------------------------------------------------------------------------------


def place(line, effect):
    """What was changed: of blocks that a device tells the place of, the register within the block."""
    kind, at = effect[:2]
    if line.command == "/SMBUS" and kind == "out8" and not at.startswith("0cd"):
        return kind, int(at, 16) & 0x1F
    if line.command == "/PCI" and kind.startswith("m"):
        return kind, int(at, 16) & 0xFFF
    if line.command == "/RTC" and kind == "out16":
        return (kind,)
    return kind, at


def only_known_places(line, result, usual):
    done = {place(line, effect) for effect in oracles.effects(result.log)}
    if line.command == "/I2C":
        done = {effect for effect in done if effect[1][-2:] not in oracles.I2C_ENDING}
    known = {place(line, effect) for effect in oracles.effects(usual.log)}
    return done <= known | ELSEWHERE.get(line.command, set())


def values_read(log):
    """The lowest bytes of what devices gave."""
    found = (re.match(r"(?:in|mr|pread).* -> ([0-9a-f]{2,})$", line) for line in log)
    return {int(one[1][-2:], 16) for one in found if one}


def came_from_a_device(line, result):
    """A value that is told was read. Of bits and of bytes that are put together others are told, and a window of PCI
    may seem to be in memory, whose reads are not in the log."""
    words = set(line.words.split())
    if words & {"/RI", "/WI", "/INDEX", "0x104"} or line.command not in ("/IO", "/PCI", "/MSR", "/SMN"):
        return True
    told = re.findall(r"return (?:data|MSR): ?0x([0-9A-F_]+)", result.text)
    read = {int(found[1], 16) for one in result.log if (found := re.search(r" -> ([0-9a-f]+)$", one))}
    read |= {0} if line.command == "/MSR" else {0xFF, 0xFFFF, 0xFFFFFFFF}  # nothing is there
    return {int(value.replace("_", ""), 16) for value in told} <= read


def status_is_stated(line, result, usual):
    return oracles.status_is_explained(line, result, usual) or result.status in values_read(result.log)


def complaints_of_the_end(line, result, usual):
    yield from oracles.complaints_about_what_is_held(result, "")
    if not status_is_stated(line, result, usual):
        yield f"status {result.status} is not documented"


def files_are_stated(line, result, usual):
    """Dumps of files are as long as ever; a count of cycles is the usual one, or was not come to."""
    for name, content in result.files.items():
        usual_content = usual.files.get(name)
        if content != line.files.get(name) and (usual_content is None or len(content) != len(usual_content)):
            return False
    return True


def complaints(line, result, usual, known):
    if not end_is_stated(line, result):
        yield f"status {result.status} behind {len(result.log)} accesses, the last: {result.log[-4:]}"
    elif result.status >= 0:
        yield from complaints_of_the_end(line, result, usual)
    if result.err:
        yield f"standard error: {result.err}"
    yield from oracles.complaints_about_the_machine(result, usual)
    if not only_known_places(line, result, usual):
        yield "it changed something that it does not change otherwise"
    if not files_are_stated(line, result, usual):
        yield f"files: {[(name, len(content)) for name, content in result.files.items()]}"
    if not came_from_a_device(line, result):
        yield f"nobody has read this: {result.text[-200:]}"
    if not printed_kinds(result.text) <= known:
        yield f"it printed {printed_kinds(result.text) - known}"


def complaints_of_seeds(bench, sample, count, reads, known):
    usual = bench.run("count")
    for _ in range(count):
        lies = f"{sample.random.randrange(1 << 32)} {reads}"
        result = bench.run("count", lies=lies, signal=f"SIG15 {BOUND}")
        for complaint in complaints(bench.line, result, usual, known):
            yield f"HWBOARD_LIES='{lies}': {complaint}"


@pytest.mark.parametrize("line", LINES, ids=str)
def test_whatever_devices_say_the_run_ends_well(tmp_path, line, known_kinds):
    sample = Sample(line)
    bench = injection.Bench(tmp_path, line)
    found = list(complaints_of_seeds(bench, sample, SEEDS, STUCK, known_kinds[line.command]))
    assert not found, sample.told(found)


@pytest.mark.parametrize("line", TIRELESS, ids=str)
def test_where_a_device_stays_as_it_is_for_ever_the_run_ends_well(tmp_path, line, known_kinds):
    sample = Sample(line)
    bench = injection.Bench(tmp_path, line)
    found = list(complaints_of_seeds(bench, sample, -(-SEEDS // 6), FOR_EVER, known_kinds[line.command]))
    assert not found, sample.told(found)


def test_a_run_is_like_any_other_with_its_seed(tmp_path):
    bench = injection.Bench(tmp_path, next(line for line in LINES if line.words == "/PCI /DUMP 0 1 0"))
    first, again, other = (bench.run("count", lies=seed) for seed in (1, 1, 2))
    assert (first.log, first.out, first.status) == (again.log, again.out, again.status)
    assert other.log != first.log != bench.run("count").log
