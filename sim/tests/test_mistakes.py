"""What is told of a wrong line in a board file: the file, the line, what is wrong and the word. Nothing is dropped."""

import os
import re
import resource
import socket
import subprocess

import pytest
from harness import BUILD, TOP

SIM = TOP / "sim" / "hwreg-sim"
MISTAKE = 125

PORTS = "pci-ports"
BRIDGE = ["pci-ports", "pci 00:00.0 8086:3e30 class 060000"]
CARD = [*BRIDGE, "pci 00:03.0 8086:1533 class 020000"]
ROOT_PORT = [*BRIDGE, "pci 00:1c.0 8086:a338 class 060400 header 01"]
LATCH = "(the line is: latch PORT COUNT [BYTE|counting])"
DIRECTION = "bit 0 of an address is the direction (addresses have 8 bits: 51 is a2)"
MODULE = "a module answers at a0 to ae (addresses have 8 bits: 50 is a0)"
BELOW = "the range does not end below 4 GiB"
DWORDS = "dwords stand at multiples of 4"
TEXT = "a text stands in double quotes"

# The lines in front, the wrong line, what is told of it.
BEGINNERS = [
    ([], "Latch 300 4", 'unknown keyword: "Latch"'),
    ([], "pci-port", 'unknown keyword: "pci-port"'),
    ([], "latch 300", 'a word is missing: "latch PORT COUNT [BYTE|counting]"'),
    ([], "latch 300 4 a5 5a", f'a word too many: "5a" {LATCH}'),
    ([], "latch 300h 4", 'not a hexadecimal number: "300h"'),
    ([], "latch 10300 4", 'the number is too large: "10300"'),
    ([], "text f0000 Small machine", f'{TEXT}: "Small"'),
    ([], "text f0000 'Small machine'", f'{TEXT}: "\'Small"'),
    ([], 'text f0000 "Small machine', "a quotation mark is missing"),
    ([], "bytes 1000 5a5a", 'the number is too large: "5a5a"'),
    ([], "bytes 100000000 5a", 'not below 4 GiB: "100000000"'),
    ([], "iopl yes", 'neither "ok" nor the name of an error: "yes"'),
    ([], "cpus 0..3", 'not a CPU number or a range of them: "0..3"'),
    ([], "msr 1b fee00900 cpu 0", 'none of "ro", "rw", "count", "hidden", "cpus": "cpu"'),
    ([PORTS], "pci 0000:00:03.0 8086:1533", 'not a function as in 00:1f.3: "0000:00:03.0"'),
    ([PORTS], "pci 00:03.0", 'a word is missing: "pci BB:DD.F [VVVV:DDDD] [class CCSSPP] [rev RR] [header HH] [multi] '
                             '[verbatim]"'),
    ([PORTS], "pci 00:03.0 80861533", 'not two numbers as in 8086:1234: "80861533"'),
    ([PORTS], "pci 00:03.0 8086:1533 class 0200", 'a class has six digits: "0200"'),
    ([PORTS], "irq 11 1", 'no "pci" line comes before: "irq"'),
    (CARD, "pci 00:03.1 8086:1533", 'cannot be reached: function 0 of the device is not "multi": "00:03.1"'),
    (CARD, "pci 00:04.1 8086:1533", 'cannot be reached: the device has no function 0: "00:04.1"'),
    (CARD, "pci 01:00.0 8086:1533", 'cannot be reached: no bridge leads to its bus: "01:00.0"'),
    ([], "pci 00:00.0 8086:3e30",
     'cannot be reached: neither "pci-ports" nor an "ecam" line with its bus leads there: "00:00.0"'),
    (CARD, "bar 0 mem f7000800 1000", 'the address is no multiple of the size: "f7000800"'),
    ([], "smbus-spd 50", f'{MODULE}: "50"'),
    ([], "smbus-eeprom 51", f'{DIRECTION}: "51"'),
    ([], "smbus-eeprom a0", 'no "smbus-host" line leads to the slave'),
    ([], "cmos-bytes 10 0", "the board has no cmos yet"),
    ([], "include nowhere.board", 'there is no such file: "{folder}/nowhere.board"'),
]  # fmt: skip
SETTINGS = [
    ([], "iopl ok EPERM", 'a word too many: "EPERM" (the line is: iopl ok|ERROR)'),
    ([], "mem EWRONG", 'neither "ok" nor the name of an error: "EWRONG"'),
    ([], "msr-nodes sometimes", 'neither "ok" nor the name of an error: "sometimes"'),
    ([], "cpus", 'a word is missing: "cpus LIST..."'),
    ([], "cpus 0-1024", 'not a CPU number or a range of them: "0-1024"'),
    ([], "cpus 0,", 'not a CPU number or a range of them: "0,"'),
    ([], "cpus -1", 'not a CPU number or a range of them: "-1"'),
    ([], "systab sys ACPI20=0x1f77d014", f'{TEXT}: "ACPI20=0x1f77d014"'),
    ([], 'systab efi "ACPI20=0x1f77d014"', 'neither "sys" nor "proc": "efi"'),
    ([], 'file "/proc/cmdline"', 'a word is missing: "file ADDRESS NAME | "PATH" "LINE"|ERROR"'),
    ([], 'file "/proc/cmdline" quiet', f'{TEXT}: "quiet"'),
    ([], 'file "/proc/cmdline" "quiet" splash',
     'a word too many: "splash" (the line is: file ADDRESS NAME | "PATH" "LINE"|ERROR)'),
    ([], 'file "proc/cmdline" "quiet"', 'not a hexadecimal number: "proc/cmdline"'),
    ([], 'file /proc/cmdline "quiet"', f'{TEXT}: "/proc/cmdline"'),
    ([], f'file "/proc/{"x" * 250}" "quiet"', f'not the path of a file, from / on: "/proc/{"x" * 250}"'),
    ([], 'file "/dev/port" "quiet"', 'a device and no file: "/dev/port"'),
    ([], 'file "/proc/efi/systab" "quiet"', 'a "systab" line gives this file: "/proc/efi/systab"'),
    ([], 'file-bytes "proc/x" 0 1', 'not the path of a file, from / on: "proc/x"'),
    ([], 'file-bytes "/proc/x" 0', 'a word is missing: "file-bytes "PATH" OFFSET BYTE..."'),
    ([], 'file-bytes "/proc/x" 0 100', 'the number is too large: "100"'),
    ([], 'file-bytes "/proc/x" 100000 1', 'the number is too large: "100000"'),
    ([], 'file-bytes "/proc/x" fffff 1 2', 'the file has more than 1 MiB: "/proc/x"'),
    ([], "system print modprobe msr",
     'a word too many: "msr" (the line is: system print|real|exit [CODE] [PREFIX])'),
    ([], "cpuid 1 0 0 0 0 0 cpu 1", 'not "cpus": "cpu"'),
    ([], "msr 1b 0 ro ro", 'given twice: "ro"'),
    ([], "msr 1b 0 ro rw ff", '"ro" and "rw" contradict each other'),
    ([], "msr 1b 12345678123456789", 'the number is too large: "12345678123456789"'),
    ([], "msr 1b -1", 'not a hexadecimal number: "-1"'),
    ([], "msr 1b 0x", 'not a hexadecimal number: "0x"'),
    ([], 'iopl "ok"x', "a quotation mark within a word"),
    ([], 'iopl o"k"', "a quotation mark within a word"),
    ([], "bytes 0 " + "0 " * 300, "more than 300 words"),
    (["iopl ok"], "capture 1", 'not the first line of the file: "capture"'),
    ([], "end", 'no "capture" line comes before: "end"'),
]  # fmt: skip
MEMORY = [
    ([], "bytes 1000", 'a word is missing: "bytes ADDRESS BYTE..."'),
    ([], "bytes ffffffff 1 2", f'{BELOW}: "ffffffff"'),
    ([], 'text fffffffe "end"', f'{BELOW}: "fffffffe"'),
    ([], "fill 1000 0 ff", 'the number is 0: "0"'),
    ([], "fill fffff000 1001 ff", f'{BELOW}: "1001"'),
    ([], "fill 1000 20000000 ff", 'more than 256 MiB of contents: "1000"'),
    ([], "fill 1000 6 address", f'{DWORDS}: "6"'),
    ([], "fill 1001 8 address", f'{DWORDS}: "1001"'),
    ([], "fill 1000 10 5a 5a", 'a word too many: "5a" (the line is: fill ADDRESS LENGTH BYTE|address)'),
    ([], "file 1000 nowhere.bin", 'there is no such file: "{folder}/nowhere.bin"'),
    ([], "file 1000 .", 'not a regular file: "{folder}/."'),
    ([], "file 100000000 mistake.board", 'not below 4 GiB: "100000000"'),
    ([], "file ffffffff mistake.board", f'{BELOW}: "ffffffff"'),
    ([], "watch 1000 0", 'the number is 0: "0"'),
    ([], "hole 80000000 80000001", f'{BELOW}: "80000001"'),
    ([], "refuse 100000000 1000 EPERM", 'not below 4 GiB: "100000000"'),
    ([], "refuse 1000 1000 EWRONG", 'not the name of an error: "EWRONG"'),
    ([], "refuse 1000 1000 EPERM async",
     'a word too many: "async" (the line is: refuse ADDRESS LENGTH ERROR [sync])'),
    ([], "sequence 1002 1", f'{DWORDS}: "1002"'),
]  # fmt: skip
LEGACY = [
    ([], "latch 300 0", 'the number is 0: "0"'),
    ([], "latch fff0 11", 'the number is too large: "11"'),
    ([], "constant ffff 1 2", 'the ports end at ffff: "2"'),
    ([], "unlogged 80 0", 'the number is 0: "0"'),
    ([], "delay 80 81", 'a word too many: "81" (the line is: delay PORT)'),
    ([], "system-control 61", 'a word too many: "61" (the line is: system-control)'),
    (["cmos"], "cmos", "the board has a cmos already"),
    (["cmos"], "cmos-time 2023-02-29 00:00:00", 'no day of the calendar: "2023-02-29"'),
    (["cmos"], "cmos-time 2023-00-01 00:00:00", 'no day of the calendar: "2023-00-01"'),
    (["cmos"], "cmos-bytes 10", 'a word is missing: "cmos-bytes INDEX BYTE..."'),
    (["cmos"], "cmos-run real 0", 'the number is 0: "0"'),
    ([], "cmos-run real", "the board has no cmos yet"),
    ([], "cmos-stuck", "the board has no cmos yet"),
    ([], "cmos-stop", "the board has no cmos yet"),
    ([], "pm1 600 1", 'a word is missing: "pm1 PORT [STATUS ENABLE CONTROL]"'),
    ([], "pm1 600 1 2 3 4", 'a word too many: "4" (the line is: pm1 PORT [STATUS ENABLE CONTROL])'),
    ([], "superio-global 20 1", "the board has no superio yet"),
    (["superio 2e 87 87"], "superio-global 20 ro", 'not a hexadecimal number: "ro"'),
    (["superio 2e 87 87"], "superio-global 2f 1 2", 'registers 00 to 2f are the chip\'s, 30 to ff a device\'s: "2f"'),
    ([], "pm-bytes 0 1", 'no "pm-registers" line comes before: "pm-bytes"'),
]  # fmt: skip
BUSES = [
    ([], "smbus-host pm", 'no "pm-registers" line comes before: "smbus-host"'),
    (["pm-registers"], "smbus-host pm", "the host cannot be found: no function of class 0c0500 stands for it"),
    (CARD, "smbus-host pci", "the host cannot be found: no function of class 0c0500 stands for it"),
    ([PORTS, "pci 00:1f.0 8086:a323 class 0c0500"], "smbus-host pci",
     "the host cannot be found: no host bridge (pci 00:00.0) tells the chipset"),
    ([*BRIDGE, "pci 00:1f.0 8086:a323 class 0c0500"], "smbus-host pci",
     "the host cannot be found: register 20h of its function names no ports"),
    ([*CARD, "smn"], "smbus-host pci", "the function has the system management network"),
    (["pm-registers"], "smbus-host pm 5 6", 'a word too many: "6" (the line is: smbus-host pci|pm [US])'),
    ([], "smbus-spd c0", f'{MODULE}: "c0"'),
    ([], "smbus-eeprom a0 stops 1 stops 2", 'given twice: "stops"'),
    ([], "smbus-remove a0", 'no such slave: "a0"'),
    ([], "i2c-core fedc2004", 'no multiple of 1000h: "fedc2004"'),
    ([], "i2c-core 1fedc2000", 'not below 4 GiB: "1fedc2000"'),
    (["i2c-core fedc2000"], "i2c-device a0", 'addresses have 7 bits here: a0 is 50: "a0"'),
    (["i2c-core fedc2000", "i2c-device 50"], "i2c-words 0 1 2 refuses", 'not a hexadecimal number: "refuses"'),
    ([], "smn-register 0 100 1", 'no "smn" line comes before: "smn-register"'),
    ([*BRIDGE, "smn"], "smn-register 0 102 1", f'{DWORDS}: "102"'),
    ([], "smu-mailbox", 'no "smn" line comes before: "smu-mailbox"'),
    ([*BRIDGE, "smn", "smu-mailbox"], "smu-reply 1 1 1 2 3 4 5 6 7",
     'a word too many: "7" (the line is: smu-reply ID RESPONSE [ARGUMENT...])'),
]  # fmt: skip
FUNCTIONS = [
    ([], "ecam e0080000 1", 'no multiple of 1 MiB: "e0080000"'),
    ([], "ecam e0000000 0", 'the number is 0: "0"'),
    ([], "ecam f8000000 100", f'{BELOW}: "100"'),
    ([PORTS], "pci-ports cf8", 'a word too many: "cf8" (the line is: pci-ports)'),
    ([PORTS], "pci 00:03.0 ffff:1533", 'a maker of ffff means that nobody is there: "ffff:1533"'),
    ([PORTS], "pci 00:03.0 8086:1533 header 03", 'headers have layouts 00, 01 and 02: "03"'),
    ([PORTS], "pci 00:03.0 8086:1533 rev 1 rev 2", 'given twice: "rev"'),
    (CARD, "pci 00:03.0 verbatim", 'the function is there already: "00:03.0"'),
    ([PORTS], "pci-remove 00:03.0", 'no such function: "00:03.0"'),
    (CARD, "word 100 1234", 'the function has 100h bytes; "pcie" gives it 1000h: "100"'),
    (CARD, "word ff 1234", 'the function has 100h bytes; "pcie" gives it 1000h: "ff"'),
    (CARD, "word 40 1234 rw ff w1c 80", 'bits that are both "rw" and "w1c"'),
    (CARD, "irq 10 1 2", 'a word too many: "2" (the line is: irq LINE PIN)'),
    (ROOT_PORT, "subsystem 1458:5000", 'a bridge has no such register: "subsystem"'),
    (CARD, "buses 0 1 1", 'no bridge, which has header 01 or 02: "buses"'),
    (ROOT_PORT, "buses 1 2 2", 'not the bus on which the bridge stands: "1"'),
    (ROOT_PORT, "buses 0 3 2", 'below the secondary bus: "2"'),
    (ROOT_PORT, "bar 2 mem f7000000 1000", 'the function has no such base address register: "2"'),
    (CARD, "bar 5 mem64 f7000000 1000", 'the function has no such base address register: "5"'),
    (CARD, "bar 0 mem 1f7000000 1000", f'{BELOW}: "1f7000000"'),
    (CARD, "bar 0 io 10000 20", 'the ports end at ffff: "10000"'),
    (CARD, "bar 0 mem f7000000 1800", 'the size is no power of two from 4 (io) or 10 on: "1800"'),
    ([*CARD, "bar 0 mem64 f7000000 1000"], "bar 1 io e000 20", 'the upper half of the register before: "1"'),
    ([*CARD, "bar 1 io e000 20"], "bar 0 mem64 f7000000 1000", 'its upper half is another register: "0"'),
    (CARD, "cap 01 30", 'capabilities stand at multiples of 4 from 40 on: "30"'),
    (CARD, "cap 01 42", 'capabilities stand at multiples of 4 from 40 on: "42"'),
    (CARD, "cap 01 fc 1 2 3", 'the capability does not end in its space: "cap"'),
    ([*CARD, "cap 01 50 3 0"], "cap 05 50", 'overlaps another capability: "cap"'),
    ([*CARD, "cap 01 50 3 0"], "pcie 40 0 L1", 'overlaps another capability: "pcie"'),
    (CARD, "pcie d0 0 L1", 'the capability does not end in its space: "pcie"'),
    (CARD, "pcie 40 0 L2", 'none of "DIS", "L0S", "L1", "L01": "L2"'),
    (CARD, "xcap 1 1 100", 'no "pcie" line comes before: "xcap"'),
    ([*CARD, "pcie 40 0 L1"], "xcap 1 1 140", 'the first extended capability stands at 100: "140"'),
    ([*CARD, "pcie 40 0 L1", "xcap 1 1 100"], "xcap 2 1 100", 'overlaps another capability: "xcap"'),
    (CARD, "config fff 1 2", 'configuration space ends at 1000h: "2"'),
    (CARD, "config 0 ?", 'not a hexadecimal number: "?"'),
    (CARD, "window 0", 'a word is missing: "window OFFSET BYTE..."'),
]  # fmt: skip
ROWS = [*BEGINNERS, *SETTINGS, *MEMORY, *LEGACY, *BUSES, *FUNCTIONS]


@pytest.fixture
def check(tmp_path):
    """check(FILE or its contents) runs hwreg-sim --check; what it says, its status."""

    def go(contents=None, path=None, **options):
        path = path or tmp_path / "mistake.board"
        if contents is not None:
            path.write_bytes(contents if isinstance(contents, bytes) else contents.encode())
        ran = subprocess.run([SIM, "--check", path], capture_output=True, timeout=60, check=False,
                             env={**os.environ, "HWREG_BUILD": str(BUILD)}, **options)  # fmt: skip
        assert ran.stdout == b""
        return ran.stderr.decode(errors="replace"), ran.returncode

    return go


@pytest.mark.parametrize("before, wrong, told", ROWS, ids=[row[1][:60] for row in ROWS])
def test_a_wrong_line_is_told(run, check, tmp_path, before, wrong, told):
    said = f"{tmp_path}/mistake.board:{len(before) + 1}: {told.format(folder=tmp_path)}\n"
    checked, status = check("\n".join([*before, wrong, ""]))
    assert (checked.startswith(said), status) == (True, MISTAKE), checked
    result = run("", board=tmp_path / "mistake.board", program="hwboard_probe")
    assert (result.err.decode(), result.status) == (said, MISTAKE)


def test_the_lines_in_front_are_right(check):
    for before in {tuple(row[0]) for row in ROWS if row[0]}:
        said, _ = check("\n".join([*before, ""]))
        assert re.sub(".*the host cannot be found: .*\n|.*no \"ecam\" line.*\n", "", said) == "", before


def test_what_cannot_be_reached_from_100h_on_is_told_with_its_function(check):
    lines = [*CARD, "pcie 40 0 L1", "xcap 1 1 100"]
    assert check("\n".join(lines))[0].endswith(
        ':3: cannot be reached: no "ecam" line with its bus leads to what it has from 100h on: "00:03.0"\n')
    assert check("\n".join([*lines, "ecam e0000000 1"])) == ("", 0)


def test_verbatim_functions_are_as_they_were_found(check):
    found = [PORTS, "pci 07:03.5 verbatim", "config 100 1", "pci 08:00.0 ffff:1 header 7f verbatim"]
    assert check("\n".join(found)) == ("", 0)


def test_a_capture_tells_what_is_there_whether_anything_leads_to_it_or_not(check):
    lines = ["smbus-spd a0", "smn-register 0 100 1", "smbus-host pm", "pm-bytes 0 1"]
    assert check("\n".join(["capture 1", *lines, "end"])) == ("", 0)
    for line in lines:
        assert check(line)[1] == MISTAKE


def test_check_tells_all_mistakes_and_goes_on(check, tmp_path):
    (tmp_path / "part.board").write_text("hole 0 0\nlatch 80 10\nlatch 80\n")
    said, status = check("\n".join(["iopl yes", "include part.board", "pci-ports", "pci 0.0 8086:1", "irq 10 1",
                                    "pci 00:05.1 8086:1", "irq 300 1", "cmos 1"]))
    places = re.findall(r"(\w+\.board:\d+): ", said)
    assert places == ["mistake.board:1", "part.board:1", "part.board:3", "mistake.board:4", "mistake.board:7",
                      "mistake.board:8", "mistake.board:6"]
    assert status == MISTAKE


def test_a_check_without_mistakes_says_nothing(check):
    assert check("iopl ok\n") == ("", 0)
    for board in ["intel", "amd", "caploop", "unknown"]:
        assert check(path=TOP / "sim" / "boards" / f"{board}.board") == ("", 0)


def test_a_check_leaves_no_trace(check, tmp_path):
    state = {"HWBOARD_LOG": "log", "HWBOARD_MEMFILE": "memory", "HWBOARD_REGISTERS": "registers"}
    assert check("iopl ok\n", cwd=tmp_path) == ("", 0)
    ran = subprocess.run([SIM, "--check", "mistake.board"], cwd=tmp_path, check=False,
                         env={**os.environ, "HWREG_BUILD": str(BUILD), **state})  # fmt: skip
    assert ran.returncode == 0 and [path.name for path in tmp_path.iterdir()] == ["mistake.board"]


# Includes


def test_an_included_file_is_looked_for_beside_the_file_and_then_among_the_machines(check, tmp_path):
    assert check("include intel.board\n") == ("", 0)
    (tmp_path / "intel.board").write_text("nonsense\n")
    assert check("include intel.board\n") == (f'{tmp_path}/intel.board:1: unknown keyword: "nonsense"\n', MISTAKE)


def test_the_machines_are_at_hand_without_check_as_well(tmp_path):
    (tmp_path / "mine.board").write_text("include intel.board\nlatch 300 1 a5\n")
    ran = subprocess.run([SIM, "--board", "mine.board", "/IO", "/RB", "0x300"], cwd=tmp_path, check=False,
                         stdout=subprocess.DEVNULL, env={**os.environ, "HWREG_BUILD": str(BUILD)})  # fmt: skip
    assert ran.returncode == 0xA5


def test_files_that_include_others_again_and_again_come_to_an_end(check, tmp_path):
    for level in range(12):
        (tmp_path / f"{level}.board").write_text(f"include {level + 1}.board\n" * 10)
    (tmp_path / "12.board").write_text("iopl ok\n")
    said, status = check("include 0.board\n")
    assert status == MISTAKE and "include each other" in said
    said, status = check("include mistake.board\niopl ok\n")
    assert status == MISTAKE and said.count("\n") == 1 and "include each other" in said


# The board's time


def test_time_passes_at_port_ed_without_a_line(run, tmp_path):
    (tmp_path / "timed.board").write_text("iopl ok\nmem ok\ni2c-core fedc2000 byte-time 5\ni2c-device 50\n")
    words = "iopl 3 open /dev/mem rw map 3 fedc2000 1000 rw store mov32 4 50 store mov32 6c 1 store mov32 10 300 "
    done = {port: run(f"{words} {f'out8 {port} 0 ' * 10} load mov32 34", board=tmp_path / "timed.board",
                      program="hwboard_probe").text.splitlines()[-1] for port in ("ed", "80")}  # fmt: skip
    assert int(done["ed"].split()[1], 16) & 0x204 == 0x204  # STOP was sent and a byte came
    assert int(done["80"].split()[1], 16) & 0x204 == 0


def test_another_port_may_take_the_time_and_port_ed_may_be_something_else(run, tmp_path):
    lines = "iopl ok\ncmos\ncmos-time 2024-02-03 04:05:06\ncmos-run delays ffff\ndelay 80\n"
    words = "iopl 3 " + "out8 80 0 " * 20 + "out8 70 0 in8 71"
    (tmp_path / "timed.board").write_text(lines)
    assert run(words, board=tmp_path / "timed.board", program="hwboard_probe").text.split()[-1] == "7"
    (tmp_path / "timed.board").write_text(lines.replace("delay 80", "latch ed 1"))
    assert run(words.replace("80 0", "ed 0"), board=tmp_path / "timed.board",
               program="hwboard_probe").text.split()[-1] == "6"


# Files that are no board files


@pytest.mark.parametrize("contents, told", [
    (b"", ": the file is empty"),
    (b"\n\n# nothing\n", ":3: the file describes nothing"),
    (b"iopl ok\n\0\0\n", ":2: not a text file: it has control characters"),
    (b"iopl ok\x1b[2J\n", ":1: not a text file: it has control characters"),
    ("iopl ok\n".encode("utf-16"), ":1: not a text file: it has control characters"),
    (b"# old\riopl ok\r", ":1: not a text file: it has control characters"),
    (b"\x7fELF\x02\x01", ":1: not a text file: it has control characters"),
    (b"\x89PNG\r\n\x1a\n", ":2: not a text file: it has control characters"),
    (b"capture 1\niopl ok\n", ':2: the file is cut off: its last line is not "end"'),
    (b"capture 1\niopl ok\ne", ':3: unknown keyword: "e"\n{path}:3: the file is cut off: its last line is not "end"'),
    (b"x" * 5000, ':1: unknown keyword: "' + "x" * 300 + '"'),
])  # fmt: skip
def test_a_file_that_is_no_board_file_is_told(check, tmp_path, contents, told):
    path = f"{tmp_path}/mistake.board"
    assert check(contents) == (f"{path}{told.format(path=path)}\n", MISTAKE)


@pytest.mark.parametrize("contents", [b"\xef\xbb\xbfiopl ok\r\nmem ok\r\n", b"iopl ok", "iopl ok # grün\n".encode()])
def test_a_mark_and_line_ends_of_other_systems_are_no_mistake(check, contents):
    assert check(contents) == ("", 0)


def test_what_is_no_regular_file_is_told(check, tmp_path):
    os.mkfifo(tmp_path / "fifo.board")
    with socket.socket(socket.AF_UNIX) as server:
        server.bind(str(tmp_path / "socket.board"))
    (tmp_path / "round").symlink_to("round")
    for path, told in [("/dev/zero", "not a regular file"), (tmp_path, "not a regular file"),
                       (tmp_path / "fifo.board", "not a regular file"), (tmp_path / "round", "the file cannot be read"),
                       (tmp_path / "socket.board", "the file cannot be read"),
                       (tmp_path / "none.board", "there is no such file")]:  # fmt: skip
        assert check(path=path) == (f"{path}: {told}\n", MISTAKE)


def test_a_file_beyond_the_bound_is_told(check, tmp_path):
    path = tmp_path / "large.board"
    path.write_bytes(b"iopl ok\n")
    os.truncate(path, 10 << 30)
    assert check(path=path) == (f"{path}: the file is too large\n", MISTAKE)
    os.truncate(path, 64 << 20)
    assert check(path=path) == (f"{path}:2: not a text file: it has control characters\n", MISTAKE)


MANY = ["x", "msr {0:x} 0", "msr {0:x} 0 cpus 0-255", "pci-ports", "latch 80 1", "hole 0 1", 'systab sys "{0:x}"',
        "smn-register 0 {0:x}0 1", "bytes {0:x} 1", "superio 2e 1 1", "fill 0 ffffff 1", "cpuid {0:x} 0 0 0 0 0",
        "ecam {0:x}00000 1", "pci 00:00.0 1:1", 'file "/proc/{0:x}" "x"', 'file "/proc/x" "{0:0200x}"',
        'file-bytes "/proc/{0:x}" fffff 1', 'file-bytes "/proc/x" {0:x} 1']  # fmt: skip


@pytest.mark.parametrize("line", MANY)
def test_masses_of_lines_come_to_an_end(check, line):
    def little_time():
        resource.setrlimit(resource.RLIMIT_CPU, (20, 20))

    many = "\n".join(line.format(number) for number in range(100000))
    said, status = check("pci-ports\npci 00:00.0 1:1\nsmn\n" + many + "\n", preexec_fn=little_time)
    assert (status == 0) == (said == "") and status in (0, MISTAKE) and said.count("\n") <= 1001


def test_numbers_may_have_any_number_of_leading_zeros(check):
    assert check(f"latch {'0' * 40}80 0x{'0' * 20}1\n") == ("", 0)
