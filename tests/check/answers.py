"""What hwreg-check tells of a line, beside what hwreg does with it."""

import re

import pytest

# What `shows` says that is no text of the output.
PROSE = re.compile(r"ends with status|the (file|machine|data|byte|dword|help)|whatever|bytes of the next|CPUs |"
                   r"FFh in place|ports 0 to 3|prints nothing, unless|what stands|registers of|zeros|"
                   r"return MSR: the value|a bit of")


@pytest.fixture
def answer(check, run, tmp_path, new_folder):
    """answer(words, ...) -> what is told of them; unless real=False hwreg has agreed, as far as it was foretold."""

    def go(words, real=True, **more):
        told = check(words, cwd=tmp_path, **more)
        if not real or (told["status"] is None and PROSE.match(told["shows"])):
            return told
        result = run(words, cwd=tmp_path, **more)
        if told["status"] is not None:
            assert result.status == told["status"], (told, result.text)
        if told["shows"].startswith("ends with status"):
            assert result.text == "", (told, result.text)
        elif told["shows"] and not PROSE.match(told["shows"]):
            assert told["shows"] in result.text.replace("\r", ""), (told, result.text)
        return told

    return go


def brief(told):
    return told["verdict"], told["status"], told["shows"]


@pytest.fixture(autouse=True)
def shutdown(tmp_path, monkeypatch):
    """A shutdown in PATH, which the board takes for itself."""
    folder = tmp_path / "programs"
    folder.mkdir()
    (folder / "shutdown").write_text("#!/bin/false\n")
    (folder / "shutdown").chmod(0o755)
    monkeypatch.setenv("PATH", f"{folder}:/usr/bin:/bin")
