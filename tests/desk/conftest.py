import contextlib
import dataclasses
import io
import os
import pathlib

import pytest

from harness import new_folder, run  # noqa: F401 (fixtures)
from hwregboard import command


@dataclasses.dataclass
class Result:
    status: int
    out: str
    err: str

    @property
    def lines(self):
        return self.out.splitlines()


class Desk:
    """hwreg-board in a folder, in this process."""

    def __init__(self, folder):
        self.folder = folder

    def __call__(self, *words):
        here = os.getcwd()
        out, err = io.TextIOWrapper(io.BytesIO()), io.TextIOWrapper(io.BytesIO())
        os.chdir(self.folder)
        try:
            with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
                status = command.main([str(word) for word in words])
        except SystemExit as end:
            status = end.code
        finally:
            os.chdir(here)
            out.flush()
            err.flush()
        return Result(status, out.buffer.getvalue().decode(), err.buffer.getvalue().decode())

    def write(self, name, contents):
        path = pathlib.Path(self.folder, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(contents if isinstance(contents, bytes) else contents.encode())
        return name

    def read(self, name):
        return pathlib.Path(self.folder, name).read_bytes()

    def board(self, name, *words):
        """Imports into NAME.board, which has to go well; gives the file's lines."""
        result = self("import", *words, "-o", f"{name}.board")
        assert result.status == 0, result.err
        return self.read(f"{name}.board").decode().splitlines()


@pytest.fixture
def desk(tmp_path):
    return Desk(tmp_path)
