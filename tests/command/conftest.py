import os

import pytest

pytest.register_assert_rewrite("expected")  # the reasons of its assertions are shown as those of a test

from harness import new_folder, run, terminal  # noqa: E402, F401 (fixtures)


def pytest_collection_modifyitems(items):
    """$HWREG_SAMPLE: of so many tests one is run."""
    items[:] = items[:: int(os.environ.get("HWREG_SAMPLE", "1"))]
