"""One machine out of what people attach, with doors so that every command runs on it."""

import argparse

from hwregboard import acpi, cells, cpuid, dmi, lspci, msr, superio
from hwregboard.errors import Mistake
from hwregboard.machine import ByCpu, Cells, Function, Machine

INTEL, ATI, AMD, HYGON = b"\x86\x80", b"\x02\x10", b"\x22\x10", b"\x94\x1d"
SMBUS_CLASS = 0x0C05
MMIO_CONFIG = 0xC0010058
DESCRIBED_HOST = "00:1f.4"
HOST_PORT = 0xEFA0


def import_machine(options: argparse.Namespace, say: list[str]) -> Machine:
    machine = Machine(name=options.output)
    for file in options.sysfs or []:
        lspci.import_sysfs(machine, file, say)
    for file in options.lspci or []:
        lspci.import_lspci(machine, file, say)
    for file in options.cpuid or []:
        cpuid.import_cpuid(machine, file, say)
    for file in options.msr or []:
        msr.import_msr(machine, file, say)
    for address, file in options.spd or []:
        cells.import_spd(machine, address, file, say)
    for file in options.cmos or []:
        cells.import_cmos(machine, file, say)
    for file in options.superio or []:
        superio.import_superio(machine, file, say)
    if options.acpi:
        acpi.import_acpi(machine, options.acpi, say)
    if options.dmi:
        dmi.import_dmi(machine, options.dmi, say)
    add_doors(machine, say)
    return machine


def add_doors(machine: Machine, say: list[str]) -> None:
    """What no dump tells: rights, nodes, CPUs, the way to configuration space, the clock, the SMBus host."""
    told = {cpu for by in machine.msrs.values() for cpu in by if cpu is not None}
    machine.cpus = sorted(set(machine.cpus) | told) or [0]
    for index, by in machine.msrs.items():
        machine.msrs[index] = msr.shared(by, machine.cpus)
    machine.doors |= {"iopl": "ok", "mem": "ok", "msr-nodes": "always", "pci-ports": ""}
    if window := config_window(machine, say):
        machine.doors["ecam"] = f"{window[0]:x} {window[1]:x}"
    if not machine.has_cmos:
        machine.missing.append("cmos: no dump of it; the clock is the simulator's")
        machine.has_cmos = True
    if machine.slaves:
        add_smbus_host(machine, say)
    for name, held in (("pci", machine.functions), ("cpuid", machine.cpuid), ("msrs", machine.msrs),
                       ("superio", machine.superio), ("spd", machine.slaves)):  # fmt: skip
        if not held:
            machine.missing.append(f"{name}: no dump of it")
    for name, prefix in (("acpi tables", "acpi "), ("smbios", "smbios ")):
        if not any(part.title.startswith(prefix) for part in machine.parts):
            machine.missing.append(f"{name}: no dump of it")


# ---- the configuration window


def config_window(machine: Machine, say: list[str]) -> tuple[int, int] | None:
    """(base, buses). MCFG tells where the window is; the registers that hwreg asks may hold something else."""
    told = mcfg_window(machine)
    asked = register_window(machine)
    if told and asked and told[0] != asked[0]:
        say.append(f"the window is at {told[0]:x} as MCFG says; the host bridge's register 60h or MSR C0010058 says "
                   f"{asked[0]:x}, where hwreg looks")  # fmt: skip
    if not told and not asked and any(len(function.cells.data) > 256 for function in machine.functions.values()):
        machine.missing.append("ecam: neither MCFG nor register 60h nor MSR C0010058 tells where the window is")
    return told or asked


def mcfg_window(machine: Machine) -> tuple[int, int] | None:
    for table in acpi.find_tables(machine):
        if table.signature == "MCFG" and len(table.data) >= 60:
            base, segment = acpi.pointer(table.data, 44, 8), acpi.pointer(table.data, 52, 2)
            buses = table.data[55] - table.data[54] + 1
            if segment == 0 and buses > 0 and 0 < base + (buses << 20) <= 1 << 32 and base % (1 << 20) == 0 and base:
                return base, buses
    return None


def register_window(machine: Machine) -> tuple[int, int] | None:
    bridge = machine.functions.get("00:00.0")
    if bridge is None or bridge.config[:2] == INTEL:
        if bridge is None or bridge.cells.mask[0x60:0x68] != b"\x01" * 8:
            return None
        value = int.from_bytes(bridge.config[0x60:0x68], "little")
        buses = {0: 256, 1: 128, 2: 64}.get(value >> 1 & 3, 0)
        base = value & ~((buses << 20) - 1) if buses else 0
        plausible = value & 1 and buses and value & 0xFFFFF & ~7 == 0
    else:
        value = machine.msrs.get(MMIO_CONFIG, ByCpu()).of(machine.cpus[0])
        if not isinstance(value, int):
            return None
        buses = 1 << min(value >> 2 & 0xF, 8)
        base = value & 0xFFFFFFF00000
        plausible = value & 1
    room = (1 << 32) - base >> 20  # a window that is said to reach beyond 4 GiB ends there
    return (base, min(buses, room)) if plausible and base and room > 0 else None


# ---- the SMBus host


def add_smbus_host(machine: Machine, say: list[str]) -> None:
    bridge = machine.functions.get("00:00.0")
    vendor = bridge.config[:2] if bridge else INTEL
    if vendor in (ATI, AMD, HYGON):
        machine.doors["pm-registers"] = ""
        machine.lines += [f"pm-bytes 0 10 {HOST_PORT + 0x60 >> 8:x}", "smbus-host pm"]
        return
    host = next((function for _, function in sorted(machine.functions.items())
                 if function.class_code == SMBUS_CLASS and function.config[:2] == INTEL), None)  # fmt: skip
    if host is None:
        place = next(place for place in (DESCRIBED_HOST, *(f"00:1e.{number}" for number in range(8)))
                     if place not in machine.functions)  # fmt: skip
        host = machine.functions[place] = Function(place)
        host.cells.put(0, bytes.fromhex("86 80 23 a3 01 00 80 02 10 00 05 0c 00 00 00 00"))
        host.cells.put(0x20, (HOST_PORT | 1).to_bytes(4, "little"))
        host.cells.put(0x40, b"\x01")
        machine.missing.append(f"pci {place}: no dump of an SMBus host; this one is described by the importer")
        if bridge is None:
            machine.functions["00:00.0"] = made_bridge()
            machine.missing.append("pci 00:00.0: no dump of a host bridge; this one is described by the importer")
    elif not (host.cells.data[4] & 1 and host.cells.data[0x40] & 1 and host.cells.mask[0x40] == Cells.KNOWN):
        say.append(f"the SMBus host {host.place} is switched off in the dump, or its register 40h is not known")
        if host.cells.mask[0x40] != Cells.KNOWN:
            host.cells.put(0x40, b"\x01")
            machine.missing.append(f"pci {host.place}: register 40h; the importer lets it switch the host on")
    host.extra.append("smbus-host pci")


def made_bridge() -> Function:
    bridge = Function("00:00.0")
    bridge.cells.put(0, bytes.fromhex("86 80 30 3e 06 00 90 20 0a 00 00 06 00 00 00 00"))
    return bridge


def spd_option(text: str) -> tuple[int, str]:
    """ADDRESS=FILE; the address has 8 bits as elsewhere, or 7 as i2c-tools write it (50h to 57h)."""
    address, _, file = text.partition("=")
    try:
        number = int(address, 16)
    except ValueError:
        number = -1
    if 0x50 <= number <= 0x57:
        number *= 2
    if not 0 <= number <= 0xFF or number & 1 or not file:
        raise Mistake("--spd", 0, f"not ADDRESS=FILE with an even address of 8 bits: {text}")
    return number, file
