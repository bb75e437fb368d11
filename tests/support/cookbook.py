"""docs/cookbook.md: the pairs of lines that it shows, and those that no emulated machine can run."""

import re

from harness import TOP

PAGE = (TOP / "docs" / "cookbook.md").read_text()

# Pairs of which hwreg's line runs on a simulated board, and why the other one does not run.
SIMULATED = {
    "superiotool -d": "QEMU's PCs have no Super I/O",
    "isadump -y -k 0xa5,0xa5 0x4e 0x4f 0x0b": "QEMU's PCs have no Super I/O",
    "i2cset -y 0 0x36 0 0; i2cdump -y 0 0x50 b; i2cset -y 0 0x37 0 0; i2cdump -y 0 0x50 b; i2cset -y 0 0x36 0 0":
        "QEMU's memory modules have no second page",
    "i2ctransfer -y 0 w1@0x50 2 r2": "QEMU has none of AMD's I2C controllers",
}  # fmt: skip


def rows():
    """hwreg's lines by the others."""
    found = re.findall(r"^\| `([^`]+)` \| `(hwreg [^`]+)` \|$", PAGE, re.MULTILINE)
    assert len(found) == len(dict(found)) == len(re.findall(r"^\| `", PAGE, re.MULTILINE))
    return dict(found)


def says(line):
    """Does the page's prose show this line?"""
    prose = re.sub(r"^\|.*$", "", PAGE, flags=re.MULTILINE)
    return f"`{line}`" in " ".join(prose.split())
