"""What the lines of the simulator's log mean: which register each access reaches, and what it does there."""

import re
from collections.abc import Iterable, Iterator
from dataclasses import dataclass, field

from .names import cmos_name, port_name, superio_name
from .names_msr import msr_name
from .names_pci import pci_register_name

PORT = re.compile(r"(in|out)(8|16|32) ([0-9a-f]{4}) (?:-> )?([0-9a-f]+)$")
MEMORY = re.compile(r"m([rws])(8|16|32|64|128|256|512) ([0-9a-f]{8,}) (?:-> )?([0-9a-f]+)$")
MAP = re.compile(r"mmap /dev/mem ([0-9a-f]+) ([0-9a-f]+) (\S+) \S+ -> (\w+)$")
MSR = re.compile(r"p(read|write) /dev/cpu/(\d+)/msr ([0-9a-f]+) 8 (.*)$")
MSR_VALUE = re.compile(r"-> ([0-9a-f]{16})$")

DELAY = 0xED
CONFIG_ADDRESS, CONFIG_DATA = 0xCF8, 0xCFC
ENABLE = 1 << 31
HOST_BRIDGE = 0
PCIEXBAR = 0x60  # of Intel's host bridges
SMBUS_BAR = 0x20
CLASS = slice(0x0A, 0x0C)
SMBUS_CLASSES = (b"\x05\x0c", b"\0\0")  # the second one is that of a function whose class was not read
INTEL_VENDORS = (b"\x86\x80", b"\0\0")  # the second one was not read, either
MMIO_CONFIG_BASE = 0xC0010058  # MSR of AMD's processors
BANKS = {0x70: 0, 0x72: 0x80}  # index ports of the CMOS memory
SIO_INDEX = (0x2E, 0x4E)
PM_INDEX = 0xCD6  # of AMD's power-management registers
WINDOW_SIZE = 256 << 20
SMN_VENDORS = (0x1022, 0x1D94)
SMN_DATA = (0xBC, 0xC8)  # behind the register's address at B8h and C4h
SMN_DIE = 0xC0

# The SMBus host of Intel's chipsets (I/O controller hub 10 data sheet, 19.2) and, alike, of AMD's.
SMBUS_REGISTERS = {0: "HST_STS", 2: "HST_CNT", 3: "HST_CMD", 4: "XMIT_SLVA", 5: "HST_D0", 6: "HST_D1", 7: "BLOCK_DB"}
HST_STS, HST_CNT, HST_CMD, XMIT_SLVA, HST_D0, HST_D1 = 0, 2, 3, 4, 5, 6
START = 0x40
PROTOCOLS = ("quick", "byte", "byte data", "word data", "process call", "block", "block", "block")
HST_BUSY = 0x01
ENDS = ((0x04, "nobody acknowledges (DEV_ERR)"), (0x08, "lost to another master (BUS_ERR)"), (0x10, "killed (FAILED)"))
DONE = 0x02

# DW_apb_i2c, memory map.
I2C_CORES = range(0xFEDC2000, 0xFEDCC000, 0x1000)
I2C_REGISTERS = {
    0x00: "IC_CON", 0x04: "IC_TAR", 0x10: "IC_DATA_CMD", 0x14: "IC_SS_SCL_HCNT", 0x18: "IC_SS_SCL_LCNT",
    0x1C: "IC_FS_SCL_HCNT", 0x20: "IC_FS_SCL_LCNT", 0x2C: "IC_INTR_STAT", 0x30: "IC_INTR_MASK",
    0x34: "IC_RAW_INTR_STAT", 0x38: "IC_RX_TL", 0x3C: "IC_TX_TL", 0x40: "IC_CLR_INTR", 0x54: "IC_CLR_TX_ABRT",
    0x60: "IC_CLR_STOP_DET", 0x6C: "IC_ENABLE", 0x70: "IC_STATUS", 0x74: "IC_TXFLR", 0x78: "IC_RXFLR",
    0x7C: "IC_SDA_HOLD", 0x80: "IC_TX_ABRT_SOURCE", 0x9C: "IC_ENABLE_STATUS", 0xF4: "IC_COMP_PARAM_1",
}


@dataclass
class Seen:
    """What the log has told so far."""

    address: int = 0  # at CF8h
    config: dict[int, bytearray] = field(default_factory=dict)  # of each function, as far as it was read or written
    index: dict[int, int] = field(default_factory=dict)  # behind each index port
    window: int | None = None
    smbus: int | None = None
    smbus_registers: dict[int, int] = field(default_factory=dict)
    started: bool = False
    pm: bytearray = field(default_factory=lambda: bytearray(256))
    chosen: tuple[int, str, str] | None = None  # an index port, and its line in words if no access follows


def place(number: int) -> str:
    """A function as bus:device.function."""
    return f"{number >> 8:02x}:{number >> 3 & 31:02x}.{number & 7}"


def access(written: bool, width: int, value: int) -> str:
    return f"{'write' if written else 'read'}{width} {'<-' if written else '->'} {value:0{width // 4}x}"


def pci(seen: Seen, number: int, offset: int, width: int, written: bool, value: int, way: str) -> tuple[str, str]:
    """An access to a configuration register; notes what it tells of the bases of other things."""
    config = seen.config.setdefault(number, bytearray(4096))
    config[offset:offset + width // 8] = value.to_bytes(width // 8, "little")
    if not written and width == 32 and number == HOST_BRIDGE and offset == PCIEXBAR and config[:2] in INTEL_VENDORS:
        seen.window = value & 0xFFF00000 or None
    if not written and offset == SMBUS_BAR and value & 1 and config[CLASS] in SMBUS_CLASSES:
        seen.smbus = value & 0xFFE0
    text = f"{way} {place(number)}+{offset:02x} {access(written, width, value)}"
    return text, pci_register_name(bytes(config), offset)


def smn(seen: Seen, offset: int, width: int, written: bool, value: int) -> Iterator[str]:
    """The register of AMD's management network that an access through one of its pairs reaches."""
    config = seen.config[HOST_BRIDGE]
    data = offset & ~3
    if int.from_bytes(config[:2], "little") not in SMN_VENDORS or data not in SMN_DATA:
        return
    register = int.from_bytes(config[data - 4:data], "little") + offset - data
    die = 0 if data == 0xBC else int.from_bytes(config[SMN_DIE:SMN_DIE + 4], "little")
    yield f"smn die {die:x} {register:08x} {access(written, width, value)}"


def smbus(seen: Seen, register: int, written: bool, value: int) -> Iterator[str]:
    """The transaction that this access to a register of the host completes, if it does."""
    if written and register == HST_CNT and value & START:
        seen.started = True
    if written or register != HST_STS:
        seen.smbus_registers[register] = value
    at = seen.smbus_registers
    slave = at.get(XMIT_SLVA, 0)
    reads = bool(slave & 1)
    what = f"{'read' if reads else 'write'} {PROTOCOLS[at.get(HST_CNT, 0) >> 2 & 7]} {slave & 0xFE:02x}" \
           f"+{at.get(HST_CMD, 0):02x}"
    if not seen.started or written:
        return
    if register == HST_STS and not value & HST_BUSY:
        for bit, meaning in ENDS:
            if value & bit:
                seen.started = False
                yield f"smbus {what}: {meaning}"
                return
        if value & DONE and not reads:
            seen.started = False
            yield f"smbus {what} <- {at.get(HST_D0, 0):02x}"
    if register == HST_D0 and reads:
        seen.started = False
        yield f"smbus {what} -> {value:02x}"


def choose(seen: Seen, port: int, width: int, value: int) -> None:
    """Keeps back the choice of a register: the access behind it tells it, too."""
    seen.chosen = port, f"port {port:04x} {access(True, width, value)}", port_name(port)


def chosen_in_vain(seen: Seen, port: int) -> Iterator[tuple[str, str]]:
    """The choice of a register that this access is not for."""
    if not seen.chosen:
        return
    configuration = seen.chosen[0] == CONFIG_ADDRESS and seen.address & ENABLE and port & ~3 == CONFIG_DATA
    if not configuration and port != seen.chosen[0] + 1:
        yield seen.chosen[1:]
        seen.chosen = None


def indexed(seen: Seen, port: int, written: bool, value: int) -> tuple[str, str] | None:
    """An access through an index port that is known, or the choice of the register behind it."""
    if written and (port in BANKS or port in SIO_INDEX or port == PM_INDEX):
        seen.index[port] = value
        choose(seen, port, 8, value)
        return "", ""
    if port - 1 not in seen.index:
        return None
    seen.chosen = None
    register = seen.index[port - 1]
    if port - 1 in BANKS:
        register = BANKS[port - 1] + (register & 0x7F)
        return f"cmos {register:02x} {access(written, 8, value)}", cmos_name(register)
    if port - 1 == PM_INDEX:
        seen.pm[register] = value
        if register in (0x00, 0x01) and seen.pm[0] & 0x10:
            seen.smbus = seen.pm[1] << 8
        return f"pm {register:02x} {access(written, 8, value)}", "power-management register"
    return f"super i/o {port - 1:02x}: {register:02x} {access(written, 8, value)}", superio_name(register)


def port_line(seen: Seen, port: int, width: int, written: bool, value: int) -> Iterator[tuple[str, str]]:
    if port == CONFIG_ADDRESS and width == 32 and written:
        seen.address = value
        choose(seen, port, 32, value)
        return
    if CONFIG_DATA <= port < CONFIG_DATA + 4 and seen.address & ENABLE:
        seen.chosen = None
        offset = (seen.address & 0xFC) + port - CONFIG_DATA
        number = seen.address >> 8 & 0xFFFF
        yield pci(seen, number, offset, width, written, value, "pci")
        for register in smn(seen, offset, width, written, value) if number == HOST_BRIDGE else ():
            yield "=> " + register, ""
        return
    known = indexed(seen, port, written, value) if width == 8 else None
    if known:
        if known[0]:
            yield known
        return
    text = f"port {port:04x} {access(written, width, value)}"
    if seen.smbus is not None and seen.smbus <= port < seen.smbus + 32:
        register = port - seen.smbus
        yield text, f"SMBus {SMBUS_REGISTERS.get(register, f'register {register:02x}')}"
        for transaction in smbus(seen, register, written, value):
            yield "=> " + transaction, ""
        return
    yield text, port_name(port)


def memory_line(seen: Seen, address: int, width: int, written: bool, value: int) -> tuple[str, str]:
    if seen.window is not None and width <= 32 and seen.window <= address < seen.window + WINDOW_SIZE:
        at = address - seen.window
        return pci(seen, at >> 12, at & 0xFFF, width, written, value, "window")
    text = f"memory {address:08x} {access(written, width, value)}"
    if address & ~0xFFF in I2C_CORES:
        register = address & 0xFFF
        return text, f"I2C core {(address >> 12) - (I2C_CORES.start >> 12)} " + \
            I2C_REGISTERS.get(register, f"register {register:02x}")
    return text, ""


def matched(pattern: re.Pattern[str], line: str) -> re.Match[str] | None:
    """An access taken apart, if its value fits its width."""
    found = pattern.match(line)
    return found if found and len(found[4]) == int(found[2]) // 4 else None


def meanings(seen: Seen, line: str) -> Iterator[tuple[str, str]]:
    """The line in words, and the name of what it reaches; nothing for one that a later one tells."""
    found = matched(PORT, line)
    yield from chosen_in_vain(seen, int(found.group(3), 16) if found else -1)
    if found:
        direction, width, port, value = found.groups()
        yield from port_line(seen, int(port, 16), int(width), direction == "out", int(value, 16))
    elif found := matched(MEMORY, line):
        kind, width, address, value = found.groups()
        written = kind == "w" or (kind == "s" and "->" not in line)
        yield memory_line(seen, int(address, 16), int(width), written, int(value, 16))
    elif found := MSR.match(line):
        kind, cpu, index, rest = found.groups()
        told = MSR_VALUE.match(rest)
        if kind == "read" and int(index, 16) == MMIO_CONFIG_BASE and told:
            seen.window = int(told[1], 16) & 0xFFF00000 or None
        yield f"msr {int(index, 16):x} of cpu {cpu} {kind} {rest}", msr_name(int(index, 16))
    elif found := MAP.match(line):
        start, length, protection, result = found.groups()
        end = int(start, 16) + int(length, 16) - 1
        yield f"memory {start}-{end:08x} mapped {protection}" + ("" if result == "ok" else f" -> {result}"), ""
    elif not line.startswith("munmap "):
        yield line, ""


def telling(name: str) -> str:
    """The name, but for one that only says the number again."""
    return "" if re.fullmatch(r"(Port|Register|MSR|CMOS) [0-9a-f]+", name) else name


def show(delay: int, text: str, name: str, times: int) -> str:
    before = f"+{delay} us" if delay else ""
    text = f"{before:>8} {text}" + (f" ({times} times)" if times > 1 else "")
    return f"{text:<52} {telling(name)}".rstrip()


def explained(lines: Iterable[str]) -> Iterator[str]:
    """The log's lines explained, one after the other: delays are told with the access behind them, an access that
    is repeated with the same result is told once."""
    seen = Seen()
    delay = 0
    held: tuple[str, str] | None = None
    held_delay = times = 0
    for line in lines:
        line = line.rstrip("\n")
        found = PORT.match(line)
        if found and found.group(1) == "out" and int(found.group(3), 16) == DELAY:
            delay += 1
            continue
        for meaning in meanings(seen, line):
            if meaning == held:
                times += 1
            else:
                if held:
                    yield show(held_delay, *held, times)
                held, held_delay, times = meaning, 0, 1
            held_delay += delay
            delay = 0
    for meaning in [held] if held else []:
        yield show(held_delay, *meaning, times)
    if seen.chosen:
        yield show(delay, *seen.chosen[1:], 1)
    elif delay:
        yield show(delay, "", "", 1)
