"""The object for a machine."""

from __future__ import annotations

from hwreg.memory import Memory
from hwreg.pci import Pci
from hwreg.ports import Index, Io, SuperIo
from hwreg.processor import Cpuid, Msr
from hwreg.session import LOCK_FILE, Session
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
        self.superio = SuperIo(self)
