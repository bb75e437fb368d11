"""hwreg for scripts: registers of a machine, here, behind ssh or simulated. See docs/python.md."""

from hwreg.errors import Failed, HwregError, NoAnswer, NotAllowed, TimedOut, WrongArgument
from hwreg.foretelling import Finding, Foretold, Report
from hwreg.machine import Machine
from hwreg.pci import Function
from hwreg.processor import Registers
from hwreg.session import LOCK_FILE, Ran
from hwreg.transports import Completed, Local, Sim, Ssh, Transport

__all__ = ["LOCK_FILE", "Completed", "Failed", "Finding", "Foretold", "Function", "HwregError", "Local", "Machine",
           "NoAnswer", "NotAllowed", "Ran", "Registers", "Report", "Sim", "Ssh", "TimedOut", "Transport",
           "WrongArgument"]  # fmt: skip
