"""Where the configuration window is, and whether hwreg takes it to be there."""

import pytest

from kernel import LOCKED, holds, mcfg, quoted

NO_ROOT_POINTER = "fill f5a00 24 0"  # of the Intel machine, whose MCFG in memory tells, too
BRIDGE = "pci 00:00.0 8086:3405 class 060000"
LOUD = "ARE NOT THERE.*READS AND WRITES"
REMEDIES = {"good": "", "bad": "never write", "unknown": "write no offset|modprobe msr"}


@pytest.mark.parametrize("extra, state, text", [
    ([], "good", "at e0000000h for buses 00h-ffh .*MCFG in memory"),
    (mcfg((0xE0000000, 0, 0, 0x3F)), "good", "buses 00h-3fh .*the table MCFG"),
    (mcfg((0xC0000000, 1, 0, 255), (0xE0000000, 0, 0, 255)), "good", "at e0000000h"),
    (mcfg((0xD0000000, 0, 0, 15), (0xE0000000, 0, 16, 255)), "good", "for buses 10h-ffh"),
    (mcfg((0xE0000000, 0, 0, 255), tail=b"odd"), "good", "the table MCFG"),
    (mcfg((0xE0000000, 0, 255, 0)), "good", "MCFG in memory"),
    (mcfg(length=0xFFFFFFFF), "good", "MCFG in memory"),
    ([NO_ROOT_POINTER, *quoted("/proc/iomem", "e0000000-efffffff : PCI MMCONFIG 0000 [bus 00-ff]")], "good",
     "the kernel's map"),
    ([NO_ROOT_POINTER, *quoted("/proc/iomem", "e1000000-efffffff : PCI ECAM 0000 [bus 10-ff]")], "good",
     "buses 10h-ffh .*the kernel's map"),
    ([NO_ROOT_POINTER], "good", "the host bridge seen through it"),
    ([*mcfg((0xC0000000, 0, 0, 255))], "good", "the host bridge seen through it"),
    ([NO_ROOT_POINTER, "refuse e0000000 1000 EPERM"], "unknown", "nobody says where the window is"),
    ([*mcfg((0xC0000000, 0, 0, 255)), "refuse e0000000 1000 EPERM"], "bad", "MCFG says c0000000h"),
    ([*mcfg((0x1E0000000, 0, 0, 255)), "refuse e0000000 1000 EPERM"], "bad", "MCFG says 1e0000000h"),
    ([BRIDGE, "  dword 60 d0000001", NO_ROOT_POINTER], "bad", "at d0000000h .*points elsewhere; no table"),
    ([BRIDGE, "  dword 60 0"], "bad", "at 0h .*it is 0; the table MCFG in memory says e0000000h"),
    ([BRIDGE, "  dword 60 c0000000"], "bad", "enable bit is clear"),
    ([BRIDGE, "  dword 60 e0000000", "refuse e0000000 1000 EPERM"], "bad", "bit is clear; .*says e0000000h"),
    ([BRIDGE, "  cap 05 60 80 01", "  dword 64 fee00000"], "bad", "belongs to a capability"),
    ([BRIDGE, "  cap 05 60 80 01", NO_ROOT_POINTER], "bad", "belongs to a capability.*no table says"),
], ids=range(20))  # fmt: skip
def test_intel(found, extra, state, text):
    told = found(*extra)
    holds(told, {"config-window": (state, text, REMEDIES[state])})
    if state == "bad":
        holds(told, {"config-window": (state, LOUD, "setpci")})


@pytest.mark.parametrize("extra, state, text", [
    ([], "good", "at f8000000h for buses 00h-ffh .MSR C0010058h, and the host bridge seen"),
    (["msr c0010058 e0000021"], "good", "at e0000000h .*MCFG"),
    (["msr c0010058 0"], "bad", "at 0h .*it is 0"),
    (["msr c0010058 f8000020", "refuse f8000000 1000 EPERM"], "bad", "enable bit is clear"),
    (["msr-nodes never"], "bad", "at 0h .*cannot be read"),
    (["msr-nodes modprobe"], "unknown", "cannot be read yet"),
    (["refuse f8000000 1000 EPERM"], "bad", "says e0000000h"),
], ids=range(7))  # fmt: skip
def test_amd(found, extra, state, text):
    holds(found(*extra, board="amd"), {"config-window": (state, text, REMEDIES[state])})


def test_an_unknown_chipset_has_none(found):
    holds(found(board="unknown"), {"config-window": ("caution", "knows no window .*vendor ffff", "")})


def test_another_domain_is_left_out(found):
    """A function of another domain in the place of the host bridge, and none in domain 0."""
    line = "\t".join(["0000", "10225678", "0", *["0"] * 14, "vmd"])
    told = found(f'file "/proc/bus/pci/devices" "{line}"')
    assert told["config-window"][0] == "caution" and told["smbus-host"][0] == "unknown"


def test_a_window_elsewhere_comes_first_in_the_report(run):
    result = run("", program="hwreg-check", extra=[BRIDGE, "  dword 60 0", "iopl EPERM", LOCKED])
    findings = result.text.split("\n\n")[1].splitlines()
    assert findings[1].startswith("  BAD      config-window")
