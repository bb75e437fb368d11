#!/usr/bin/python3
"""Writes the fuzzers' first inputs (seeds/) and their dictionaries, from real cases.

    tests/fuzz/make_seeds.py                           makes them; builds the fuzzers, which record what devices answer
    tests/fuzz/make_seeds.py --found FUZZER FILE WHAT  keeps an input that has found a fault, under the name found-WHAT

words: the forms and the examples of docs/commands.txt. tables: the boards' firmware with each command line, and a
number of the corrupt ones that tests/support makes. devices: for each command line what the board's own devices have
answered. keys: for each command line some keys. The formats are described in Fuzzers.h. goal_seeds.py has those of the
fuzzers by goal. What keep.py and --found have kept stays.
"""

import argparse
import itertools
import os
import pathlib
import re
import shlex
import struct
import subprocess
import sys
import tempfile

import archive
import goal_seeds
import keep

FUZZ = pathlib.Path(__file__).resolve().parent
TOP = FUZZ.parents[1]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
sys.path.insert(0, str(TOP / "tests" / "support"))

import corrupt_firmware  # noqa: E402
import firmware  # noqa: E402

OPERANDS = {
    "port": "0x80", "data": "0x12", "bit": "3", "value": "1", "index-port": "0x70", "data-port": "0x71",
    "register": "0x20", "address": "0xF0000", "length": "0x40", "text": "text", "file": "DUMP.BIN", "bus": "0",
    "device": "0x1F", "function": "4", "offset": "0x10", "cpu": "0", "msr": "0x10", "high": "0", "low": "1",
    "leaf": "1",
    "slave": "0xA0", "from": "0xA0", "to": "0xAE", "controller": "0", "die": "0", "message": "2", "argument": "1",
    "type": "17", "seconds": "60", "delay": "2",
}
AMD_ONLY = ("/I2C", "/SMN", "/SMU")
CORRUPT_TABLES = 40
MAX_ANSWERS = 1024
REST = 0xFF
PCI_PORTS, OTHER_PORTS, DEVICE_MEMORY, MSRS = 1, 2, 4, 8  # the doors of Board.h
CONFIGURATION_WINDOWS = (range(0xE0000000, 0xF0000000), range(0xF8000000, 0xFC000000))
FOUND = "found-"
KEYS = {"none": b"", "lines": b"\n\n\n\n\n\n", "esc": b" \x1b", "others": b"q\x03\x1a\xff\x00\x1b[A\n"}


def slug(text):
    return re.sub(r"[^A-Za-z0-9]+", "-", text).strip("-").lower()[:60]


def command_lines(name):
    lines = [line.split("#")[0].split() for line in (FUZZ / f"{name}.commands").read_text().splitlines()]
    return [(words[0], words[1:]) for words in lines if words]


def one_byte(values):
    return bytes(value & 0xFF for value in values)


def alternatives(word):
    """The words that a part of a form may stand for; None where it is left out."""
    optional = word.startswith("[")
    word = word.strip("[].")
    choices = [OPERANDS.get(choice, choice) for choice in word.split("|")]
    return [*choices, None] if optional else choices


def forms():
    for line in re.findall(r"^  (/[A-Z0-9].*)$", (TOP / "docs" / "commands.txt").read_text(), re.M):
        if not set(re.findall(r"\b[a-z][a-z-]*\b", line)) <= OPERANDS.keys():
            continue
        for choice in itertools.product(*map(alternatives, line.replace(", ", " ").split())):
            yield [word for word in choice if word is not None]


def examples():
    for line in re.findall(r"^ +\$ hwreg-sim (.*)$", (TOP / "docs" / "commands.txt").read_text(), re.M):
        words = shlex.split(re.split(r" *[|;>&]", line)[0])
        if words[:1] == ["--board"]:
            words = words[2:]
        if not any(word.startswith("--") for word in words):
            yield words


def words_seeds():
    for words in [*forms(), *examples(), ["/?"], ["/IO", "/?"], []]:
        board = "amd" if words and words[0].startswith(AMD_ONLY) else "intel"
        yield slug("-".join([board, *words])), board[:1].encode() + "".join(f"{w}\n" for w in words).encode()


def table_input(line, word, systab, pieces):
    text = "".join(f"{entry}\n" for entry in systab or ()).encode()
    made = one_byte([line, len(word)]) + word.encode() + one_byte([len(text)]) + text
    for address, data in pieces:
        made += struct.pack("<IH", address, len(data)) + data
    return made


def line_of(words, lines):
    """The line that begins a command line of at most one word more, and that word."""
    for count in (len(words), len(words) - 1):
        for number, (_, line) in enumerate(lines):
            if line == words[:count]:
                return number, "".join(words[count:])
    raise ValueError(words)


def tables_seeds():
    lines = command_lines("tables")
    sound = {"intel": (firmware.INTEL_SYSTAB, firmware.intel_memory()), "amd": ([], firmware.amd_memory())}
    for number, (_, words) in enumerate(lines):
        word = {"/TYPE": "4", "/S": "Simulated"}.get(words[-1], "")
        for board, (systab, memory) in sound.items():
            yield slug("-".join([board, *words, word])), table_input(number, word, systab, memory)
    for number in range(CORRUPT_TABLES):
        case = corrupt_firmware.make_case(f"seed:{number}")
        if max((len(data) for _, data in case.pieces), default=0) < 2000:
            made = table_input(*line_of(case.words, lines), case.systab, case.pieces)
            yield slug("-".join([f"corrupt-{number:02}", *case.words])), made


def read_of(line):
    """Door, width and value of a read in the board's log; None for other lines."""
    words = line.split()
    if words[0].startswith("in"):
        port = int(words[1], 16)
        width = int(words[0][2:]) // 8
        return PCI_PORTS if 0xCF8 <= port < 0xD00 else OTHER_PORTS, width, int(words[-1], 16), False
    if words[0].startswith(("mr", "ms")) and "->" in words:
        address = int(words[1], 16)
        configuration = any(address in window for window in CONFIGURATION_WINDOWS)
        return DEVICE_MEMORY, int(words[0][2:]) // 8, int(words[-1], 16), configuration
    if words[0] == "pread" and words[1].endswith("msr") and not words[-1].startswith("E"):
        return MSRS, 8, int(words[-1], 16), False
    return None


def answers(reads, doors):
    taken = b"".join(value.to_bytes(width, "little") for door, width, value, _ in reads if door & doors)
    return taken[:MAX_ANSWERS]


def accesses(shown):
    """The log of what `hwreg_fuzz NAME --show FILE` has shown, which stands behind status and output."""
    return shown.partition("--- accesses\n")[2].splitlines()


def record(number):
    """What the devices answer when they are left alone."""
    with tempfile.TemporaryDirectory() as folder:
        file = pathlib.Path(folder) / "input"
        file.write_bytes(one_byte([number, 0]))
        shown = subprocess.run([BUILD / "fuzz" / "hwreg_fuzz", "devices", "--show", file], stdout=subprocess.PIPE,
                               check=True, timeout=60).stdout.decode("latin-1")
        return [read for read in map(read_of, accesses(shown)) if read]


def devices_seeds():
    for number, (board, words) in enumerate(command_lines("devices")):
        reads = record(number)
        beside_pci = 0
        for door, _, _, configuration in reads:
            if door != PCI_PORTS and not configuration:
                beside_pci |= door
        every = PCI_PORTS | OTHER_PORTS | DEVICE_MEMORY | MSRS
        for name, doors in {"all": every, "device": beside_pci}.items():
            if doors:
                made = one_byte([number, doors, REST]) + answers(reads, doors)
                yield slug("-".join([name, board, *words])), made


def keys_seeds():
    for number, (board, words) in enumerate(command_lines("keys")):
        for index, (name, keys) in enumerate(KEYS.items()):
            terminal = (number + index) % 2
            kind = "terminal" if terminal else "pipe"
            yield slug("-".join([kind, name, board, *words])), one_byte([number, terminal]) + keys


def write_dictionary(name, tokens):
    lines = [f'"{re.sub(r"[^ !#-[^-~]", lambda c: f"x{ord(c[0]):02x}".join((chr(92), "")), token)}"' for token in
             tokens]
    (FUZZ / f"{name}.dict").write_text("".join(f"{line}\n" for line in lines))


def make_dictionaries():
    switches = re.findall(r'^    \{"([^"]+)", Flag::', (TOP / "Main" / "Parser.cpp").read_text(), re.M)
    values = ["0x", "0xE0000000", "0xFFFFFFFF", "0xF0000", "0xCF8", "0xA0", "4294967295"]
    write_dictionary("words", [f"/{word}\n" for word in switches] + ["/ALL\n", "/A\n", "/T\n"] +
                     [f"{v}\n" for v in values])
    names = ["_SM_", "_SM3_", "_DMI_", "RSD PTR ", "RSDT", "XSDT", "FACP", "SMBIOS=0x", "SMBIOS3=0x",
             "\x7f\x04\xff\xfe", "\0\0", "\xff\xff\xff\xff"]
    write_dictionary("tables", names)


MAKERS = {"words": words_seeds, "tables": tables_seeds, "devices": devices_seeds, "keys": keys_seeds,
          "doors": lambda: goal_seeds.doors_seeds(forms()), "boards": goal_seeds.boards_seeds,
          **{name: made.items for name, made in goal_seeds.ABSENT.items()}}


def make_all():
    subprocess.run([FUZZ / "build"], check=True)
    for fuzzer, made in MAKERS.items():
        found = {name: data for name, data in archive.read(fuzzer).items() if name.startswith((FOUND, keep.KEPT))}
        archive.write(fuzzer, {**dict(made()), **found})
    make_dictionaries()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--found", nargs=3, metavar=("FUZZER", "FILE", "WHAT"))
    given = parser.parse_args()
    if given.found is None:
        make_all()
    else:
        fuzzer, file, what = given.found
        if fuzzer not in MAKERS:
            parser.error(f"no such fuzzer: {fuzzer}")
        archive.write(fuzzer, {**archive.read(fuzzer), FOUND + slug(what): pathlib.Path(file).read_bytes()})


if __name__ == "__main__":
    main()
