"""Reading board files: mistakes are told with their place, what a machine holds is shown, and names have answers."""

import pathlib

import pytest
import samples

from hwregboard import names
from hwregboard.board import read_board, write_board

PCI = "pci 00:00.0 verbatim"


@pytest.mark.parametrize("lines, complaint", [
    (["cpus 0"], '2: the file is cut off: its last line is not "end"'),
    (["cpus 0", "end", "cpus 1"], '4: nothing may follow "end": cpus 1'),
    (["pcie 40 0 L1", "end"], "2: a line of a described machine; capture that first"),
    (["pci 00:00.0 8086:29c0", "end"], "2: a line of a described machine; capture that first"),
    (["nonsense 1", "end"], "2: unknown keyword: nonsense"),
    (["config 0 1", "end"], '2: no "pci" line comes before: config'),
    ([PCI, PCI, "end"], "3: the function is there already: 00:00.0"),
    (["pci 00:20.0 verbatim", "end"], "2: not the place of a function"),
    ([PCI, "config ff8 1 2 3 4 5 6 7 8 9", "end"], "3: the bytes end beyond 1000h: ff8"),
    ([PCI, "config 0 100", "end"], "3: the number is too large: 100"),
    ([PCI, "config 0 -1", "end"], "3: not a number: -1"),
    ([PCI, "config 0 1_1", "end"], "3: not a number: 1_1"),
    (["bytes fffffff8 " + "00 " * 9, "end"], "2: the bytes end beyond 100000000h"),
    (["fill 0 4000000 1", "fill 10000000 1 1", "end"], "3: the file has more than 64 MiB of memory"),
    (["msr 10", "end"], "2: an MSR has an index and a value"),
    (["msr 10 11112222333344445", "end"], "2: the number is too large"),
    (["msr 10 1 cpus 0-99999", "end"], "2: not a list of CPUs: 0-99999"),
    (["cpuid 1 2 3", "end"], "2: a leaf has six numbers"),
    (["smbus-bytes 0 1", "end"], "2: no slave comes before"),
    (["superio-global 20 1", "end"], '2: no "superio" line comes before'),
    (["include nowhere.board", "end"], "2: there is no such file to include: nowhere.board"),
    (["include m.board", "end"], "too many includes inside each other"),
])
def test_mistakes_are_told_with_file_and_line(desk, lines, complaint):
    desk.write("m.board", "\n".join(["capture 1", *lines]))
    result = desk("show", "m.board")
    assert result.status == 2 and f"m.board:{complaint}" in result.err.replace("2: too many", "too many", 1) \
        or complaint in result.err  # fmt: skip
    assert "Traceback" not in result.err and len(result.err.splitlines()) == 1


def test_an_empty_file_is_no_machine(desk):
    desk.write("m.board", "\n \n")
    assert desk("show", "m.board").err == "m.board: the file is empty\n"


def test_another_format_of_captures_is_refused(desk):
    desk.write("m.board", "capture 2\nend\n")
    assert "m.board:1: this format of captures is not known: 2" in desk("show", "m.board").err


def test_an_included_board_is_found_beside_the_file_and_in_the_boards_folder(desk, monkeypatch):
    desk.write("m.board", "include part.board\nmsr 10 2\n")
    desk.write("boards/part.board", "capture 1\nmsr 10 1\nmsr 11 1\nend\n")
    assert desk("show", "m.board").status == 2
    monkeypatch.setenv("HWBOARD_PATH", str(desk.folder / "boards"))
    assert [line.split("  ")[0] for line in desk("show", "m.board", "msrs").lines] == [
        "00000010: 0000000000000002", "00000011: 0000000000000001"]
    desk.write("part.board", "msr 10 5\nmsr 12 5\n")
    assert len(desk("show", "m.board", "msrs").lines) == 2


def test_a_described_machine_is_sent_to_the_simulator(desk):
    result = desk("show", pathlib.Path(__file__).parents[2] / "sim/boards/intel.board")
    assert result.status == 2 and "hwreg-sim --board " in result.err and "--capture" in result.err


def test_everything_imported_is_read_back_as_it_was_written(desk):
    for name, contents, _ in samples.everything():
        desk.write(name, contents)
    lines = desk.board("m", *samples.import_words(samples.everything()))
    assert write_board(read_board(str(desk.folder / "m.board"))) == "\n".join(lines) + "\n"


def test_everything_is_shown_with_names(desk):
    for name, contents, _ in samples.everything():
        desk.write(name, contents)
    desk.board("m", *samples.import_words(samples.everything()))
    shown = desk("show", "m.board").out
    for text in ("03:00.0 Ethernet controller: 8086:1533 (rev 02), extended", "  [100] Advanced Error Reporting",
                 "0000003a: 0000000000000005  IA32_FEATURE_CONTROL", "DSDT at 7ffe1000, 237 bytes ACME  BOARD01",
                 'type 0 BIOS Information: Vendor "Acme BIOS", Version "1.01", Release Date "11/22/2026"',
                 "a0 smbus-spd: 512 bytes, DDR4, part 'MODULE 8G'", "10: 10  Floppy Types",
                 "    60: 03  I/O Base 0 High",
                 "2 CPUs: 0-1"):  # fmt: skip
        assert text in shown
    assert desk("show", "m.board", "spd").out == "a0 smbus-spd: 512 bytes, DDR4, part 'MODULE 8G'\n"
    desk.board("n", "--msr", "msr.txt")
    assert "pci: no dump of it" in desk("show", "n.board", "missing").lines


def test_strings_of_a_dump_reach_the_terminal_as_letters_alone(desk):
    desk.write("dmi.bin", samples.dmi(version="\x1b[31mred"))
    desk.board("m", "--dmi", "dmi.bin")
    assert "\x1b" not in desk("show", "m.board").out and "[31mred" in desk("show", "m.board").out


@pytest.mark.parametrize("words, status", [
    (["import", "-o", "m.board"], 2), (["diff", "one"], 2), (["show"], 2), ([], 2), (["--version"], 0),
    (["--help"], 0), (["import", "--spd", "a1=x", "-o", "y"], 2), (["export", "m.board"], 2),
    (["export", "--lspci", "x", "nowhere.board"], 2), (["import", "--msr", "msr", "-o", "no/such/folder"], 2),
])  # fmt: skip
def test_wrong_words_end_with_2(desk, words, status):
    desk.write("msr", "0x1 0x1\n")
    result = desk(*words)
    assert result.status == status and (result.err or status == 0)


@pytest.mark.parametrize("part", ["dmi", "acpi", "cmos"])
def test_what_a_machine_does_not_have_cannot_be_exported(desk, part):
    desk.write("m.board", "capture 1\nend\n")
    result = desk("export", f"--{part}", "out", "m.board")
    assert result.status == 2 and "m.board: the machine has no" in result.err and not (desk.folder / "out").exists()


@pytest.mark.parametrize("function, argument, name", [
    (names.msr_name, 0x1B, "IA32_APIC_BASE"), (names.msr_name, 0x203, "IA32_MTRR_PHYSMASK1"),
    (names.msr_name, 0x26F, "IA32_MTRR_FIX4K_F8000"), (names.msr_name, 0xC0010065, "PSTATE_1"),
    (names.msr_name, 0x409, "IA32_MC2_STATUS"), (names.msr_name, 0xDEAD, "MSR dead"),
    (names.cmos_name, 0x0A, "Register A"), (names.cmos_name, 0x90, "CMOS 90"),
    (names.port_name, 0xCF9, "Reset Control"), (names.port_name, 0x9999, "Port 9999"),
    (names.superio_name, 0x30, "Activate"), (names.smbios_name, 17, "Memory Device"),
    (names.smbios_name, 200, "OEM-specific"),
])  # fmt: skip
def test_numbers_have_names(function, argument, name):
    assert function(argument) == name


@pytest.mark.parametrize("config, offset, name", [
    (None, 0x04, "Command"), (None, 0x13, "BAR0"), (None, 0x60, "Register 60"), (samples.CARD, 0x42, "PCI Express: PCI "
     "Express Capabilities"), (samples.CARD, 0x51, "PCI Express: Link Control"),
    (samples.CARD, 0x74, "MSI: Message Address"),
    (samples.CARD, 0x78, "MSI: Message Upper Address"), (samples.CARD, 0x104, "Advanced Error Reporting: Uncorrectable "
     "Error Status"), (samples.CARD, 0x147, "Device Serial Number: Serial Number Low"),
    (samples.FUNCTIONS["00:00.0"], 0x60, "PCIEXBAR"), (b"", 0xFFF, "Register ffc"), (bytes(64), 0x40, "Register 40"),
    (samples.configuration(1, 2, 0x0604, x0e=b"\x01"), 0x1A, "Subordinate Bus"),
])  # fmt: skip
def test_pci_registers_have_names(config, offset, name):
    assert names.pci_register_name(config, offset) == name


def test_every_offset_belongs_to_one_register():
    for config in (samples.CARD, samples.FUNCTIONS["00:00.0"], b"\xff" * 4096, bytes(range(256)) * 16):
        for offset in range(4096):
            register = names.pci_register(config, offset)
            assert register.start <= offset < register.start + register.width
