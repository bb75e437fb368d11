"""/SMU: messages to the SMU's mailbox.

The amd board's SMU answers message 1 with the arguments sent, 2 with a version in the first, 3 with a failure, 5 with
10h to 60h, others with FEh (unknown), after 10 us. Before the first message its response register holds 1.
"""

import os
import signal
import subprocess

import pytest

from expected import assert_run, legacy
from harness import WRAPPER

BRIDGE = "00:00.0"
AMD = legacy(BRIDGE, 0, "in16 0cfc -> 1022")
MESSAGE, RESPONSE, ARGUMENT = 0x3B10528, 0x3B10564, 0x3B10598


@pytest.fixture
def smu(run):
    def go(args, **options):
        return run(f"/SMU {args}", board="amd", **options)

    return go


def reads(register, value):
    return legacy(BRIDGE, 0xB8, f"out32 0cfc {register:08x}") + legacy(BRIDGE, 0xBC, f"in32 0cfc -> {value:08x}")


def writes(register, value):
    return legacy(BRIDGE, 0xB8, f"out32 0cfc {register:08x}") + legacy(BRIDGE, 0xBC, f"out32 0cfc {value:08x}")


def joined(steps):
    return [line for step in steps for line in step]


def exchange(identifier, sent, response, received, busy=2):
    """One message: the response cleared, the arguments, the identifier, the wait, the arguments again."""
    return joined([
        reads(RESPONSE, 1), writes(RESPONSE, 0),
        *(writes(ARGUMENT + 4 * k, value) for k, value in enumerate(sent)),
        writes(MESSAGE, identifier),
        *[reads(RESPONSE, 0)] * busy, reads(RESPONSE, response),
        *(reads(ARGUMENT + 4 * k, value) for k, value in enumerate(received)),
    ])  # fmt: skip


def text_of(identifier, arguments, response):
    lines = [f"RequestId={identifier:X}"]
    lines += [f"SmuArg[{k}]=0x{value:08X}" for k, value in enumerate(arguments)]
    return "\n".join([*lines, f"RxSmuMessageResponse Status={response:X}", ""])


def padded(values):
    return [*values, 0, 0, 0, 0, 0, 0][:6]


@pytest.mark.parametrize("word", ["/RD", "/WD"])
@pytest.mark.parametrize("count", range(8))
def test_up_to_six_arguments_are_sent_and_read_back(smu, word, count):
    typed = [0x11 * (k + 1) for k in range(count)]
    sent = padded(typed)
    result = smu(f"{word} 1 " + " ".join(map(hex, typed)))
    assert_run(result, text_of(1, sent, 1), 0, AMD, exchange(1, sent, 1, sent))


def test_the_arguments_shown_are_the_answers(smu):
    answers = [0x10, 0x20, 0x30, 0x40, 0x50, 0x60]
    assert_run(smu("/RD 5 1 2 3 4 5 6"), text_of(5, answers, 1), 0, AMD, exchange(5, [1, 2, 3, 4, 5, 6], 1, answers))
    assert smu("/WD 0x2 0x10").text == text_of(2, padded([0x00465500]), 1)


@pytest.mark.parametrize("identifier, response", [(3, 0xFF), (0x77, 0xFE)])
def test_a_message_that_fails_is_shown_and_the_status_stays_0(smu, identifier, response):
    result = smu(f"/RD {identifier} 9")
    assert_run(result, text_of(identifier, padded([9]), response), 0, AMD,
               exchange(identifier, padded([9]), response, padded([9])))  # fmt: skip


def test_the_reserved_identifier_is_never_sent(smu):
    assert_run(smu("/RD 0xFF"), text_of(0xFF, [0] * 6, 1), 0, AMD)
    assert_run(smu("/WD 255 1 2"), text_of(0xFF, padded([1, 2]), 1), 0, AMD)


def test_an_identifier_beyond_a_byte_is_sent_whole(smu):
    assert_run(smu("/WD 0x1ff"), text_of(0x1FF, [0] * 6, 0xFE), 0, AMD, exchange(0x1FF, [0] * 6, 0xFE, [0] * 6))
    assert smu("/WD 0x1000000ff").text == text_of(0xFF, [0] * 6, 1)  # 32 bits


def test_arguments_are_cut_to_32_bits(smu):
    assert smu("/WD 1 0x1ffffffff 4294967296").text == text_of(1, padded([0xFFFFFFFF]), 1)


def test_without_an_identifier_message_0_is_sent(smu):
    assert_run(smu("/RD"), text_of(0, [0] * 6, 0xFE), 0, AMD, exchange(0, [0] * 6, 0xFE, [0] * 6))


def test_a_slow_answer_is_waited_for(smu):
    result = smu("/RD 2", extra=["smu-mailbox 4e20", "unlogged 00ed 1"])  # 20 ms
    polls = [line for line in result.log if line == "in32 0cfc -> 00000000"]
    assert result.text == text_of(2, padded([0x00465500]), 1)
    assert len(polls) >= 20000 // 4  # four delay units a poll


def test_the_write_word_comes_before_the_read_word(smu):
    assert smu("/RD 3 /WD 1 7").text == text_of(1, padded([7]), 1)


@pytest.mark.parametrize("args", ["", "/RB 1", "/WB 1 2", "/RW 1", "/RI 1", "/WI 1", "/RQ 1", "1 2"])
def test_without_a_dword_word_nothing_is_sent(smu, args):
    assert_run(smu(args), "", 0, AMD)


# ---- waits without an end -------------------------------------------------------------------------------------------


no_wrapper = pytest.mark.skipif(bool(WRAPPER), reason="the wrapper takes part in what signals do")


def interrupted(smu, args, extra, awaited):
    """Starts the program, sends it SIGINT when it has said or done enough, and gives the outcome."""

    def run_and_interrupt(prepared, cwd, stdin, stdout, stderr, timeout):
        child = subprocess.Popen(prepared.command, executable=prepared.executable, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=prepared.environment, cwd=cwd)
        try:
            said = awaited(child, prepared.log_file)
            assert child.poll() is None
            child.send_signal(signal.SIGINT)
            rest = child.communicate(timeout=timeout)[0]
        finally:
            child.kill()
            child.wait()
        return prepared.result(child.returncode, said + rest, b"")

    return smu(args, extra=extra, runner=run_and_interrupt)


def until_polled(child, log_file):
    """Until the response has been polled many times."""
    while not log_file.exists() or log_file.read_text().count("in32 0cfc -> 00000000") < 2000:
        assert child.poll() is None
    return b""


@no_wrapper
def test_an_smu_that_never_answers_is_waited_for_until_ctrl_c(smu):
    result = interrupted(smu, "/RD 7", ["smu-reply 7 0", "unlogged 00ed 1"], until_polled)
    assert (result.status, result.text) == (-signal.SIGINT, "")


def test_a_network_that_reads_as_all_ones_has_answered(smu):
    # A bridge without the pair: what is written goes nowhere.
    extra = ["pci-remove 00:00.0", "pci 00:00.0 1022:1450 class 060000 multi", "dword bc ffffffff"]
    result = smu("/RD 1 2", extra=extra)
    assert (result.text, result.status) == (text_of(1, [0xFFFFFFFF] * 6, 0xFFFFFFFF), 0)


def until_asserted(child, log_file):
    said = b""
    while said.count(b"\n") < 1000:
        part = os.read(child.stdout.fileno(), 65536)
        assert part, "the output has ended"
        said += part
    return said


@no_wrapper
def test_a_fatal_answer_is_asserted_without_end(smu):
    result = interrupted(smu, "/RD 8", ["smu-reply 8 fc"], until_asserted)
    lines = result.text.splitlines()
    assert result.status == -signal.SIGINT
    assert set(lines[:1000]) == {"ASSERT in ./Project/NbioSmu.c on 166: FALSE"}
    asked = [line for line in result.log if line.startswith("in32 0cfc")]
    assert asked[-1] == "in32 0cfc -> 000000fc"  # the arguments are not read back
