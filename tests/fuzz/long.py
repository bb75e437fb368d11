#!/usr/bin/python3
"""Runs all fuzzers for a long time, without sanitizers, from the seeds and from what earlier runs have kept.

    tests/fuzz/long.py MINUTES [BUILD]

Two run at a time, each for its share of the time: those that call procedures try the most. BUILD (build) has what
tests/fuzz/build has made, and gets what tests/fuzz/run.py describes; tests/fuzz/executions.py adds it up. Exit status 1
when something was found.
"""

import concurrent.futures
import pathlib
import subprocess
import sys

import run

TOP = pathlib.Path(__file__).resolve().parents[2]
AT_A_TIME = 2
# Parts of the time. The fast ones try some hundred thousand inputs in a second, command lines some thousands.
PARTS = {"numbers": 6, "search": 5, "ports": 5, "pci": 5, "clock": 4, "i2c": 4, "caps": 3, "format": 3, "procedures": 2,
         "switches": 2}
OTHERS = 1


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    seconds = AT_A_TIME * 60 * float(sys.argv[1])
    build = pathlib.Path(sys.argv[2] if len(sys.argv) == 3 else TOP / "build").resolve()
    listed = subprocess.run([build / "fuzz" / "hwreg_fuzz", "--list"], capture_output=True, text=True, check=True)
    parts = {name: PARTS.get(name, OTHERS) for name in listed.stdout.split()}
    one = seconds / sum(parts.values())

    def fuzz(name):
        run.unpack_seeds(name, build / "fuzz" / "seeds" / name)
        figures, found = run.fuzz(build, name, "plain", max(1, int(parts[name] * one)))
        print(f"{name}: {figures['executions']} executions, {figures['rate']} in a second of the processor, "
              f"{len(found)} findings", flush=True)
        for line in found:
            print(f"  {line}", flush=True)
        return figures["executions"], len(found)

    order = sorted(parts, key=parts.get, reverse=True)
    with concurrent.futures.ThreadPoolExecutor(AT_A_TIME) as pool:
        done = list(pool.map(fuzz, order))
    print(f"{sum(executions for executions, _ in done)} executions")
    sys.exit(1 if any(found for _, found in done) else 0)


if __name__ == "__main__":
    main()
