#!/usr/bin/python3
"""Keeps the fewest of the inputs that runs have found as seeds: those that together take all edges that any takes.

    tests/fuzz/keep.py NAME...

takes them from build/fuzz/corpus/NAME beside the seeds that there are, which stay. Those of an earlier time go.
"""

import hashlib
import pathlib
import subprocess
import sys
import tempfile

import archive

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = TOP / "build" / "fuzz"
KEPT = "kept-"
LONGEST = 4096  # bytes of an input that is kept


def keep(name):
    seeds = archive.read(name)
    made = {seed: data for seed, data in seeds.items() if not seed.startswith(KEPT)}
    with tempfile.TemporaryDirectory() as folder:
        few, many = pathlib.Path(folder) / "few", pathlib.Path(folder) / "many"
        few.mkdir()
        many.mkdir()
        for seed, data in seeds.items():
            (few if seed in made else many).joinpath(seed).write_bytes(data)
        subprocess.run([BUILD / "hwreg_fuzz", name, "-merge=1", f"-max_len={LONGEST}", few, many,
                        BUILD / "corpus" / name], check=True, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        found = [path.read_bytes() for path in few.iterdir() if path.name not in made]
    kept = {KEPT + hashlib.sha256(data).hexdigest()[:12]: data for data in found if data not in made.values()}
    archive.write(name, {**made, **kept})
    size = (archive.SEEDS / f"{name}.tar").stat().st_size
    print(f"{name}: {len(made)} seeds, {len(kept)} kept, {size} bytes")


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    for each in sys.argv[1:]:
        keep(each)
