"""What tests ask of a board by its environment: a signal behind an access, and devices that lie."""

import signal

import pytest
from harness import contents

LATCH = "latch 80 4 00"
WRITES = "iopl 3 out8 80 11 out8 81 22 in8 80"
LOG = ["iopl 3", "out8 0080 11", "out8 0081 22", "in8 0080 -> 11"]


@pytest.fixture
def probe(run):
    def go(words, *lines, **more):
        return run(words, board="base", extra=lines, program="hwboard_probe", **more)

    return go


def sent(name, line):
    return {"HWBOARD_SIGNAL": f"{name} {line}"}


@pytest.mark.parametrize("name, number", [("SIGTERM", 15), ("SIGINT", 2), ("SIG34", 34), ("SIG15", 15)])
@pytest.mark.parametrize("line", [1, 2, 3, 4])
def test_a_signal_comes_right_behind_its_line(probe, name, number, line):
    result = probe(WRITES, LATCH, env=sent(name, line))
    assert (result.status, result.log) == (-number, LOG[:line])


def test_behind_the_last_line_none_comes(probe):
    result = probe(WRITES, LATCH, env=sent("SIGTERM", 5))
    assert (result.status, result.log) == (0, LOG)


def test_a_write_has_reached_its_memory_when_the_signal_comes(probe):
    words = "open /dev/mem rw map 3 1000 1000 rw store mov32 0 12345678 store mov32 4 12345678"
    whole = probe(words, "watch 1000 8")
    number = next(at for at, line in enumerate(whole.log) if line.startswith("mw32 ")) + 1
    result = probe(words, "watch 1000 8", env=sent("SIGTERM", number), keep_memory=True)
    assert (result.status, result.log) == (-15, whole.log[:number])
    written = bytes.fromhex("78563412")
    assert contents(result.memory_file)[0x1000][:4] == written != contents(result.memory_file)[0x1000][4:8]


@pytest.mark.parametrize("name, value", [("HWBOARD_SIGNAL", "SIGTERM"), ("HWBOARD_SIGNAL", "TERM 1"),
                                         ("HWBOARD_SIGNAL", "SIG65 1"), ("HWBOARD_SIGNAL", "SIGTERM 0"),
                                         ("HWBOARD_SIGNAL", "SIGTERM 1 2"), ("HWBOARD_LIES", "x"),
                                         ("HWBOARD_LIES", "1 x"), ("HWBOARD_LIES", "1 2 3")])
def test_a_wish_that_makes_no_sense_ends_the_run(probe, name, value):
    result = probe("iopl 3", env={name: value})
    assert result.status == 125 and name.encode() in result.err


# ---- lies -----------------------------------------------------------------------------------------------------------

READS = "iopl 3 " + "in8 80 " * 300
OTHERS = ("open /dev/mem rw map 3 fec00000 1000 rw " + "load mov32 0 " * 40 +
          "open /dev/cpu/0/msr r " + "pread 4 10 8 " * 40)  # fmt: skip


def values(result):
    return [line.split()[-1] for line in result.text.splitlines()[1:]]


def lying(probe, seed, words=READS):
    return probe(words, LATCH, "hole fec00000 1000", "msr 10 55", env={"HWBOARD_LIES": seed})


def test_values_of_ports_come_out_wrong_and_the_same_again_with_the_same_seed(probe):
    first, again = ([values(lying(probe, str(seed))) for seed in range(8)] for _ in range(2))
    assert first == again
    assert len(set(map(tuple, first))) > 4


def test_the_log_has_what_the_program_gets(probe):
    for seed in range(8):
        result = lying(probe, str(seed))
        assert [line.split()[-1].lstrip("0") or "0" for line in result.ports()] == values(result)


def test_memory_of_devices_and_msrs_lie_too(probe):
    kinds = {line.split(" ")[0] for seed in range(12) for line in lying(probe, str(seed), OTHERS).log
             if not line.endswith((" ffffffff", " 0000000000000055", " ok"))}
    assert {"mr32", "pread"} <= kinds


def test_reads_of_msrs_come_out_short(probe):
    assert any(line.endswith(" bytes") for seed in range(12) for line in lying(probe, str(seed), OTHERS).log)


def test_a_place_stays_as_it_is_for_so_many_reads_or_for_ever(probe):
    def longest(reads):
        runs = [values(lying(probe, f"{seed} {reads}")) for seed in range(12)]
        return max(run.count(value) for run in runs for value in run if value not in ("0", "ff"))

    assert longest(2) < 100 < longest(0)
