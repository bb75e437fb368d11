"""Kernel files, and tables in memory, that no kernel and no firmware would write: hwreg-check answers all the same, in
time, with an object that can be read."""

import json
import random

import pytest

FILES = {
    "lines": [
        "/proc/iomem", "/proc/ioports", "/proc/cmdline", "/proc/modules", "/proc/bus/pci/devices", "/proc/self/status",
        "/proc/self/uid_map", "/proc/driver/rtc", "/proc/sys/kernel/modules_disabled", "/run/systemd/container",
        "/sys/kernel/security/lockdown", "/sys/devices/system/cpu/online", "/sys/devices/system/cpu/present",
        "/sys/class/rtc/rtc0/name", "/sys/class/rtc/rtc0/time", "/sys/class/rtc/rtc0/wakealarm",
        "/sys/class/rtc/rtc0/device/power/wakeup", "/sys/module/msr/parameters/allow_writes",
        "/sys/firmware/efi/fw_platform_size", "/boot/config-6.1.0"],
    "bytes": [
        "/sys/firmware/acpi/tables/MCFG", "/sys/firmware/acpi/tables/FACP", "/sys/firmware/dmi/tables/DMI",
        "/sys/firmware/dmi/tables/smbios_entry_point", "/sys/bus/pci/devices/0000:00:00.0/config",
        "/sys/bus/pci/devices/0000:00:1f.4/config", "/proc/config.gz",
        "/sys/firmware/efi/efivars/SecureBoot-8be4df61-93ca-11d2-aa0d-00e098032b8c"],
}  # fmt: skip
HEADS = {
    "MCFG": b"MCFG", "FACP": b"FACP", "smbios_entry_point": b"_SM3_\0\x18\3\3\0\1\0",
    "config": b"\x86\x80\0\0\7\0\x10\0",
}  # fmt: skip
PIECES = [
    "PCI MMCONFIG 0000 [bus 00-ff]", "PCI ECAM 0000 [bus 00-3f]", "e0000000-efffffff : ", "  0cf8-0cff : PCI conf1",
    "00000000-fffffffffffffffff : ", "ffffffff-00000000 : System RAM", "efa0-efbf : i801_smbus", "-", ":", "[", "none",
    "[integrity]", "[confidentiality", "0-", "0-4294967295", "0,0,0", "99999999999999999999", "-1", "0-1-2", "rtc_cmos",
    "23:59:59", "99:99:99", "iomem=relaxed", "iomem=", "lockdown=", "msr.allow_writes=off", "module_blacklist=,msr",
    "=", "CapEff:", "CapEff:\tzz", "Seccomp:\t2", "0000", "00f8\t80863e30", "\t", "\t\t\t", "x" * 3000, "%s%n%d", " ",
    "", "\u00e9", "on", "Y", "N", "CONFIG_STRICT_DEVMEM=y"]  # fmt: skip


def text_lines(chance, path):
    for _ in range(chance.choice([0, 1, 2, 5, 50])):
        words = (chance.choice(PIECES) for _ in range(chance.randrange(6)))
        yield f'file "{path}" "{chance.choice(["", " ", chr(9)]).join(words)}"'


def byte_lines(chance, path):
    length = chance.choice([1, 7, 36, 44, 59, 60, 61, 64, 255, 256, 4096, 5000])
    kind = chance.choice(["random", "zeros", "ones", "headed", "headed"])
    data = bytes(length) if kind == "zeros" else b"\xff" * length if kind == "ones" else chance.randbytes(length)
    if kind == "headed":
        head = next((head for name, head in HEADS.items() if path.endswith(name)), b"")
        data = (head + chance.choice([length, 0, 2**32 - 1, 44]).to_bytes(4, "little") + data)[:length]
    for at in range(0, len(data), 256):
        yield f'file-bytes "{path}" {at:x} {data[at : at + 256].hex(" ")}'


def hostile(chance):
    made = []
    for path in chance.sample(FILES["lines"], chance.randrange(1, 8)):
        made += text_lines(chance, path)
    for path in chance.sample(FILES["bytes"], chance.randrange(1, 5)):
        made += byte_lines(chance, path)
    if chance.random() < 0.5:  # the tables in memory, and the pointers to them
        at = chance.choice([0xF5A00, 0xF5A10, 0xF0000, 0xE0000])
        made.append(f"bytes {at:x} " + (b"RSD PTR " + chance.randbytes(28)).hex(" "))
    if chance.random() < 0.3:
        made.append(f"systab sys \"SMBIOS3=0x{chance.getrandbits(chance.choice([8, 20, 32, 64])):x}\"")
    return made


@pytest.mark.parametrize("seed", range(40))
def test_nothing_that_a_kernel_could_say_breaks_it(run, seed):
    chance = random.Random(seed)
    lines = hostile(chance)
    words = chance.choice(["", "/PCI /RD 0 0 0 0x100", "/SMBIOS", "/RTC 60", "/MSR /RD /ALL 0x1B", "/SMBUS /DUMP 0xA0"])
    board = chance.choice(["intel", "amd", "unknown"])
    result = run(f"--json {words}", board=board, extra=lines, program="hwreg-check")
    assert result.status in (0, 1, 2) and result.err == b"", (seed, result.err)
    assert json.loads(result.out), seed
    assert result.lines("out", "in", "mw", "pwrite", "system") == []
