"""docs/labs.md as it stands, on a guest whose power labgrid switches."""

import re
import xml.etree.ElementTree

import pytest

from board import PAGE, PRODUCT, Board, board_machine

pytestmark = pytest.mark.timeout(2400)  # a start takes ten seconds, and a minute where others are at work
TEXT = PAGE.read_text()
CYCLES = 20
COMMANDS = [line.strip() for line in TEXT.splitlines() if line.startswith("    python3 ")]
SCRIPT, TEST = COMMANDS


def test_the_test_of_the_page_cycles_twenty_times_and_loses_none(tmp_path):
    with Board(tmp_path) as board:
        ran = board.run(*TEST.split(), "--junitxml=report.xml", "-p", "no:cacheprovider")
    assert ran.returncode == 0, ran.stdout
    (report,) = xml.etree.ElementTree.parse(tmp_path / "report.xml").getroot()
    assert (report.get("tests"), report.get("failures"), report.get("errors")) == (str(CYCLES - 1), "0", "0")
    switched = (tmp_path / "switched").read_text().splitlines()
    assert switched == ["off 3", "on 3"] * CYCLES + ["off 3"]  # the last one is this test's


@pytest.fixture(scope="module")
def night(tmp_path_factory):
    """Four cycles by the script of the page, of which one finds a kernel that refuses, and one another board."""
    others = {2: board_machine(append="lockdown=integrity"), 3: board_machine(product="Other Board")}
    with Board(tmp_path_factory.mktemp("night"), others=others) as board:
        return board.run(*SCRIPT.replace(str(CYCLES), "4").split())


def test_the_script_tells_the_lost_cycle_and_the_other_values(night):
    lines = [line for line in night.stdout.splitlines() if re.match(r"cycle |\d", line)]
    first, lost, other, last, sums = lines
    assert (first, last) == ("cycle 1: the same", "cycle 4: the same")
    assert lost == "cycle 2: lost: no access to the hardware: not root, or the kernel does not allow it"
    assert other == f"cycle 3: /SMBIOS /TYPE 1: 'Other Board', in the first cycle '{PRODUCT}'"
    assert sums == "4 cycles, 1 lost, 1 with other values"
    assert night.returncode == 1


def test_a_board_that_does_not_start_is_a_lost_cycle(tmp_path):
    with Board(tmp_path, others={1: None, 2: None}) as board:
        script = tmp_path / "cycles.py"
        script.write_text(script.read_text().replace("WAIT = 180", "WAIT = 3"))
        ran = board.run(*SCRIPT.replace(str(CYCLES), "2").split())
    lost = [f"cycle {number}: lost: no ssh within 3 s" for number in (1, 2)]
    assert ran.stdout.splitlines() == [*lost, "2 cycles, 2 lost, 0 with other values"]
    assert ran.returncode == 1


def test_a_line_that_will_not_work_ends_the_script_before_it_begins(tmp_path):
    with Board(tmp_path, board_machine(append="lockdown=integrity")) as board:
        ran = board.run(*SCRIPT.split())
    assert ran.returncode == 1 and "cycles, " not in ran.stdout
    assert re.search(r"^/PCI /RD 0 0x1c 0 0x100: .+: .+$", ran.stdout, re.MULTILINE)


def test_the_other_commands_of_the_page(tmp_path):
    with Board(tmp_path) as board:
        board.run("relay", "on", "3")
        board.wait()
        assert board.run("python3", "look.py").stdout == "0x29c08086\n"
        on_board = [line.strip() for line in TEXT.splitlines() if re.match(" {4}(hwreg-check|flock)", line)]
        assert len(on_board) == 3
        for command in on_board:
            ran = board.run("ssh", "-F", "ssh_config", "board7", command)
            assert ran.stdout.strip() and ran.returncode != 127, command
