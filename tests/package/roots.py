"""Debian systems in folders, and what runs in them. As root.

They are made once for what debian/control asks for, in $HWREG_BUILD/package (default: build/package), each upon the one
before it:

  clean     what debootstrap calls a minimal system, with man-db, bash-completion and what the packages depend on in
            apt's cache, so that they can be installed without a network
  builder   what Debian builds packages in: a minimal system, build-essential and the Build-Depends
  releaser  what scripts/release needs beside that
"""

import dataclasses
import fcntl
import hashlib
import inspect
import os
import pathlib
import re
import shutil
import stat
import subprocess

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
FOLDER = BUILD / "package"
MIRROR = os.environ.get("HWREG_DEBIAN_MIRROR", "http://deb.debian.org/debian")

# What changes whenever packages come and go, whatever they are.
BOOKKEEPING = ("proc", "dev", "tmp", "var/cache", "var/log", "var/lib/apt", "var/lib/dpkg", "root")
ENVIRONMENT = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root",
               "LC_ALL": "C.UTF-8", "DEBIAN_FRONTEND": "noninteractive"}


def output(*words, **options):
    return subprocess.run(words, stdout=subprocess.PIPE, text=True, check=True, **options).stdout


def field(package, name):
    return output("dpkg-deb", "-f", package, name).strip()


@dataclasses.dataclass
class Root:
    """A system in a folder."""

    path: pathlib.Path

    def run(self, *words, user="root", shell="bash", **environment):
        """Runs a command there, with the mounts that it needs for as long as it runs. A single word is for a shell."""
        words = [*shell.split(), "-c", words[0]] if len(words) == 1 else words
        for folder in ("proc", "dev/pts"):
            (self.path / folder).mkdir(parents=True, exist_ok=True)
        mounted = 'mount -t proc proc "$0/proc" && mount -t devpts devpts "$0/dev/pts" && exec chroot "$@"'
        inside = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-c", mounted, self.path]
        return subprocess.run([*inside, f"--userspec={user}", self.path, *words], env={**ENVIRONMENT, **environment},
                              text=True, stdin=subprocess.DEVNULL, capture_output=True, timeout=900, check=False)

    def must(self, *words, **options):
        ran = self.run(*words, **options)
        assert ran.returncode == 0, ran.stdout + ran.stderr
        return ran.stdout

    def files(self):
        """What lies there: for each path the kind and mode, for a file also its size and time of change."""
        found = {}
        for folder, folders, names in os.walk(self.path):
            inside = os.path.relpath(folder, self.path)
            folders[:] = [name for name in folders if os.path.normpath(f"{inside}/{name}") not in BOOKKEEPING]
            for name in folders + names:
                path = os.path.join(folder, name)
                status = os.lstat(path)
                contents = () if stat.S_ISDIR(status.st_mode) else (status.st_size, status.st_mtime_ns)
                found[os.path.relpath(path, self.path)] = (status.st_mode, *contents)
        return found

    def copy(self, name):
        """A copy of it, to be changed, beside it."""
        path = FOLDER / "work" / name
        shutil.rmtree(path, ignore_errors=True)
        path.parent.mkdir(exist_ok=True)
        subprocess.run(["cp", "-a", self.path, path], check=True)
        return Root(path)


def make_clean(root, control):
    subprocess.run(["debootstrap", "--variant=minbase", "--include=man-db,bash-completion", "bookworm", root.path,
                    MIRROR], check=True, stdout=subprocess.DEVNULL)
    root.must("rm -f /var/cache/apt/archives/*.deb")
    wanted = re.findall(r"^(?:Depends|Recommends): (.*)", control, re.MULTILINE)
    foreign = [name for names in wanted for name in names.split(", ") if "$" not in name and "hwreg" not in name]
    foreign = ", ".join([*foreign, "python3"])
    root.must("apt-get", "satisfy", "-y", "--no-install-recommends", "--download-only", foreign)
    root.must("cd /root && apt-get download busybox-static")


def make_builder(root, control):
    folder = root.path / "tmp" / "hwreg" / "debian"
    folder.mkdir(parents=True)
    (folder / "control").write_text(control)
    root.must("apt-get build-dep -y --no-install-recommends /tmp/hwreg")


def make_releaser(root, _control):
    root.must("apt-get install -y --no-install-recommends git rpm faketime && chmod 1777 /dev/shm")


def made(name, maker, model=None):
    """The root of that name, made by the maker in a copy of the model unless it is there and was made so."""
    root = Root(FOLDER / name)
    control = (TOP / "debian" / "control").read_text()
    makers = "".join(map(inspect.getsource, (make_clean, make_builder, make_releaser)))
    fingerprint = hashlib.sha256((control + makers).encode()).hexdigest()
    seal = FOLDER / f"{name}.made"
    FOLDER.mkdir(parents=True, exist_ok=True)
    with open(FOLDER / f"{name}.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not seal.exists() or seal.read_text() != fingerprint:
            seal.unlink(missing_ok=True)
            shutil.rmtree(root.path, ignore_errors=True)
            if model:
                subprocess.run(["cp", "-a", model.path, root.path], check=True)
            maker(root, control)
            seal.write_text(fingerprint)
    return root


def clean():
    return made("clean", make_clean)


def builder():
    return made("builder", make_builder, clean())


def releaser():
    return made("releaser", make_releaser, builder())


def run_release(root, source, place, *command, **options):
    """Runs scripts/release of a copy of the source at a place of the root; gives the folder that it has made."""
    folder = root.path / place.lstrip("/")
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    subprocess.run(["cp", "-a", source, folder / "hwreg"], check=True)
    if options.get("user"):
        subprocess.run(["chroot", root.path, "chown", "-R", options["user"], place], check=True)
    ran = root.run(*command, f"{place}/hwreg/scripts/release", f"{place}/out", **options)
    assert ran.returncode == 0, (ran.stdout + ran.stderr)[-5000:]
    return folder / "out"
