"""For pytest: the fixture `hwreg_machine`, and options that say which machine it is."""

from __future__ import annotations

import pathlib

import pytest

from hwreg.machine import Machine
from hwreg.transports import Local, Sim, Ssh, Transport

KINDS = "local, ssh:[USER@]HOST or sim:BOARD"


def pytest_addoption(parser: pytest.Parser) -> None:
    group = parser.getgroup("hwreg")
    group.addoption("--hwreg-machine", metavar="MACHINE", help=f"machine of the fixture hwreg_machine: {KINDS}")
    group.addoption("--hwreg-power", action="store_true", help="tests may switch the machine off and restart it")


def pytest_configure(config: pytest.Config) -> None:
    if (machine := config.getoption("--hwreg-machine")) is not None:
        transport_of(machine, pathlib.Path())


def transport_of(machine: str, folder: pathlib.Path) -> Transport:
    kind, _, name = machine.partition(":")
    if machine == "local":
        return Local()
    if kind == "ssh" and name:
        user, at, host = name.rpartition("@")
        return Ssh(host, user=user if at else None)
    if kind == "sim" and name:
        return Sim(name, state=folder / "machine")
    raise pytest.UsageError(f"--hwreg-machine={machine}: it is {KINDS}")


@pytest.fixture
def hwreg_machine(request: pytest.FixtureRequest, tmp_path: pathlib.Path) -> Machine:
    """The machine under test. A simulated one is new for each test, and keeps what is written until the test's end."""
    machine = request.config.getoption("--hwreg-machine")
    if machine is None:
        pytest.skip("no machine: give --hwreg-machine")
    return Machine(transport_of(machine, tmp_path), power=request.config.getoption("--hwreg-power"))
