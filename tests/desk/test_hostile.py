"""What somebody may make on purpose, and what the fuzzers have found: small files that would take much time or memory,
numbers that are none, letters that are a terminal's commands. A clear line comes out, or the machine."""

import resource
import subprocess
import sys

import pytest
import samples

from harness import TOP
from hwregboard.board import read_board, write_board
from hwregboard.machine import Part, overlaid
from samples import little

SECONDS, MEMORY = 20, 1 << 30  # of the processor; bytes of addresses


def bound():
    resource.setrlimit(resource.RLIMIT_CPU, (SECONDS, SECONDS))
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))


def hwreg_board(desk, *words):
    """(status, standard error) of a process of its own within bounds."""
    done = subprocess.run([sys.executable, TOP / "tools" / "hwreg-board", *words], cwd=desk.folder, text=True,
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, preexec_fn=bound, check=False)  # fmt: skip
    return done.returncode, done.stderr


def raw_table(number, signature=b"SSDT"):
    return signature + little(36, 4) + bytes(24) + little(number, 4)


def lines(text, numbers):
    return "".join(text.format(number) for number in numbers)


def places(count):
    return [f"{number >> 8:02x}:{number >> 3 & 31:02x}.{number & 7}" for number in range(count)]


DIGITS, BLANKS = "9" * 5000, " " * 5000


@pytest.mark.parametrize("verb, contents, wanted", [
    ("show", f"capture 1\n# --- memory\n# acpi X at 0, {DIGITS} bytes\nbytes 400 00\nend\n", ""),
    ("msr", f"CPU {DIGITS}\n0x1 0x1\n", "x:1: there are no such CPUs: 999"),
    ("cpuid", f"CPU {DIGITS}:\n", "x:1: there are no such CPUs: 1024"),
    ("cpuid", "CPUID 00000004: 00000001-00000002-00000003-00000004 [SL 123456789]\n",
     "x:1: the number of a subleaf is too large: 123456789"),
    ("msr", f"{BLANKS}z\n", "x:1: not an MSR and its value: z"),
    ("msr", f"CPU 1{BLANKS}z\n", "x:1: not an MSR and its value: CPU 1"),
    ("show", f"include {'a' * 300}\n", "x:1: there is no such file to include: aaa"),
    ("show", "cpus 3-1\n", "x:1: not a list of CPUs: 3-1"),
    ("show", "cpus 0" + ",0-4095" * 9000, ""),
    ("show", lines("msr {:x} 1 cpus 0-4095\n", range(1500)), "x:1025: the file has more than 4194304 values"),
    ("show", lines("bytes {:x} 00\n", range(0, 40000, 2)), ""),
    ("show", lines("bytes {0:x} 00" + " 00" * 15 + "\nmsr 1 1\n", range(0, 160000, 16)), ""),
    ("show", "capture 1\n# --- memory\nfill 1000 1000000 41\n"
     + "# acpi AAAA at 1000, 16777216 bytes\nbytes 3000000 00\n" * 60 + "end\n", "x: more than 1000 ACPI tables"),
    ("acpi", b"".join(raw_table(number) for number in range(1000)), "hwreg-board: x: tables whose place"),
    ("acpi", b"".join(raw_table(number) for number in range(1001)), "x: more than 1000 tables"),
    ("lspci", "".join(f"{place}\nff0: 00\n" for place in places(9000)), "MiB of configuration space"),
    ("superio", "Found A (id) at 0x2e\nidx 20\nval 87\n" * 16, "hwreg-board: x: there are 16 chips"),
    ("superio", "Found A (id) at 0x2e\n" * 17, "x:17: more than 16 chips"),
    ("superio", "Found A\x07 (id\x1b[31m) at 0x2e\nidx 20\nval 87\n", ""),
], ids=["title", "CPU of an MSR", "CPU of a leaf", "subleaf", "blanks", "blanks behind a CPU", "name of a file",
        "CPUs backwards", "CPUs again and again", "values of CPUs", "scattered bytes", "scattered rows",
        "tables over tables", "many tables", "too many tables", "configuration space", "chips", "too many chips",
        "letters"])  # fmt: skip
def test_small_files_take_little_and_mistakes_are_told(desk, verb, contents, wanted):
    desk.write("x", contents)
    words = ["show", "x"] if verb == "show" else ["import", f"--{verb}", "x", "-o", "y"]
    status, told = hwreg_board(desk, *words)
    good = not wanted or wanted.startswith("hwreg-board: ")
    assert wanted in told and len(told.splitlines()) == bool(wanted) and told.isprintable() != bool(wanted)
    assert status == (0 if good else 2), told
    if verb != "show" and good:
        assert subprocess.run([TOP / "sim" / "hwreg-sim", "--check", "y"], cwd=desk.folder,
                              check=False).returncode == 0  # fmt: skip


def test_a_chain_of_root_tables_is_followed_to_its_bound(desk):
    chain = b"".join(b"XSDT" + little(44, 4) + bytes(28) + little(0x1002C + 44 * number, 8) for number in range(1200))
    root = b"RSD PTR " + bytes(7) + b"\2" + bytes(8) + little(0x10000, 8)
    memory = [f"bytes {0x10000 + at:x} {chain[at:at + 16].hex(' ')}" for at in range(0, len(chain), 16)]
    desk.write("x", "\n".join([f"bytes f0000 {root.hex(' ')}", *memory]))
    shown = desk("show", "x", "acpi")
    assert (shown.status, shown.err) == (0, "") and 1000 <= len(shown.lines) <= 1002


def test_many_patterns_are_matched_in_time(desk):
    desk.write("x", lines("msr {:x} 1\n", range(500)))
    desk.write("y", lines("msr {:x} 2\n", range(500)))
    desk.write("rules", lines("pci *{:x}\n", range(2000)) + "msr 1cf*\nmsr [1]\nmsr 1[12]\nmsr 1ce\n")
    assert hwreg_board(desk, "diff", "--ignore", "rules", "x", "y") == (1, "")
    told, all_told = (desk("diff", *words, "x", "y").lines for words in (["--ignore", "rules"], []))
    assert sorted(line.split()[1] for line in set(all_told) - set(told)) == ["1", "11", "12", "1ce", "1cf"]


def test_what_is_no_letter_does_not_reach_the_terminal(desk):
    desk.write("x", "nonsense\x1b[31m\u2028\xe9\n")
    assert desk("show", "x").err == "x:1: unknown keyword: nonsense\\x1b[31m\\u2028\\xe9\n"
    desk.write("r.json", '{"read_msr": {"(a\\nb)": ["(1,2)"]}}')
    assert "not a row of numbers: (a\\nb)" in desk("import", "--msr", "r.json", "-o", "y").err
    desk.write("log", "in8 0071 -> 26\nsome\x1b[31m thing\n")
    assert "some\\x1b[31m thing" in desk("explain", "log").out
    desk.write("a", "latch \x1b[1m 1\n")
    desk.write("b", "latch \x1b[1m 2\n")
    for words in (["diff", "a", "b"], ["diff", "--volatile", "--group", "a", "b"]):
        assert "\\x1b[1m" in desk(*words).out and "\x1b" not in desk(*words).out


def test_a_large_module_answers_where_modules_do(desk):
    desk.write("spd", samples.SPD)
    result = desk("import", "--spd", "bc=spd", "-o", "y")
    assert (result.status, result.err) == (2, "spd: a module with more than 256 bytes answers at a0 to ae, not at bc\n")
    desk.write("eeprom", samples.SPD[:256])
    assert desk("import", "--spd", "bc=eeprom", "-o", "y").status == 0


def test_notes_and_sources_are_read_back_where_they_stood(desk):
    desk.write("acpi", samples.acpidump(places=False))
    desk.write("spd", samples.SPD * 2)
    desk.board("m", "--acpi", "acpi", "--spd", "a0=spd", "--spd", "a2=spd")
    text = desk.read("m.board").decode()
    assert "\n# note: acpi: tables whose place" in text and "\n# from: spd: a2\n" in text
    machine = read_board(str(desk.folder / "m.board"))
    assert write_board(machine) == text and not any("acpi: " in note for part in machine.parts for note in part.notes)


@pytest.mark.parametrize("runs, wanted", [
    ([(0, 4, 1), (2, 2, 2)], [(0, "01010202")]), ([(2, 2, 2), (0, 4, 1)], [(0, "01010101")]),
    ([(0, 8, 1), (2, 2, 2), (6, 4, 3)], [(0, "01010202010103030303")]),
    ([(0, 2, 1), (4, 2, 2), (8, 2, 3), (1, 8, 4)], [(0, "01040404040404040403")]),
    ([(0, 1, 1), (2, 1, 2), (1, 0, 3), (8, 1, 1)], [(0, "01"), (2, "02"), (8, "01")]),
])  # fmt: skip
def test_what_comes_later_lies_on_top(runs, wanted):
    parts = []
    for address, count, byte in runs:
        parts.append(Part(""))
        parts[-1].put(address, bytes([byte]) * count)
    assert [(run.address, run.data.hex()) for run in overlaid(parts)] == wanted
