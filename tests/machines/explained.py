"""The differences between a dump and what the program shows of its machine that are known, each with its reason.

A test names what differs by a place ("0001:00:00.0 ports 3c", "structure 5") and asks `judge`: each difference has to
stand here, and what stands here has to occur, as long as the dump is there.
"""

import re

import pytest

INTEGRATED = "lspci leaves out the link control of endpoints of the root complex; hwreg shows the register."
CUT_OFF = "The file ends before the table does. hwreg goes as far as the entry point says, over zeros."

# dumps, places (regular expressions for the whole), reason
EXPLAINED = [
    (r".*-(cap-vc-and-rcl|tree-fujitsu-p8010)", r"0000:00:1b\.0 row", INTEGRATED),
    (r".*-tree-asus-p6t6", r"0000:00:(14\.[012]|1b\.0) row", INTEGRATED),
    (r".*-cap-dvsec-cxl", r"0000:(6b|7f):00\.0 row", INTEGRATED),
    (r".*-cap-pasid-pri", r"0000:00:02\.0 row", INTEGRATED),
    (r".*-cap-rcec", r"0000:6a:00\.4 row",
     "lspci leaves out the link control of event collectors of the root complex; hwreg shows the register."),
    (r".*-tree-asus-p6t6", r"0000:.* /RD .*",
     "Register 60h of this host bridge is an MSI capability. hwreg takes it for the window's base, finds 01000000h, "
     "and reads memory there."),
    (r".*-broken-ecaps", r"0000:00:00\.0 /RD .*",
     "With this host bridge hwreg asks MSR C0010058 for the window's base. The dump has no MSRs, so it is 0, and what "
     "is read is memory at 0."),
    (r".*-tree-fsl-p2020", r"0002:.* /RD .*",
     "The third domain has a root port at 00:00.0, of a maker whose window hwreg does not know: all ones."),
    (r".*-Beelink-EQ12\.dmi", r"structure \d+", CUT_OFF),
    (r".*-Beelink-EQ12\.dmi", r"byte \d+", CUT_OFF),
    (r".*-Beelink-EQ12\.dmi", r"head \d+", CUT_OFF),
    (r".*-HyperV\.dmi", r"head \d+",
     "A structure has an empty string in the midst of its strings and so ends there; what follows is taken for others. "
     "hwreg goes on, dmidecode stops at the first that has length 0."),
    (r".*-(dmi_v3_short\.bin|SuperMicro-(Dual-Xeon\.dmi|X9DBL\.bin))", r"head \d+",
     "A structure of type 34 says that it has 16 bytes and has 11. dmidecode knows this mistake of that firmware."),
    (r".*-ubihazard-.*", r"image 0: bytes from 200",
     "DDR5 images have 1024 bytes, the simulated module two pages of 256."),
]


def judge(dump, differences, kind=".*"):
    """`differences`: {place: what differs there}; `kind`: what its places begin with, where the dump has several tests.
    Fails for those without a reason, and for a reason without one."""
    rules = [row for row in EXPLAINED if re.fullmatch(row[0], str(dump)) and re.match(kind, row[1])]
    unknown = {place: text for place, text in differences.items()
               if not any(re.fullmatch(places, place) for _, places, _ in rules)}  # fmt: skip
    gone = [(places, reason) for _, places, reason in rules
            if not any(re.fullmatch(places, place) for place in differences)]  # fmt: skip
    if unknown:
        shown = "\n".join(f"  {place}: {text}" for place, text in list(unknown.items())[:20])
        pytest.fail(f"{dump}: {len(unknown)} differences that nobody has explained:\n{shown}", pytrace=False)
    if gone:
        pytest.fail(f"{dump}: explained, but no longer so: {gone}", pytrace=False)
