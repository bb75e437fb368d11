import pathlib
import sys

import pytest

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "command"), str(TESTS / "docs")]
pytest.register_assert_rewrite("expected")
