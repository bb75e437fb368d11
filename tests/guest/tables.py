"""Firmware tables in a guest: the program of tables.cpp, the rules that the tests on boards follow as well, and views
read back into bytes."""

import os
import subprocess

import guest

HERE = os.path.dirname(os.path.abspath(__file__))
TOP = os.path.abspath(f"{HERE}/../..")
PROBE = "/usr/bin/hwreg-tables"


def put_probe(*boots):
    """Builds tables.cpp with the modules of the program under test and puts it into the guests as PROBE."""
    made = f"{guest.GUEST}/hwreg-tables"
    os.makedirs(guest.GUEST, exist_ok=True)
    subprocess.run(["g++", "-std=c++17", "-O1", "-static", f"-I{TOP}", "-o", made, f"{HERE}/tables.cpp",
                    f"{guest.BUILD}/libhwreg_modules.a"], check=True)
    for boot in boots:
        boot.put(PROBE, made)


def bytes_of_view(text):
    """The bytes of one plain hex view: the rows that begin with their number, of up to 16 cells each."""
    data = b""
    for line in text.replace("\r", "").split("\n"):
        if line[:2].strip():
            data += bytes.fromhex(line[3:51])
    return data


# The BIOS area as dd sees it.
DD_BIOS_AREA = "dd if=/dev/mem bs=4096 skip=240 count=16 2>/dev/null"


def bios_area(answer):
    area = answer.stdout.encode("latin-1")
    assert len(area) == 0x10000
    return area


def in_writable_bios_area(register, commands):
    """Shell text: the commands run while the first 64 KiB below 1 MiB are memory that can be written, behind the host
    bridge's PAM0 register; it is put back afterwards."""
    pam = f"setpci -s 00:00.0 {register}.b"
    return f"old=$({pam}); {pam}=30; {commands}; {pam}=$old"
