"""The static programs need nothing but the kernel: a boot whose root holds them, busybox, and no library."""

import functools
import re
import subprocess
import tempfile

import pytest

import cpio
import guest
import image
from guest import Machine

PROGRAMS = ["hwreg", "hwreg-check", "hwreg-capture"]

# What each command of the guest prints, between its number and its status.
INIT = """#!/busybox sh
/busybox mount -t devtmpfs dev /dev
/busybox mount -t proc proc /proc
/busybox mount -t sysfs sysfs /sys
/busybox stty -F /dev/ttyS1 raw
{commands}
/busybox poweroff -f
"""
COMMANDS = {
    "byte": "/hwreg /PCI /RB 0 0 0 0",
    "memory": "/hwreg /MEM /RD 0xF0000",
    "peer of memory": "/busybox devmem 0xF0000 32",
    "leaf": "/hwreg /CPUID /RD 0",
    "view": "/hwreg /PCI /DUMP 0 0x1F 0 /LOG /TEXT",
    "copy": "/hwreg /MEM /RF /COPY 0xF0000 0x10000 && /busybox sha256sum </COPY",
    "peer of copy": "/busybox dd if=/dev/mem bs=4096 skip=240 count=16 2>/dev/null | /busybox sha256sum",
    "check": "/hwreg-check /PCI /RB 0 0 0 0",
    "capture": "/hwreg-capture 2>/dev/null",
}


def held(folder):
    """The initial file system: its paths. Nothing of it stands for a libc or a loader."""
    commands = "\n".join(f"echo 'BEGIN {name}'; {words}; echo \"END $?\"" for name, words in COMMANDS.items())
    with open(f"{folder}/initrd", "wb") as stream:
        archive = cpio.Archive(stream)
        for path in ("proc", "sys", "dev"):
            archive.folder(path)
        archive.character_device("dev/console", 5, 1)
        archive.copy(f"{guest.GUEST}/tree/bin/busybox", "busybox")
        for name in PROGRAMS:
            archive.copy(f"{guest.BUILD}/{name}-static", name)
        archive.file("init", INIT.format(commands=f"{{ {commands}\n}} >/dev/ttyS1 2>&1 </dev/null").encode(), 0o755)
        archive.close()


@functools.cache
def answers():
    """(text, status) of each command."""
    guest.prepare()
    with tempfile.TemporaryDirectory(prefix="hwreg-guest-") as scratch:
        words = guest.qemu_command(Machine(), scratch)
        held(scratch)
        status = guest.run_qemu(words, 300, scratch)
        told = guest.read_bytes(f"{scratch}/results").decode("latin-1")
        console = guest.read_bytes(f"{scratch}/console").decode("latin-1")
    found = re.findall(r"^BEGIN ([^\n]*)\n(.*?)^END (\d+)$", told, re.MULTILINE | re.DOTALL)
    assert status == 0 and len(found) == len(COMMANDS), console + told
    return {name: (text, int(ended)) for name, text, ended in found}


@pytest.mark.parametrize("name", PROGRAMS)
def test_each_is_one_file_below_a_mebibyte(name, tmp_path):
    program = f"{guest.BUILD}/{name}-static"
    assert image.libraries(program) == []
    subprocess.run(["strip", "-o", tmp_path / name, program], check=True)  # as it is shipped
    assert (tmp_path / name).stat().st_size < 1 << 20


def test_a_register_is_read():
    assert answers()["byte"] == ("PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n", 0x86)


def test_memory_is_what_busybox_reads():
    read = re.fullmatch(r"Memory Read Dword MemAddr: F0000, return data:(0x[0-9A-F]+)\n", answers()["memory"][0])
    assert int(read[1], 16) == int(answers()["peer of memory"][0], 16)


def test_a_range_is_copied_as_dd_copies_it():
    copied, status = answers()["copy"]
    assert status == 0 and copied.splitlines()[-1] == answers()["peer of copy"][0].strip()


def test_a_leaf_is_read():
    assert answers()["leaf"][0].startswith("CPUID")


def test_a_function_is_viewed():
    text, status = answers()["view"]
    assert status == 0 and "86 80" in text


def test_the_check_foretells_what_comes():
    text, status = answers()["check"]
    assert (status, "works" in text) == (0, True), text


def test_the_machine_is_captured():
    text, status = answers()["capture"]
    assert status == 0 and text.startswith("capture 1\n")
