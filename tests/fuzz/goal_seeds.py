"""First inputs of the fuzzers by goal that need some: command lines on machines that refuse something, board files.
Those of the others are what their runs have found (keep.py)."""

import pathlib

TOP = pathlib.Path(__file__).resolve().parents[2]

INTEL, AMD, BOARDS = 8, 9, 11  # of Doors.cpp's list
OUTPUT_LOST = 0x80
MORE_LINES = [
    "/RF /MEM F.BIN 0xF0000 0x40", "/RF /MEM F.BIN 0xFFFFFFF0 0x40", "/RF /MEM F.BIN 0 0", "/RF /RB", "/RF",
    "/ACPI", "/ACPI /DUMP", "/ACPI /?", "/MEM /S", "/MEM /S abc", "/MEM /S 0 0 abc", "/MSR", "/CPUID",
    "/IO /INDEX /DUMP 0x70 0x71", "/IO /INDEX /DUMP 0x70 0x71 /NOMSG", "/SMBUS /DUMP 0xA0", "/SMBUS /DUMP",
    "/SMBUS /RB 0xA1 3", "/SMBUS /DUMP 0x10", "/SIO /DUMP /LOG", "/SIO", "/PCI /DUMP 0 0 0 /NOMSG", "/PCI /DUMP",
    "/SMBIOS /S abc", "/SMBIOS /TYPE 4 /DUMP", "/SMBIOS /?", "/MEM /DUMP 0xFFFFFFF0 /LOG", "/IO /DUMP 0xFFF0 /LOG",
    "/SMN", "/SMN /RI 0 0x50000 3", "/SMN /WI 0 0x50000 3 1", "/SHUTDOWN /T 1", "/RTC 60 /T 1", "/MEM /DUMP 0 /NOMSG",
]  # fmt: skip
BOARD_TEXTS = {
    "capture": "capture 1\niopl ok\nend\n", "other-format": "capture 2\nend\n", "capture-late": "iopl ok\ncapture 1\n",
    "cut-off": "capture 1\niopl ok\n", "behind-end": "capture 1\nend\niopl ok\n", "end-alone": "end\n",
    "include": "include nomem.board\n", "include-none": "include none.board\n", "include-folder": "include /\n",
    "include-device": "include /dev/null\n", "include-itself": "include 300\n", "nothing": "# nothing\n",
    "systab": 'systab sys "SMBIOS=0xF0000"\nsystab sys "ACPI=0"\nsystab proc ENOENT\nsystab x y\nsystab sys y\n',
    "system": "system print shutdown\nsystem real\nsystem exit 3 modprobe\nsystem no\n",
    "cpuid": "cpuid 0 0 1 2 3 4 cpus 0-3,5\ncpuid 1 0 1 2 3 4 x\ncpuid 1\n",
    "cpus": "cpus 0-\ncpus 5-3\ncpus 0,\ncpus 2000\ncpus 0-3x\ncpus -\ncpus 0 2-3\n",
    "numbers": "bytes 0 ?? 0x1 1 zz 100\nfill 0 0x10 12\nfill 0 x 1\nfill 0 11112222333344445 1\nfill 0 0 0\n"
               "fill 1 4 address\nfill fffffff0 20 0\nlatch 80 10\nlatch 0x\n",
    "options": "msr 10 20 ro ro\nmsr 11 20 rw ff cpus 0-1\nmsr-nodes always\nmsr-nodes modprobe\nmsr-nodes never\n"
               "msr-nodes EIO\nmsr-nodes what\niopl EPERM\niopl no\nmem EACCES\n",
    "quotes": 'text 0 "a"b\n"iopl" ok\ntext 0 a\ntext 0 "a', "mark": "\ufeffiopl ok\n", "control": "iopl\x01 ok\n",
    "many-words": "bytes 0" + " 00" * 301 + "\n", "too-many": "iopl ok ok\n", "missing": "iopl\n",
    "no-bridge": "pci-ports\npci 00:1f.4 8086:1234 class 0c0500\nsmbus-host pci\n",
    "no-class": "pci-ports\npci 00:00.0 8086:1111 class 060000\npci 00:1f.4 8086:1234\nsmbus-host pci\n",
    "no-ports": "pci 00:00.0 8086:1111 class 060000\npci 00:1f.4 8086:1234 class 0c0500\nsmbus-host pci\n",
    "window": "ecam e0000000 1\npci 00:00.0 8086:1111 class 060000\npci 05:00.0 8086:2222 class 020000\n",
    "slaves": "pci-ports\npm-registers\npci 00:14.0 1022:790b class 0c0500\nsmbus-host pm 10\nsmbus-eeprom a0\n"
              "smbus-fill 0 100 counting\nsmbus-bytes 2 0c\nsmbus-spd a2\nsmbus-remove a0\n",
    "cores": "i2c-core fedc2000\ni2c-device 50 refuses 2\ni2c-words 0 1234\n",
    "empty": "", "a-thousand": "x\n" * 1001,
    "files": 'file-bytes "/proc/x" 0 1 2\nfile "/proc/x" "line"\nfile "/proc/y" ENOENT\nfile 1000 none\n',
}  # fmt: skip


def slug(words):
    return "".join(c if c.isalnum() else "-" for c in "-".join(words)).strip("-").lower()[:60]


def doors_seeds(forms):
    """Each form on a machine that refuses something, and with a block that is refused; and lines for what is rare."""
    for number, words in enumerate(forms):
        made = "".join(f"{word}\n" for word in words).encode()
        usual = AMD if words and words[0] in ("/I2C", "/SMN", "/SMU") else INTEL
        for board, refusal in (number % BOARDS, 0), (usual, number % 8 + 1):
            yield f"{slug(words)}-{board}-{refusal}", bytes([board, refusal]) + made
    for line in MORE_LINES:
        made = "".join(f"{word}\n" for word in line.split()).encode()
        for board in INTEL, AMD:
            for refusal in 0, 1, 2, OUTPUT_LOST:
                yield f"more-{slug(line.split())}-{board}-{refusal}", bytes([board, refusal]) + made


def boards_seeds():
    for path in sorted((TOP / "sim" / "boards").glob("*.board")):
        yield path.stem, path.read_bytes()
    for name, text in BOARD_TEXTS.items():
        yield f"text-{name}", text.encode()


# What a long chain of choices leads to: a class that no function has.
ABSENT = {"platform": {"absent-class": bytes([5, 0, 0, 0xA5])},
          "caps": {"absent-class": bytes([2, 0, 0, 0xA5, 0])}}
