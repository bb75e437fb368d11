"""What else hwreg-check says of a line: numbers and words that are not what they seem, and settings of the kernel and
the machine that come between a line and the hardware."""

import os
import struct

import pytest

from answers import answer, brief, shutdown  # noqa: F401 (fixtures)

PAGE = "refuse {:x} {:x} EPERM".format


def cautions(told):
    return " | ".join(told["cautions"])


# Words, and what is said of them; on "intel", or on the machine that "@" names. "" for nothing.
CAUTIONS = {
    # numbers
    "/IO /RB FF": 'the port "FF" counts as 0h: hexadecimal numbers begin with 0x',
    "/IO /RB 1F": 'the port "1F" counts as 1h: hexadecimal numbers begin with 0x',
    "/IO /RB 80h": 'the port "80H" counts as 50h: what is no digit is skipped',
    "/IO /RB -5": 'the port "-5" counts as 5h: what is no digit is skipped',
    "/MEM /RB 0x12_34": "",
    "/IO /RB 0x10080": "the port 0X10080 has more than 16 bits and counts as 80h",
    "/MEM /RB 0x100000000": "the address 0X100000000 has more than 32 bits and counts as 0h",
    "/MEM /RB 0x10000000000000005": "the address 0X10000000000000005 has more than 32 bits and counts as 5h",
    "/IO /WB 0x80 0x1FF": "the data 0X1FF has more than 8 bits and counts as FFh",
    "/IO /WI 0x80 3 0x100": "the value 0X100 has more than 8 bits and counts as 0h",
    "/IO /RB": "the port is missing and counts as 0",
    "/IO /WB 0x80": "the data is missing and counts as 0",
    "/IO /RB /LOG 0x80": 'the port is "/LOG", a switch word, and counts as 0h | ',
    "/RTC /T 5 60": 'the number of seconds "/T" counts as 0h',
    "/PCI /RB 0 0x1f 0": "the offset is missing and counts as 0",
    "/MSR /ALL /RD 0x1B": "the register is missing and counts as 0",
    "@amd /SMU /RD 2 FF": 'the argument "FF" counts as 0h',
    # words that nobody takes
    "/SHUTDOWN --help": 'ignored, being neither switch words nor in an operand\'s place: "--help"',
    "/PCI /RB 0 0 0 0 /RBB 7": 'operand\'s place: "/RBB", "7"',
    "/PCI /DUMP 0 0x1F": 'operand\'s place: "0", "0x1F"',
    "/IO /RB 0x80 T": '"T"',
    "/RTC --Help": '"--Help" IS NO HELP WORD, and the line is carried out: help is /H | the number of seconds',
    "/PCI -h": "",
    "/TIMEOUT T 0": "",
    "/CPUID /RD 0 ALL": '"ALL"',
    # more than one command, and texts that spell one
    "/MEM /RB 0x1000 /PCI": '"/PCI" means a command, too: of several on a line one is carried out, here /MEM',
    "/SMBIOS /S RTC": '"/SMBIOS" means a command, too: of several on a line one is carried out, here /RTC | ',
    "/SMBIOS /S SMB": '"/SMBIOS" means a command, too: of several on a line one is carried out, here /SMBUS',
    "/MEM /RF RTC 0x1000 1": "here /RTC",
    "/MEM /RF ./RTC 0x1000 1": "",
    "/MEM /IO /RF X.BIN 0x1000 1": "",
    "/PCI /?": "unquoted, a shell turns /? into a file",
    "/PCI /HELP": "",
    # files
    "/MEM /RF x.bin 0x1000 1": "the name becomes X.BIN: put /S before it",
    "/S /MEM /RF x.bin 0x1000 1": "",
    "/MEM /RF X.BIN 0 0": "the length is 0, and so is the file's",
    "/IO /RF X.BIN 0xFFFF 2": "behind port FFFFh it goes on at 0",
    # keys
    "/PCI /DUMP": "it waits for a key after each page",
    "/PCI /DUMP /NOMSG": "",
    "/SMBUS /DUMP 0xA0 /NOMSG": "",
    "/SIO /DUMP /NOMSG": "",
    "/SMBIOS": "it waits for a key after each page",
    "/SMBIOS /TYPE 4": "",
    "/ACPI /DUMP": "it waits for a key after each page",
    # hardware that somebody else uses, and writes that do more
    "/IO /WB 0xCF9 6": "a write to port CF9h can restart the machine",
    "/IO /RB 0xCF9": "the kernel reaches PCI configuration space through ports CF8h to CFFh",
    "/IO /WW 0x63 0": "a write to port 64h can restart the machine",
    "/IO /WB 0xB2 0": "a write to port B2h enters system management mode",
    "/IO /INDEX /RB 0x70 0x71 0x8A": "bit 7 of the number masks the NMI",
    "/IO /INDEX /RB 0x4E 0x4F 0x120": "written as a word to port 4Eh",
    "/PCI /RB 0 5 0 0": "the kernel knows no function 00:05.0",
    "/SMBUS /WB 0xA0 0 0": "a memory module whose SPD was overwritten",
    "/SMBUS /S 0xA0 0xAE": "take a read as a command",
    "/MSR /WD /ALL 0x1A0 0 0x850089": "a CPU is written what was read back from the one before it",
    "/MEM /S 0xFFFFFF00 0x200 x": "the range goes beyond 4 GiB and on at 0",
}


@pytest.mark.parametrize("line", CAUTIONS)
def test_a_caution_is_said(check, tmp_path, line):
    board, words = line[1:].split(" ", 1) if line.startswith("@") else ("intel", line)
    said = cautions(check(words, board=board, cwd=tmp_path)) + " | "
    expected = CAUTIONS[line]
    assert expected in said if expected else said == " | "


@pytest.mark.parametrize("words", ["/SHUTDOWN --help", "/RTC --help", "/PCI /RB 1A 2B 3C 4D six /IO --HELP"])
def test_that_nobody_is_helped_is_the_first_caution(check, words):
    assert check(words)["cautions"][0].endswith("IS NO HELP WORD, and the line is carried out: help is /H")


def test_no_more_than_four_cautions_are_said_and_the_ignored_words_first(check):
    told = check("/IO /INDEX /WI 1A 2B 3C 4D 5E six seven")
    assert len(told["cautions"]) == 4
    assert told["cautions"][0].endswith('"six", "seven"')


def test_drivers_are_cautions(check):
    clock = ['file "/sys/class/rtc/rtc0/name" "rtc_cmos rtc_cmos"']
    for words in ["/IO /INDEX /RB 0x70 0x71 0", "/IO /RB 0x71", "/RTC 60"]:
        assert "rtc_cmos" in cautions(check(words, extra=clock)), words
    assert "rtc_cmos" not in cautions(check("/IO /RB 0x72", board="intel"))
    chip = ['file "/proc/modules" "nct6775 28672 0 - Live 0x0000000000000000"']
    for words in ["/SIO /RB 0x20", "/IO /INDEX /RB 0x2E 0x2F 0x20"]:
        told = check(words, extra=chip)
        assert told["verdict"] == "works" and "nct6775" in cautions(told), words


# memory


def test_an_access_needs_the_page_behind_its_own_too(answer):  # noqa: F811
    refused = PAGE(0x101000, 0x1000)
    told = answer("/MEM /RD 0x100FF0", extra=refused)
    assert brief(told) == ("refused", 255, "return data:0x0000FFFF")
    assert "the page at 101000h cannot be mapped" in told["why"]
    assert "the page itself can be mapped" in cautions(told)
    assert answer("/MEM /RF X.BIN 0x100FF0 16", extra=refused)["verdict"] == "works"
    assert answer("/MEM /RB 0xFFFF0", extra=refused)["verdict"] == "works"


def test_a_refused_page_shows_the_failure_value_of_the_width(answer):  # noqa: F811
    refused = PAGE(0x100000, 0x1000)
    shown = {"/MEM /RB 0x100000": (255, "return data:0xFF"), "/MEM /RW 0x100000": (255, "return data:0xFFFF"),
             "/MEM /RI 0x100000 0": (1, "return data:1"), "/MEM /RI 0x100000 15": (1, "return data:1"),
             "/MEM /RI 0x100000 16": (0, "return data:0"), "/MEM /WW 0x100000 1": (255, "return data:0xFFFF")}
    for words, (status, shows) in shown.items():
        assert brief(answer(words, extra=refused)) == ("refused", status, shows), words


def test_a_range_may_be_refused_in_part(answer):  # noqa: F811
    refused = PAGE(0x101000, 0x1000)
    for words, status in [("/MEM /RF X.BIN 0x100800 0x1000", 0), ("/MEM /S 0x100000 0x3000 nothing", None)]:
        told = answer(words, extra=refused)
        assert (told["verdict"], told["status"]) == ("other", status), words
        assert told["shows"].startswith("FFh in place of the bytes of 1 of "), words
    told = answer("/MEM /RF X.BIN 0x101800 16", extra=refused)
    assert brief(told) == ("refused", 0, "the file holds bytes of FFh")
    told = answer("/MEM /DUMP 0xFFFFFF00 /LOG /TEXT", extra=PAGE(0xFFFFF000, 0x1000))
    assert brief(told) == ("refused", 0, "FF " * 16)


def test_a_file_that_is_there_is_replaced_or_cannot_be(answer, tmp_path):  # noqa: F811
    (tmp_path / "HERE").write_text("x")
    told = answer("/MEM /RF here 0x1000 1", real=False)
    assert told["verdict"] == "works" and "the file HERE is there and is replaced" in cautions(told)
    assert (tmp_path / "HERE").read_text() == "x"
    os.mkfifo(tmp_path / "FIFO")
    assert brief(answer("/MEM /RF FIFO 0x1000 1")) == ("refused", 21, "FileOpen fail!")
    told = answer("/MEM /RF folder/x 0x1000 1")
    assert "FOLDER: No such file" in told["why"] and "put /S before it" in told["remedy"]
    assert [path.name for path in tmp_path.iterdir() if path.is_file()] == ["HERE"]


@pytest.mark.skipif(os.geteuid() != 0, reason="makes files of others")
def test_a_link_makes_the_file_where_it_leads(answer, tmp_path):  # noqa: F811
    (tmp_path / "OUT").mkdir()
    for name, target in {"IN": "OUT/FILE", "FAR": "IN", "LOST": "GONE/FILE", "LOST2": "LOST",
                         "ROOT": str(tmp_path / "OUT/FILE2"), "SLASH": "FILE3/"}.items():  # fmt: skip
        (tmp_path / name).symlink_to(target)
    for name in ("IN", "FAR", "ROOT"):
        assert answer(f"/MEM /RF {name} 0x1000 1")["verdict"] == "works", name
        for path in (tmp_path / "OUT").iterdir():
            path.unlink()
    for name in ("LOST", "LOST2", "SLASH"):
        assert brief(answer(f"/MEM /RF {name} 0x1000 1")) == ("refused", 21, "FileOpen fail!"), name


def test_somebody_elses_file_in_a_folder_for_all_is_protected(check, tmp_path):
    (tmp_path / "FILE").write_text("x")
    os.chown(tmp_path / "FILE", 12345, 12345)
    os.chown(tmp_path, 54321, 54321)
    tmp_path.chmod(0o1777)
    protected = 'file "/proc/sys/fs/protected_regular" "1"'
    told = check("/MEM /RF FILE 0x1000 1", extra=protected, cwd=tmp_path)
    assert told["verdict"] == "refused" and "fs.protected_regular" in told["why"]
    assert check("/MEM /RF FILE 0x1000 1", cwd=tmp_path)["verdict"] == "works"


# configuration space

MOVED = ["pci 00:00.0", "dword 60 d0000001"]  # the register says d0000000, and the window stays where it was


def test_a_window_that_is_elsewhere_gives_other_data_and_writes_to_memory(check):
    extra = [*MOVED, "fill d0000000 100000 5a"]
    told = check("/PCI /RD 0 1 0 0x100", extra=extra)
    assert (told["verdict"], told["because"]) == ("other", "config-window")
    assert told["shows"] == "whatever is in memory at D0008100h"
    told = check("/PCI /WB 0 1 0 0x100 1", extra=extra)
    assert told["cautions"][0].startswith("IT WRITES TO MEMORY AT D0008100h")
    assert check("/PCI /RD 0 1 0 0xFC", extra=extra)["verdict"] == "works"


def test_a_refused_window_is_refused(answer):  # noqa: F811
    told = answer("/PCI /RD 0 1 0 0x100", extra=PAGE(0xE0000000, 0x10000000))
    assert brief(told) == ("refused", 255, "return data:0x0000FFFF")
    assert told["because"] == "io-strict-devmem" or told["because"] == "strict-devmem"


def test_without_the_kernels_list_nothing_is_guessed(check):
    hidden = ['file "/proc/bus/pci/devices" EACCES']
    for words in ["/PCI /RD 0 1 0 0x100", "/SMBUS /RB 0xA0 0", "/SMN /RD 0 0", "/I2C /RB 0 0x50 0", "/RTC 60"]:
        told = check(words, board="amd", extra=hidden)
        assert told["verdict"] == "works" and "cannot be told" in cautions(told), words


def test_a_controller_without_a_base_is_other_data(check):
    told = check("/SMBUS /RB 0xA0 0", extra=["pci 00:1f.4", "dword 20 00000001"])
    assert told["verdict"] == "other" and "00:1f.4 has no base address" in told["why"]


# processors


def test_dropped_writes_to_msrs_show_the_old_value(check):
    extra = ['file "/sys/module/msr/parameters/allow_writes" "off"']
    for words in ["/MSR /WD 0 0x1A0 0 1", "/MSR /WD /ALL 0x1A0 0 1"]:
        told = check(words, extra=extra)
        assert brief(told) == ("refused", None, "return MSR: the value that was there before"), words
        assert told["because"] == "msr-writes"
    assert check("/MSR /RD 0 0x1A0", extra=extra)["verdict"] == "works"


LEAVES = ["cpuid 0 0 2 756e6547 6c65746e 49656e69", "cpuid 1 0 906ea 0 0 0", "cpuid 2 0 76036301 1 2 3",
          "cpuid 80000000 0 80000001 0 0 0", "cpuid 80000001 0 0 0 0 1"]  # fmt: skip


def test_leaves_that_there_are_not_give_the_last_ones_data(check, run):
    for leaf in (0, 2, 0x80000001):
        assert check(f"/CPUID /RD {leaf:#x}", extra=LEAVES)["verdict"] == "works", leaf
    for leaf in (0x17, 0x40000000, 0x80001000, 0xC0000000):
        told = check(f"/CPUID /RD {leaf:#x}", extra=LEAVES)
        assert brief(told) == ("other", None, "the data of leaf 2h"), leaf
        assert "Eax:76036301" in run(f"/CPUID /RD {leaf:#x}", extra=LEAVES).text
    amd = [line.replace("756e6547 6c65746e 49656e69", "68747541 444d4163 69746e65") for line in LEAVES]
    assert check("/CPUID /RD 0x17", extra=amd)["shows"] == "zeros"


def test_a_hypervisors_leaves_are_believed(check):
    guest = [*LEAVES, "cpuid 1 0 906ea 0 80000000 0", "cpuid 40000000 0 40000001 4b4d564b 564b4d56 4d"]
    assert check("/CPUID /RD 0x40000001", extra=guest)["verdict"] == "works"
    assert check("/CPUID /RD 0x40000002", extra=guest)["verdict"] == "other"


def test_registers_of_a_driver_that_comes_are_not_known(check, tmp_path, monkeypatch):
    (tmp_path / "programs/modprobe").write_text("#!/bin/false\n")
    (tmp_path / "programs/modprobe").chmod(0o755)
    extra = ["msr-nodes modprobe", f'file "/lib/modules/{os.uname().release}/kernel/arch/x86/kernel/msr.ko" "ELF"']
    for words in ["/MSR /RD 0 0x1234", "/MSR /WD 0 0x1234 0 1", "/MSR /RD /ALL 0x1234"]:
        told = check(words, extra=extra)
        assert told["verdict"] == "works" and "cannot be told before the msr module is loaded" in cautions(told), words
    assert "cannot be told" not in cautions(check("/MSR /RD 0 0x1B"))


# firmware's tables


def test_a_table_that_is_another_is_other_data(check):
    kernels = [f'file-bytes "/sys/firmware/dmi/tables/DMI" 0 {bytes([0, 26, 1, 2] + [7] * 60).hex(" ")}',
               'file-bytes "/sys/firmware/dmi/tables/smbios_entry_point" 0 00']
    for words in ["/SMBIOS", "/SMBIOS /TYPE 4", "/SMBIOS /DUMP", "/SMBIOS /S x"]:
        told = check(words, extra=kernels)
        assert (told["verdict"], told["because"]) == ("other", "smbios"), words


def test_refused_tables_show_bytes_of_ff(answer):  # noqa: F811
    extra = PAGE(0x7A5BD000, 0x2000)
    assert brief(answer("/SMBIOS /DUMP /LOG /TEXT", extra=extra)) == ("refused", 0, "FF " * 16)
    assert brief(answer("/SMBIOS /TYPE 4", extra=extra)) == ("refused", 0, "ends with status 0 and prints nothing")
    told = answer("/SMBIOS /S dimm", extra=extra)
    assert brief(told) == ("refused", 14, "ERROR: Cannot find dimm in SMBIOS!")


def test_a_text_that_is_no_root_pointer_is_other_data(check):
    told = check("/ACPI /DUMP /LOG", extra='text f0010 "RSD PTR of something else"')
    assert (told["verdict"], told["status"], told["because"]) == ("other", 0, "rsdp")


def memory_module(kind):
    """A structure of type 17 with one module of that kind."""
    body = bytearray(40)
    struct.pack_into("<H", body, 0x0C - 4, 0x4000)
    body[0x12 - 4] = kind
    return bytes([17, 44, 0x11, 0]) + bytes(body) + b"\0\0"


def test_modules_whose_spd_is_not_in_pages_are_dumped_in_part(check):
    def told(words, kind, modules=1):
        table = memory_module(kind) * modules + bytes([127, 4, 0, 1, 0, 0])
        lines = [f'file-bytes "/sys/firmware/dmi/tables/DMI" {at:x} {table[at:at + 64].hex(" ")}'
                 for at in range(0, len(table), 64)]  # fmt: skip
        return check(words, extra=lines)

    assert (told("/SMBUS /DUMP 0xA0 /LOG", 0x22)["verdict"], told("/SMBUS /DUMP 0xA0 /LOG", 0x22)["because"]) == (
        "other", "spd")  # fmt: skip
    assert told("/SMBUS /DUMP 0x60 /LOG", 0x22)["verdict"] == "works"
    assert "DDR5" in cautions(told("/SMBUS /RB 0xA0 2", 0x22))
    assert told("/SMBUS /DUMP 0xA0 /LOG", 0x1A)["verdict"] == "works"
    assert told("/SMBUS /DUMP 0xAC /LOG", 0x1A)["verdict"] == "works"
    assert told("/SMBUS /DUMP 0xAA /LOG", 0x1A, modules=8)["verdict"] == "works"
    assert told("/SMBUS /DUMP 0xAC /LOG", 0x1A, modules=8)["verdict"] == "other"


# power


def clock(time, *more):
    return ['file "/sys/class/rtc/rtc0/name" "rtc_cmos rtc_cmos"', f'file "/sys/class/rtc/rtc0/time" "{time}"',
            f"cmos-time 2024-02-03 {time}", *more]


# The clock's time, seconds, and the alarm that is set in the place of the right one; None for a right one.
ALARMS = [
    ("23:58:00", 60, None),
    ("23:59:30", 60, "0c:00:30"),  # hour 24: no hour of the clock
    ("21:00:00", 4 * 3600, "0d:00:00"),
    ("21:00:00", 7 * 3600, "10:00:00"),  # hour 28, which comes at 10 and not at 4
    ("21:00:00", 9 * 3600, "00:00:00"),
    ("04:00:00", 86400, "10:00:00"),
    ("04:00:00", 86399, "0f:59:59"),
    ("00:00:00", 2 * 86400, "00:00:00"),  # two days early
]


@pytest.mark.parametrize("time, seconds, alarm", ALARMS)
def test_an_alarm_past_midnight_is_another_one(answer, time, seconds, alarm):  # noqa: F811
    told = answer(f"/RTC {seconds}", extra=clock(time))
    expected = ("works", 0, "") if alarm is None else ("other", 0, f"SetCmos timer:  {alarm}")
    assert brief(told) == expected
    if alarm is not None:
        hour = int(alarm[:2], 16)
        never = hour & 15 > 9
        assert ("never shows" in told["why"]) == never


def test_the_countdown_counts_for_the_alarm(check):
    assert check("/RTC 60", extra=clock("23:58:00"))["verdict"] == "works"
    told = check("/RTC 60 /T 90", extra=clock("23:58:00"))
    assert told["does"].startswith("counts 90 seconds down, then sets the clock's alarm 60 seconds ahead")
    assert (told["verdict"], told["shows"]) == ("other", "SetCmos timer:  0c:00:30")
    assert told["remedy"] == "less than 30 seconds do not reach midnight"


def test_a_binary_clock_wraps_later(check):
    binary = 'file "/proc/driver/rtc" "BCD\t\t: no"'
    told = check(f"/RTC {9 * 3600}", extra=clock("21:00:00", binary))
    assert (told["verdict"], told["shows"]) == ("other", "SetCmos timer:  30:00:00")
    assert check(f"/RTC {16 * 3600}", extra=clock("21:00:00", binary))["verdict"] == "works"


@pytest.mark.parametrize("shown", [True, False])
def test_a_clock_of_twelve_hours_gets_no_right_alarm(check, shown):
    told = check("/RTC 60", extra=[*clock("04:05:06")[not shown:], 'file "/proc/driver/rtc" "24hr\t\t: no"'])
    assert told["verdict"] == "other" and "twelve hours" in told["why"]
    assert check("/RTC 60", extra=clock("04:05:06", 'file "/proc/driver/rtc" "24hr\t\t: yes"'))["verdict"] == "works"


def test_a_clock_that_is_not_shown_is_a_caution(check):
    told = check("/RTC 60", board="intel")
    assert told["verdict"] == "works" and "the clock's time cannot be told" in cautions(told)


def test_without_shutdown_the_machine_stays_on(check, monkeypatch):
    monkeypatch.setenv("PATH", "/nowhere")
    for words, status in {"/SHUTDOWN": 0, "/RTC 60": 0, "/RTC": 21, "/RTC 60 /RESET": 21}.items():
        told = check(words)
        assert brief(told) == ("refused", status, "the machine stays on"), words
        assert told["because"] == "shutdown"
    assert check("/TIMEOUT /T 5")["verdict"] == "works"


@pytest.mark.parametrize("words", ["/TIMEOUT /T {}", "/SHUTDOWN /T {}", "/RTC 60 /T {}"])
def test_a_countdown_that_passes_32_bits_may_end_at_once(check, answer, words):  # noqa: F811
    told = answer(words.format("0xFFFFFFFF"))
    assert told["cautions"][0].startswith("THE COUNTDOWN MAY END AT ONCE") and told["status"] == 0
    assert "AT ONCE" not in cautions(check(words.format(0xFFFFFFFF - 86400)))


def test_a_counter_that_cannot_be_written_is_a_caution(check, tmp_path):
    (tmp_path / "RTCLOG").mkdir()
    assert "not counted: RTCLOG: it is a folder" in cautions(check("/RTC 60 /T 5", cwd=tmp_path))
    assert "not counted" not in cautions(check("/RTC 60", cwd=tmp_path))
    assert "not counted" not in cautions(check("/RTC 0 /T 5", cwd=tmp_path))
    (tmp_path / "RBTLOG").mkdir()
    assert "not counted: RBTLOG" in cautions(check("/RTC 0 /T 5", cwd=tmp_path))


def test_what_follows_an_alarm_is_said(check):
    assert "behind the alarm /SHUTDOWN is carried out, too" in cautions(check("/RTC 60 /SHUTDOWN"))


def test_a_platform_without_a_power_management_block_is_other_data(check, run):
    extra = "bytes 7a2fe390 00 00 00 00"  # of the FADT
    told = check("/RTC 60", extra=extra)
    assert (told["verdict"], told["status"]) == ("other", 0) and "no power management block" in told["why"]
    assert told["shows"].startswith("ports 0 to 3")
    words = [line[:10] for line in run("/RTC 60", extra=extra).ports() if line.startswith("out16")]
    assert words == ["out16 0000", "out16 0002"]
    assert check("/RTC 60")["verdict"] == "works"
