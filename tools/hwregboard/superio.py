"""superiotool -d: a chip's registers by logical device."""

import re

from hwregboard.errors import Mistake, shown
from hwregboard.inputs import lines_of, read_bytes
from hwregboard.machine import Machine, SuperIo

FOUND = re.compile(r"Found (.*?)\s*\((.*)\) at 0x([0-9a-fA-F]{1,4})")
LDN = re.compile(r"LDN (?:0x)?([0-9a-fA-F]{1,2})\b")
ROW = re.compile(r"\s*(idx|val|def)\b(.*)$")
# Keys of a maker's chips: the last two bytes of the way in, and the way out.
KEYS = (("ITE", "55 55"), ("SMSC", "55 55 aa"), ("", "87 87 aa"))
ITE_SECOND = "55 aa"  # at index port 4Eh
CHIPS = 16  # more than any machine has; each takes some of the simulator's ports


def keys_of(title: str, port: int) -> str:
    keys = next(keys for maker, keys in KEYS if title.startswith(maker))
    return ITE_SECOND if title.startswith("ITE") and port == 0x4E else keys


def import_superio(machine: Machine, file: str, say: list[str]) -> None:
    before = len(machine.superio)
    device = -1
    indices: list[int] = []
    for number, line in lines_of(file, read_bytes(file)):
        if found := FOUND.search(line):
            port = int(found[3], 16)
            notes = [re.sub(r"[^ -~]", "?", f"from: {file}: {found[1]} ({found[2]})")]
            machine.superio.append(SuperIo(f"{port:x} {keys_of(found[1], port)}", notes=notes))
            device, indices = -1, []
            if len(machine.superio) > CHIPS:
                raise Mistake(file, number, f"more than {CHIPS} chips")
        elif found := LDN.match(line.strip()):
            device, indices = int(found[1], 16), []
        elif row := ROW.match(line):
            if len(machine.superio) == before:
                raise Mistake(file, number, f"registers before a chip: {shown(line)}")
            if row[1] == "idx":
                indices = registers(file, number, row[2].split())
            elif row[1] == "val":
                unknown = store(machine.superio[-1], device, file, number, indices, row[2].split())
                machine.missing += [f"superio {machine.superio[-1].words} device {device:x}: register {index:02x}"
                                    for index in unknown]
    if not any(chip.devices for chip in machine.superio[before:]):
        raise Mistake(file, 0, "no registers of a Super I/O chip (superiotool -d prints them)")
    if len(machine.superio) > 1:
        say.append(f"{file}: there are {len(machine.superio)} chips")


def registers(file: str, number: int, words: list[str]) -> list[int]:
    try:
        return [int(word, 16) & 0xFF if len(word) <= 2 else int("x") for word in words]
    except ValueError:
        raise Mistake(file, number, f"not the numbers of registers: {shown(' '.join(words))}") from None


def store(chip: SuperIo, device: int, file: str, number: int, indices: list[int], words: list[str]) -> list[int]:
    """Gives the registers without a value."""
    unknown = []
    if len(words) != len(indices):
        raise Mistake(file, number, f"{len(words)} values for {len(indices)} registers")
    for index, word in zip(indices, words):
        known = re.fullmatch(r"[0-9a-fA-F]{2}", word)
        if not known and word not in ("??", "NA", "XX", "RR", "MM"):
            raise Mistake(file, number, f"not a register's value: {shown(word)}")
        if not known:
            unknown.append(index)
            continue
        # Registers below 30h are the chip's, in whatever device's list they stand.
        place = -1 if index < 0x30 else max(device, 0)
        chip.devices.setdefault(place, {})[index] = int(word, 16)
    return unknown
