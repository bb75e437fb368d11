#!/usr/bin/env python3
"""Fetches the Debian source packages that hold dumps of machines, and unpacks the dumps.

    fetch.py [FOLDER]     FOLDER: $HWREG_BUILD/machines unless given

What is unpacked stands in FOLDER/debian, a folder for each kind as README.md tells. apt gets lists, archives and
sources of its own in FOLDER/apt, so nothing of this computer's is changed; who runs this need not be root. Each
package is pinned by its version and its archive by its checksum, so the tests know what they get. What is there
already is not fetched again. Ends with 1 when a package cannot be had; what the others hold is there all the same.
"""

import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile

MIRROR = "http://deb.debian.org/debian"
SUITE = "bookworm"
KEYS = "/usr/share/keyrings/debian-archive-keyring.gpg"

# source package, version, archive, its SHA-256, and kinds with the paths in it (without the first folder) to take.
# libvirt: leaves and MSRs of single processors as they were gathered; its other files are made of these.
PACKAGES = [
    ("pciutils", "1:3.9.0-4", "pciutils_3.9.0.orig.tar.gz",
     "8953a785b2e3af414434b8fdcbfb75c90758819631001e60dd3afb89b22b2331", {"lspci": r"tests/[^/]+"}),
    ("hwloc", "2.9.0-1", "hwloc_2.9.0.orig.tar.bz2",
     "b3fb1a43a14d8fbcd8e976de5ede2ea7ce1d768ed173adb33c7ceaaf098dc970",
     {"cpuid-msr": r"tests/hwloc/x86(\+linux)?/[^/]+\.tar\.bz2", "lspci": r"tests/hwloc/linux/[^/]+\.tar\.bz2"}),
    ("libvirt", "9.0.0-4+deb12u2", "libvirt_9.0.0.orig.tar.xz",
     "deca5cff1b7baac297bca9663907c61f71a47183371dc7ac019c107806d5435a",
     {"cpuid-msr": r"tests/cputestdata/x86_64-cpuid-(?!baseline)[^/]+(?<!-guest)(?<!-host)(?<!-json)"
                   r"(?<!-enabled)(?<!-disabled)\.xml"}),
    ("systemd", "252.39-1~deb12u2", "systemd_252.39.orig.tar.gz",
     "08a54a6c4d4cf969fc025eaa8922a55d6bc458100c242510b56c96e7d72af1c5",
     {"smbios": r"test/dmidecode-dumps/[^/]+\.bin"}),
    ("coreboot", "4.15~dfsg-3", "coreboot_4.15~dfsg.orig.tar.xz",
     "c762654ff939214ce3848025228e6b7c213fa6925000afcbd616dec749691250",
     {"spd": r"src/mainboard/.*/spd[^/]*\.bin|(src/mainboard|spd)/.*spd.*\.hex"}),
]  # fmt: skip


def apt_get(folder, *words):
    """apt-get with sources, lists and archives below the folder; what it says when it fails, else None."""
    apt = folder / "apt"
    for name in ("lists/partial", "cache/archives/partial"):
        (apt / name).mkdir(parents=True, exist_ok=True)
    (apt / "sources.list").write_text(f"deb-src [signed-by={KEYS}] {MIRROR} {SUITE} main\n")
    options = [f"Dir::Etc::SourceList={apt}/sources.list", "Dir::Etc::SourceParts=/dev/null",
               f"Dir::State::Lists={apt}/lists", f"Dir::Cache={apt}/cache", "APT::Sandbox::User=root",
               "Acquire::Retries=2"]
    command = ["apt-get", "-qq", *(word for option in options for word in ("-o", option)), *words]
    run = subprocess.run(command, cwd=apt, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True)
    return run.stdout if run.returncode else None


def is_right(path, checksum):
    return path.exists() and hashlib.sha256(path.read_bytes()).hexdigest() == checksum


def download(folder, name, version, archive, checksum):
    """Why the archive is not there, else None."""
    path = folder / "apt" / archive
    if is_right(path, checksum):
        return None
    path.unlink(missing_ok=True)
    said = apt_get(folder, "source", "--download-only", "--tar-only", f"{name}={version}")
    if said is not None:
        return said.strip()
    return None if is_right(path, checksum) else f"{archive} is not the one whose checksum is known"


def unpack(archive, name, kinds, folder):
    """Takes the files whose paths are wanted: FOLDER/KIND/PACKAGE-NAME, folders of the path in the name."""
    with tarfile.open(archive) as tar:
        for member in tar:
            path = member.name.partition("/")[2]
            kind = next((kind for kind, wanted in kinds.items() if re.fullmatch(wanted, path)), None)
            if kind is None or not member.isfile():
                continue
            (folder / kind).mkdir(parents=True, exist_ok=True)
            (folder / kind / f"{name}-{path.replace('/', '-')}").write_bytes(tar.extractfile(member).read())


def fetch(folder):
    """The packages that cannot be had, each with the reason."""
    failed = {}
    folder.mkdir(parents=True, exist_ok=True)
    stamps = folder / "unpacked"
    stamp = hashlib.sha256(pathlib.Path(__file__).read_bytes()).hexdigest()
    if stamps.exists() and stamps.read_text() == stamp:
        return failed
    shutil.rmtree(folder / "debian", ignore_errors=True)
    missing = [row for row in PACKAGES if not is_right(folder / "apt" / row[2], row[3])]
    if missing and (said := apt_get(folder, "update")) is not None:
        print(f"fetch.py: the lists of {MIRROR} cannot be had: {said.strip()}", file=sys.stderr)
    for name, version, archive, checksum, kinds in PACKAGES:
        reason = download(folder, name, version, archive, checksum)
        if reason is None:
            unpack(folder / "apt" / archive, name, kinds, folder / "debian")
        else:
            failed[f"{name} {version}"] = reason
    if not failed:
        stamps.write_text(stamp)
    return failed


def main():
    build = os.environ.get("HWREG_BUILD", pathlib.Path(__file__).resolve().parents[2] / "build")
    folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(build) / "machines").resolve()
    failed = fetch(folder)
    for package, reason in failed.items():
        print(f"fetch.py: Debian's source package {package} cannot be had:\n{reason}", file=sys.stderr)
    (folder / "failed").write_text("".join(f"{package}\n" for package in failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
