"""Guests under QEMU that serve ssh, as nodes of a fleet.

    with Nodes(folder, ["node1", "node2"]) as nodes:
        nodes.clush("-w @lab -b uptime")

Besides them the group @lab has `gone`, whose port nobody listens at.
"""

import concurrent.futures
import os
import pathlib
import subprocess
import time

import guest
import sshguest

SECONDS = 900  # that a guest may live


def write_configuration(folder, ports):
    """For ssh: where each node listens. For ClusterShell: who is in the lab, and that ssh reads the former."""
    sshguest.write_configuration(folder, ports)
    (folder / "clush.conf").write_text(f"[Main]\nssh_options: -F {folder}/ssh_config\n")
    (folder / "groups.conf").write_text("[Main]\ndefault: local\n[local]\nmap: echo " + ",".join(ports) + "\n")


class Nodes:
    def __init__(self, folder, names):
        self.folder = pathlib.Path(folder)
        self.names = names

    def __enter__(self):
        guest.prepare()
        ports = {name: sshguest.free_port() for name in [*self.names, "gone"]}
        self.files = sshguest.files(sshguest.make_key(self.folder))
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
        machine = sshguest.reached_at(port, guest.Machine(seconds=SECONDS))
        return guest.run(machine, [sshguest.serve(SECONDS)], self.files)

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
