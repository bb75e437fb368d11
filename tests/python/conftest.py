import itertools

import pytest

from harness import new_folder, run  # noqa: F401 (fixtures)
from hwreg import Machine, Sim


@pytest.fixture
def machine(tmp_path):
    """machine("amd", "latch 300 1 a5", power=True): a simulated machine of its own, which keeps what is written. The
    lines are further ones of its board."""
    numbers = itertools.count()

    def make(board="intel", *lines, **options):
        number = next(numbers)
        if lines:
            path = tmp_path / f"extended-{number}.board"
            path.write_text("\n".join([f"include {board}.board", *lines, ""]))
            board = str(path)
        return Machine(Sim(board, state=tmp_path / f"state-{number}"), **options)

    return make
