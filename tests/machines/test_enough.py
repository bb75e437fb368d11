"""There are enough dumps of each kind, and what was fetched is what is known."""

import pytest
from collection import KINDS, MACHINES, dumps, given_folders
from explained import EXPLAINED
from fetch import PACKAGES

# What there has to be in all, unless all of Debian's packages are there and nothing else was given.
LEAST = {"lspci": 16, "smbios": 30, "spd": 30, "cpuid-msr": 40, "acpi": 4}
# What Debian's packages hold, which are pinned: another number is a fault of the tests.
DEBIAN = {"lspci": 40, "smbios": 3, "spd": 310, "cpuid-msr": 88, "acpi": 0, "cmos": 0, "chipsec": 0}


def failed():
    return (MACHINES / "failed").read_text().split("\n")[:-1]


@pytest.mark.parametrize("kind", KINDS)
def test_debians_packages_hold_what_is_known(kind):
    if failed():
        pytest.skip(f"not there: {', '.join(failed())}")
    assert sum(dump.source == "debian" for dump in dumps(kind)) == DEBIAN[kind]


@pytest.mark.parametrize("kind", LEAST)
def test_there_are_enough_dumps(kind):
    if not failed() and not given_folders():
        pytest.skip("HWREG_MACHINES names no folders, and Debian's packages are all there")
    found = len(dumps(kind))
    missing = f"Debian's source packages {', '.join(failed())} cannot be had, and " if failed() else ""
    assert found >= LEAST[kind], (f"{missing}there are {found} dumps of kind {kind} instead of {LEAST[kind]}: name "
                                  "folders that have more in HWREG_MACHINES")  # fmt: skip


def test_packages_are_pinned():
    assert all(version and len(checksum) == 64 for _, version, _, checksum, _ in PACKAGES)


def test_each_explanation_has_a_reason():
    assert all(reason.endswith(".") for *_, reason in EXPLAINED)
