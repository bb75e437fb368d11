"""Changes of an input at the level of bytes, fields, lines and structures. All chance comes from the Random given."""

import bz2
import gzip
import lzma
import random
import re
from collections.abc import Callable

LARGEST = 1 << 16  # bytes of an input that is changed further
REPEATED = 1 << 19  # of one that repeats a piece of itself many times
NUMBERS = (0, 1, 2, 3, 4, 5, 8, 15, 16, 20, 31, 32, 36, 44, 64, 127, 128, 255, 256, 4095, 4096, 0x7FFF, 0x8000, 0xFFFF,
           0x10000, 0xE0000, 0xF0000, 0xFFFF0, 0x100000, 0x7FFFFFFF, 0x80000000, 0xB0000000, 0xFFFFFFFF, 1 << 32,
           (1 << 63) - 1, 1 << 63, (1 << 64) - 1, 1 << 64)  # fmt: skip
WORDS = (b"", b"??", b"XX", b"-1", b"+1", b"1_1", b"0x", b"0xg", b"1h", b"9" * 20, b"9" * 5000, b"f" * 5000,
         b" " * 1500, b"1-", b"-",
         b"3-1", b"0-4095", b"4096", b"cpus", b"ro", b"\xc2\xb2", b"\xd9\xa3", b"\xc2\xa0", b"\xff", b"\x1b[31m", b"\0",
         b'"', b"#", b"a" * 300, b"nan", b"1e9", b"\xe2\x80\xa8", b"\xed\xa0\x80", b"{", b"[", b"(1,2)",
         b"verbatim")  # fmt: skip
TOKENS = (b"??", b"\n", b"\r", b"\0", b"@", b"_", b" ", b":", b"\xff\xfe", b"\xfe\xff", b"\xef\xbb\xbf", b"# ", b"\x85",
          b"\x0b", b"\x1c", b"\t", b"RSD PTR ", b"_SM_", b"_SM3_", b"_DMI_", b"XSDT", b"RSDT", b"FACP", b"MCFG",
          b"ustar",
          b"# --- memory\n", b"# acpi XSDT at 10000, 99999 bytes\n", b"include x.board\n", b"end\n",
          b"CPU 3:\n", b"LDN 0x02\n", b"idx 20\nval 20\n", b"0000:00:00.0 x\n00: 01\n", b"[[[[[[[[[[[[", b"{}",
          b"0: ")  # fmt: skip
HEX = re.compile(rb"[0-9a-fA-F]+")
FIELD = re.compile(rb"[^\s:,=\[\]()\-@]+")
PACKERS = (gzip.compress, lambda data: bz2.compress(data), lambda data: lzma.compress(data, preset=0))

Change = Callable[[random.Random, bytearray], bytearray]


def span(chance: random.Random, data: bytearray) -> tuple[int, int]:
    """Somewhere, and an end behind it: mostly near."""
    start = chance.randrange(len(data) + 1)
    return start, min(len(data), start + chance.choice((1, 1, 2, 4, 8, 16, 60, 300, len(data))))


def number_bytes(chance: random.Random, data: bytearray) -> bytes:
    value = chance.choice((*NUMBERS, len(data), chance.getrandbits(8), chance.getrandbits(16), chance.getrandbits(32)))
    return (value & (1 << 64) - 1).to_bytes(8, "little")[:chance.choice((1, 2, 4, 8))]


# ---- bytes


def change_byte(chance: random.Random, data: bytearray) -> bytearray:
    if data:
        data[chance.randrange(len(data))] ^= chance.choice((1, 2, 4, 8, 16, 32, 64, 128, chance.randrange(1, 256)))
    return data


def change_number(chance: random.Random, data: bytearray) -> bytearray:
    at = chance.randrange(len(data) + 1)
    value = number_bytes(chance, data)
    data[at:at + len(value)] = value
    return data


def change_length(chance: random.Random, data: bytearray) -> bytearray:
    """A number that is the distance to somewhere in the data is likely to be a length or an offset."""
    start, end = sorted((chance.randrange(len(data) + 1), chance.randrange(len(data) + 1)))
    value = (end - start).to_bytes(8, "little")[:chance.choice((1, 2, 4))]
    at = start + chance.choice((0, 1, 4, 6))
    data[at:at + len(value)] = value
    return data


def delete(chance: random.Random, data: bytearray) -> bytearray:
    start, end = span(chance, data)
    del data[start:end]
    return data


def insert(chance: random.Random, data: bytearray) -> bytearray:
    at = chance.randrange(len(data) + 1)
    data[at:at] = chance.choice(TOKENS)
    return data


def copy(chance: random.Random, data: bytearray) -> bytearray:
    start, end = span(chance, data)
    at = chance.randrange(len(data) + 1)
    if chance.randrange(2):
        data[at:at] = data[start:end]
    else:
        data[at:at + end - start] = data[start:end]
    return data


def cut_off(chance: random.Random, data: bytearray) -> bytearray:
    return data[:chance.randrange(len(data) + 1)]


# ---- fields and lines


def change_field(chance: random.Random, data: bytearray) -> bytearray:
    """A word, or a number of a line, becomes another one."""
    start = data.rfind(b"\n", 0, chance.randrange(len(data) + 1)) + 1
    end = data.find(b"\n", start) % (len(data) + 1)
    found = list((HEX if chance.randrange(2) else FIELD).finditer(data, start, end))
    if found:
        word = chance.choice(found)
        value = chance.choice(NUMBERS)
        text = chance.choice((chance.choice(WORDS), b"%x" % value, b"0x%x" % value, b"%d" % value,
                              b"%0*x" % (word.end() - word.start(), value)))  # fmt: skip
        data[word.start():word.end()] = text
    return data


def change_lines(chance: random.Random, data: bytearray) -> bytearray:
    lines = data.split(b"\n")
    first = chance.randrange(len(lines))
    count = chance.choice((1, 1, 1, 2, 4, 16))
    taken = lines[first:first + count]
    how = chance.randrange(6)
    if how == 0:
        del lines[first:first + count]
    elif how == 1:
        lines[first:first] = taken
    elif how == 2:
        at = chance.randrange(len(lines))
        lines[at:at] = taken
    elif how == 3:
        lines[first:first + count] = [b" ".join(taken)]
    elif how == 4:
        chance.shuffle(taken)
        lines[first:first + count] = taken
    else:
        lines[first] = lines[first] * chance.choice((2, 3, 40))
    return bytearray(b"\n".join(lines))


# ---- structures


def counted(piece: bytes, field: int, step: int, number: int) -> bytes:
    """The piece with its FIELDth number increased, in the same digits."""
    found = list(HEX.finditer(piece))
    if not found:
        return piece
    word = found[field % len(found)]
    if len(word[0]) > 16:
        return piece
    text = b"%0*x" % (len(word[0]), int(word[0], 16) + step * number)
    return piece[:word.start()] + text + piece[word.end():]


def repeat_lines(chance: random.Random, data: bytearray) -> bytearray:
    """Some lines many times, with a number in them that counts: many functions, tables, MSRs, pieces of memory."""
    lines = bytes(data).split(b"\n")
    first = chance.randrange(len(lines))
    piece = b"\n".join(lines[first:first + chance.choice((1, 1, 2, 3, 17))]) + b"\n"
    times = min(chance.choice((3, 30, 300, 3000, 20000)), REPEATED // len(piece))
    field, step = chance.randrange(4), chance.choice((0, 1, 1, 2, 8, 16, 32, 0x1000))
    repeated = b"".join(counted(piece, field, step, number) for number in range(times))
    head = b"".join(line + b"\n" for line in lines[:first])
    return bytearray(head + repeated + b"\n".join(lines[first:]))


def repeat_bytes(chance: random.Random, data: bytearray) -> bytearray:
    """A piece many times, with 4 bytes in it that count: chains of tables, structures, members."""
    start, end = span(chance, data)
    piece = bytearray(data[start:end])
    times = min(chance.choice((2, 10, 100, 2000)), REPEATED // max(1, len(piece)))
    at, step = chance.randrange(len(piece) + 1), chance.choice((0, 0, 1, 16, 36, len(piece)))
    repeated = bytearray()
    for number in range(times):
        repeated += piece
        if step and at + 4 <= len(piece):
            value = int.from_bytes(piece[at:at + 4], "little") + step * number & 0xFFFFFFFF
            repeated[at - len(piece):at - len(piece) + 4 or None] = value.to_bytes(4, "little")
    data[end:end] = repeated
    return data


def nest(chance: random.Random, data: bytearray) -> bytearray:
    at = chance.randrange(len(data) + 1)
    data[at:at] = chance.choice((b"[", b"(", b'{"a":', b'"', b"# ")) * chance.choice((2, 50, 5000))
    return data


def pack(chance: random.Random, data: bytearray) -> bytearray:
    """Compressed, at times with much behind that costs nothing."""
    filling = chance.choice((b"", b"", b"\n", b"\0", b" ")) * chance.choice((1 << 10, 1 << 18, 1 << 20))
    packed = chance.choice(PACKERS)(bytes(data) + filling)
    return bytearray(packed * chance.choice((1, 1, 1, 2)))


def mend_archive(data: bytearray) -> None:
    """Headers of an archive's members get their checksums anew."""
    for at in range(0, len(data) - 511, 512):
        if data[at + 257:at + 262] == b"ustar":
            data[at + 148:at + 156] = b" " * 8
            data[at + 148:at + 156] = b"%06o\0 " % sum(data[at:at + 512])


CHANGES: tuple[Change, ...] = (change_byte, change_number, change_length, delete, insert, copy, cut_off, change_field,
                               change_field, change_field, change_lines, change_lines, change_lines)  # fmt: skip
RARE: tuple[Change, ...] = (repeat_lines, repeat_lines, repeat_bytes, repeat_bytes, nest, pack)
RARELY = 60  # one change in so many is one of these: they cost much time


def changed(chance: random.Random, data: bytes) -> bytes:
    result = bytearray(data)
    for _ in range(chance.choice((1, 1, 1, 2, 3, 6))):
        change = chance.choice(RARE) if chance.randrange(RARELY) == 0 else chance.choice(CHANGES)
        result = change(chance, result)
        if len(result) > LARGEST:
            break
    if chance.randrange(2):
        mend_archive(result)
    return bytes(result)
