"""The configuration window: hwreg asks one register where it is, which on some machines is no such register. What it
reads and writes there is memory, so that has to be told before anything is done."""

import struct

import pytest

MCFG = "/sys/firmware/acpi/tables/MCFG"
ELSEWHERE = 0xC0000000
EXTENDED = "/PCI /RD 1 0 0 0x100"
# On the Intel machine, whose window is at E0000000h with all buses.
MSI = [  # X58: register 60h is in an MSI capability at the head of the list
    "byte 34 60", "dword 60 01029005", "byte 90 10", "byte 91 e0"]
NO_TABLES = "bytes f5a00 00"  # no root pointer leads to the MCFG in memory, which is the true one
UNLISTED_MSI = ["dword 60 01029005"]  # X99: the list begins behind it


def mcfg(*entries):
    """The line of a table with these entries: base, first bus, last bus, and the domain if it is another than 0."""
    table = bytearray(44 + 16 * len(entries))
    struct.pack_into("<4sI", table, 0, b"MCFG", len(table))
    for number, (base, first, last, *domain) in enumerate(entries):
        struct.pack_into("<QHBB", table, 44 + 16 * number, base, *(domain or [0]), first, last)
    table[9] = -sum(table) & 0xFF
    return f'file-bytes "{MCFG}" 0 {table.hex(" ")}'


def iomem(base, buses="00-ff", name="PCI MMCONFIG"):
    return f'file "/proc/iomem" "{base:08x}-{base + 0xFFFFFFF:08x} : {name} 0000 [bus {buses}]"'


@pytest.fixture
def window(check, run):
    """window(*lines) -> what hwreg-check finds, whether a register beyond FFh can be believed, and whether it can."""

    def go(*lines, board="intel", host=()):
        extra = [*lines, "pci 00:00.0", *host] if host else lines
        (finding,) = [one for one in check(board=board, extra=extra)["findings"] if one["name"] == "config-window"]
        verdict = check(EXTENDED, board=board, extra=extra)["verdict"]
        right = run(EXTENDED, board=board, extra=extra).text.endswith(
            "0x14820001\n" if board == "intel" else "0x00020001\n")
        assert (verdict == "works") == right, (finding, verdict)
        return finding

    return go


@pytest.mark.parametrize("lines", [
    [], [mcfg((0xE0000000, 0, 255))], [mcfg((ELSEWHERE, 0, 255, 1), (0xE0000000, 0, 255))], [iomem(0xE0000000)],
    [iomem(0xE0000000, name="PCI ECAM")], [mcfg((0xE0000000, 0, 255)), iomem(ELSEWHERE)],
], ids=range(6))  # fmt: skip
def test_a_register_that_tells_the_window_is_believed(window, lines):
    assert window(*lines)["state"] == "good"


@pytest.mark.parametrize("lines, host", [
    ([], MSI), ([mcfg((0xE0000000, 0, 255))], MSI), ([], UNLISTED_MSI), ([iomem(0xE0000000)], UNLISTED_MSI),
    ([], ["dword 60 0"]), ([mcfg((0xE0000000, 0, 255))], ["dword 60 0"]),
    ([], ["dword 60 c0000001"]), ([mcfg((0xE0000000, 0, 255))], ["dword 60 c0000001"]),
    ([], ["dword 60 00000001", "dword 64 1"]),  # beyond 4 GiB, of which the upper half is lost
], ids=range(9))  # fmt: skip
def test_a_register_that_does_not_is_told_loudly(window, lines, host):
    found = window(*lines, host=host)
    assert found["state"] == "bad" and found["remedy"]
    assert "WRITES" in found["found"].upper()


@pytest.mark.parametrize("lines", [
    [NO_TABLES], [mcfg((ELSEWHERE, 0, 255))], [NO_TABLES, iomem(ELSEWHERE)],
], ids=range(3))  # fmt: skip
def test_a_window_that_lies_elsewhere_is_told(window, check, lines):
    moved = [f"ecam {ELSEWHERE:x} 100", "hole e0000000 10000000"]
    assert window(*moved, *lines)["state"] == "bad"
    told = check(EXTENDED, extra=[*moved, *lines])
    assert (told["verdict"], told["because"]) == ("other", "config-window"), told


def test_a_window_that_shows_the_host_bridge_is_believed_more_than_a_table(window):
    assert window(mcfg((ELSEWHERE, 0, 255)))["state"] == "good"


def test_a_register_whose_enable_bit_is_clear_tells_nothing(check):
    told = check(EXTENDED, extra=["pci 00:00.0", "dword 60 c0000000"])
    assert (told["verdict"], told["because"]) == ("other", "config-window")


@pytest.mark.parametrize("board", ["amd", "hygon", "ati"])
@pytest.mark.parametrize("lines, state", [
    ([], "good"), ([mcfg((0xF8000000, 0, 63))], "good"), (["msr c0010058 0"], "bad"),
    (["msr c0010058 c0000021"], "bad"), (["msr c0010058 c0000021", mcfg((0xF8000000, 0, 63))], "bad"),
], ids=range(5))  # fmt: skip
def test_on_amds_platforms_the_msr_is_asked(window, board, lines, state):
    assert window(*lines, board=board)["state"] == state


def test_a_bus_beyond_the_window_is_told(check, run):
    """The window of the AMD machine has 64 buses."""
    line = mcfg((0xF8000000, 0, 0))
    assert check(EXTENDED, board="amd", extra=line)["verdict"] == "other"
    assert check("/PCI /RD 0 1 2 0x100", board="amd", extra=line)["verdict"] == "works"


def test_the_report_says_it_first(run):
    told = run("", extra=["pci 00:00.0", *MSI], program="hwreg-check").text
    assert "config-window" in "".join(told.splitlines(keepends=True)[:6])


@pytest.mark.parametrize("board", ["unknown"])
def test_a_host_bridge_of_nobody_has_no_window(check, board):
    (finding,) = [one for one in check(board=board)["findings"] if one["name"] == "config-window"]
    assert finding["state"] == "caution"
    assert check(EXTENDED, board=board)["verdict"] != "works"
