"""The machines that the tests share, each booted once for all test modules of a session.

A test module asks its questions at import time, when pytest collects; the first test that looks at an answer boots
the machine and runs all questions asked of it, in the order of asking:

    from boots import Q35
    LISTING = Q35.ask(["hwreg", "/PCI", "/DUMP", "/NOMSG"])

    def test_listing_succeeds():
        assert LISTING.status == 0

Leave a machine as you found it: other modules' questions come after yours.
"""

import guest
from guest import Machine


class SharedBoot:
    def __init__(self, machine):
        self.machine = machine
        self.commands = []
        self.files = {}
        self.outcome = None

    def ask(self, words, **options):
        """Adds one command (list, or text for the shell; options as in guest.Command); gives its Answer."""
        assert self.outcome is None, "questions are asked at import time"
        self.commands.append(guest.Command(words, **options))
        return Answer(self, len(self.commands) - 1)

    def put(self, path, content):
        """Adds a file of the guest: bytes, or the path of a file of the host."""
        self.files[path] = content

    def results(self):
        if self.outcome is None:
            try:
                self.outcome = guest.run(self.machine, self.commands, self.files).results
            except Exception as error:
                self.outcome = error
        if isinstance(self.outcome, Exception):
            raise self.outcome
        return self.outcome


class Answer:
    """The guest.Result of one question, read through."""

    FIELDS = ("status", "signal", "timeout", "stdout", "stderr", "ending")

    def __init__(self, boot, number):
        self.boot = boot
        self.number = number

    def __getattr__(self, name):
        if name not in self.FIELDS:  # pytest looks at every name of a module while it collects
            raise AttributeError(name)
        return getattr(self.boot.results()[self.number], name)


# A MiB of the first machine's memory that its kernel leaves alone, for any use within one command.
SCRATCH = 0x18000000

# Two root ports in one slot and a bridge, with a card behind each.
BEHIND_BRIDGES = [
    "pcie-root-port,id=port1,bus=pcie.0,addr=3.0,chassis=1,slot=1,multifunction=on",
    "e1000e,bus=port1",
    "pcie-root-port,id=port2,bus=pcie.0,addr=3.1,chassis=2,slot=2",
    "nvme,bus=port2,serial=1",
    "pci-bridge,id=bridge,bus=pcie.0,addr=5,chassis_nr=3,shpc=off",
    "e1000,bus=bridge,addr=1",
]

# An Intel chipset of the PCI Express age: functions on bus 0 and behind bridges, extended configuration space,
# slots with functions 0 and 1, and 0 to 2 and 7, devices without an interrupt and with each of the pins A to D.
Q35 = SharedBoot(
    Machine(
        machine="q35",
        smp=4,
        cpu="max",
        devices=[
            *BEHIND_BRIDGES,
            "edu,bus=pcie.0,addr=6",
            "pci-testdev,bus=pcie.0,addr=7",
            "ich9-usb-uhci1,bus=pcie.0,addr=0x1d.0,multifunction=on",
            "ich9-usb-uhci2,bus=pcie.0,addr=0x1d.1",
            "ich9-usb-uhci3,bus=pcie.0,addr=0x1d.2",
            "ich9-usb-ehci1,bus=pcie.0,addr=0x1d.7",
        ],
        append=f"iomem=relaxed memmap=1M${SCRATCH:#x}",
    )
)

# The same chipset under UEFI firmware, which hands out other addresses.
OVMF = SharedBoot(
    Machine(
        machine="q35",
        firmware="ovmf",
        devices=["pcie-root-port,id=port1,bus=pcie.0,addr=3,chassis=1,slot=1", "e1000e,bus=port1", "qemu-xhci,addr=4"],
    )
)

# A chipset without memory-mapped configuration space, with devices of many classes.
PC = SharedBoot(
    Machine(
        machine="pc",
        devices=[
            "VGA",
            "lsi53c895a",
            "piix3-usb-uhci",
            "AC97,audiodev=silent",
            "intel-hda",
            "pci-serial",
            "sdhci-pci",
            "virtio-serial-pci",
            "virtio-keyboard-pci",
            "virtio-mouse-pci",
            "virtio-tablet-pci",
            "megasas",
            "i6300esb",
            "tulip",
            "secondary-vga",
            "ipmi-bmc-sim,id=bmc",
            "pci-ipmi-kcs,bmc=bmc",
            "tpci200",
            "ivshmem-plain,memdev=shared",
        ],
        qemu=["-audiodev", "none,id=silent", "-object", "memory-backend-ram,id=shared,size=1M,share=on"],
    )
)

# A kernel that refuses to map what it uses itself.
STRICT = SharedBoot(
    Machine(
        machine="q35",
        devices=["pcie-root-port,id=port1,bus=pcie.0,addr=3,chassis=1,slot=1", "e1000e,bus=port1"],
        append="",
    )
)

# A kernel that refuses all direct hardware access, to root as well.
LOCKED = SharedBoot(Machine(machine="q35", append="iomem=relaxed lockdown=integrity"))

# Every structure of the firmware tables that QEMU lets the user fill in.
SMBIOS_STRINGS = [
    "type=0,vendor=Firmware Works,version=9.87,date=02/03/2024,release=4.2",
    "type=1,manufacturer=System Works,product=Guest Machine,version=1.0,serial=SYS-0001,"
    "uuid=00112233-4455-6677-8899-aabbccddeeff,sku=SKU-1,family=Guests",
    "type=2,manufacturer=Board Works,product=Guest Board,version=2.0,serial=BRD-0002,asset=ASSET-2,location=Slot Zero",
    "type=3,manufacturer=Case Works,version=3.0,serial=CSE-0003,asset=ASSET-3,sku=SKU-3",
    "type=4,sock_pfx=SOCK,manufacturer=Cpu Works,version=Emulated,serial=CPU-0004,asset=ASSET-4,part=PART-4,"
    "max-speed=4321,current-speed=1234",
    "type=11,value=first free text,value=SECOND FREE TEXT",
    "type=17,loc_pfx=DIMM,bank=BANK ZERO,manufacturer=Memory Works,serial=MEM-0017,asset=ASSET-17,part=PART-17,"
    "speed=3200",
]


def with_smbios_strings(machine, append):
    words = [word for text in SMBIOS_STRINGS for word in ("-smbios", text)]
    return SharedBoot(Machine(machine=machine, firmware="ovmf", smp=2, append=append, qemu=words))


# UEFI machines with those tables: the kernel as a distribution starts it, with both entry points; and one that maps its
# own cached pages as it is asked to.
TABLES_STOCK = with_smbios_strings("q35,smbios-entry-point-type=64", "")
TABLES_NOPAT = with_smbios_strings("q35", "iomem=relaxed nopat")
