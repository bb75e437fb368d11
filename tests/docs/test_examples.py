"""What documents show is what the program prints."""

import pytest

import examples

DOCUMENTS = [examples.TOP / name for name in ("README.md", "CONTRIBUTING.md")]
SUFFIXES = (".txt", ".md", ".1", ".5", ".8")
DOCUMENTS += sorted(path for path in (examples.TOP / "docs").iterdir() if path.suffix in SUFFIXES)
SESSIONS = [(path, session) for path in DOCUMENTS for session in examples.sessions(path)]


@pytest.mark.parametrize("path, session", SESSIONS,
                         ids=[f"{path.name}:{session.first + 1}" for path, session in SESSIONS])
def test_example_shows_what_the_program_prints(path, session):
    # Three times, because the clock of the machine goes on where this one is busy.
    text = examples.differences(session) and examples.differences(session) and examples.differences(session)
    assert not text, f"{path}:{session.first + 1}, see {examples.__file__}\n" + "\n".join(text)


@pytest.mark.parametrize("name", ["README.md", "docs/commands.txt", "docs/hwreg.8"])
def test_document_has_examples(name):
    assert sum(path == examples.TOP / name for path, _ in SESSIONS) >= 3


# The tool itself

DOCUMENT = """A port:

    $ hwreg-sim /IO /RB 0x64
    STALE
    $ echo $?

and text behind it.

    not a session
"""
CURRENT = DOCUMENT.replace("STALE", "IO Read Byte Port: 64, return data:0x1C").replace("$?\n", "$?\n    28\n")


def test_a_stale_example_is_seen_and_renewed(tmp_path):
    path = tmp_path / "page.txt"
    path.write_text(DOCUMENT)
    (session,) = examples.sessions(path)
    assert "-STALE" in examples.differences(session) and "+28" in examples.differences(session)
    examples.update(path)
    assert path.read_text() == CURRENT
    assert examples.differences(examples.sessions(path)[0]) == []


def test_examples_of_a_manual_page_are_renewed_in_its_language(tmp_path):
    path = tmp_path / "page.8"
    path.write_text(".SH EXAMPLES\n.EX\n$ hwreg-sim \\-io \\eRB 0x64; echo .a\n.EE\nText\n")
    examples.update(path)
    assert path.read_text() == (".SH EXAMPLES\n.EX\n$ hwreg\\-sim \\-io \\eRB 0x64; echo .a\n"
                                "IO Read Byte Port: 64, return data:0x1C\n\\&.a\n.EE\nText\n")
    assert examples.differences(examples.sessions(path)[0]) == []


def test_commands_of_a_session_share_their_folder(tmp_path):
    path = tmp_path / "page.txt"
    path.write_text("    $ hwreg-sim --log=log /IO /RB 0x64 >/dev/null\n    $ grep in8 log\n    in8 0064 -> 1c\n")
    assert examples.differences(examples.sessions(path)[0]) == []


def test_a_file_that_the_document_shows_lies_in_the_folder(tmp_path):
    path = tmp_path / "page.md"
    path.write_text("A file `a.txt`:\n\n    one\n\n      two\n\nText\n\n    $ cat a.txt\n    one\n\n      two\n")
    assert examples.differences(examples.sessions(path)[0]) == []


def test_an_empty_line_in_the_output_belongs_to_the_session(tmp_path):
    path = tmp_path / "page.txt"
    path.write_text("    $ printf 'a\\n\\nb\\n'\n    a\n\n    b\n\nText\n")
    (session,) = examples.sessions(path)
    assert session.count == 4 and examples.differences(session) == []
