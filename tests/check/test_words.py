"""What hwreg-check tells of one command line. Where it foretells a status or a line of the output, hwreg is run on the
same machine and has to end so and to print that."""

import json
import re

import pytest

import texts
from answers import answer, brief, shutdown  # noqa: F401 (fixtures)


def test_every_line_ends_with_6_without_io_privilege(check, run):
    for line in ["/IO /RB 0x80", "/PCI /?", "/?", "nonsense", "/LOG", "/RTC 6", "/MSR /RD 0 0x1B", "/SHUTDOWN"]:
        told = check(line, board="noiopl")
        assert brief(told) == ("refused", 6, "ends with status 6 and prints nothing"), line
        assert told["because"] == "iopl" and told["why"]
        result = run(line, board="noiopl")
        assert (result.status, result.text) == (6, ""), line


def pattern(form):
    """A form as an expression for its command lines."""
    needed = re.sub(r" \[.*", "", form)
    words = [f"({word})" if word.startswith("/") else r"[^/ ]\S*" for word in needed.split()]
    return re.compile(" ".join(words) + ("( .*)?" if needed != form else ""))


def test_the_whole_report_has_a_line_for_each_form(check):
    lines = [" ".join(command["words"]) for command in check(board="intel")["commands"]]
    plain = [line.replace(" /LOG", "").replace(" /NOMSG", "") for line in lines]
    forms = texts.reference_forms()
    first = [next((number for number, line in enumerate(plain) if pattern(form).fullmatch(line)), None)
             for form in forms]  # fmt: skip
    assert None not in first, [form for form, number in zip(forms, first) if number is None]
    assert first == sorted(first), "the lines stand in the order of the reference"
    assert all(any(pattern(form).fullmatch(line) for form in forms) for line in plain)


DOES = {
    "/?": "shows the help screen",
    "/smbus /?": "shows the forms of /SMBUS",
    "/CPUID /?": "shows the forms of /CPUID",
    "/IO /RB 0x80": "reads a byte of port 80h",
    "-io rw 128": "reads a word of port 80h",
    "/IO /WD 0x500 0x12345678": "writes a dword, 12345678h, to port 500h and reads it back",
    "/IO /RI 0x80 5": "reads bit 5 of port 80h",
    "/IO /WI 0x80 5 0": "clears bit 5 of port 80h and reads it back",
    "/IO /RI 0x80 5 /WI": "reads bit 0 of port 0h",  # /WI is looked for first, and a bit that is read is not written
    "/IO /DUMP 0x500 /LOG": "shows the ports from 500h to FFFEh, read byte by byte, 256 a page",
    "/IO /DUMP 0x500 /NOMSG": "reads 256 ports from 500h on and shows nothing (/NOMSG)",
    "/IO /DUMP 0x500 /RB 0x80": "reads a byte of port 80h",
    "/IO /INDEX /RB 0x70 0 0x0A": "reads a byte of register Ah behind ports 70h/71h",
    "/IO /INDEX /WB 0x72 0x73 0x10 0x5A": "writes a byte, 5Ah, to register 10h behind ports 72h/73h and reads it back",
    "/IO /INDEX /DUMP 0x70 0 /RB": "shows registers 0 to FFh behind ports 70h/71h",  # the first word counts
    "/MEM /RB 0xFE000": "reads a byte of memory at FE000h",
    "/MEM /WI 0x1000 3 1": "sets bit 3 of memory at 1000h and reads it back",
    "/MEM /RB 0x1000 /DUMP 0xFFFFFF00 /LOG": "shows memory from FFFFFF00h to FFFFFFFFh, 256 bytes a page",
    "/MEM /S 0xF0000 0x1000 SIM": 'looks for "SIM" in 1000h bytes of memory from F0000h on',
    "/MEM /RF X.BIN 0xFE000 16": "copies 10h bytes of memory from FE000h on into the file X.BIN",
    "/IO /RF X.BIN 0x500 16": "copies 10h ports from 500h on into the file X.BIN",
    "/PCI /RB 0 0x1f 0 0": "reads a byte of configuration space of 00:1f.0 at 0h",
    "/PCI /WB 0 0 0 0xDC 0x77": "writes a byte, 77h, to configuration space of 00:00.0 at DCh and reads it back",
    "/PCI /DUMP /NOMSG": "lists the functions of all buses",
    "/PCI /DUMP /LOG": "lists the functions of all buses, each with its first 256 bytes",
    "/PCI /DUMP /LOG /TEXT 0": "lists the function 00:00.0 with its first 256 bytes",
    "/PCI /DUMP 0 0x1F 0 /LOG": "lists the function 00:1f.0 with its first 256 bytes",
    "/MSR /RD 1 0x1B": "reads MSR 1Bh of CPU 1",
    "/MSR /RQ /A 0x1B": "reads MSR 1Bh of every CPU",
    "/MSR /WD 0 0x1A0 0 0x850089": "writes 00000000_00850089h to MSR 1A0h of CPU 0 and reads it back",
    "/CPUID /RD 0x80000001": "shows CPUID leaf 80000001h of the CPU on which it happens to run",
    "/MSR /CPUID /RD 0 0x1B": "reads MSR 1Bh of CPU 0",
    "/SIO /RB 0x20": "reads register 20h of the Super I/O",
    "/SIO /WB 7 0x0B": "writes and reads back register 7h of the Super I/O",
    "/SIO /RB 0x20 /WB 7 0x0B": "reads register 20h of the Super I/O, behind other accesses",
    "/SIO /DUMP /LOG": "shows the registers of nine logical devices of the Super I/O",
    "/SMBUS /RW 0xA1 2": "reads offset 2h of SMBus device A0h",
    "/SMB /WB 0xA4 0x10 0x5A": "writes 5Ah to offset 10h of SMBus device A4h and reads it back",
    "/SMBUS /RB 0xA0 2 /WB 0xA4 1 1": "reads offset 2h of SMBus device A0h",
    "/SMBUS /DUMP 0xA0": "shows 256 bytes of SMBus device A0h, or the 512 of a DDR4 module",
    "/SMBUS /DUMP 0xAC /NOMSG": "reads 256 bytes of SMBus device ACh, and shows nothing (/NOMSG)",
    "/SIO /DUMP /NOMSG": "reads the registers of nine logical devices of the Super I/O and shows nothing (/NOMSG)",
    "/SMBUS /DUMP 0xAC /LOG": "shows 256 bytes of SMBus device ACh",
    "/SMBUS /S 0xA0 0xAE": "reads a byte of every second SMBus address from A0h to AEh",
    "/SMBIOS /TYPE 4": "shows the SMBIOS structures of type 4",
    "/SMBIOS /DUMP /LOG": "shows the SMBIOS table as it stands in memory",
    "/SMBIOS /DUMP /NOMSG /LOG": "lists and shows the SMBIOS structures",
    "/SMBIOS /S dimm_a2": 'looks for "dimm_a2" in the SMBIOS table, in capitals first',
    "/ACPI /DUMP /LOG": "shows the ACPI root pointer",
    "/ACPI": "looks for the ACPI root pointer and shows nothing",
    "/TIMEOUT": "nothing: there are no seconds behind /T to be counted down",
    "/SHUTDOWN": "switches the machine off (shutdown -P now), at once",
    "/RTC": "restarts the machine (shutdown -r now)",
    "/RTC 60 /RESET": "restarts the machine (shutdown -r now)",
    "/RTC 60": "sets the clock's alarm 60 seconds ahead and switches the machine off (shutdown -P now)",
    "/RTC 3 /F": "sets the clock's alarm 3 seconds ahead and switches the machine off (shutdown -P now)",
}
ON_AMD = {
    "/I2C /RB 0 0x50 2": "reads register 2h of device 50h behind I2C core 0",
    "/I2C /WB 0 0x50 4 0x4321": "writes 4321h to register 4h of device 50h behind I2C core 0 and reads it back",
    "/SMN /RD 0 0x18000": "reads a dword of SMN register 18000h of die 0",
    "/SMN /WW 0 0x18000 0x5A5A /WD": "writes a word, 5A5Ah, to SMN register 18000h of die 0 and reads it back",
    "/SMN /WI 0 0x18000 3 1": "sets bit 3 of SMN register 18000h of die 0 and reads it back",
    "/SMU /RD 2 1": "sends message 2h to the SMU and shows its answer",
}


@pytest.mark.parametrize("board, lines", [("intel", DOES), ("amd", ON_AMD)], ids=["intel", "amd"])
def test_it_is_told_what_a_line_does(answer, board, lines):
    wrong = {}
    for words, does in lines.items():
        told = answer(words, board=board, real=False)
        if (told["does"], told["verdict"]) != (does, "works"):
            wrong[words] = told
    assert not wrong, json.dumps(wrong, indent=1)


NOTHING = "ends with status {} and prints nothing"
ONES = {"/RB": "0xFF", "/RW": "0xFFFF", "/RD": "0xFFFFFFFF"}

# Words: verdict, status, what is shown; on "intel", or on the machine that "@" names.
JUDGED = {
    # words that make no command
    "nonsense": ("refused", 0, "the help screen"),
    "/LOG": ("refused", 15, NOTHING.format(15)),
    "/USB": ("refused", 15, NOTHING.format(15)),
    "/IO": ("refused", 2, NOTHING.format(2)),
    "/IO /RQ 0": ("refused", 2, NOTHING.format(2)),
    "/IO /INDEX 0x70": ("refused", 2, NOTHING.format(2)),
    "/MEM 0x1000": ("refused", 2, NOTHING.format(2)),
    "/PCI 0 0 0 0": ("refused", 2, NOTHING.format(2)),
    "/PCI /RQ 0 0 0 0": ("refused", 2, NOTHING.format(2)),
    "/MSR 0 0x1B": ("refused", 2, NOTHING.format(2)),
    "/MSR /RB 0 0x1B": ("refused", 2, NOTHING.format(2)),
    "/CPUID 0": ("refused", 2, NOTHING.format(2)),
    "/SMBUS 0xA0": ("refused", 255, NOTHING.format(255)),
    "/SMBUS /RI 0xA0 1 2": ("refused", 255, NOTHING.format(255)),
    "/SIO": ("refused", 0, NOTHING.format(0)),
    "@unknown /SMBUS 0xA0": ("refused", 255, "Not found ClaseCode(0C05)"),
    "@amd /I2C 0": ("refused", 255, NOTHING.format(255)),
    "/SMN 0": ("refused", 15, "InitSmuService error: 8000000F"),
    "/SMU /RB 2": ("refused", 15, "InitSmuService error: 8000000F"),
    "@amd /SMN 0": ("refused", 0, NOTHING.format(0)),
    "@amd /SMU /RB 2": ("refused", 0, NOTHING.format(0)),
    # help of a command is a command
    "/PCI /?": ("works", 2, ""),
    "/SMBUS /H": ("works", 255, ""),
    # bits that there are not
    "/IO /RI 0x80 32": ("other", 0, "return data:0"),
    "/IO /WI 0x80 40 1": ("other", 0, "return data:0"),
    "/IO /INDEX /RI 0x70 0x71 0x0A 32": ("other", 0, "return data:0"),
    "/MEM /RI 0x1000 99": ("other", 0, "return data:0"),
    "/PCI /RI 0 0 0 0 32": ("other", 0, "return data:0"),
    "/SIO /RI 0x20 40": ("other", 0, "data = 0x0"),
    "/SIO /RI 0x20 8": ("other", 0, "a bit of port 50h"),
    "@amd /SMN /RI 0 0x18000 32": ("other", None, "return data:0"),
    # memory
    "@nomem /MEM /RB 0x1000": ("refused", 255, "return data:0xFF"),
    "@nomem /MEM /RD 0x1000": ("refused", 255, "return data:0xFFFFFFFF"),
    "@nomem /MEM /RI 0x1000 31": ("refused", 1, "return data:1"),
    "@nomem /MEM /WB 0x1000 1": ("refused", 255, "return data:0xFF"),
    "@nomem /MEM /DUMP 0xFFFFFF00 /LOG /TEXT": ("refused", 0, "00 " * 16),
    "@nomem /MEM /DUMP 0xFFFFFF00 /NOMSG": ("refused", 0, ""),
    "@nomem /MEM /S 0xFE000 0x1000 SIM": ("refused", 14, "<- (Ctrl+C: abort!)  searching: SIM ->"),
    "@nomem /MEM /RF X.BIN 0xFE000 16": ("refused", 0, "the file holds zeros"),
    "/MEM /S 0xFE000 0x1000": ("refused", 2, "<- (Ctrl+C: abort!)  searching:  ->"),
    "/MEM /S 0xFE000 0 SIM": ("refused", 14, "<- (Ctrl+C: abort!)  searching: SIM ->"),
    "/MEM /S 0xFE000 0x1000 ''": ("refused", 2, "<- (Ctrl+C: abort!)  searching:  ->"),
    "/MEM /S 0xFE000 0 ''": ("refused", 21, "<- (Ctrl+C: abort!)  searching:  ->"),
    # files
    "/MEM /RF X.BIN 0xFFFFFF00 0x200": ("refused", 21, "StartAddr error!"),
    "/MEM /RF X.BIN 0x1000 0": ("refused", 21, "StartAddr error!"),
    "/MEM /RF X.BIN 0xFFFFFF00 0x100": ("works", 0, ""),
    "/MEM /RF X.BIN 0 0": ("works", 0, ""),
    "/MEM /RF": ("refused", 21, "FileOpen fail!"),
    "/MEM /RF . 0x1000 1": ("refused", 21, "FileOpen fail!"),
    "/MEM /RF '' 0x1000 1": ("refused", 21, "FileOpen fail!"),
    "/MEM /RF gone/x.bin 0x1000 1": ("refused", 21, "FileOpen fail!"),
    "/S /MEM /RF gone/ 0x1000 1": ("refused", 21, "FileOpen fail!"),
    "/S /MEM /RF /dev/tty 0x1000 1": ("refused", 21, "FileOpen fail!"),
    "/S /MEM /RF /dev/null 0x1000 1": ("works", 0, ""),
    "/RF X.BIN 0x1000 16": ("other", 0, "the file holds zeros"),
    # configuration space
    "/PCI /RB 0 32 0 0": ("other", None, "the data of 01:00.0"),
    "/PCI /RB 0 0 8 0": ("other", None, "the data of 00:01.0"),
    "/PCI /RD 0 32 0 0x100": ("other", None, "the data of 01:00.0"),
    "/PCI /RB 256 0 0 0": ("other", None, "whatever the chipset makes of that address"),
    "/PCI /RW 0 0 0 1": ("works", None, ""),
    "/PCI /RW 0 0 0 3": ("other", None, "the byte at 3h, and port D00h above it"),
    "/PCI /RD 0 0 0 2": ("other", None, "the dword at 0h"),
    "/PCI /RI 0 0 0 2 16": ("other", None, "the dword at 0h"),
    "/PCI /RI 0 0 0 2 15": ("works", None, ""),
    **{f"/PCI {word} 0 0 0 0x1000": ("other", 255, "return data:" + ones) for word, ones in ONES.items()},
    "/PCI /WI 0 0 0 0x1000 3 0": ("other", 1, "return data:1"),
    "/PCI /RD 0 1 0 0x100": ("works", None, ""),
    "/PCI /RD 0 1 0 0xFFE": ("other", None, "bytes of the next function above those up to FFFh"),
    "/PCI /RW 0 1 0 0xFFE": ("works", None, ""),
    "@unknown /PCI /RB 1 0 0 0xFF": ("works", None, ""),
    **{f"@unknown /PCI {word} 1 0 0 0x100": ("refused", 255, "return data:" + ones) for word, ones in ONES.items()},
    "@unknown /PCI /WI 1 0 0 0x100 3 0": ("refused", 1, "return data:1"),
    "/PCI /DUMP 0 5 0 /LOG": ("works", 0, "prints nothing, unless there is a function that the kernel does not know"),
    # MSRs
    "/MSR /RD 0 0x1234": ("refused", 0, "return MSR: 0x00000000_00000000"),
    "/MSR /WD 0 0x1234 0 1": ("other", 0, "return MSR: 0x00000000_00000000"),
    "/MSR /RD 99 0x1B": ("refused", 0, "return MSR: 0x00000000_00000000"),
    "/MSR /RD 40000 0x1B": ("refused", 0, "return MSR: 0x00000000_00000000"),
    "@nomsr /MSR /RD 0 0x1B": ("refused", 0, "return MSR: 0x00000000_00000000"),
    "@nomsr /MSR /RD /ALL 0x1B": ("refused", 0, NOTHING.format(0)),
    "@nomsr /MSR /WD /ALL 0x1B 0 0x5AA": ("refused", 0xAA, NOTHING.format(0xAA)),
    "/MSR /RD /ALL 0x1234": ("refused", 0, "return MSR: 0x00000000_00000000"),
    "@cpugap /MSR /RD /ALL 0x1B": ("other", None, "CPUs 0 to 3, and not the 1 behind"),
    "@cpugap /MSR /RD 5 0x1B": ("works", None, ""),
    # the Super I/O
    "/SIO /RD 0x20": ("other", 0, "SIO Read from 0x0, data = 0x0, "),
    "/SIO /RW 0x20": ("other", 0, "SIO Write Data to 0x0, data = 0x0"),
    "/SIO /RB 0x120": ("other", 0, "the data of register 20h"),
    # buses
    "@unknown /SMBUS /RB 0xA0 0": ("refused", 255, "Not found ClaseCode(0C05)"),
    "@unknown /SMBUS /S 0xA0 0xAE": ("refused", 255, "Not found ClaseCode(0C05)"),
    "/SMBUS /S 0xA0": ("refused", 255, NOTHING.format(255)),
    "/SMBUS /S 0xAE 0xA0": ("refused", 255, NOTHING.format(255)),
    "/I2C /RB 0 0x50 2": ("refused", 255, "I2C init error"),
    "@amd /I2C /RB 6 0x50 2": ("refused", 255, "I2C init error"),
    # SMN and SMU
    "/SMN /RD 0 0x18000": ("refused", 15, "InitSmuService error: 8000000F"),
    "/SMU /RD 2": ("refused", 15, "InitSmuService error: 8000000F"),
    "@amd /SMN /RD 17 0": ("refused", 2, "Invalid parameter"),
    "@amd /SMN /WB 0 0x18000 0x5A": ("other", None, "SMN Write Byte"),
    "@amd /SMN /WW 0 0x18000 0x5A": ("other", None, "SMN Write Word"),
    "@amd /SMN /WW 0 0x18000 0x5A /RD": ("other", None, "SMN Read Word"),
    "@amd /SMU /RD 0xFF": ("other", 0, "RxSmuMessageResponse Status=1"),
    # tables
    "@unknown /SMBIOS": ("refused", 7, NOTHING.format(7)),
    "@nomem /SMBIOS /S x": ("refused", 7, NOTHING.format(7)),
    "/SMBIOS /S": ("refused", 14, "ERROR: Cannot find  in SMBIOS!"),
    "@unknown /ACPI /DUMP": ("refused", 14, NOTHING.format(14)),
    # power
    "/RTC 6": ("refused", 2, "Warnning, set wakeup timer 0(0 is reset) or more than 7 seconds!"),
    "/RTC 6 /F": ("works", 0, ""),
    "/RTC 60 /GRESET": ("refused", 21, "the machine stays on"),
    "@unknown /RTC 60": ("refused", 0, "the machine goes off, and no alarm wakes it"),
    "/RTC 60": ("works", 0, ""),
    "/RTC 0": ("works", 21, ""),
    "/TIMEOUT /T 0": ("works", 0, ""),
}


@pytest.mark.parametrize("line", JUDGED)
def test_a_line_is_judged(answer, line):
    board, words = line[1:].split(" ", 1) if line.startswith("@") else ("intel", line)
    told = answer(words, board=board)
    assert brief(told) == JUDGED[line]
    assert (told["why"] != "") == (told["verdict"] != "works")
