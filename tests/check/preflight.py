"""Runs hwreg-check on simulated machines."""

import json

import pytest

VERDICTS = {"works": 0, "refused": 1, "other": 2}


@pytest.fixture
def check(run):
    """check(words, ...) -> what hwreg-check --json foretells for the words, as an object, or without words the whole
    report; further arguments are those of `run`."""

    def go(words="", **more):
        result = run(f"--json {words}".strip(), program="hwreg-check", **more)
        assert result.err == b"", result.err
        told = json.loads(result.out)
        if words:
            assert result.status == VERDICTS[told["verdict"]], (result.status, told)
        return told

    return go
