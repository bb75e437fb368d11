"""Tables of the firmware, beside the memory in which they lie; and power cycles, beside the log of the machine."""

import re

import pytest

from firmware import board_lines
from hwreg import Cycle, NoAnswer, Structure, WrongArgument

ENTRY = 0x7A5BF000  # of the Intel board, an "_SM3_" entry point: length of the table at 0Ch, address at 10h
RSDP = 0xF5A00


def table_in_memory(machine):
    entry = machine.memory.dump(ENTRY, 24)
    assert entry.startswith(b"_SM3_")
    return machine.memory.dump(int.from_bytes(entry[16:20], "little"), int.from_bytes(entry[12:16], "little"))


def walked(table):
    """The structures of a table, as its standard has them: header, formatted part, strings up to two zeros."""
    found = []
    while table:
        length = table[1]
        end = table.index(b"\0\0", length) + 2
        texts = tuple(text.decode("latin-1") for text in table[length:end].split(b"\0") if text)
        found.append(Structure(table[0], int.from_bytes(table[2:4], "little"), table[:length], texts))
        table = table[end:]
    return found


def test_the_table_is_that_of_the_memory(machine):
    simulated = machine()
    table = table_in_memory(simulated)
    assert len(table) % 256 and simulated.smbios.table() == table
    assert [*simulated.smbios.structures(), walked(table)[-1]] == walked(table)  # the last one marks the end


@pytest.mark.parametrize("pages", [1, 2])
def test_a_table_of_whole_pages(machine, pages):
    """Its last page is shown once."""
    text = "x" * (256 * pages - 4 - 6 - 2)
    table = b"\x0b\x05\x01\x00\x01" + text.encode() + b"\0\0" + b"\x7f\x04\x02\x00\0\0"[:5]
    assert len(table) == 256 * pages
    place = len(table).to_bytes(4, "little") + bytes.fromhex("0000507a")
    lines = board_lines([(0x7A500000, table), (ENTRY + 12, place)])
    simulated = machine("intel", *lines)
    assert simulated.smbios.table() == table
    assert simulated.smbios.structures(11)[0].string(4) == text


def test_structures_of_a_type(machine):
    smbios = machine().smbios
    everything = smbios.structures()
    for number in {structure.type for structure in everything}:
        assert smbios.structures(number) == [structure for structure in everything if structure.type == number]
    assert smbios.structures(200) == []
    assert smbios.structures(0)[0].string(4) == "Simulated Firmware" and smbios.structures(0)[0].string(6) == ""


def test_texts_in_the_table(machine):
    smbios = machine().smbios
    table = smbios.table()
    assert smbios.find("dimm_a2") == smbios.find("DIMM_A2") == table.index(b"DIMM_A2")
    assert smbios.find("Simulated Firmware") == table.index(b"Simulated Firmware")
    assert smbios.find("nothing") is None


def test_a_text_that_is_a_switch_is_found_and_does_nothing_else(machine):
    """hwreg /SMBIOS /S RTC would restart the machine."""
    address = int.from_bytes(machine().memory.dump(ENTRY + 16, 4), "little")
    board = [f'text {address + 0x30:x} "RTC"', f'text {address + 0x38:x} "log"']
    smbios = machine("intel", *board).smbios
    assert smbios.find("RTC") == 0x30
    assert smbios.find("LOG") is None  # it is there in small letters alone
    assert smbios.find("log") == 0x38
    with pytest.raises(WrongArgument):
        smbios.find("?")  # which has no small letter


def test_without_a_table(machine):
    with pytest.raises(NoAnswer) as told:
        machine("nomem").smbios.structures()
    assert told.value.status == 7


def test_the_root_pointer(machine):
    simulated = machine()
    pointer = simulated.acpi.root_pointer()
    assert pointer.data == simulated.memory.dump(RSDP, 36) and sum(pointer.data) % 256 == 0
    assert (pointer.oem_id, pointer.revision) == ("SIMULA", 2)
    assert simulated.memory.dump(pointer.rsdt, 4) == b"RSDT" and simulated.memory.dump(pointer.xsdt, 4) == b"XSDT"


def test_a_root_pointer_of_the_first_revision(machine):
    pointer = machine("intel", f"bytes {RSDP + 15:x} 00").acpi.root_pointer()
    assert len(pointer.data) == 20 and pointer.xsdt == 0 and pointer.rsdt != 0


def test_no_root_pointer(machine):
    with pytest.raises(NoAnswer) as told:
        machine("intel", f"bytes {RSDP:x} 00").acpi.root_pointer()
    assert told.value.status == 14


# ---- power cycles

CLOCK = ["cmos-stop", "cmos-time 2024-02-03 04:05:06"]


@pytest.fixture
def cycled(machine, tmp_path, monkeypatch):
    """cycled(call) -> what it gives, and the shell commands that the machine saw."""

    def go(call, *lines):
        simulated = machine("intel", *(lines or CLOCK), power=True)
        program = tmp_path / "sim"
        program.write_text(f"#!/bin/sh\nexec '{simulated.transport.program}' --log='{tmp_path}/log' \"$@\"\n")
        program.chmod(0o755)
        simulated.transport.program = str(program)
        monkeypatch.chdir(tmp_path)  # where the counters come to lie
        given = call(simulated.rtc)
        return given, re.findall(r"^system (.*?)(?: -> .*)?$", (tmp_path / "log").read_text(), re.MULTILINE)

    return go


def test_a_cycle_sets_the_alarm_and_switches_off(cycled):
    assert cycled(lambda rtc: rtc.cycle(60)) == (Cycle("04:06:06", None), ["shutdown -P now"])
    assert cycled(lambda rtc: rtc.cycle(1, force=True))[0].alarm == "04:05:07"


def test_cycles_with_a_delay_are_counted(cycled, tmp_path):
    counts = []
    for _ in range(2):
        given, commands = cycled(lambda rtc: rtc.cycle(60, delay=1, folder=str(tmp_path)), "cmos-run real 10")
        counts.append(given.count)
        assert commands[-1] == "shutdown -P now"
    assert counts == [1, 2] and (tmp_path / "RTCLOG").read_bytes() == b"\2\0\0\0"


def test_a_count_that_cannot_be_kept_is_none(cycled, tmp_path):
    (tmp_path / "RTCLOG").mkdir()
    assert cycled(lambda rtc: rtc.cycle(60, delay=0, folder=str(tmp_path)))[0] == Cycle("04:06:06", None)


def test_restarts(cycled, tmp_path):
    assert cycled(lambda rtc: rtc.restart()) == (None, ["shutdown -r now"])
    assert cycled(lambda rtc: rtc.restart(delay=0, folder=str(tmp_path)))[0] == 1
    (tmp_path / "log").unlink()
    assert cycled(lambda rtc: rtc.global_reset(delay=0, folder=str(tmp_path))) == (2, [])


def test_switching_off(cycled):
    assert cycled(lambda rtc: rtc.shutdown()) == (None, ["shutdown -P now"])


def test_an_alarm_that_the_countdown_carries_past_midnight_is_right(cycled):
    late = "cmos-time 2024-02-03 23:59:59"
    assert cycled(lambda rtc: rtc.cycle(60, delay=2), late, "cmos-run real 10")[0].alarm.startswith("00:01:")
    with pytest.raises(WrongArgument, match="past its midnight"):
        cycled(lambda rtc: rtc.cycle(60, delay=0), late, "cmos-stop")
