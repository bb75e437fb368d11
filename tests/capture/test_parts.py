"""Each part of a capture says what the machine has."""

import re

import pytest

from harness import TOP


def board_text(name):
    """A board with what it includes."""
    path = TOP / "sim" / "boards" / f"{name}.board"
    return re.sub(r"^include (\S+)\.board$", lambda found: board_text(found[1]), path.read_text(), flags=re.MULTILINE)


def test_the_file_begins_and_ends_as_a_capture_does(capture):
    captured = capture("--spd")
    lines = captured.text.splitlines()
    assert lines[0] == "capture 1" and lines[-1] == "end"
    date = r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d UTC"
    assert re.fullmatch(rf"# Captured by hwreg-capture \d\.\d\d on {date}, Linux .+ x86_64", lines[1])
    assert lines[2] == "# options: --spd"


@pytest.mark.parametrize("board, cpus", [("intel", "0-7"), ("cpugap", "0-3,5")])
def test_processors_and_gaps_are_named(capture, board, cpus):
    assert ["cpus", cpus] in capture(board=board).lines("cpus")


def test_msrs_that_differ_have_their_processors_and_all_have_names(capture):
    captured = capture(board="amd")
    assert captured.lines("msr")[1:3] == [
        ["msr", "1b", "fee00900", "cpus", "0"], ["msr", "1b", "fee00800", "cpus", "1-7"]]
    assert "msr c0010058 f8000021    # MMIO_CFG_BASE_ADDR" in captured.text
    assert "msr 48: not there on cpus 0-7 (Input/output error): IA32_SPEC_CTRL" in captured.missing()


def test_more_msrs_are_read_when_they_are_asked_for(capture):
    captured = capture("--msr 700-702 --msr 900", extra="msr 701 1234")
    assert ["msr", "701", "1234"] in captured.lines("msr")
    assert [line for line in captured.missing() if line.startswith(("msr 7", "msr 9"))][-3:] == [
        f"msr {index}: not there on cpus 0-7 (Input/output error)" for index in ("700", "702", "900")]


@pytest.mark.parametrize("board", ["intel", "amd"])
def test_every_function_of_the_board_is_there(capture, board):
    named = re.findall(r"^pci (\S+) (\w{4}):(\w{4}) ", board_text(board), re.MULTILINE)
    spaces = capture(board=board).functions()
    assert {at: space[:4] for at, space in spaces.items()} == {
        at: bytes.fromhex(vendor)[::-1] + bytes.fromhex(device)[::-1] for at, vendor, device in named}
    assert {len(space) for space in spaces.values()} == {256, 4096}


def test_the_last_buses_are_looked_at(capture):
    bridge = ["pci 00:1d.0 8086:a330 class 060400 header 01", "buses 00 fe fe"]
    spaces = capture(extra=[*bridge, "pci fe:1f.0 1234:5678 class ff0000"]).functions()
    assert spaces["fe:1f.0"][:4] == bytes.fromhex("34127856")


def test_what_the_window_gives_otherwise_is_told(capture):
    captured = capture(extra=["sequence e00a0040 11223344"])
    assert captured.lines("window") == [["window", "40", "44", "33", "22", "11"]]


def test_a_window_that_is_none_becomes_memory(capture):
    captured = capture(extra=["ecam d0000000 1", "hole e0000000 10000000", "bytes 1000 01",
                              "pci 00:00.0 8086:3e30", "dword 60 00000000"])  # fmt: skip
    assert captured.lines("ecam") == []
    assert "# memory in the place of the window's 00:14.0" in captured.text


def test_memory_is_that_of_the_board(capture, run):
    captured = capture(board="intel")
    for address, length in ((0xE0000, 0x20000), (0x7A2FE000, 0x1000), (0x7A2F0000, 0x1000)):
        result = run(f"/MEM /RF OUT {address:#x} {length:#x}", board="intel", cwd=captured.path.parent)
        assert result.status == 0
        assert captured.memory(address, length) == (captured.path.parent / "OUT").read_bytes()


@pytest.mark.parametrize("board, signatures", [
    ("intel", {"FACP", "DSDT", "FACS", "APIC", "MCFG", "XSDT", "RSDT"}),
    ("amd", {"FACP", "DSDT", "FACS", "APIC", "XSDT", "RSDT"}),
])
def test_the_acpi_tables_stand_under_their_names(capture, board, signatures):
    found = re.findall(r"^# acpi (\w{4}) at (\w+), (\d+) bytes$", capture(board=board).text, re.MULTILINE)
    names = {name for name, _, _ in found}
    assert names >= signatures & names and {"FACP", "XSDT", "RSDT"} <= names
    captured = capture(board=board)
    for name, at, length in found:
        data = captured.memory(int(at, 16), int(length))
        assert data[:4] == name.encode()
        assert name == "FACS" or sum(data) % 256 == 0


def test_clock_power_management_and_system_table_file(capture):
    captured = capture(board="intel")
    assert captured.lines("pm1") == [["pm1", "1800", "1", "20", "1"]]
    assert [words[:2] for words in captured.lines("systab")] == [["systab", "sys"]] * 4
    assert [words[1] for words in captured.lines("cmos-bytes")] == [f"{at:x}" for at in range(0, 256, 16)]
    assert captured.lines("cmos-bytes")[8][2:7] == "48 57 52 45 47".split()
    amd = capture(board="amd")
    assert amd.lines("systab") == []
    assert amd.lines("pm-bytes")[0][:4] == ["pm-bytes", "0", "10", "0b"]
    assert amd.lines("pm1") == [["pm1", "800", "1", "20", "1"]]


def test_what_the_kernel_refuses_is_refused_again(capture):
    captured = capture(board="refusedmap")
    assert captured.lines("ecam") == []
    assert captured.lines("refuse")[0][:2] == ["refuse", "e0000000"]
    assert any(line.startswith("pci extended registers, window at e0000000: ") for line in captured.missing())


@pytest.mark.parametrize("board, said", [("nomsr", "msr-nodes never"), ("latemsr", "msr-nodes never")])
def test_without_msr_nodes_the_rest_is_there_and_no_module_is_loaded(capture, board, said):
    captured = capture(board=board)
    assert said in captured.text.splitlines()
    assert any(line.startswith("msrs: No such file or directory") for line in captured.missing())
    assert not [line for line in captured.log if line.startswith("system ")]
    assert len(captured.functions()) > 20


@pytest.mark.parametrize("first, length", [(0x100000, 0x1FF00000), (0x5000, 0x3B000), (0xFEC00000, 0x1000)])
def test_memory_that_is_refused_is_found_without_a_map(capture, first, length):
    lines = [f"refuse {first:x} {length:x} EPERM"]
    assert capture(board="unknown", extra=lines).lines("refuse") == [lines[0].split()]


def test_resources_of_the_machine_that_simulates_are_left_out(capture):
    captured = capture()
    assert not re.search("^# (iomem|ioports):", captured.text, re.MULTILINE)
    assert captured.missing()[-2:] == [f"/proc/{name}: No such file or directory" for name in ("iomem", "ioports")]


def test_the_super_io_chip_is_read_and_locked_again(capture):
    captured = capture("--superio", board="amd")
    assert captured.lines("superio") == [["superio", "4e", "a5", "a5", "aa"]]
    assert ["superio-device", "02", "60", "03", "f8"] == captured.lines("superio-device")[3][:5]
    ports = [line for line in captured.log if line.split(" ")[1] in ("004e", "004f")]
    assert ports[:2] == ["out8 004e a5"] * 2 and ports[-1] == "out8 004e aa"
    assert "superio: nobody answers behind port 4e" in capture("--superio", board="unknown").missing()


def test_memory_modules_of_one_and_two_pages_are_read(capture):
    captured = capture("--spd", board="amd")
    assert captured.lines("smbus-spd", "smbus-eeprom") == [
        ["smbus-spd", "a0"], ["smbus-spd", "a2"], ["smbus-eeprom", "a4"], ["smbus-eeprom", "a8"], ["smbus-spd", "ac"]]
    assert captured.lines("smbus-host") == [["smbus-host", "pm"]]


def test_ports_memory_and_smn_are_read_when_they_are_asked_for(capture):
    captured = capture("--ports 500-503 --memory 100000-10000f --smn 1 18000-18004", board="amd")
    assert captured.lines("constant") == [["constant", "500", "00", "01", "02", "03"]]
    assert captured.memory(0x100000, 8).hex() == "0000100004001000"
    assert captured.lines("smn-register") == [["smn-register", "1", "18000", "55667788"],
                                              ["smn-register", "1", "18004", "ffffffff"]]
    assert "smn: the host bridge has none that is known" in capture("--smn 0 18000").missing()


def test_a_processor_that_smn_is_not_known_of_is_left_alone(capture):
    newer = "cpuid 80000001 0 00a20f10 0 0 0"
    captured = capture("--smn 0 18000", board="amd", extra=newer)
    assert "smn: the host bridge has none that is known" in captured.missing()
    assert not [line for line in captured.log if line.startswith("out32 0cfc")]


@pytest.mark.parametrize("options", ["--smn 11 0", "--msr '\n10'", "--msr ' 10'", "--memory ' -ffffffffffffff00'"])
def test_operands_are_numbers_and_dies_are_those_of_the_commands(run, options):
    assert run(options, board="amd", program="hwreg-capture").status == 2


def test_registers_beyond_256_that_are_refused_are_missing(capture):
    captured = capture(extra=["refuse e00a0000 1000 EPERM"])
    assert "extended registers of 00:14.0: Operation not permitted" in captured.missing()


def test_leaves_that_are_too_many_are_missing(capture):
    captured = capture(extra=["cpuid 0 0 1000 756e6547 6c65746e 49656e69"])
    assert "cpuid 1-1000 on cpus 0: too many" in captured.missing()


def entry64(address, length):
    return b"_SM3_\0\x18\3\3\0\1\0" + length.to_bytes(4, "little") + address.to_bytes(8, "little")


@pytest.mark.parametrize("entry, said", [
    (entry64(0x17A000000, 0x100), "smbios table: above 4 GiB; the commands look for it at 7a000000"),
    (entry64(0x7A000000, 0x50000), "smbios table at 7a000000: its length of 50000 bytes is taken for 40000"),
])
def test_what_is_not_taken_of_the_smbios_table_is_missing(capture, entry, said):
    captured = capture(board="unknown", extra=["fill e0000 20000 00", f"bytes f5000 {entry.hex(' ')}"])
    assert said in captured.missing()


def test_the_table_of_the_commands_is_taken_however_many_there_are(capture):
    entries = [f"bytes {0xE0000 + 32 * k:x} {entry64(0x70000000 + 0x1000 * k, 16).hex(' ')}" for k in range(20)]
    legacy = b"_SM_\0\x1f\2\x08" + bytes(8) + b"_DMI_\0" + (0x40).to_bytes(2, "little") + bytes.fromhex("0000107a")
    lines = ["fill e0000 20000 00", *entries, f"bytes fff00 {legacy.hex(' ')} 02 00 28 00", "fill 7a100000 40 5a"]
    captured = capture(board="unknown", extra=lines)
    assert captured.memory(0x7A100000, 0x40) == b"\x5a" * 0x40
    assert "smbios table at 7000f000: more than 16 of them" in captured.missing()
