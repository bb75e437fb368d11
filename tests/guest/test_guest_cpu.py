"""Model-specific registers and CPUID, compared with msr-tools and cpuid."""

import re

import pytest

from boots import Q35

CPUS = range(4)

# Each CPU answers 1Bh (boot processor bit), 175h (SYSENTER stack) and C0000101h (GS base) with a value of its own;
# C0000082h fills all 64 bits; 20Eh is the base of a memory type range that is not in use.
MSRS = (0x1B, 0xFE, 0x175, 0x20E, 0x277, 0x2FF, 0xC0000080, 0xC0000082, 0xC0000101)
SCRATCH = 0x20E


def msr_line(cpu, msr, value, access="read from"):
    return f"Cpu[{cpu:02}] Msr {access} {msr:08X}, return MSR: 0x{value >> 32:08X}_{value & 0xFFFFFFFF:08X}\n"


# The driver is loaded by the program. First, so that the peers find it loaded.
UNLOADED = Q35.ask(
    "rmmod msr 2>/dev/null; ls /dev/cpu/0/msr; hwreg /MSR /RD 0 0x1B; echo $?; ls /dev/cpu/0/msr; rdmsr -p 0 0x1b"
)

RDMSR = {(cpu, msr): Q35.ask(f"rdmsr -p {cpu} {msr:#x}") for msr in MSRS for cpu in CPUS}
READ = {
    (cpu, msr): Q35.ask(["hwreg", "/MSR", "/RQ" if cpu % 2 else "/RD", str(cpu), f"{msr:#x}"])
    for msr in MSRS
    for cpu in CPUS
}
ALL = {word: Q35.ask(["hwreg", "/MSR", "/RD", word, "0xC0000101"]) for word in ("/ALL", "/A", "-all")}
ABSENT = Q35.ask(["hwreg", "/MSR", "/RD", "9", "0x1B"])
NO_ACCESS_WORD = Q35.ask(["hwreg", "/MSR", "0", "0x1B"])

WRITTEN = Q35.ask(
    "hwreg /MSR /WD 2 0x20E 0x12345678 0x9ABCDEF0; echo $?; rdmsr -p 2 0x20e; rdmsr -p 1 0x20e;"
    "hwreg /MSR /WQ 1 0x20E 0xFFFFFFFF 0x80000001; echo $?; rdmsr -p 2 0x20e; rdmsr -p 1 0x20e; wrmsr -a 0x20e 0"
)
READ_BACK = Q35.ask("wrmsr -p 3 0x20e 0xfedcba9876543210; hwreg /MSR /RQ 3 0x20E; echo $?; wrmsr -a 0x20e 0")
WRITTEN_ALL = Q35.ask("hwreg /MSR /WD /ALL 0x20E 0x11223344 0x55667788; echo $?; rdmsr -a 0x20e; wrmsr -a 0x20e 0")
# A range base written differently on each CPU before, so that a write that went astray shows.
UNTOUCHED = Q35.ask(
    "for cpu in 0 1 2 3; do wrmsr -p $cpu 0x20e 0x${cpu}00; done; hwreg /MSR /WD 2 0x20E 0 7; rdmsr -a 0x20e;"
    "wrmsr -a 0x20e 0"
)
ABSENT_WRITE = Q35.ask(["hwreg", "/MSR", "/WD", "9", "0x20E", "1", "2"])

# The module's file is put out of the way.
HIDE = "rmmod msr; file=$(find /lib/modules/ -name msr.ko); mv $file /run/msr.ko; "
SHOW = "; mv /run/msr.ko $file"
HIDDEN_PCI = Q35.ask(HIDE + "hwreg /PCI /RD 0 0 0 0; echo $?" + SHOW)
HIDDEN_READ = Q35.ask(HIDE + "hwreg /MSR /RD 0 0x1B; echo $?; ls /dev/cpu/0/msr" + SHOW)
HIDDEN_ALL = Q35.ask(HIDE + "hwreg /MSR /RD /ALL 0x1B; echo $?" + SHOW)
SHOWN_AGAIN = Q35.ask(["hwreg", "/MSR", "/RD", "1", "0x175"])

LEAVES = (0, 1, 2, 4, 7, 0xB, 0xD, *range(0x80000000, 0x80000009))
CPUID_PEERS = {leaf: Q35.ask(f"taskset 1 cpuid -1 -r -l {leaf:#x} -s 0") for leaf in LEAVES}
CPUID = {leaf: Q35.ask(["taskset", "1", "hwreg", "/CPUID", "/RD", f"{leaf:#x}"]) for leaf in LEAVES}
CPUID_LAST = Q35.ask(["taskset", "8", "hwreg", "/CPUID", "/RQ", "0xB"])
CPUID_LAST_PEER = Q35.ask("taskset 8 cpuid -1 -r -l 0xb -s 0")
CPUID_NO_ACCESS_WORD = Q35.ask(["hwreg", "/CPUID", "0"])


def test_the_program_loads_the_driver_itself():
    line = msr_line(0, 0x1B, 0xFEE00900)
    assert UNLOADED.stdout == f"{line}0\n/dev/cpu/0/msr\nfee00900\n"
    assert UNLOADED.stderr.count("No such file") == 1


@pytest.mark.parametrize("msr", MSRS, ids=hex)
def test_reads_what_rdmsr_reads_on_every_cpu(msr):
    for cpu in CPUS:
        value = int(RDMSR[cpu, msr].stdout, 16)
        assert READ[cpu, msr].stdout == msr_line(cpu, msr, value)
        assert READ[cpu, msr].ending == f"exit {value & 0xFF}"


def test_the_registers_chosen_tell_the_cpus_and_the_halves_apart():
    assert len({RDMSR[cpu, 0xC0000101].stdout for cpu in CPUS}) == len(CPUS)
    assert int(RDMSR[0, 0xC0000082].stdout, 16) >> 32 == 0xFFFFFFFF


@pytest.mark.parametrize("word", ALL)
def test_all_reads_every_cpu_in_turn(word):
    values = [int(RDMSR[cpu, 0xC0000101].stdout, 16) for cpu in CPUS]
    assert ALL[word].stdout == "".join(msr_line(cpu, 0xC0000101, value) for cpu, value in enumerate(values))
    assert ALL[word].ending == f"exit {values[-1] & 0xFF}"


def test_an_absent_cpu_reads_as_zero():
    assert ABSENT.stdout == msr_line(9, 0x1B, 0)
    assert (ABSENT.ending, ABSENT.stderr) == ("exit 0", "")


def test_a_write_to_an_absent_cpu_reads_back_zero():
    assert ABSENT_WRITE.stdout == msr_line(9, 0x20E, 0, "write to")
    assert ABSENT_WRITE.ending == "exit 0"


def test_nothing_is_done_without_an_access_word():
    for answer in (NO_ACCESS_WORD, CPUID_NO_ACCESS_WORD):
        assert (answer.stdout, answer.ending) == ("", "exit 2")


def test_writes_reach_the_cpu_named_with_high_half_first():
    first = msr_line(2, SCRATCH, 0x123456789ABCDEF0, "write to")
    second = msr_line(1, SCRATCH, 0xFFFFFFFF80000001, "write to")
    assert WRITTEN.stdout == (
        f"{first}{0xF0}\n123456789abcdef0\n0\n{second}{0x01}\n123456789abcdef0\nffffffff80000001\n"
    )


def test_writes_leave_the_other_cpus_alone():
    assert UNTOUCHED.stdout == msr_line(2, SCRATCH, 7, "write to") + "0\n100\n7\n300\n"


def test_reads_what_wrmsr_wrote():
    assert READ_BACK.stdout == msr_line(3, SCRATCH, 0xFEDCBA9876543210) + f"{0x10}\n"


def test_all_writes_every_cpu():
    lines = "".join(msr_line(cpu, SCRATCH, 0x1122334455667788, "write to") for cpu in CPUS)
    assert WRITTEN_ALL.stdout == f"{lines}{0x88}\n" + "1122334455667788\n" * len(CPUS)


def test_other_commands_work_without_the_driver():
    assert HIDDEN_PCI.stdout == f"PCI Read DWord BDFO: 0 0 0 0, return data:0x29C08086\n{0x86}\n"


def test_registers_read_as_zero_without_the_driver():
    assert HIDDEN_READ.stdout == msr_line(0, 0x1B, 0) + "0\n"
    assert "/dev/cpu/0/msr: No such file" in HIDDEN_READ.stderr


def test_all_finds_no_cpu_without_the_driver():
    assert HIDDEN_ALL.stdout == "0\n"


def test_driver_is_loaded_again_when_it_can_be():
    assert SHOWN_AGAIN.stdout == READ[1, 0x175].stdout


def cpuid_line(leaf, peer):
    registers = dict(re.findall(r"(e[a-d]x)=0x([0-9a-f]{8})", peer.stdout))
    eax, ebx, ecx, edx = (registers[name].upper() for name in ("eax", "ebx", "ecx", "edx"))
    line = f"CPUID read from {leaf:08X}: Eax:{eax}, Ebx:{ebx}, Ecx:{ecx}, Edx:{edx}\n"
    return line, f"exit {int(eax, 16) & 0xFF}"


@pytest.mark.parametrize("leaf", LEAVES, ids=hex)
def test_cpuid_leaf_agrees_with_cpuid(leaf):
    assert (CPUID[leaf].stdout, CPUID[leaf].ending) == cpuid_line(leaf, CPUID_PEERS[leaf])


def test_cpuid_is_that_of_the_cpu_the_program_runs_on():
    assert (CPUID_LAST.stdout, CPUID_LAST.ending) == cpuid_line(0xB, CPUID_LAST_PEER)
    assert "Edx:00000003" in CPUID_LAST.stdout
