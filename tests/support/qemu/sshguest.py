"""What a guest needs to serve ssh, and what ssh needs to reach it.

    key = sshguest.make_key(folder)
    guest.run(sshguest.reached_at(port, Machine()), [sshguest.serve(seconds)], sshguest.files(key))

The server is the host's dropbear behind an emulated network card; the guest's port 22 is a port of 127.0.0.1 here. A
guest serves until it has a file /tmp/over.
"""

import dataclasses
import socket
import subprocess

import image
from guest import Command

DROPBEAR = "/usr/sbin/dropbear"
SERVE = """
chmod go-w / /.ssh; mkdir -p /etc/dropbear
modprobe e1000 && ifconfig eth0 10.0.2.15 netmask 255.255.255.0 up && dropbear -R -s || exit 1
until [ -e /tmp/over ]; do sleep 0.2; done
"""


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def make_key(folder, name="key"):
    """Makes the file and gives its public half."""
    subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / name], check=True)
    return (folder / f"{name}.pub").read_bytes()


def files(public_key):
    """What the guest has besides, as guest.run takes it."""
    libraries = {image.guest_path(library): library for library in image.libraries(DROPBEAR)}
    return {"/.ssh/authorized_keys": public_key, "/usr/bin/dropbear": DROPBEAR, **libraries}


def reached_at(port, machine):
    """The machine with a card that leads to it from a port of this one."""
    forward = f"user,id=net,restrict=on,hostfwd=tcp:127.0.0.1:{port}-:22"
    return dataclasses.replace(machine, devices=[*machine.devices, "e1000,netdev=net"],
                               qemu=[*machine.qemu, "-netdev", forward])


def serve(seconds, before=""):
    """The command that a guest serves with for at most so long."""
    return Command(before + SERVE, seconds=seconds)


def write_configuration(folder, ports):
    """The file `ssh_config`: where each guest listens, by its name."""
    hosts = [f"Host {name}\n  Port {port}\n" for name, port in ports.items()]
    common = ["Host *", "HostName 127.0.0.1", f"IdentityFile {folder}/key", "IdentitiesOnly yes", "BatchMode yes",
              "StrictHostKeyChecking accept-new", f"UserKnownHostsFile {folder}/known_hosts", "LogLevel ERROR",
              "ConnectTimeout 20"]
    (folder / "ssh_config").write_text("".join(hosts) + "\n".join(common) + "\n")
