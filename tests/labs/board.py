"""A guest under QEMU as a board of a lab: with ssh, and with a switch for its power.

    with Board(folder) as board:
        board.run("relay", "on", "3")
        board.wait()

The folder gets what docs/labs.md shows, with the lab's own address and port for those of the page, and the command
`relay` of its environment file, which starts and ends QEMU.
"""

import os
import pathlib
import shlex
import subprocess
import time

import guest
import pages
import sshguest
from guest import BUILD, Machine

TOP = pathlib.Path(__file__).resolve().parents[2]
PAGE = TOP / "docs" / "labs.md"
SECONDS = 3600  # that the guest may serve
STARTING = 300  # that it may take to start
HOST_KEYS = "StrictHostKeyChecking no\n  UserKnownHostsFile /dev/null\n  LogLevel ERROR"

MODULE_TYPE = 0x0C  # DDR4: what the first module's SPD says at offset 2. The emulated module is empty after each start
PRODUCT = "Guest Board"
ROOT_PORT = "pcie-root-port,bus=pcie.0,addr=1c.0,chassis=1,slot=1"
# This firmware leaves the SMBus host off (HST_EN, bit 0 of HOSTC at 40h), others switch it on.
START = f"""
mkdir -p /run/lock
setpci -s 00:1f.3 40.b=1:1
hwreg /SMBUS /WB 0xA0 2 {MODULE_TYPE} >/dev/null
"""


def board_machine(product=PRODUCT, append="iomem=relaxed nopat", **options):
    """A machine with the registers of the page. UEFI firmware, since hwreg finds no SMBIOS table of the other."""
    return Machine(**{"firmware": "ovmf", **options}, devices=[ROOT_PORT], append=append,
                   qemu=["-smbios", f"type=1,product={product}"])


RELAY = """#!/bin/sh
# relay on|off 3: the switched socket. The first start is that of the file qemu-1 if there is one, else of qemu.
cd {folder} || exit
echo "$*" >>switched
case $1 in
on)
    start=qemu-$(grep -c ^on switched)
    [ -e "$start" ] || start=qemu
    . ./"$start"
    ;;
off) [ ! -e qemu.pid ] || {{ kill "$(cat qemu.pid)"; while [ -e qemu.pid ]; do sleep 0.05; done; }} ;;
esac
"""
# What a guest has no other of: busybox's timeout lacks the options.
PROGRAMS = {"/usr/bin/timeout": "/usr/bin/timeout", "/usr/bin/hwreg-check": guest.built("hwreg-check")}


class Board:
    def __init__(self, folder, machine=None, others=()):
        """`others` are the machines that certain starts find, by the number of the start; None for none."""
        self.folder = pathlib.Path(folder)
        self.port = sshguest.free_port()
        self.machine = machine or board_machine()
        self.others = dict(others)

    def __enter__(self):
        guest.prepare()
        files = PROGRAMS | sshguest.files(sshguest.make_key(self.folder, "lab-key"))
        words = guest.lay_out(self.folder, self.reached(self.machine), [sshguest.serve(SECONDS, START)], files)
        self.write_start("qemu", words)
        for number, machine in self.others.items():
            words = guest.qemu_command(self.reached(machine), self.folder) if machine else ["true"]
            self.write_start(f"qemu-{number}", words)
        self.write_programs()
        for name, text in pages.files_shown(PAGE.read_text()).items():
            (self.folder / name).write_text(self.adapted(text))
        return self

    def reached(self, machine):
        return sshguest.reached_at(self.port, machine)

    def write_start(self, name, words):
        (self.folder / name).write_text(shlex.join([*words, "-daemonize", "-pidfile", "qemu.pid"]) + "\n")

    def write_programs(self):
        """The switch, and the Python for which Debian's packages are."""
        folder = self.folder / "bin"
        folder.mkdir()
        (folder / "python3").symlink_to("/usr/bin/python3")
        (folder / "relay").write_text(RELAY.format(folder=self.folder))
        (folder / "relay").chmod(0o755)

    def adapted(self, text):
        """A file of the page, with this board's address for the page's. Its host key is new at each start."""
        here = {"address: board7.lab": "address: 127.0.0.1", "delay: 10.0": "delay: 0.1",
                "HostName board7.lab": f"HostName 127.0.0.1\n  {HOST_KEYS}",
                "port: 22": f"port: {self.port}", "Port 22": f"Port {self.port}"}
        for word, other in here.items():
            text = text.replace(word, other)
        return text

    def run(self, *words, seconds=2300):
        """Runs a command of the page in the page's folder."""
        path = f"{self.folder}/bin:{os.environ['PATH']}"
        environment = {**os.environ, "PATH": path, "PYTHONPATH": str(TOP / "python")}
        return subprocess.run(words, cwd=self.folder, env=environment, text=True, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=seconds, check=False)

    def wait(self):
        deadline = time.monotonic() + STARTING
        while self.run("ssh", "-F", "ssh_config", "-o", "ConnectTimeout=2", "board7", "true").returncode != 0:
            assert time.monotonic() < deadline, "the guest does not let in"

    def __exit__(self, *_):
        self.run("ssh", "-F", "ssh_config", "-O", "exit", "board7")
        self.run("relay", "off", "3")
