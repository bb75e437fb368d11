"""Start-up: help, privilege, and kernels that refuse it."""

import pytest

from boots import LOCKED, OVMF, PC, Q35

HELP = {name: boot.ask(["hwreg", "/?"]) for name, boot in {"q35": Q35, "ovmf": OVMF, "pc": PC}.items()}
NO_WORDS = Q35.ask(["hwreg"])
PCI_HELP = Q35.ask(["hwreg", "/PCI", "/?"])
CPU_HELP = Q35.ask(["hwreg", "/H", "/MSR"])
# The shell takes "/?" for the files of one letter in the root folder; the last two lines are without such a file.
ONE_LETTER = Q35.ask("cd /; hwreg /MEM /RF /A 0xF0000 16; ls /?; hwreg /MEM /?; echo $?; hwreg /MEM /H; echo $?; rm /A;"
                     "hwreg /MEM /?; echo $?")
ONLY_OPTIONS = Q35.ask(["hwreg", "/EDID", "/NOMSG"])

REFUSED_WORDS = {
    "help": ["hwreg", "/?"],
    "PCI read": ["hwreg", "/PCI", "/RB", "0", "0", "0", "0"],
    "PCI list": ["hwreg", "/PCI", "/DUMP", "/NOMSG"],
    "MSR read": ["hwreg", "/MSR", "/RD", "0", "0x1B"],
    "CPUID": ["hwreg", "/CPUID", "/RD", "0"],
}
AS_USER = {name: Q35.ask(words, user=1000) for name, words in REFUSED_WORDS.items()}
LEND = Q35.ask("for tool in hwreg rdmsr; do cp $(command -v $tool) /tmp/lent-$tool; chmod 4755 /tmp/lent-$tool; done")
LENT = {name: Q35.ask(["/tmp/lent-hwreg", *words[1:]], user=1000) for name, words in REFUSED_WORDS.items()}
LENT_TOOL = Q35.ask(["/tmp/lent-rdmsr", "0x1B"], user=1000)
UNDER_LOCKDOWN = {name: LOCKED.ask(words) for name, words in REFUSED_WORDS.items()}
LOCKDOWN = LOCKED.ask("mount -t securityfs none /sys/kernel/security; cat /sys/kernel/security/lockdown")


@pytest.mark.parametrize("name", HELP)
def test_help_names_the_chipset_vendor(name):
    lines = HELP[name].stdout.splitlines()
    assert "  Help list(Intel):" in lines
    assert lines[-1] == "   More detail please refer ReadMe.doc. "
    assert (HELP[name].ending, HELP[name].stderr) == ("exit 0", "")


def test_help_comes_on_a_cleared_screen():
    clear_screen = "\033[H\033[J"  # what busybox's clear prints
    assert HELP["q35"].stdout.startswith(clear_screen + " " * 23 + "Utility -- Rev ")


def test_no_words_give_the_help_screen():
    assert (NO_WORDS.stdout, NO_WORDS.ending) == (HELP["q35"].stdout, "exit 0")


def test_a_command_with_the_help_switch_gives_its_usage():
    assert " /PCI /DUMP /NOMSG: List all PCI controller without data message\n" in PCI_HELP.stdout
    assert " /CPUID /RD [CpuIdIndex]: Read CPUID CpuIdIndex\n" in CPU_HELP.stdout
    assert (PCI_HELP.ending, CPU_HELP.ending) == ("exit 2", "exit 2")


def test_a_file_of_one_letter_in_the_root_folder_takes_the_place_of_the_help_word():
    usage, _, status = ONE_LETTER.stdout.rpartition("2\n")
    assert status == "" and usage.startswith("Waitting ...\n\n/A\n2\n")
    assert usage.count(" /MEM /DUMP 0xFF550: ") == 2


def test_options_without_a_command_end_silently():
    assert (ONLY_OPTIONS.stdout, ONLY_OPTIONS.stderr, ONLY_OPTIONS.ending) == ("", "", "exit 15")


@pytest.mark.parametrize("name", AS_USER)
def test_an_ordinary_user_is_refused_silently(name):
    assert (AS_USER[name].stdout, AS_USER[name].stderr, AS_USER[name].ending) == ("", "", "exit 6")


@pytest.mark.parametrize("name", LENT)
def test_a_set_user_id_copy_refuses_an_ordinary_user_whom_the_kernel_would_let(name):
    assert (LENT[name].stdout, LENT[name].stderr, LENT[name].ending) == ("", "", "exit 6")
    assert LENT_TOOL.stdout.strip() == "fee00900", LENT_TOOL


@pytest.mark.parametrize("name", UNDER_LOCKDOWN)
def test_a_locked_down_kernel_is_refused_silently(name):
    answer = UNDER_LOCKDOWN[name]
    assert (answer.stdout, answer.stderr, answer.ending) == ("", "", "exit 6")


def test_the_kernel_really_is_locked_down():
    assert "[integrity]" in LOCKDOWN.stdout
