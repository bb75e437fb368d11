"""CPUID answered by the board: in the program's memory another instruction stands in its place."""

import re
import signal
import subprocess

import pytest

from harness import BOARDS, BUILD

LEAF_1 = "cpuid 1 0 00800f12 00080800 7ed8320b 178bfbff"
ANSWER = "cpuid 00800f12 00080800 7ed8320b 178bfbff"


@pytest.fixture
def probe(run):
    def go(words, *lines):
        return run(words, board="base", extra=lines, program="hwboard_probe")

    return go


def said(result):
    return result.text.splitlines()


def test_a_leaf_comes_from_the_board(probe):
    assert said(probe("cpuid 1", LEAF_1)) == [ANSWER]


def test_of_two_lines_for_a_leaf_the_later_one_holds(probe):
    assert said(probe("cpuid 1", "cpuid 1 0 1 2 3 4", LEAF_1)) == [ANSWER]


ZEROS = "cpuid 00000000 00000000 00000000 00000000"
LEAVES_OF_INTEL = ["cpuid 0 0 7 756e6547 6c65746e 49656e69", "cpuid 7 0 1 2 3 4", "cpuid 80000000 0 80000008 0 0 0"]


def test_a_leaf_that_the_board_does_not_list_is_zero(probe):
    assert said(probe("cpuid 0 cpuid 1 cpuid 7", LEAF_1)) == [ZEROS, ANSWER, ZEROS]
    assert said(probe("cpuid 0", "cpuid 0 1 1 2 3 4")) == [ZEROS]  # another sub-leaf


def test_on_a_board_that_lists_none_all_leaves_are_the_processors_own(probe):
    assert said(probe("cpuid 0")) != [ZEROS]


def test_beyond_the_highest_leaf_an_intel_processor_gives_the_data_of_the_highest_basic_one(probe):
    highest = "cpuid 00000001 00000002 00000003 00000004"
    assert said(probe("cpuid 8 cpuid 40000000 cpuid 80000009", *LEAVES_OF_INTEL)) == [highest] * 3
    assert said(probe("cpuid 6 cpuid 80000008", *LEAVES_OF_INTEL)) == [ZEROS] * 2


def test_beyond_the_highest_leaf_other_processors_give_zeros(probe):
    other = ["cpuid 0 0 7 68747541 444d4163 69746e65", *LEAVES_OF_INTEL[1:]]
    assert said(probe("cpuid 8 cpuid 80000009", *other)) == [ZEROS] * 2


PER_CPU = ["cpus 1-2 5", "cpuid 1 0 1 1 1 1", "cpuid 1 0 5 5 5 5 cpus 5", "cpuid 1 0 2 2 2 2 cpus 2"]


@pytest.mark.parametrize("bound, answer", [("", 1), ("bind 2", 2), ("bind 5", 5), ("bind 5 bind 6", 5)])
def test_a_process_meets_the_leaves_of_the_cpu_that_it_is_bound_to(probe, bound, answer):
    assert said(probe(f"{bound} cpuid 1", *PER_CPU))[-1] == "cpuid" + f" {answer:08x}" * 4


def test_binding_to_a_cpu_that_the_board_does_not_have_fails(probe):
    assert said(probe("bind 0 bind 5", *PER_CPU)) == ["bind 0 -> EINVAL", "bind 5 -> ok"]


def test_a_process_may_run_on_all_cpus_of_the_board_and_on_no_other(probe):
    assert said(probe("allowed bind 5 allowed", *PER_CPU)) == ["allowed 1 2 5", "bind 5 -> ok", "allowed 5"]


def test_what_only_looks_like_it_is_left_alone(probe):
    assert said(probe("like-cpuid cpuid 1", LEAF_1)) == ["like-cpuid a210441e", ANSWER]


def test_a_function_that_cannot_be_decoded_is_left_alone(probe):
    (own,) = said(probe("cpuid 80000000"))
    lines = said(probe("cpuid-before-data 80000000 cpuid 80000000", "cpuid 80000000 0 1 2 3 4"))
    assert lines == [own, "cpuid 00000001 00000002 00000003 00000004"]


@pytest.mark.parametrize("lines", [[], [LEAF_1]])
def test_code_is_executable_and_not_writable_afterwards(probe, lines):
    assert said(probe("code-pages", *lines)) == ["code r-xp"]


def test_the_programs_file_stays_as_it_is(probe):
    before = (BUILD / "hwboard_probe").read_bytes()
    assert said(probe("cpuid 1", LEAF_1)) == [ANSWER]
    assert (BUILD / "hwboard_probe").read_bytes() == before


def test_it_is_answered_while_signals_are_held(probe):
    assert said(probe("hold cpuid 1", LEAF_1)) == [ANSWER]


def test_it_is_answered_in_a_child(probe):
    assert said(probe("cpuid 1 child cpuid 1", LEAF_1)) == [ANSWER, ANSWER]


def test_it_is_answered_between_accesses_to_a_device_in_memory(run):
    words = "open /dev/mem rw map 3 e0000000 1000 rw load mov32 0 cpuid 1 load mov32 0"
    result = run(words, board="intel", extra=LEAF_1, program="hwboard_probe")
    assert said(result)[2:] == ["load 3e308086", ANSWER, "load 3e308086"]
    assert len(result.memory_accesses()) == 2


def test_a_program_that_steps_itself_gets_the_answer_and_steps_on(probe):
    (answer, steps) = said(probe("cpuid-stepped 1", LEAF_1))
    (_, usual) = said(probe("cpuid-stepped 1"))
    assert answer == ANSWER
    assert int(steps.split()[1], 16) == int(usual.split()[1], 16) - 1  # the instruction itself is no step


@pytest.mark.parametrize("words", ["ud2", "raise 4"])
@pytest.mark.parametrize("lines", [[], [LEAF_1]])
def test_an_invalid_instruction_of_the_program_ends_it(probe, words, lines):
    assert probe(words, *lines).status == -signal.SIGILL


def test_a_stripped_program_is_answered_too(run, tmp_path):
    subprocess.run(["strip", "-o", tmp_path / "stripped", BUILD / "hwboard_probe"], check=True)
    assert said(run("cpuid 1", board="base", extra=LEAF_1, program=tmp_path / "stripped")) == [ANSWER]


INTEL, AMD, HYGON = "GenuineIntel", "AuthenticAMD", "HygonGenuine"
OTHERS = {"amd": (AMD, 0x800F82), "ati": (AMD, 0x800F82), "hygon": (HYGON, 0x900F02)}
MACHINES = sorted(path.stem for path in BOARDS.glob("*.board") if "\ninclude " in path.read_text())


def registers(line):
    return [int(word, 16) for word in line.split()[1:]]


@pytest.mark.parametrize("name", MACHINES)
def test_every_machine_tells_the_maker_and_the_signature_of_its_processor(run, name):
    maker, signature = OTHERS.get(name, (INTEL, 0x906EC))
    result = run("cpuid 0 cpuid 80000000 cpuid 1 cpuid 80000001", board=name, program="hwboard_probe")
    lowest, highest, one, extended = map(registers, said(result))
    for leaf in (lowest, highest) if maker != INTEL else (lowest,):
        assert b"".join(leaf[at].to_bytes(4, "little") for at in (1, 3, 2)) == maker.encode()
    assert (one[0], extended[0]) == (signature, 0 if maker == INTEL else signature)


@pytest.mark.parametrize("name", MACHINES)
def test_every_machine_lists_all_leaves_up_to_the_highest(run, name):
    highest = [registers(line)[0] for line in said(run("cpuid 0 cpuid 80000000", board=name, program="hwboard_probe"))]
    file = BOARDS / "processors" / ("amd.board" if name in OTHERS else "intel.board")
    listed = {int(leaf, 16) for leaf in re.findall(r"^cpuid (\w+) 0 ", file.read_text(), re.MULTILINE)}
    assert listed == {leaf for start, end in zip((0, 0x80000000), highest) for leaf in range(start, end + 1)}
