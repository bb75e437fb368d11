"""An answer of several lines that was cut short, by a signal or with the connection, is no answer."""

import pytest

from hwreg import Completed, HwregError, Machine, NoAnswer, Sim, Transport

CALLS = {
    "intel": ["pci.functions()", "pci.configs()", "msr.read_all(0x1A0)", "smbios.structures()", "smbios.structures(17)",
              "smbios.table()", "acpi.root_pointer()", "smbus.scan(0xA0, 0xAE)", "smbus.dump(0xA0)", "superio.dump()",
              "superio.write(0xF0, 1, 3)", "index.dump(0x70)", "memory.page(0xF0000)", "memory.dump(0xF0000, 99)"],
    "amd": ["smu.message(2)"]}  # fmt: skip


class Keeps(Sim):
    """Keeps what came back."""

    def execute(self, line, seconds):
        self.kept = super().execute(line, seconds)
        return self.kept


class Cuts(Transport):
    """Gives the beginning of it."""

    def execute(self, line, seconds):
        return self.said


def called(machine, call):
    return eval(f"machine.{call}", {"machine": machine})


def cut_places(text):
    """Behind each of some fifty lines, and within the last."""
    places = [place + 1 for place, letter in enumerate(text) if letter == "\n"]
    return [0, *places[:-1:len(places) // 50 + 1], places[-2] + 3]


@pytest.mark.parametrize("board, call", [(board, call) for board, calls in CALLS.items() for call in calls])
def test_the_beginning_of_an_answer_is_none(board, call):
    whole, cuts = Keeps(board), Cuts()
    assert called(Machine(whole), call)
    for place in cut_places(whole.kept.stdout):
        for status in (255, 130):
            cuts.said = Completed(status, whole.kept.stdout[:place], "")
            with pytest.raises(HwregError):
                called(Machine(cuts), call)


def test_nobody_is_found_only_where_somebody_was_looked_for(machine):
    """ssh -q ends with 255 as well, and says nothing."""
    assert machine().smbus.scan(0xB0, 0xB4) == {}
    silent = Cuts()
    silent.said = Completed(255, "", "")
    with pytest.raises(NoAnswer):
        Machine(silent).smbus.scan()
