"""CPUID, MSRs, Super I/O, SPD and CMOS in the forms that tools write."""

import io
import json
import os
import tarfile

import pytest
import samples


def test_leaves_of_cpuid_come_back_and_those_of_one_cpu_stay_its_own(desk):
    desk.write("cpuid", samples.cpuid_text())
    lines = desk.board("m", "--cpuid", "cpuid")
    assert "cpuid 0 0 1 756e6547 6c65746e 49656e69" in lines and "cpus 0-1" in lines
    assert "cpuid 1 0 906ea 1100800 7ffafbbf bfebfbff cpus 1" in lines
    desk("export", "--cpuid", "back", "m.board")
    assert desk.read("back").decode() == samples.cpuid_text()


def test_one_cpu_without_a_number_is_the_first(desk):
    desk.write("cpuid", samples.cpuid_text(1).replace("CPU 0:", "CPU:"))
    assert "cpus 0" in desk.board("m", "--cpuid", "cpuid")


AIDA = """------[ CPUID Registers / Logical CPU #0 ]------
CPUID 00000000: 00000001-756E6547-6C65746E-49656E69 [GenuineIntel]
CPUID 0000000B: 00000001-00000002-00000100-00000000 [SL 00]
CPUID 0000000B: 00000004-0000000C-00000201-00000000 [SL 01]
------[ CPUID Registers / Logical CPU #1 ]------
CPUID 00000000: 00000001-756E6547-6C65746E-49656E69 [GenuineIntel]
CPUID 0000000B: 00000001-00000002-00000100-00000001 [SL 00]
CPUID 0000000B: 00000004-0000000C-00000201-00000001 [SL 01]
"""
RAW = """version=0.5.1
basic_cpuid[0]=00000001 756e6547 6c65746e 49656e69
ext_cpuid[1]=00000001 00000002 00000003 00000004
intel_fn4[1]=00000005 00000006 00000007 00000008
intel_fn11[0]=00000009 0000000a 0000000b 0000000c
amd_fn8000001dh[2]=0000000d 0000000e 0000000f 00000010
"""


def test_other_forms_of_cpuid_are_taken(desk):
    desk.write("aida", AIDA)
    assert {"cpus 0-1", "cpuid b 1 4 c 201 0 cpus 0", "cpuid b 1 4 c 201 1 cpus 1"} <= set(
        desk.board("m", "--cpuid", "aida"))
    desk.write("raw", RAW)
    assert [line for line in desk.board("m", "--cpuid", "raw") if line.startswith("cpuid")] == [
        "cpuid 0 0 1 756e6547 6c65746e 49656e69", "cpuid 4 1 5 6 7 8", "cpuid b 0 9 a b c",
        "cpuid 80000001 0 1 2 3 4", "cpuid 8000001d 2 d e f 10"]  # fmt: skip


def test_an_archive_of_hwloc_is_taken(desk):
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w:gz") as archive:
        for cpu in (0, 1):
            text = ("# mask e[abcd]x => e[abcd]x\n1 0 0 0 0 => 1 756e6547 6c65746e 49656e69\n"
                    f"5 b 0 0 1 => 4 c 201 0\n5 b 0 1 0 => 4 c 201 {cpu}\n").encode()  # fmt: skip
            member = tarfile.TarInfo(f"box/pu{cpu}")
            member.size = len(text)
            archive.addfile(member, io.BytesIO(text))
    desk.write("box.tar.gz", packed.getvalue())
    lines = desk.board("m", "--cpuid", "box.tar.gz")
    assert "cpuid b 1 4 c 201 1 cpus 1" in lines and "cpuid 0 0 1 756e6547 6c65746e 49656e69" in lines


@pytest.mark.parametrize("line, wanted", [
    ("0x1b 0xfee00900", "msr 1b fee00900"), ("1B: FEE00900", "msr 1b fee00900"),
    ("0000001bh=0000000500000001", "msr 1b 500000001"), ("msr[0x1b] = 0x5", "msr 1b 5"),
    ("CPU 2: 0x1b 0x5", "msr 1b 5 cpus 2"), ("cpu3 1b 5", "msr 1b 5 cpus 3"),
    ("MSR 0000001B: 0000-0005-FEE0-0900 [S200]", "msr 1b 5fee00900"),
    ("Cpu[01] Msr read from 0000001B, return MSR: 0x00000005_FEE00900", "msr 1b 5fee00900 cpus 1"),
    ("0xc0010058 00000000 f8000021  # window", "msr c0010058 f8000021"),
])
def test_msr_lines_of_many_tools_are_taken(desk, line, wanted):
    desk.write("msr", f"# of a machine\n{line}\n")
    found = [each.split("  #")[0] for each in desk.board("m", "--msr", "msr") if each.startswith("msr ")]
    assert [each.replace(" cpus 1", "").replace(" cpus 2", "").replace(" cpus 3", "") for each in found] == [
        wanted.split(" cpus")[0]]


def test_msrs_come_back(desk):
    desk.write("msr", "CPU 0: 0x1b 0xfee00900\nCPU 1: 0x1b 0xfee00800\nCPU 0: 0x3a 0x5\nCPU 1: 0x3a 0x5\n")
    lines = desk.board("m", "--msr", "msr")
    assert "msr 3a 5  # IA32_FEATURE_CONTROL" in lines
    desk("export", "--msr", "back", "m.board")
    assert desk.read("back") == b"CPU 0: 0x1b 0xfee00900\nCPU 1: 0x1b 0xfee00800\n0x3a 0x5\n"


def test_recordings_of_chipsec_are_taken(desk):
    desk.write("r.json", json.dumps({"read_msr": {"(0,58)": ["(5, 0)"], "(1,58)": ["(5, 1)", "(6, 1)"]}}))
    result = desk("import", "--msr", "r.json", "-o", "m.board")
    assert "1 MSRs were read with several values" in result.err
    assert "msr 3a 100000005 cpus 1  # IA32_FEATURE_CONTROL" in desk.read("m.board").decode()


def test_a_super_io_chip_has_its_registers_and_its_makers_keys(desk):
    desk.write("sio", samples.SUPERIO)
    lines = desk.board("m", "--superio", "sio")
    assert lines[lines.index("superio 2e 55 55") + 1:][:3] == [
        "superio-global 20 87 28 01 00", "superio-device 01 30 01", "superio-device 01 60 03 f8"]  # fmt: skip
    assert "# missing: superio 2e 55 55 device 1: register 70" in lines



def hex_text(data, width=16):
    return "".join(data[at:at + width].hex(" ").upper() + "  // row\n" for at in range(0, len(data), width))


def i2cdump(data):
    text = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n"
    for at in range(0, len(data), 16):
        text += f"{at:02x}: {data[at:at + 16].hex(' ')}    {'.' * 16}\n"
    return text


@pytest.mark.parametrize("size", [256, 512, 1024])
@pytest.mark.parametrize("form", [bytes, lambda data: ("# comment\n" + hex_text(data)).encode(),
                                  lambda data: hex_text(data, 1).encode(), lambda data: i2cdump(data).encode()],
                         ids=["bytes", "text", "one a line", "i2cdump"])  # fmt: skip
def test_modules_come_back_in_every_size_and_form(desk, size, form):
    image = (samples.SPD + bytes(range(256)) * 2)[:size]
    desk.write("spd", form(image))
    lines = desk.board("m", "--spd", "a2=spd")
    assert ("smbus-eeprom a2" if size == 256 else "smbus-spd a2") in lines
    assert desk("export", "--spd", "51", "back", "m.board").status == 0
    assert desk.read("back") == image


def test_bytes_that_i2cdump_could_not_read_are_unknown(desk):
    desk.write("spd", i2cdump(samples.SPD[:256]).replace("23 11", "XX 11", 1))
    assert "smbus-bytes 0 ?? 11 0c 02 " + "00 " * 11 + "00" in desk.board("m", "--spd", "a0=spd")


def test_the_smbus_host_of_the_dump_gets_the_modules(desk):
    desk.write("spd", samples.SPD)
    desk.write("lspci", samples.lspci())
    lines = desk.board("m", "--lspci", "lspci", "--spd", "a0=spd")
    assert lines.count("  smbus-host pci") == 1
    before = lines[:lines.index("  smbus-host pci")]
    assert [line for line in before if line.startswith("pci ")][-1].startswith("pci 00:1f.3")


def test_without_a_host_one_is_described_and_said_so(desk):
    desk.write("spd", samples.SPD)
    lines = desk.board("m", "--spd", "a0=spd")
    assert any(line.startswith("# missing: pci 00:1f.4: no dump of an SMBus host") for line in lines)
    desk.write("lspci", samples.lspci({"00:00.0": samples.configuration(0x1022, 0x1480, 0x0600)}))
    lines = desk.board("m", "--lspci", "lspci", "--spd", "a0=spd")
    assert "pm-registers" in lines and "smbus-host pm" in lines


def nvramtool(data):
    return "".join(f"{at:08x}  {data[at:at + 16].hex(' ')}  |{'.' * 16}|\n" for at in range(0, len(data), 16))


@pytest.mark.parametrize("form", [bytes, lambda data: samples.rows(data).encode(),
                                  lambda data: nvramtool(data).encode(), lambda data: hex_text(data).encode()],
                         ids=["bytes", "rows", "nvramtool", "text"])  # fmt: skip
@pytest.mark.parametrize("size", [128, 256])
def test_cmos_comes_back(desk, form, size):
    desk.write("cmos", form(samples.CMOS[:size]))
    assert "cmos" in desk.board("m", "--cmos", "cmos")
    desk("export", "--cmos", "back", "m.board")
    assert desk.read("back") == samples.CMOS[:size]


def test_the_nvram_device_begins_behind_the_clock(desk):
    desk.write("cmos", bytes(range(0x80, 0x80 + 114)))
    lines = desk.board("m", "--cmos", "cmos")
    assert "cmos-bytes 0 " + "?? " * 14 + "80 81" in lines


def test_an_image_by_port_and_index_is_taken(desk):
    image = bytearray(0x7280)
    image[0x7000:0x7080], image[0x7200:0x7280] = bytes(range(128)), b"\x5a" * 128
    desk.write("cmos", bytes(image))
    desk.board("m", "--cmos", "cmos")
    desk("export", "--cmos", "back", "m.board")
    assert desk.read("back") == bytes(range(128)) + b"\x5a" * 128


BAD = {
    "lspci": [(b"", "no bytes of a PCI function"), (b"00: 86 80\n", "bad:1: bytes before the first function"),
              (b"00:00.0 Host\n00: 86 8\n", "bad:2: a row of bytes is damaged"),
              (b"00:00.0 Host\n08: 86\n", "bad:2: no row of configuration space begins at 8h"),
              (b"00:20.0 Host\n00: 86\n", "bad:1: no PCI bus has such a device"),
              (b"00:00.0 Host\n", "no bytes of a PCI function"), (bytes(100), "bad:1: this is no text")],
    "cpuid": [(b"", "no leaves"), (b"CPU 99999:\n", "bad:1: there are no such CPUs"),
              (samples.cpuid_text().encode()[:-5] + b"zz\n", "bad:6: a leaf is damaged"),
              (b"# mask a\n1 2 3\n", "bad:2: not a leaf")],
    "msr": [(b"", "no MSRs"), (b"0x10\n", "bad:1: not an MSR"), (b"0x1b 0x11112222333344445\n", "bad:1: not an MSR"),
            (b"0x1b 5\nrubbish\n", "bad:2: not an MSR"), (b'{"read_msr": 5}', "bad:1: not a recording"),
            (b"{" * 100000, "bad:1: not a recording"), (b'{"read_msr": {"(0,58)": ["x"]}}', "bad:1: not a recording")],
    "superio": [(b"", "no registers"), (b"idx 20\n", "bad:1: registers before a chip"),
                (b"Found ITE X (id=1) at 0x2e\nidx 20 21\nval 1\n", "bad:3: 1 values for 2 registers"),
                (b"Found ITE X (id=1) at 0x2e\nidx 20\nval qq\n", "bad:3: not a register's value")],
    "cmos": [(b"", "bad: empty"), (b"00 zz\n", "bad:1: not a byte: zz"), (bytes(300), "more than 256 bytes"),
             (b"# nothing\n", "bad: no bytes here")],
    "sysfs": [(b"no archive", "neither a folder nor an archive"), (b"BZh9 broken", "cannot be unpacked")],
    "spd": [(b"00 " * 1025, "bad:1: more than 1024 bytes"), (b"", "bad: empty"), (b"23 1x\n", "bad:1: not a byte: 1x")],
}  # fmt: skip


@pytest.mark.parametrize("option, contents, complaint", [
    (option, contents, complaint) for option, rows in BAD.items() for contents, complaint in rows],
    ids=[f"{option}-{number}" for option, rows in BAD.items() for number in range(len(rows))])  # fmt: skip
def test_bad_dumps_are_told_with_their_place(desk, option, contents, complaint):
    desk.write("bad", contents)
    result = desk("import", f"--{option}", "a0=bad" if option == "spd" else "bad", "-o", "m.board")
    assert result.status == 2 and complaint in result.err, result.err
    assert result.err.startswith("bad:") and not (desk.folder / "m.board").exists()


@pytest.mark.parametrize("file", ["/dev/zero", "/proc/self/fd", "nowhere", "pipe", "/proc/self/mem"])
@pytest.mark.parametrize("option", list(BAD) + ["dmi", "acpi"])
def test_endless_and_strange_files_end(desk, option, file):
    os.mkfifo(desk.folder / "pipe")
    result = desk("import", f"--{option}", f"a0={file}" if option == "spd" else file, "-o", "m.board")
    assert result.status == 2 and result.err.startswith(file)
