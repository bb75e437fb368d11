"""hwreg-check looks and touches nothing: no port, no store, no write, no command, whatever it is asked."""

import re

import pytest

LINES = ["", "/PCI /RB 0 0 0 0", "/PCI /RD 0 0 0 0x100", "/PCI /WB 0 0 0 0x3c 1", "/IO /WB 0x80 1", "/MEM /WB 0x1000 1",
         "/MEM /RF out.bin 0 0x100000", "/MSR /RD /ALL 0x1b", "/MSR /WD 0 0x1a0 0 0", "/CPUID /RD 0", "/SIO /DUMP",
         "/SMBUS /DUMP 0xa0", "/SMBUS", "/I2C /RB 0 0x50 0", "/SMN /RD 0 0x18000", "/SMU 0 1 2", "/SMBIOS /LOG",
         "/ACPI", "/RTC 120 /T 0", "/SHUTDOWN", "/TIMEOUT /T 5", "/?"]  # fmt: skip
WATCHED = ["watch e0000 20000", "watch e0000000 10000000", "watch f8000000 1000000"]


def touches(log):
    """The accesses of a log that are more than looking. I/O privilege is asked for and given back; memory is mapped,
    and the BIOS area and the first register of the configuration window are read; and so are MSRs."""
    for line in log:
        if re.match(r"in\d+ |out\d+ |mw\d+ |pwrite |system |settime |cpuid ", line):
            yield line
        elif line.startswith("mr") and not re.match(r"mr\d+ 000f[0-9a-f]{4} |mr32 f8000000 ", line):
            yield line
        elif line.startswith("open ") and not re.match(r"open \S+ rdonly |open /dev/mem rdwr ", line):
            yield line


@pytest.mark.parametrize("board", ["intel", "amd", "unknown", "latemsr", "noiopl", "nomem"])
def test_nothing_is_touched(run, board, tmp_path):
    for words in LINES:
        watched = WATCHED if not words and board in ("intel", "amd") else []
        result = run(words, board=board, program="hwreg-check", extra=watched, cwd=tmp_path)
        assert list(touches(result.log)) == [], words
        assert ("iopl 3" in result.log) == ("iopl 0" in result.log) or board == "noiopl"
        assert result.err == b"" and result.status in (0, 1, 2)
    assert [path for path in tmp_path.iterdir() if path.name.endswith(".bin")] == []


@pytest.mark.parametrize("words", ["/PCI /RB 0 0 0 0", "/IO /WB 0x80 1", "/MEM /WB 0xe0000 1", "/MSR /WD 0 0x1a0 0 0",
                                   "/SHUTDOWN", "/MEM /RB 0xe0000"])  # fmt: skip
def test_what_hwreg_does_is_noticed(run, words):
    assert list(touches(run(words, extra=["watch e0000 20000", "system print"]).log))


def test_an_alarm_of_the_kernels_is_left_alone(run):
    files = ['file "/sys/class/rtc/rtc0/wakealarm" "1700000000"', 'file "/sys/class/rtc/rtc0/name" "rtc_cmos"']
    log = run("--json", program="hwreg-check", extra=files).log
    opened = [line for line in log if "wakealarm" in line and line.startswith("open")]
    assert opened and all(" rdonly " in line for line in opened)
