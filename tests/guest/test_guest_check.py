"""What hwreg-check foretells and what hwreg then does agree: every form of the reference, on kernels and in settings
that refuse different things.

Another program or the same line where nothing is refused says what is true. Then `works` means that hwreg has printed
just that and the registers hold just that; `refused` that nothing was printed, or values that stand for a failure; and
`other` that it has printed data that is not true.
"""

import concurrent.futures
import json
import os
import re

import pytest

import texts
from foretold import BOOTS, CHECK, boot_outcomes, is_first, lines_of
from foretold_forms import alternatives, shape, short_list
from foretold_lines import LINES, OTHER, REFUSED, WORKS
from harness import TOP

PAGE = TOP / "docs" / "foretold.md"
STATUS = {WORKS: 0, REFUSED: 1, OTHER: 2}


@pytest.fixture(scope="module", autouse=True)
def program_that_foretells():
    assert os.access(CHECK, os.X_OK), f"{CHECK} is missing: build it"


@pytest.fixture(scope="module")
def started(request):
    """The boots that the chosen tests need, two at a time."""
    chosen = {item.callspec.params["name"] for item in request.session.items
              if item.module is request.module and hasattr(item, "callspec")}  # fmt: skip
    kinds = {BOOTS[name].kind for name in chosen}
    names = [name for name, boot in BOOTS.items() if name in chosen or is_first(boot) and boot.kind in kinds]
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        yield {name: pool.submit(boot_outcomes, name) for name in names}


def truths(started, name):
    """The outcomes of the lines where nothing is refused to the machine of a boot."""
    first = next(other for other in BOOTS if BOOTS[other].kind == BOOTS[name].kind)
    return started[first].result()["nothing refused"][0]


# What is true


def settled(line, text):
    """Output without what is another each time."""
    return re.sub(line.moving, "...", text, flags=re.MULTILINE) if line.moving else text


def is_alike(line, one, other):
    return ((settled(line, one.out), one.status, one.after, one.file)
            == (settled(line, other.out), other.status, other.after, other.file))  # fmt: skip


def values(outcome):
    """The values that a line has shown: behind the texts that announce them, in views, and in the file."""
    shown = re.findall(r"return data:(?:0x)?(\w+)|MSR: 0x(\w+)|data = 0x(\w+)|offset 0x..: 0x(\w+)|E[a-d]x:(\w+)"
                       r"|\(data:(\w\w)\)|address: (\w+)", outcome.out)  # fmt: skip
    rows = re.findall(r"^[0-9A-F]{2} ((?:[0-9A-F]{2} ){1,16})", outcome.out, re.MULTILINE)
    found = [next(filter(None, texts)) for texts in shown] + " ".join(rows).split() + outcome.file.split()
    return [text.replace("_", "") for text in found]


def is_failure(line, outcome):
    """All ones, of which a dword shows the lower half; a bit that is set; where it is so, zeros."""
    shown = values(outcome)
    if "Bit" in outcome.out:
        return shown == ["1"]
    ones = all(re.fullmatch("F+|0000FFFF", text.upper()) for text in shown)
    return ones or line.zeros and all(re.fullmatch("0+", text) for text in shown)


def endings(line, outcome, truth, kind):
    """What may be foretold of the line, when this came of it."""
    never = line.never.get(kind)
    if is_alike(line, outcome, truth):
        return never.split(" or ") if never else [WORKS]
    if is_failure(line, outcome):  # an alarm without the wake-up of the machine prints no value
        return [REFUSED, OTHER] if line.words.startswith("/RTC") and outcome.after != truth.after else [REFUSED]
    return [OTHER]


@pytest.mark.parametrize("name", [name for name, boot in BOOTS.items() if is_first(boot)])
def test_what_is_true_is_what_another_program_reads(started, name):
    asked = 0
    for number, outcome in truths(started, name).items():
        if not LINES[number].tool or BOOTS[name].kind in LINES[number].never:
            continue
        shown = {int(text, 16) for text in values(outcome)}
        for text in outcome.tool.split():
            asked += 1
            told = {int(text, 16)} | ({int(text) & 0xFFFFFFFF} if re.fullmatch(r"-?\d+", text) else set())
            assert shown & told, (LINES[number].words, outcome.out, outcome.tool)
    assert asked >= 30


@pytest.mark.parametrize("name", [name for name, boot in BOOTS.items() if is_first(boot)])
def test_what_is_true_differs_from_how_failures_show(started, name):
    """But for a chip that is not there; a search and a scan that find nothing are another matter."""
    for number, truth in truths(started, name).items():
        line = LINES[number]
        if BOOTS[name].kind not in line.never and values(truth) and "/SIO" not in line.words:
            assert not is_failure(line, truth) or line.words in FAILURES_THAT_ARE_TRUE, (line.words, truth.out)


FAILURES_THAT_ARE_TRUE = {
    "/PCI /RB 0 0x15 0 0": "there is no such function",
    "/IO /RI 0x3FF 1": "with that of bit 0",
    "/IO /INDEX /RI 0x70 0x71 0x50 0": "with that of bit 3",
    "/PCI /RI $DISK 0xE0 1": "with that of bit 0",
}


@pytest.mark.parametrize("name", BOOTS)
def test_each_setting_is_in_force(started, name):
    for title, (_, proof) in started[name].result().items():
        assert BOOTS[name].settings[title].says in proof, (title, proof)


# What is foretold


def complaints(number, outcome, allowed):
    """Where the answer and the run disagree, in words."""
    answer = outcome.answer
    if not answer:
        yield f"no answer: {outcome.complaint!r}"
        return
    if answer["verdict"] not in allowed:
        yield f"{answer['verdict']} was foretold, {' or '.join(allowed)} came"
    if answer["status"] not in (None, outcome.status):
        yield f"status {answer['status']} was foretold, {outcome.status} came"
    if answer["verdict"] != WORKS and not is_shown(answer["shows"], outcome):
        yield f"what was to be shown is not: {answer['shows']!r}"
    if outcome.verdict != STATUS[answer["verdict"]] or outcome.complaint:
        yield f"hwreg-check ended with {outcome.verdict} and said {outcome.complaint!r}"
    if "$" not in LINES[number].words and answer["words"] != LINES[number].words.split():
        yield f"the words are {answer['words']}"


# How hwreg-check tells in words what a run shows, and how that is seen.
TOLD = {
    "ends with status \\d+ and prints nothing": lambda outcome: not outcome.out,
    "the help screen": lambda outcome: "Help list(" in outcome.out,
    "the file holds zeros": lambda outcome: set(outcome.file.split()) == {"00"},
    "the file holds bytes of FFh": lambda outcome: set(outcome.file.split()) == {"ff"},
    "FFh in place of the bytes of .*": lambda outcome: {"ff"} < set(outcome.file.split()),
    "the machine stays on": lambda outcome: "/run/asked': No such file" in outcome.after,
    "the machine goes off, and no alarm wakes it": lambda outcome: re.search("-P now\n0x22\n0x20\n", outcome.after),
    "return MSR: the value that was there before": lambda outcome: "MSR: 0x00000000_00000000" in outcome.out,
    "CPUs 0 to 0, and not the 1 behind": lambda outcome: outcome.out.count("Cpu[") == outcome.out.count("Cpu[00]") == 1,
    "whatever is in memory at .*": values,
    "what stands in memory at .*, as if it were structures": lambda outcome: outcome.status in (0, 14),
    "the data of 01:00.0": values,
}


LATER = 60  # seconds from an answer to the run


def alarm(text):
    """The seconds since midnight of the alarm that a run tells, None where it tells none."""
    found = re.search(r"SetCmos timer:  (\d\d):(\d\d):(\d\d)$", text, re.MULTILINE)
    return found and 3600 * int(found[1]) + 60 * int(found[2]) + int(found[3])


def is_shown(text, outcome):
    if None not in (alarm(text), alarm(outcome.out)):
        return (alarm(outcome.out) - alarm(text)) % 86400 <= LATER
    told = [seen for pattern, seen in TOLD.items() if re.fullmatch(pattern, text)]
    return told[0](outcome) if told else text and text in outcome.out


def disagreements(started, name):
    truth = truths(started, name)
    for title, (outcomes, _) in started[name].result().items():
        for number, outcome in outcomes.items():
            allowed = endings(LINES[number], outcome, truth[number], BOOTS[name].kind)
            for text in complaints(number, outcome, allowed):
                yield (f"{title}: hwreg {LINES[number].words}\n    {text}\n    {outcome.out[-200:]!r} {outcome.status} "
                       f"{outcome.err!r}\n    {json.dumps(outcome.answer)}")


@pytest.mark.parametrize("name", BOOTS)
def test_what_is_foretold_comes(started, name):
    found = list(disagreements(started, name))
    assert not found, f"{len(found)} disagreements:\n" + "\n".join(found)


@pytest.mark.parametrize("name", BOOTS)
def test_the_reason_is_named(started, name):
    truth = truths(started, name)
    for title, (outcomes, _) in started[name].result().items():
        told = [f"{outcome.answer['because']}: {outcome.answer['why']}" for number, outcome in outcomes.items()
                if outcome.answer["verdict"] != WORKS == truth[number].answer["verdict"]]  # fmt: skip
        reason = BOOTS[name].settings[title].reason
        assert not [text for text in told if not reason or not re.match(reason, text)], title
        assert told or not reason, title


# The page

MACHINE = {"q35": "q35, SeaBIOS", "ovmf": "q35, OVMF", "pc": "pc, SeaBIOS"}


def rows(name, results):
    """The rows of the page that a boot has: how many lines were foretold to end how."""
    for title, (outcomes, _) in results.items():
        counts = [sum(outcome.answer.get("verdict") == verdict for outcome in outcomes.values())
                  for verdict in (WORKS, REFUSED, OTHER)]  # fmt: skip
        kernel = f"`{BOOTS[name].append}`" if BOOTS[name].append else "as distributed"
        yield f"| {MACHINE[BOOTS[name].kind]} | {kernel} | {title} | {' | '.join(map(str, counts))} |"


@pytest.mark.parametrize("name", BOOTS)
def test_the_page_has_the_numbers(started, name):
    page = PAGE.read_text().splitlines()
    wrong = [row for row in rows(name, started[name].result()) if row not in page]
    assert not wrong, "docs/foretold.md needs these rows:\n" + "\n".join(wrong)


def test_the_page_has_the_sums():
    settings = [(boot, setting) for boot in BOOTS.values() for setting in boot.settings.values()]
    lines = sum(len(lines_of(boot, setting)) for boot, setting in settings)
    text = " ".join(PAGE.read_text().split())
    assert f"{lines} command lines in {len(settings)} settings of {len(BOOTS)} boots" in text
    assert text.count("| `") + text.count("| as distributed") == len(settings)
    manual = " ".join((TOP / "docs" / "hwreg-check.8").read_text().split())
    assert f"asked about {lines} command lines" in manual and f"in {len(settings)} settings" in manual


# All forms


def test_no_form_is_missing():
    asked = {shape(line.words) for line in LINES}
    wanted = {words for form in texts.reference_forms() for words in alternatives(form)}
    assert len(wanted) > 100
    assert not wanted - asked, sorted(wanted - asked)
    assert len(short_list()) == len(texts.reference_forms())
