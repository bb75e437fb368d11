"""/PCI /DUMP: the rows of the listing, the accesses it makes, and the view of one function."""

import re

import pytest

from expected import DELAY, LOST, PCI_HEADER, hex_view, place, session
from harness import TOP

INTEL_ROWS = """\
00  00  00  80863E30 NA   NONE  NONE  Host Bridge
00  01  00  80861901 L1   IRQ10 INTA  PCI-to-PCI Bridge
00  02  00  80863E91 NA   IRQ10 INTA  VGA Compatible Controller
00  14  00  8086A36D NA   IRQ10 INTA  USB Controller
00  14  02  8086A36F NA   NONE  NONE  RAM Controller
00  16  00  8086A360 NA   IRQ10 INTA  Other Communications Device
00  17  00  8086A352 NA   IRQ0B INTA  SATA Controller
00  1C  00  8086A338 DIS  IRQ0A INTA  PCI-to-PCI Bridge
00  1C  04  8086A33C L0S  IRQ0A INTA  PCI-to-PCI Bridge
00  1C  05  8086A33D L01  IRQ0B INTB  PCI-to-PCI Bridge
00  1C  06  8086A33E L1   IRQ0A INTC  PCI-to-PCI Bridge
00  1F  00  8086A305 NA   NONE  NONE  ISA Bridge
00  1F  02  8086A321 NA   NONE  NONE  Other Memory Controller
00  1F  03  8086A348 NA   IRQ10 INTB  HD Audio Device
00  1F  04  8086A323 NA   IRQ10 INTA  SMBus Controller
00  1F  05  8086A324 NA   NONE  NONE  Other Bus Controller
01  00  00  144DA808 L1   IRQ10 INTA  Unknown PCI
02  00  00  80861533 DIS  IRQ10 INTA  Ethernet Controller
03  00  00  80861521 L0S  IRQ10 INTA  Ethernet Controller
03  00  01  80861521 L0S  IRQ11 INTB  Ethernet Controller
03  00  02  80861521 L01  IRQ12 INTC  Ethernet Controller
03  00  03  80861521 L01  IRQ13 INTD  Ethernet Controller
04  00  00  1B211080 DIS  IRQ11 INTA  PCI-to-PCI Bridge
05  00  00  104CAC56 NA   IRQ0B INTA  CardBus Bridge
05  01  00  10EC8139 NA   NONE  INTB  Ethernet Controller
05  02  00  10000012 NA   NONE  NONE  Pentinum
06  00  00  10B59050 L1   NONE  05    Unknown PCI
06  00  07  10B59051 NA   IRQ0F NULL  Unknown PCI
"""
AMD_ROWS = """\
00  00  00  10221480 NA   NONE  NONE  Host Bridge
00  00  02  10221481 NA   IRQFF INTA  Unknown PCI
00  01  00  10221482 NA   NONE  NONE  Host Bridge
00  01  02  10221483 L1   IRQ1C INTA  PCI-to-PCI Bridge
00  03  00  10221482 NA   NONE  NONE  Host Bridge
00  03  01  10221483 L01  IRQ1D INTA  PCI-to-PCI Bridge
00  08  00  10221482 NA   NONE  NONE  Host Bridge
00  08  01  10221484 DIS  IRQ20 INTA  PCI-to-PCI Bridge
00  14  00  1022790B NA   NONE  NONE  SMBus Controller
00  14  03  1022790E NA   NONE  NONE  ISA Bridge
00  18  00  10221440 NA   NONE  NONE  Host Bridge
00  18  01  10221441 NA   NONE  NONE  Host Bridge
00  18  02  10221442 NA   NONE  NONE  Host Bridge
00  18  03  10221443 NA   NONE  NONE  Host Bridge
00  18  04  10221444 NA   NONE  NONE  Host Bridge
00  18  05  10221445 NA   NONE  NONE  Host Bridge
00  18  06  10221446 NA   NONE  NONE  Host Bridge
00  18  07  10221447 NA   NONE  NONE  Host Bridge
01  00  00  144DA808 L1   IRQ1E INTA  Unknown PCI
02  00  00  1002731F L01  IRQ1F INTA  VGA Compatible Controller
02  00  01  1002AB38 L01  IRQ23 INTB  HD Audio Device
03  00  00  10221485 DIS  NONE  NONE  Unknown PCI
03  00  03  1022149C DIS  IRQ24 INTA  USB Controller
"""
# A host bridge, a drive with a PCI Express capability at 70h, and two functions of one device.
SMALL = [
    "pci 00:00.0 8086:3e30 class 060000",
    "dword 60 e0000001",
    "pci 00:03.0 144d:a808 class 010601",
    "irq 0b 2",
    "cap 01 40 03 00",
    "pcie 70 0 L01",
    "pci 02:1f.0 8086:1521 class 020000 multi verbatim",
    "pci 02:1f.5 8086:1522 class 0c0500 verbatim",
    "irq 0 3",
]
SMALL_ROWS = """\
00  00  00  80863E30 NA   NONE  NONE  Host Bridge
00  03  00  144DA808 L01  IRQ0B INTB  SATA Controller
02  1F  00  80861521 NA   NONE  NONE  Ethernet Controller
02  1F  05  80861522 NA   NONE  INTC  SMBus Controller
"""

# ---- what an access log must hold, the values left out --------------------------------------------------------------


def read(function, offset, width):
    port = 0xCFC + (offset & 3)
    return [*DELAY, f"out32 0cf8 {0x80000000 + place(function, offset):08x}", f"in{width} {port:04x}"]


def header(function):
    return read(function, 0x0E, 8)


def identification(function):
    return read(function, 0x00, 16) + read(function, 0x02, 16)


def summary(function, capabilities=(), link_control=None):
    """ASPM, interrupt and class of a present function, then its 256 bytes."""
    steps = read(function, 0x34, 16)
    for capability in capabilities:
        steps += read(function, capability, 16)
    steps += read(function, link_control, 8) if link_control is not None else []
    steps += read(function, 0x3C, 16) + read(function, 0x0A, 16)
    return steps + [line for offset in range(256) for line in read(function, offset, 8)]


def absent_device(device):
    return header(f"{device}.0") + identification(f"{device}.0") + header(f"{device}.0")


def single_function_device(device, *about):
    function = f"{device}.0"
    return header(function) + identification(function) + summary(function, *about) + header(function)


def multi_function_device(device, present):
    steps = header(f"{device}.0")
    for number in range(8):
        steps += identification(f"{device}.{number}")
        steps += summary(f"{device}.{number}") if number in present else []
    return steps


def accesses(result):
    return [line.split(" -> ")[0] for line in result.log]


def configuration(result, function):
    """The 256 bytes that the run read one by one from the function."""
    start = 0x80000000 + place(function)
    found = {}
    for select, data in zip(result.log, result.log[1:]):
        offset = int(select.split()[2], 16) - start if select.startswith("out32 0cf8 ") else -1
        if 0 <= offset < 256 and data.startswith("in8 "):
            found[offset] = int(data.split(" -> ")[1], 16)
    return bytes(found[offset] for offset in range(256))


def rows_of(result):
    """The listing without the views."""
    return "".join(line + "\n" for line in result.text.split("\n") if re.match(r"[0-9A-F]{2}  [0-9A-F]{2}  ", line))


@pytest.fixture
def listing(run):
    def make(*lines, board="base", args="/NOMSG"):
        return run(f"/PCI /DUMP {args}", board=board, extra=lines)

    return make


# ---- the scan -------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("board, rows", [
    ("intel", INTEL_ROWS),
    ("amd", AMD_ROWS),
    ("hygon", AMD_ROWS.replace("10221480", "1D941450")),
    ("ati", AMD_ROWS.replace("10221480", "10025A14")),
    ("unknown", "01  00  00  80861533 L1   IRQ10 INTA  Ethernet Controller\n"),
    ("caploop", INTEL_ROWS.replace("144DA808 L1 ", "144DA808 NA ")),
], ids=lambda value: value if "\n" not in value else "")
def test_listing_has_the_header_once_and_a_row_for_each_present_function(listing, board, rows):
    result = listing(board=board)
    assert result.text == PCI_HEADER + rows
    assert (result.err, result.status) == (b"", 0)
    assert result.maps() == []  # all of it lies in legacy space


def test_a_machine_without_a_function_lists_nothing_not_even_the_header(listing):
    result = listing()
    assert (result.out, result.status) == (b"", 0)


def test_scan_makes_exactly_these_accesses(listing):
    present = {
        "00:00": single_function_device("00:00"),
        "00:03": single_function_device("00:03", (0x40, 0x70), 0x80),
        "02:1f": multi_function_device("02:1f", {0, 5}),
    }
    devices = [f"{bus:02x}:{device:02x}" for bus in range(256) for device in range(32)]
    steps = [present.get(device) or absent_device(device) for device in devices]
    result = listing(*SMALL)
    assert result.text == PCI_HEADER + SMALL_ROWS
    assert accesses(result) == [line.split(" -> ")[0] for line in session(*steps)]


def test_an_identification_of_all_ones_is_no_function(listing):
    result = listing("pci 00:01.0 ffff:1234 verbatim", "pci 00:02.0 8086:ffff", "pci 00:03.0 0000:0000",
                     "pci 00:04.0 8086:0000")
    assert [row[4:6] for row in rows_of(result).splitlines()] == ["03", "04"]


def test_functions_1_to_7_are_seen_when_function_0_is_multi_function_even_if_it_is_not_there(listing):
    result = listing("pci 00:01.0 ffff:ffff multi verbatim", "pci 00:01.3 8086:0001", "pci 00:01.7 8086:0002")
    assert [row[:10] for row in rows_of(result).splitlines()] == ["00  01  03", "00  01  07"]


def test_functions_1_to_7_are_not_looked_at_without_the_multi_function_bit(listing):
    result = listing("pci 00:01.0 8086:0001", "pci 00:01.1 8086:0002 multi verbatim",
                     "pci 00:02.1 8086:0003 multi verbatim", "pci 00:03.0 8086:0004 header ff verbatim",
                     "pci 00:03.1 8086:0005")
    assert [row[:10] for row in rows_of(result).splitlines()] == ["00  01  00", "00  03  00"]
    assert f"out32 0cf8 {0x80000000 + place('00:01.1'):08x}" not in result.log


@pytest.mark.parametrize("header_type", ["80", "81", "82", "fe"])
def test_bit_7_of_the_header_type_makes_a_device_multi_function(listing, header_type):
    result = listing(f"pci 00:01.0 8086:0001 header {header_type} verbatim", "pci 00:01.7 8086:0002")
    assert len(rows_of(result).splitlines()) == 2


# ---- the columns ----------------------------------------------------------------------------------------------------


@pytest.fixture
def columns(run):
    """What the row of function 00:01.0 says behind the identification."""

    def make(*lines):
        extra = ["pci 00:01.0 8086:1234 class 060000", *lines]
        return rows_of(run("/PCI /DUMP 0 1 0 /NOMSG", board="base", extra=extra))[21:].rstrip("\n")

    return make


@pytest.mark.parametrize("lines, field", [
    (["pcie 40 0 DIS"], "DIS "),
    (["pcie 40 0 L0S"], "L0S "),
    (["pcie 40 0 L1"], "L1  "),
    (["pcie 40 0 L01"], "L01 "),
    ([], "NA  "),
    (["cap 01 40", "cap 05 50"], "NA  "),
    (["cap 01 40", "cap 05 50", "pcie 60 0 L1"], "L1  "),
    (["pcie 40 0 L1", "cap 01 80"], "L1  "),
    (["cap 01 40", "cap 00 50", "pcie 60 0 L1"], "NA  "),  # an ID of 0 ends the list
    (["pcie 40 0 L1", "byte 34 00"], "NA  "),
    (["pcie 40 0 L1", "word 06 0000"], "L1  "),  # the status bit is not asked for
    (["byte 34 41", "byte 41 10", "byte 51 03"], "L01 "),  # the pointer is used as it stands
    (["byte 34 40", "word 40 ff01", "byte ff 10"], "L01 "),  # link control lies at 10Fh, where nobody answers
    (["pcie 40 0 DIS", "byte 50 fd"], "L0S "),  # two bits count
], ids=lambda value: "; ".join(value) if isinstance(value, list) else value.strip())
def test_aspm_column(columns, lines, field):
    assert columns(*lines) == f"{field} NONE  NONE  Host Bridge"


def test_link_control_behind_legacy_space_is_read_through_the_window(run):
    lines = ["pci 00:00.0 8086:3e30 class 060000", "dword 60 e0000001", "ecam e0000000 1",
             "pci 00:01.0 8086:1234 class 010600", "pcie 40 0 DIS", "byte 34 f4", "word f4 0010", "byte 104 01"]
    result = run("/PCI /DUMP 0 1 0 /NOMSG", board="base", extra=lines)
    assert result.text == PCI_HEADER + "00  01  00  80861234 L0S  NONE  NONE  SATA Controller\n"
    assert result.maps() == ["mmap /dev/mem e0008000 2000 rw shared -> ok", "munmap e0008000 2000"]


@pytest.mark.parametrize("line, pin, text", [
    ("00", "0", "NONE  NONE  "),
    ("0b", "1", "IRQ0B INTA  "),
    ("0b", "0", "IRQ0B NULL  "),
    ("00", "5", "NONE  05    "),
    ("00", "2", "NONE  INTB  "),
    ("ff", "3", "IRQFF INTC  "),
    ("01", "4", "IRQ01 INTD  "),
    ("10", "10", "IRQ10 10    "),
    ("ff", "ff", "IRQFF FF    "),
])
def test_interrupt_columns(columns, line, pin, text):
    assert columns(f"irq {line} {pin}") == f"NA   {text}Host Bridge"


def test_each_known_class_has_its_name(listing):
    table = (TOP / "tests/support/pci_class_names.txt").read_text().splitlines()
    names = dict(line.split(" ", 1) for line in table)
    assert len(names) == 106
    codes = [*names, "0002", "0107", "0108", "05ff", "0c08", "0d13", "1200", "1300", "ff00", "ffff", "0c05"]
    places = [f"{number >> 5:02x}:{number & 31:02x}.0" for number in range(len(codes))]
    # The programming interface, the byte below, plays no part.
    result = listing(*[f"pci {at} 8086:1234 class {code}{number % 256:02x} verbatim"
                       for number, (at, code) in enumerate(zip(places, codes))])
    shown = [row[38:] for row in rows_of(result).splitlines()]
    assert shown == [names.get(code, "Unknown PCI") for code in codes]


# ---- the views ------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("plain", [False, True])
def test_each_row_is_followed_by_a_view_of_256_bytes(listing, plain):
    result = listing(*SMALL, args="/TEXT" if plain else "")
    expected = PCI_HEADER
    for row, function in zip(SMALL_ROWS.splitlines(), ("00:00.0", "00:03.0", "02:1f.0", "02:1f.5")):
        data = configuration(result, function)
        assert data[:4] == int(row[12:16], 16).to_bytes(2, "little") + int(row[16:20], 16).to_bytes(2, "little")
        expected += row + "\n" + hex_view(data, plain)
    assert result.text == expected
    assert (b"\033" in result.out) == (not plain)
    assert (result.err, result.status) == (b"", 0)


def test_the_views_change_nothing_about_the_accesses(listing):
    plain, coloured, log = (accesses(listing(*SMALL, args=args)) for args in ("/TEXT", "", "/LOG"))
    assert plain == coloured == log


def test_nomsg_wins_over_the_views_wherever_it_stands(run):
    for args in ("/NOMSG /PCI /DUMP", "/PCI /DUMP /NOMSG", "/DUMP /NOMSG /PCI /LOG"):
        assert run(args, board="base", extra=SMALL).text == PCI_HEADER + SMALL_ROWS


@pytest.mark.parametrize("args", ["/LOG", "/TEXT /LOG"])
def test_log_mode_needs_no_key(listing, args):
    result = listing(*SMALL, args=args)
    assert rows_of(result) == SMALL_ROWS
    assert result.status == 0


# ---- one function ---------------------------------------------------------------------------------------------------


def test_one_function_is_shown_with_header_row_and_view(run):
    result = run("/PCI /DUMP 0 0x1f 3 /TEXT")
    data = configuration(result, "00:1f.3")
    row = "00  1F  03  8086A348 NA   IRQ10 INTB  HD Audio Device\n"
    assert_text = PCI_HEADER + row + hex_view(data, plain=True)
    assert (result.text, result.err, result.status) == (assert_text, b"", 0)
    assert data[:8] == bytes.fromhex("868048a3") + data[4:8]
    steps = identification("00:1f.3") + summary("00:1f.3", (0x50, 0x60))
    assert accesses(result) == [line.split(" -> ")[0] for line in session(steps)]


def test_one_function_is_shown_in_colours(run):
    result = run("/PCI /DUMP 1 0 0")
    row = "01  00  00  144DA808 L1   IRQ10 INTA  Unknown PCI\n"
    assert result.text == PCI_HEADER + row + hex_view(configuration(result, "01:00.0"))


def test_a_function_of_a_single_function_device_can_be_asked_for_by_name(run):
    result = run("/PCI /DUMP 0 1 3 /NOMSG", extra="pci 00:01.3 8086:abcd class 060000 verbatim")
    assert result.text == PCI_HEADER + "00  01  03  8086ABCD NA   NONE  NONE  Host Bridge\n"


@pytest.mark.parametrize("words", ["0 0x1e 3", "0 0x1f 1", "255 31 7"])
def test_one_absent_function_prints_nothing(run, words):
    bus, device, number = (int(word, 0) for word in words.split())
    function = f"{bus:02x}:{device:02x}.{number}"
    result = run(f"/PCI /DUMP {words}")
    assert (result.out, result.err, result.status) == (b"", b"", 0)
    assert accesses(result) == [line.split(" -> ")[0] for line in session(identification(function))]


@pytest.mark.parametrize("args", ["/PCI /DUMP /NOMSG", "/PCI /DUMP 3 /NOMSG", "/NOMSG /PCI /DUMP 3"])
def test_up_to_four_words_scan(run, args):
    assert run(args, board="base", extra=SMALL).text == PCI_HEADER + SMALL_ROWS


@pytest.mark.parametrize("args, row", [
    ("/PCI /DUMP 2 0x1f 5 /NOMSG", SMALL_ROWS.splitlines()[3]),
    ("/PCI /DUMP 0 3 /NOMSG", SMALL_ROWS.splitlines()[1]),  # /NOMSG is read as function 0
    ("/PCI /DUMP /NOMSG 3 0", SMALL_ROWS.splitlines()[1]),  # and here as bus 0
    ("/PCI /DUMP /NOMSG /LOG /TEXT", SMALL_ROWS.splitlines()[0]),
    ("/NOMSG /LOG /TEXT /PCI /DUMP", SMALL_ROWS.splitlines()[0]),
    ("/DUMP 2 0x1f 0 /PCI /NOMSG", SMALL_ROWS.splitlines()[2]),
])
def test_more_than_four_words_show_one_function_from_the_words_behind_dump(run, args, row):
    result = run(args, board="base", extra=SMALL)
    assert result.text == PCI_HEADER + row + "\n"


def test_dump_wins_over_register_accesses(run):
    result = run("/PCI /DUMP 0 0 0 /WB 0 0 0 0xdc 0x11 /NOMSG")
    assert result.text == PCI_HEADER + INTEL_ROWS.splitlines()[0] + "\n"
    assert [line for line in result.ports() if line.startswith("out") and "0cf8" not in line] == []


def test_one_function_with_numbers_out_of_range(run):
    result = run("/PCI /DUMP 0 32 0 /NOMSG")
    assert result.text == PCI_HEADER + "00  20  00  144DA808 L1   IRQ10 INTA  Unknown PCI\n"


@pytest.mark.parametrize("args", ["/PCI /DUMP", "/PCI /DUMP /LOG"])
def test_the_listing_ends_as_by_esc_once_its_output_is_lost(run, args):
    ended = run("/PCI /DUMP", stdin=b"\x1b")
    with open("/dev/full", "wb") as full:
        result = run(args, stdout=full)
    assert (result.status, result.err, result.log) == (0, LOST, ended.log)
