import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "command"))
pytest.register_assert_rewrite("texts")

from harness import new_folder, run, terminal  # noqa: E402, F401 (fixtures)
