"""The object for a machine."""

from __future__ import annotations

from hwreg.amd import Smn, Smu
from hwreg.firmware import Acpi, Smbios
from hwreg.memory import Memory
from hwreg.pci import Pci
from hwreg.ports import Index, Io, SuperIo
from hwreg.power import Rtc
from hwreg.processor import Cpuid, Msr
from hwreg.session import LOCK_FILE, Session
from hwreg.smbus import I2c, Smbus, Spd
from hwreg.transports import Transport


class Machine(Session):
    """A machine and its registers.

    power    lets commands run that switch it off or restart it
    dry_run  prints each command line and runs nothing; numbers that are read are 0 then
    timeout  seconds for which a command may wait for the lock, and for which it may run
    lock     the file on that machine that keeps commands apart; a simulated one has its own. None for none
    """

    def __init__(self, transport: Transport, power: bool = False, dry_run: bool = False, timeout: float = 60.0,
                 lock: str | None = LOCK_FILE) -> None:  # fmt: skip
        super().__init__(transport, power, dry_run, timeout, lock)
        self.io = Io(self)
        self.index = Index(self)
        self.memory = Memory(self)
        self.pci = Pci(self)
        self.msr = Msr(self)
        self.cpuid = Cpuid(self)
        self.smbus = Smbus(self)
        self.spd = Spd(self.smbus)
        self.i2c = I2c(self)
        self.smn = Smn(self)
        self.smu = Smu(self)
        self.smbios = Smbios(self)
        self.acpi = Acpi(self)
        self.rtc = Rtc(self, self.index)
        self.superio = SuperIo(self)
