"""CMOS bytes, and single accesses that another program made on its machine and wrote down, made again."""

from collection import only
from explained import judge
from program import hwreg, tool, value, views
from small_dumps import BANKS, accesses_of, cmos_of
from test_cpu import leaf

ABSENT = 0xFFFFFFFF


def cmos_board(dump, folder, name="machine"):
    board = folder / f"{name}.board"
    tool("import", "--cmos", dump.path, "-o", board)
    return board


def compare_banks(board, banks):
    differences = {}
    for port, wanted in banks.items():
        shown = views(hwreg(board, "/IO", "/INDEX", "/DUMP", hex(port), hex(port + 1)))[0]
        for at, (one, other) in enumerate(zip(wanted, shown)):
            if one != other:
                differences[f"{port:x} {at:x}"] = f"{one:02x} in the dump, {other:02x} shown"
    return differences


def test_the_program_shows_the_cmos_bytes_of_the_dump(cmos_dump, tmp_path):
    judge(cmos_dump, compare_banks(cmos_board(cmos_dump, tmp_path), cmos_of(cmos_dump)))


def recorded_cmos(accesses):
    """{index port: bytes}: what was read from the data port, in the order in which registers were asked for."""
    asked = accesses.get("write_io_port", {})
    banks = {}
    for port in BANKS:
        answers = accesses.get("read_io_port", {}).get((port + 1, 1))
        if answers:
            registers = sorted({register & 0x7F for index, register, _ in asked if index == port})
            assert registers == list(range(len(answers)))
            banks[port] = bytes(answers)
    return banks


@only(lambda dump: recorded_cmos(accesses_of(dump)))
def test_cmos_reads_give_the_same_again(chipsec_dump, tmp_path):
    banks = recorded_cmos(accesses_of(chipsec_dump))
    (tmp_path / "cmos.bin").write_bytes(b"".join(banks[port] for port in sorted(banks)))
    board = tmp_path / "machine.board"
    tool("import", "--cmos", tmp_path / "cmos.bin", "-o", board)
    judge(chipsec_dump, compare_banks(board, banks))


def lspci_text(reads):
    """The bytes that were read, as text; of the others nothing is known."""
    functions = {}
    for (bus, device, function, offset, width), answers in reads.items():
        if answers[0] != ABSENT:
            cells = functions.setdefault((bus, device, function), ["??"] * 256)
            cells[offset : offset + width] = [f"{byte:02x}" for byte in answers[0].to_bytes(width, "little")]
    lines = []
    for place, cells in sorted(functions.items()):
        lines.append("%02x:%02x.%x recorded" % place)
        lines += [f"{at:02x}: {' '.join(cells[at : at + 16])}" for at in range(0, 256, 16)]
    return "\n".join(lines) + "\n"


@only(lambda dump: accesses_of(dump).get("read_pci_reg"))
def test_reads_of_pci_registers_give_the_same_again(chipsec_dump, tmp_path):
    reads = accesses_of(chipsec_dump)["read_pci_reg"]
    (tmp_path / "lspci.txt").write_text(lspci_text(reads))
    board = tmp_path / "machine.board"
    tool("import", "--lspci", tmp_path / "lspci.txt", "-o", board)
    differences = {}
    for (*place, offset, width), answers in reads.items():
        got = value(hwreg(board, "/PCI", {1: "/RB", 2: "/RW", 4: "/RD"}[width], *place, offset))
        if [got] != answers:
            differences[f"{place} {offset:x} {width}"] = f"{answers} recorded, {got} read"
    judge(chipsec_dump, differences)


@only(lambda dump: accesses_of(dump).get("read_msr"))
def test_reads_of_msrs_give_the_same_again(chipsec_dump, tmp_path):
    reads = accesses_of(chipsec_dump)["read_msr"]
    board = tmp_path / "machine.board"
    tool("import", "--msr", chipsec_dump.path, "-o", board)
    got = {(cpu, index): value(hwreg(board, "/MSR", "/RD", cpu, hex(index))) for cpu, index in reads}
    assert got == {key: answers[0][1] << 32 | answers[0][0] for key, answers in reads.items()}


@only(lambda dump: accesses_of(dump).get("cpuid"))
def test_cpuid_gives_the_same_again(chipsec_dump, tmp_path):
    """A recording has the answers of all processors in a row; the first one is taken as that of CPU 0."""
    leaves = accesses_of(chipsec_dump)["cpuid"]
    lines = ["CPU 0:"]
    for (number, subleaf), answers in leaves.items():
        told = zip(("eax", "ebx", "ecx", "edx"), answers[0])
        lines.append(f"   0x{number:08x} 0x{subleaf:02x}: " + " ".join(f"{name}=0x{word:08x}" for name, word in told))
    (tmp_path / "cpuid.txt").write_text("\n".join(lines) + "\n")
    board = tmp_path / "machine.board"
    tool("import", "--cpuid", tmp_path / "cpuid.txt", "-o", board)
    for (number, subleaf), answers in leaves.items():
        if subleaf == 0:
            assert leaf(board, number) == answers[0]
