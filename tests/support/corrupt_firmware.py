"""Firmware tables that lie: cases made at random, each from its own seed.

    case = make_case("2024:17")        # the same again for the same seed
    case.pieces, case.systab, case.words

A case begins as sound firmware and is then spoilt in a few places. Memory that cannot be mapped lies at REFUSED.
"""

import dataclasses
import random
import struct

import firmware

# Start, length, error, and whether a mapping through a descriptor without O_SYNC is granted.
REFUSED = [(0x50000000, 0x100000, "EPERM", ""), (0x51000000, 0x100000, "EAGAIN", ""),
           (0x52000000, 0x100000, "EAGAIN", " sync")]
BOARD = ["iopl ok", "mem ok", *(f"refuse {start:x} {length:x} {error}{sync}" for start, length, error, sync in REFUSED)]
NEVER_MAPPED = [(start, length) for start, length, _, sync in REFUSED if not sync]

LENGTHS = (0, 1, 2, 3, 4, 5, 31, 255, 256, 257, 511, 0xFFF, 0xFFFE, 0xFFFF)
SDT_LENGTHS = ((0, 1, 35, 36, 37, 39, 40, 43, 44, 164, 165, 0x10001, 0x7FFFFFFF, 0xFFFFFFFF) * 10 +
               (1060, 1064, 0xFFFF, 0x10000))  # thousands of entries: seldom
ENTRY_COUNTS = (0, 1, 2, 3, 5) * 8 + (16, 17, 20) * 2 + (256, 260)
# Page ends, both ends of memory, the BIOS area itself, places that are refused, half refused, or only cached.
PLACES = (0x7A5B0000, 0x7A5B0FF0, 0x7A5B0FFF, 0, 1, 0xFFF, 0xF0000, 0xFFFF0, 0xFFFFFFFF, 0xFFFFFFF0, 0xFFFFF000,
          0xFFFF0000, 0x50000000, 0x4FFFFFF0, 0x500FFFF0, 0x51000FF0, 0x52000000, 0x51FFFFF4, 0x520FFFF0)
SOUND_PLACES = (0x7A5F0000, 0x7A5F0FF0, 0x7A5F0FEA, 0x52000000)
ENTRY_PLACES = (*SOUND_PLACES, 0xFFFFFFE8, 0xFFFFFFFF, 0x50000000, 0x4FFFFFF0, 0x51000010)  # others say 16 ones
LEGACY_PLACES = (0xF0000, 0xF1FF0, 0xF1FF6, 0xF5A00, 0xFFFC0, 0xFFFE0, 0xFFFF5, 0xFFFFC)
SMBIOS_WORDS = (["/LOG"], ["/LOG"], ["/TYPE", "17"], ["/TYPE", "127"], ["/TYPE", "0"], ["/DUMP", "/LOG"], ["/S", "AAB"],
                ["/S", "text"], ["SPEED"], ["SPEED", "/DUMP", "/LOG"])
QUIET_WORDS = (["SPEED"], ["/TYPE", "17"], ["/TYPE", "127"], ["/S", "AAB"], ["/S", "text"])
LONG = 600  # printing a longer table takes long, and is seldom done
ACPI_WORDS = (["/ACPI", "/DUMP", "/LOG"], ["FADT"], ["FADT"], ["FADT"], ["FADT"])


@dataclasses.dataclass
class Case:
    """Memory, the lines of the system table file (None: no file), and the words of the command line. SPEED and FADT
    as first words stand for procedures that no command calls."""

    seed: str
    pieces: list
    systab: list
    words: list

    def board(self):
        return [*BOARD, *firmware.board_lines(self.pieces), *(f'systab sys "{line}"' for line in self.systab or ())]


def make_case(seed):
    rng = random.Random(seed)
    if rng.random() < 0.3:
        return Case(seed, acpi_pieces(rng), None, list(rng.choice(ACPI_WORDS)))
    pieces, systab, length = smbios_pieces(rng)
    words = rng.choice(QUIET_WORDS if length > LONG and rng.random() < 0.95 else SMBIOS_WORDS)
    return Case(seed, pieces, systab, [*words] if words[0] == "SPEED" else ["/SMBIOS", *words])


def some_bytes(rng, longest=200):
    length = rng.randrange(longest)
    return rng.choice((rng.randbytes(length), bytes(length), b"\xff" * length, b"A" * length, b"\x7f" * length))


def some_text(rng):
    return "".join(rng.choice("ABabtext 0") for _ in range(rng.randrange(1, 20)))


def some_structure(rng):
    kind = rng.choice((0, 1, 4, 17, 17, 126, 127, 221, rng.randrange(256)))
    strings = [some_text(rng) for _ in range(rng.randrange(4))]
    return firmware.structure(kind, rng.randrange(0x10000), some_bytes(rng, 60), strings)


def spoil(rng, data):
    """One fault of a kind that broken firmware has."""
    data = bytearray(data)
    fault = rng.randrange(9)
    at = rng.randrange(len(data)) if data else 0
    if fault == 0:
        data[at : at + 1] = rng.randbytes(1)
    elif fault == 1:
        data[at : at + 1] = rng.choice((b"\0", b"\xff", b"\x7f"))
    elif fault == 2 and len(data) > 1:
        data[1] = rng.choice((0, 1, 2, 3, 4, 200, 255))  # formatted length of the first structure
    elif fault == 3:
        del data[at:]
    elif fault == 4:
        data[at:] = bytes(byte or 0xFF for byte in data[at:])  # strings without end
    elif fault == 5:
        data[at:at] = rng.choice((b"\0", b"\0\0", b"\xff", b"\x7f\x04", b"\x01\x00"))
    elif fault == 6:
        data[at:] = some_bytes(rng)
    elif fault == 7:
        data += some_bytes(rng)
    else:
        data[at : at + 4] = struct.pack("<I", rng.choice(PLACES))
    return bytes(data)


def some_table(rng):
    structures = [some_structure(rng) for _ in range(rng.randrange(8))]
    spoilt = [spoil(rng, data) if rng.random() < 0.25 else data for data in structures]
    data = b"".join(spoilt) + (firmware.end() if rng.random() < 0.6 else b"")
    return spoil(rng, data) if rng.random() < 0.4 else data


def some_length(rng, data):
    pick = rng.random()
    if pick < 0.6:
        return len(data)
    if pick < 0.9:
        return max(0, len(data) + rng.randrange(-20, 20))
    return rng.choice(LENGTHS)


def smbios_pieces(rng):
    data = some_table(rng)
    at = 0x7A5B0000 if rng.random() < 0.4 else rng.choice(PLACES)
    length = some_length(rng, data)
    wide = rng.random() < 0.5
    entry = firmware.entry64(at, length) if wide else firmware.entry32(at, length)
    if rng.random() < 0.2:
        entry = spoil(rng, entry)
    if rng.random() < 0.5:  # by the system table file
        place = 0x7A5F0000 if rng.random() < 0.5 else rng.choice(ENTRY_PLACES)
        name = "SMBIOS3" if wide else "SMBIOS"
        return inside([(at, data), (place, entry)]), [f"{name}={place:#x}"], length if place in SOUND_PLACES else 0xFFFF
    pieces = [(at & 0xFFFF0000 if rng.random() < 0.7 else at, data)]  # the copy begins at the 64 KiB border
    if rng.random() < 0.3:
        pieces.append((rng.choice(LEGACY_PLACES), rng.choice((b"_SM_", b"_SM", b"_SM3", b"__SM3_"))))
    pieces.append((rng.choice(LEGACY_PLACES), entry))
    return inside(pieces), None, length


def inside(pieces):
    """Cut at the top of memory."""
    return [(at, data[: (1 << 32) - at]) for at, data in pieces]


def acpi_pieces(rng):
    root = rng.choice((0xF0000, 0xF5A00, 0xF1FF0, 0xFFFD8, 0xFFFF0, 0xFFFF9))
    fadt_at, rsdt_at, xsdt_at = (rng.choice(PLACES) if rng.random() < 0.3 else sound for sound in
                                 (0x7A400000, 0x7A410FE0, 0x7A420FE0))
    tables = [rng.choice((0, fadt_at, rsdt_at, xsdt_at, root, *PLACES)) for _ in range(rng.choice(ENTRY_COUNTS))]
    if rng.random() < 0.5:
        tables.insert(rng.randrange(len(tables) + 1), fadt_at)
    roots = [firmware.xsdt(tables), firmware.rsdt(tables)]
    for i in range(2):
        if rng.random() < 0.4:
            roots[i] = roots[i][:4] + struct.pack("<I", rng.choice(SDT_LENGTHS)) + roots[i][8:]
        if rng.random() < 0.2:
            roots[i] = spoil(rng, roots[i])
    pointer = firmware.rsdp(rsdt_at, rng.choice((xsdt_at, xsdt_at, 0)))
    if rng.random() < 0.2:
        pointer = spoil(rng, pointer)
    fadt = firmware.fadt(rng.randrange(1 << 32), rng.randrange(1 << 32), rng.randrange(256))
    return inside([(fadt_at, fadt), (xsdt_at, roots[0]), (rsdt_at, roots[1]), (root, pointer)])


def write_cases(path, cases):
    """The cases as tables.cpp reads them: for each the count and length of its words and the count of
    its pieces; the words with a NUL each; for each piece address, length and bytes."""
    with open(path, "wb") as file:
        for case in cases:
            words = b"".join(word.encode() + b"\0" for word in case.words)
            file.write(struct.pack("<III", len(case.words), len(words), len(case.pieces)) + words)
            for address, data in case.pieces:
                file.write(struct.pack("<II", address, len(data)) + data)
