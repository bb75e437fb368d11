"""CPUID leaves and MSRs as the dump has them."""

import re

from collection import only
from cpu_dump import as_cpuid_r, processors_of
from explained import judge
from program import changed, hwreg, tool, value

REGISTERS = re.compile(r"Eax:([0-9A-F]{8}), Ebx:([0-9A-F]{8}), Ecx:([0-9A-F]{8}), Edx:([0-9A-F]{8})\n")


def imported(dump, folder, name="machine"):
    """The board of a dump. libvirt's leaves are written back to the lines that they were made of."""
    board = folder / f"{name}.board"
    path = dump.path
    if dump.name.endswith(".xml"):
        path = folder / "cpuid-r.txt"
        path.write_text(as_cpuid_r(processors_of(dump)[0][0]))
    tool("import", "--cpuid", path, "-o", board)
    return board


def leaf(board, number):
    found = REGISTERS.search(hwreg(board, "/CPUID", "/RD", hex(number)).decode())
    return tuple(int(register, 16) for register in found.groups())


def words(registers):
    return " ".join(f"{register:08x}" for register in registers)


def test_the_program_shows_the_leaves_of_the_dump(cpuid_msr_dump, tmp_path):
    leaves = processors_of(cpuid_msr_dump)[0][0]
    board = imported(cpuid_msr_dump, tmp_path)
    differences = {}
    for number, subleaf in leaves:
        if subleaf == 0:
            got, wanted = leaf(board, number), leaves[number, 0]
            if got != wanted:
                differences[f"leaf {number:x}"] = f"{words(wanted)} in the dump, {words(got)} shown"
    judge(cpuid_msr_dump, differences, "leaf")


@only(lambda dump: max(processors_of(dump)[0]) > 0)
def test_the_program_shows_the_leaves_of_another_processor(cpuid_msr_dump, tmp_path):
    """On a machine of which the last processor alone is there: its leaves that are not as those of the first."""
    processors = processors_of(cpuid_msr_dump)[0]
    last = max(processors)
    board = changed(imported(cpuid_msr_dump, tmp_path), f"cpus {last}")
    own = {number: told for (number, subleaf), told in processors[last].items()
           if subleaf == 0 and told != processors[0].get((number, 0))}  # fmt: skip
    assert own, "each processor has an APIC ID of its own"
    judge(cpuid_msr_dump, {f"processor {last} leaf {number:x}": f"{words(told)} in the dump, {words(got)} shown"
                           for number, told in own.items() if (got := leaf(board, number)) != told}, "processor")


@only(lambda dump: processors_of(dump)[1].get(0))
def test_the_program_shows_the_msrs_of_the_dump(cpuid_msr_dump, tmp_path):
    msrs = processors_of(cpuid_msr_dump)[1][0]
    (tmp_path / "msrs.txt").write_text("".join(f"0x{index:x} 0x{told:x}\n" for index, told in msrs.items()))
    board = tmp_path / "machine.board"
    tool("import", "--msr", tmp_path / "msrs.txt", "-o", board)
    assert {index: value(hwreg(board, "/MSR", "/RD", 0, hex(index))) for index in msrs} == msrs
