"""A machine without /dev/null: descriptors that were closed at the start get something else that takes no data."""

import itertools

import pytest

import injection
from harness import CLOSED, NAMES, Run, contents, run_program

CLOSED_SETS = [which for count in (1, 2, 3) for which in itertools.combinations(range(3), count)]


def run(folder, closed, wish):
    """/MEM /RB with these descriptors closed; the first files that it opens take their places."""
    folder.mkdir()
    prepared = Run(folder, "/MEM /RB 0x1000", "intel", (), True, "hwreg", None)
    prepared.environment.update(LD_PRELOAD=injection.LIBRARIES, HWBOARD_FAIL=wish)
    streams = [CLOSED if number in closed else None for number in range(3)]
    return injection.told(run_program(prepared, folder, *streams, injection.SECONDS), folder / "none")


@pytest.mark.parametrize("closed", CLOSED_SETS, ids=lambda closed: "+".join(NAMES[number] for number in closed))
def test_no_message_reaches_physical_memory(tmp_path, closed):
    usual = run(tmp_path / "usual", (), "count")
    for number in range(1, len(closed) + 1):
        result = run(tmp_path / f"failing-{number}", closed, f"open {number}")
        assert result.failed == [f"failed open {number} -> EMFILE"]
        assert (result.status, result.log, result.held) == (usual.status, usual.log, [])
        assert result.out == (b"" if 1 in closed else usual.out)
        assert contents(result.memory_file) == contents(usual.memory_file)
