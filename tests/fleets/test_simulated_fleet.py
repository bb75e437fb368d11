"""docs/fleets.md as it stands: ClusterShell over simulated boards, the nodes being processes of this machine."""

import os
import pathlib
import subprocess

import pytest

import page

BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", page.TOP / "build")).resolve()
SCREEN = (24, 80)


def perform(command, folder, status=0):
    """What a command of the page prints, in a folder, with the machines of the source tree."""
    command = command.replace("/usr/share/hwreg/boards", str(page.TOP / "sim/boards"))
    tools = f"{page.TOP}/sim:{os.environ['PATH']}"
    environment = {**os.environ, "PATH": tools, "HWREG_BUILD": str(BUILD), "LC_ALL": "C.UTF-8"}
    return subprocess.run(["bash", "-c", f"(exit {status})\n{command}"], cwd=folder, env=environment, text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120,
                          check=False)


LOCAL = [step for step in page.steps() if " -l root" not in step.command]


def test_the_page_runs_its_examples_on_the_desk_but_for_one():
    assert len(page.steps()) - len(LOCAL) == 1 and len(LOCAL) >= 8


@pytest.fixture(scope="module")
def performed(tmp_path_factory):
    """Each command of the page, in order, with what it really printed."""
    folder = tmp_path_factory.mktemp("fleet")
    done, status = {}, 0
    for step in LOCAL:
        done[step.command] = ran = perform(step.command, folder, status)
        status = ran.returncode
    return done


@pytest.mark.parametrize("step", LOCAL, ids=lambda step: step.command[:60])
def test_a_command_prints_what_the_page_shows(step, performed):
    lines = performed[step.command].stdout.splitlines()
    # Progress that clush shows on standard error ends in a carriage return.
    lines = [line.split("\r")[-1] for line in lines]
    if " -b " in step.command:
        assert page.groups(lines) == page.groups(step.shown)
    else:
        assert lines == step.shown


def test_three_of_two_hundred_are_seen_in_one_screen(performed):
    (ran,) = (ran for command, ran in performed.items() if "node[001-200]" in command)
    lines = ran.stdout.splitlines()
    assert len(lines) <= SCREEN[0] and max(map(len, lines)) <= SCREEN[1]
    assert "node[017,101,163] (3)" in lines
    assert ran.returncode == 0  # every node was reached, whatever its data


@pytest.fixture
def intel(tmp_path):
    for node in ("a1", "a2"):
        (tmp_path / f"{node}.board").write_text("include /usr/share/hwreg/boards/intel.board\n".replace(
            "/usr/share/hwreg/boards", str(page.TOP / "sim/boards")))
    return tmp_path


def test_data_of_ff_is_no_failure_with_the_echo_and_looks_like_one_without(intel):
    absent = "hwreg-sim --board %h.board /PCI /RB 0 31 7 0"
    ran = perform(f"clush -S -R exec -w 'a[1-2]' -b '{absent}; echo \"status $?\"'", intel)
    assert "return data:0xFF\nstatus 255\n" in ran.stdout and ran.returncode == 0
    ran = perform(f"clush -S -R exec -w 'a[1-2]' -b '{absent}'", intel)
    assert "a[1-2] (2): exited with exit code 255" in ran.stderr and ran.returncode == 255


def test_a_node_that_does_not_answer_is_given_up_and_told(intel):
    hangs = "case %h in a2) sleep 30 ;; esac; hwreg-sim --board %h.board /IO /RB 0x61 >/dev/null; echo \"status $?\""
    ran = perform(f"clush -S -u 3 -R exec -w 'a[1-2]' -b '{hangs}'", intel)
    assert "clush: a2: command timeout" in ran.stderr and ran.returncode == 255
    assert "a1\n" in ran.stdout and "a2" not in ran.stdout and "status " in ran.stdout


def test_a_program_that_is_not_there_has_no_data_and_says_so(intel):
    for lock, status in (("%h.lock", 69), ("gone/%h.lock", 66)):
        nowhere = f"flock {lock} hwreg-nowhere /IO /RB 0x61; echo \"status $?\""
        ran = perform(f"clush -S -R exec -w 'a[1-2]' -b '{nowhere}'", intel)
        assert f"status {status}" in ran.stdout and "return data" not in ran.stdout
        assert "No such file" in ran.stderr and ran.returncode == 0


def test_a_mistake_in_a_board_file_is_told_without_data(intel):
    (intel / "a1.board").write_text("nonsense\n")
    ran = perform("clush -S -R exec -w a1 -b 'hwreg-sim --board %h.board /IO /RB 0x61; echo \"status $?\"'", intel)
    assert "status 125" in ran.stdout and "return data" not in ran.stdout
