"""hwreg for scripts: registers of a machine, here, behind ssh or simulated. See docs/python.md."""

from hwreg.amd import SmuAnswer
from hwreg.errors import Failed, HwregError, NoAnswer, NotAllowed, TimedOut, WrongArgument
from hwreg.firmware import RootPointer, Structure
from hwreg.foretelling import Finding, Foretold, Report
from hwreg.machine import Machine
from hwreg.pci import Function
from hwreg.power import Cycle
from hwreg.processor import Registers
from hwreg.session import LOCK_FILE, Ran
from hwreg.transports import Completed, Local, Sim, Ssh, Transport

__all__ = ["LOCK_FILE", "Completed", "Cycle", "Failed", "Finding", "Foretold", "Function", "HwregError", "Local",
           "Machine", "NoAnswer", "NotAllowed", "Ran", "Registers", "Report", "RootPointer", "Sim", "SmuAnswer", "Ssh",
           "Structure", "TimedOut", "Transport", "WrongArgument"]  # fmt: skip
