import pytest

pytest.register_assert_rewrite("texts")

from harness import new_folder, run, terminal  # noqa: E402, F401 (fixtures)
