"""State files whose registers hold what no machine has left there, and disks that have no room for them."""

import subprocess

import pytest
from harness import BOARDS, BUILD

MEMORY = (4 << 30) + (1 << 20)
REGISTERS = MEMORY + 4096  # behind the header

SEQUENCE = ["sequence fe000000 1 2 3"]
SLAVES = ["pci-ports", "pci 00:00.0 8086:3e30 class 060000", "pci 00:05.0 8086:a323 class 0c0500",
          "dword 20 efa1 rw ffff", "word 04 1", "byte 40 1 rw 1", "smbus-host pci 0", "smbus-spd a0"]  # fmt: skip
AMD = ["pci-ports", "pci 00:00.0 1022:1480 class 060000", "smn", "pci 00:14.0 1022:790b class 0c0500",
       "pm-registers", "pm-bytes 0 10 0b",
       "smbus-host pm 0", "smbus-eeprom a0", "smn-register 2 1000 5", "smu-mailbox"]  # fmt: skip
MAP = "open /dev/mem rw map 3 fe000000 1000 rw"


@pytest.mark.parametrize("byte", [b"\xff", b"\x80", b"\x7f"])
@pytest.mark.parametrize("lines, words", [
    (["cmos", "cmos-run real", "pm1 600"], "in8 71 out8 71 5 in8 73 out8 73 5 in16 600 out16 602 120"),
    (["pm1 600"], "in16 600 out16 600 ffff in8 605"),
    (["superio 2e 87 87 aa"], "out8 2e 87 in8 2f out8 2f 5 out8 2e 87 out8 2e 87"),
    (SLAVES, "out8 efa0 fe out8 efa4 a1 out8 efa3 0 out8 efa2 48 in8 efa0 in8 efa5"),
    (["i2c-core fe000000", "i2c-device 50"], f"{MAP} store mov32 10 5 load mov32 10 store mov32 6c 0 load mov32 70"),
    (SEQUENCE, f"{MAP} load mov32 0 load mov32 0"),
    (AMD, "in8 cd6 in8 cd7 out8 cd7 5 out8 cd6 0 out8 cd7 10 in8 ff00 in32 cf8 in32 cfc out32 cfc 1"),
])  # fmt: skip
def test_registers_that_nothing_has_left_harm_nobody(run, tmp_path, lines, words, byte):
    board, state = tmp_path / "own.board", tmp_path / "machine"
    board.write_text("\n".join(["iopl ok", "mem ok", *lines, ""]))
    kept = {"board": board, "program": "hwboard_probe", "env": {"HWBOARD_STATE": str(state)}}
    assert run("iopl 3", **kept).err == b""
    with open(state, "r+b") as file:
        file.seek(REGISTERS)
        file.write(byte * (state.stat().st_size - REGISTERS))
    ran = run(f"iopl 3 {words}", **kept)
    assert (ran.status, ran.err) == (0, b"")


def test_a_disk_that_gets_full_ends_the_run_and_keeps_what_was_written(tmp_path):
    script = (f'mount -t tmpfs -o size=1m none "{tmp_path}" && cd "{tmp_path}" || exit 99; '
              'run() { HWBOARD_STATE=state LD_PRELOAD=$0/libhwboard.so $0/hwreg "$@"; }; '
              "for page in $(seq 256); do run /MEM /WB $((0x1000000 + page * 4096)) 0x5A; done; "
              "run /MEM /RB 0x1001000; true")
    ran = subprocess.run(["unshare", "-m", "sh", "-c", script, BUILD], text=True, capture_output=True, timeout=120,
                         env={"HWBOARD": str(BOARDS / "base.board"), "PATH": "/usr/bin:/bin:/usr/sbin"}, check=False)
    if ran.returncode in (1, 99):
        pytest.skip("may not mount here: " + ran.stderr)
    assert set(ran.stderr.splitlines()) == \
        {"state: the disk is full: what this run has changed so far is kept, and no more"}
    assert ran.stdout.splitlines()[-1] == "Memory Read Byte MemAddr: 1001000, return data:0x5A"
