"""A plugin for pytest, which the engine loads: tells which mutants each test of the commands reaches, or tests mutants.

$HWREG_MUTATION is "record FOLDER": a line of JSON for each test goes to a file there. Or it is "serve IN OUT", two
descriptors: pytest collects the tests and then takes requests from IN, a line of JSON each with a mutant's number and
the tests to run, in a child of its own that stops at the first failure. What it found goes to OUT.
"""

import json
import os
import pathlib
import select
import shutil
import signal
import time

import pytest
from _pytest.runner import runtestprotocol

MOST = 1 << 16  # as in Mutants.h
MODE, *OPERANDS = os.environ.get("HWREG_MUTATION", "none").split()


class Recorder:
    """Which numbers each test asks for; failures come back for the engine to refuse."""

    def __init__(self, folder):
        self.marks = pathlib.Path(folder, f"marks-{os.getpid()}")
        self.lines = pathlib.Path(folder, f"reached-{os.getpid()}.json")
        os.environ["HWREG_REACHED"] = str(self.marks)
        os.environ["HWREG_MUTANT"] = str(MOST - 1)  # no mutant has it: its limits hold, and its tables are filled
        self.passed = True

    @pytest.hookimpl(hookwrapper=True)
    def pytest_runtest_makereport(self, item):
        outcome = yield
        self.passed = self.passed and outcome.get_result().outcome != "failed"

    @pytest.hookimpl(hookwrapper=True)
    def pytest_runtest_protocol(self, item):
        self.marks.write_bytes(bytes(MOST))
        self.passed, start = True, time.monotonic()
        yield
        reached = [number for number, mark in enumerate(self.marks.read_bytes()) if mark]
        with open(self.lines, "a", encoding="utf-8") as file:
            file.write(json.dumps({"test": item.nodeid, "seconds": time.monotonic() - start, "reached": reached,
                                   "passed": self.passed}) + "\n")


class Server:
    def __init__(self, commands, answers):
        self.commands, self.answers = open(int(commands), encoding="utf-8"), int(answers)
        os.set_inheritable(self.answers, False)

    def pytest_runtestloop(self, session):
        items = {item.nodeid: item for item in session.items}
        folder = session.config._tmp_path_factory.getbasetemp()
        for line in self.commands:
            request = json.loads(line)
            answer = self.test(request["number"], [(items[name], limit) for name, limit in request["tests"]])
            os.write(self.answers, (json.dumps(answer) + "\n").encode())
            for path in folder.glob("*"):
                shutil.rmtree(path, ignore_errors=True) if path.is_dir() else path.unlink()
        return True

    def test(self, number, tests):
        ours, theirs = os.pipe()
        child = os.fork()
        if child == 0:
            os.setpgid(0, 0)
            self.run(number, [item for item, _ in tests], theirs)
        os.close(theirs)
        outcome, last = "survived", ""
        for item, limit in tests:  # each is told of as it begins, and the end of all by the end of the pipe
            if not select.select([ours], [], [], limit + 20)[0] or not os.read(ours, 1):
                break
            last = item.nodeid
            if not select.select([ours], [], [], limit)[0]:
                outcome = "timeout"
                break
        os.close(ours)
        if outcome == "timeout":
            os.kill(child, signal.SIGKILL)
        status = os.waitpid(child, 0)[1]
        try:
            os.killpg(child, signal.SIGKILL)  # what a test has left behind
        except ProcessLookupError:
            pass
        if outcome != "timeout" and status != 0:
            outcome = "killed"
        return {"outcome": outcome, "by": last if outcome != "survived" else ""}

    @staticmethod
    def run(number, items, told):
        if number:
            os.environ["HWREG_MUTANT"] = str(number)
        status = 1
        try:
            for item in items:
                os.write(told, b".")
                if any(report.failed for report in runtestprotocol(item, log=False, nextitem=None)):
                    break
            else:
                status = 0
        finally:
            os._exit(status)


def pytest_configure(config):
    plugin = {"record": Recorder, "serve": Server}.get(MODE)
    if plugin is not None:
        config.pluginmanager.register(plugin(*OPERANDS))
