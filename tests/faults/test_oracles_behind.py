"""The oracles of pairs, of signals and of lying devices turn down what they are not to let pass."""

import types

import pytest

import oracles
import pairs
import signalled
import switched
import test_lies
from expected import LOST
from harness import Result
from injection import Call
from lines import Line

LOCK = "out8 004e aa"
SIO_PAGE = ["out8 004e 07", "out8 004f 02", "out8 004e aa", "in8 004f -> ff"]
SIO = ["iopl 3", "out8 004e a5", "out8 004e a5", *SIO_PAGE, *SIO_PAGE, LOCK, "iopl 0"]
TRANSACTION = ["out8 efa0 ff", "out8 efa2 48", "in8 efa0 -> 41", "in8 efa0 -> 42", "out8 efa0 42"]
FAILED_ONE = [*TRANSACTION[:-1], "out8 efa0 44", "in8 efa2 -> 48", "out8 efa2 81"]
SMBUS = ["iopl 3", "out8 efa4 a1", *TRANSACTION, "in8 efa5 -> 00", *FAILED_ONE, "iopl 0"]
DIE = ["out8 00ed 00", "out32 0cf8 800000c0", "out32 0cfc 00000001", "in32 0cfc -> 5", "out32 0cf8 800000c0",
       "out32 0cfc 00000000"]  # fmt: skip
SMN = ["iopl 3", *DIE, "iopl 0"]


def line(words, board="intel"):
    return Line(words, board, (), types.SimpleNamespace(parts={"EXIT STATUS": "0 255"}))


def result(log=(), **more):
    """A run that has left this behind."""
    fields = {"status": 0, "out": b"", "err": b"", "flags_before": 0, "flags_after": 0, **more}
    beside = {"files": {}, "held": [], "failed": [], "trace": []}
    beside.update({name: fields.pop(name) for name in beside if name in fields})
    made = Result(args=[], log=list(log), folder=None, **fields)
    for name, value in beside.items():
        setattr(made, name, value)
    made.whole_log = made.log
    return made


# ---- the machine ----------------------------------------------------------------------------------------------------


def machine(log):
    return list(oracles.complaints_about_the_machine(result(log), result()))


@pytest.mark.parametrize("log, missing", [(SIO, [LOCK]), (SMBUS, TRANSACTION[-1:]), (SMN, DIE[-1:])])
def test_what_is_not_put_back_is_seen(log, missing):
    assert machine(log) == []
    for at in range(len(log)):
        cut = log[:at]
        if log[at : at + 1] == missing and at == max(i for i, one in enumerate(log) if [one] == missing):
            assert machine(cut) != []


def test_a_register_with_the_locks_number_locks_nothing():
    assert machine(SIO[:7]) == ["the Super I/O is unlocked"]


def test_a_core_may_stay_enabled_only_where_its_target_could_not_be_set():
    enabled = ["mw32 fedc206c 00000001", "mr32 fedc209c -> 00000000"]
    assert machine([*enabled, "mw32 fedc2004 00000000"]) == []
    assert machine([*enabled, "mw32 fedc2030 00000000"]) == ["an I2C core is enabled"]


# ---- where a signal acts --------------------------------------------------------------------------------------------


@pytest.mark.parametrize("words, log, ends", [
    ("/SIO /RB 1", SIO, [0, 1, *[12] * 11, 13]),
    ("/SMBUS /S 1 2", SMBUS, [0, 1, 2, *[7] * 5, 8, *[15] * 7, 16]),
    ("/SMN /RD 1 2", SMN, [0, *[1], *[7] * 6, 8]),
    ("/PCI /RB 1", SMN, range(9)),
])
def test_it_is_held_back_until_all_is_put_back(words, log, ends):
    places = switched.Places(line(words), log)
    assert [len(places.behind(place)) for place in range(len(log) + 1)] == list(ends)


def test_a_view_of_the_super_io_ends_at_its_next_key():
    places = switched.Places(line("/SIO /DUMP"), SIO)
    for place in range(2, 8):
        assert places.behind(place) == [*SIO[:7], LOCK]
    assert places.behind(8) == SIO[:12]
    assert switched.Places(line("/SIO /DUMP /LOG"), SIO).behind(2) == SIO[:12]


def test_at_a_call_a_state_may_have_begun():
    places = switched.Places(line("/SMN /RD 1 2"), SMN)
    assert places.at_call(1) == [SMN[:1], SMN[:7]]
    assert places.at_call(0) == [[]] and places.at_call(3) == [SMN[:7]]


@pytest.mark.parametrize("wrong", [{"status": 0}, {"log": SMN[:4]}, {"out": b"other"}, {"err": b"x"},
                                   {"files": {"RTCLOG": b"\x09"}}, {"flags_after": 1}])
def test_a_run_that_a_signal_has_ended_otherwise_is_seen(wrong):
    usual = result(SMN, out=b"text", files={"RTCLOG": b"\x06\0"})
    right = {"log": SMN[:7], "status": -15, "out": b"te", "files": {"RTCLOG": b"\x06"}}
    run = line("/SMN /RD 1 2")
    assert list(signalled.complaints(run, 15, [SMN[:7]], result(**right), usual)) == []
    assert len(list(signalled.complaints(run, 15, [SMN[:7]], result(**{**right, **wrong}), usual))) == 1


@pytest.mark.parametrize("wrong", [{"status": 1}, {"log": SMN[:4]}, {"out": b""}, {"held": ["held blocks 1"]}])
def test_a_run_that_a_signal_has_changed_is_seen(wrong):
    usual = {"log": SMN, "out": b"text"}
    assert list(signalled.complaints_of_nothing(result(**usual), result(**usual))) == []
    assert list(signalled.complaints_of_nothing(result(**{**usual, **wrong}), result(**usual))) != []


# ---- pairs ----------------------------------------------------------------------------------------------------------


def calls(*texts):
    found = []
    for text in texts:
        function, _, about = text.partition(" ")
        number = 1 + sum(other.function == function for other in found)
        found.append(Call(function, number, about, len(found), 0))
    return found


def test_files_are_numbered_as_in_the_usual_run():
    trace = calls("open /dev/mem", "open /dev/cpu/0/msr", "open /dev/cpu/0/msr", "open RTCLOG", "fstat", "open RTCLOG",
                  "fstat", "fdopen", "open .", "close")  # fmt: skip
    assert [pairs.as_usually_numbered(call, trace) for call in trace] == [
        "open 1", "open 2", "open 103", "open 3", "fstat 1", "open 4", "fstat 2", "fdopen 2", "open 106", "close 1"]


def test_the_call_that_puts_the_flags_back_is_known():
    trace = calls("fcntl", "fcntl F_SETFL", "fcntl F_SETFL", "fcntl", "fcntl", "fcntl F_SETFL", "fcntl F_SETFL")
    assert [call.number for call in trace if pairs.restores_flags(call, trace)] == [3, 7]


def failed(text, status=0, err=b"", trace=()):
    alone = types.SimpleNamespace(wish="mmap 1", function="mmap", usual=result(["iopl 0"], out=text, status=status))
    alone.bench = types.SimpleNamespace(line=line("/MEM /RB 1"))
    alone.result = result(["iopl 0"], out=text, status=status, err=err, trace=list(trace))
    return alone


def of_pair(second, wrong):
    failures = ["failed mmap 1", "failed close 1"]
    right = {"log": ["iopl 0"], "failed": failures, "out": b"return data:0x03\n", "status": 3}
    alone = failed(right["out"], 3, trace=[second])
    return list(pairs.complaints(alone, second, result(**{**right, **wrong}), alone.usual))


@pytest.mark.parametrize("wrong", [{"status": -11}, {"status": 77}, {"err": LOST}, {"flags_after": 1}, {"out": b""},
                                   {"log": []}, {"failed": ["failed mmap 1"]}, {"held": ["held blocks 1"]},
                                   {"files": {"F": b""}}, {"log": ["iopl 0", "out8 0080 00"]},
                                   {"log": ["iopl 0", "open /dev/mem rdwr -> ok"]}])
def test_a_pair_that_ends_otherwise_is_seen(wrong):
    second = calls("close")[0]
    assert of_pair(second, {}) == []
    assert of_pair(second, wrong) != []


def test_the_message_of_lost_output_may_be_lost_itself():
    first, last = calls("write", "write")
    alone = failed(b"text", err=LOST, trace=[first, last])
    assert (pairs.expected_error(alone, first), pairs.expected_error(alone, last)) == (LOST, b"")


# ---- lies -----------------------------------------------------------------------------------------------------------

KNOWN = {"IO: rturn t:x", "view"}


def of_lies(words="/IO /RB 0x80", **run):
    log = ["in8 0080 -> 12", "out8 0080 34"]
    right = {"log": log, "out": b"IO: return data:0x12\n", "status": 0x12}
    return list(test_lies.complaints(line(words), result(**{**right, **run}), result(**right), KNOWN))


@pytest.mark.parametrize("wrong", [{"status": -11}, {"status": -15}, {"status": 0x34}, {"err": b"x"},
                                   {"log": ["in8 0080 -> 12", "out8 0081 34"]}, {"out": b"Port\n"},
                                   {"files": {"F": b""}}, {"held": ["held blocks 1"]},
                                   {"out": b"IO: return data:0x34\n"}])
def test_a_run_that_lies_have_led_astray_is_seen(wrong):
    assert of_lies() == []
    assert of_lies(**wrong) != []


POLLS = ["in8 0080 -> 12"] * test_lies.BOUND
SEARCH = [f"out32 0cf8 {0x80000000 + (number << 8):08x}" for number in range(test_lies.BOUND)]


def test_what_runs_on_for_ever_is_seen():
    endless = {"status": -15, "out": b""}
    assert of_lies("/RTC 60", log=POLLS, **endless) == []
    assert of_lies("/IO /RB 0x80", log=POLLS, **endless) != []
    assert of_lies("/PCI /DUMP", log=SEARCH, **endless) == []
    assert of_lies("/PCI /DUMP", log=SEARCH[:8] * (test_lies.BOUND // 8), **endless) != []
    assert of_lies("/PCI /DUMP", log=SEARCH[:1] * test_lies.BOUND, **endless) != []
