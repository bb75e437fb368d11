"""The file that keeps the machine from run to run (HWBOARD_STATE)."""

import os
import shlex
import signal
import struct
import subprocess
import time

import pytest
from harness import BOARDS, BUILD

MEMORY = (4 << 30) + (1 << 20)  # the header is behind it
HEADER = struct.Struct("=16sQ20s4xQQ")


@pytest.fixture
def state(tmp_path):
    return tmp_path / "machine"


@pytest.fixture
def environment(state):
    return {"HWBOARD_STATE": str(state)}


@pytest.fixture
def probe(run, tmp_path, environment):
    """probe(words, line...) -> what the probe said, on a board of these lines with the state file"""

    def go(words, *lines, status=0, **more):
        board = tmp_path / "own.board"
        board.write_text("\n".join(["iopl ok", "mem ok", "cpus 0-1", "msr-nodes always", *lines, ""]))
        result = run(words, board=board, program="hwboard_probe", env={**environment, **more})
        assert result.status == status, result.err
        return result.text.splitlines() if status == 0 else result.err.decode()

    return go


MEM = "open /dev/mem rw map 3 2000 1000 rw"
FUNCTION = ["pci-ports", "pci 00:00.0 8086:3e30 class 060000", "pci 00:05.0 8086:a323 class 0c0500",
            "dword 20 efa1 rw ffff", "word 04 1", "byte 40 1 rw 1", "smbus-host pci 0"]  # fmt: skip
AMD = ["pci-ports", "pci 00:00.0 1022:1480 class 060000", "smn", "pci 00:14.0 1022:790b class 0c0500"]
SPD = [*FUNCTION, "smbus-spd a0", "smbus-bytes 0 11", "smbus-bytes 100 22"]
READ_SPD = "out8 efa0 fe out8 efa4 a1 out8 efa3 0 out8 efa2 48 in8 efa0 in8 efa5"
CHIP = ["superio 2e 87 87 aa", "superio-global 20 12", "superio-device 3 f0 5"]
CLOCK = ["cmos", "delay ed", "cmos-run delays f424"]  # 16 writes to the delay port make a second
CORE = ["i2c-core fe000000 byte-time 1", "i2c-device 50", "delay ed"]
I2C = "open /dev/mem rw map 3 fe000000 1000 rw store mov32 6c 0 store mov32 4 50 store mov32 6c 1"


# What one run does, what the next one does, and what it says then.
@pytest.mark.parametrize("lines, before, after, says", [
    ([], f"{MEM} store mov32 10 89abcdef", f"{MEM} load mov32 10", "load 89abcdef"),
    (["bytes fdfff000 7"], "open /dev/mem rw map 3 fdfff000 1000 rw store mov8 1 5",
     "open /dev/mem rw map 3 fdfff000 1000 rw load mov16 0", "load 507"),
    (["latch 80 2"], "iopl 3 out16 80 1234", "iopl 3 in16 80", "in 1234"),
    (["system-control"], "iopl 3 out8 61 5 in8 61", "iopl 3 in8 61", "in 5"),
    (["pci-ports"], "iopl 3 out32 cf8 80001234", "iopl 3 in32 cf8", "in 80001234"),
    (["pci-ports", "pci 00:05.0 1234:5678", "dword 40 0 rw ffff"], "iopl 3 out32 cf8 80002840 out32 cfc 12345678",
     "iopl 3 in32 cfc", "in 5678"),
    (["msr 10 1 count 5"], "open /dev/cpu/1/msr rw pread 3 10 8", "open /dev/cpu/1/msr rw pread 3 10 8",
     "pread 8 value 6"),
    (["msr 1b 1"], "open /dev/cpu/1/msr rw pwrite 3 1b 77",
     "open /dev/cpu/0/msr r pread 3 1b 8 open /dev/cpu/1/msr r pread 4 1b 8",
     "pread 8 value 1 open 4 pread 8 value 77"),
    (["cmos"], "iopl 3 out8 70 40 out8 71 5a", "iopl 3 in8 71", "in 5a"),
    (["cmos"], "iopl 3 out8 72 7f out8 73 a5", "iopl 3 in8 73", "in a5"),
    (["cmos", "cmos-stuck 3"], "iopl 3 out8 70 a in8 71 in8 71", "iopl 3 in8 71 in8 71", "in a6 in 26"),
    (CLOCK, "iopl 3 " + "out8 ed 0 " * 8, "iopl 3 " + "out8 ed 0 " * 8 + "out8 70 0 in8 71", "in 1"),
    (["pm1 600"], "iopl 3 out16 602 0120", "iopl 3 in16 602", "in 120"),
    (["pm-registers"], "iopl 3 out8 cd6 44 out8 cd7 5a", "iopl 3 in8 cd6 in8 cd7", "in 44 in 5a"),
    (CHIP, "iopl 3 out8 2e 87 out8 2e 87 out8 2e 7 out8 2f 3 out8 2e f0 out8 2f 99", "iopl 3 in8 2e in8 2f",
     "in f0 in 99"),
    (CHIP, "iopl 3 out8 2e 87", "iopl 3 out8 2e 87 out8 2e 20 in8 2f", "in 12"),
    (SPD, "iopl 3 out8 efa4 6e out8 efa2 48 in8 efa0", f"iopl 3 {READ_SPD}", "in 2 in 22"),
    (SPD, "iopl 3 out32 cf8 80002820 out16 cfc ef01", f"iopl 3 {READ_SPD.replace('efa', 'ef0')}", "in 2 in 11"),
    ([*FUNCTION[:-1], "smbus-host pci ffff", "delay ed", "smbus-eeprom a0"], "iopl 3 out8 efa2 48", "iopl 3 in8 efa0",
     "in 1"),
    ([*AMD, "pm-registers", "pm-bytes 0 10 0b", "smbus-host pm 0", "smbus-eeprom a0 write-time 10"],
     "iopl 3 out8 cd6 1 out8 cd7 c out8 c04 a0 out8 c03 7 out8 c05 66 out8 c02 48 in8 c00",
     "iopl 3 in8 c05 in8 c03", "in 66 in 7"),
    (CORE, f"iopl 3 {I2C} store mov32 10 5 store mov32 10 77 store mov32 10 266 {'out8 ed 0 ' * 9} load mov32 70",
     f"iopl 3 {I2C} store mov32 10 5 store mov32 10 100 {'out8 ed 0 ' * 9} load mov32 10", "load 77"),
    (["sequence fe000000 1 2 3"], "open /dev/mem rw map 3 fe000000 1000 rw load mov32 0",
     "open /dev/mem rw map 3 fe000000 1000 rw load mov32 0 load mov32 0 load mov32 0", "load 2 load 3 load 3"),
    ([*AMD, "smn-register 2 1000 5", "smu-mailbox"],
     "iopl 3 out32 cf8 800000c0 out32 cfc 2 out32 cf8 800000c4 out32 cfc 1000 out32 cf8 800000c8 out32 cfc 99",
     "iopl 3 in32 cfc", "in 99"),
    ([*AMD, "smu-mailbox 0", "smu-reply 1 1 42"],
     "iopl 3 out32 cf8 800000b8 out32 cfc 3b10528 out32 cf8 800000bc out32 cfc 1",
     "iopl 3 out32 cf8 800000b8 out32 cfc 3b10598 out32 cf8 800000bc in32 cfc out32 cf8 800000b8 out32 cfc 3b10564 "
     "out32 cf8 800000bc in32 cfc", "in 42 in 1"),
    (["msr 1b 5", "msr-nodes modprobe"], "system 'modprobe msr'", "open /dev/cpu/0/msr r", "open 3"),
])  # fmt: skip
def test_what_one_run_leaves_the_next_one_finds(probe, lines, before, after, says):
    probe(before, *lines)
    found = probe(after, *lines)
    assert " ".join(found[-len(says.split()) // 2:]) == says


def test_privilege_and_mappings_go_with_the_process(probe):
    probe("iopl 3 in8 80", "latch 80 1")
    assert probe("in8 80", "latch 80 1", status=-signal.SIGSEGV) is not None


def test_a_run_without_the_file_knows_nothing_of_it(probe, run, tmp_path):
    probe("iopl 3 out8 80 55", "latch 80 1")
    result = run("iopl 3 in8 80", board=tmp_path / "own.board", program="hwboard_probe")
    assert result.text.splitlines()[-1] == "in 0"


def test_the_machine_begins_anew_when_it_is_told_so(probe):
    lines = ["latch 80 1 33", "bytes 2000 44"]
    probe(f"iopl 3 out8 80 55 {MEM} store mov8 0 66 store mov8 1 77", *lines)
    look = f"iopl 3 in8 80 {MEM} load mov16 0"
    assert probe(look, *lines)[1::3] == ["in 55", "load 7766"]
    assert probe(look, *lines, HWBOARD_RESET="1")[1::3] == ["in 33", "load 44"]
    assert probe(look, *lines)[1::3] == ["in 33", "load 44"]


def test_the_log_is_the_same_with_and_without_the_file(run, environment):
    words = "/PCI /RB 0 0 0 0"
    assert run(words, env=environment).log == run(words, env=environment).log == run(words).log


def test_a_killed_process_has_left_what_it_wrote(run, probe, tmp_path):
    lines = ["latch 80 1"]
    probe("iopl 3", *lines)
    result = run(f"iopl 3 out8 80 5a {MEM} store mov32 0 12345678 raise 9", board=tmp_path / "own.board",
                 program="hwboard_probe", env={"HWBOARD_STATE": str(tmp_path / "machine")})  # fmt: skip
    assert result.status == -signal.SIGKILL
    assert probe(f"iopl 3 in8 80 {MEM} load mov32 0", *lines)[1::3] == ["in 5a", "load 12345678"]


# The clock


def clock_of(said):
    """Seconds since the first of January 2000 that the registers 0, 2, 4, 7 (the day) show."""
    seconds, minutes, hours, day = (int(line.split()[1], 16) for line in said)
    decimal = [value // 16 * 10 + value % 16 for value in (seconds, minutes, hours, day)]
    return decimal[0] + 60 * decimal[1] + 3600 * decimal[2] + 86400 * (decimal[3] - 1)


def read_clock(probe, *lines):
    """Reads it as often as needed to meet no update."""
    while True:
        said = probe("iopl 3 " + " ".join(f"out8 70 {register} in8 71" for register in (0, 2, 4, 7, 0)), *lines)[1:]
        if "in ff" not in said and said[0] == said[4]:
            return clock_of(said[:4])


def test_the_clock_goes_on_between_runs(probe):
    lines = ["cmos", "cmos-run real 3c"]
    before = time.time()
    probe("iopl 3", *lines)
    begun = time.time()
    time.sleep(1)
    ended = time.time()
    shown = read_clock(probe, *lines)
    after = time.time()
    assert 60 * (ended - begun) - 1 <= shown <= 60 * (after - before) + 1


def header(state):
    with open(state, "rb") as file:
        file.seek(MEMORY)
        return HEADER.unpack(file.read(HEADER.size))


def patch(state, offset, data):
    with open(state, "r+b") as file:
        file.seek(offset)
        file.write(data)


def move_clock(state, seconds):
    """Sets the time when the clock was last looked at by so much. It is the one number of microseconds in the registers
    that is about now."""
    length = header(state)[4]
    with open(state, "rb") as file:
        file.seek(MEMORY + 4096)
        registers = file.read(length)
    now = time.time() * 1e6
    (at,) = (at for at in range(0, length, 8) if abs(struct.unpack_from("=Q", registers, at)[0] - now) < 6e7)
    seen = struct.unpack_from("=Q", registers, at)[0] + round(seconds * 1e6)
    patch(state, MEMORY + 4096 + at, struct.pack("=Q", seen))


def test_after_years_the_clock_has_the_date_of_today_at_once(probe, state):
    lines = ["cmos", "cmos-time 2001-03-04 05:06:07", "cmos-run real"]
    probe("iopl 3 out8 70 a in8 71", *lines)
    move_clock(state, -(20 * 365 + 5) * 86400)  # from 2001 to 2021, with five leap days
    before = os.times().children_user
    said = probe("iopl 3 " + " ".join(f"out8 70 {register:x} in8 71" for register in (4, 7, 8, 9, 6)), *lines)
    assert said[1:] == ["in 5", "in 4", "in 3", "in 21", "in 5"]  # a Thursday
    assert os.times().children_user - before < 5


def test_a_host_clock_that_was_set_back_sets_no_clock_back(probe, state):
    lines = ["cmos", "cmos-time 2001-03-04 05:06:07", "cmos-run real"]
    probe("iopl 3 out8 70 a in8 71", *lines)
    move_clock(state, 30)
    assert probe("iopl 3 out8 70 2 in8 71 out8 70 4 in8 71", *lines)[1:] == ["in 6", "in 5"]


def test_an_alarm_that_has_come_meanwhile_is_seen_by_the_next_run(probe, state):
    lines = ["cmos", "pm1 600", "cmos-time 2001-03-04 05:06:07", "cmos-run real", "cmos-bytes b 22"]
    lines += ["cmos-bytes 1 00", "cmos-bytes 3 30", "cmos-bytes 5 06"]  # the alarm
    assert probe("iopl 3 in16 600", *lines)[1:] == ["in 0"]
    move_clock(state, -3600)
    assert probe("iopl 3 in16 600", *lines)[1:] == ["in 0"]
    move_clock(state, -3600)
    assert probe("iopl 3 in16 600 out8 70 c in8 71", *lines)[1:] == ["in 400", "in b0"]


# One after the other


def start(words, board, state):
    variables = {**os.environ, "HWBOARD": str(board), "HWBOARD_STATE": str(state),
                 "LD_PRELOAD": str(BUILD / "libhwboard.so")}  # fmt: skip
    return subprocess.Popen([BUILD / "hwboard_probe", *shlex.split(words)], env=variables, stdout=subprocess.PIPE,
                            text=True)  # fmt: skip


def test_a_second_run_waits_for_the_end_of_the_first(probe, state, tmp_path):
    lines = ["latch 80 2", "system real"]
    probe("iopl 3", *lines)
    gate = tmp_path / "gate"
    os.mkfifo(gate)
    first = start(f"iopl 3 system 'cat {gate}' out8 80 11", tmp_path / "own.board", state)
    with open(gate, "w", encoding="ascii"):  # the first run is there
        second = start("iopl 3 in8 80 out8 81 22", tmp_path / "own.board", state)
        with pytest.raises(subprocess.TimeoutExpired):
            second.wait(0.5)
    assert second.communicate()[0].splitlines() == ["iopl 0", "in 11"]
    first.communicate()
    assert probe("iopl 3 in16 80", *lines)[-1] == "in 2211"


def test_many_runs_at_once_lose_nothing(probe, state, tmp_path):
    probe("iopl 3", "cmos")
    runs = [start(f"iopl 3 out8 72 {i:x} in8 ed out8 73 {i + 1:x}", tmp_path / "own.board", state) for i in range(20)]
    for one in runs:
        one.communicate()
    said = probe("iopl 3 " + " ".join(f"out8 72 {i:x} in8 73" for i in range(20)), "cmos")
    assert said[1:] == [f"in {i + 1:x}" for i in range(20)]


def test_many_runs_at_once_begin_a_state_once(probe, state, tmp_path):
    probe("iopl 3", "latch 80 20")
    state.unlink()
    runs = [start(f"iopl 3 out8 {0x80 + i:x} {i + 1:x}", tmp_path / "own.board", state) for i in range(20)]
    for one in runs:
        one.communicate()
    said = probe("iopl 3 " + " ".join(f"in8 {0x80 + i:x}" for i in range(20)), "latch 80 20")
    assert said[1:] == [f"in {i + 1:x}" for i in range(20)]


def test_the_program_sees_no_other_descriptors(probe):
    assert probe("open /dev/null r open /dev/mem r") == ["open 3", "open 4"]


# Files that are no state of this board


LINES = ["latch 80 1 33"]
REMEDY = "; --reset begins anew\n"


def test_an_empty_file_is_filled(probe, state):
    state.touch()
    assert probe("iopl 3 in8 80", *LINES)[-1] == "in 33"


def test_a_file_whose_filling_was_broken_off_is_filled_anew(probe, state):
    probe("iopl 3 out8 80 5", *LINES)
    patch(state, MEMORY + 16, bytes(8))
    assert probe("iopl 3 in8 80", *LINES)[-1] == "in 33"


@pytest.mark.parametrize("others", [[], ["latch 80 1 34"], [*LINES, "# a comment"]])
def test_the_state_of_another_board_is_refused(probe, others):
    probe("iopl 3 out8 80 5", *LINES)
    said = probe("iopl 3", *others, status=125)
    assert said.endswith("machine: the state of another board, or of this one before its files were changed" + REMEDY)
    assert probe("iopl 3 in8 80", *LINES)[-1] == "in 5"
    assert probe("iopl 3", *others, HWBOARD_RESET="1") == ["iopl 0"]


def test_a_file_that_the_board_takes_contents_from_belongs_to_it(probe, tmp_path):
    (tmp_path / "image").write_bytes(b"1")
    probe("iopl 3", f'file 1000 "{tmp_path}/image"')
    (tmp_path / "image").write_bytes(b"2")
    assert "another board" in probe("iopl 3", f'file 1000 "{tmp_path}/image"', status=125)


def test_the_state_of_another_build_is_refused(probe, state):
    probe("iopl 3", *LINES)
    assert header(state)[2] != bytes(20)
    patch(state, MEMORY + 24, b"\xff")
    said = probe("iopl 3", *LINES, status=125)
    assert said.endswith("machine: the state that another version of hwreg-sim has left" + REMEDY)
    assert probe("iopl 3", *LINES, HWBOARD_RESET="1") == ["iopl 0"]


def test_a_state_whose_end_is_missing_is_refused(probe, state):
    probe("iopl 3", *LINES)
    os.truncate(state, state.stat().st_size - 1)
    assert probe("iopl 3", *LINES, status=125).endswith("machine: a state that has been cut off" + REMEDY)
    assert probe("iopl 3", *LINES, HWBOARD_RESET="1") == ["iopl 0"]


@pytest.mark.parametrize("reset", [{}, {"HWBOARD_RESET": "1"}])
@pytest.mark.parametrize("length", [1, 4096, MEMORY, MEMORY + 4096])
def test_a_file_that_is_no_state_is_left_alone(probe, state, reset, length):
    state.write_bytes(b"#")
    os.truncate(state, length)
    said = probe("iopl 3", *LINES, status=125, **reset)
    assert said.endswith("machine: not the state of a simulated machine, or only a part of one; --reset leaves it "
                         "alone: remove it or name another file\n")
    assert state.stat().st_size == length
    with open(state, "rb") as file:
        assert file.read(1) == b"#"


@pytest.mark.parametrize("reset", [{}, {"HWBOARD_RESET": "1"}])
@pytest.mark.parametrize("kind, complaint", [
    ("folder", "Is a directory"), ("no/where", "No such file or directory"), ("own.board/file", "Not a directory"),
    ("null", "not a regular file"), ("pipe", "not a regular file")])  # fmt: skip
def test_what_cannot_be_a_state_is_refused(probe, tmp_path, reset, kind, complaint):
    (tmp_path / "folder").mkdir()
    os.mkfifo(tmp_path / "pipe")
    (tmp_path / "null").symlink_to("/dev/null")
    said = probe("iopl 3", *LINES, status=125, HWBOARD_STATE=str(tmp_path / kind), **reset)
    assert said == (f"{tmp_path / kind}: {complaint}; --state needs a file that can be written, and --reset "
                    "leaves this alone\n")


def test_every_board_fits_into_a_state(run, environment, tmp_path):
    for board in sorted(BOARDS.glob("*.board")):
        if "\ninclude " in board.read_text():
            own = {"HWBOARD_STATE": str(tmp_path / board.stem)}
            for _ in range(2):
                assert run("iopl 3", board=board.stem, program="hwboard_probe", env=own).err == b""
