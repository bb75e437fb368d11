"""What hwreg-check finds of a kernel and a machine, and why: its files are those of a simulated machine."""

import pytest

from kernel import LOCKED, RAM, holds, quoted, table

# Each row: a finding, its state, and what its text and its remedy hold; lines of the board in front, the board behind.
CASES = {
    "a plain machine": ([], {
        "privilege": ("good", "root|CAP_SYS_RAWIO", ""), "iopl": ("good", "granted", ""), "lockdown": ("good", "", ""),
        "dev-mem": ("good", "", ""), "config-window": ("good", "at e0000000h for buses 00h-ffh", ""),
        "smbus-host": ("good", "00:1f.4, 8086:a323", ""), "spd": ("good", "DDR4", ""), "smbios": ("good", "", ""),
        "rsdp": ("good", "f5a00h", ""), "shutdown": ("good", "programs/shutdown", "")}),
    "no capabilities": (["iopl EPERM", "mem EACCES", "msr-nodes EACCES",
                         'file "/proc/self/status" ENOENT', 'file "/proc/self/status" "CapEff: 0"'], {
        "privilege": ("bad", "without CAP_SYS_RAWIO", "root"), "iopl": ("bad", "see privilege", "root"),
        "dev-mem": ("bad", "Permission denied.*see privilege", "root"),
        "strict-devmem": ("unknown", "no page could be tried", ""),
        "msr-nodes": ("bad", "Permission denied.*see privilege", "root"),
        "smbios": ("bad", "see dev-mem", "root")}),
    "no CAP_SYS_ADMIN": (['file "/proc/self/status" ENOENT', 'file "/proc/self/status" "CapEff: 20000"'], {
        "privilege": ("caution", "without CAP_SYS_ADMIN", ".")}),
    "a status that says nothing": (['file "/proc/self/status" ENOENT', 'file "/proc/self/status" "Name: x"'], {
        "privilege": ("unknown", "does not tell", ""), "seccomp": ("unknown", "", ""), "iopl": ("good", "", "")}),
    "a user namespace": (["iopl EPERM", *quoted("/proc/self/uid_map", "         0       1000          1")], {
        "namespace": ("bad", "user namespace of its own", "outside"), "iopl": ("bad", "see namespace", "outside")}),
    "the whole range of users": (quoted("/proc/self/uid_map", "0 0 4294967295"), {"namespace": ("good", "", "")}),
    "a filter that refuses": (["iopl EPERM", *quoted("/proc/self/status", "Seccomp: 2")], {
        "seccomp": ("bad", "nothing else forbids", "SystemCallFilter"),
        "iopl": ("bad", "filter of system calls", "SystemCallFilter")}),
    "a filter that does not": (quoted("/proc/self/status", "Seccomp: 2"), {
        "seccomp": ("good", "but for those that are needed", "")}),
    "a container": (quoted("/run/systemd/container", "lxc"), {"container": ("caution", r"\(lxc\)", "privileged")}),
    "lockdown": (["iopl EPERM", "mem EPERM", LOCKED], {
        "lockdown": ("bad", r"\(integrity\)", "Secure Boot"), "iopl": ("bad", "see lockdown", "Secure Boot"),
        "dev-mem": ("bad", "see lockdown", "Secure Boot"), "msr-writes": ("bad", "locked down", "Secure Boot")}),
    "no lockdown": (quoted("/sys/kernel/security/lockdown", "[none] integrity confidentiality"), {
        "lockdown": ("good", "not locked down", "")}),
    "Secure Boot and lockdown": (["iopl EPERM", LOCKED, *table(
        "/sys/firmware/efi/efivars/SecureBoot-8be4df61-93ca-11d2-aa0d-00e098032b8c", b"\6\0\0\0\1")], {
        "secure-boot": ("bad", "is on", "switch Secure Boot off")}),
    "Secure Boot alone": (table("/sys/firmware/efi/efivars/SecureBoot-8be4df61-93ca-11d2-aa0d-00e098032b8c",
                                b"\6\0\0\0\1"), {"secure-boot": ("caution", "does not lock itself", "")}),
    "Secure Boot off": (table("/sys/firmware/efi/efivars/SecureBoot-8be4df61-93ca-11d2-aa0d-00e098032b8c",
                              b"\6\0\0\0\0"), {"secure-boot": ("good", "is off", "")}),
    "a variable that is cut": (quoted("/sys/firmware/efi/fw_platform_size", "64") + table(
        "/sys/firmware/efi/efivars/SecureBoot-8be4df61-93ca-11d2-aa0d-00e098032b8c", b"\6\0"), {
        "secure-boot": ("unknown", "cannot be read", "")}),
    "a kernel without iopl": (["iopl ENOSYS", *quoted("/boot/config-RELEASE", "# CONFIG_X86_IOPL_IOPERM is not set")], {
        "iopl": ("bad", "was built without CONFIG_X86_IOPL_IOPERM", "Debian")}),
    "iopl is refused for nothing": (["iopl EPERM"], {"iopl": ("bad", "neither capabilities nor lockdown", "SELinux")}),
    "no /dev/mem": (["mem ENOENT", *quoted("/boot/config-RELEASE", "# CONFIG_DEVMEM is not set", "CONFIG_X=y")], {
        "dev-mem": ("bad", "No such file or directory", ".")}),
    "strict": (["refuse 100000 7ff00000 EPERM", RAM], {
        "strict-devmem": ("caution", r"100000 was tried", "memmap="), "io-strict-devmem": ("good", "Local APIC", "")}),
    "strict where the map is hidden": (["refuse 100000 7ff00000 EPERM", *quoted("/proc/iomem", "0-0 : System RAM")], {
        "strict-devmem": ("caution", "100000 was tried", "memmap=")}),
    "a hidden map": (quoted("/proc/iomem", "0-0 : System RAM", "  0-0 : Kernel code"), {"smbios": ("good", "", "")}),
    "RAM that ends in the first MiB": (["refuse 100000 1000 EPERM", *quoted(
        "/proc/iomem", "00001000-0009ffff : System RAM", "00200000-7fffffff : System RAM")], {
        "strict-devmem": ("good", "200000 was not refused", "")}),
    "claimed memory": (["refuse e0000000 1000 EPERM", *quoted(
        "/proc/iomem", "e0000000-efffffff : PCI MMCONFIG 0000 [bus 00-ff]")], {
        "io-strict-devmem": ("caution", r"PCI MMCONFIG 0000 \[bus 00-ff\] at e0000000", "iomem=relaxed")}),
    "a driver's registers": (["refuse fb000000 1000 EPERM", *quoted(
        "/proc/iomem", "fa000000-fbffffff : PCI Bus 0000:00", "  fb000000-fb00ffff : 0000:00:02.0",
        "    fb000000-fb00ffff : i915")], {"io-strict-devmem": ("caution", "i915 at fb000000", "iomem=relaxed")}),
    "relaxed": (quoted("/proc/cmdline", "quiet iomem=relaxed"), {"io-strict-devmem": ("good", "iomem=relaxed", "")}),
    "only the configuration tells": (["mem EACCES", *quoted("/boot/config-RELEASE", "CONFIG_STRICT_DEVMEM=y",
                                                            "# CONFIG_IO_STRICT_DEVMEM is not set")], {
        "strict-devmem": ("caution", "configuration has it; no page", ""),
        "io-strict-devmem": ("good", "does not have it", "")}),
    "the modules' configuration": (["mem EACCES", *quoted("/lib/modules/RELEASE/config", "CONFIG_STRICT_DEVMEM=y")], {
        "strict-devmem": ("caution", "", ""), "io-strict-devmem": ("good", "", "")}),
    "tables that cannot be mapped": (["refuse 7a000000 1000 EAGAIN", *quoted(
        "/proc/iomem", "7a000000-7a0fffff : ACPI Tables")], {"pat": ("bad", "ACPI Tables at 7a000000", "nopat")}),
    "tables that are mapped cached": (["refuse 7a000000 1000 EAGAIN sync", *quoted(
        "/proc/iomem", "7a000000-7a0fffff : ACPI Tables")], {"pat": ("good", "ACPI Tables at 7a000000", "")}),
    "nopat": (quoted("/proc/cmdline", "nopat"), {"pat": ("good", "off", "")}),
    "a gap": (["cpus 0-3 5 7"], {
        "msr-nodes": ("caution", "CPU 4 has no node.*leaves out 2 CPUs that are on", "cpu4/")}),
    "writes are off": (quoted("/sys/module/msr/parameters/allow_writes", "off"), {
        "msr-writes": ("bad", "allow_writes=off", "allow_writes=on")}),
    "writes are on": (quoted("/sys/module/msr/parameters/allow_writes", "on"), {"msr-writes": ("good", "can be", "")}),
    "writes are off from the start": (quoted("/proc/cmdline", "msr.allow_writes=on msr.allow_writes=off"), {
        "msr-writes": ("bad", "kernel's command line", ".")}),
    "the module comes": (["msr-nodes modprobe", "cpus 0-3 5"], {
        "msr-module": ("good", "hwreg's own", ""), "msr-nodes": ("caution", "CPU 4 .*once the module is loaded", "."),
        "msr-writes": ("good", "", "")}),
    "the module's file is missing": (["msr-nodes modprobe", 'file "/lib/modules/RELEASE/kernel/arch/x86/kernel/msr.ko" '
                                      'ENOENT'], {"msr-module": ("bad", "msr.ko is missing", "install")}),
    "no module": (["msr-nodes never"], {
        "msr-module": ("bad", "has no module msr", "install"), "msr-nodes": ("bad", "see msr-module", "install"),
        "msr-writes": ("unknown", "", "")}),
    "modules are off": (["msr-nodes modprobe", *quoted("/proc/sys/kernel/modules_disabled", "1")], {
        "msr-module": ("bad", "modules_disabled", "again")}),
    "a blacklist of the kernel": (["msr-nodes modprobe", *quoted("/proc/cmdline", "module_blacklist=a,msr,b")], {
        "msr-module": ("bad", "module_blacklist", "without")}),
    "another's blacklist": (["msr-nodes modprobe", *quoted("/proc/cmdline", "module_blacklist=msrx,xmsr")], {
        "msr-module": ("good", "", "")}),
    "no CAP_SYS_MODULE": (["msr-nodes modprobe", 'file "/proc/self/status" ENOENT',
                           'file "/proc/self/status" "CapEff: 220000"'], {
        "msr-module": ("bad", "CAP_SYS_MODULE", "by hand")}),
    "nodes that are refused": (["msr-nodes EPERM"], {"msr-nodes": ("bad", "not permitted", "control groups")}),
    "no SMBus controller": (["pci-remove 00:1f.4"], {"smbus-host": ("bad", "0C05h", "setup")}),
    "a driver of the clock": (quoted("/sys/class/rtc/rtc0/name", "rtc_cmos 00:02"), {
        "rtc-driver": ("caution", "rtc_cmos", "wakealarm")}),
    "another clock": (quoted("/sys/class/rtc/rtc0/name", "rtc-efi"), {"rtc-driver": ("good", "rtc-efi", "")}),
    "drivers of the Super I/O": (quoted("/proc/modules", "nct6775 1 0 - Live 0x0", "it87_wdt 1 0 - Live 0x0"), {
        "superio-driver": ("caution", "nct6775, it87_wdt", "modprobe -r")}),
    "a claimed index port": (quoted("/proc/ioports", "0000-0cf7 : PCI Bus 0000:00", "  004e-004f : mychip"), {
        "superio-driver": ("caution", "mychip", ".")}),
    "no driver of the Super I/O": (quoted("/proc/modules", "msr 1 0 - Live 0x0"), {"superio-driver": ("good", "", "")}),
    "an alarm of the kernel's": (quoted("/sys/class/rtc/rtc0/wakealarm", "1700000000"), {
        "alarm": ("caution", "1700000000", "echo 0")}),
    "wake-up is on": (quoted("/sys/class/rtc/rtc0/device/power/wakeup", "enabled"), {"alarm": ("good", "", "")}),
    "wake-up is off": (quoted("/sys/class/rtc/rtc0/device/power/wakeup", "disabled"), {
        "alarm": ("caution", "disabled", "echo enabled")}),
}  # fmt: skip


@pytest.mark.parametrize("case", CASES)
def test_it_is_found(found, case):
    extra, expected = CASES[case]
    holds(found(*extra), expected)
