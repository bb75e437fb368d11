"""Each method reads and writes what the simulated machine holds."""


def test_configuration_space_by_width(machine):
    pci = machine().pci
    assert pci.read(0, 0, 0, 0, 8) == 0x86
    assert pci.read(0, 0x1F, 0, 0, 16) == 0x8086
    assert pci.read(0, 0, 0, 0, width=32) == 0x3E308086
    assert pci.write(0, 0, 0, 0xDC, 0x77, 8) == 0x77
    assert pci.read(0, 0, 0, 0xDC, 8) == 0x77
