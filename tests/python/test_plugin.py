"""pytest gets a machine by the fixture hwreg_machine; the plugin is found as the package installs it."""

import os
import shutil
import subprocess

import pytest

from harness import TOP

TESTS = """
def test_first(hwreg_machine):
    assert hwreg_machine.memory.write(0x2000, 7, 8) == 7
    assert hwreg_machine.memory.read(0x2000, 8) == 7

def test_second(hwreg_machine):
    assert hwreg_machine.memory.read(0x2000, 8) == 0

def test_power(hwreg_machine):
    hwreg_machine.rtc.cycle(60)
"""


@pytest.fixture
def pytest_run(tmp_path):
    """Runs these tests in a folder, where the package lies as Debian has it."""
    site = tmp_path / "dist-packages"
    shutil.copytree(TOP / "python" / "hwreg", site / "hwreg", ignore=shutil.ignore_patterns("__pycache__"))
    metadata = site / "hwreg-1.01.dist-info"
    metadata.mkdir()
    shutil.copy(TOP / "python" / "dist-info" / "entry_points.txt", metadata)
    text = (TOP / "python" / "dist-info" / "METADATA.in").read_text().replace("@PROJECT_VERSION@", "1.01")
    (metadata / "METADATA").write_text(text)
    (tmp_path / "test_machine.py").write_text(TESTS)
    (tmp_path / "extended.board").write_text("include intel.board\ncmos-stop\n")
    environment = {**os.environ, "PYTHONPATH": str(site), "HWREG_SIM": str(TOP / "sim" / "hwreg-sim")}

    def go(*options):
        return subprocess.run(["/usr/bin/python3", "-m", "pytest", "-p", "no:cacheprovider", "-v", *options],
                              cwd=tmp_path, env=environment, capture_output=True, text=True, check=False)  # fmt: skip

    return go


def test_each_test_gets_a_simulated_machine_of_its_own(pytest_run):
    ran = pytest_run("--hwreg-machine=sim:intel")
    assert "test_first PASSED" in ran.stdout and "test_second PASSED" in ran.stdout
    assert "test_power FAILED" in ran.stdout and "NotAllowed" in ran.stdout


def test_power_is_an_option(pytest_run):
    ran = pytest_run("--hwreg-machine=sim:extended.board", "--hwreg-power")
    assert "3 passed" in ran.stdout, ran.stdout


def test_an_installed_plugin_can_be_named_too(pytest_run):
    """As the source tree has to: pytest takes a plugin up once by each name."""
    ran = pytest_run("-p", "hwreg.pytest_plugin", "--hwreg-machine=sim:extended.board", "--hwreg-power")
    assert "3 passed" in ran.stdout, ran.stderr


def test_without_a_machine_the_tests_are_skipped(pytest_run):
    ran = pytest_run("-rs")
    assert "3 skipped" in ran.stdout and "give --hwreg-machine" in ran.stdout


@pytest.mark.parametrize("machine", ["", "board7", "ssh:", "sim:", "local:x"])
def test_a_machine_that_is_none(pytest_run, machine):
    ran = pytest_run(f"--hwreg-machine={machine}")
    assert ran.returncode == 4 and "it is local, ssh:[USER@]HOST or sim:BOARD" in ran.stderr


def test_the_names_of_machines(tmp_path):
    from hwreg.pytest_plugin import transport_of

    ssh = transport_of("ssh:root@board7", tmp_path)
    assert (ssh.user, ssh.host) == ("root", "board7") and transport_of("ssh:board7", tmp_path).user is None
    assert type(transport_of("local", tmp_path)).__name__ == "Local"
