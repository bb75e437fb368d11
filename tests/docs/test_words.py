"""The parser's switch words, the usage lines, the reference, the manual page and the completion say the same."""

import re

import pytest

import texts
from examples import TOP
from texts import words_of

SWITCHES = texts.switch_table()
ENTRIES = texts.reference_entries()
FORMS = texts.reference_forms()
FORM_WORDS = set().union(*map(words_of, FORMS))
SHARED_USAGE = [{"/MSR", "/CPUID"}, {"/SMN", "/SMU"}, {"/RTC", "/SHUTDOWN", "/TIMEOUT"}]


def named(text, word):
    return re.search(rf"(?<![\w/])/{re.escape(word)}(?!\w)", text) is not None


def test_manual_page_has_the_forms_of_the_reference():
    assert texts.manual_forms() == FORMS


def test_completion_has_the_forms_of_the_reference():
    assert texts.completion_forms() == FORMS


def test_every_switch_word_is_in_a_form_an_option_or_without_effect():
    assert FORM_WORDS - texts.BY_HANDLERS_ALONE | texts.OPTIONS | texts.WITHOUT_EFFECT == set(SWITCHES)
    assert not FORM_WORDS & (texts.OPTIONS | texts.WITHOUT_EFFECT)


@pytest.mark.parametrize("word", sorted(texts.BY_HANDLERS_ALONE))
def test_words_without_a_flag_are_looked_for_by_a_command(word):
    assert word in FORM_WORDS
    assert any(f'"{word}"' in path.read_text() for path in (TOP / "Project").glob("*.cpp"))


@pytest.mark.parametrize("word", sorted(texts.OPTIONS | texts.WITHOUT_EFFECT))
@pytest.mark.parametrize("path", [texts.REFERENCE, texts.MANUAL], ids=["reference", "manual"])
def test_options_and_words_without_effect_are_described(path, word):
    assert named(path.read_text(), word)


@pytest.mark.parametrize("word", sorted(texts.OPTIONS))
def test_options_are_completed(word):
    candidates = (texts.COMPLETION.parent / "candidates").read_text()
    lists = re.findall(r'^ +(?:HELP|VIEW) = "(.*)"$', candidates, re.MULTILINE)
    assert f"/{word}" in " ".join(lists).split()


@pytest.mark.parametrize("word", sorted(texts.WITHOUT_EFFECT))
def test_words_without_effect_have_none(run, word):
    result = run(f"/{word}")
    assert (result.text, result.status) == ("", 15)


def test_every_command_has_an_entry():
    commands = {word for word, flags in SWITCHES.items() if flags & texts.dispatched_flags()}
    titles = set().union(*(words_of(name) for entry in ENTRIES for name in entry.names))
    assert commands - titles == {"SMB"}  # another name of /SMBUS
    assert titles - commands == {"INDEX"}


@pytest.mark.parametrize("word", sorted(word for entry in ENTRIES for word in entry.names if " " not in word))
def test_usage_lines_name_only_what_the_reference_has(run, word):
    usage = run(f"{word} /?").text
    family = next((family for family in SHARED_USAGE if word in family), {word})
    entries = [entry for entry in ENTRIES for name in entry.names if name.split()[0] in family]
    known = set().union(*(words_of(form) for entry in entries for form in entry.forms)) | texts.OPTIONS
    before_colon = [line.split(":")[0] for line in usage.splitlines()]
    assert before_colon
    used = {found.upper() for line in before_colon for found in re.findall(r"[/(]([A-Za-z]\w*)", line)}
    assert used and used <= known


def test_help_screen_names_only_what_the_reference_has(run):
    used = set(re.findall(r"/([A-Z]+)", run("/?").text))
    assert len(used) == 14 and used <= FORM_WORDS
