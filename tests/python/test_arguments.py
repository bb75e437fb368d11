"""Arguments that are wrong are refused before anything runs, and those that are right are not."""

import enum
import random

import pytest

from hwreg import Completed, HwregError, Machine, NotAllowed, Transport, WrongArgument

ROUNDS = 200
LAST = 0xFFFFFFFF


class Nobody(Transport):
    """Counts what would have been run."""

    def __init__(self):
        super().__init__()
        self.runs = 0

    def execute(self, line, seconds):
        self.runs += 1
        return Completed(6, "", "")


def ints(least, most, step=1):
    """Draws a number that is right, or one that is not: (number, whether)."""

    def draw(dice):
        kind = dice.randrange(6)
        if kind == 0:
            beyond = most + step
            return dice.choice([least - 1, beyond, beyond + dice.getrandbits(70), -1 - dice.getrandbits(40)]), False
        if kind == 1:
            return dice.choice(["1", 1.0, True, b"\1", [1]]), False
        edge = dice.choice([least, most - (most - least) % step])
        return (edge if kind == 2 else dice.randrange(least, most + 1, step)), True

    return draw


def width(dice):
    right = [(8, True), (16, True), (32, True)]
    return dice.choice([*right, *right, (0, False), (64, False), (24, False), ("8", False), (True, False),
                        (16.0, False)])


def bits(dice):
    return dice.choice([(True, True), (False, True), (1, True), (0, True), (2, False), ("1", False), (None, False)])


def aligned(last):
    """A place that suits 32 bits."""
    return ints(0, last - 3, 4)


BDF = [ints(0, 255), ints(0, 31), ints(0, 7)]
PAIR = [ints(0, 0xFFFF), ints(0, 0xFFFF), ints(0, LAST)]
CALLS = {
    "io.read": [aligned(0xFFFF), width], "io.read_bit": [aligned(0xFFFF), ints(0, 31)],
    "io.write_bit": [aligned(0xFFFF), ints(0, 31), bits], "io.page": [ints(0, 0xFFFE)],
    "index.read": [*PAIR, width], "index.read_bit": [*PAIR, ints(0, 31)], "index.write_bit": [*PAIR, ints(0, 31), bits],
    "index.dump": PAIR[:2],
    "memory.read": [aligned(LAST), width], "memory.read_bit": [aligned(LAST), ints(0, 31)],
    "memory.write_bit": [aligned(LAST), ints(0, 31), bits], "memory.page": [ints(0, LAST)],
    "pci.read": [*BDF, aligned(0xFFF), width], "pci.read_bit": [*BDF, aligned(0xFF), ints(0, 31)],
    "pci.write_bit": [*BDF, aligned(0xFFF), ints(0, 31), bits], "pci.config": BDF,
    "msr.read": [ints(0, 32767), ints(0, LAST)], "msr.read_all": [ints(0, LAST)],
    "msr.write": [ints(0, 32767), ints(0, LAST), ints(0, (1 << 64) - 1)],
    "msr.write_all": [ints(0, LAST), ints(0, (1 << 64) - 1)], "cpuid.read": [ints(0, LAST)],
    "superio.read": [ints(0, 255), ints(0, 255)], "superio.write": [ints(0, 255), ints(0, 255), ints(0, 255)],
    "superio.read_bit": [ints(0, 255), ints(0, 7)], "superio.write_bit": [ints(0, 255), ints(0, 7), bits],
    "smbus.read": [ints(0x80, 0xFE, 2), ints(0, 255)], "smbus.dump": [ints(0x80, 0xFE, 2)],
    "smbus.write": [ints(0x80, 0xFE, 2), ints(0, 255), ints(0, 255)],
    "smbus.scan": [ints(0, 0xFE, 2), ints(0x80, 0xFE, 2)], "spd.read": [ints(0, 7)],
    "i2c.read": [ints(0, 5), ints(0, 127), ints(0, 255)],
    "i2c.write": [ints(0, 5), ints(0, 127), ints(0, 255), ints(0, 0xFFFF)],
    "smn.read": [ints(0, 16), aligned(LAST), width], "smn.read_bit": [ints(0, 16), aligned(LAST), ints(0, 31)],
    "smn.write_bit": [ints(0, 16), aligned(LAST), ints(0, 31), bits],
    "smu.message": [ints(0x100, LAST), ints(0, LAST), ints(0, LAST)], "smbios.structures": [ints(0, 255)],
    "rtc.countdown": [ints(1, LAST)],
}  # fmt: skip
WRITES = {"io.write": [aligned(0xFFFF)], "memory.write": [aligned(LAST)], "pci.write": [*BDF, aligned(0xFFF)],
          "index.write": PAIR, "smn.write": [ints(0, 16), aligned(LAST)]}  # fmt: skip


def refuses(machine, call, values):
    """Whether nothing is run."""
    before = machine.transport.runs
    space, method = call.split(".")
    try:
        getattr(getattr(machine, space), method)(*values)
    except WrongArgument:
        assert machine.transport.runs == before
        return True
    except HwregError:
        pass
    assert machine.transport.runs > before
    return False


@pytest.mark.parametrize("call", [*CALLS, *WRITES])
def test_random_arguments_are_run_if_they_are_right_and_else_refused(call):
    dice = random.Random(call)
    machine = Machine(Nobody())
    seen = set()
    for _ in range(ROUNDS):
        drawn = [draw(dice) for draw in [*CALLS.get(call, ()), *WRITES.get(call, ())]]
        if call in WRITES:
            bits_wide = dice.choice([8, 16, 32])
            drawn += [ints(0, (1 << bits_wide) - 1)(dice), (bits_wide, True)]
        right = all(good for _, good in drawn)
        values = [value for value, _ in drawn]
        assert refuses(machine, call, values) is not right, values
        seen.add(right)
    assert seen == {True, False}


@pytest.mark.parametrize("call, last", [("io.read", 0xFFFF), ("memory.read", LAST), ("pci.read", 0xFF),
                                        ("smn.read", LAST)])  # fmt: skip
def test_an_unaligned_place_has_to_be_meant(call, last):
    machine = Machine(Nobody())
    space, method = call.split(".")
    read = getattr(getattr(machine, space), method)
    before = {"pci": [0, 0, 0], "smn": [0]}.get(space, [])
    dice = random.Random(call)
    for _ in range(ROUNDS):
        wide = dice.choice([16, 32])
        place = dice.randrange(last - 8)
        is_aligned = place % (wide // 8) == 0
        assert refuses(machine, call, [*before, place, wide]) is not is_aligned
        with pytest.raises(HwregError) as told:
            read(*before, place, wide, unaligned=True)
        assert not isinstance(told.value, WrongArgument)
        with pytest.raises(WrongArgument):
            read(*before, last - wide // 8 + 2, wide, unaligned=True)


def test_ranges_end_within_their_space():
    machine = Machine(Nobody())
    for space, last in ((machine.io, 0xFFFF), (machine.memory, LAST)):
        for first, length in ((0, 0), (0, last + 2), (last, 2), (last + 1, 1), (-1, 1), (1, -1)):
            with pytest.raises(WrongArgument):
                space.dump(first, length)
        with pytest.raises(HwregError, match="no access"):
            space.dump(last, 1)
    with pytest.raises(WrongArgument, match="beyond"):
        machine.memory.search(LAST, 2, "x")


def test_an_address_of_seven_bits_is_told():
    smbus = Machine(Nobody()).smbus
    with pytest.raises(WrongArgument, match="What is 0x50 with 7 bits is 0xa0 here"):
        smbus.read(0x50, 0)
    with pytest.raises(WrongArgument, match="address is even; what is 0x51 with 7 bits is 0xa2 here"):
        smbus.write(0x51, 0, 0, eight_bits=True)
    with pytest.raises(WrongArgument, match="address is even$"):
        smbus.dump(0xA1)
    assert not refuses(smbus._session, "smbus.read", (0xA0, 0))
    with pytest.raises(HwregError, match="no access"):
        smbus.read(0x50, 0, eight_bits=True)


@pytest.mark.parametrize("text", ["", "RTC", "/RTC", "-RTC", "\\SHUTDOWN", "?", "LOG", "a\0b"])
def test_a_text_that_is_a_switch_is_not_searched_for(text):
    machine = Machine(Nobody(), power=True)
    with pytest.raises(WrongArgument):
        machine.memory.search(0, 16, text)
    assert machine.transport.runs == 0


def test_message_ff_and_too_many_arguments():
    smu = Machine(Nobody()).smu
    for operands in ((0xFF,), (1, *range(7)), (1, 1 << 32)):
        with pytest.raises(WrongArgument):
            smu.message(*operands)


@pytest.mark.parametrize("words", [["/RTC", "60"], ["rtc"], ["-ShutDown"], ["\\RTC", "0"], ["/SMBIOS", "/s", "RTC"],
                                   ["/MEM", "/RF", "rtc", "0", "16"],
                                   ["\u017f", "shutdown"]])  # fmt: skip
def test_words_that_switch_off_need_power(words):
    machine = Machine(Nobody())
    with pytest.raises(NotAllowed, match="power=True") as told:
        machine.run(*words)
    assert machine.transport.runs == 0 and told.value.command.endswith(words[-1])
    assert Machine(Nobody(), power=True).run(*words).status == 6


def test_words_behind_s_that_are_no_switches_need_none():
    assert Machine(Nobody()).run("/SMBIOS", "/S", "rtc").status == 6


def test_power_needs_power_before_the_countdown_begins():
    rtc = Machine(Nobody()).rtc
    for call in (lambda: rtc.cycle(60, delay=9), lambda: rtc.restart(delay=9), lambda: rtc.shutdown(delay=9),
                 lambda: rtc.global_reset(delay=9)):  # fmt: skip
        with pytest.raises(NotAllowed):
            call()
    assert rtc._session.transport.runs == 0


def test_a_countdown_under_the_lock_is_refused():
    machine = Machine(Nobody(), power=True)
    with pytest.raises(WrongArgument, match="would hold the lock"):
        machine.run("/RTC", "60", "/t", "0x10")
    assert machine.transport.runs == 0
    assert machine.run("/RTC", "60", "/T", "0").status == 6


@pytest.mark.parametrize("seconds, force, right", [(6, False, False), (7, False, True), (0, True, False),
                                                   (1, True, True), (86401, False, False)])  # fmt: skip
def test_an_alarm_is_not_too_close(machine, seconds, force, right):
    rtc = machine("intel", "cmos-stop", power=True).rtc
    if right:
        assert rtc.cycle(seconds, force=force).alarm == f"04:05:{6 + seconds:02}"
    else:
        with pytest.raises(WrongArgument):
            rtc.cycle(seconds, force=force)


def test_an_alarm_is_not_past_the_clocks_midnight(machine):
    rtc = machine("intel", "cmos-stop", "cmos-time 2024-02-03 23:50:00", power=True).rtc
    assert rtc.cycle(500).alarm == "23:58:20"
    with pytest.raises(WrongArgument, match="clock will show 23:50: an alarm 600 s later is past its midnight"):
        rtc.cycle(600)


@pytest.mark.parametrize("before, after, right", [(86399, 1, True), (86390, 10, True), (86380, 86390, False),
                                                  (100, 86390, False)])  # fmt: skip
def test_midnight_is_looked_for_behind_the_countdown(monkeypatch, before, after, right):
    rtc, times = Machine(Nobody(), power=True).rtc, [before, after]
    monkeypatch.setattr(rtc, "now", lambda: times.pop(0))
    monkeypatch.setattr(rtc, "countdown", lambda seconds: None)
    with pytest.raises(HwregError) as told:
        rtc.cycle(60, delay=10)
    assert isinstance(told.value, WrongArgument) is not right


def test_timeouts_are_some_seconds():
    for seconds in (0, -1, float("nan"), float("inf"), "60", True):
        with pytest.raises(WrongArgument):
            Machine(Nobody(), timeout=seconds)
        with pytest.raises(WrongArgument):
            Machine(Nobody()).memory.dump(0, 4, seconds=seconds)


class Place(int, enum.Enum):
    """Its text is its name, which hwreg would read as 0."""

    TWO = 2
    SIXTY = 60


def test_numbers_with_names_are_numbers(capsys):
    machine = Machine(Nobody(), power=True, dry_run=True)
    machine.msr.read(Place.TWO, Place.SIXTY)
    machine.pci.read_bit(Place.TWO, Place.TWO, Place.TWO, Place.SIXTY, Place.TWO)
    machine.rtc.countdown(Place.SIXTY)
    machine.rtc.cycle(Place.SIXTY)
    lines = [line.split(" hwreg ")[1] for line in capsys.readouterr().out.splitlines()]
    assert lines == ["/MSR /RD 2 0x3c", "/PCI /RI 2 2 2 0x3c 2", "/TIMEOUT /T 60", "/RTC 60"]


@pytest.mark.parametrize("word", [1, None, "\ud800", "a\0b", b"/PCI"])
def test_words_that_no_program_can_be_given(word):
    machine = Machine(Nobody())
    for ask in (machine.run, machine.check, machine.smbios.find, lambda text: machine.memory.search(0, 1, text)):
        with pytest.raises(WrongArgument):
            ask(word)
    assert machine.transport.runs == 0
