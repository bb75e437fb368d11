"""SMBIOS and ACPI tables find a place in the machine's memory and come back as they were."""

import gzip

import pytest
import samples


def sections(lines, title):
    """The lines that begin a part of memory."""
    return [line for line in lines if line.startswith(f"# {title}")]


@pytest.mark.parametrize("kind", ["_SM_", "_SM3_"])
def test_a_dump_of_dmidecode_comes_back_byte_by_byte(desk, kind):
    desk.write("dmi.bin", samples.dmi(kind))
    lines = desk.board("m", "--dmi", "dmi.bin")
    assert len(sections(lines, "smbios")) == 2
    assert any("the dump says 20" in line for line in lines)
    assert desk("export", "--dmi", "back", "m.board").status == 0
    assert desk.read("back") == samples.dmi(kind)


@pytest.mark.parametrize("kind", ["_SM_", "_SM3_"])
def test_a_table_stays_where_the_entry_point_says(desk, kind):
    table = samples.smbios_table()
    desk.write("smbios_entry_point", samples.entry_point(table, 0x7AFF0000, kind))
    desk.write("DMI", table)
    for words in (["--dmi", "."], ["--dmi", "DMI", "--dmi", "smbios_entry_point"]):
        lines = desk.board("m", *words)
        assert any(line.startswith("bytes 7aff0000 00 16 00 00") for line in lines)
        assert not any(line.startswith("# note") for line in lines)
        desk("export", "--dmi", "back", "m.board")
        assert desk.read("back") == samples.dmi(kind)


def test_a_table_alone_gets_an_entry_point(desk):
    desk.write("DMI", samples.smbios_table())
    lines = desk.board("m", "--dmi", "DMI")
    assert any("made by the importer" in line for line in lines)
    desk("export", "--dmi", "back", "m.board")
    back = desk.read("back")
    assert back[32:] == samples.smbios_table() and back[:5] == b"_SM3_" and sum(back[:24]) & 0xFF == 0


def test_a_table_shorter_than_its_entry_point_says_is_told(desk):
    desk.write("dmi.bin", samples.dmi()[:-3])
    result = desk("import", "--dmi", "dmi.bin", "-o", "m.board")
    assert "its entry point says" in result.err
    assert "# missing: smbios table: 3 bytes at its end" in desk.read("m.board").decode()
    desk("export", "--dmi", "back", "m.board")
    assert desk.read("back") == samples.dmi()[:-3]


def blocks(text):
    """The tables in acpidump's text: name and bytes."""
    found = []
    for line in text.splitlines():
        if "@" in line and not line.startswith(" "):
            found.append((line.split()[0], bytearray()))
        elif ":" in line:
            found[-1][1].extend(bytes.fromhex(line.split(":", 1)[1][:49]))
    return sorted((name, bytes(data)) for name, data in found)


@pytest.mark.parametrize("style", ["{name} @ 0x{address:016X}", "{name} @ 0x{address:x}", "{name} @ {address:08x}"])
def test_tables_come_back_from_their_addresses(desk, style):
    text = samples.acpidump(style=style)
    desk.write("acpi", gzip.compress(text.encode()))
    lines = desk.board("m", "--acpi", "acpi")
    assert [line.split()[2:5] for line in sections(lines, "acpi")] == [
        [name, "at", f"{address:x},"] for name, address, _ in samples.acpi_tables()]
    assert not any("importer" in line for line in lines if not line.startswith("# missing"))
    desk("export", "--acpi", "back", "m.board")
    assert blocks(desk.read("back").decode()) == blocks(samples.acpidump())


def test_tables_without_addresses_are_placed_and_a_root_leads_to_them(desk):
    wanted = [table for table in samples.acpi_tables() if table[0] != "XSDT"]
    desk.write("acpi", samples.acpidump(wanted, style="{name}"))
    lines = desk.board("m", "--acpi", "acpi")
    titles = sections(lines, "acpi")
    assert any(line.startswith("# acpi DSDT at 7ffe1000,") for line in titles)  # the FADT knows
    assert any(line.startswith("# acpi XSDT at ") and line.endswith("made by the importer") for line in titles)
    places = {line.split()[2]: int(line.split()[4].rstrip(","), 16) for line in titles}
    shown = desk("show", "m.board", "acpi").out
    assert "checksum is wrong" not in shown and "XSDT at" in shown
    memory = desk.read("m.board").decode()
    assert samples.little(places["MCFG"], 4).hex(" ") in memory
    desk("export", "--acpi", "back", "m.board")
    assert blocks(desk.read("back").decode()) == blocks(samples.acpidump(wanted))


def test_what_the_importer_makes_is_not_given_back(desk):
    wanted = [table for table in samples.acpi_tables() if table[0] not in ("XSDT", "RSDP")]
    desk.write("acpi", samples.acpidump(wanted, style="{name}"))
    lines = desk.board("m", "--acpi", "acpi")
    assert [line.split()[2] for line in sections(lines, "acpi") if line.endswith("made by the importer")] == [
        "XSDT", "RSDP"]  # fmt: skip
    desk("export", "--acpi", "back", "m.board")
    assert blocks(desk.read("back").decode()) == blocks(samples.acpidump(wanted))


def test_a_table_that_lies_where_something_else_does_is_moved(desk):
    tables = [(name, 0x7FFE1000 if name == "MCFG" else address, data) for name, address, data in samples.acpi_tables()]
    desk.write("acpi", samples.acpidump(tables))
    result = desk("import", "--acpi", "acpi", "-o", "m.board")
    assert "placed by the importer" in result.err
    assert "# note: placed by the importer; the dump says 7ffe1000" in desk.read("m.board").decode()
    desk("export", "--acpi", "back", "m.board")
    assert [data for _, data in blocks(desk.read("back").decode())] == [data for _, data in blocks(samples.acpidump())]


def test_raw_tables_are_taken(desk):
    for name, _, data in samples.acpi_tables():
        desk.write(f"{name}.dat", data)
    words = [word for name, _, _ in samples.acpi_tables() for word in ("--acpi", f"{name}.dat")]
    desk.board("m", *words)
    desk("export", "--acpi", "back", "m.board")
    assert blocks(desk.read("back").decode()) == blocks(samples.acpidump())


@pytest.mark.parametrize("option, contents, complaint", [
    ("--dmi", b"", "dump: neither an SMBIOS entry point nor a table"),
    ("--dmi", samples.dmi()[:20], "dump: the entry point is cut off"),
    ("--dmi", bytes(1000), "dump: neither"),
    ("--dmi", b"\x7fELF" + bytes(1000), "dump: neither"),
    ("--acpi", b"", "dump: empty"),
    ("--acpi", b"hello\n", "dump: no ACPI tables here"),
    ("--acpi", samples.acpi_tables()[0][2][:100], "dump: the table at byte 0h is cut off"),
    ("--acpi", samples.acpidump().encode()[:700], "dump:1: the table is cut off: it has 244 bytes"),
    ("--acpi", samples.acpidump().encode().replace(b"0010: 42", b"0010: 4G", 1), "dump:3: a row of bytes is damaged"),
    ("--acpi", samples.acpidump().encode().replace(b"0020:", b"0030:", 1), "dump:4: the row is not the next one: 30"),
    ("--acpi", b"\xfd7zXZ\x00 broken", "dump: cannot be unpacked (xz)"),
], ids=range(11))
def test_bad_tables_are_told(desk, option, contents, complaint):
    desk.write("dump", contents)
    result = desk("import", option, "dump", "-o", "m.board")
    assert result.status == 2 and complaint in result.err, result.err
    assert not (desk.folder / "m.board").exists()
