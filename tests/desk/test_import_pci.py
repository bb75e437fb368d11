"""PCI functions out of lspci's text and out of trees of sysfs."""

import bz2
import io
import gzip
import lzma
import tarfile

import pytest
import samples

EVERY_ENCODING = {
    "plain": lambda text: text.encode(), "crlf": lambda text: text.replace("\n", "\r\n").encode(),
    "cr": lambda text: text.replace("\n", "\r").encode(), "utf8-mark": lambda text: b"\xef\xbb\xbf" + text.encode(),
    "utf16": lambda text: text.encode("utf-16"), "utf16-be": lambda text: b"\xfe\xff" + text.encode("utf-16-be"),
    "xz": lambda text: lzma.compress(text.encode()), "bzip2": lambda text: bz2.compress(text.encode()),
}  # fmt: skip


def functions(lines):
    return [line.split()[1] for line in lines if line.startswith("pci ")]


@pytest.mark.parametrize("encode", EVERY_ENCODING.values(), ids=EVERY_ENCODING)
def test_text_of_any_encoding_gives_the_same_bytes_back(desk, encode):
    desk.write("dump", encode(samples.lspci()))
    lines = desk.board("m", "--lspci", "dump")
    assert functions(lines) == ["00:00.0", "00:1f.3", "03:00.0"]
    assert lines[0] == "capture 1" and lines[-1] == "end"
    assert desk("export", "--lspci", "back", "m.board").status == 0
    back = desk.read("back").decode()
    assert [line for line in back.splitlines() if line[:2].isalnum() and line[2:4] in (": ", "0:", ":")] != []
    assert samples.rows(samples.CARD) in back and samples.rows(samples.FUNCTIONS["00:00.0"]) in back


PACKERS = {"xz": lzma.compress, "bzip2": bz2.compress, "gzip": gzip.compress}


@pytest.mark.parametrize("pack", PACKERS.values(), ids=PACKERS)
def test_all_streams_of_a_compressed_dump_are_taken_and_none_is_cut_off(desk, pack):
    first, second = b"00:00.0 X\n00: 86 80 c0 29\n", b"00:01.0 X\n00: 86 80 c1 29\n"
    desk.write("dump", pack(first) + pack(second) + bytes(8))
    assert functions(desk.board("m", "--lspci", "dump")) == ["00:00.0", "00:01.0"]
    for damaged, complaint in (((pack(first) + pack(second))[:-9], "cut off"), (pack(first) + b"x", "something else"),
                               (pack(b"") * 10_001, "compressed streams")):  # fmt: skip
        desk.write("bad", damaged)
        result = desk("import", "--lspci", "bad", "-o", "n.board")
        assert result.status == 2 and complaint in result.err, result.err


def test_what_a_short_dump_does_not_have_is_unknown(desk):
    desk.write("dump", samples.lspci(size=64))
    lines = desk.board("m", "--lspci", "dump")
    assert "  config 40 " + " ".join(["??"] * 16) in lines
    assert any(line.startswith("  config f0 ??") for line in lines)
    assert not any(line.startswith("  config 100") for line in lines)
    desk("export", "--lspci", "back", "m.board")
    assert "40: " not in desk.read("back").decode()


def test_other_domains_are_told_and_left_out(desk):
    text = samples.lspci() + "0001:02:00.0 Bridge: far away\n" + samples.rows(samples.CARD[:64])
    desk.write("dump", text)
    result = desk("import", "--lspci", "dump", "-o", "m.board")
    assert "1 functions of other PCI domains are left out" in result.err
    lines = desk.read("m.board").decode().splitlines()
    assert "# missing: pci 0001:02:00.0: ports CF8h and CFCh reach domain 0 alone" in lines
    assert len(functions(lines)) == 3


def test_a_function_that_comes_twice_is_told_and_the_later_one_counts(desk):
    other = samples.configuration(0x1234, 0x5678, 0x0100)
    desk.write("dump", samples.lspci() + "00:1f.3 Again: it\n" + samples.rows(other))
    result = desk("import", "--lspci", "dump", "-o", "m.board")
    assert "00:1f.3 is there twice; what comes later counts" in result.err
    assert "pci 00:1f.3 verbatim  # 1234:5678 SCSI storage controller" in desk.read("m.board").decode()


def test_unknown_bytes_stay_unknown(desk):
    desk.write("dump", "00:00.0 Host bridge\n00: 86 80 ?? XX 00 00 00 00 00 00 00 06 00 00 00 00\n")
    assert any(line.startswith("  config 0 86 80 ?? ?? 00") for line in desk.board("m", "--lspci", "dump"))


def test_a_thousand_functions_are_taken(desk):
    many = {f"{number >> 8:02x}:{number >> 3 & 31:02x}.{number & 7}": samples.FUNCTIONS["00:00.0"]
            for number in range(1000)}  # fmt: skip
    desk.write("dump", samples.lspci(many))
    assert len(functions(desk.board("m", "--lspci", "dump"))) == 1000


def tree_files():
    for place, data in samples.FUNCTIONS.items():
        yield f"sys/devices/pci0000:00/0000:{place}/config", data
    yield "sys/devices/pci0001:00/0001:00:00.0/config", samples.CARD[:64]
    yield "sys/devices/pci0000:00/0000:00:00.0/vendor", b"0x8086\n"


def test_a_tree_of_sysfs_and_its_archive_give_what_lspci_gives(desk):
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w:bz2") as archive:
        for path, data in tree_files():
            desk.write(path, data)
            member = tarfile.TarInfo(path)
            member.size = len(data)
            archive.addfile(member, io.BytesIO(data))
    desk.write("tree.tar.bz2", packed.getvalue())
    desk.write("dump", samples.lspci())
    wanted = [line for line in desk.board("text", "--lspci", "dump") if line.startswith(("pci ", "  config"))]
    for source in ("sys", "tree.tar.bz2"):
        lines = desk.board("m", "--sysfs", source)
        assert [line for line in lines if line.startswith(("pci ", "  config"))] == wanted
        assert any("# missing: pci 0001:00:00.0" in line for line in lines)


def test_links_as_in_the_bus_folder_are_followed(desk):
    for path, data in tree_files():
        desk.write(path, data)
    bus = desk.folder / "bus"
    bus.mkdir()
    for place in samples.FUNCTIONS:
        (bus / f"0000:{place}").symlink_to(desk.folder / f"sys/devices/pci0000:00/0000:{place}")
    (bus / "loop").symlink_to(bus)
    assert functions(desk.board("m", "--sysfs", "bus")) == list(samples.FUNCTIONS)


@pytest.mark.parametrize("functions_there, window", [
    (samples.FUNCTIONS, "ecam b0000000 100"),
    ({"00:00.0": samples.configuration(0x8086, 0x29C0, 0x0600, x60=samples.little(0xF4000005, 8))}, "ecam f4000000 40"),
    ({"00:00.0": samples.configuration(0x8086, 0x29C0, 0x0600, x60=samples.little(0x00029005, 8))}, None),
    ({"00:00.0": samples.configuration(0x8086, 0x29C0, 0x0600)}, None),
], ids=["256 buses", "64 buses", "an MSI capability", "nothing"])  # fmt: skip
def test_register_60h_tells_the_window_where_it_makes_sense(desk, functions_there, window):
    desk.write("dump", samples.lspci(functions_there))
    assert [line for line in desk.board("m", "--lspci", "dump") if line.startswith("ecam")] == [window] * bool(window)


def test_mcfg_knows_better_where_the_window_is(desk):
    bridge = samples.configuration(0x8086, 0x29C0, 0x0600, x60=samples.little(0xE0000001, 8))
    desk.write("dump", samples.lspci({"00:00.0": bridge}))
    desk.write("acpi", samples.acpidump())
    result = desk("import", "--lspci", "dump", "--acpi", "acpi", "-o", "m.board")
    assert "b0000000 as MCFG says" in result.err
    assert "ecam b0000000 100" in desk.read("m.board").decode().splitlines()


def test_on_amd_an_msr_tells_the_window(desk):
    desk.write("dump", samples.lspci({"00:00.0": samples.configuration(0x1022, 0x1480, 0x0600)}))
    desk.write("msr", "0xc0010058 0xf8000021\n")
    assert "ecam f8000000 80" in desk.board("m", "--lspci", "dump", "--msr", "msr")
