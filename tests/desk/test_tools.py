"""What is exported is taken by the tools that the dumps come from; what is imported is a machine that hwreg works
on."""

import pathlib
import random
import subprocess
import sys

import pytest
import samples

TOP = pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture
def machine(desk):
    for name, contents, _ in samples.everything():
        desk.write(name, contents)
    desk.board("m", *samples.import_words(samples.everything()))
    return desk.folder / "m.board"


def output(*command, cwd=None):
    return subprocess.run(command, cwd=cwd, capture_output=True, text=True, check=True, timeout=300).stdout


def test_lspci_shows_the_functions_and_their_capabilities(desk, machine):
    desk("export", "--lspci", "out", "m.board")
    listed = output("lspci", "-n", "-F", desk.folder / "out")
    assert [line.split()[0] for line in listed.splitlines()] == list(samples.FUNCTIONS)
    verbose = output("lspci", "-vv", "-xxxx", "-F", desk.folder / "out")
    assert "Advanced Error Reporting" in verbose and "ASPM L1 Enabled" in verbose
    desk.write("again", verbose)
    again = [line for line in desk.board("n", "--lspci", "again") if line.startswith(("pci ", "  config"))]
    assert again == [line for line in machine.read_text().splitlines() if line.startswith(("pci ", "  config"))]


@pytest.mark.parametrize("kind", ["_SM_", "_SM3_"])
def test_dmidecode_shows_the_structures(desk, kind):
    desk.write("dmi.bin", samples.dmi(kind))
    desk.board("m", "--dmi", "dmi.bin")
    desk("export", "--dmi", "out", "m.board")
    told = output("dmidecode", "--from-dump", desk.folder / "out")
    assert "Version: 1.01" in told and "Serial Number: 12345" in told and "bad" not in told.lower()


def test_acpixtract_finds_the_tables(desk, machine):
    desk("export", "--acpi", "out", "m.board")
    output("acpixtract", "-a", "out", cwd=desk.folder)
    for name, _, data in samples.acpi_tables():
        if name not in ("RSDP", "XSDT"):  # these are not written by it
            assert (desk.folder / f"{name.lower()}.dat").read_bytes() == data


# hwreg on the imported machine


@pytest.mark.parametrize("words, text", [
    ("/PCI /RD 3 0 0 0x144", "return data:0x04030201"), ("/PCI /RB 0 0 0 0", "return data:0x86"),
    ("/MSR /RD /ALL 0x3A", "Cpu[01] Msr read from 0000003A, return MSR: 0x00000000_00000005"),
    ("/SMBUS /RB 0xA0 2", "0x0C"), ("/IO /INDEX /RB 0x70 0x71 0x20", "return data:0x20"),
    ("/SMBIOS /DUMP /NOMSG", "SMBIOS Type:001, Length:027, Handle:001"),
    ("/MEM /RD 0x7FFE1000", "return data:0x54445344"),
    ("/ACPI /DUMP /LOG /TEXT", "52 53 44 20 50 54 52 20"),
])  # fmt: skip
def test_hwreg_works_on_the_machine_at_once(run, machine, words, text):
    assert text in run(words, board=machine).text


@pytest.mark.parametrize("board", ["intel", "amd"])
def test_captures_of_simulated_machines_are_read_shown_and_compared(desk, board):
    """hwreg-capture's own writing: every line of it is known, and two captures of one machine are the same."""
    for name in ("one.board", "two.board"):
        captured = output(TOP / "sim" / "hwreg-sim", "--board", board, "--capture")
        desk.write(name, captured)
    assert desk("diff", "one.board", "two.board").out == ""
    text = (desk.folder / "one.board").read_text()
    shown = desk("show", "one.board").out
    assert shown.count("\n00:") > 3 and "type 0 BIOS Information" in shown and "RSDP at" in shown
    first = next(line for line in text.splitlines() if line.startswith("  config 0 "))
    words = first.split()
    words[10] = f"{int(words[10], 16) ^ 1:02x}"
    desk.write("two.board", text.replace(first, "  " + " ".join(words), 1))
    told = desk("diff", "one.board", "two.board").lines
    assert len(told) == 1 and " 08 Revision ID: " in told[0]


# The command itself


def test_the_command_works_from_any_folder_and_ends_quietly_at_a_closed_pipe(desk, machine):
    command = TOP / "tools" / "hwreg-board"
    assert output(command, "--version", cwd="/").startswith("hwreg-board ")
    ran = subprocess.run(["bash", "-c", f"{command} show {machine} | head -1; echo ${{PIPESTATUS[0]}}"],
                         capture_output=True, text=True, check=True)  # fmt: skip
    assert ran.stderr == "" and ran.stdout.splitlines() == ["Made by hwreg-board import.", "0"]
    full = subprocess.run(f"{command} show {machine} >/dev/full", shell=True, capture_output=True, text=True,
                          check=False)  # fmt: skip
    assert full.returncode == 2 and "No space left" in full.stderr and "Traceback" not in full.stderr


# A thousand machines


def make_many(folder, count):
    chance = random.Random(1)
    area, tables = chance.randbytes(0x20000), [chance.randbytes(20000) for _ in range(6)]
    functions = {f"00:{number >> 3:02x}.{number & 7}": chance.randbytes(192).ljust(256, b"\1") for number in range(60)}
    common = ["# --- memory", "# bios area"]
    common += [f"bytes {0xE0000 + at:x} {area[at:at + 16].hex(' ')}" for at in range(0, len(area), 16)]
    for number, table in enumerate(tables):
        base = 0x7F000000 + (number << 16)
        common.append(f"# acpi TAB{number} at {base:x}, {len(table)} bytes")
        common += [f"bytes {base + at:x} {table[at:at + 16].hex(' ')}" for at in range(0, len(table), 16)]
    for number in range(count):
        lines = ["capture 1", "cpus 0-3", f"msr 10 {chance.getrandbits(48):x}", f"msr 3a {5 if number % 100 else 1}"]
        for place, data in functions.items():
            lines.append(f"pci {place} verbatim")
            lines += [f"  config {at:x} {data[at:at + 16].hex(' ')}" for at in range(0, 256, 16)]
        (folder / f"{number:04}.board").write_text("\n".join([*lines, *common, "end", ""]))


# The bound is for an idle machine with two cores; beside other rings it takes longer, so the processor's time counts.
@pytest.mark.parametrize("count", [100])
def test_captures_are_grouped_in_time(desk, count):
    make_many(desk.folder, count)
    script = ("import resource, sys; sys.path.insert(0, sys.argv[1]); from hwregboard import command; "
              "command.main(['diff', '--group', *sys.argv[2:]]); "
              "used = [resource.getrusage(who) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)]; "
              "print(sum(each.ru_utime + each.ru_stime for each in used))")  # fmt: skip
    files = sorted(path.name for path in desk.folder.glob("0*.board"))
    told = output(sys.executable, "-c", script, TOP / "tools", *files, cwd=desk.folder).splitlines()
    assert [line for line in told if line.startswith(("group", "  differs"))] == [
        f"group 1: {count - count // 100} machines", f"group 2: {count // 100} machine" + "s" * (count > 100),
        "  differs: msr 3a IA32_FEATURE_CONTROL: 5 -> 1"]  # fmt: skip
    assert float(told[-1]) < count * 0.12, "1,000 machines take a minute on two cores"
