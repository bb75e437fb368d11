"""examples/cycle on a real kernel, start after start: where the machine would be switched off it sleeps, is woken by
the clock's alarm, and is reset without anything being written to its disk.
"""

import os
import re

import pytest

import guest
import image
from guest import Machine
from test_guest_power import DISK_READY, drive, file_on, make_disk

CYCLES = 2
OFF = 15  # long enough for a slow guest to fall asleep
EXAMPLE = os.path.join(os.path.dirname(__file__), "../../examples/cycle")
CHECK = guest.built("hwreg-check")

# The first start has an alarm of the kernel's in its way, and no shutdown; the third one finds the count emptied, as a
# power cut leaves it.
START_UP = f"""#!/bin/sh
export PATH=/usr/bin CYCLE_FOLDER=/disk CYCLES={CYCLES} CYCLE_DELAY=1 CYCLE_OFF={OFF}
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
{DISK_READY.replace("ahci", "ata_piix")}
clock=/sys/class/rtc/rtc0
echo "START $(od -An -tu4 /disk/RTCLOG 2>&1)"
if [ ! -e /disk/RTCLOG ]; then
    echo "WAKE-UP $(cat $clock/device/power/wakeup) ALARM $(cat $clock/wakealarm)"
    echo +3600 >$clock/wakealarm
    cycle check
    echo 0 >$clock/wakealarm
    mv /usr/bin/shutdown /usr/bin/elsewhere
    cycle check
    echo "CHECKED $?"
    mv /usr/bin/elsewhere /usr/bin/shutdown
elif [ "$(od -An -tu4 /disk/RTCLOG)" -eq 2 ] && [ ! -e /disk/emptied ]; then
    touch /disk/emptied
    : >/disk/RTCLOG
    sync
fi
cycle </dev/null
echo "ENDED $? $(cat /run/asked)"
echo "OFF $(cat $clock/time)"
echo mem >/sys/power/state
echo "ON $(cat $clock/time)"
if grep -q lost: /disk/log; then
    cycle
    cycle report
    umount /disk
    poweroff -f
fi
echo b >/proc/sysrq-trigger
""".encode()
FILES = {"/usr/bin/shutdown": b'#!/bin/sh\necho "$*" >>/run/asked\n', "/init": START_UP, "/usr/bin/cycle": EXAMPLE,
         "/usr/bin/hwreg-check": CHECK, **{image.guest_path(path): path for path in image.libraries(CHECK)}}


@pytest.fixture(scope="module")
def night(tmp_path_factory):
    """What the console showed, and the disk."""
    disk = make_disk(tmp_path_factory.mktemp("cycle"))
    machine = Machine(machine="pc", sleeps=True, append="iomem=relaxed no_console_suspend",
                      qemu=[*drive(disk), "-rtc", "base=2024-02-03T12:00:00", "-action", "reboot=reset"])
    boot = guest.run(machine, [], FILES, ends_itself=True)
    assert boot.qemu_status == 0, boot.console
    return boot.console.splitlines(), disk


def seconds(text):
    hours, minutes, rest = (int(number) for number in text.split(":"))
    return (hours * 60 + minutes) * 60 + rest


def test_each_cycle_is_counted_but_the_one_whose_count_was_lost(night):
    console, disk = night
    assert [line for line in console if line.startswith("ENDED")] == ["ENDED 0 -P now"] * (CYCLES + 1)
    assert console.count(f"all {CYCLES} cycles are done") == 1
    assert file_on(disk, "RTCLOG") == bytes([CYCLES, 0, 0, 0])
    log = [line.split("Z ", 1)[1] for line in file_on(disk, "log").decode().splitlines()]
    assert log == ["cycle 1", "cycle 2", "lost: the count is damaged, set back to 1", "cycle 2"]


def test_each_alarm_wakes_the_machine(night):
    console, _ = night
    times = [[seconds(line.split()[1]) for line in console if line.startswith(what)] for what in ("OFF", "ON")]
    assert [len(found) for found in times] == [CYCLES + 1] * 2
    assert all(OFF - 8 <= on - off <= OFF + 8 for off, on in zip(*times))


def test_what_stands_against_a_cycle_is_found_on_a_real_kernel(night):
    console, _ = night
    assert "WAKE-UP enabled ALARM " in console
    text = "\n".join(console)
    assert "wakealarm: an alarm of the kernel's is pending" in text
    assert re.search(rf"hwreg-check /RTC {OFF} /T 0: status 1: .*shutdown", text) and "CHECKED 1" in console


def test_the_report_has_the_night(night):
    console, _ = night
    report = console[console.index(f"counted:             {CYCLES} of {CYCLES}"):]
    assert re.fullmatch(r"begun: +3, from 2024-02-03T12:0\S+Z to 2024-02-03T12:\S+Z", report[1])
    assert report[2:5] == ["counts lost:         1", "pre-flights failed:  0", "failed otherwise:    0"]
