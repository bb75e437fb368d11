"""Dumps of a row of bytes: hexadecimal text with comments, i2cdump's table, nvramtool's and other hex views, or the
bytes themselves. SPD images and CMOS memory come so."""

import re

from hwregboard.errors import Mistake, shown
from hwregboard.inputs import as_text, lines_of, read_bytes
from hwregboard.machine import Cells, Machine, Slave

I2CDUMP = re.compile(r"\s*([0-9a-fA-F]{2,3}):((?: (?:[0-9a-fA-F]{2}|XX|\?\?|  )){1,16})(?:\s|$)")
VIEW = re.compile(r"\s*(?:0x)?([0-9a-fA-F]{2,8})(?::| )\s*((?:(?:0x)?[0-9a-fA-F?X]{2}(?:[ \t]+|$)){1,16})"
                  r"(?:\s*\|.*|\s.*)?$")  # fmt: skip
COLUMNS = re.compile(r"\s+(?:0?[0-9a-fA-F]\s+){8,}")
WORD = re.compile(r"(?:0x)?([0-9a-fA-F]{1,2}|\?\?|XX)[,;]?")
TEXT = frozenset(b"\t\n\r\x0b\x0c" + bytes(range(0x20, 0x7F)))
BRIEF = 256  # bytes of an EEPROM
MODULES = 0xA0  # addresses of modules with two pages
CMOS_SIZE, NVRAM_FIRST = 256, 14
PORTS = 0x7000  # where index port 70h stands in an image by index port and index


def is_text(data: bytes) -> bool:
    return data.startswith((b"\xff\xfe", b"\xfe\xff", b"\xef\xbb\xbf")) or TEXT.issuperset(data)


def text_cells(file: str, data: bytes, limit: int) -> Cells:
    """Rows with offsets, or bytes one behind the other. `??` and `XX` are bytes that nobody knows."""
    cells = Cells(0, absent=True)
    rows = any(I2CDUMP.match(line) for line in as_text(data[:65536]).split("\n"))
    views = rows or any(VIEW.match(line) and len(line.split()) > 9 and len(line.split()[0].rstrip(":")) != 2
                        for line in as_text(data[:65536]).split("\n"))  # fmt: skip
    for number, line in lines_of(file, data):
        bare = re.split(r"#|//|;", line)[0] if not views else line
        if not bare.strip() or views and (COLUMNS.match(line) or line.lstrip().startswith("#")):
            continue
        if views:
            row = (I2CDUMP if rows else VIEW).match(line)
            if not row:
                raise Mistake(file, number, f"a row of bytes is damaged: {shown(line.strip())}")
            offset, words = int(row[1], 16), row[2].split()
        else:
            offset, words = len(cells.data), bare.replace(",", " ").split()
        put_words(file, number, cells, offset, words, limit)
    return cells


def put_words(file: str, number: int, cells: Cells, offset: int, words: list[str], limit: int) -> None:
    if offset + len(words) > limit:
        raise Mistake(file, number, f"more than {limit} bytes")
    found = [WORD.fullmatch(word) for word in words]
    if bad := next((word for word, match in zip(words, found) if not match), None):
        raise Mistake(file, number, f"not a byte: {shown(bad)}")
    texts = [match[1] for match in found if match]
    mask = bytes(text not in ("??", "XX") for text in texts)
    cells.grow(offset + len(words), Cells.ABSENT)
    cells.put(offset, bytes(int(text, 16) if known else 0 for text, known in zip(texts, mask)), mask)


def read_cells(file: str, limit: int) -> Cells:
    data = read_bytes(file)
    if not data:
        raise Mistake(file, 0, "empty")
    if is_text(data):
        cells = text_cells(file, data, limit)
        if not cells.data:
            raise Mistake(file, 0, "no bytes here")
        return cells
    if len(data) > limit:
        raise Mistake(file, 0, f"more than {limit} bytes")
    cells = Cells(len(data))
    cells.put(0, data)
    return cells


def import_spd(machine: Machine, address: int, file: str, say: list[str]) -> None:
    cells = read_cells(file, 1024)
    if len(cells.data) not in (128, 256, 512, 1024):
        say.append(f"{file}: {len(cells.data)} bytes are no whole SPD image (256, 512 or 1024)")
    if len(cells.data) > BRIEF and address & 0xF0 != MODULES:
        raise Mistake(file, 0, f"a module with more than {BRIEF} bytes answers at a0 to ae, not at {address:02x}")
    cells.grow(BRIEF, Cells.UNKNOWN)
    keyword = "smbus-eeprom" if len(cells.data) <= BRIEF else "smbus-spd"
    if len(cells.data) > 512:
        say.append(f"{file}: the simulated module has 512 bytes; the others stand in comments")
    machine.slaves[address] = Slave(address, keyword, cells=cells)
    machine.sources.setdefault("spd", []).append(f"{file}: {address:02x}")


def export_spd(machine: Machine, address: int) -> bytes:
    slave = machine.slaves.get(address)
    if slave is None:
        raise Mistake(machine.name, 0, f"the machine has no SPD at address {address:x}h")
    count = len(slave.cells.mask.rstrip(b"\0\x02"))
    return bytes(byte if known == Cells.KNOWN else 0xFF
                 for byte, known in zip(slave.cells.data[:count], slave.cells.mask))  # fmt: skip


def import_cmos(machine: Machine, file: str, say: list[str]) -> None:
    """Bytes of one bank or both, /dev/nvram's 114, or an image by index port and index; or text."""
    data = read_bytes(file)
    if not is_text(data) and len(data) > PORTS + 128:
        banks = [data[PORTS:PORTS + 128], data[PORTS + 0x200:PORTS + 0x280]]
        cells = Cells(CMOS_SIZE, absent=True)
        for bank, held in enumerate(banks):
            cells.put(128 * bank, held)
        say.append(f"{file}: an image by index port and index; the banks at 70h and 72h are taken")
    else:
        cells = read_cells(file, CMOS_SIZE)
        if len(cells.data) == 128 - NVRAM_FIRST:
            shifted = Cells(128, absent=True)
            shifted.put(NVRAM_FIRST, bytes(cells.data), bytes(cells.mask))
            shifted.unknown(0, NVRAM_FIRST)
            cells = shifted
            say.append(f"{file}: 114 bytes begin behind the clock, at index 0Eh")
    cells.grow(CMOS_SIZE, Cells.ABSENT)
    machine.cmos, machine.has_cmos = cells, True
    machine.sources.setdefault("cmos", []).append(file)


def export_cmos(machine: Machine) -> bytes:
    """The bytes up to the last one that the machine mentions."""
    if not machine.has_cmos:
        raise Mistake(machine.name, 0, "the machine has no CMOS memory")
    count = len(machine.cmos.mask.rstrip(b"\x02"))
    return bytes(byte if known == Cells.KNOWN else 0xFF
                 for byte, known in zip(machine.cmos.data[:count], machine.cmos.mask))  # fmt: skip
