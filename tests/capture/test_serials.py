"""--no-serials puts fixed values of the same length in the place of what names one machine among many."""

import struct
import uuid

import pytest

import firmware
from firmware_model import walk

UUID_AT = 8
SERIALS = [b"SYS-SERIAL-1", b"BRD-SERIAL-2", b"BRD-TAG-2", b"CASE-SERIAL-3", b"CASE-TAG-3", b"CPU-SERIAL-4",
           b"CPU-TAG-4", b"MEM-SERIAL-17", b"MEM-TAG-17", b"BAT-SERIAL-22",
           b"PSU-TAG-39", b"PSU-SERIAL-39"]  # fmt: skip
KEPT = [b"Maker of it all", b"Model 5"]
UUID = bytes(range(0x30, 0x40))
FIXED = bytes.fromhex("00112233445566778899aabbccddeeff")
TABLE_AT, AREA_TABLE_AT = 0x7A000000, 0xE8000
KEY = b"ABCDE-12345-FGHIJ-67890-KLMNO"


def structure(kind, body, strings):
    """Type, length, handle, the formatted part from 04h on, and its strings."""
    texts = b"".join(text + b"\0" for text in strings) or b"\0"
    return bytes([kind, len(body) + 4, kind, 0]) + bytes(body) + texts + b"\0"


def body(length, **fields):
    """The formatted part behind the header; fields by offset, as o07=1."""
    made = bytearray(length - 4)
    for name, value in fields.items():
        at = int(name[1:], 16) - 4
        data = value if isinstance(value, bytes) else bytes([value])
        made[at:at + len(data)] = data
    return made


def smbios_table():
    s = SERIALS
    return b"".join([
        structure(1, body(27, o04=1, o05=2, o07=3, o08=UUID), [*KEPT, s[0]]),
        structure(2, body(15, o04=1, o07=2, o08=3), [KEPT[0], s[1], s[2]]),
        structure(3, body(21, o04=1, o07=2, o08=3), [KEPT[0], s[3], s[4]]),
        structure(4, body(48, o07=1, o20=2, o21=3), [KEPT[0], s[5], s[6]]),
        structure(11, body(5, o04=2), [b"Serial: " + s[0], KEPT[1]]),
        structure(17, body(40, o17=1, o18=2, o19=3), [KEPT[0], s[7], s[8]]),
        structure(22, body(26, o05=1, o07=2, o10=b"\x34\x12"), [KEPT[0], s[9]]),
        structure(39, body(22, o07=1, o08=2, o09=3), [KEPT[0], s[11], s[10]]),
        structure(127, b"", []),
    ])  # fmt: skip


def bytes_lines(address, data):
    return [f"bytes {address + at:x} {data[at:at + 64].hex(' ')}" for at in range(0, len(data), 64)]


def tables(table_at):
    """A legacy machine whose SMBIOS table stands there, with an MSDM, a SLIC, and a dock's MAC address in a DSDT."""
    table = smbios_table()
    entry = bytearray(b"_SM_\0\x1f\x02\x08\0\0\0" + bytes(5) + b"_DMI_\0")
    entry += struct.pack("<HIHB", len(table), table_at, 9, 0x28)
    entry[0x15] = -sum(entry[0x10:0x1F]) & 0xFF
    entry[4] = -sum(entry[:0x1F]) & 0xFF
    made = [firmware.sdt(b"MSDM", struct.pack("<IIIII", 1, 0, 1, 0, len(KEY)) + KEY),
            firmware.sdt(b"SLIC", bytes(range(1, 100))),
            firmware.sdt(b"SSDT", b"....._AUXMAC_#A0B1C2D3E4F5#....")]
    lines = []
    at = 0x7A100000
    for one in made:
        lines += bytes_lines(at, one)
        at += 0x1000
    xsdt = firmware.sdt(b"XSDT", struct.pack("<QQQ", 0x7A100000, 0x7A101000, 0x7A102000))
    rsdp = b"RSD PTR \0MAKER \2" + struct.pack("<IIQB3x", 0, 36, 0x7A103000, 0) + bytes(4)
    return [*lines, "fill e0000 20000 00", *bytes_lines(0x7A103000, xsdt), *bytes_lines(0xF6000, rsdp),
            *bytes_lines(0xF5000, entry + b"\0"), *bytes_lines(table_at, table)], entry, table


def image(captured):
    return b"".join(captured.memory(at, length) for at, length in (
        (0xE0000, 0x20000), (TABLE_AT, 0x1000), (0x7A100000, 0x4000)))  # fmt: skip


@pytest.mark.parametrize("table_at", [TABLE_AT, AREA_TABLE_AT])
def test_no_serial_of_the_firmware_is_left(capture, table_at):
    lines, entry, table = tables(table_at)
    plain, hidden = (image(capture(option, board="unknown", extra=lines)) for option in ("", "--no-serials"))
    for secret in (*SERIALS, UUID, KEY, b"A0B1C2D3E4F5", bytes(range(1, 90))):
        assert secret in plain and secret not in hidden
    for kept in KEPT:
        assert plain.count(kept) == hidden.count(kept)
    assert len(plain) == len(hidden)


def test_what_stands_there_has_its_length_and_checksums_are_right(capture):
    lines, entry, table = tables(TABLE_AT)
    captured = capture("--no-serials", board="unknown", extra=lines)
    made = captured.memory(TABLE_AT, len(table))
    assert [head for head, _ in walk(made)] == [head for head, _ in walk(table)]
    assert made[UUID_AT:UUID_AT + 16] == FIXED
    assert b"000-000000-0\0" in made and b"Serial: 000-000000-0\0" in made
    kept = captured.memory(0xF5000, 0x1F)
    assert kept == bytes(entry) and sum(kept) % 256 == 0
    for at, length in ((0x7A100000, 36 + 20 + len(KEY)), (0x7A101000, 36 + 99), (0x7A102000, 36 + 31)):
        assert sum(captured.memory(at, length)) % 256 == 0
    assert captured.memory(0x7A100000 + 56, len(KEY)) == b"00000-00000-00000-00000-00000"


def test_functions_modules_and_processors_have_fixed_ones(capture):
    extra = ["msr 4f 1122334455667788", "msr c00102f1 8877665544332211"]
    plain, hidden = (capture(f"{option} --spd", extra=extra) for option in ("", "--no-serials"))
    assert plain.functions()["01:00.0"][0x14C:0x154].hex() == "78563412f0debc9a"
    assert hidden.functions()["01:00.0"][0x148:0x154].hex() == "030001000011223344556677"
    assert ["msr", "4f", "123456789abcdef"] in hidden.lines("msr")
    assert ["msr", "4f", "1122334455667788"] in plain.lines("msr")
    module = [words[2:] for words in hidden.lines("smbus-bytes")][0x14]
    assert module[5:9] == ["00", "11", "22", "33"]
    assert hidden.lines("smbus-bytes")[:20] == plain.lines("smbus-bytes")[:20]


def crc16(data):
    crc = 0
    for byte in data:
        crc ^= byte << 8
        for _ in range(8):
            crc = (crc << 1 ^ 0x1021 if crc & 0x8000 else crc << 1) & 0xFFFF
    return crc


@pytest.mark.parametrize("first", [0x92, 0x12])
def test_the_checksum_of_a_ddr3_module_is_right_afterwards(capture, first):
    module = bytearray(range(256))
    module[0], module[2] = first, 0x0B
    covered = 117 if first & 0x80 else 126
    module[126:128] = crc16(module[:covered]).to_bytes(2, "little")
    lines = ["smbus-remove a2", "smbus-eeprom a2", f"smbus-bytes 0 {module.hex(' ')}"]
    captured = capture("--no-serials --spd", extra=lines)
    rows = captured.lines("smbus-eeprom", "smbus-spd", "smbus-bytes")
    at = rows.index(["smbus-eeprom", "a2"])
    made = bytes.fromhex("".join("".join(words[2:]) for words in rows[at + 1:at + 17]))
    assert made[122:126] == FIXED[:4]
    assert int.from_bytes(made[126:128], "little") == crc16(made[:covered])


def plain_and_hidden(capture, lines, options=""):
    return (capture(f"{options} {more}", board="unknown", extra=lines) for more in ("", "--no-serials"))


def with_oem(text, uuid=UUID):
    """A machine of one system, with that text as its serial number, and bytes of a maker's own table about it."""
    table = structure(1, body(27, o07=1, o08=uuid), [text]) + structure(127, b"", [])
    entry = bytearray(b"_SM_\0\x1f\x02\x08\0\0\0" + bytes(5) + b"_DMI_\0")
    entry += struct.pack("<HIHB", len(table), TABLE_AT, 2, 0x28)

    def lines(copies):
        area = b"".join(copies)
        return ["fill e0000 20000 00", *bytes_lines(0xF5000, entry + b"\0"), *bytes_lines(TABLE_AT, table),
                *bytes_lines(0xE1000, area)]

    return lines


def test_a_serial_number_without_its_blanks_or_of_wide_characters_goes_as_well(capture):
    lines = with_oem(b"  AB12CD34     ")([b"[AB12CD34]", "AB12CD34".encode("utf-16-le")])
    plain, hidden = plain_and_hidden(capture, lines)
    wide = "00000000".encode("utf-16-le")
    assert plain.memory(0xE1000, 26) == b"[AB12CD34]" + "AB12CD34".encode("utf-16-le")
    assert hidden.memory(0xE1000, 26) == b"[00000000]" + wide
    assert b"  00000000     \0" in hidden.memory(TABLE_AT, 0x100)


def test_a_long_serial_number_goes_as_a_whole(capture):
    text = b"".join(b"%04x" % (number * 2654435761 >> 8 & 0xFFFF) for number in range(150))
    plain, hidden = plain_and_hidden(capture, with_oem(text)([]))
    assert text in plain.memory(TABLE_AT, 0x400)
    assert b"0" * len(text) + b"\0" in hidden.memory(TABLE_AT, 0x400)


def test_an_identifier_goes_in_each_way_to_write_it(capture):
    one = uuid.UUID(bytes_le=bytes(range(0xA1, 0xB1)))
    copies = [one.bytes, str(one).encode(), str(one).upper().encode(), one.hex.encode(), str(one).encode("utf-16-le")]
    plain, hidden = plain_and_hidden(capture, with_oem(b"x", one.bytes_le)(copies))
    fixed = uuid.UUID(bytes_le=FIXED)
    area = plain.memory(0xE1000, 0x200)
    assert all(copy in area for copy in copies)
    made = [fixed.bytes, str(fixed).encode(), str(fixed).upper().encode(), fixed.hex.encode(),
            str(fixed).encode("utf-16-le")]
    assert hidden.memory(0xE1000, 0x200).rstrip(b"\0") == b"".join(made).rstrip(b"\0")


def test_a_key_in_a_table_that_lies_about_its_length_goes_as_well(capture):
    table = bytearray(firmware.sdt(b"MSDM", struct.pack("<IIIII", 1, 0, 1, 0, len(KEY)) + KEY))
    table[4:8] = struct.pack("<I", 9 << 20)
    xsdt = firmware.sdt(b"XSDT", struct.pack("<Q", 0x7A100000))
    rsdp = b"RSD PTR \0MAKER \2" + struct.pack("<IIQB3x", 0, 36, 0x7A103000, 0) + bytes(4)
    lines = ["fill e0000 20000 00", *bytes_lines(0x7A103000, xsdt), *bytes_lines(0xF6000, rsdp),
             *bytes_lines(0x7A100000, table)]  # fmt: skip
    plain, hidden = plain_and_hidden(capture, lines)
    assert KEY in plain.memory(0x7A100000, 0x1000) and KEY not in hidden.memory(0x7A100000, 0x1000)


def test_a_device_in_a_window_that_is_taken_for_memory_has_a_fixed_one(capture):
    bridge = capture().functions()["00:14.0"][:4]
    page = bridge + bytes(0xFC) + bytes.fromhex("03000100 1122334455667788")
    lines = ["ecam d0000000 1", *bytes_lines(0xA0000, page), "pci 00:00.0 8086:3e30", "dword 60 00000000"]
    plain, hidden = (capture(option, extra=lines) for option in ("", "--no-serials"))
    assert plain.memory(0xA0104, 8).hex() == "1122334455667788"
    assert hidden.memory(0xA0104, 8) == FIXED[:8]


def test_the_serial_number_of_a_fully_buffered_module_goes(capture):
    module = bytearray(range(256))
    module[2] = 0x09
    lines = ["smbus-remove a2", "smbus-eeprom a2", f"smbus-bytes 0 {module.hex(' ')}"]
    rows = capture("--no-serials --spd", extra=lines).lines("smbus-eeprom", "smbus-spd", "smbus-bytes")
    row = rows[rows.index(["smbus-eeprom", "a2"]) + 8]
    assert row[2 + 10:2 + 14] == ["00", "11", "22", "33"]
