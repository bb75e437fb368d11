"""What hwreg-check foretells and what hwreg does agree, on every simulated machine, for every form of every command."""

import re

import pytest

from lines import LINES, MACHINES, lines

WHOLE = ["intel", "amd"]  # here each form is tried with all its choices, elsewhere with the first ones
FREE = [*WHOLE, "hygon", "ati", "unknown", "caploop"]  # nothing is refused here: the patterns have to hold
CLOSED = ["noiopl", "amd-no-iopl"]  # and here everything is
ENTRIES = sorted({words.split()[0] for words, _ in lines()})


def is_silent(found, result, left):
    return result.status == int(found[1]) and not result.out.strip()


def has_bytes(found, result, left):
    """Pages, files and texts are of one byte, or none of them is found."""
    byte = "00" if found[2] == "zeros" else "FF"
    if found[1] == "it searches":
        return "return address" not in result.text
    rows = re.findall(r"^[0-9A-F]{2}((?: [0-9A-F]{2}){16})  ", result.text, re.MULTILINE)
    files = re.findall(r"\.BIN ([0-9a-f]+)$", left, re.MULTILINE)
    shown = rows[:16] if found[1] == "the first page has" else files
    return bool(shown) and set("".join(shown).split()) <= {byte, f"{byte.lower()}" * 16}


def has_cpus(found, result, left):
    return set(re.findall(r"Cpu\[(\d+)\]", result.text)) == {f"{cpu:02d}" for cpu in range(int(found[1]) + 1)}


# What `shows` says that is not printed in these words: how one knows it all the same.
PHRASES = {
    r"ends with status (\d+) and prints nothing": is_silent,
    r"(the first page has|the file holds|it searches) (zeros|bytes of FFh)": has_bytes,
    r"CPUs 0 to (\d+), and not the \d+ behind": has_cpus,
    r"the machine stays on": lambda found, result, left: result.systems() == [],
    r"the machine goes off, and no alarm wakes it": lambda found, result, left: result.systems() == ["shutdown -P now"],
    r"whatever is in memory at \w+": lambda found, result, left: re.search(r"^\w+ \w+ .* return data:", left),
    r"SMN Write \.\.\. with the value that is there: nothing is written": (
        lambda found, result, left: result.text.startswith("SMN Write ")),
    r"bytes of FFh, as if they were structures": lambda found, result, left: " FF FF FF FF " in left,
}


def evidence(result, folder):
    """All that a run has left: what it has printed, its files and its accesses, in lines."""
    files = [f"{path.name} {path.read_bytes().hex()}" for path in sorted(folder.iterdir()) if path.is_file()]
    return "\n".join([result.text.replace("\r", ""), *files, *result.log, ""])


def is_shown(shows, result, left):
    for pattern, holds in PHRASES.items():
        if found := re.fullmatch(pattern, shows):
            return holds(found, result, left)
    return re.search(re.escape(shows).replace(r"\.\.\.", ".*"), left) is not None


def disagreements(told, result, left, worked):
    """What was foretold and did not happen so."""
    if (told["verdict"] == "works") != worked:
        yield f"foretold: {told['verdict']}; {'it works' if worked else 'it does not'}"
    if told["status"] not in (None, result.status):
        yield f"foretold: status {told['status']}; it ended with {result.status}"
    if told["verdict"] != "works" and not is_shown(told["shows"], result, left):
        yield f"foretold: {told['shows']}; it printed {result.text[-200:]!r}"
    if not told["does"] or (told["verdict"] != "works" and not told["why"]):
        yield f"not explained: {told}"


def lines_for(machine):
    """Its command lines, and the pattern of each; None where it cannot do it."""
    kind = MACHINES[machine][0]
    for words, patterns in lines(machine in WHOLE):
        if kind in patterns or "" in patterns:
            yield words, patterns.get(kind, patterns.get(""))


@pytest.fixture(autouse=True)
def programs(tmp_path, monkeypatch):
    """What a machine has that can be switched off, wherever the tests run: the board takes the commands."""
    folder = tmp_path / "programs"
    folder.mkdir()
    for name in ("shutdown", "modprobe"):
        (folder / name).write_text("#!/bin/false\n")
        (folder / name).chmod(0o755)
    monkeypatch.setenv("PATH", f"{folder}:/usr/sbin:/usr/bin:/sbin:/bin")


@pytest.mark.parametrize("machine", MACHINES)
@pytest.mark.parametrize("command", ENTRIES)
def test_what_is_foretold_happens(run, check, tmp_path, machine, command):
    _, board, extra = MACHINES[machine]
    wrong = []
    for number, (words, pattern) in enumerate(lines_for(machine)):
        if words.split()[0] != command:
            continue
        folder = tmp_path / str(number)
        folder.mkdir()
        more = {"board": board, "extra": [*LINES, *extra], "cwd": folder}
        told = check(words, **more)
        result = run(words, **more)
        left = evidence(result, folder)
        worked = pattern is not None and re.search(pattern, left, re.MULTILINE) is not None
        assert told["words"] == words.split()
        assert worked == (pattern is not None) or machine not in FREE, (words, pattern, left)
        assert not worked or machine not in CLOSED, (words, pattern, left)
        wrong += [f"{words} on {machine}: {line}" for line in disagreements(told, result, left, worked)]
    assert not wrong, "\n".join(wrong)
