"""Makes the kernels and the base initial file system of the guest from the unpacked packages; run by `prepare`.

The latter holds a shell (dash, which unlike busybox's runs what PATH says), busybox for everything ordinary, kmod, the
peers that the program is compared with, and the kernel's modules that they or later tests need. What is under
test comes in a second archive, which `guest.py` writes for each boot.
"""

import glob
import lzma
import os
import struct
import subprocess
import sys

import cpio

HERE = os.path.dirname(os.path.abspath(__file__))

# Found in the packages; every one of them hides the busybox applet of the same name.
PROGRAMS = """
    dash kmod lspci setpci rdmsr wrmsr cpuid inb inw inl outb outw outl memtool dmidecode
    i2cdetect i2cdump i2cget i2cset i2ctransfer acpidump taskset rtcwake hwclock flock unshare setpriv
    isadump isaset
""".split()

# Other names that these programs are known by.
KMOD_NAMES = ("modprobe", "insmod", "rmmod", "lsmod", "modinfo")
ALIASES = {"sh": "dash", **dict.fromkeys(KMOD_NAMES, "kmod")}

# With all that they depend on.
MODULES = """
    msr cpuid i2c-dev i2c-i801 i2c-piix4 ee1004 ahci ata_piix ata_generic sd_mod
    ext4 crc32c_generic nvme e1000 e1000e nvram
""".split()


def libraries(program, search=()):
    """The shared libraries, loader included, that a program loads: a list of host paths. `search` holds
    folders to look in first. A static program gives an empty list."""
    environment = dict(os.environ, LD_LIBRARY_PATH=":".join(search))
    listing = subprocess.run(["ldd", program], env=environment, capture_output=True, text=True, check=False)
    if "not found" in listing.stdout:
        raise SystemExit(f"{program} needs what neither the host nor the packages have:\n{listing.stdout}")
    paths = []
    for line in listing.stdout.splitlines():
        words = line.split()
        path = words[2] if "=>" in words else words[0]
        if path.startswith("/"):
            paths.append(path)
    return paths


def guest_path(library):
    """Where a library of the host goes in the guest: the loader's path is fixed in every program."""
    name = os.path.basename(library)
    return f"/usr/lib64/{name}" if name.startswith("ld-linux") else f"/usr/lib/x86_64-linux-gnu/{name}"


def find_program(tree, name):
    for folder in ("usr/bin", "usr/sbin", "bin", "sbin"):
        path = f"{tree}/{folder}/{name}"
        if os.path.exists(path):
            return path
    raise SystemExit(f"no package has the program {name}")


def add_skeleton(archive):
    for link in ("bin", "sbin"):
        archive.link(link, "usr/bin")
    archive.link("lib", "usr/lib")
    archive.link("lib64", "usr/lib64")
    archive.link("usr/sbin", "bin")
    for folder in ("proc", "sys", "dev", "run", "run/lock", "etc", "results"):
        archive.folder(folder)
    archive.folder("tmp", 0o1777)
    archive.character_device("dev/console", 5, 1)
    archive.character_device("dev/null", 1, 3)
    archive.file("etc/passwd", b"root:x:0:0::/:/bin/sh\nuser:x:1000:1000::/tmp:/bin/sh\n")
    archive.copy(f"{HERE}/init", "init")


def add_programs(archive, tree):
    search = [f"{tree}/lib/x86_64-linux-gnu", f"{tree}/usr/lib/x86_64-linux-gnu"]
    for name in PROGRAMS:
        program = find_program(tree, name)
        archive.copy(program, f"usr/bin/{name}")
        for library in libraries(program, search):
            archive.copy(library, guest_path(library))
    for name, target in ALIASES.items():
        archive.link(f"usr/bin/{name}", target)
    busybox = find_program(tree, "busybox")
    archive.copy(busybox, "usr/bin/busybox")
    applets = subprocess.run([busybox, "--list"], capture_output=True, text=True, check=True).stdout.split()
    for name in applets:
        archive.link(f"usr/bin/{name}", "busybox")  # a name that is taken stays as it is
    archive.copy(f"{tree}/usr/share/misc/pci.ids", "usr/share/misc/pci.ids")


def module_name(path):
    return os.path.basename(path).removesuffix(".ko").replace("-", "_")


def add_modules(archive, tree):
    release = os.path.basename(glob.glob(f"{tree}/lib/modules/*")[0])
    folder = f"lib/modules/{release}"
    kmod = find_program(tree, "kmod")
    environment = dict(os.environ, LD_LIBRARY_PATH=f"{tree}/lib/x86_64-linux-gnu:{tree}/usr/lib/x86_64-linux-gnu")
    subprocess.run(["depmod", "-b", tree, release], executable=kmod, env=environment, check=True)
    needs = {}
    with open(f"{tree}/{folder}/modules.dep", encoding="ascii") as stream:
        for line in stream:
            path, _, others = line.partition(":")
            needs[module_name(path)] = [path, *others.split()]
    for name in MODULES:
        for path in needs[name.replace("-", "_")]:
            archive.copy(f"{tree}/{folder}/{path}", f"usr/{folder}/{path}")
    for index in glob.glob(f"{tree}/{folder}/modules.*"):
        archive.copy(index, f"usr/{folder}/{os.path.basename(index)}")


def unpacked_kernel(image):
    """The kernel within an image for PCs (its documentation: x86/boot.rst), as QEMU starts it, too: unpacking itself in
    the guest takes more than half of a start. An image that is not packed by xz is given as it is."""
    setup_sectors = image[0x1F1]
    offset, length = struct.unpack_from("<II", image, 0x248)
    begin = (setup_sectors + 1) * 512 + offset
    packed = image[begin:begin + length]
    return lzma.LZMADecompressor().decompress(packed) if packed.startswith(b"\xfd7zXZ") else image


def write_kernels(guest, tree):
    with open(glob.glob(f"{tree}/boot/vmlinuz-*")[0], "rb") as stream:
        image = stream.read()
    for name, content in ("vmlinuz", image), ("vmlinux", unpacked_kernel(image)):
        with open(f"{guest}/{name}", "wb") as stream:
            stream.write(content)


def main(guest):
    tree = f"{guest}/tree"
    write_kernels(guest, tree)
    with open(f"{guest}/base.cpio.new", "wb") as stream:
        archive = cpio.Archive(stream)
        add_skeleton(archive)
        archive.copy(f"{guest}/runner", "usr/bin/runner")
        add_programs(archive, tree)
        add_modules(archive, tree)
        archive.close()
    os.rename(f"{guest}/base.cpio.new", f"{guest}/base.cpio")


if __name__ == "__main__":
    main(sys.argv[1])
