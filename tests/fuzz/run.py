#!/usr/bin/python3
"""Runs the fuzzers from their seeds and reports what they have found.

    tests/fuzz/run.py BUILD RESULTS [NAME]     NAME: one of the fuzzers; all of them unless given

BUILD/fuzz and BUILD/fuzz-sanitize hold hwreg_fuzz without and with sanitizers; RESULTS takes a JUnit file for each
fuzzer. FUZZ_SECONDS (5) is the time of each with sanitizers; two run at a time. Without them each runs for some seconds
more, which tells its rate. Inputs that libFuzzer has found stay in BUILD/fuzz/corpus/NAME, where the next run begins,
those with which something was wrong in BUILD/fuzz/findings/NAME until somebody removes them. BUILD/fuzz/executions
gets a line for each run: date, fuzzer, executions, seconds, build, findings. Exit status 1 when a fuzzer has a failure.
"""

import concurrent.futures
import datetime
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import threading
import xml.etree.ElementTree as tree

import archive

FUZZ = pathlib.Path(__file__).resolve().parent
SECONDS = int(os.environ.get("FUZZ_SECONDS", "5"))
SECONDS_PLAIN = min(SECONDS, 3)
AT_A_TIME = 2
HANGS = 10  # seconds
LATE = 300  # seconds, by which a run may be over its time: that of the seeds, on a busy machine
LONGEST = 65536  # bytes of an input
# Executions in a second of the processor's time; less, and too little is tried. Far below what an idle machine does.
LEAST = {"sanitized": 100, "plain": 300}
LEAST_OF = {"words": {"sanitized": 500, "plain": 3000}, "tables": {"sanitized": 500, "plain": 3000}}
OPTIONS = ["-detect_leaks=0", "-print_final_stats=1", f"-timeout={HANGS}", f"-max_len={LONGEST}",
           "-entropic_scale_per_exec_time=1"]
ENVIRONMENT = {name: value for name, value in os.environ.items() if name not in ("ASAN_OPTIONS", "UBSAN_OPTIONS")}


def unpack_seeds(name, folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for seed, data in archive.read(name).items():
        (folder / seed).write_bytes(data)


def start(command, log, seconds):
    """Runs the command; gives its status and the seconds of the processor that it and its children took. One that has
    not ended long after so many seconds is killed."""
    with open(log, "wb") as to:
        running = subprocess.Popen(command, env=ENVIRONMENT, stdin=subprocess.DEVNULL, stdout=to, stderr=to)
        late = threading.Timer(seconds + LATE, os.kill, (running.pid, signal.SIGKILL))
        late.start()
        _, status, usage = os.wait4(running.pid, 0)
        late.cancel()
        running.returncode = os.waitstatus_to_exitcode(status)
    return running.returncode, usage.ru_utime + usage.ru_stime


def last_words(log):
    return pathlib.Path(log).read_text(errors="replace")[-3000:]


def failing_seeds(program, name, seeds, findings):
    """The first seed that the program does not survive, with its last words."""
    log = findings / "seeds.log"
    files = sorted(seeds.iterdir())
    if not files:
        return [f"{name}: there are no seeds"]
    status, _ = start([program, name, f"-timeout={HANGS}", f"-artifact_prefix={findings}/", *files], log, 0)
    if status == 0:
        log.unlink()
        return []
    running = re.findall(r"^Running: (.*)$", log.read_text(errors="replace"), re.M)
    return [f"{running[-1] if running else name}: status {status}, see {log}\n{last_words(log)}"]


def figures_of(log):
    text = log.read_text(errors="replace")
    executions = re.findall(r"^stat::number_of_executed_units: (\d+)|^#(\d+)\t", text, re.M)
    edges = re.search(r"\((\d+) PCs\)", text)
    reached = re.findall(r"cov: (\d+)", text)
    corpus = re.findall(r"corp: (\d+)", text)
    return {"executions": max((int(a or b) for a, b in executions), default=0), "edges": int(edges[1]) if edges else 0,
            "reached": max(map(int, reached), default=0), "corpus": int(corpus[-1]) if corpus else 0}


def fuzz(build, name, kind, seconds):
    """One run; gives its figures and what was wrong."""
    place = build / ("fuzz" if kind == "plain" else "fuzz-sanitize")
    seeds, corpus, findings = (build / "fuzz" / part / name for part in ("seeds", "corpus", "findings"))
    corpus.mkdir(parents=True, exist_ok=True)
    findings.mkdir(parents=True, exist_ok=True)
    dictionary = FUZZ / f"{name}.dict"
    before = set(findings.iterdir())
    command = [place / "hwreg_fuzz", name, *OPTIONS, f"-max_total_time={seconds}", f"-artifact_prefix={findings}/"]
    command += [f"-dict={dictionary}"] if dictionary.exists() else []
    log = build / "fuzz" / f"{name}-{kind}.log"
    status, took = start([*command, corpus, seeds], log, seconds)
    figures = figures_of(log)
    found = sorted(str(path) for path in set(findings.iterdir()) - before)
    if status != 0:
        kept = findings / f"{kind}-{datetime.datetime.now():%Y%m%d-%H%M%S}.log"
        shutil.copy(log, kept)
        found.append(f"status {status}, see {kept}\n{last_words(log)}")
    figures["rate"] = round(figures["executions"] / took) if took else 0
    with open(build / "fuzz" / "executions", "a") as record:  # a run ends with the first finding
        record.write(f"{datetime.date.today()} {name} {figures['executions']} {seconds} {kind} {int(bool(found))}\n")
    return figures, found


def too_slow(name, kind, figures):
    rate, least = figures["rate"], LEAST_OF.get(name, LEAST)[kind]
    return [f"{rate} executions in a second of the processor's time, not {least}"] if rate < least else []


def run(build, results, name):
    findings = build / "fuzz" / "findings" / name
    findings.mkdir(parents=True, exist_ok=True)
    seeds = build / "fuzz" / "seeds" / name
    unpack_seeds(name, seeds)
    checks = {"seeds_run_cleanly": failing_seeds(build / "fuzz-sanitize" / "hwreg_fuzz", name, seeds, findings)}
    report = []
    for kind, seconds in ("sanitized", SECONDS), ("plain", SECONDS_PLAIN):
        figures, found = fuzz(build, name, kind, seconds)
        checks[f"{kind}_enough_is_tried"] = too_slow(name, kind, figures)
        checks[f"{kind}_nothing_is_found"] = found
        report.append(f"{name}, {kind}: {figures['executions']} executions in {seconds} s, {figures['rate']} in one of "
                      f"the processor's, {figures['reached']} of {figures['edges']} edges, corpus {figures['corpus']}, "
                      f"{len(found)} findings")
    report += [f"  {check}: {line}" for check, lines in checks.items() for line in lines]
    print("\n".join(report), flush=True)
    write_junit(results / f"fuzz-{name}.xml", name, checks)
    return not any(checks.values())


def write_junit(path, name, checks):
    suite = tree.Element("testsuite", name=f"fuzz-{name}", tests=str(len(checks)),
                         failures=str(sum(map(bool, checks.values()))))
    for check, lines in checks.items():
        case = tree.SubElement(suite, "testcase", classname=f"fuzz.{name}", name=check)
        if lines:
            tree.SubElement(case, "failure", message=f"{len(lines)}").text = printable("\n".join(lines))
    tree.ElementTree(suite).write(path, encoding="utf-8", xml_declaration=True)


def printable(text):
    return "".join(c if c in "\n\t" or c.isprintable() else "?" for c in text)


def main():
    build, results = (pathlib.Path(folder).resolve() for folder in sys.argv[1:3])
    listed = subprocess.run([build / "fuzz" / "hwreg_fuzz", "--list"], capture_output=True, text=True, check=True)
    all_names = listed.stdout.split()
    names = sys.argv[3:] or all_names
    if not set(names) <= set(all_names):
        sys.exit(f"no such fuzzer: {' '.join(names)}; there are {' '.join(all_names)}")
    results.mkdir(parents=True, exist_ok=True)
    with concurrent.futures.ThreadPoolExecutor(AT_A_TIME) as pool:
        good = list(pool.map(lambda name: run(build, results, name), names))
    sys.exit(0 if all(good) else 1)


if __name__ == "__main__":
    main()
