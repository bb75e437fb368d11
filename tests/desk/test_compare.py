"""Differences between two machines: each is found, named, and the only thing shown."""

import pytest
import samples


@pytest.fixture
def machine(desk):
    """Makes the machine of all samples; gives its lines."""
    for name, contents, _ in samples.everything():
        desk.write(name, contents)
    return desk.board("old", *samples.import_words(samples.everything()))


def changed(desk, machine, old, new, name="new"):
    text = "\n".join(machine) + "\n"
    assert text.count(old) == 1, (old, text.count(old))
    desk.write(f"{name}.board", text.replace(old, new))


def test_a_machine_is_the_same_as_itself(desk, machine):
    result = desk("diff", "old.board", "old.board")
    assert (result.status, result.out, result.err) == (0, "", "")


CHANGES = {
    "header": ("config 0 86 80 c0 29 06 00", "config 0 86 80 c0 29 02 00", "pci 00:00.0 04 Command: 0006 -> 0002"),
    "capability": ("config 50 42 00", "config 50 41 00", "pci 03:00.0 50 PCI Express: Link Control: 0042 -> 0041"),
    "extended capability": ("config 140 03 00 01 00 01", "config 140 03 00 01 00 09",
                            "pci 03:00.0 144 Device Serial Number: Serial Number Low: 04030201 -> 04030209"),
    "unnamed": ("config e0 11 22", "config e0 11 23", "pci 03:00.0 e0 Register e0: 00002211 -> 00002311"),
    "msr": ("msr 3a 5", "msr 3a 1", "msr 3a IA32_FEATURE_CONTROL: 5 -> 1"),
    "cpuid": ("1100800 7ffafbbf", "1100800 7ffafbbe",
              "cpuid 1 0 ecx Version and features (cpus 1): 7ffafbbf -> 7ffafbbe"),
    "cmos": ("cmos-bytes 10 10 11", "cmos-bytes 10 20 11", "cmos 10 Floppy Types: 10 -> 20"),
    "super i/o": ("superio-device 01 60 03 f8", "superio-device 01 60 02 f8",
                  "superio 0 device 01 60 I/O Base 0 High: 03 -> 02"),
    "spd": ("smbus-bytes 0 23 11 0c 02", "smbus-bytes 0 23 11 0c 03", "spd a0 03 Module Type: 02 -> 03"),
    "door": ("ecam b0000000 100", "ecam e0000000 100", "doors ecam: b0000000 100 -> e0000000 100"),
    "cpus": ("cpus 0-1\n", "cpus 0-2\n", "doors cpus: 0-1 -> 0-2"),
}  # fmt: skip


@pytest.mark.parametrize("old, new, line", CHANGES.values(), ids=CHANGES)
def test_one_change_is_the_only_thing_shown(desk, machine, old, new, line):
    changed(desk, machine, old, new)
    result = desk("diff", "old.board", "new.board")
    assert (result.lines, result.status) == ([line], 1)


@pytest.mark.parametrize("what, lines", [
    ({"dmi": samples.dmi(version="1.02")}, ['smbios 0.0 05 BIOS Information Version: "1.01" -> "1.02"']),
    ({"dmi": samples.dmi(serial="54321")}, ['smbios 1.0 07 System Information Serial Number: "12345" -> "54321"']),
    ({"acpi": samples.acpidump(samples.acpi_tables(oem=7)).encode()},
     ["acpi DSDT 09 Checksum: d0 -> c9", "acpi DSDT 24: 00 -> 07"]),
    ({"spd": samples.SPD.replace(b"MODULE 8G", b"MODULE 9G")},
     ["spd a0 149 Part Number: " + b"MODULE 8G".ljust(20).hex(" ") + " -> " + b"MODULE 9G".ljust(20).hex(" ")]),
], ids=["version", "serial", "table", "part number"])  # fmt: skip
def test_strings_and_tables_are_compared_by_their_fields(desk, machine, what, lines):
    files = [(name, what.get(name.split(".")[0], contents), option) for name, contents, option in samples.everything()]
    for name, contents, _ in files:
        desk.write(name, contents)
    desk.board("new", *samples.import_words(files))
    result = desk("diff", "old.board", "new.board")
    assert (result.lines, result.status) == (lines, 1)


@pytest.mark.parametrize("line", ["pci ", "msr 8b", "cpuid 1 0"])
def test_what_one_side_has_alone_is_said_once(desk, machine, line):
    kept = [each for each in machine if not each.startswith(line) and not (line == "pci " and each.startswith("  "))]
    desk.write("new.board", "\n".join(kept))
    result = desk("diff", "old.board", "new.board")
    assert len(result.lines) == 1 and result.lines[0].endswith("only in old.board") and result.status == 1
    back = desk("diff", "new.board", "old.board")
    assert len(back.lines) == 1 and back.lines[0].endswith("only in old.board")


def test_unknown_bytes_are_no_difference(desk, machine):
    changed(desk, machine, "config 50 42 00", "config 50 ?? 00")
    for pair in (("old.board", "new.board"), ("new.board", "old.board")):
        assert desk("diff", *pair).status == 0


# A clock that goes on and errors that were seen: bits of status registers, so that the others still count.
VOLATILE = [("config 0 86 80 33 15 07 00 10 00", "config 0 86 80 33 15 07 00 10 f9", "Status: 0010 -> f910"),
            ("cmos-bytes 0 00 01", "cmos-bytes 0 59 01", "cmos 00 Seconds: 00 -> 59"),
            ("config 50 42 00 11 30", "config 50 42 00 11 b0", "Link Status: 3011 -> b011")]  # fmt: skip


@pytest.mark.parametrize("old, new, text", VOLATILE, ids=range(len(VOLATILE)))
def test_what_changes_by_itself_does_not_count_and_can_be_shown(desk, machine, old, new, text):
    changed(desk, machine, old, new)
    result = desk("diff", "old.board", "new.board")
    assert (result.out, result.status) == ("", 0)
    shown = desk("diff", "--volatile", "old.board", "new.board")
    assert len(shown.lines) == 1 and text in shown.out and "(does not count: " in shown.out and shown.status == 0


def test_other_bits_of_a_status_register_count(desk, machine):
    changed(desk, machine, "config 50 42 00 11 30", "config 50 42 00 12 b0")
    assert desk("diff", "old.board", "new.board").lines == ["pci 03:00.0 52 PCI Express: Link Status: 3011 -> b012"]


@pytest.mark.parametrize("pattern", ["msr 3a", "msr *", "msr 3[ab] IA32*", "MSR 3A  # the kernel's"])
def test_ones_own_list_leaves_more_out(desk, machine, pattern):
    changed(desk, machine, "msr 3a 5", "msr 3a 1")
    desk.write("mine", f"# ours\n{pattern}\n")
    assert desk("diff", "--ignore", "mine", "old.board", "new.board").status == 0
    desk.write("other", "msr 3\n")
    assert desk("diff", "--ignore", "other", "old.board", "new.board").status == 1


def memory_board(name, *lines):
    return "\n".join(["capture 1", "# --- memory", "# bios area", *lines, "end", ""])


def test_memory_is_compared_by_address_and_what_is_not_there_is_told(desk):
    desk.write("a.board", memory_board("a", "fill e0000 100 ff", "bytes e0100 01 02 03 04", "bytes 46c 1 2 3"))
    desk.write("b.board", memory_board("b", "fill e0000 100 ff", "bytes e0100 01 02 ?? 05", "bytes 46c 9 2 3",
                                       "bytes f0000 5 6"))  # fmt: skip
    assert desk("diff", "a.board", "b.board").lines == ["memory e0103: 04 -> 05", "memory f0000-f0001: only in b.board"]


@pytest.mark.parametrize("address, name", [(0x400, "a serial port"), (0x410, "equipment"), (0x413, "memory size")])
def test_what_firmware_sets_in_its_data_area_counts(desk, address, name):
    for board, byte in (("a.board", 1), ("b.board", 2)):
        desk.write(board, memory_board(board, f"bytes {address:x} {byte}"))
    assert desk("diff", "a.board", "b.board").lines == [f"memory {address:x}: 01 -> 02"], name


@pytest.mark.parametrize("at, counts", [(0x10, True), (0x14, False)])
def test_of_wide_msi_only_pending_messages_do_not_count(desk, at, counts):
    for board, byte in (("a.board", 1), ("b.board", 2)):
        msi = {0x50: "05 00 81 01", 0x50 + at: f"{byte:02x} 00 00 00"}
        desk.write(board, "\n".join([
            "capture 1", "# --- pci", "pci-ports", "pci 00:00.0 verbatim",
            "  config 0 86 80 c0 29 06 00 10 00 00 00 00 06", "  config 34 50",
            *(f"  config {offset:x} {row}" for offset, row in msi.items()), "end", ""]))  # fmt: skip
    assert desk("diff", "a.board", "b.board").status == counts


# Many machines


def test_machines_are_put_into_groups(desk, machine):
    changed(desk, machine, "msr 3a 5", "msr 3a 1", "third")
    changed(desk, machine, "cmos-bytes 0 00 01", "cmos-bytes 0 59 01", "second")
    changed(desk, machine, "msr 8b ca00000000", "msr 8b de00000000", "fifth")
    changed(desk, machine, "msr 3a 5", "msr 3a 1", "fourth")
    changed(desk, machine, "config e0 11 22", "config e0 ?? 22", "unknown")
    names = [f"{name}.board" for name in ("third", "old", "second", "fourth", "fifth", "unknown")]
    result = desk("diff", "--group", *names)
    assert result.status == 1
    assert result.lines == [
        "group 1: 3 machines", "  machine: old.board", "  machine: second.board", "  machine: unknown.board",
        "group 2: 2 machines", "  differs: msr 3a IA32_FEATURE_CONTROL: 5 -> 1", "  machine: third.board",
        "  machine: fourth.board", "group 3: 1 machine",
        "  differs: msr 8b IA32_BIOS_SIGN_ID: ca00000000 -> de00000000", "  machine: fifth.board"]
    assert desk("diff", "--group", "old.board", "second.board").status == 0


def test_what_the_first_machine_cannot_judge_still_sets_others_apart(desk, machine):
    changed(desk, machine, "config e0 11 22", "config e0 ?? 22", "first")
    changed(desk, machine, "config e0 11 22", "config e0 12 22", "other")
    result = desk("diff", "--group", "first.board", "old.board", "other.board")
    assert [line for line in result.lines if line.startswith("group")] != ["group 1: 3 machines"]


def test_a_file_that_cannot_be_read_is_told_and_the_others_are_grouped(desk, machine):
    desk.write("cut.board", "\n".join(machine[:20]))
    result = desk("diff", "--group", "old.board", "cut.board", "old.board")
    assert result.status == 2 and "group 1: 2 machines" in result.lines
    assert 'cut.board:20: the file is cut off: its last line is not "end"' in result.err
