"""Each method reads and writes what the board file says, whatever hwreg's exit status is and however its line reads."""

import pytest

from hwreg import Completed, Failed, Function, Machine, NoAnswer, Registers, Transport, WrongArgument

SCRATCH = ["pci 00:1e.0 8086:5c5c class 118000", "dword 40 89abcdef rw ffffffff", "dword 44 00000006 rw ffffffff"]


def test_configuration_space_by_width(machine):
    pci = machine("intel", *SCRATCH).pci
    assert [pci.read(0, 0x1E, 0, 0x40, width) for width in (8, 16, 32)] == [0xEF, 0xCDEF, 0x89ABCDEF]
    assert pci.read(0, 0x1E, 0, 0x41, 16, unaligned=True) == 0xABCD
    assert pci.write(0, 0x1E, 0, 0x40, 0x11, 8) == 0x11
    assert pci.write(0, 0x1E, 0, 0x42, 0x2233, 16) == 0x2233
    assert pci.read(0, 0x1E, 0, 0x40, width=32) == 0x2233CD11
    assert pci.write(0, 0x1E, 0, 0x40, 0xFFFFFFFF, 32) == 0xFFFFFFFF


@pytest.mark.parametrize("value", [0, 2, 3, 6, 14, 15, 21, 126, 127, 124, 201, 255])
def test_a_value_that_looks_like_a_status_is_a_value(machine, value):
    """Of hwreg, of the shell, of timeout, of flock and of ssh."""
    assert machine("intel", *SCRATCH).pci.write(0, 0x1E, 0, 0x44, value, 8) == value


def test_configuration_space_by_bit(machine):
    pci = machine("intel", *SCRATCH).pci
    assert [pci.read_bit(0, 0x1E, 0, 0x44, bit) for bit in (0, 1, 2, 31)] == [False, True, True, False]
    assert pci.write_bit(0, 0x1E, 0, 0x44, 31, True) is True
    assert pci.write_bit(0, 0x1E, 0, 0x44, 1, 0) is False
    assert pci.read(0, 0x1E, 0, 0x44, 32) == 0x80000004


def test_the_listing_as_records(machine):
    pci = machine().pci
    functions = pci.functions()
    assert functions[0] == Function(0, 0, 0, 0x8086, 0x3E30, "NA", "NONE", "NONE", "Host Bridge")
    assert functions[1] == Function(0, 1, 0, 0x8086, 0x1901, "L1", "IRQ10", "INTA", "PCI-to-PCI Bridge")
    assert {function.aspm for function in functions} == {"NA", "DIS", "L0S", "L1", "L01"}
    lines = pci.config(0, 0, 0)
    assert lines[:4] == bytes.fromhex("8680303e") and len(lines) == 256
    configs = pci.configs()
    assert list(configs) == functions and configs[functions[0]] == lines
    for function, config in configs.items():
        assert config[:4] == (function.vendor_id | function.device_id << 16).to_bytes(4, "little")


def test_names_of_the_listing_are_whole(machine):
    names = {function.name for board in ("intel", "amd") for function in machine(board).pci.functions()}
    assert {"USB Controller", "VGA Compatible Controller"} <= names and all(name == name.strip() for name in names)


def test_a_function_that_is_not_there(machine):
    pci = machine().pci
    assert pci.read(0, 0x13, 0, 0, 32) == 0xFFFFFFFF
    with pytest.raises(NoAnswer, match="no line"):
        pci.config(0, 0x13, 0)


def test_registers_of_processors(machine):
    msr = machine().msr
    assert msr.read(0, 0x1B) == 0xFEE00D00
    assert msr.read_all(0x1B) == {0: 0xFEE00D00, **dict.fromkeys(range(1, 8), 0xFEE00C00)}
    assert msr.write(1, 0x250, 0x0123456789ABCDEF) == 0x0123456789ABCDEF
    assert msr.read(1, 0x250) == 0x0123456789ABCDEF and msr.read(2, 0x250) == 0x0606060606060606
    assert msr.write_all(0x268, 1 << 63) == dict.fromkeys(range(8), 1 << 63)
    assert machine("cpugap").msr.read_all(0x1B).keys() == {0, 1, 2, 3}


def test_the_processors_leaves(machine):
    cpuid = machine("amd").cpuid
    assert cpuid.read(0) == Registers(0x0D, 0x68747541, 0x444D4163, 0x69746E65)
    assert cpuid.read(0x80000001).eax == 0x00800F82


def test_ports(machine):
    io = machine("intel", "latch fe80 8 counting").io
    assert [io.read(0xFE80, width) for width in (8, 16, 32)] == [0, 0x0100, 0x03020100]
    assert io.read(0xFE81, 16, unaligned=True) == 0x0201
    assert io.write(0xFE84, 0x5A, 8) == 0x5A and io.write(0xFE86, 0x1234, 16) == 0x1234
    assert io.read(0xFE84, 32) == 0x1234055A
    assert io.write(0xFE80, 0xDEADBEEF, 32) == 0xDEADBEEF
    assert io.read_bit(0xFE84, 1) is True and io.write_bit(0xFE84, 1, False) is False
    assert io.write_bit(0xFE80, 12, 0) is False and io.read(0xFE80, 16) == 0xAEEF
    assert io.dump(0xFE80, 8) == bytes.fromhex("efaeadde58053412")
    assert io.page(0xFE80)[:9] == bytes.fromhex("efaeadde58053412ff") and len(io.page(0xFE80)) == 0x17F - 0x7F
    assert io.page(0xFFF0) == b"\xff" * 15  # the last port is never shown


def test_registers_behind_a_pair_of_ports(machine):
    index = machine("intel", "cmos-stop", "cmos-bytes 40 11 22 33 44").index
    assert [index.read(0x70, 0x71, 0x40, width) for width in (8, 16, 32)] == [0x11, 0x2211, 0x44332211]
    assert index.read(0x70, 0, 0x41) == 0x22
    assert index.write(0x70, 0, 0x40, 0x5566, 16) == 0x5566
    assert index.read_bit(0x70, 0, 0x41, 2) is True and index.write_bit(0x70, 0, 0x41, 1, False) is False
    assert index.dump(0x70)[0x40:0x44] == bytes.fromhex("66553344")
    assert len(index.dump(0x72, 0x73)) == 256


def test_memory(machine):
    memory = machine("intel", "bytes 2000 11 22 33 44 55 66 77 88").memory
    assert [memory.read(0x2000, width) for width in (8, 16, 32)] == [0x11, 0x2211, 0x44332211]
    assert memory.read(0x2003, 16, unaligned=True) == 0x5544
    assert memory.write(0x2001, 0xAA, 8) == 0xAA and memory.write(0x2002, 0xBBCC, 16) == 0xBBCC
    assert memory.write(0x2004, 6, 32) == 6
    assert memory.read_bit(0x2004, 2) is True and memory.write_bit(0x2004, 20, 1) is True
    assert memory.dump(0x2000, 8) == bytes.fromhex("11aaccbb06001000")
    assert memory.page(0x2000)[:8] == bytes.fromhex("11aaccbb06001000") and len(memory.page(0x2000)) == 256
    assert memory.page(0xFFFFFFC0) == memory.dump(0xFFFFFFC0, 0x40)


def test_a_dump_of_memory_is_whole_and_leaves_no_file(machine, tmp_path, monkeypatch):
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    pattern = bytes(range(256))
    found = machine("intel", "fill 300000 100000 address").memory.dump(0x300000, 0x100000)
    assert len(found) == 0x100000 and found != pattern * 0x1000
    assert found[0x1234:0x1238] == machine("intel", "fill 300000 100000 address").memory.read(
        0x301234, 32).to_bytes(4, "little")
    assert [path.name for path in tmp_path.iterdir() if path.name.startswith("tmp.")] == []


def test_a_text_in_memory(machine):
    memory = machine("intel", 'text 5000 "Two Words"', 'text 7010 "Two Words"', 'text 8000 "ümlaut"').memory
    assert memory.search(0x5000, 0x3000, "Two Words") == [0x5000, 0x7010]
    assert memory.search(0x5000, 0x3000, "two words") == []
    assert memory.search(0x8000, 0x10, "ümlaut") == [0x8000]


def test_the_super_io(machine):
    superio = machine().superio
    assert (superio.read(0x20), superio.read(0x21)) == (0x87, 0x28)
    assert superio.read(0x30, device=0x0B) == 1 and superio.read(0x30, device=3) == 0
    assert superio.read(7) == 3  # it stays selected
    assert superio.write(0x30, 1, device=3) == 1 and superio.read(0x30, device=3) == 1
    assert superio.write_bit(0x30, 0, 0, device=3) is False and superio.read_bit(0x30, 0, device=0x0B) is True
    assert superio.write(7, 2) == 2 and superio.read(0x30) == 1
    views = superio.dump()
    assert views[0x0B][0x30] == 1 and views[3][0x30] == 0 and views[0x0D][0xF1:0xF4] == bytes.fromhex("112233")


def test_devices_on_the_smbus(machine):
    smbus = machine().smbus
    assert smbus.read(0xA0, 2) == 0x0C and smbus.write(0xA4, 0x10, 0x5A) == 0x5A and smbus.read(0xA4, 0x10) == 0x5A
    assert smbus.scan(0xA0, 0xAE) == {0xA0: 0x23, 0xA2: 0, 0xA4: 0x92, 0xA8: 0x48, 0xAC: 0x23}
    assert smbus.scan(0xB0, 0xB4) == {}
    assert smbus.dump(0xA4)[0x10] == 0x5A and len(smbus.dump(0xA4)) == 256
    with pytest.raises(Failed, match="Read addr 0x20 offset 0x00 error!"):
        smbus.read(0x20, 0, eight_bits=True)
    with pytest.raises(Failed, match="Dump addr 0xB0 error!"):
        smbus.dump(0xB0)


def test_memory_modules(machine):
    spd = machine().spd
    assert spd.slots() == [0, 1, 2, 4, 6]
    ddr4 = spd.read(0)
    assert len(ddr4) == 512 and ddr4[:3] == bytes.fromhex("23110c")
    assert len(spd.read(2)) == 256 and spd.read(2)[0] == 0x92


def test_devices_behind_i2c(machine):
    i2c = machine("amd").i2c
    assert i2c.read(0, 0x50, 2) == 0x00AB
    assert i2c.write(3, 0x2C, 0xFE, 0x4321) == 0x4321 and i2c.read(3, 0x2C, 0xFE) == 0x4321
    with pytest.raises(Failed, match="Read addr 0x51 offset 0x02 error!"):
        i2c.read(0, 0x51, 2)
    with pytest.raises(Failed, match="I2C init error"):
        machine("intel").i2c.read(0, 0x50, 2)


def test_the_management_network(machine):
    smn = machine("amd", "smn-register 0 18000 89abcdef", "smn-register 1 18000 00000006").smn
    assert [smn.read(0, 0x18000, width) for width in (8, 16, 32)] == [0xEF, 0xCDEF, 0x89ABCDEF]
    assert smn.read(1, 0x18000) == 6
    assert smn.write(0, 0x18000, 0x11, 8) == 0x11 and smn.write(0, 0x18000, 0x2233, 16) == 0x2233
    assert smn.read(0, 0x18000) == 0x89AB2233
    assert smn.write(0, 0x18000, 0xFFFFFFFF) == 0xFFFFFFFF
    assert smn.write_bit(0, 0x18000, 31, False) is False and smn.read_bit(0, 0x18000, 30) is True
    assert smn.read(0, 0x18000) == 0x7FFFFFFF
    with pytest.raises(Failed, match="InitSmuService error: 8000000F"):
        machine("intel").smn.read(0, 0)


def test_messages_to_the_management_unit(machine):
    smu = machine("amd").smu
    assert smu.message(2).arguments == (0x00465500, 0, 0, 0, 0, 0) and smu.message(2).is_ok
    assert smu.message(1, 0x10, 0x20).arguments[:2] == (0x10, 0x20)


def test_a_response_that_makes_hwreg_print_without_end(machine):
    with pytest.raises(NoAnswer) as told:
        machine("amd", "smu-reply 7 fc").smu.message(7)
    assert told.value.stdout.startswith("ASSERT") and len(told.value.stdout) <= 4096


def test_the_clocks_time(machine):
    assert machine("intel", "cmos-stop", "cmos-time 2024-02-03 23:59:58").rtc.now() == 86398
    binary = "cmos-bytes 00 3a 00 3b 00 17"
    assert machine("intel", "cmos-stop", binary, "cmos-bytes 0b 06").rtc.now() == 86398
    with pytest.raises(NoAnswer, match="no time of day"):
        machine("intel", "cmos-stop", binary, "cmos-bytes 0b 02").rtc.now()
    with pytest.raises(NoAnswer, match="twelve"):
        machine("intel", "cmos-stop", "cmos-bytes 0b 00").rtc.now()


class RunningClock(Transport):
    """A minute begins between two looks, then a second while one looks."""

    def __init__(self):
        super().__init__()
        self.shown = {"0xb": [2], "4": [0x12] * 6, "2": [0x34] + [0x35] * 5, "0": [0x59, 0xFF, 0x07]}

    def execute(self, line, seconds):
        return Completed(0, f"IOIndex/Data return data:0x{self.shown[line[-1]].pop(0):02X}\n", "")


def test_a_clock_that_goes_on_meanwhile_is_looked_at_again():
    assert Machine(RunningClock()).rtc.now() == (12 * 60 + 35) * 60 + 7


def test_without_access_there_is_no_answer(machine):
    noiopl = machine("noiopl")
    for ask in (lambda: noiopl.pci.read(0, 0, 0, 0, 8), lambda: noiopl.memory.dump(0, 16), noiopl.smbus.scan,
                noiopl.superio.dump, noiopl.pci.functions, noiopl.smbios.structures, noiopl.smbios.table,
                noiopl.acpi.root_pointer, lambda: noiopl.smbios.find("a"), lambda: noiopl.memory.search(0, 16, "a"),
                lambda: noiopl.msr.read_all(0x1B), lambda: noiopl.smbios.structures(1), lambda: noiopl.io.page(0),
                lambda: noiopl.superio.write(0x30, 1, device=2)):  # fmt: skip
        with pytest.raises(NoAnswer, match="no access to the hardware") as told:
            ask()
        assert told.value.status == 6 and "hwreg-sim" in told.value.command


def test_an_error_says_what_was_run_and_what_came_back(machine):
    with pytest.raises(Failed) as told:
        machine().smbus.read(0xB0, 7)
    error = told.value
    assert error.command.endswith("-- /SMBUS /RB 0xb0 7") and error.status == 255
    assert error.stdout == "Read addr 0xB0 offset 0x07 error!\n" and error.stderr == ""
    assert error.command in str(error) and "status: 255" in str(error)


def test_a_wrong_argument_is_a_value_error_and_runs_nothing(machine):
    with pytest.raises(ValueError, match="bus is 0x100: it must be 0 to 0xff") as told:
        machine("noiopl").pci.read(256, 0, 0, 0, 8)
    assert isinstance(told.value, WrongArgument) and (told.value.command, told.value.status) == ("", None)
