"""The fuzzers and their seeds: small dumps as tools write them, board files and logs.

An input is a name: FUZZER:SEED:NUMBER.NUMBER..., each number the seed of the chance by which it was changed once more.
"""

import dataclasses
import functools
import io
import pathlib
import random
import re
import sys
import tarfile

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE.parents[2] / "tools")]

import mutations  # noqa: E402
import samples  # noqa: E402

SEEDS = HERE / "seeds"  # board files and logs; make_seeds.py makes them
LONGEST = 60  # changes, one after the other


@dataclasses.dataclass(frozen=True)
class Input:
    """What hwreg-board is asked, and the files: an option, or "board", "ignore" or "log", and the contents of each."""

    verb: str
    files: tuple[tuple[str, bytes], ...]

    def size(self) -> int:
        return sum(len(contents) for _, contents in self.files)


# ---- seeds


def archive(files: dict[str, bytes], form: int = tarfile.USTAR_FORMAT, folder: str = "") -> bytes:
    packed = io.BytesIO()
    with tarfile.open(fileobj=packed, mode="w", format=form) as opened:
        for path, data in files.items():
            member = tarfile.TarInfo(folder + path)
            member.size = len(data)
            opened.addfile(member, io.BytesIO(data))
    return packed.getvalue().rstrip(b"\0") + bytes(1024)


def text_of(data: bytes, form: str) -> bytes:
    rows = [(at, data[at:at + 16]) for at in range(0, len(data), 16)]
    lines = {"view": [f"0x{at:04x}: {row.hex(' ')} |{'.' * len(row)}|" for at, row in rows],
             "plain": ["# comment", *(row.hex(" ") + "  // row" for _, row in rows)],
             "i2cdump": [" " * 5 + "  ".join("0123456789abcdef"), *(f"{at:02x}: {row.hex(' ')}    {'.' * 16}"
                                                                     for at, row in rows)]}  # fmt: skip
    return "\n".join([*lines[form], ""]).encode()


def sysfs(form: int = tarfile.USTAR_FORMAT, folder: str = "") -> bytes:
    places = {f"devices/0000:{place}/config": data[:256] for place, data in samples.FUNCTIONS.items()}
    return archive({**places, "devices/0001:00:00.0/config": samples.CARD[:64]}, form, folder)


LEAF = "1 0 0 0 0 => 1 756e6547 6c65746e 49656e69\n5 b 0 1 0 => 4 c 201 0\n"
AIDA = """------[ CPUID Registers / Logical CPU #0 ]------
CPUID 00000000: 00000001-756E6547-6C65746E-49656E69 [GenuineIntel]
CPUID 0000000B: 00000004-0000000C-00000201-00000000 [SL 01]
------[ Logical CPU #1 ]------
CPUID 00000000: 00000001-756E6547-6C65746E-49656E69 [GenuineIntel]
"""
RAW = """version=0.5.1
Logical CPU #0
basic_cpuid[0]=00000001 756e6547 6c65746e 49656e69
ext_cpuid[1]=00000001 00000002 00000003 00000004
intel_fn4[1]=00000005 00000006 00000007 00000008
amd_fn8000001dh[2]=0000000d 0000000e 0000000f 00000010
"""
MSRS = """CPU 2: 0x1b 0x5
0000001bh=0000000500000001
msr[0x1c] = 0x5
MSR 0000001D: 0000-0005-FEE0-0900 [S200]
Cpu[01] Msr read from 0000001E, return MSR: 0x00000005_FEE00900
0xc0010058 00000000 f8000021  # window
Logical CPU #1
3a 5
"""
RECORDING = b'{"read_msr": {"(0,58)": ["(5, 0)"], "(1,58)": ["(5, 1)", "(6, 1)"]}, "other": {}}'
LOG = """out32 0cf8 80000060
in32 0cfc -> b0000001
out8 0070 0a
in8 0071 -> 26
out8 00ed 00
out8 002e 20
in8 002f -> 87
mmap /dev/mem 7ffe0000 1000 r-- shared -> ok
mr32 b0000000 -> 29c08086
mw8 fedc2010 04
ms64 00001000 -> 0000000000000001
pread /dev/cpu/0/msr c0010058 8 -> 00000000f8000021
pwrite /dev/cpu/1/msr 1b 8 00000000fee00900 -> ok
out32 0cf8 8000fb20
in32 0cfc -> 0000efa1
out8 efa4 a1
out8 efa3 02
out8 efa2 48
in8 efa0 -> 42
in8 efa5 -> 23
out8 0cd6 00
in8 0cd7 -> 10
out32 0cf8 800000b8
out32 0cfc 00059800
in32 0cf8 -> 80000000
munmap 7ffe0000 1000
"""
RULES = b"msr 10*  # the clock\npci 00:1f.? 04\nacpi [FX]*\n* Command\n"


def everything() -> tuple[tuple[str, bytes], ...]:
    return tuple((option.lstrip("-"), data) for _, data, option in samples.everything())


def dumps(option: str, **contents: bytes | str) -> dict[str, Input]:
    return {f"{option}-{name.replace('_', '-')}": Input("import", (
        (option, data if isinstance(data, bytes) else data.encode()),)) for name, data in contents.items()}  # fmt: skip


def firmware_seeds() -> dict[str, Input]:
    raw = [data for _, _, data in samples.acpi_tables()]
    bare = samples.acpidump(places=False)
    found = dumps("acpi", text=samples.acpidump(), bare=bare, raw=b"".join(raw), root=raw[-1],
                  no_root=b"".join(raw[:2]), old_style=samples.acpidump(style="{name}"))  # fmt: skip
    found |= dumps("dmi", old=samples.dmi(), new=samples.dmi("_SM3_"), table=samples.smbios_table(),
                   entry=samples.dmi()[:31])  # fmt: skip
    parts = ("dmi", samples.dmi()[:32]), ("dmi", samples.smbios_table()), ("acpi", bare.encode()), ("acpi", raw[0])
    return {**found, "parts": Input("import", parts)}


def pci_seeds() -> dict[str, Input]:
    few = dict(list(samples.FUNCTIONS.items())[:2])
    return {**dumps("lspci", long=samples.lspci(), short=samples.lspci(size=64), few=samples.lspci(few, 16),
                    archive=sysfs(), domains="0001:" + samples.lspci(few, 32)),
            **dumps("sysfs", archive=sysfs(), pax=sysfs(tarfile.PAX_FORMAT, "\u00fc/" * 60),
                    gnu=sysfs(tarfile.GNU_FORMAT, "folder/" * 20))}  # fmt: skip


def register_seeds() -> dict[str, Input]:
    hwloc = "# mask e[abcd]x => e[abcd]x\n" + LEAF
    return {**dumps("cpuid", plain=samples.cpuid_text(), aida=AIDA, raw=RAW, hwloc=hwloc,
                    archive=archive({"box/pu0": hwloc.encode(), "box/pu1": LEAF.encode()})),
            **dumps("msr", plain=samples.MSRS, many=MSRS, chipsec=RECORDING), **dumps("superio", chip=samples.SUPERIO)}


def cell_seeds() -> dict[str, Input]:
    spd, cmos = samples.SPD, samples.CMOS
    texts = {form: text_of(spd[:256], form) for form in ("view", "plain", "i2cdump")}
    return {**dumps("spd", image=spd, long=spd * 2, **texts),
            **dumps("cmos", image=cmos, nvram=cmos[:114], ports=bytes(0x7000) + cmos[:128] + bytes(400),
                    **{form: text_of(cmos, form) for form in ("view", "plain")})}  # fmt: skip


@functools.cache
def imported() -> bytes:
    """The board that everything together makes."""
    from hwregboard import board, imports

    folder = pathlib.Path.cwd()
    words: dict[str, list] = {}
    for option, data in everything():
        (folder / f"seed.{option}").write_bytes(data)
        name = f"seed.{option}"
        words.setdefault(option, []).append((0xA0, name) if option == "spd" else name)
    options = ("lspci", "dmi", "acpi", "cpuid", "msr", "superio", "cmos", "sysfs", "spd")
    machine = imports.import_machine(
        type("Options", (), {"output": "seed", **{option: words.get(option) for option in options}})(), [])
    machine.heading = ["Made by hwreg-board import."]
    return board.write_board(machine).encode()


def board_seeds() -> dict[str, Input]:
    boards = {"imported": imported()}
    boards |= {path.stem: path.read_bytes() for path in sorted(SEEDS.glob("*.board"))}
    found = {}
    for name, board in boards.items():
        pair = ("board", board), ("board", re.sub(rb"(?m)^(msr 3a|  config 0) .*\n", b"", board))
        found[f"show-{name}"] = Input("show", pair[:1])
        found[f"diff-{name}"] = Input("diff", pair)
        found[f"group-{name}"] = Input("group", (*pair, ("board", imported())))
        found[f"ignore-{name}"] = Input("diff", (*pair, ("ignore", RULES)))
        found[f"export-{name}"] = Input("export", pair[:1])
    return found


def log_seeds() -> dict[str, Input]:
    logs = {"log": LOG.encode(), **{path.stem: path.read_bytes() for path in sorted(SEEDS.glob("*.log"))}}
    return {name: Input("explain", (("log", log),)) for name, log in logs.items()}


def together_seeds() -> dict[str, Input]:
    return {"all": Input("import", everything()), "twice": Input("import", everything() + everything()),
            **{f"without-{option}": Input("import", tuple(file for file in everything() if file[0] != option))
               for option in ("lspci", "acpi", "cpuid")}}  # fmt: skip


FUZZERS = {"pci": pci_seeds, "firmware": firmware_seeds, "registers": register_seeds, "cells": cell_seeds,
           "together": together_seeds, "boards": board_seeds, "logs": log_seeds}  # fmt: skip


@functools.cache
def seeds(fuzzer: str) -> dict[str, Input]:
    return FUZZERS[fuzzer]()


# ---- changes


def changed(fuzzer: str, given: Input, number: int) -> Input:
    """The input changed by the chance of that number: mostly the contents of one file, at times the files."""
    chance = random.Random(number)
    files = list(given.files)
    at = chance.randrange(len(files))
    if given.verb == "import" and chance.randrange(40) == 0:
        other = chance.choice(list(seeds(fuzzer).values()))
        files.insert(at, chance.choice(other.files))
        if len(files) > 20:
            del files[10:]
    option, contents = files[at]
    files[at] = option, mutations.changed(chance, contents)
    return Input(given.verb, tuple(files))


def named(name: str) -> Input:
    """The input of that name."""
    fuzzer, seed, numbers = name.split(":")
    found = seeds(fuzzer)[seed]
    for number in numbers.split(".") if numbers else []:
        found = changed(fuzzer, found, int(number))
    return found
