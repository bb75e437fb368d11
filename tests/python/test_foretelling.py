"""hwreg-check's answers as objects, and extended registers of PCI only where it has nothing against them."""

import logging

import pytest

from hwreg import Foretold, Local, Machine, NoAnswer, NotAllowed, WrongArgument

ELSEWHERE = ["pci 00:00.0", "dword 60 d0000001"]  # the register that hwreg believes points to where no window is


def test_what_a_line_will_do(machine):
    told = machine().check("/PCI", "/RB", "0", "0", "0", "0")
    assert isinstance(told, Foretold) and told.verdict == "works" and told.words == ("/PCI", "/RB", "0", "0", "0", "0")
    assert told.cautions == () and told.because == told.why == told.remedy == ""


def test_what_a_line_will_not_do(machine):
    told = machine("noiopl").check("/PCI", "/RB", "0", "0", "0", "0")
    assert (told.verdict, told.status, told.because) == ("refused", 6, "iopl") and told.why


@pytest.mark.parametrize("word", ["--help", "--json", "--"])
def test_words_that_look_like_options_are_hwregs(machine, word):
    assert machine().check(word, "/SHUTDOWN").words == (word, "/SHUTDOWN")


def test_power_commands_can_be_asked_about_without_power(machine):
    assert machine("intel", "cmos-stop").check("/RTC", "60").verdict in ("works", "refused")


def test_what_a_machine_allows(machine):
    report = machine().report()
    assert report.finding("iopl").state == "good" and report.kernel
    assert len(report.commands) > 20 and {told.verdict for told in report.commands} <= {"works", "refused", "other"}
    assert machine("noiopl").report().finding("iopl").state == "bad"


def test_a_line_has_words(machine):
    with pytest.raises(WrongArgument):
        machine().check()


def test_without_hwreg_check_nobody_knows(tmp_path):
    (tmp_path / "hwreg").symlink_to("/bin/true")
    with pytest.raises(NoAnswer, match="hwreg-check is not installed there"):
        Machine(Local(str(tmp_path / "hwreg")), lock=None).check("/PCI")


def test_extended_registers_are_read_where_the_window_is_right(machine):
    pci = machine().pci
    assert pci.read(0, 1, 0, 0x100, 32) == 0x14010002 and pci.window[0].verdict == "works"
    pci._session.transport.hwreg_check = None  # it is asked once
    assert pci.read(0, 1, 0, 0x140, 16) == 0x0005


def test_and_not_where_it_lies_elsewhere(machine):
    pci = machine("intel", *ELSEWHERE).pci
    for call in (lambda: pci.read(0, 1, 0, 0x100, 32), lambda: pci.write(0, 1, 0, 0x100, 0, 8),
                 lambda: pci.read_bit(0, 1, 0, 0x100, 0), lambda: pci.write_bit(0, 1, 0, 0x100, 0, 1)):  # fmt: skip
        with pytest.raises(NotAllowed, match="not the device's here"):
            call()
    assert pci.read(0, 1, 0, 0, 16) == 0x8086  # the others go through the ports
    pci.check_window = False
    assert pci.read(0, 1, 0, 0x100, 32) != 0x14010002


def test_nor_where_the_page_is_refused(machine):
    with pytest.raises(NotAllowed, match="not the device's here"):
        machine("refusedmap").pci.read(0, 1, 0, 0x100, 32)


def test_without_hwreg_check_they_are_read_and_a_log_may_say_so(machine, caplog, recwarn):
    pci = machine().pci
    pci._session.transport.hwreg_check = lambda: ["/nothing/hwreg-check"]
    with caplog.at_level(logging.INFO, "hwreg"):
        assert pci.read(0, 1, 0, 0x100, 32) == 0x14010002
    assert "hwreg-check is not installed there" in caplog.text and pci.window == {0: None} and not recwarn.list


def test_the_window_is_no_matter_without_access(machine):
    with pytest.raises(NoAnswer, match="no access"):
        machine("noiopl").pci.read(0, 1, 0, 0x100, 32)
