#!/usr/bin/python3
"""Fuzzers for all that hwreg-board reads, in one process and led by what they reach in tools/hwregboard.

    tests/desk/fuzz/run.py [FUZZER...]      pci, firmware, registers, cells, together, boards, logs; or all of them
    tests/desk/fuzz/run.py --again INPUT    one input by its name, as a finding is told; its files stay in a folder

FUZZ_SECONDS (60) is the time of each, FUZZ_EXECUTIONS another bound; two run at a time. FUZZ_SEED makes them take the
same way again. What they find is told with the input's name, each kind once; with FUZZ_FIRST=1 the first one ends the
run. Exit status 1 when there is a finding.
"""

import concurrent.futures
import datetime
import multiprocessing
import os
import pathlib
import random
import shutil
import sys
import tempfile
import time

import hits

hits.install()

import inputs  # noqa: E402
import oracles  # noqa: E402
from oracles import Finding  # noqa: E402

SECONDS = float(os.environ.get("FUZZ_SECONDS", "60"))
SEED = int(os.environ.get("FUZZ_SEED", str(time.time_ns())))
EXECUTIONS = int(os.environ.get("FUZZ_EXECUTIONS", "0")) or sys.maxsize
FIRST = bool(os.environ.get("FUZZ_FIRST"))
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", oracles.TOP / "build")).resolve()
AT_A_TIME = 2
FRESH = 1000  # one input of so many runs in a fresh process, too
USED = 20  # of one of so many more is asked than whether it can be imported
KEPT = 32 << 10  # bytes; larger ones take too long to be changed further


class Fuzzer:
    """What a fuzzer has come to: the inputs that reached something new, and what it found."""

    def __init__(self, name: str, folder: pathlib.Path) -> None:
        self.name, self.folder = name, folder
        self.chance = random.Random(f"{name} {SEED}")
        self.corpus: list[tuple[str, inputs.Input]] = []
        self.reached: set[tuple[int, int]] = set()
        self.findings: dict[str, tuple[str, Finding]] = {}
        self.executions = 0

    def try_one(self, name: str, given: inputs.Input) -> None:
        hits.clear()
        self.executions += 1
        try:
            results, size = oracles.try_input(given, self.folder)
            fresh = not hits.reached() <= self.reached
            if fresh or self.executions % USED == 0:
                oracles.try_uses(given, self.folder, size)
                fresh = not hits.reached() <= self.reached
            self.reached |= hits.reached()
            if fresh and given.size() <= KEPT:
                self.corpus.append((name, given))
            if self.executions % FRESH == 0:
                self.compare_fresh(given, results)
        except Finding as found:
            self.reached |= hits.reached()
            self.findings.setdefault(found.kind, (name, found))

    def compare_fresh(self, given: inputs.Input, results: list[oracles.Result]) -> None:
        made = self.folder / "made"
        oracles.check_fresh(given, results, self.folder, made.read_bytes() if made.exists() else None)

    def next(self) -> tuple[str, inputs.Input]:
        """An input of the corpus, more often a late one, changed once more."""
        at = int(len(self.corpus) * self.chance.random() ** 0.5)
        name, given = self.corpus[at]
        number = self.chance.getrandbits(32)
        if name.count(".") >= inputs.LONGEST:
            name = name.rpartition(":")[0] + ":"
            given = inputs.named(name)
        name += f"{'' if name.endswith(':') else '.'}{number}"
        return name, inputs.changed(self.name, given, number)


def in_folder() -> pathlib.Path:
    """A folder in memory that is the working one from now on, as the names in messages have no folder."""
    folder = pathlib.Path(tempfile.mkdtemp(dir="/dev/shm" if os.access("/dev/shm", os.W_OK) else None))
    os.chdir(folder)
    return folder


def fuzz(name: str) -> tuple[int, float, int]:
    """Runs a fuzzer and tells what it found; gives the executions, the processor's seconds and the findings."""
    folder = in_folder()
    fuzzer = Fuzzer(name, folder)
    oracles.bound_memory()
    try:
        begin, spent = time.monotonic(), time.process_time()
        fuzzer.corpus += [(f"{name}:{seed}:", given) for seed, given in inputs.seeds(name).items()]
        ahead = list(fuzzer.corpus)
        while (time.monotonic() - begin < SECONDS and fuzzer.executions < EXECUTIONS
               and not (FIRST and fuzzer.findings)):  # fmt: skip
            fuzzer.try_one(*(ahead.pop(0) if ahead else fuzzer.next()))
        spent = time.process_time() - spent
        report(fuzzer, time.monotonic() - begin, spent)
    finally:
        shutil.rmtree(folder)
    return fuzzer.executions, spent, len(fuzzer.findings)


def report(fuzzer: Fuzzer, seconds: float, spent: float) -> None:
    blocks = len({number for number, _ in fuzzer.reached})
    print(f"{fuzzer.name}: {fuzzer.executions} executions, {fuzzer.executions / max(spent, 0.01):.0f} a second of the "
          f"processor, {blocks} of {hits.blocks()} blocks, corpus {len(fuzzer.corpus)}, "
          f"{len(fuzzer.findings)} findings (FUZZ_SEED={SEED})")
    for kind, (name, found) in fuzzer.findings.items():
        more = found.more.strip().splitlines()[-1:] or [""]
        print(f"  {kind}\n    {more[0][:200]}\n    tests/desk/fuzz/run.py --again {name}")
    sys.stdout.flush()
    kept = BUILD / "fuzz" / "executions"
    kept.parent.mkdir(parents=True, exist_ok=True)
    with kept.open("a") as opened:
        opened.write(f"{datetime.date.today()} desk-{fuzzer.name} {fuzzer.executions} {seconds:.0f} plain "
                     f"{len(fuzzer.findings)}\n")


def again(name: str) -> bool:
    """Runs one input and tells what there is to tell."""
    folder = in_folder()
    given = inputs.named(name)
    for words in oracles.commands(given):
        print(f"cd {folder} && hwreg-board {' '.join(words)}")
    try:
        results, size = oracles.try_input(given, folder)
        oracles.try_uses(given, folder, size)
        made = folder / "made"
        oracles.check_fresh(given, results, folder, made.read_bytes() if made.exists() else None)
    except Finding as found:
        print(f"{found.kind}\n{found.more}")
        return False
    print("\n".join(f"status {result.status} {result.err.decode()}" for result in results))
    return True


def main(words: list[str]) -> int:
    if words[:1] == ["--again"] and len(words) == 2:
        return 0 if again(words[1]) else 1
    if not set(words) <= set(inputs.FUZZERS):
        print(__doc__)
        return 2
    multiprocessing.set_start_method("fork")
    with concurrent.futures.ProcessPoolExecutor(AT_A_TIME, max_tasks_per_child=None) as pool:
        executions, spent, findings = map(sum, zip(*pool.map(fuzz, words or inputs.FUZZERS)))
    print(f"in all: {executions} executions, {executions / max(spent, 0.01):.0f} a second of the processor, "
          f"{findings} findings")  # fmt: skip
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
