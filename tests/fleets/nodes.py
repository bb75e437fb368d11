"""Guests under QEMU that serve ssh, as nodes of a fleet.

    with Nodes(folder, ["node1", "node2"]) as nodes:
        nodes.clush("-w @lab -b uptime")

The guests are those of tests/support/qemu, with dropbear and an emulated network card; each has its port 22 at a port
of 127.0.0.1. Besides them the group @lab has `gone`, whose port nobody listens at.
"""

import concurrent.futures
import os
import pathlib
import socket
import subprocess
import time

import guest
import image

DROPBEAR = "/usr/sbin/dropbear"
SERVE = """
chmod go-w / /.ssh; mkdir -p /etc/dropbear
modprobe e1000 && ifconfig eth0 10.0.2.15 netmask 255.255.255.0 up && dropbear -R -s || exit 1
until [ -e /tmp/over ]; do sleep 0.2; done
"""
SECONDS = 150  # that a guest may live


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def make_key(folder):
    subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / "key"], check=True)
    return (folder / "key.pub").read_bytes()


def write_configuration(folder, ports):
    """For ssh: where each node listens. For ClusterShell: who is in the lab, and that ssh reads the former."""
    hosts = [f"Host {name}\n  Port {port}\n" for name, port in ports.items()]
    common = ["Host *", "HostName 127.0.0.1", f"IdentityFile {folder}/key", "IdentitiesOnly yes", "BatchMode yes",
              "StrictHostKeyChecking accept-new", f"UserKnownHostsFile {folder}/known_hosts", "LogLevel ERROR",
              "ConnectTimeout 20"]
    (folder / "ssh_config").write_text("".join(hosts) + "\n".join(common) + "\n")
    (folder / "clush.conf").write_text(f"[Main]\nssh_options: -F {folder}/ssh_config\n")
    (folder / "groups.conf").write_text("[Main]\ndefault: local\n[local]\nmap: echo " + ",".join(ports) + "\n")


class Nodes:
    def __init__(self, folder, names):
        self.folder = pathlib.Path(folder)
        self.names = names

    def __enter__(self):
        guest.prepare()
        ports = {name: free_port() for name in [*self.names, "gone"]}
        self.files = {"/.ssh/authorized_keys": make_key(self.folder), "/usr/bin/dropbear": DROPBEAR}
        self.files.update({image.guest_path(library): library for library in image.libraries(DROPBEAR)})
        write_configuration(self.folder, ports)
        self.pool = concurrent.futures.ThreadPoolExecutor(len(self.names))
        self.boots = [self.pool.submit(self.boot, ports[name]) for name in self.names]
        try:
            for name in self.names:
                self.wait_for(name)
        except BaseException:
            self.__exit__()
            raise
        return self

    def boot(self, port):
        machine = guest.Machine(devices=["e1000,netdev=net"], seconds=SECONDS,
                                qemu=["-netdev", f"user,id=net,restrict=on,hostfwd=tcp:127.0.0.1:{port}-:22"])
        return guest.run(machine, [guest.Command(SERVE, seconds=SECONDS)], self.files)

    def ssh(self, name, command):
        return subprocess.run(["ssh", "-F", self.folder / "ssh_config", "-l", "root", name, command], text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=60, check=False)

    def wait_for(self, name):
        deadline = time.monotonic() + SECONDS
        while (tried := self.ssh(name, "true")).returncode != 0:
            for boot in self.boots:
                assert not boot.done(), boot.exception() or boot.result()
            assert time.monotonic() < deadline, f"{name} does not let in: {tried.stderr}"
            time.sleep(0.5)

    def clush(self, words):
        """Runs `clush WORDS` as a shell does."""
        environment = {**os.environ, "CLUSTERSHELL_CFGDIR": str(self.folder), "LC_ALL": "C.UTF-8"}
        return subprocess.run(["bash", "-c", f"clush {words}"], env=environment, text=True, stdin=subprocess.DEVNULL,
                              capture_output=True, timeout=120, check=False)

    def __exit__(self, *_):
        for name in self.names:
            self.ssh(name, "touch /tmp/over")
        self.pool.shutdown()
