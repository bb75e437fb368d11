"""Boots a machine under QEMU, runs commands in it and gives back how each ended and what it printed.

    from guest import Machine, run
    boot = run(Machine(smp=2), ["hwreg /PCI /DUMP /NOMSG", ["hwreg", "/PCI", "/RB", "0", "0", "0", "0"]])
    print(boot.results[0].stdout, boot.results[1].status)

All of it is emulated (no KVM), so the values are those of QEMU's device models on every host.
"""

import functools
import hashlib
import io
import os
import shutil
import subprocess
import tarfile
import tempfile
from dataclasses import dataclass, field

import cpio
import image

HERE = os.path.dirname(os.path.abspath(__file__))
BUILD = os.path.abspath(os.environ.get("HWREG_BUILD", f"{HERE}/../../../build"))
GUEST = f"{BUILD}/guest"

def built(name):
    """The path of a program under test in the build folder: with HWREG_KIND=static the one that is one file."""
    kind = os.environ.get("HWREG_KIND", "")
    return f"{BUILD}/{name}{kind and '-'}{kind}"


PROGRAM = os.path.abspath(os.environ.get("HWREG", built("hwreg")))

# norandmaps: with random addresses QEMU translates every program afresh at each start. mitigations=off: the detours
# around a processor's guesses cost an emulated one a quarter of the time that starting a program takes. no_timer_check:
# on a busy machine the timer's interrupts come too late for a kernel that looks whether they come.
FIXED_APPEND = "console=ttyS0 quiet panic=-1 norandmaps mitigations=off no_timer_check"


@dataclass
class Machine:
    """What is booted. `devices` and `qemu` are what follows -device, and further words for QEMU.

    Without iomem=relaxed in `append` the kernel refuses to map what it or a driver claims, the PCI window among it.
    """

    machine: str = "q35"
    firmware: str = "seabios"  # or "ovmf"
    sleeps: bool = False  # QEMU loads an unpacked kernel anew when the machine wakes, and so ends what was running
    smp: int = 1
    threads: str = "single"  # or "multi": its CPUs run side by side, and each command takes nearly twice the time
    memory: int = 512  # MiB
    cpu: str = ""
    devices: list = field(default_factory=list)
    append: str = "iomem=relaxed"
    qemu: list = field(default_factory=list)
    seconds: int = 1500  # for the whole boot: ends what hangs, on a busy machine, too


@dataclass
class Command:
    """One command. `words` is a list, run as it is, or a text, run by the guest's shell. A shell reports a child that
    a signal ended as status 128 + signal, so give a list when the status matters."""

    words: object
    user: int = 0
    stdin: bytes = b""
    seconds: int = 600


@dataclass
class Result:
    """How one command ended: exactly one of `status`, `signal` and `timeout` is set. Output is text in which each
    character is one byte."""

    status: int = None
    signal: int = None
    timeout: bool = False
    stdout: str = ""
    stderr: str = ""

    @property
    def ending(self):
        if self.timeout:
            return "timeout"
        return f"signal {self.signal}" if self.status is None else f"exit {self.status}"


@dataclass
class Boot:
    """What came back. `files` holds the contents of the files asked for, by guest path; `qemu_status` is QEMU's own
    exit status."""

    results: list
    files: dict
    console: str
    qemu_status: int


class GuestError(Exception):
    """The guest gave no results. The text says why and where its console log is."""


@functools.lru_cache
def prepare():
    """Makes kernel, initial file system and runner where they are not there yet."""
    environment = dict(os.environ, HWREG_BUILD=BUILD)
    done = subprocess.run([f"{HERE}/prepare"], env=environment, stdout=subprocess.DEVNULL, check=False)
    if done.returncode:
        raise GuestError("tests/support/qemu/prepare failed, see above")


def run(machine, commands, files=None, fetch=(), ends_itself=False):
    """Boots `machine`, runs `commands` (Command, list or text) in order and gives a Boot.

    `files` maps guest paths to contents: bytes, or the path of a file of the host, which keeps its permission bits.
    `fetch` lists guest paths of files to bring back. With `ends_itself` the commands are expected to end the machine
    (a reset, a debug-exit port): no results are awaited.
    """
    prepare()
    with tempfile.TemporaryDirectory(prefix="hwreg-guest-") as scratch:
        words = lay_out(scratch, machine, commands, files, fetch)
        status = run_qemu(words, machine.seconds, scratch)
        console = read_bytes(f"{scratch}/console").decode("latin-1")
        if ends_itself:
            return Boot([], {}, console, status)
        archive = received(console, read_bytes(f"{scratch}/results"))
        if archive is None:
            raise GuestError(keep_log(console, status))
        return unpack(archive, len(commands), fetch, console, status)


def lay_out(scratch, machine, commands, files=None, fetch=()):
    """Writes into a folder what QEMU needs to boot `machine`; gives QEMU's command line. Arguments as those of run."""
    commands = [command if isinstance(command, Command) else Command(command) for command in commands]
    write_overlay(f"{scratch}/overlay.cpio", commands, files or {}, fetch)
    with open(f"{scratch}/initrd", "wb") as initrd:
        for part in (f"{GUEST}/base.cpio", f"{scratch}/overlay.cpio"):
            with open(part, "rb") as stream:
                shutil.copyfileobj(stream, initrd)
    return qemu_command(machine, scratch)


def write_overlay(path, commands, files, fetch):
    """The second archive: the program under test with its libraries, the commands, and the caller's files."""
    with open(path, "wb") as stream:
        archive = cpio.Archive(stream)
        archive.copy(PROGRAM, "usr/bin/hwreg")
        for library in image.libraries(PROGRAM):
            archive.copy(library, image.guest_path(library))
        archive.folder("commands")
        for number, command in enumerate(commands):
            words = ["sh", "-c", command.words] if isinstance(command.words, str) else command.words
            folder = f"commands/{number:04}"
            archive.file(f"{folder}/argv", b"".join(word.encode() + b"\0" for word in words))
            archive.file(f"{folder}/user", str(command.user).encode())
            archive.file(f"{folder}/seconds", str(command.seconds).encode())
            archive.file(f"{folder}/stdin", command.stdin)
        archive.file("commands/fetch", "".join(f"{name}\n" for name in fetch).encode())
        for name, content in files.items():
            if isinstance(content, bytes):
                archive.file(name, content, 0o755)
            else:
                archive.copy(content, name)
        archive.close()


def qemu_command(machine, scratch):
    words = ["qemu-system-x86_64", "-accel", f"tcg,thread={machine.threads}", "-machine", machine.machine]
    words += ["-smp", str(machine.smp), "-m", str(machine.memory), "-no-reboot"]
    words += ["-nodefaults", "-display", "none", "-monitor", "none"]
    words += ["-serial", f"file:{scratch}/console", "-serial", f"file:{scratch}/results"]
    kernel = "vmlinuz" if machine.firmware == "ovmf" or machine.sleeps else "vmlinux"
    words += ["-kernel", f"{GUEST}/{kernel}", "-initrd", f"{scratch}/initrd"]
    words += ["-append", f"{FIXED_APPEND} {machine.append}"]
    if machine.cpu:
        words += ["-cpu", machine.cpu]
    if machine.firmware == "ovmf":
        shutil.copy("/usr/share/OVMF/OVMF_VARS_4M.fd", f"{scratch}/variables")
        words += ["-drive", "if=pflash,format=raw,readonly=on,file=/usr/share/OVMF/OVMF_CODE_4M.fd"]
        words += ["-drive", f"if=pflash,format=raw,file={scratch}/variables"]
    for device in machine.devices:
        words += ["-device", device]
    return words + machine.qemu


def run_qemu(words, seconds, scratch):
    """QEMU's exit status, or None when the time was up. What QEMU itself complains about is put on the console log."""
    with open(f"{scratch}/complaints", "wb") as complaints:
        try:
            status = subprocess.run(
                words, stdin=subprocess.DEVNULL, stdout=complaints, stderr=complaints, timeout=seconds, check=False
            ).returncode
        except subprocess.TimeoutExpired:
            status = None
    with open(f"{scratch}/console", "ab") as console:
        console.write(read_bytes(f"{scratch}/complaints"))
    return status


def read_bytes(path):
    if not os.path.exists(path):
        return b""
    with open(path, "rb") as stream:
        return stream.read()


def received(console, raw):
    """The archive that arrived on the second serial port, or None unless it is whole. Firmware may have written its
    screen output there before, so it is the last bytes that count."""
    lines = [line.split() for line in console.splitlines() if line.startswith("RESULTS ")]
    if not lines or len(lines[-1]) != 3:
        return None
    archive = raw[-int(lines[-1][1]):]
    return archive if hashlib.sha256(archive).hexdigest() == lines[-1][2] else None


def keep_log(console, status):
    """Keeps the console log under the build folder; gives the text of the error."""
    os.makedirs(f"{GUEST}/logs", exist_ok=True)
    handle, path = tempfile.mkstemp(prefix="console-", suffix=".log", dir=f"{GUEST}/logs")
    with os.fdopen(handle, "w", encoding="latin-1") as stream:
        stream.write(console)
    why = "its time was up" if status is None else f"QEMU ended with status {status}"
    tail = "\n".join(console.splitlines()[-15:])
    return f"the guest did not give all results: {why}; its console ({path}) ends with:\n{tail}"


def unpack(archive, count, fetch, console, status):
    with tarfile.open(fileobj=io.BytesIO(archive)) as tar:
        contents = {os.path.normpath(m.name): tar.extractfile(m).read() for m in tar.getmembers() if m.isfile()}
    results = []
    for number in range(count):
        if f"{number:04}/status" not in contents:
            raise GuestError(keep_log(console, status))
        names = (f"{number:04}/{name}" for name in ("status", "stdout", "stderr"))
        ending, out, err = (contents[name].decode("latin-1") for name in names)
        result = Result(stdout=out, stderr=err)
        if ending == "timeout":
            result.timeout = True
        elif ending.startswith("exit "):
            result.status = int(ending[5:])
        else:
            result.signal = int(ending.removeprefix("signal "))
        results.append(result)
    wanted = {name: f"files/{name.lstrip('/')}" for name in fetch}
    files = {name: contents[path] for name, path in wanted.items() if path in contents}
    return Boot(results, files, console, status)
