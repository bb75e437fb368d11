#!/usr/bin/python3
"""Runs the fuzzers from their seeds and reports what they have found.

    tests/fuzz/run.py BUILD RESULTS [NAME]     NAME: words, tables, devices or keys; all of them unless given

BUILD holds hwreg_fuzz; RESULTS takes a JUnit file for each fuzzer. FUZZ_SECONDS (60) is the time of each; two run at
a time. What AFL++ writes stays in BUILD/out/NAME until the next run. Exit status 1 when a fuzzer has a failure.
"""

import concurrent.futures
import os
import pathlib
import shutil
import subprocess
import sys
import xml.etree.ElementTree as tree

import archive

FUZZ = pathlib.Path(__file__).resolve().parent
NAMES = ("words", "tables", "devices", "keys")
SECONDS = int(os.environ.get("FUZZ_SECONDS", "60"))
AT_A_TIME = 2
LEAST_RATE = 10  # executions a second; slower than that and nothing has been tried
SLOWEST = 2000  # milliseconds; what takes longer is tried again with REALLY_SLOW and then is a hang
REALLY_SLOW = 10000
ENVIRONMENT = {
    **{name: value for name, value in os.environ.items() if name not in ("ASAN_OPTIONS", "UBSAN_OPTIONS")},
    "AFL_SKIP_CPUFREQ": "1", "AFL_NO_AFFINITY": "1", "AFL_I_DONT_CARE_ABOUT_MISSING_CRASHES": "1", "AFL_NO_UI": "1",
    "AFL_HANG_TMOUT": str(REALLY_SLOW), "AFL_SKIP_CRASHES": "1",
}


def unpack_seeds(name, folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for seed, data in archive.read(name).items():
        (folder / seed).write_bytes(data)


def failing_seeds(program, name, seeds):
    """The seeds that the program does not survive, each with how it ended."""
    failed = []
    for seed in sorted(seeds.iterdir()):
        try:
            done = subprocess.run([program, name, seed], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                  env=ENVIRONMENT, timeout=REALLY_SLOW / 1000)
            ended = f"status {done.returncode}\n{done.stderr.decode(errors='replace')}" if done.returncode else ""
        except subprocess.TimeoutExpired:
            ended = "did not end"
        if ended:
            failed.append(f"{seed}: {ended}")
    return failed


def fuzz(program, name, seeds, out):
    """Runs AFL++; gives its figures, or None and its last words when it could not run."""
    shutil.rmtree(out, ignore_errors=True)
    out.mkdir(parents=True)
    dictionary = FUZZ / f"{name}.dict"
    command = ["afl-fuzz", "-V", str(SECONDS), "-t", str(SLOWEST), "-m", "none", "-i", seeds, "-o", out]
    command += ["-x", dictionary] if dictionary.exists() else []
    done = subprocess.run([*command, "--", program, name, "@@"], env=ENVIRONMENT, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    (out / "log").write_bytes(done.stdout)
    statistics = out / "default" / "fuzzer_stats"
    if done.returncode != 0 or not statistics.exists():
        return None, done.stdout.decode(errors="replace")[-2000:]
    lines = (line.split(":", 1) for line in statistics.read_text().splitlines() if ":" in line)
    return {key.strip(): value.strip() for key, value in lines}, ""


def findings(out, kind):
    return sorted(str(path) for path in (out / "default" / kind).glob("id:*"))


def run(build, results, name):
    program, seeds, out = build / "hwreg_fuzz", build / "seeds" / name, build / "out" / name
    unpack_seeds(name, seeds)
    checks = {"seeds_run_cleanly": failing_seeds(program, name, seeds)}
    figures, complaint = fuzz(program, name, seeds, out)
    if figures is None:
        checks["the_fuzzer_runs"] = [complaint]
        report = [f"{name}: the fuzzer did not run, see {out / 'log'}"]
    else:
        executions = int(figures["execs_done"])
        least = LEAST_RATE * SECONDS
        checks["enough_is_tried"] = [f"{executions} executions, not {least}"] if executions < least else []
        checks["no_crashes"] = findings(out, "crashes")
        checks["no_hangs"] = findings(out, "hangs")
        report = [f"{name}: {executions} executions, {figures['execs_per_sec']}/s, {figures['bitmap_cvg']} of "
                  f"{figures.get('total_edges', '?')} edges, corpus {figures['corpus_count']} "
                  f"({figures['corpus_favored']} favoured), stability {figures['stability']}, "
                  f"{len(checks['no_crashes'])} crashes, {len(checks['no_hangs'])} hangs"]
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
    names = sys.argv[3:] or NAMES
    if not set(names) <= set(NAMES):
        sys.exit(f"no such fuzzer: {' '.join(names)}; there are {' '.join(NAMES)}")
    results.mkdir(parents=True, exist_ok=True)
    with concurrent.futures.ThreadPoolExecutor(AT_A_TIME) as pool:
        good = list(pool.map(lambda name: run(build, results, name), names))
    sys.exit(0 if all(good) else 1)


if __name__ == "__main__":
    main()
