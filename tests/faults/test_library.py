"""The library that fails calls: what it knows of the program, and what it makes of a wish."""

import re
import subprocess

import pytest

import injection
from harness import BUILD
from lines import Line, every_line

# Imports that cannot fail, or fail only when the program calls them wrongly.
CANNOT_FAIL = {
    "__cxa_finalize", "__errno_location", "__libc_start_main", "clearerr", "ferror", "fileno", "getauxval",
    "getpgrp", "getsid", "memchr", "memcpy", "memset", "raise", "sigaction", "sigaddset", "sigemptyset", "signal",
    "sigprocmask", "strtoull", "__stack_chk_fail",
    "ftell",  # asks a stream in memory alone
    "prctl",  # takes PR_SET_DUMPABLE with 0 from everybody
    "tcgetsid",  # is asked where tcgetpgrp has answered
    "syscall",  # rt_sigprocmask and rt_sigpending, which fail for wrong arguments; madvise, which need not succeed
}  # fmt: skip
STREAMS = {"stdin", "stdout"}
# What is written to standard output is failed where it meets the kernel (test_full_disk.py).
TO_STANDARD_OUTPUT = {"printf", "__printf_chk", "puts", "fputs", "fputc", "putc", "putchar"}


def symbols(path, *options):
    listed = subprocess.run(["nm", "-D", *options, path], capture_output=True, text=True, check=True).stdout
    return {re.sub("@.*", "", line.split()[-1]) for line in listed.splitlines() if " w " not in line}


def a_line(words):
    return next(line for line in every_line() if line.words == words)


def test_every_function_of_the_program_that_can_fail_is_failed():
    if b"__asan_init" in (BUILD / "hwreg").read_bytes():
        pytest.skip("the sanitizers' functions stand among the imports")
    doors = symbols(BUILD / "libhwfaults.so", "--defined-only")
    imported = symbols(BUILD / "hwreg", "--undefined-only")
    assert imported - doors - CANNOT_FAIL - STREAMS - TO_STANDARD_OUTPUT == set()


@pytest.fixture
def bench(tmp_path):
    return injection.Bench(tmp_path, a_line("/MEM /RB 0xFFFFFE80"))


def test_nothing_fails_while_it_counts(bench):
    result = bench.run("count")
    assert (result.failed, result.held) == ([], [])
    assert result.calls["iopl"] == 2 and result.calls["mmap"] == result.calls["munmap"] == 1


def test_the_call_of_that_number_fails_and_no_other(bench):
    result = bench.run("open 2")
    assert result.failed == ["failed open 2 -> EMFILE"]
    at = result.whole_log.index("failed open 2 -> EMFILE")
    assert result.whole_log[at - 1].startswith("open /dev/mem ")
    assert result.whole_log[at + 1] == "system modprobe msr"


def test_the_error_may_be_chosen(bench):
    result = bench.run("mmap 1 EAGAIN")
    assert result.failed == ["failed mmap 1 -> EAGAIN"]
    assert "open /dev/mem rdwr cloexec -> ok" in result.log  # where the program looks for a cached map


def test_several_calls_may_fail(bench):
    result = bench.run("mmap 1 EAGAIN; mmap 2; close 1")
    assert result.failed == ["failed close 1 -> EIO", "failed mmap 1 -> EAGAIN", "failed mmap 2 -> EPERM"]


def test_each_call_is_traced_with_what_it_is_about(bench):
    calls = bench.run("trace; open 2").trace
    counted = bench.run("open 2")
    assert {call.function: call.number for call in calls} == counted.calls
    assert [(call.wish, call.about, call.failures) for call in calls if call.function == "open"] == [
        ("open 1", "/dev/mem", 0), ("open 2", "/dev/cpu/0/msr", 0), ("open 3", "/dev/cpu/0/msr", 1)]
    last = calls[-1]
    assert (last.wish, counted.log[last.accesses]) == ("close 2", "close /dev/mem")


def test_a_signal_comes_at_the_beginning_of_a_call(bench):
    usual, result = bench.run("trace"), bench.run("munmap 1 SIGTERM")
    where = next(call.accesses for call in usual.trace if call.function == "munmap")
    assert (result.status, result.failed, result.log) == (-15, [], usual.log[:where])
    assert result.whole_log[-1] == "sent SIG15 at munmap 1"


def test_all_calls_behind_one_may_fail_too(bench):
    result = bench.run("open 1+")
    assert result.failed == [f"failed open {number} -> EMFILE" for number in (1, 2, 3)]


def test_a_number_that_is_never_reached_changes_nothing(bench):
    result, usual = bench.run("mmap 2"), bench.run("count")
    assert (result.failed, result.out, result.status, result.log) == ([], usual.out, usual.status, usual.log)


@pytest.mark.parametrize("wish", ["bogus 1", "open", "open 0", "open x", "open 1 EBOGUS", "free 1", "1 open", "open 1-",
                                  "open +", "open 1 EIO 2", "open 1 SIG65", "open 1;", "trace; bogus",
                                  "open 1; open 2; open 3; open 4; open 5"])
def test_a_wish_that_makes_no_sense_ends_the_run(bench, wish):
    assert b"makes no sense" in bench.run(wish).err


@pytest.mark.parametrize("words, kept", [
    ("iopl 3 open /dev/mem rw", "held descriptor "),
])
def test_what_is_still_held_is_told(tmp_path, words, kept):
    bench = injection.Bench(tmp_path, Line("", "intel", (), None))
    bench.first.executable = str(BUILD / "hwboard_probe")
    bench.first.command = [bench.first.executable, *words.split()]
    assert any(line.startswith(kept) for line in bench.run("count").held)


def test_every_form_of_the_reference_has_its_line():
    lines = {line.words.split()[0] for line in every_line() if line.words.startswith("/")}
    assert {"/IO", "/MEM", "/PCI", "/MSR", "/CPUID", "/SIO", "/SMBUS", "/I2C", "/SMN", "/SMU", "/SMBIOS", "/ACPI",
            "/RTC", "/SHUTDOWN", "/TIMEOUT"} <= lines
