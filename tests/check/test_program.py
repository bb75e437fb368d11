"""hwreg-check's command line, its report and its JSON, its exit statuses; and kernel files that lie."""

import json
import os
import subprocess

import pytest

from harness import BUILD, CLOSED, Run
from kernel import ROOT, quoted, table

FILES = ["/proc/self/status", "/proc/self/uid_map", "/proc/cmdline", "/proc/iomem", "/proc/ioports", "/proc/modules",
         "/proc/bus/pci/devices", "/proc/sys/kernel/modules_disabled", "/sys/devices/system/cpu/online",
         "/sys/devices/system/cpu/present", "/sys/firmware/acpi/tables/MCFG", "/sys/firmware/dmi/tables/DMI",
         "/sys/firmware/dmi/tables/smbios_entry_point", "/sys/kernel/security/lockdown", "/sys/class/rtc/rtc0/name",
         "/sys/class/rtc/rtc0/wakealarm", "/sys/class/rtc/rtc0/device/power/wakeup",
         "/sys/bus/pci/devices/0000:00:00.0/config", "/sys/module/msr/parameters/allow_writes",
         "/run/systemd/container", "/boot/config-RELEASE", "/lib/modules/RELEASE/modules.dep",
         "/lib/modules/RELEASE/modules.builtin"]  # fmt: skip
MEMBERS = ["words", "does", "verdict", "status", "shows", "because", "why", "remedy", "cautions"]


def program(run, args, **more):
    return run(args, program="hwreg-check", **more)


def test_help_and_version_look_at_nothing(run):
    told = program(run, "--json --help")
    assert told.text.startswith("usage: hwreg-check") and (told.status, told.err, told.log) == (0, b"", [])
    assert program(run, "--version").text == "hwreg-check 1.01\n"


@pytest.mark.parametrize("words", ["--jsn", "--json --Help /PCI", "--helpme"])
def test_a_wrong_option_is_told(run, words):
    told = program(run, words)
    assert (told.status, told.text, told.log) == (3, "", [])
    assert words.split()[-1] in told.err.decode() or "--Help" in told.err.decode()


@pytest.mark.parametrize("words, taken", [
    ("/PCI --help", ["/PCI", "--help"]), ("-- --help", ["--help"]), ("-- -- /IO", ["--", "/IO"]),
    ("/SHUTDOWN --json", ["/SHUTDOWN", "--json"]), ("-json", ["-json"]),
])  # fmt: skip
def test_the_first_word_ends_the_options(run, words, taken):
    assert json.loads(program(run, f"--json {words}").out)["words"] == taken


@pytest.mark.parametrize("words", [[b"\xff\xfe"], [b"\xc3\xa4", b"\xf0\x9f\x98\x80"], [b'"\\\x1b\n\t/'], [b""],
                                   [b"\xed\xa0\x80", b"\xc0\x80", b"\xf5\x80\x80\x80", b"\xe2\x82"], [b"x" * 5000]])
def test_any_bytes_of_a_word_come_back_from_json(words):
    ran = subprocess.run([BUILD / "hwreg-check", "--json", "--", *words], stdout=subprocess.PIPE, check=False)
    assert ran.stdout.isascii() and ran.stdout.count(b"\n") == 1
    told = json.loads(ran.stdout)
    assert [os.fsencode(word) for word in told["words"]] == words
    assert list(told) == MEMBERS


def test_a_word_moves_no_cursor(run):
    assert not set(program(run, ["/PCI", "\x1b[2J\r\x07", "x"]).out) & set(b"\x1b\r\x07")
    late = program(run, ["/PCI", "\x9b2J\u00e4\u00c2", "x"]).out
    assert b"\xc2\x9b" not in late and "?2J\u00e4\u00c2".encode() in late


def test_without_memory_nothing_is_claimed(tmp_path):
    if b"__asan_init" in (BUILD / "hwreg-check").read_bytes():
        pytest.skip("the sanitizers allocate themselves")
    line = Run(tmp_path, "--json /PCI /RB 0 0 0 0", "intel", [], False, "hwreg-check", None)
    preload = {"LD_PRELOAD": f"{BUILD}/libhwfaults.so:{BUILD}/libhwboard.so", "HWBOARD_FAIL": "malloc 1+"}
    ran = subprocess.run(line.command, executable=line.executable, env={**line.environment, **preload},
                         stdout=subprocess.PIPE, check=False)  # fmt: skip
    told = json.loads(ran.stdout)
    assert (ran.returncode, told["verdict"], told["status"]) == (1, "refused", None) and "no memory" in told["why"]


def test_the_whole_report(run):
    told = program(run, "--json")
    report = json.loads(told.out)
    assert list(report) == ["version", "kernel", "findings", "commands"]
    assert report["kernel"] == os.uname().release
    assert all(list(finding) == ["name", "state", "found", "remedy"] for finding in report["findings"])
    assert all(finding["found"] for finding in report["findings"])
    assert all(list(command) == MEMBERS for command in report["commands"])
    verdicts = {command["verdict"] for command in report["commands"]}
    assert told.status == (2 if "other" in verdicts else 1 if "refused" in verdicts else 0)
    text = program(run, "").text
    assert max(len(line) for line in text.splitlines()) <= 100 and text.isascii()
    for finding in report["findings"]:
        assert f" {finding['name']} " in text
    for command in report["commands"]:
        assert f" {' '.join(command['words'])}" in text


@pytest.mark.parametrize("words, board, status", [
    ("/PCI /RB 0 0 0 0", "intel", 0), ("/PCI /RB 0 0 0 0", "noiopl", 1), ("", "noiopl", 1), ("", "intel", 1)])
def test_the_exit_status(run, words, board, status):
    assert program(run, words, board=board).status == status


def test_a_window_elsewhere_ends_with_2(run):
    extra = ["pci 00:00.0 8086:3405 class 060000", "  dword 60 0"]
    assert program(run, "/PCI /RD 0 0 0 0x100", extra=extra).status == 2
    assert program(run, "", extra=extra).status == 2


def test_output_that_cannot_be_written_is_told(run):
    with open("/dev/full", "wb") as full:
        told = program(run, "--json", stdout=full)
    assert told.status == 3 and "standard output" in told.err.decode()


@pytest.mark.parametrize("closed", [{"stdout": CLOSED}, {"stderr": CLOSED}, {"stdin": CLOSED, "stdout": CLOSED}])
def test_nothing_goes_into_memory_where_output_is_closed(run, closed):
    told = program(run, "/PCI /RB 0 0 0 0", keep_memory=True, **closed)
    assert told.memory(0, 8) == bytes.fromhex("53ff00f053ff00f0") and told.status == 0


def test_a_set_user_id_copy_refuses(tmp_path):
    copy = tmp_path / "hwreg-check"
    copy.write_bytes((BUILD / "hwreg-check").read_bytes())
    if os.geteuid() != 0:
        pytest.skip("needs root")
    copy.chmod(0o4755)
    tmp_path.chmod(0o755)
    for folder in list(tmp_path.parents)[:3]:
        folder.chmod(folder.stat().st_mode | 0o055)
    command = ["setpriv", "--reuid", "65534", "--clear-groups", copy, "--version"]
    ran = subprocess.run(command, capture_output=True, check=False)
    assert (ran.returncode, ran.stdout) == (3, b"")


CONTENTS = {
    "absent": lambda path: [f'file "{path}" ENOENT'],
    "refused": lambda path: [f'file "{path}" EACCES'],
    "empty": lambda path: table(path, b"") or [f'file "{path}" ""'],
    "zeros": lambda path: table(path, bytes(5000)),
    "ones": lambda path: table(path, b"\xff" * 5000),
    "one byte": lambda path: table(path, b"\x11"),
    "endless line": lambda path: table(path, b"0-" * 10000),
    "text": lambda path: quoted(path, "0-0 : x", "99999999999999999999-0,5-4294967295", "-1", "[", "CapEff: zz",
                                "a" * 300, "\t" * 40, "0000\t80863e30", "zzzz\tzzzzzzzz", "install msr",
                                "msr.ko:", "/msr.ko"),
}


@pytest.mark.parametrize("contents", CONTENTS)
def test_files_that_lie_are_survived(run, contents):
    release = os.uname().release
    extra = [line for path in FILES for line in CONTENTS[contents](path.replace("RELEASE", release))]
    told = program(run, "--json", extra=extra)
    report = json.loads(told.out)
    assert told.status in (0, 1, 2) and told.err == b"" and len(report["findings"]) == 25


@pytest.mark.parametrize("path", ["/proc/iomem", "/proc/modules", "/sys/devices/system/cpu/online"])
def test_a_long_file_is_survived(run, path):
    extra = [*ROOT, *quoted(path, *[f"{n:x}-{n:x} : System RAM {'y' * 150}" for n in range(5000)])]
    told = program(run, "--json", extra=extra)
    assert told.status in (0, 1, 2) and json.loads(told.out)
