"""examples/cycle on a simulated machine: what it does at each start, what keeps it from that, and what it tells."""

import re
import subprocess
import time

import pytest
from desk import CYCLE, TOP

SHELLS = {"dash": ["dash"], "bash": ["bash", "--posix"], "busybox": ["busybox", "sh"]}
ALARM_HAS_COME = ("/IO", "/RI", "0x1800", "10")
CLEAR_IT = ("/IO", "/WI", "0x1800", "10", "1")


def test_twenty_cycles_each_at_its_alarm(desk):
    for number in range(1, 21):
        ran = desk.cycle(HWREG_CHECK=f"{desk.machine} --preflight")
        assert ran.returncode == 0, ran.stderr
        told = "Have no RTCLOG file!" if number == 1 else f"RTCLOG count is: {number - 1}\n"
        assert told in ran.stdout and "SetCmos timer:" in ran.stdout
        while desk.hwreg(*ALARM_HAS_COME) == 0:
            time.sleep(0.02)
        desk.hwreg(*CLEAR_IT)
    assert (desk.count(), desk.switched_off()) == (20, 20)
    assert desk.log() == [f"cycle {number}" for number in range(1, 21)]


@pytest.mark.parametrize("shell", SHELLS.values(), ids=SHELLS)
def test_the_report_counts_what_happened(desk, shell):
    assert "counted:             none of 1000\nbegun:               0, from never" in desk.cycle("report").stdout
    desk.cycle(shell=shell)
    desk.cycle(shell=shell)
    desk.put_count(b"")
    desk.cycle(shell=shell)
    (desk.top / "verdict").write_text("1\n")
    desk.cycle(shell=shell)
    (desk.top / "verdict").write_text("0\n")
    desk.cycle(shell=shell, HWREG="hwreg-sim --board noiopl")
    ran = desk.cycle("report", shell=shell, CYCLES="50")
    date = r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ"
    assert re.fullmatch(f"counted:             2 of 50\nbegun:               3, from {date} to {date}\n"
                        "counts lost:         1\npre-flights failed:  1\nfailed otherwise:    1\n", ran.stdout)
    assert (ran.stderr, ran.returncode) == ("", 0)


def test_shellcheck_has_nothing_to_say():
    ran = subprocess.run(["shellcheck", "--norc", CYCLE], capture_output=True, text=True, check=False)
    assert (ran.stdout, ran.returncode) == ("", 0)


def test_the_unit_runs_it_when_all_else_is_up(tmp_path):
    text = (TOP / "examples" / "cycle.service").read_text()
    (tmp_path / "cycle.service").write_text(text.replace("/usr/local/sbin/cycle", str(CYCLE)))
    ran = subprocess.run(["systemd-analyze", "verify", "--man=no", tmp_path / "cycle.service"], capture_output=True,
                         text=True, check=False)
    assert (ran.stderr, ran.returncode) == ("", 0)
    assert "\nAfter=multi-user.target\n" in text and "\nWantedBy=multi-user.target\n" in text


def test_the_countdown_is_outside_of_the_lock_and_the_power_command_inside(desk):
    """Another holds the lock: the countdown runs, and then nothing."""
    lock = desk.environment["HWREG_LOCK"]
    command = f"flock {lock} env CYCLE_WAIT=1 {CYCLE}"
    ran = desk.start(["sh", "-c", command])
    assert ran.returncode == 1 and "...timeout: 5 seconds" in ran.stdout
    assert desk.log() == ["cycle 1", "failed: hwreg ended with status 75 (75: the lock was not had)"]
    assert (desk.count(), desk.switched_off()) == (None, 0)
    assert desk.cycle().returncode == 0 and desk.count() == 1


def test_a_key_that_breaks_the_countdown_ends_the_cycle(desk):
    desk.put_program("hwreg-sim", "#!/bin/sh\necho countdown\nexit 21\n")
    ran = desk.cycle()
    assert ran.returncode == 1 and ran.stdout == "countdown\n"
    assert desk.log() == ["failed: the countdown ended with status 21 (21: broken off by a key)"]


def test_the_file_stop_ends_it_before_the_countdown_and_after(desk):
    (desk.folder / "stop").touch()
    ran = desk.cycle()
    assert (ran.returncode, ran.stdout) == (0, "")
    (desk.folder / "stop").unlink()
    desk.put_program("hwreg-sim", f'#!/bin/sh\ntouch {desk.folder}/stop\nexec {TOP}/sim/hwreg-sim "$@"\n')
    ran = desk.cycle()
    assert ran.returncode == 0 and "...timeout: 5 seconds" in ran.stdout
    assert desk.log() == [f"stopped: {desk.folder}/stop is there"] * 2
    assert (desk.count(), desk.switched_off()) == (None, 0)


def test_it_ends_by_itself(desk):
    desk.put_count(3, copy=2)
    assert desk.cycle(CYCLES="4").returncode == 0
    ran = desk.cycle(CYCLES="4")
    assert (ran.returncode, ran.stdout) == (0, "all 4 cycles are done\n")
    assert (desk.count(), desk.switched_off()) == (4, 1)


def test_two_at_once_are_one(desk):
    ran = desk.start(["flock", desk.folder / "lock", CYCLE])
    assert (ran.returncode, ran.stdout) == (1, "") and desk.log() == ["failed: another one is under way"]
    assert desk.cycle().returncode == 0


def test_what_it_was_not_asked_for_it_does_not_do(desk):
    ran = desk.cycle("repot")
    assert (ran.returncode, ran.stdout, ran.stderr) == (2, "", "usage: cycle [check|report]\n")
    assert desk.cycle(CYCLE_FOLDER="/nowhere").returncode == 2  # and begins no count elsewhere
    assert (desk.log(), desk.switched_off()) == ([], 0)


# The pre-flight


def test_what_will_be_run_is_asked_about_before(desk):
    desk.cycle()
    assert (desk.top / "checked").read_text() == "/TIMEOUT /T 5\n/RTC 60 /T 0\n"


@pytest.mark.parametrize("board, because", [("noiopl", "because iopl: "), ("intel", "because shutdown: ")])
def test_what_hwreg_check_itself_foretells_keeps_the_machine_on(desk, board, because):
    """One machine grants no I/O privilege, the other one has no shutdown."""
    if board == "intel":
        (desk.bin / "shutdown").unlink()
        for name in ("df", "awk", "tr", "tail", "sync", "mv", "od", "cat", "wc", "date", "bash", "env", "dirname",
                     "readlink", "flock", "realpath", "sh"):
            (desk.bin / name).symlink_to(f"/usr/bin/{name}")
        desk.environment["PATH"] = str(desk.bin)
    ran = desk.cycle(HWREG_CHECK=f"hwreg-sim --board {board} --preflight")
    assert (ran.returncode, ran.stdout) == (1, "")
    (line,) = desk.log()
    assert line.startswith("pre-flight: hwreg-check ") and "/RTC 60 /T 0: status 1: " in line and because in line


def verdict(status):
    return lambda desk: (desk.top / "verdict").write_text(f"{status}\n")


PLIGHTS = {
    "refused": (verdict(1), "hwreg-check /TIMEOUT /T 5: status 1: no privilege"),
    "other": (verdict(2), "hwreg-check /RTC 60 /T 0: status 2: no privilege"),
    "no-check": (lambda desk: (desk.bin / "hwreg-check").unlink(), "hwreg-check /RTC 60 /T 0: status 127: "),
    "no-wake-up": (lambda desk: desk.put_clock(wakeup="disabled"), "power/wakeup: disabled and not enabled"),
    "cannot-wake": (lambda desk: desk.put_clock(wakeup=""), "power/wakeup: nothing and not enabled"),
    "alarm": (lambda desk: desk.put_clock(alarm="1766000000"), "wakealarm: an alarm of the kernel's is pending"),
    "no-time": (lambda desk: desk.put_clock(time=""), "clock/time: no time of day"),
    "wrong-time": (lambda desk: desk.put_clock(time="45:85:85"), "clock/time: no time of day"),
    "unreadable-time": (lambda desk: (desk.clock / "time").unlink(), "clock/time: no time of day"),
    "no-room": (lambda desk: desk.put_program("df", "#!/bin/sh\necho h\necho /dev/sda1 9 8 1023 99% /\n"),
                "1023 KiB free"),
}  # fmt: skip


@pytest.mark.parametrize("shell", SHELLS.values(), ids=SHELLS)
@pytest.mark.parametrize("plight", PLIGHTS)
def test_what_would_go_wrong_is_told_and_the_machine_stays_on(desk, plight, shell):
    if (plight, shell) == ("no-room", SHELLS["busybox"]):
        pytest.skip("busybox has a df of its own")
    make, told = PLIGHTS[plight]
    make(desk)
    desk.put_count(7, copy=6)
    checked = desk.cycle("check", shell=shell)
    assert checked.returncode == 1 and told in checked.stdout and desk.log() == []
    ran = desk.cycle(shell=shell)
    assert ran.returncode == 1 and ran.stdout == ""
    (line,) = desk.log()
    assert line.startswith("pre-flight: ") and told in line
    assert (desk.count(), desk.switched_off()) == (7, 0)


def test_the_check_alone_changes_nothing(desk):
    ran = desk.cycle("check")
    assert (ran.returncode, ran.stdout, ran.stderr) == (0, "", "")
    assert list(desk.folder.iterdir()) == [] and desk.switched_off() == 0


def test_without_the_clocks_driver_its_files_are_not_asked(desk):
    assert desk.cycle("check", CYCLE_CLOCK=str(desk.top / "gone")).returncode == 0


# Midnight


@pytest.mark.parametrize("now, seconds", [("23:53:54", None), ("23:53:55", 365), ("23:59:59", 1), ("23:08:09", None),
                                          ("00:00:00", None)])
def test_no_alarm_is_set_beyond_the_clocks_midnight(desk, now, seconds):
    """Countdown, lock and alarm may take 5 + 300 + 60 seconds."""
    desk.put_clock(time=now)
    desk.put_program("sleep", f'#!/bin/sh\necho "$@" >>{desk.top}/slept\necho 00:00:01 >{desk.clock}/time\n')
    assert desk.cycle().returncode == 0 and desk.switched_off() == 1
    slept = (desk.top / "slept").read_text() if (desk.top / "slept").exists() else None
    assert slept == (None if seconds is None else f"{seconds + 1}\n")
    assert desk.log() == [f"waits {seconds} seconds for midnight"] * (seconds is not None) + ["cycle 1"]


def test_without_the_clocks_driver_the_day_is_the_systems(desk):
    desk.put_program("date", "#!/bin/sh\ncase $* in *T*) echo 2026-01-02T23:59:00Z ;; *) echo 23:59:00 ;; esac\n")
    desk.put_program("sleep", f"#!/bin/sh\nrm {desk.bin}/date\n")
    desk.cycle(CYCLE_CLOCK=str(desk.top / "gone"))
    assert desk.log()[0] == "waits 60 seconds for midnight"
