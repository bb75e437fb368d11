"""What docs/installing.md shows to be typed."""

import re
import textwrap

from roots import TOP

PAGE = (TOP / "docs" / "installing.md").read_text()


def typed(heading, first):
    """The indented lines below a heading that begin with the one that begins so, up to the next line of text."""
    section, = [part for part in PAGE.split("\n## ") if part.startswith(heading)]
    blocks = re.findall(r"(?:^ {4}.*\n)+", section, re.MULTILINE)
    block, = [block for block in blocks if block.startswith(f"    {first}")]
    return textwrap.dedent(block)
