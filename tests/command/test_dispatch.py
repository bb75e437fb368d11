"""Which handler a command line reaches. The help switch shows it without an access: each handler answers it first."""

import pytest

from expected import CLEAR, USAGE, assert_is_help_screen, assert_run, legacy, usage_status

ORDER = list(USAGE)
OPTIONS = ["USB", "EDID", "FLASH", "TYPE", "F", "S", "INDEX", "RESET", "GRESET", "SLEEP", "LOG", "DEBUG", "TEXT",
           "DUMP", "NOMSG", "RI", "RB", "RW", "RD", "RQ", "WI", "WB", "WW", "WD", "WQ"]


def pairs():
    for at, winner in enumerate(ORDER):
        for loser in ORDER[at + 1 :]:
            # /RF takes the port and memory commands away from their own handlers.
            if not (loser == "RF" and winner in ("IO", "MEM")):
                yield winner, loser


@pytest.mark.parametrize("winner, loser", pairs())
def test_of_two_command_words_the_earlier_rule_wins_whatever_their_order(run, winner, loser):
    for words in ([winner, loser, "?"], ["?", loser, winner]):
        assert_run(run([f"/{word}" for word in words]), USAGE[winner], usage_status(winner), CLEAR)


@pytest.mark.parametrize("args, handler", [
    ("/IO", "IO"),
    ("/MEM", "MEM"),
    ("/IO /INDEX", "IO"),
    ("/IO /RF", "RF"),
    ("/MEM /RF", "RF"),
    ("/RF", "RF"),
    ("/RF /IO /MEM", "RF"),
    ("/IO /RF /PCI", "PCI"),
    ("/MEM /RF /MSR", "MSR"),
    ("/MEM /RF /SIO", "RF"),
    ("/PCI /RF x 0 1", "PCI"),
    ("/IO /RF /SMBUS", "SMBUS"),
    ("/IO /RF /RTC", "RTC"),
    ("/MEM /RF /SMBIOS", "RF"),
    ("/SHUTDOWN /F", "RTC"),
    ("/TIMEOUT /GRESET", "RTC"),
    ("/SMBIOS /TYPE", "SMBIOS"),
    ("/SMN /SMU", "SMN"),
    ("/IO /MEM /PCI /MSR /CPUID /SIO", "IO"),
    ("/I2C /SMU /SMN /SIO /ACPI /SMBIOS /RF /TIMEOUT /SHUTDOWN /RTC /CPUID /MSR /SMBUS /PCI", "PCI"),
])
def test_handler_of_a_combination(run, args, handler):
    assert_run(run(f"{args} /?"), USAGE[handler], usage_status(handler), CLEAR)


@pytest.mark.parametrize("word", ["/PCI", "-PCI", "\\PCI", "PCI", "/pci", "-Pci", "\\pCI", "pci"])
def test_a_switch_may_have_a_prefix_and_any_case(run, word):
    result = run([word, "-rb", "0", "0", "0", "0"])
    assert (result.text, result.status) == ("PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n", 0x86)


@pytest.mark.parametrize("word", ["/?", "-?", "\\?", "?", "/H", "h", "/HELP", "-help"])
def test_each_help_word_asks_for_help(run, word):
    assert_is_help_screen(run([word]), "Intel")
    assert_run(run(["/PCI", word]), USAGE["PCI"], 2, CLEAR)


@pytest.mark.parametrize("word", ["//PCI", "/PC", "/PCIX", "PCI/", "/ PCI", "/RBX", "/R", "--PCI", "/-PCI", "/", "-",
                                  "", "0x1f", "/SM", "/HELPME", "/ALL", "/A", "??", "\\", "/\\?"])
def test_a_word_that_is_no_switch_leads_to_the_help_screen(run, word):
    result = run([word])
    assert_is_help_screen(result, "Intel")
    assert result.systems() == ["clear"]


@pytest.mark.parametrize("words, command", [
    ("/SHUTDOWN --help", "shutdown -P now"),
    ("/RTC --help", "shutdown -r now"),
])
def test_help_behind_two_dashes_is_no_help_word_and_the_command_is_carried_out(run, words, command):
    assert run(words).systems() == [command]


def test_what_the_shell_may_make_of_an_unquoted_help_word_is_none(run):
    """A file /A, or /k, where "/?" was typed."""
    assert_run(run("/MEM /A"), "", 2)
    assert run("/RTC /k").systems() == ["shutdown -r now"]
    assert_run(run("/RTC /H"), USAGE["RTC"], 2, CLEAR)


@pytest.mark.parametrize("option", OPTIONS)
def test_an_option_alone_reaches_no_handler_and_says_nothing(run, option):
    assert_run(run([f"/{option}"]), "", 0x8000000F)


def test_all_options_together_reach_no_handler(run):
    assert_run(run([f"/{option}" for option in OPTIONS]), "", 0x8000000F)


def test_an_option_with_the_help_switch_shows_the_general_help(run):
    for option in ("/EDID", "/LOG", "/DUMP", "/RB"):
        assert_is_help_screen(run(f"{option} /?"), "Intel")


def test_an_operand_that_spells_a_switch_sets_its_flag(run):
    assert_run(run("/PCI /RB 0 0 0 H"), USAGE["PCI"], 2, CLEAR)
    text = "IO Read Byte Port: 0, return data:0xFF\n"
    assert run("/PCI /RB 0 io 0 0").text == text


def test_switches_may_stand_anywhere_and_twice(run):
    expected_text = "PCI Read Byte BDFO: 0 1F 0 0, return data:0x86\n"
    read = legacy("00:1f.0", 0, "in8 0cfc -> 86")
    for args in ("/RB 0 0x1f 0 0 /PCI", "/PCI /PCI /RB 0 0x1f 0 0", "/RB 0 0x1f 0 0 /RB 9 9 9 9 /PCI",
                 "x y z pci rb 0 31"):
        assert_run(run(args), expected_text, 0x86, read)


def test_words_behind_the_search_switch_keep_their_case(run):
    assert run("/s /pci").status == 15  # the lower-case word is no switch any more
    assert run("/s /PCI").status == 2
    assert run("/PCI /s /rb 0 0 0 0").status == 2
    assert run("/MEM /s 0 0x10 Text").text == "<- (Ctrl+C: abort!)  searching: Text ->\n"
    assert run("/mem -S 0 0x10 Text").text == "<- (Ctrl+C: abort!)  searching: Text ->\n"


def test_reset_words_set_no_command(run):
    # They belong to the power commands, which their own words choose.
    assert_run(run("/GRESET /F"), "", 0x8000000F)
