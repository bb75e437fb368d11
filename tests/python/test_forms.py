"""The package knows the program as it is: each form of the reference has a method, and what the package repeats of the
program is the same there."""

import contextlib
import inspect
import itertools
import re

import pytest

import texts
from harness import TOP
from hwreg import Completed, Machine, NoAnswer, Transport
from hwreg import ports, power, session, smbus, words

FORMS = texts.reference_forms()

# Choices of the reference that do the same as another: the words that a method takes stand for them.
SAME = {"/SMB": "/SMBUS", "/RQ": "/RD", "/WQ": "/WD", "/A": "/ALL"}
SAME_IN = {"/SMBUS": {"/RW": "/RB", "/RD": "/RB", "/WW": "/WB", "/WD": "/WB"},
           "/I2C": {"/RB": "/RW", "/RD": "/RW", "/WB": "/WW", "/WD": "/WW"}, "/SMU": {"/RD": "/WD"}}  # fmt: skip


class Recorder(Transport):
    """Runs nothing and notes the words. The clock shows midnight, and countdowns end."""

    def __init__(self):
        super().__init__()
        self.lines = []

    def execute(self, line, seconds):
        if line[-1] != "hwreg":  # else the words stand in a shell's script
            self.lines.append(list(line[len(line) - line[::-1].index("hwreg"):]))
        clock = {("/IO", "/INDEX", "/RB", "0x70", "0", register): value for register, value in
                 (("0xb", 2), ("4", 0), ("2", 0), ("0", 0))}.get(tuple(line[-6:]))  # fmt: skip
        timeout = f"\n...timeout: {line[-1]} seconds\n" if "/TIMEOUT" in line else ""
        return Completed(0, timeout if clock is None else f"IOIndex/Data return data:0x{clock:02X}\n", "")


# A call, at least, for each form.
CALLS = """
io.read(4, 8)  io.read(4, 16)  io.read(4, 32)  io.write(4, 1, 8)  io.write(4, 1, 16)  io.write(4, 1, 32)
io.read_bit(4, 1)  io.write_bit(4, 1, 1)  io.page(4)  io.dump(4, 4)
index.read(4, 5, 1, 8)  index.read(4, 5, 1, 16)  index.read(4, 5, 1, 32)
index.write(4, 5, 1, 2, 8)  index.write(4, 5, 1, 2, 16)  index.write(4, 5, 1, 2, 32)
index.read_bit(4, 5, 1, 2)  index.write_bit(4, 5, 1, 2, 0)  index.dump(4, 5)
memory.read(4, 8)  memory.read(4, 16)  memory.read(4, 32)
memory.write(4, 1, 8)  memory.write(4, 1, 16)  memory.write(4, 1, 32)
memory.read_bit(4, 1)  memory.write_bit(4, 1, 1)  memory.page(4)  memory.dump(4, 4)  memory.search(4, 4, "abc")
pci.read(0, 1, 2, 4, 8)  pci.read(0, 1, 2, 4, 16)  pci.read(0, 1, 2, 4, 32)
pci.write(0, 1, 2, 4, 5, 8)  pci.write(0, 1, 2, 4, 5, 16)  pci.write(0, 1, 2, 4, 5, 32)
pci.read_bit(0, 1, 2, 4, 5)  pci.write_bit(0, 1, 2, 4, 5, 1)  pci.functions()  pci.config(0, 1, 2)  pci.configs()
msr.read(0, 1)  msr.read_all(1)  msr.write(0, 1, 2)  msr.write_all(1, 2)  cpuid.read(1)
superio.read(1)  superio.write(1, 2)  superio.read_bit(1, 2)  superio.write_bit(1, 2, 1)  superio.dump()
superio.read(1, device=3)  superio.write(1, 2, device=3)  superio.read_bit(1, 2, device=3)
superio.write_bit(1, 2, 1, device=3)
smbus.read(0xA0, 1)  smbus.write(0xA0, 1, 2)  smbus.dump(0xA0)  smbus.scan(0xA0, 0xA4)  spd.read(1)  spd.slots()
i2c.read(0, 0x50, 1)  i2c.write(0, 0x50, 1, 2)
smn.read(0, 4, 8)  smn.read(0, 4, 16)  smn.read(0, 4, 32)  smn.write(0, 4, 5, 8)  smn.write(0, 4, 5, 16)
smn.write(0, 4, 5, 32)  smn.read_bit(0, 4, 5)  smn.write_bit(0, 4, 5, 1)
smu.message(1)  smu.message(1, 2, 3, 4, 5, 6, 7)
smbios.structures()  smbios.structures(4)  smbios.table()  smbios.find("abc")  acpi.root_pointer()
rtc.now()  rtc.countdown(1)  rtc.cycle(60)  rtc.cycle(60, delay=0)  rtc.cycle(60, force=True)
rtc.cycle(60, delay=1, force=True)  rtc.restart()  rtc.restart(delay=1)  rtc.global_reset()  rtc.global_reset(delay=1)
rtc.shutdown()  rtc.shutdown(delay=1)
"""


def calls():
    return re.findall(r"[a-z]\S+\.[a-z_]+\([^()]*\)", CALLS)


def test_each_method_has_a_call_here():
    machine = Machine(Recorder())
    spaces = {name: space for name, space in vars(machine).items() if hasattr(space, "_session") or name == "spd"}
    methods = {f"{name}.{method}" for name, space in spaces.items()
               for method, _ in inspect.getmembers(space, inspect.ismethod) if not method.startswith("_")}  # fmt: skip
    assert len(methods) > 50 and methods == {call.split("(")[0] for call in calls()}


def shape(line):
    """The switch words and the number of operands behind each: what makes a form."""
    found = []
    for word in line:
        if word.startswith("/"):
            found.append([SAME.get(word, word), 0])
        elif found:
            found[-1][1] += 1
    command = next((switch for switch, _ in found if switch in SAME_IN), None)
    text = " ".join(f"{SAME_IN.get(command, {}).get(switch, switch)}{count or ''}" for switch, count in found
                    if switch not in ("/LOG", "/TEXT", "/NOMSG"))  # fmt: skip
    return re.sub(r"^/S (/MEM|/IO) /RF", r"\1 /RF3", text)  # the file's name keeps its capitals behind /S


def shapes_of(form):
    """Those of a form with each choice made, with and without what may be left out."""
    parts = re.split(r" \[([^\]]*)\]", form.replace(" [argument]...", " [" + " argument" * 6 + "]"))
    for taken in itertools.product((False, True), repeat=len(parts) // 2):
        text = " ".join([*parts[::2], *itertools.compress(parts[1::2], taken)])
        for line in itertools.product(*(word.split("|") for word in text.split())):
            yield shape(line)


@pytest.fixture(scope="module")
def reached():
    recorder = Recorder()
    machine = Machine(recorder, power=True)
    for call in calls():
        with contextlib.suppress(NoAnswer):  # there is nobody
            eval(f"machine.{call}", {"machine": machine})
    return {shape(line) for line in recorder.lines}


@pytest.mark.parametrize("form", FORMS)
def test_each_form_of_the_reference_is_reached_by_a_method(reached, form):
    assert set(shapes_of(form)) - reached <= {"/SMN /WB3", "/SMN /WW3"}  # these read, without /WD


def test_methods_use_nothing_but_forms_of_the_reference(reached):
    known = {text for form in FORMS for text in shapes_of(form)}
    assert reached - known <= {"/SIO /WB2 /RB1", "/SIO /WB2 /RI2", "/SIO /WB2 /WI3"}  # a device is selected first


def test_the_switch_words_are_the_parsers():
    assert words.SWITCHES == set(texts.switch_table())


def test_the_words_that_switch_off_are_those_of_the_power_command():
    power_words = {word for word, flags in texts.switch_table().items() if "RTC" in flags}
    assert words.POWER == power_words - {"TIMEOUT"}


def constant(path, name):
    text = (TOP / path).read_text()
    return int(re.search(rf"constexpr \w+ {name} = (\w+);", text)[1], 0)


def test_numbers_are_the_programs():
    table = re.search(r"mLogicalDevices\[\] = \{([^}]*), LDN_END\}", (TOP / "Project/SuperIO.cpp").read_text())[1]
    assert ports.LOGICAL_DEVICES == tuple(int(word, 0) for word in table.split(","))
    assert constant("Project/Rtc.cpp", "SHORTEST_TIMER") == power.SHORTEST
    assert constant("Project/NbioSmu.cpp", "LAST_DIE") == 16
    assert constant("Platform/Spd.h", "DDR4_SPD_BYTES") == smbus.DDR4_BYTES


COMPLAINTS = ["Read addr 0x%02X offset 0x%02X error!", "Write addr 0x%02X offset 0x%02X error!",
              "Dump (DDR4) addr 0x%02X error!", "Dump addr 0x%02X error!", "I2C init error", "InitSmuService error: %X",
              "Invalid parameter", "StartAddr error!", "FileOpen fail!", "Write to buffer fail!",
              "ERROR:Make sure format is correct!", "ERROR: Cannot find %s in SMBIOS!",
              "Warnning, set wakeup timer 0(0 is reset) or more than %d seconds!", "%s write fail!",
              "RTC wait time out!"]  # fmt: skip


def test_the_programs_complaints_are_known():
    """A line of the program that tells of an error, a failure or a warning is one that the package takes for that."""
    sources = "".join(path.read_text() for folder in ("Project", "Platform") for path in (TOP / folder).glob("*.cpp"))
    printed = {text for text in re.findall(r'"((?:[^"\\\n]|\\.)*)"', sources)
               if re.search(r"error|fail!|^ERROR|Warnning|Invalid|time out", text)}  # fmt: skip
    assert {text.replace("\\n", "") for text in printed} == set(COMPLAINTS)
    for text in COMPLAINTS:
        line = text.replace("%02X", "A0").replace("%X", "8000000F").replace("%s", "RTCLOG").replace("%d", "7")
        assert session.COMPLAINTS.fullmatch(line), line
