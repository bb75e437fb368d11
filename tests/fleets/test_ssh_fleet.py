"""docs/fleets.md over ssh: two machines under QEMU with a real kernel, and a third that is not there."""

import pytest

import page
from nodes import Nodes

(LAB,) = (step.command.removeprefix("clush ") for step in page.steps() if " -l root" in step.command)
MEMORY_TYPE_BASE = "0x20E"  # the base of a variable memory-type range that is not in use: holds what is written
LOCKED = "flock /run/lock/hwreg.lock hwreg"
BOTH = "-l root -w node[1-2] -b"


@pytest.fixture(scope="module")
def nodes(tmp_path_factory):
    with Nodes(tmp_path_factory.mktemp("lab"), ["node1", "node2"]) as started:
        yield started


def test_machines_that_answer_the_same_stand_in_one_group(nodes):
    ran = nodes.clush(f"-S {BOTH} '{LOCKED} /PCI /RD 0 0 0 0; echo \"status $?\"'")
    groups, *_ = page.groups(ran.stdout.splitlines())
    assert groups == {("node[1-2] (2)", "PCI Read DWord BDFO: 0 0 0 0, return data:0x29C08086\nstatus 134")}
    assert (ran.stderr, ran.returncode) == ("", 0)


def test_the_machine_whose_register_differs_stands_out(nodes):
    nodes.clush(f"{BOTH} 'hwreg /MSR /WD 0 {MEMORY_TYPE_BASE} 0 0'")
    nodes.clush(f"-l root -w node2 'hwreg /MSR /WD 0 {MEMORY_TYPE_BASE} 0 0x12345006'")
    ran = nodes.clush(f"-S {BOTH} 'hwreg /MSR /RD 0 {MEMORY_TYPE_BASE}; echo \"status $?\"'")
    groups, *_ = page.groups(ran.stdout.splitlines())
    line = "Cpu[00] Msr read from 0000020E, return MSR: 0x00000000_"
    assert groups == {("node1", f"{line}00000000\nstatus 0"), ("node2", f"{line}12345006\nstatus 6")}
    assert ran.returncode == 0  # that 6 is data


def test_the_command_of_the_page_tells_the_machine_that_is_not_there_from_data(nodes):
    ran = nodes.clush(LAB)
    groups, *_ = page.groups(ran.stdout.splitlines())
    ((header, answer),) = groups
    assert header == "node[1-2] (2)"
    assert answer.startswith("Cpu[00] Msr read from 000001A0, return MSR: 0x") and "\nstatus " in answer
    assert "clush: gone: exited with exit code 255" in ran.stderr
    assert ran.returncode == 255


def test_data_of_ff_and_a_machine_that_is_not_there_look_alike_without_the_echo(nodes):
    absent = f"{LOCKED} /PCI /RB 0 31 7 0"
    ran = nodes.clush(f"-S -l root -w @lab -b '{absent}'")
    assert "gone,node[1-2] (3): exited with exit code 255" in ran.stderr
    ran = nodes.clush(f"-S {BOTH} '{absent}; echo \"status $?\"'")
    assert "return data:0xFF\nstatus 255" in ran.stdout
    assert (ran.stderr, ran.returncode) == ("", 0)


def test_each_status_can_be_had_in_a_line_of_its_own(nodes):
    ran = nodes.clush(f"-L -l root -w node[1-2] '{LOCKED} /PCI /RB 0 0 0 0 >/dev/null; echo $?'")
    assert ran.stdout == "node1: 134\nnode2: 134\n"
