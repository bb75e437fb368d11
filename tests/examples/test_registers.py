"""examples/registers on simulated machines: values from lines, failures told from data, and the lock."""

import concurrent.futures
import os
import re
import signal
import subprocess
import time

import pytest
from desk import BUILD, TOP

REGISTERS = TOP / "examples" / "registers"
SHELLS = {"dash": ["dash"], "bash": ["bash", "--posix"], "busybox": ["busybox", "sh"]}

# A read of each form, with its value on the machines.
INTEL = {
    "/IO /RB 0x61": "0x10", "/IO /RW 0x1800": "0x0001", "/IO /RI 0x61 4": "1", "/IO /RB 0x3333": "0xFF",
    "/IO /INDEX /RB 0x70 0x71 10": "0x26", "/IO /INDEX /RI 0x70 0x71 10 1": "1", "/MEM /RD 0x1000": "0x00001000",
    "/PCI /RD 0 0 0 0": "0x3E308086", "/PCI /RI 0 0 0 0 1": "1", "/MSR /RD 0 0x1A0": "0x00000000_00850089",
    "/MSR /RQ /ALL 0x174": ",".join(["0x00000000_00000010"] * 8),
    "/CPUID /RD 0": "Eax:00000016,Ebx:756E6547,Ecx:6C65746E,Edx:49656E69", "/SIO /RB 0x20": "0x87",
    "/SIO /RI 0x20 1": "0x1", "/SMBUS /RB 0xA0 2": "0x0C",
}  # fmt: skip
AMD = {"/SMN /RD 0 0x18000": "0x11223344", "/I2C /RB 0 0x50 0": "0x1234", "/PCI /RB 0 0 0 0": "0x22"}


@pytest.fixture
def record(desk):
    """record(lines, ...) runs the script on a list with these lines; the rows of its table lie in desk.rows."""

    def go(lines, *earlier, shell=(), **more):
        (desk.top / "list").write_text("".join(f"{line}\n" for line in lines))
        table = desk.top / "table"
        table.unlink(missing_ok=True)
        ran = desk.start([*shell, REGISTERS, "list", "table", *earlier], **more)
        rows = [line.split(maxsplit=2) for line in table.read_text().splitlines()] if table.exists() else []
        desk.head, desk.rows = (rows or [None])[0], {name: (value, text) for name, value, text in rows[1:]}
        assert not [path for path in desk.top.iterdir() if path.name.startswith("table.")]
        return ran

    return go


@pytest.mark.parametrize("shell", SHELLS.values(), ids=SHELLS)
@pytest.mark.parametrize("board, values", [("intel", INTEL), ("amd", AMD)], ids=["intel", "amd"])
def test_each_value_is_that_of_the_line(desk, record, board, values, shell):
    ran = record([f"r{number} {words}" for number, words in enumerate(values)], shell=shell,
                 HWREG=f"hwreg-sim --board {board}")
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 0)
    assert desk.rows == {f"r{number}": (value, words) for number, (words, value) in enumerate(values.items())}
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", desk.head[1])
    assert (desk.top / "checked").read_text().splitlines() == list(values)


@pytest.mark.parametrize("board, values", [("intel", INTEL), ("amd", AMD)], ids=["intel", "amd"])
def test_each_value_is_foretold_to_be_right(desk, record, board, values):
    ran = record([f"r{number} {words}" for number, words in enumerate(values)], HWREG=f"hwreg-sim --board {board}",
                 HWREG_CHECK=f"hwreg-sim --board {board} --preflight")
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 0)
    assert [value for value, _ in desk.rows.values()] == list(values.values())


def test_values_that_would_not_be_the_hardwares_are_left_out(desk, record):
    """Without nodes of the msr driver hwreg prints zeros."""
    board = "hwreg-sim --board nomsr"
    ran = record(["msr /MSR /RD 0 0x1A0", "port /IO /RB 0x1800"], HWREG=board, HWREG_CHECK=f"{board} --preflight")
    assert ran.returncode == 2 and desk.rows["port"][0] == "0x01"
    value, text = desk.rows["msr"]
    assert value == "-" and "# foretold: " in text and "msr" in text


def test_the_list_that_comes_with_it_can_be_read(desk, record):
    ran = record((TOP / "examples" / "registers.list").read_text().splitlines())
    assert ran.returncode == 0 and desk.rows["host-bridge"] == ("0x3E308086", "/PCI /RD 0 0 0 0")
    assert desk.rows.keys() >= {"lpc-command", "lpc-status"} and "{" not in desk.rows


def test_a_failure_is_told_from_data_with_the_same_status(desk, record):
    ran = record(["nobody /SMBUS /RB 0x90 0", "ones /IO /RB 0x3333"])
    assert ran.returncode == 2
    assert desk.rows == {"nobody": ("-", "/SMBUS /RB 0x90 0 # status 255: Read addr 0x90 offset 0x00 error!"),
                         "ones": ("0xFF", "/IO /RB 0x3333")}


def test_without_privilege_there_is_a_status_and_no_value(desk, record):
    ran = record(["port /IO /RB 0x61"], HWREG="hwreg-sim --board noiopl")
    assert ran.returncode == 2 and desk.rows == {"port": ("-", "/IO /RB 0x61 # status 6")}


@pytest.mark.parametrize("status", [1, 2])
def test_what_is_foretold_to_fail_or_to_mislead_is_not_read(desk, record, status):
    (desk.top / "verdict").write_text(f"{status}\n")
    ran = record(["port /IO /RB 0x61"])
    assert ran.returncode == 2 and desk.rows == {"port": ("-", "/IO /RB 0x61 # foretold: no privilege")}
    assert not (desk.top / "accesses").exists()


REFUSED = {
    "/IO /WB 0x80 1": "reads nothing", "/SHUTDOWN": "reads nothing", "": "reads nothing",
    "/RTC 0 /RB": "/RTC is no word of a read", "/PCI /DUMP /RB": "/DUMP is no word of a read",
    "/IO /RB 0x61 RTC": "RTC is no word of a read", "/MEM /RB 0 /WB 1": "/WB is no word of a read",
    "/IO /RB *": "* is no word of a read",
}  # fmt: skip


@pytest.mark.parametrize("words", REFUSED)
def test_a_list_that_does_not_read_alone_is_refused_before_anything_runs(desk, record, words):
    ran = record(["good /IO /RB 0x61", f"bad {words}"])
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", f"registers: bad: {REFUSED[words]}"
                                                        + (f": {words}\n" if "reads" in REFUSED[words] else "\n"), 3)
    assert not (desk.top / "accesses").exists() and not (desk.top / "table").exists()


@pytest.mark.parametrize("shell", SHELLS.values(), ids=SHELLS)
def test_an_earlier_table_may_be_empty_and_have_any_name(desk, record, shell):
    (desk.top / "empty").touch()
    assert record(["a /PCI /RB 0 0 0 0"], "empty", shell=shell).stdout == "a: new, 0x86\n"
    (desk.top / "table").rename(desk.top / "day=1 of 2")
    ran = record(["a /PCI /RB 0 0 0 0"], "day=1 of 2", shell=shell)
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 0)


@pytest.mark.parametrize("shell", SHELLS.values(), ids=SHELLS)
def test_a_name_that_stands_twice_is_compared_one_by_one(desk, record, shell):
    lines = ["a /PCI /RB 0 0 0 0", "a /PCI /RB 0 0 0 1"]
    record(lines)
    (desk.top / "table").rename(desk.top / "before")
    assert record(lines, "before", shell=shell).stdout == ""
    assert record(lines[:1], "before", shell=shell).stdout == "a: gone, 0x80\n"


def test_what_is_missing_is_refused(desk, record):
    (desk.bin / "hwreg-check").unlink()
    assert record(["good /IO /RB 0x61"]).returncode == 3
    assert desk.start([REGISTERS, "gone", "table"]).returncode == 3
    assert desk.start([REGISTERS, "list"]).returncode == 3
    assert desk.start([REGISTERS, "list", "gone/table"]).returncode == 3
    assert desk.start([REGISTERS, "list", "table", "gone"]).returncode == 3
    assert desk.start([REGISTERS, "list", "table"], HWREG_LOCK=str(desk.top / "gone/lock")).returncode == 3
    assert not (desk.top / "accesses").exists() and not (desk.top / "table").exists()


def test_what_has_changed_is_told(desk, record):
    lines = ["same /IO /RB 0x1800", "other /MEM /RD 0x1000", "fails /PCI /RB 0 0 0 1", "goes /PCI /RB 0 0 0 0"]
    record(lines)
    (desk.top / "table").rename(desk.top / "before")
    assert record(lines, "before").returncode == 0
    desk.hwreg("/MEM", "/WD", "0x1000", "0x12345678")
    ran = record([*lines[:2], "fails /SMBUS /RB 0x90 0", "comes /MSR /RD 0 0x174"], "before")
    assert sorted(ran.stdout.splitlines()) == ["comes: new, 0x00000000_00000010", "fails: 0x80 -> -",
                                               "goes: gone, 0x86", "other: 0x00001000 -> 0x12345678"]
    assert ran.returncode == 2
    ran = record(lines[:2], "before")
    assert ran.returncode == 1


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_an_end_by_a_signal_leaves_no_half_table(desk, number):
    (desk.top / "list").write_text("a /IO /RB 0x61\nb /IO /RB 0x61\n")
    (desk.top / "table").write_text("the last one\n")
    desk.put_program("hwreg-sim", f"#!/bin/sh\ntouch {desk.top}/began\nsleep 60\n")
    running = subprocess.Popen([REGISTERS, "list", "table"], cwd=desk.top, env=desk.environment, start_new_session=True)
    while not (desk.top / "began").exists():
        time.sleep(0.01)
    assert (desk.top / f"table.{running.pid}").exists()
    os.killpg(running.pid, number)
    assert running.wait(timeout=300) == 3
    assert (desk.top / "table").read_text() == "the last one\n"
    assert not [path for path in desk.top.iterdir() if path.name.startswith("table.")]


# The lock

HELD = "flock -n {lock} true && echo {what} free >>{top}/locked || echo {what} held >>{top}/locked\n"


def test_the_lock_is_held_for_each_read_and_throughout_a_group(desk, record):
    def look(what):
        return HELD.format(lock=desk.environment["HWREG_LOCK"], what=what, top=desk.top)

    desk.put_program("hwreg-check", "#!/bin/sh\n" + look("between"))
    desk.put_program("hwreg-sim", "#!/bin/sh\n" + look("read") + "echo IO, return data:0x1\n")
    assert record(["a /IO /RB 1", "b /IO /RB 1", "{", "c /IO /RB 1", "d /IO /RB 1", "}", "e /IO /RB 1"]).returncode == 0
    lines = (desk.top / "locked").read_text().splitlines()
    free, held = ["between free", "read held"], ["between held", "read held"]
    assert lines == 2 * free + 2 * held + free


def test_runs_side_by_side_with_a_dump_get_their_own_registers(desk):
    """On one machine whose registers all instances share, and whose runs do not wait for each other of themselves."""
    board = desk.top / "shared.board"
    board.write_text(f'include "{TOP}/sim/boards/intel.board"\n')
    shared = {"HWBOARD": str(board), "HWBOARD_REGISTERS": str(desk.top / "shared"),
              "LD_PRELOAD": f"{BUILD}/libhwboard.so"}
    environment = " ".join(f"{name}={value}" for name, value in shared.items())
    desk.put_program("hwreg", f'#!/bin/sh\nexec env {environment} {BUILD}/hwreg "$@"\n')
    wanted = {"/PCI /RD 0 0 0 0": "0x3E308086", "/PCI /RW 0 31 4 2": "0xA323", "/IO /INDEX /RB 0x70 0x71 10": "0x26",
              "/PCI /RB 0 2 0 0": "0x86"}  # fmt: skip
    reads = [f"r{number} {words}" for number, words in enumerate(wanted)]
    (desk.top / "list").write_text("\n".join([*reads, "{", *(8 * reads), "}", *reads]))
    desk.environment["HWREG"] = "hwreg"

    def table_is_right(number):
        ran = desk.start([REGISTERS, "list", f"table{number}"])
        rows = [line.split()[:2] for line in (desk.top / f"table{number}").read_text().splitlines()[1:]]
        return ran.returncode == 0 and rows == [[f"r{at}", value] for at, value in enumerate(wanted.values())] * 10

    dump = f"flock {desk.environment['HWREG_LOCK']} hwreg /PCI /DUMP /NOMSG /LOG"
    dump = f"while [ ! -e over ]; do {dump}; sleep 0.1; done >dumps"
    dumping = subprocess.Popen(["sh", "-c", dump], cwd=desk.top, env=desk.environment)
    try:
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            assert list(pool.map(table_is_right, range(2))) == [True, True]
    finally:
        (desk.top / "over").touch()
        dumping.wait(timeout=300)
    assert (desk.top / "dumps").read_text().count("Bus Dev Fun") >= 2


def test_shellcheck_has_nothing_to_say():
    ran = subprocess.run(["shellcheck", "--norc", REGISTERS], capture_output=True, text=True, check=False)
    assert (ran.stdout, ran.returncode) == ("", 0)
