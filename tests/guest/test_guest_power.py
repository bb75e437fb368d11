"""Power cycles on machines that really restart, switch off, sleep and wake.

An initial file system has no `shutdown`; here it is a script that notes its words. The machine goes down when hwreg
has ended, as with the real command, which returns at once.
"""

import re
import subprocess

import pytest

import guest
from boots import Q35
from guest import Machine

SHUTDOWN = {"/usr/bin/shutdown": b'#!/bin/sh\necho "$*" >>/run/asked\n'}
DISK_READY = "\n".join([
    "modprobe -a ahci sd_mod ext4",
    "until [ -b /dev/sda ]; do sleep 0.1; done",
    "mkdir -p /disk",
    "mount -t ext4 /dev/sda /disk",
])
CYCLES = 20

# Countdown: how long it takes on a real clock.
SECONDS = 3
UPTIME = "cut -d' ' -f1 /proc/uptime"
COUNTDOWN = Q35.ask(f"{UPTIME}; hwreg /TIMEOUT /T {SECONDS} || echo failed; {UPTIME}")


def make_disk(folder):
    path = folder / "disk.img"
    subprocess.run(["mke2fs", "-q", "-t", "ext4", "-F", path, "16M"], check=True)
    return path


def drive(path):
    return ["-drive", f"file={path},if=ide,format=raw"]


def file_on(disk, name):
    return subprocess.run(["debugfs", "-R", f"cat {name}", disk], capture_output=True, check=True).stdout


def test_a_countdown_takes_its_seconds():
    lines = COUNTDOWN.stdout.splitlines()
    assert lines[2] == f"...timeout: {SECONDS} seconds (press ESC to break out)..."
    assert re.fullmatch(r"Time: \d\d:\d\d:\d\d", lines[3]) and len(lines) == 5
    assert -1 <= float(lines[4]) - float(lines[0]) - SECONDS <= 20  # a busy machine takes its time


# Reboots

# What a lab's start-up script does, and a machine that hangs on its way down: it is reset without anything being
# written to the disk, so the count is there only because hwreg has put it there.
START_UP = f"""#!/bin/sh
export PATH=/usr/bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
{DISK_READY}
cd /disk
count=$(od -An -tu4 RBTLOG 2>/dev/null | tr -d ' ')
echo "BOOT count ${{count:-none}}"
[ "$count" = {CYCLES} ] && poweroff -f
hwreg /RTC 0 /T 1 </dev/null
echo "ENDED $? asked $(cat /run/asked)"
echo b >/proc/sysrq-trigger
""".encode()


@pytest.fixture(scope="module")
def reboots(tmp_path_factory):
    disk = make_disk(tmp_path_factory.mktemp("reboots"))
    machine = Machine(qemu=[*drive(disk), "-action", "reboot=reset"])
    boot = guest.run(machine, [], {**SHUTDOWN, "/init": START_UP}, ends_itself=True)
    assert boot.qemu_status == 0, boot.console
    return boot.console.splitlines(), file_on(disk, "RBTLOG")


def test_twenty_unattended_reboots_are_counted(reboots):
    console, counter = reboots
    counts = [line for line in console if line.startswith("BOOT ")]
    assert counts == ["BOOT count none"] + [f"BOOT count {n}" for n in range(1, CYCLES + 1)]
    assert counter == bytes([CYCLES, 0, 0, 0])


def test_each_cycle_shows_the_count_before_it_and_asks_for_a_restart(reboots):
    console, _ = reboots
    told = [line for line in console if "RBTLOG" in line]
    assert told == ["Have no RBTLOG file!"] + [f"RBTLOG count is: {n}" for n in range(1, CYCLES)]
    assert [line for line in console if line.startswith("ENDED ")] == ["ENDED 21 asked -r now"] * CYCLES


# Wake-timer cycles

CMOS = "for r in 0 1 2 3 4 5 11; do outb 0x70 $r; inb 0x71; done; inw 0x600; inw 0x602"


def wake_cycle(disk, start):
    """One cycle of a machine that is switched on at a time: the power-off ends QEMU."""
    machine = Machine(qemu=[*drive(disk), "-action", "reboot=reset", "-rtc", f"base={start}"])
    commands = [
        DISK_READY,
        CMOS,
        "cd /disk && exec hwreg /RTC 60 /T 2",
        CMOS,
        "cat /run/asked; umount /disk",
    ]
    boot = guest.run(machine, commands, SHUTDOWN)
    assert boot.qemu_status == 0
    assert [result.status for result in boot.results] == [0] * len(commands), boot.results
    return [result.stdout for result in boot.results]


def bcd(text):
    return int(text) // 16 * 10 + int(text) % 16


class Registers:
    """Clock, alarm, register B and the PM1 block, as inb and inw print them."""

    def __init__(self, text):
        values = text.split()
        self.time = bcd(values[4]) * 3600 + bcd(values[2]) * 60 + bcd(values[0])
        self.alarm = tuple(int(value) for value in (values[5], values[3], values[1]))
        self.alarm_interrupt = bool(int(values[6]) & 0x20)
        self.wake_status = bool(int(values[7]) & 0x400)
        self.wake_enable = bool(int(values[8]) & 0x400)


@pytest.fixture(scope="module")
def wake_cycles(tmp_path_factory):
    disk = make_disk(tmp_path_factory.mktemp("wake"))
    first = wake_cycle(disk, "2024-02-03T04:05:06")
    alarm = Registers(first[3]).alarm
    second = wake_cycle(disk, "2024-02-03T{:02x}:{:02x}:{:02x}".format(*alarm))  # what the alarm does
    return first, second, file_on(disk, "RTCLOG")


def test_the_alarm_is_in_the_clock_and_its_wake_up_enabled(wake_cycles):
    for _, before, text, after, _ in wake_cycles[:2]:
        before, after = Registers(before), Registers(after)
        assert not before.alarm_interrupt and not before.wake_enable
        assert after.alarm_interrupt and after.wake_enable and not after.wake_status
        assert text.endswith("SetCmos timer:  {:02x}:{:02x}:{:02x}\n".format(*after.alarm))
        hours, minutes, seconds = (bcd(value) for value in after.alarm)
        assert 40 <= hours * 3600 + minutes * 60 + seconds - after.time <= 60


def test_the_machine_is_switched_off_once_a_cycle(wake_cycles):
    assert [cycle[4] for cycle in wake_cycles[:2]] == ["-P now\n"] * 2


def test_cycles_are_counted_while_the_machine_is_switched_off_and_on(wake_cycles):
    first, second, counter = wake_cycles
    assert first[2].startswith("RTC wake up after 60 seconds!\nHave no RTCLOG file!\n\n...timeout: 2 seconds")
    assert second[2].startswith("RTC wake up after 60 seconds!\nRTCLOG count is: 1\n\n...timeout: 2 seconds")
    assert counter == b"\2\0\0\0"


# Sleep


@pytest.fixture(scope="module")
def night():
    """A machine that sleeps until the alarm, and two file systems that take no counter."""
    machine = Machine(machine="pc", sleeps=True, append="iomem=relaxed no_console_suspend",
                      qemu=["-rtc", "base=2024-02-03T12:00:00"])
    commands = [
        ["hwreg", "/RTC", "15"],
        CMOS,
        "echo mem >/sys/power/state && " + CMOS,
        "cat /run/asked",
        # an empty disk that is full, and one that is read-only
        "mkdir /full && mount -t tmpfs -o size=8k full /full && cd /full && "
        "{ dd if=/dev/zero of=fill bs=4096 2>/dev/null; "
        "hwreg /RTC 0 /T 0; echo $?; stat -c %s RBTLOG; cat /run/asked; }",
        "mount -o remount,ro /full && cd /full && { hwreg /RTC 60 /F /T 0; echo $?; ls; }",
    ]
    boot = guest.run(machine, commands, SHUTDOWN)
    return boot.results


def test_a_sleeping_machine_is_woken_at_the_alarm(night):
    before, after = Registers(night[1].stdout), Registers(night[2].stdout)
    hours, minutes, seconds = (bcd(value) for value in before.alarm)
    alarm = hours * 3600 + minutes * 60 + seconds
    assert before.wake_enable and not before.wake_status
    assert (night[0].status, night[3].stdout) == (0, "-P now\n")
    assert before.time < alarm <= after.time <= alarm + 20
    assert after.wake_status


def test_on_a_full_disk_the_cycle_goes_on(night):
    assert night[4].stdout == "Have no RBTLOG file!\n21\n0\n-P now\n-r now\n"


def test_on_a_read_only_disk_the_cycle_goes_on(night):
    lines = night[5].stdout.splitlines()
    assert lines[:3] == ["RTC wake up after 60 seconds!", "Have no RTCLOG file!", "RTCLOG write fail!"]
    assert lines[3].startswith("SetCmos timer:  ") and lines[4:] == ["0", "RBTLOG", "fill"]
