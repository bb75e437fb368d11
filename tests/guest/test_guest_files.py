"""Dumps of memory and ports into files, compared with dd's copies of the same ranges."""

import pytest

from boots import Q35, SCRATCH

SCRATCH_PAGE = SCRATCH >> 12

# A MiB of noise; dd's copy of it is what the dumps are compared with.
NOISE = (
    f"cd /tmp; head -c 1048576 /dev/urandom >noise;"
    f"dd if=noise of=/dev/mem bs=4k seek={SCRATCH_PAGE} conv=notrunc 2>/dev/null;"
    f"dd if=/dev/mem of=theirs bs=4k skip={SCRATCH_PAGE} count=256 2>/dev/null; cmp noise theirs || exit 1;"
)
CLEAN = "; rm -f noise theirs *.BIN"


def noise_dump(start, size):
    return Q35.ask(
        f"{NOISE} hwreg /MEM /RF ours.bin {SCRATCH + start:#x} {size:#x}; echo $?;"
        f"tail -c +{start + 1} theirs | head -c {size} | cmp - OURS.BIN && stat -c %s OURS.BIN {CLEAN}"
    )


NOISE_DUMPS = {
    (start, size): noise_dump(start, size)
    for start, size in ((0, 0x100000), (0, 0x10000), (0x123, 0x23457), (0xFFF, 2), (0x800, 0xFF800), (0xFFFFF, 1))
}
FIRMWARE = Q35.ask(
    "cd /tmp; hwreg /MEM /RF bios.bin 0xF0000 0x10000; echo $?;"
    f"dd if=/dev/mem of=theirs bs=64k skip=15 count=1 2>/dev/null; cmp theirs BIOS.BIN && stat -c %s BIOS.BIN {CLEAN}"
)


@pytest.mark.parametrize("start, size", NOISE_DUMPS)
def test_a_dump_of_memory_equals_dds_copy(start, size):
    progress = f"R_MEM Start:0x{SCRATCH + start:X}, Size:0x{size:X}\n" if size == 0x100000 else ""
    assert NOISE_DUMPS[start, size].stdout == f"Waitting ...\n\n{progress}0\n{size}\n"
    assert NOISE_DUMPS[start, size].stderr == ""


def test_a_dump_of_the_firmware_equals_dds_copy_to_its_last_page():
    assert FIRMWARE.stdout == "Waitting ...\n\n0\n65536\n"


REFUSED = Q35.ask(
    "cd /tmp; hwreg /MEM /RF edge.bin 0xFF000 0x2000; head -c 4096 EDGE.BIN >first; tail -c 4096 EDGE.BIN >second;"
    "dd if=/dev/mem bs=4k skip=255 count=1 2>/dev/null | cmp - first && tr -d '\\377' <second | wc -c;"
    f"stat -c %s EDGE.BIN second; rm first second {CLEAN}"
)


def test_system_memory_that_the_kernel_refuses_arrives_as_ones_behind_a_page_that_it_gives():
    assert REFUSED.stdout == "Waitting ...\n\n0\n8192\n4096\n"


# Ports: the timer counts and port 61h toggles, the interrupt controller's requests come and go.
CHANGING = {0x20, 0x40, 0x41, 0x42, 0x60, 0x61}
PORTS = Q35.ask("cd /tmp; hwreg /IO /RF io.bin 0 0x70 >/dev/null; cat IO.BIN; rm IO.BIN")
PEER = Q35.ask("dd if=/dev/port bs=1 count=112 2>/dev/null")
LATCHES = Q35.ask(
    "cd /tmp; n=1;"
    "for port in 0x81 0x82 0x83 0x87 0x89 0x8a 0x8b 0x8f; do outb $port $((n * 17)); n=$((n + 1)); done;"
    "hwreg /IO /RF io.bin 0x80 0x10; echo $?; dd if=/dev/port of=theirs bs=1 skip=128 count=16 2>/dev/null;"
    "cmp theirs IO.BIN && tail -c 15 IO.BIN | hexdump -v -e '1/1 \"%02x \"';"
    f"for port in 0x81 0x82 0x83 0x87 0x89 0x8a 0x8b 0x8f; do outb $port 0; done {CLEAN}"
)


def test_a_dump_of_112_ports_equals_the_kernels_copy_where_nothing_changes_by_itself():
    ours, theirs = (answer.stdout.encode("latin-1") for answer in (PORTS, PEER))
    assert len(ours) == len(theirs) == 0x70
    assert [hex(port) for port in range(0x70) if ours[port] != theirs[port] and port not in CHANGING] == []
    assert len(set(theirs)) > 3


def test_a_dump_of_ports_holds_what_was_written_to_them():
    out, values = LATCHES.stdout.split("\n0\n")
    held = dict(zip(range(0x81, 0x90), values.split()))
    assert out == "Waitting ...\n"
    assert [held[port] for port in (0x81, 0x82, 0x83, 0x87, 0x89, 0x8A, 0x8B, 0x8F)] == [
        "11", "22", "33", "44", "55", "66", "77", "88"]


FULL = Q35.ask(
    "mkdir /run/small && mount -t tmpfs -o size=64k none /run/small && cd /run/small &&"
    f"hwreg /MEM /RF full.bin {SCRATCH:#x} 0x20000; echo $?; stat -c %s FULL.BIN; cd /; umount /run/small"
)
READ_ONLY = Q35.ask(
    "mkdir /run/fixed && mount -t tmpfs none /run/fixed && mount -o remount,ro /run/fixed && cd /run/fixed &&"
    "hwreg /MEM /RF fixed.bin 0xF0000 0x100; echo $?; ls; cd /; umount /run/fixed"
)
FOLDER = Q35.ask("cd /tmp; mkdir FOLDER; hwreg /IO /RF folder 0x80 0x10; echo $?; rmdir FOLDER")
BEYOND = Q35.ask("cd /tmp; hwreg /MEM /RF beyond.bin 0xFFFFFF00 0x200; echo $?; ls *.BIN")


def test_a_full_disk_ends_the_dump_with_a_message_and_a_short_file():
    assert FULL.stdout == "Waitting ...\n\nWrite to buffer fail!\n0\n65536\n"


def test_a_file_that_cannot_be_made_is_reported():
    assert READ_ONLY.stdout == "FileOpen fail!\n21\n"
    assert FOLDER.stdout == "FileOpen fail!\n21\n"


def test_a_range_beyond_4_gib_is_refused_without_a_file():
    assert BEYOND.stdout == "StartAddr error!\n21\n"
    assert "No such file" in BEYOND.stderr
