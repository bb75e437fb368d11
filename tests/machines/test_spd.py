"""SPD images: each byte as the program reads it from modules on the SMBus, six on a machine."""

import pytest
from collection import dumps
from explained import judge
from program import changed, hwreg, tool, views
from small_dumps import spd_images

SLAVES = (0xA0, 0xA2, 0xA4, 0xA6, 0xA8, 0xAA)
PAGE = 256
TYPE, DDR4 = 2, 0x0C

ALL = [(dump, number, image) for dump in dumps("spd") for number, image in enumerate(spd_images(dump))]
MACHINES = [ALL[first : first + len(SLAVES)] for first in range(0, len(ALL), len(SLAVES))]


def imported(modules, folder, name="machine"):
    board = folder / f"{name}.board"
    words = []
    for slave, (_, _, image) in zip(SLAVES, modules):
        path = folder / f"{slave:x}.spd"
        path.write_bytes(image)
        words += ["--spd", f"{slave:x}={path}"]
    tool("import", *words, "-o", board)
    return board


def shown(board, slave):
    return b"".join(views(hwreg(board, "/SMBUS", "/DUMP", hex(slave), "/LOG", "/TEXT")))


def compare(image, found):
    differences = {}
    if len(image) > len(found):
        differences[f"bytes from {len(found):x}"] = f"{len(image)} in the dump, {len(found)} shown"
    for at, (one, other) in enumerate(zip(image, found)):
        if one != other:
            differences[f"{at:x}"] = f"{one:02x} in the dump, {other:02x} shown"
    if any(byte != 0xFF for byte in found[len(image) :]):
        differences[f"bytes from {len(image):x}"] = "not in the dump, and shown as more than ones"
    return differences


def ids(modules):
    return f"{modules[0][0]}+{len(modules) - 1}"


@pytest.mark.parametrize("modules", MACHINES, ids=ids)
def test_the_program_reads_the_bytes_of_the_images(modules, tmp_path):
    """Of modules that do not say that they are DDR4 the program shows one page; the other is read when they say so."""
    board = imported(modules, tmp_path)
    for slave, (dump, number, image) in zip(SLAVES, modules):
        found = shown(board, slave)
        if len(image) > len(found) == PAGE:
            found += shown(changed(board, f"smbus-spd {slave:x}", f"smbus-bytes {TYPE} {DDR4:x}"), slave)[PAGE:]
        judge(dump, {f"image {number}: {place}": text for place, text in compare(image, found).items()})


@pytest.mark.parametrize("modules", MACHINES, ids=ids)
def test_an_import_and_an_export_give_the_bytes_back(modules, tmp_path):
    board, other = imported(modules, tmp_path), imported(modules, tmp_path, "other")
    for slave, (_, _, image) in zip(SLAVES, modules):
        assert tool("export", "--spd", f"{slave:x}", "-", board) == image
    assert tool("diff", board, other) == b""
