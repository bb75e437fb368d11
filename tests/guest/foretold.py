"""Machines, kernels and settings in which hwreg-check is asked about a line before hwreg gets it, and what came of it.

Each boot is asked its lines in one or more settings. What is true is what a machine's first boot answers, where nothing
is refused and other tools are asked beside it.
"""

import functools
import io
import json
import os
import re
import subprocess
import tarfile
from dataclasses import dataclass

import guest
from foretold_forms import short_list
from foretold_lines import LINES, MACHINES, SCRATCH
from guest import Command, Machine

HERE = os.path.dirname(os.path.abspath(__file__))
CHECK = guest.built("hwreg-check")


@dataclass
class Setting:
    """What is done before all lines, after them and before each of them, and what runs them; a command, run by that
    too, with a text that it prints when the setting is in force; and what hwreg-check has to name, as "finding: why",
    for what fails here and works elsewhere."""

    proof: str
    says: str
    reason: str
    enter: str = ""
    leave: str = ""
    each: str = ""
    run_by: str = ""
    all_of: str = "none"  # which lines are asked; of the others one of each form



MSR_FILE = "$(find /lib/modules/ -name msr.ko)"
NO_MSR = "rmmod msr 2>/dev/null;"
FIRST_NODE = "ls /dev/cpu/0/msr 2>&1"
TRY_MODPROBE = "modprobe msr 2>&1; ls /dev/cpu/0/msr 2>&1"
CPU_1 = "/sys/devices/system/cpu/cpu1/online"
LOCKDOWN = "/sys/kernel/security/lockdown"
SEE_LOCKDOWN = f"mount -t securityfs none /sys/kernel/security 2>/dev/null; cat {LOCKDOWN}"
GET_WINDOW = "busybox devmem 0xB0000000 32 2>&1"
IS_WINDOW, NO_WINDOW = "0x29C08086", "not permitted"

GET_REGISTER = "setpci -s 00:00.0 60.l"
SET_WINDOW = GET_REGISTER + "="
MOVED = f"BACK='{SET_WINDOW}b0000001'; {SET_WINDOW}d0000001"
GET_SECCOMP = "grep Seccomp: /proc/self/status"

# Settings of one kernel, one after the other.
SETTINGS = {
    "nothing refused": Setting(GET_WINDOW, IS_WINDOW, "", all_of=""),
    "an ordinary user": Setting("id -u", "1000", "iopl: .*see privilege",
                                run_by="setpriv --reuid 1000 --regid 1000 --clear-groups"),
    "root without CAP_SYS_RAWIO": Setting("grep CapBnd /proc/self/status", "ffdffff", "iopl: .*see privilege",
                                          run_by="setpriv --bounding-set -sys_rawio --inh-caps -sys_rawio"),
    "root of a user namespace": Setting("cat /proc/self/uid_map", "  1\n", "iopl: .*see namespace",
                                        run_by="unshare -U -r"),
    "iopl filtered, EPERM": Setting(GET_SECCOMP, "2", "iopl: .*seccomp", run_by="refuse_iopl 1"),
    "iopl filtered, ENOSYS": Setting(GET_SECCOMP, "2", "iopl: .*seccomp", run_by="refuse_iopl 38"),
    "no /dev/mem": Setting("ls /dev/mem 2>&1", "No such file", "dev-mem: .*No such file|rsdp: ",
                           "rm /dev/mem", "mknod /dev/mem c 1 1", all_of="/MEM"),
    "a container with all capabilities": Setting("echo $$; ls /dev", "1\nnull\nzero\n",
                                                 "dev-mem: .*see container|msr-nodes: .*this /dev|rsdp: ",
                                                 run_by="unshare -m -p -f --mount-proc container"),
    "msr not loaded yet": Setting(FIRST_NODE, "No such file", "", NO_MSR, each=NO_MSR, all_of="/MSR"),
    "no msr module": Setting(TRY_MODPROBE, "No such file", "msr-module: .*msr.ko is missing",
                             NO_MSR + f"mv {MSR_FILE} /run/msr.ko", "mv /run/msr.ko $MSR", all_of="/MSR"),
    "msr blocked by modprobe.d": Setting(TRY_MODPROBE, "No such file", 'msr-module: .*no.conf runs "/bin/false"',
                                         NO_MSR + "mkdir -p /etc/modprobe.d; "
                                         "echo install msr /bin/false >/etc/modprobe.d/no.conf",
                                         "rm /etc/modprobe.d/no.conf; modprobe msr", all_of="/MSR"),
    "no modprobe command": Setting(TRY_MODPROBE, "not found", "msr-module: .*modprobe",
                                   NO_MSR + "mv /usr/bin/modprobe /run/",
                                   "mv /run/modprobe /usr/bin/; modprobe msr", all_of="/MSR"),
    "msr.allow_writes=off": Setting("cat /sys/module/msr/parameters/allow_writes", "off", "msr-writes: .*allow_writes",
                                    NO_MSR + "modprobe msr allow_writes=off", NO_MSR + "modprobe msr", all_of="/MSR"),
    "processor 1 offline": Setting("cat /sys/devices/system/cpu/online", "0,2", ".*: .*CPU 1", f"echo 0 >{CPU_1}",
                                   f"echo 1 >{CPU_1}", all_of="/MSR"),
    "no shutdown command": Setting("shutdown 2>&1", "not found", "shutdown: .*PATH", "mv /usr/bin/shutdown /run/",
                                   "mv /run/shutdown /usr/bin/", all_of="/RTC"),
    "a folder that is read-only": Setting("2>&1 >x || echo no", "no", ": .*",
                                          "mkdir /run/ro; mount -t tmpfs -o ro none /run/ro; cd /run/ro"),
    "configuration window switched off": Setting(GET_REGISTER, "b0000000", "config-window: ", SET_WINDOW + "b0000000",
                                                 SET_WINDOW + "b0000001", all_of="/PCI"),
    "configuration window moved": Setting(GET_REGISTER, "d0000001", "", MOVED, SET_WINDOW + "b0000001", each=MOVED,
                                          all_of="/PCI"),
}  # fmt: skip

CONTAINER = b"""#!/bin/sh
mount -t tmpfs none /sys/firmware
mount -t tmpfs none /dev
mknod /dev/null c 1 3
mknod /dev/zero c 1 5
exec "$@"
"""
SHUTDOWN = b'#!/bin/sh\necho "$*" >>/run/asked\n'


@dataclass
class Boot:
    kind: str  # a key of MACHINES
    append: str
    settings: dict

    def machine(self):
        return Machine(
            machine="pc" if self.kind == "pc" else "q35",
            firmware="ovmf" if self.kind == "ovmf" else "seabios",
            smp=3,
            devices=[] if self.kind == "pc" else BRIDGED,
            append=f"memmap=1M${SCRATCH:#x} {self.append}",
            qemu=["-rtc", "base=2024-02-03T04:05:06"],
        )


BRIDGED = ["pcie-root-port,id=port1,bus=pcie.0,addr=3.0,chassis=1,slot=1", "e1000e,bus=port1"]
CLAIMED = "io-strict-devmem: "

# A machine's first boot is the one that refuses nothing.
BOOTS = {
    "q35": Boot("q35", "iomem=relaxed nopat", SETTINGS),
    "q35-relaxed": Boot("q35", "iomem=relaxed", {"as it is": Setting(GET_WINDOW, IS_WINDOW, "", all_of="")}),
    "q35-strict": Boot("q35", "", {"as it is": Setting(GET_WINDOW, NO_WINDOW, CLAIMED, all_of="")}),
    "q35-integrity": Boot("q35", "iomem=relaxed lockdown=integrity", {
        "as it is": Setting(SEE_LOCKDOWN, "[integrity]", "iopl: .*see lockdown", all_of=""),
        "turned to confidentiality": Setting(SEE_LOCKDOWN, "[confidentiality]", "iopl: .*see lockdown",
                                             SEE_LOCKDOWN + f"; echo confidentiality >{LOCKDOWN}"),
    }),
    "ovmf": Boot("ovmf", "iomem=relaxed nopat", {"nothing refused": Setting(GET_WINDOW, IS_WINDOW, "", all_of="")}),
    "ovmf-strict": Boot("ovmf", "", {
        "as it is": Setting(GET_WINDOW, NO_WINDOW, CLAIMED, all_of=""),
        "SMBus host left off": Setting("setpci -s $HOST_AT 40.b", "00", "smbus-host: |" + CLAIMED,
                                       "setpci -s $HOST_AT 40.b=0:1", all_of="/SMB"),
    }),
    "pc": Boot("pc", "iomem=relaxed nopat", {"nothing refused": Setting("cat /proc/cmdline", "nopat", "", all_of="")}),
    "pc-strict": Boot("pc", "module_blacklist=msr", {
        "as it is": Setting(TRY_MODPROBE, "No such file", "msr-module: .*blacklist|" + CLAIMED,
                            all_of="/MSR|/PCI|/MEM"),
    }),
}  # fmt: skip

SETUP = f"""
MSR={MSR_FILE}
FACP=$(dmesg | sed -n 's/.*ACPI: FACP 0x0*\\([0-9A-F]*\\) .*/0x\\1/p')
printf 'qrstuvwqrstuvwqrstuvwqrstuvwqrstuvwmarkeryyyyyyyyyyyyyyyyyyyyyyy' >/run/pattern
scratch() {{
    case $1 in
    fill)
        [ -c /dev/mem ] || return
        dd if=/run/pattern of=/dev/mem bs=64 seek={(SCRATCH + 0x100) // 64} conv=notrunc 2>/dev/null
        ;;
    show) busybox devmem {SCRATCH + 0x100:#x} 32 ;;
    esac
}}
BACK=:
mkdir -pm 1777 /run/here && cd /run/here
"""

# What the modules of the SMBus hold; UEFI firmware leaves the host switched off.
FILL_SMBUS = """
setpci -s $HOST_AT 40.b=1:1
modprobe -a i2c-dev $HOST && i2cset -y 0 0x50 5 0x77 b && i2cset -y 0 0x50 6 0x6e b && i2cset -y 0 0x51 0 0x23 b
rmmod $HOST
setpci -s $HOST_AT 40.b=1:1
"""


def lines_of(boot, setting):
    return [number for number, line in enumerate(LINES)
            if boot.kind in line.where and (number in short_list() or re.match(setting.all_of, line.words))]


def is_first(boot):
    return next(other for other in BOOTS.values() if other.kind == boot.kind) is boot


def script(boot, setting, folder, ask_tools):
    """What runs the lines of one setting; leaves files of each in the folder."""
    parts = ["set -a", MACHINES[boot.kind], SETUP, f"mkdir -p {folder}", setting.enter,
             f"{setting.run_by} sh -c {quoted(setting.proof)} >{folder}/proof"]
    for number in lines_of(boot, setting):
        line = LINES[number]
        result = f"{folder}/{number}"
        keys = f"printf '{line.keys}' |" if line.keys else "</dev/null"
        parts += [setting.each,
                  f"{setting.run_by} hwreg-check --json {line.words} >{result}.json 2>{result}.complaint </dev/null",
                  f"echo $? >{result}.verdict", f"rm -f {line.file}" if line.file else "", line.before]
        if ask_tools and line.tool:
            parts += [f"{{ {line.tool}\n}} >{result}.tool 2>&1"]
        parts += [f"{keys} {setting.run_by} hwreg {line.words} >{result}.out 2>{result}.err",
                  f"echo $? >{result}.status"]
        parts += [f"od -An -v -tx1 {line.file} >{result}.file 2>/dev/null"] if line.file else []
        parts += [f"{{ {line.after}\n}} >{result}.after 2>&1"] if line.after else []
    return "\n".join([*parts, setting.leave, "exit 0", ""])


def quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


@functools.cache
def helper(name):
    """A program of this folder, made for any guest."""
    made = f"{guest.GUEST}/{name}"
    os.makedirs(guest.GUEST, exist_ok=True)
    subprocess.run(["gcc", "-O2", "-Wall", "-Wextra", "-Werror", "-static", "-o", made, f"{HERE}/{name}.c"], check=True)
    return made


@dataclass
class Outcome:
    """What one line did in one setting: hwreg's output and status, the registers and the file afterwards, what another
    tool had said; and hwreg-check's answer with its own status and complaints."""

    out: str
    err: str
    status: int
    after: str
    file: str
    tool: str
    answer: dict
    verdict: int
    complaint: str


@functools.cache
def boot_outcomes(name):
    """Of each setting of a boot: the outcomes by number of the line, and what proves the setting."""
    boot = BOOTS[name]
    files = {"/usr/bin/refuse_iopl": helper("refuse_iopl"), "/usr/bin/ports": helper("ports"),
             "/usr/bin/container": CONTAINER, "/usr/bin/shutdown": SHUTDOWN, "/usr/bin/hwreg-check": CHECK}
    commands = [Command(f"{MACHINES[boot.kind]}; {FILL_SMBUS}")]
    for number, (title, setting) in enumerate(boot.settings.items()):
        ask_tools = is_first(boot) and title == "nothing refused"
        files[f"/run/setting{number}"] = script(boot, setting, f"/tmp/out/{number}", ask_tools).encode()
        commands.append(Command(["sh", f"/run/setting{number}"]))
    commands.append(Command("tar -C /tmp/out -czf /tmp/out.tar.gz ."))
    ran = guest.run(boot.machine(), commands, files, ["/tmp/out.tar.gz"])
    with tarfile.open(fileobj=io.BytesIO(ran.files["/tmp/out.tar.gz"])) as tar:
        found = {os.path.normpath(member.name): tar.extractfile(member).read().decode("latin-1")
                 for member in tar if member.isfile()}
    return {title: ({number: read_outcome(found, f"{place}/{number}") for number in lines_of(boot, setting)},
                    found[f"{place}/proof"]) for place, (title, setting) in enumerate(boot.settings.items())}


def read_outcome(found, at):
    def part(name):
        return found.get(f"{at}.{name}", "")
    answer = json.loads(part("json")) if part("json").startswith("{") else {}
    return Outcome(part("out"), part("err"), int(part("status")), part("after"), part("file"), part("tool"), answer,
                   int(part("verdict")), part("complaint"))
