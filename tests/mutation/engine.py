"""Builds the mutants, learns which tests reach them, and asks those tests."""

import collections
import dataclasses
import hashlib
import json
import os
import pathlib
import subprocess
import sys
import threading
import time

from mutants import Mutant, make_all
from rewriting import BUILD, TOP, Build, shipped

HERE = pathlib.Path(__file__).resolve().parent
FOLDER = BUILD / "mutation"
TESTS = "tests/command"
PYTEST = ["/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", "-p", "no:labgrid", "-p", "worker"]
SLOWER = 10  # so many times its usual time a test may take,
SECONDS = 6  # and so many seconds more
CPU_SLOWER, CPU_SECONDS = 3, 3  # the same for the computing time of unit tests
QUICK = 0.03  # seconds: unit tests above that are asked last
SLOW = 0.5  # and those above only where few others reach the place
FEW = 40
NONE = (1 << 16) - 1  # a number that no mutant has (Mutants.h): all is as with one, and no test may fail


def made():
    """What mutants.py makes of the sources as they are now; kept until one of them changes."""
    source = hashlib.sha256()
    for path in [*(TOP / name for name in (*shipped(), *shipped(".h"))), HERE / "mutants.py",
                 TOP / "tests/support/rewriting.py"]:
        source.update(path.read_bytes())
    kept = FOLDER / "mutants.json"
    before = json.loads(kept.read_text()) if kept.exists() else {}
    if before.get("source") != source.hexdigest():
        mutants, texts, entries = make_all([*shipped(), *shipped(".h")])
        assert max(mutant.number for mutant in mutants) < NONE and max(entries) < NONE, "Mutants.h: MOST is too few"
        before = {"source": source.hexdigest(), "mutants": [dataclasses.asdict(one) for one in mutants],
                  "texts": {path: text.decode() for path, text in texts.items()},
                  "entries": {str(number): names for number, names in entries.items()}}
        FOLDER.mkdir(parents=True, exist_ok=True)
        kept.write_text(json.dumps(before))
    return before


def prepared():
    """A name for the rewritten sources, the mutants by their numbers, and what each entry of a function names; the
    build is made where something has changed."""
    found = made()
    texts = {path: text.encode() for path, text in found["texts"].items()}
    Build(FOLDER, texts, HERE / "Mutants.h", [HERE / "Mutants.cpp"], HERE / "UnitServer.cpp",
          ["-Wno-narrowing", "-fpermissive", f"-I{HERE}"]).make()
    mutants = {one["number"]: Mutant(**one) for one in found["mutants"]}
    digest = hashlib.sha256(json.dumps(found["texts"], sort_keys=True).encode()).hexdigest()
    return digest, mutants, {int(number): names for number, names in found["entries"].items()}


class Reach:
    """Which tests reach which mutants, and how long they take. A table's mutants are reached by every test that enters
    a function which names the table."""

    def __init__(self, lines, mutants, entries):
        self.seconds = {line["test"]: line["seconds"] for line in lines}
        self.tests = collections.defaultdict(list)
        naming = collections.defaultdict(set)
        for line in lines:
            for number in line["reached"]:
                self.tests[number].append(line["test"])
                for name in entries.get(number, ()):
                    naming[name].add(line["test"])
        for number, mutant in mutants.items():
            if mutant.table:
                own = pathlib.Path(mutant.file).stem + "."  # the module's unit tests may look at it themselves
                named = {test for test in self.seconds if test.startswith(own)}
                self.tests[number] = sorted(naming[mutant.table] | named)


def environment(**more):
    return {**os.environ, "HWREG_BUILD": str(FOLDER / "bin"), "PYTHONPATH": str(HERE), **more}


def recorded(name, digest, record):
    """The lines that record() gave, kept as long as the mutants and the tests stay as they are. A test that fails
    without a mutant tells nothing, and is not asked."""
    kept = FOLDER / f"reach-{name}.json"
    before = json.loads(kept.read_text()) if kept.exists() else {}
    if before.get("digest") != digest:
        before = {"digest": digest, "lines": record()}
        kept.write_text(json.dumps(before))
    for line in before["lines"]:
        if not line["passed"]:
            print(f"fails without a mutant, and is not asked: {line['test']}")
    return [line for line in before["lines"] if line["passed"]]


def tests_digest(digest, folder):
    found = hashlib.sha256(digest.encode())
    for path in sorted((TOP / folder).glob("*.[cp][py]*")):
        found.update(path.read_bytes())
    return found.hexdigest()


def record_unit():
    ran = subprocess.run([FOLDER / "bin/hwreg_unit"], env=environment(HWREG_SERVE="record"), stdout=subprocess.PIPE,
                         stdin=subprocess.DEVNULL, text=True, check=False, timeout=580)
    lines = []
    for line in ran.stdout.splitlines():
        test, milliseconds, passed, *reached = line.split()
        lines.append({"test": test, "seconds": int(milliseconds) / 1000, "reached": [int(one) for one in reached],
                      "passed": passed == "1"})
    return lines


def record_commands(choice, jobs):
    folder = FOLDER / "recording"
    folder.mkdir(exist_ok=True)
    for path in folder.glob("*"):
        path.unlink()
    subprocess.run([*PYTEST, "-n", str(jobs), *(["-k", choice] if choice else []), TESTS], cwd=TOP, check=False,
                   env=environment(HWREG_MUTATION=f"record {folder}"))
    return [json.loads(line) for path in sorted(folder.glob("*.json")) for line in path.read_text().splitlines()]


class Server:
    """A process that answers a line with a line; started when it is needed."""

    process = None

    def ask(self, line):
        if self.process is None:
            self.start()
        self.commands.write(line + "\n")
        self.commands.flush()
        return self.answers.readline()

    def stop(self):
        if self.process is not None:
            self.commands.close()
            self.process.wait()
            self.process = None


class UnitServer(Server):
    def __init__(self, _number, reach):
        self.reach = reach

    def start(self):
        self.process = subprocess.Popen([FOLDER / "bin/hwreg_unit"], env=environment(HWREG_SERVE="serve"),
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, cwd=TOP)
        self.commands, self.answers = self.process.stdin, self.process.stdout

    def test(self, mutant):
        tests = self.reach.tests[mutant.number]
        seconds = self.reach.seconds
        groups = [[test for test in tests if least <= seconds[test] < most]
                  for least, most in ((0, QUICK), (QUICK, SLOW), (SLOW, 1e9 if len(tests) < FEW else SLOW))]
        for some in filter(None, groups):
            usual = sum(seconds[test] for test in some)
            limits = int(2 * SECONDS + SLOWER * usual), int(CPU_SECONDS + CPU_SLOWER * usual)
            outcome, *by = self.ask(f"{mutant.number} {limits[0]} {limits[1]} {':'.join(some)}").split()
            if outcome != "survived":
                return outcome, " ".join(by)
        return "survived" if tests else "unreached", ""


class CommandServer(Server):
    """Tests of commands, the quickest of each file in turn until they would take `budget` seconds."""

    def __init__(self, number, reach, budget):
        self.number, self.reach, self.budget = number, reach, budget
        self.killers = collections.Counter()

    def start(self):
        given, asked = os.pipe()
        answered, given_back = os.pipe()
        self.process = subprocess.Popen(
            [*PYTEST, "-s", "-p", "no:timeout", "-p", "no:xdist", "--basetemp", FOLDER / f"temporary-{self.number}",
             TESTS],
            cwd=TOP, env=environment(HWREG_MUTATION=f"serve {given} {given_back}"), pass_fds=(given, given_back),
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        os.close(given)
        os.close(given_back)
        self.commands, self.answers = os.fdopen(asked, "w"), os.fdopen(answered)

    def chosen(self, number):
        files = collections.defaultdict(list)
        for test in sorted(self.reach.tests[number], key=lambda test: self.reach.seconds[test] / self.weight(test)):
            files[test.split("::")[0]].append(test)
        ranked = sorted((rank, self.reach.seconds[test] / self.weight(test), test)
                        for tests in files.values() for rank, test in enumerate(tests))
        spent, chosen = 0, []
        for _, _, test in ranked:
            if spent + self.reach.seconds[test] <= self.budget or not chosen:
                spent += self.reach.seconds[test]
                chosen.append(test)
        return chosen

    def weight(self, test):
        return 1 + self.killers[test]

    def test(self, mutant):
        tests = self.chosen(mutant.number)
        if not tests:
            return "unreached", ""
        while tests:
            outcome, by = self.ask_for(mutant, tests)
            if outcome == "survived":
                break
            if self.ask_for(mutant, [by])[0] != "survived":  # twice, since a busy machine can make a test fail once
                self.killers[by] += 1
                return outcome, by
            tests = tests[tests.index(by) + 1:]
        return "survived", ""

    def ask_for(self, mutant, tests):
        limits = [(test, SECONDS + SLOWER * self.reach.seconds[test]) for test in tests]
        answer = json.loads(self.ask(json.dumps({"number": mutant.number, "tests": limits})))
        return answer["outcome"], answer["by"]


class Results:
    """What has been found, in a file that grows by a line for each mutant and stage; the lines of other sources do not
    count."""

    def __init__(self, digest, path=FOLDER / "results.json"):
        self.path, self.digest, self.lock, self.found = path, digest, threading.Lock(), {}
        for line in path.read_text().splitlines() if path.exists() else []:
            result = json.loads(line)
            if result["digest"] == digest:
                self.found[result["number"], result["stage"]] = result

    def add(self, number, stage, outcome, by, seconds):
        result = {"digest": self.digest, "number": number, "stage": stage, "outcome": outcome, "by": by,
                  "seconds": round(seconds, 3)}
        with self.lock:
            self.found[number, stage] = result
            with open(self.path, "a", encoding="utf-8") as file:
                file.write(json.dumps(result) + "\n")

    def killed(self, number):
        """The test that killed it, or None."""
        for stage in ("unit", "command"):
            result = self.found.get((number, stage), {})
            if result.get("outcome") in ("killed", "timeout"):
                return result["by"]
        return None

    def killed_at_once(self, number):
        """The test, where it took little time and failed by itself."""
        found = [self.found.get((number, stage), {}) for stage in ("unit", "command")]
        return next((one["by"] for one in found if one.get("outcome") == "killed" and one["seconds"] < 2), None)

    def decided(self, number):
        return self.killed(number) is not None or (number, "command") in self.found


def work(stage, servers, mutants, results, until):
    """Asks the servers, each in a thread of its own, for these mutants."""
    waiting, done = list(reversed(mutants)), [0]

    def serve(server):
        while time.monotonic() < until:
            try:
                mutant = waiting.pop()
            except IndexError:
                break
            start = time.monotonic()
            results.add(mutant.number, stage, *server.test(mutant), time.monotonic() - start)
            done[0] += 1
            if sys.stderr.isatty() or done[0] % 100 == 0:
                print(f"{stage}: {done[0]} of {len(mutants)}", file=sys.stderr, flush=True)
        server.stop()

    threads = [threading.Thread(target=serve, args=(server,)) for server in servers]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
