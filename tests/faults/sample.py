"""What a ring takes of more than it has time for: drawn from a seed that a failing test tells.

    FAULTS_SEED=$RANDOM   another sample
    FAULTS_ALL=1          everything
"""

import os
import random

from harness import BUILD

ALL = os.environ.get("FAULTS_ALL", "") not in ("", "0")
SEED = int(os.environ.get("FAULTS_SEED", "1"))
ENDS = 200
BETWEEN = 100


# With a sanitizer a run takes ten times as long.
SHARE = 10 if b"__asan_init" in (BUILD / "hwreg").read_bytes() else 1


class Sample:
    """Of one command line; the order of the questions decides what is drawn."""

    def __init__(self, line):
        self.random = random.Random(f"{SEED} {line}")

    def of(self, things, count):
        """So many of them, in their order."""
        things = list(things)
        count = -(-count // SHARE)
        if ALL or len(things) <= count:
            return things
        return [things[at] for at in sorted(self.random.sample(range(len(things)), count))]

    def one(self, things):
        return self.random.choice(things)

    @staticmethod
    def told(found, most=40):
        return "\n".join([f"FAULTS_SEED={SEED} {'FAULTS_ALL=1 ' * ALL}draws this again:", *found[:most]])


def places(sample, count):
    """Of the places behind so many accesses the first, the last, and some between."""
    ends = ENDS // SHARE
    return [*range(1, count + 1)[:ends], *sample.of(range(ends + 1, count - ends + 1), BETWEEN),
            *range(max(ends, count - ends) + 1, count + 1)]
