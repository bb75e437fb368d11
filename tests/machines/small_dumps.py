"""What is read with few rules: SPD images, CMOS bytes, and recorded single accesses."""

import ast
import json
import re

# A file of CMOS bytes is what stood behind each pair of ports, at 256 times its index port.
BANKS = {0x70: 0x70 * 256, 0x72: 0x72 * 256}
BANK_BYTES = 128
DDR3, DDR3_BYTES = 0x0B, 256


def spd_images(dump):
    """The images of a file: bytes as they are, or their digits with comments between them. Files for DDR3 may have the
    images of several modules one behind the other."""
    data = dump.bytes()
    if dump.name.endswith(".hex"):
        data = bytes(int(word, 16) for word in re.sub(r"(#|//).*", "", dump.text()).split())
    size = DDR3_BYTES if data[2] == DDR3 else len(data)
    return [data[at : at + size] for at in range(0, len(data), size)]


def cmos_of(dump):
    """{index port: 128 bytes}"""
    data = dump.bytes()
    return {port: data[at : at + BANK_BYTES] for port, at in BANKS.items()}


def accesses_of(dump):
    """{name: {arguments: [answers in their order]}} of a recording."""
    recorded = json.loads(dump.text())
    return {name: {ast.literal_eval(key): [ast.literal_eval(answer) for answer in answers]
                   for key, answers in calls.items()} for name, calls in recorded.items()}  # fmt: skip
