"""A capture is a machine again: command lines that only read give the same bytes and status on both."""

import pytest

from captures import answers, differences, questions
from harness import board_file

ASKED = {
    "intel": "--superio --spd --ports 500-51f --memory 100000-100fff",
    "amd": "--superio --spd --smn 0 18000-18000 --smn 1 18000-1800f --smn 10 18000 --ports 500-51f",
    "hygon": "", "unknown": "", "cpugap": "", "refusedmap": "",
}  # fmt: skip


@pytest.mark.parametrize("board", ASKED)
def test_commands_give_the_same_on_the_capture(capture, board, tmp_path):
    captured = capture(ASKED[board], board=board)
    lines = questions(captured.path)
    assert len(lines) >= (200 if board in ("intel", "amd") else 30)
    live = answers(board_file(tmp_path, board, []), lines, tmp_path / "live")
    found = differences(lines, live, answers(captured.path, lines, tmp_path / "replayed"))
    assert not found, f"{len(found)} of {len(lines)} differ, the first: {found[0]}"


def test_a_changed_byte_is_noticed(capture, tmp_path):
    captured = capture(board="unknown")
    changed = tmp_path / "changed.board"
    changed.write_text(captured.text.replace("\nend\n", "\nbytes f0123 a5\ncmos-bytes 40 5a\nend\n"))
    lines = questions(captured.path)
    found = differences(lines, answers(captured.path, lines, tmp_path / "one"),
                        answers(changed, lines, tmp_path / "other"))
    assert [line for line, _, _ in found] == ["/MEM /RF @ 0xe0000 0x20000", "/IO /INDEX /DUMP 0x70 0x71 /LOG /TEXT"]


def test_a_capture_of_a_capture_says_the_same(capture, tmp_path):
    options = "--superio --spd"
    first = capture(options)
    second = capture(options, board=first.path)

    def said(captured):
        kept = (line for line in captured.text.splitlines() if not line.startswith(("#", "cmos-bytes 0 ", "msr 10 ")))
        return list(kept)

    assert said(second) == said(first)
