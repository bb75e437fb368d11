"""The command lines: what is run where, for how long, and what comes back through ssh and its shell."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import time

import pytest

from harness import BUILD, TOP
from hwreg import Completed, Cycle, HwregError, Local, Machine, NoAnswer, NotAllowed, Ran, Sim, Ssh, TimedOut, Transport


def make_program(path, text):
    path.parent.mkdir(exist_ok=True)
    path.write_text(f"#!/bin/sh\n{text}\n")
    path.chmod(0o755)
    return path


@pytest.fixture
def far(tmp_path, monkeypatch):
    """A machine behind ssh: `ssh` is a program that gives the line to a shell, as sshd does, where `hwreg` is that of a
    simulated machine. far(LINE...) makes it with further lines of its board."""
    home = tmp_path / "far home"

    def make(*lines, **options):
        board = tmp_path / "far.board"
        board.write_text("\n".join(["include intel.board", *lines, ""]))
        sim = f"exec '{TOP}/sim/hwreg-sim' --board '{board}' --state '{tmp_path}/far state'"
        make_program(home / "hwreg", f'{sim} -- "$@"')
        ssh = make_program(tmp_path / "near" / "ssh",
                           f"printf '%s\\n' \"$@\" >>'{tmp_path}/ssh'\n"
                           f"for last; do :; done\ncd '{home}'\nPATH='{home}':$PATH\nexec sh -c \"$last\"")  # fmt: skip
        monkeypatch.setenv("PATH", f"{ssh.parent}:{os.environ['PATH']}")
        return Machine(Ssh("board7", user="root", options=["-F", "config"]), lock=str(tmp_path / "far lock"), **options)

    return make


def test_the_line_can_be_typed(machine):
    simulated = machine()
    line = simulated.command("/PCI", "/RB", "0", "0x1f", "0", "0")
    typed = subprocess.run(line, shell=True, capture_output=True, text=True, check=False)
    assert typed.stdout == "PCI Read Byte BDFO: 0 1F 0 0, return data:0x86\n" and typed.returncode == 0x86
    ran = simulated.run("/PCI", "/RB", "0", "0x1f", "0", "0")
    assert ran == Ran(("/PCI", "/RB", "0", "0x1f", "0", "0"), 0x86, typed.stdout, "", line)


def test_the_line_on_this_machine_and_on_another():
    words = ("/PCI", "/RB", "0", "0", "0", "0")
    there = "flock -F -w 60 -E 201 /run/lock/hwreg.lock timeout --foreground -v -k 10 60 hwreg /PCI /RB 0 0 0 0"
    assert Machine(Local()).command(*words) == there
    assert Machine(Local(prefix=["sudo", "-n"])).command(*words) == f"sudo -n {there}"
    assert Machine(Ssh("board7")).command(*words) == f"ssh -T -o BatchMode=yes -- board7 '{there}'"
    assert Machine(Local(), lock=None).command(*words).startswith("timeout ")
    assert "flock" not in Machine(Local()).command("/TIMEOUT", "/T", "5")
    assert "flock" in Machine(Local()).command("/SHUTDOWN", "/TIMEOUT")


def test_values_come_through_ssh(far, tmp_path):
    machine = far("latch 300 1 a5")
    assert machine.io.read(0x300, 8) == 0xA5 and machine.io.write(0x300, 0, 8) == 0
    assert machine.superio.write(0x30, 1, device=3) == 1
    assert len(machine.pci.functions()) == 28
    options = (tmp_path / "ssh").read_text().splitlines()[:9]
    assert options == ["-F", "config", "-T", "-o", "BatchMode=yes", "-l", "root", "--", "board7"]
    assert os.path.exists(tmp_path / "far lock")


@pytest.mark.parametrize("text", ["two words", "it's $HOME", "`id`;*", "\\n", '"', "-x", "ümlaut", "#~"])
def test_texts_come_through_ssh_as_they_are(far, text):
    line = ", ".join(f"{byte:02x}" for byte in text.encode()).replace(",", "")
    machine = far(f"bytes 5000 {line}")
    assert machine.memory.search(0x5000, 0x1000, text) == [0x5000]
    assert machine.smbios.find(text) in (None, machine.smbios.table().find(text.encode()),
                                         machine.smbios.table().find(text.upper().encode()))  # fmt: skip


def test_files_and_folders_there(far, tmp_path):
    machine = far("bytes 5000 00 ff 0d 0a 80", "cmos-stop", power=True)
    assert machine.memory.dump(0x5000, 5) == b"\0\xff\r\n\x80"
    folder = tmp_path / "it's a folder"
    folder.mkdir()
    assert [machine.rtc.cycle(60, delay=0, folder=str(folder)).count for _ in range(2)] == [1, 2]
    assert (folder / "RTCLOG").read_bytes() == b"\2\0\0\0"
    assert machine.rtc.restart(delay=0) == 1 and (tmp_path / "far home" / "RBTLOG").exists()


def test_a_machine_that_is_not_reached(tmp_path, monkeypatch):
    ssh = make_program(tmp_path / "ssh", "echo 'ssh: connect to host board7: No route to host' >&2; exit 255")
    monkeypatch.setenv("PATH", f"{ssh.parent}:{os.environ['PATH']}")
    with pytest.raises(NoAnswer, match="No route to host") as told:
        Machine(Ssh("board7")).pci.read(0, 0, 0, 0, 8)
    assert told.value.status == 255 and told.value.stderr.startswith("ssh: connect")


def test_hwreg_is_not_there(tmp_path):
    with pytest.raises(NoAnswer, match="could not be started"):
        Machine(Local(str(tmp_path / "nothing")), lock=None).pci.read(0, 0, 0, 0, 8)
    with pytest.raises(NoAnswer, match="not started"):
        Machine(Local(prefix=[str(tmp_path / "sudo")])).pci.read(0, 0, 0, 0, 8)


def programs_on(board):
    """The processes of a simulated machine."""
    found = []
    for environment in pathlib.Path("/proc").glob("[0-9]*/environ"):
        with contextlib.suppress(OSError):  # it has just ended
            found += [environment.parent.name] * (f"HWBOARD={board}\0".encode() in environment.read_bytes())
    return found


def test_a_time_limit_ends_the_process_there(far, tmp_path):
    """A countdown on a clock that stands still has no end."""
    machine = far("cmos-stop", timeout=0.5)
    with pytest.raises(TimedOut, match="ended after 1.5 s"):
        machine.rtc.countdown(1)
    deadline = time.monotonic() + 300
    while left := programs_on(tmp_path / "far.board"):
        assert time.monotonic() < deadline, left
        time.sleep(0.1)


class Deaf(Transport):
    def execute(self, line, seconds):
        raise TimeoutError


@pytest.mark.parametrize("call", ["smu.message(1)", "smbus.scan()", "memory.dump(0, 4)", "memory.page(0)"])
def test_a_time_limit_within_a_shells_script(tmp_path, call):
    """An SMU that does not answer is waited for without end."""
    slow = make_program(tmp_path / "slow", "exec sleep 12")
    with pytest.raises(TimedOut, match="ended after 0.2 s"):
        eval(f"machine.{call}", {"machine": Machine(Local(str(slow)), timeout=0.2, lock=str(tmp_path / "lock"))})


def test_a_long_countdown_is_not_ended_early(capsys):
    Machine(Local(), dry_run=True).rtc.countdown(1234567)
    assert "-k 10 1234627 hwreg /TIMEOUT /T 1234567" in capsys.readouterr().out
    assert Machine(Sim("intel"), timeout=1e7).pci.read(0, 0, 0, 0, 16) == 0x8086


def test_what_was_in_the_way_of_a_start_is_kept(tmp_path):
    with pytest.raises(NoAnswer) as told:
        Machine(Local(prefix=[str(tmp_path / "sudo")])).io.read(0, 8)
    assert isinstance(told.value.__cause__, FileNotFoundError)


def test_a_transport_that_gives_up():
    with pytest.raises(TimedOut, match="given up"):
        Machine(Deaf()).io.read(0, 8)


def test_a_dry_run_prints_the_lines_and_runs_nothing(capsys, tmp_path):
    machine = Machine(Local(str(tmp_path / "nothing")), dry_run=True, power=True)
    assert machine.pci.read(0, 0, 0, 0x100, 32) == 0 and machine.msr.read_all(0x1B) == {}
    assert machine.memory.dump(0, 16) == bytes(16) and machine.smbios.structures() == []
    machine.rtc.cycle(60, delay=5)
    lines = capsys.readouterr().out
    assert f"{tmp_path}/nothing /PCI /RD 0 0 0 0x100\n" in lines and "/RTC 60 /T 0\n" in lines
    assert lines.index("/TIMEOUT /T 5") < lines.index("/RTC 60") and machine.rtc.now() == 0
    assert Machine(Local(), dry_run=True).run("/PCI").stdout == ""
    with pytest.raises(NotAllowed):
        Machine(Local(), dry_run=True).rtc.shutdown()


def test_reset_begins_anew_once(tmp_path):
    Machine(Sim("intel", state=tmp_path / "state")).memory.write(0x2000, 7, 8)
    machine = Machine(Sim("intel", state=tmp_path / "state", reset=True))
    assert machine.memory.read(0x2000, 8) == 0 and machine.memory.write(0x2000, 9, 8) == 9
    assert machine.memory.read(0x2000, 8) == 9
    machine = Machine(Sim("intel", state=tmp_path / "state", reset=True))
    machine.superio.write(0xF1, 0x5A, device=7)  # two runs of hwreg
    assert machine.superio.read(7) == 7 and machine.memory.read(0x2000, 8) == 0


def test_without_a_state_each_command_begins_anew():
    machine = Machine(Sim("intel"))
    assert machine.memory.write(0x2000, 9, 8) == 9 and machine.memory.read(0x2000, 8) == 0
    assert "flock" not in machine.command("/PCI")


@pytest.mark.parametrize("where", ["HWREG_SIM", "PATH"])
def test_the_simulator_is_found(tmp_path, monkeypatch, where):
    sim = make_program(tmp_path / "hwreg-sim", "echo IO Read Byte Port: 80, return data:0x77")
    monkeypatch.setenv(where, str(sim) if where == "HWREG_SIM" else f"{tmp_path}:{os.environ['PATH']}")
    expected = 0x77 if where == "HWREG_SIM" else 0  # that of the tree comes first
    assert Machine(Sim("intel")).io.read(0x80, 8) == expected


class Says(Transport):
    """Gives the same, whatever is run."""

    def __init__(self, *said):
        super().__init__()
        self.said = Completed(*said)

    def execute(self, line, seconds):
        return self.said


@pytest.mark.parametrize("stdout", ["", "PCI Read Byte BDFO: 0 0 0 0, ", "PCI Read Byte BDFO: 0 0 0 0, return data:0x",
                                    "PCI Read Byte BDFO: 0 0 0 0, return data:0x8680\n",
                                    "IO Read Byte Port: 0, return data:0x86\n"])  # fmt: skip
def test_without_the_whole_line_there_is_no_value(stdout):
    with pytest.raises(NoAnswer):
        Machine(Says(0x86, stdout, "")).pci.read(0, 0, 0, 0, 8)


def test_noise_around_the_line_does_no_harm():
    """As profiles and consoles make it."""
    noise = "Last login: today\r\nPCI Read Byte BDFO: 0 0 0 0, return data:0x86\r\n"
    assert Machine(Says(0, noise, "")).pci.read(0, 0, 0, 0, 8) == 0x86


def test_a_console_ends_lines_in_its_own_way():
    said = "RTCLOG count is: 6\r\nSetCmos timer:  04:06:06\r\n"
    clock = "IOIndex/Data return data:0x02\r\n"
    machine = Machine(Says(0, clock + said, ""), power=True)
    assert machine.rtc.cycle(60, delay=0) == Cycle("04:06:06", 7)
    both = "SIO Write Data to 0x7, data = 0x3\r\nSIO Write Data to 0xF0, data = 0x1\r\n"
    assert Machine(Says(0, both, "")).superio.write(0xF0, 1, device=3) == 1


def test_a_connection_that_the_shutdown_cuts_is_no_failure():
    cut = "Connection to board7 closed by remote host.\n"
    rtc = Machine(Says(255, "", cut), power=True).rtc
    rtc.shutdown()
    assert rtc.restart() is None
    for status, stderr in ((255, ""), (0, "sh: 1: shutdown: not found\n"), (6, "")):
        with pytest.raises(NoAnswer):
            Machine(Says(status, "", stderr), power=True).rtc.shutdown()


def test_an_interrupted_dump_leaves_no_file(tmp_path):
    """Ctrl+C while /RF is at work."""
    slow = make_program(tmp_path / "slow", f"touch '{tmp_path}/begun'; exec sleep 60")
    text = f"from hwreg import *\nMachine(Local({str(slow)!r}), lock=None).memory.dump(0, 16)"
    environment = {**os.environ, "PYTHONPATH": str(TOP / "python"), "TMPDIR": str(tmp_path)}
    with subprocess.Popen([sys.executable, "-c", text], env=environment, stderr=subprocess.DEVNULL) as script:
        while not (tmp_path / "begun").exists():
            time.sleep(0.01)
        assert list(tmp_path.glob("tmp.*")) != []
        script.send_signal(signal.SIGINT)
        script.wait(50)
    assert list(tmp_path.glob("tmp.*")) == []


def test_a_dumps_file_is_for_its_owner(tmp_path, monkeypatch):
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    look = make_program(tmp_path / "look", f"stat -c %a \"$4\" >'{tmp_path}/mode'")
    with pytest.raises(HwregError):
        Machine(Local(str(look)), lock=None).memory.dump(0, 16)
    assert (tmp_path / "mode").read_text() == "600\n"


def test_a_short_file_is_no_dump(tmp_path):
    short = make_program(tmp_path / "short", "printf abc >\"$4\"; printf 'Waitting ...\\n\\nWrite to buffer fail!\\n'")
    with pytest.raises(HwregError, match="Write to buffer fail!"):
        Machine(Local(str(short)), lock=None).memory.dump(0, 16)


def test_types_and_plain_style():
    """But for labgrid's driver: labgrid has no types."""
    mypy = subprocess.run(["mypy", "--strict", f"--cache-dir={BUILD}/mypy", "--exclude=labgrid_driver", "hwreg"],
                          cwd=TOP / "python", capture_output=True, text=True, check=False)  # fmt: skip
    assert re.fullmatch(r"Success: no issues found in \d+ source files\n", mypy.stdout), mypy.stdout
    flake8 = subprocess.run(["flake8", "--max-line-length=120", TOP / "python"], capture_output=True, text=True,
                            check=False)  # fmt: skip
    assert flake8.stdout == ""


def test_the_standard_library_is_enough():
    """But for the plugin of pytest, which pytest alone loads, and the driver of labgrid."""
    modules = "".join(path.read_text() for path in (TOP / "python" / "hwreg").glob("*.py")
                      if path.stem not in ("pytest_plugin", "labgrid_driver"))  # fmt: skip
    imported = set(re.findall(r"^(?:from|import) (\w+)", modules, re.MULTILINE))
    assert imported - {"hwreg"} <= sys.stdlib_module_names
