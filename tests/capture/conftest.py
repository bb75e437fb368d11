import pytest

pytest.register_assert_rewrite("captures")

from captures import capture  # noqa: E402, F401 (fixture)
from harness import new_folder, run, terminal  # noqa: E402, F401 (fixtures)
