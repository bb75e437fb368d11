"""examples/cycle when the power goes at a bad time, when a file was damaged then, and when the disk is full: the count
is never behind by more than one, and never in silence."""

import os
import re
import subprocess

import pytest
from desk import CYCLE

DAMAGED = {
    "empty": b"", "one-byte": b"\x08", "two-bytes": b"\x08\0", "three-bytes": b"\x08\0\0", "zeros": b"\0\0\0\0",
    "all-ones": b"\xff\xff\xff\xff", "five-bytes": b"\x08\0\0\0\0", "another-count": b"\x63\0\0\0",
}  # fmt: skip


@pytest.mark.parametrize("shell", [["dash"], ["busybox", "sh"]], ids=["dash", "busybox"])
@pytest.mark.parametrize("damage", DAMAGED)
def test_a_count_that_was_lost_is_set_back_and_noted(desk, damage, shell):
    desk.put_count(DAMAGED[damage], copy=7)
    ran = desk.cycle(shell=shell)
    assert ran.returncode == 0 and "RTCLOG count is: 7\n" in ran.stdout
    lost, begun = desk.log()
    assert re.fullmatch(r"lost: the count is (damaged|0|99|4294967295), set back to 7", lost) and begun == "cycle 8"
    assert desk.count() == 8


def test_a_count_that_is_gone_is_set_back_and_noted(desk):
    desk.put_count(None, copy=7)
    assert desk.cycle().returncode == 0 and desk.count() == 8
    assert desk.log() == ["lost: the count is none, set back to 7", "cycle 8"]


@pytest.mark.parametrize("damage", DAMAGED)
def test_the_first_count_that_is_lost_is_noted_too(desk, damage):
    desk.cycle()
    desk.put_count(DAMAGED[damage])
    ran = desk.cycle()
    assert ran.returncode == 0 and "Have no RTCLOG file!" in ran.stdout
    assert desk.log()[1].endswith(", set back to 0") and desk.count() == 1


@pytest.mark.parametrize("copy", [None, b"", b"\x07\0"], ids=["gone", "empty", "half"])
def test_with_the_copy_lost_too_a_person_is_asked(desk, copy):
    desk.put_count(b"", copy)
    ran = desk.cycle()
    assert ran.returncode == 1 and ran.stdout == ""
    assert desk.log()[0].startswith("failed: the count is damaged, its copy ") and desk.switched_off() == 0
    assert (desk.folder / "RTCLOG").read_bytes() == b""


@pytest.mark.parametrize("copy", [None, b"", b"\0\0"], ids=["gone", "empty", "half"])
def test_a_count_that_is_whole_goes_on_and_gets_a_new_copy(desk, copy):
    desk.put_count(7, copy)
    assert desk.cycle().returncode == (0 if copy is None else 1)
    assert desk.count() == (8 if copy is None else 7)


@pytest.mark.parametrize("torn", ["2026-01-02T03:0", "2026-01-02T03:04:05Z cycle 7", "\0\0\0\0"])
def test_a_line_of_the_log_that_was_cut_off_spoils_no_other(desk, torn):
    desk.put_count(7, copy=6)
    (desk.folder / "log").write_text("2026-01-02T03:00:05Z cycle 6\n" + torn)
    assert desk.cycle().returncode == 0
    whole = 3 if "cycle" in torn else 2
    assert f"begun:               {whole}, from 2026-01-02T03:00:05Z to 20" in desk.cycle("report").stdout


# A power cut anywhere

# In front of a command in the PATH: it counts the commands, and at the one whose number is in `cut` the power goes,
# before it does its work or after.
SWITCH = """#!/bin/sh
read -r number <{top}/number
number=$((number + 1))
echo $number >{top}/number
read -r cut when <{top}/cut
[ "$number $when" != "$cut before" ] || kill -9 0
PATH=${{PATH#*:}}
{name} "$@"
status=$?
[ "$number $when" != "$cut after" ] || kill -9 0
exit $status
"""
COMMANDS = ["sync", "mv", "cp", "rm", "flock", "hwreg-sim", "hwreg-check", "sleep"]
STATES = {"first": (None, None), "later": (7, 6), "lost": (b"", 7)}


class Switch:
    """The power switch of a desk."""

    def __init__(self, desk):
        self.desk = desk
        self.folder = desk.top / "switch"
        self.folder.mkdir()
        for name in COMMANDS:
            path = self.folder / name
            path.write_text(SWITCH.format(top=desk.top, name=name))
            path.chmod(0o755)

    def cycle(self, cut, when):
        (self.desk.top / "number").write_text("0\n")
        (self.desk.top / "cut").write_text(f"{cut} {when}\n")
        return self.desk.cycle(PATH=f"{self.folder}:{self.desk.environment['PATH']}").returncode

    def commands(self):
        return int((self.desk.top / "number").read_text())


def begin(desk, state):
    for path in desk.folder.iterdir():
        path.unlink()
    (desk.top / "accesses").unlink(missing_ok=True)
    desk.put_count(*STATES[state])


@pytest.mark.parametrize("when", ["before", "after"])
@pytest.mark.parametrize("state", STATES)
def test_wherever_the_power_goes_the_count_goes_on(desk, state, when):
    switch = Switch(desk)
    begin(desk, state)
    assert switch.cycle(0, when) == 0
    commands = switch.commands()
    assert commands >= 9
    for cut in range(1, commands + 1):
        begin(desk, state)
        assert switch.cycle(cut, when) == -9, f"not cut at {cut}"
        assert desk.cycle().returncode == 0, desk.log()
        known = 0 if state == "first" else 7
        assert desk.count() == known + desk.switched_off(), f"cut at {cut}: {desk.log()}"
        assert desk.count() in (known + 1, known + 2)
        assert ("lost: " in str(desk.log())) == (state == "lost")


@pytest.mark.parametrize("left", ["empty", "zeros", "one-byte"])
@pytest.mark.parametrize("state", ["first", "later"])
def test_a_power_cut_while_hwreg_counts_costs_one_cycle_and_is_noted(desk, state, left):
    (desk.top / "left").write_bytes(DAMAGED[left])
    desk.put_program("hwreg-sim", f"""#!/bin/sh
        case $* in *RTC*) cat {desk.top}/left >RTCLOG; rm {desk.bin}/hwreg-sim; kill -9 0 ;; esac""")
    desk.put_count(*STATES[state])
    assert desk.cycle().returncode == -9
    known = 0 if state == "first" else 7
    assert desk.log() == [f"cycle {known + 1}"]
    desk.environment["PATH"] = f"{desk.top}/sim:{desk.environment['PATH']}"
    assert desk.cycle(HWREG=desk.environment["HWREG"].replace("hwreg-sim", str(CYCLE.parents[1] / "sim/hwreg-sim"), 1)
                      ).returncode == 0
    assert desk.count() == known + 1
    assert desk.log()[1].endswith(f", set back to {known}") and desk.log()[2] == f"cycle {known + 1}"


# A full disk


def on_small_disk(desk, script):
    """Runs the script, in which cycle is $1, with the folder on a disk of 2 MiB."""
    mounted = f"mount -t tmpfs -o size=2m none {desk.folder} && cd {desk.folder} && {script}"
    ran = desk.start(["unshare", "-m", "sh", "-c", mounted, "sh", CYCLE])
    if "not permitted" in ran.stderr or "denied" in ran.stderr:
        pytest.skip("may not mount here: " + ran.stderr)
    return ran


FILL = "dd if=/dev/zero of=fill bs=4096 status=none 2>/dev/null"
SHOW = "cat log; od -A n -t u4 RTCLOG"


def test_on_a_full_disk_the_machine_stays_on(desk):
    ran = on_small_disk(desk, f"$1 && {FILL}; $1; echo $?; rm fill; {SHOW}")
    assert "pre-flight: " in ran.stderr and "KiB free" in ran.stderr
    assert re.search(r"SetCmos timer:.*\n1\n", ran.stdout)
    assert ran.stdout.split()[-1] == "1" and desk.switched_off() == 1


def test_a_disk_that_fills_while_it_counts_down_costs_one_cycle_and_is_noted(desk):
    """hwreg empties its file then, says nothing and switches off."""
    full = FILL.replace("of=", f"of={desk.folder}/")
    desk.put_program("flock", f'#!/bin/sh\n[ "$1" = -n ] || [ ! -e full ] || {full}\nexec /usr/bin/flock "$@"\n')
    ran = on_small_disk(desk, f"touch full && $1; stat -c 'bytes %s' RTCLOG; $1; rm full fill; $1; {SHOW}")
    assert "bytes 0\n" in ran.stdout
    assert "pre-flight: " in ran.stderr or "no room for the log" in ran.stderr
    assert "lost: the count is damaged, set back to 0" in ran.stdout and ran.stdout.split()[-1] == "1"
    assert desk.switched_off() == 2


@pytest.mark.skipif(os.geteuid() != 0, reason="only root mounts")
def test_where_nothing_can_be_written_the_machine_stays_on(desk):
    ran = on_small_disk(desk, "mount -o remount,ro . && $1; echo $?")
    assert ran.stdout in ("1\n", "2\n") and ran.stderr != "" and desk.switched_off() == 0
