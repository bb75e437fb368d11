"""Guest tests: says which program is tested, and fails at once when it is not there."""

import os

import pytest

import guest


def pytest_report_header():
    return f"program under test: {guest.PROGRAM}"


@pytest.fixture(scope="session", autouse=True)
def program_is_built():
    assert os.access(guest.PROGRAM, os.X_OK), f"{guest.PROGRAM} is missing: build it, or name it in HWREG"
