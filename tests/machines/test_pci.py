"""Configuration space: each byte of each function as the dump has it, by ports and through the window."""

import re
import struct

from collection import only
from explained import judge
from pci_dump import functions_of, link_states, lspci, of_text, text_of
from program import changed, hwreg, memory, tool, value, views

BRIEF = 256
WINDOW = 0xE0000000
ROW = re.compile(rb"([0-9A-F]{2})  ([0-9A-F]{2})  ([0-9A-F]{2})  ([0-9A-F]{8}) (\w+) +(\w+) +(\w+) +(.*)\n")


def machines_of(dump, folder):
    """(domain, {(bus, device, function): bytes}, file to import): a machine for each PCI domain, for the program
    reaches one alone."""
    functions = functions_of(dump)
    for domain in sorted({place[0] for place in functions}):
        own = {place[1:]: data for place, data in functions.items() if place[0] == domain}
        path = dump.path
        if domain:
            path = folder / f"domain-{domain:x}.txt"
            path.write_text(text_of({(0, *place): data for place, data in own.items()}))
        yield domain, own, path


def imported(path, folder, name="machine"):
    board = folder / f"{name}.board"
    tool("import", "--lspci", path, "-o", board)
    return board


def named(place):
    return "%02x:%02x.%x" % place


def whole(data):
    """A function's first 256 bytes as the program shows them: what a dump does not have reads ones."""
    return data[:BRIEF].ljust(BRIEF, b"\xff")


def is_shown(functions, place):
    """Functions 1 to 7 are listed when function 0 says that there are several."""
    bus, device, number = place
    first = functions.get((bus, device, 0))
    return number == 0 or first is not None and bool(first[0x0E] & 0x80)


def interrupt(data):
    """Interrupt line and pin as a row of the list has them."""
    line, pin = struct.unpack_from("<BB", data, 0x3C)
    if not line and not pin:
        return "NONE", "NONE"
    names = ["NULL", "INTA", "INTB", "INTC", "INTD"]
    return f"IRQ{line:02X}" if line else "NONE", names[pin] if pin < len(names) else f"{pin:02X}"


def row_of(data, state):
    vendor, device = struct.unpack_from("<HH", data)
    return (f"{vendor:04X}{device:04X}", state, *interrupt(data))


def shown(out):
    """{place: (row, bytes)} of what /PCI /DUMP prints."""
    rows = ROW.findall(out)
    found = views(out)
    assert len(rows) == len(found)
    return {tuple(int(number, 16) for number in row[:3]): (tuple(word.decode() for word in row[3:7]), view)
            for row, view in zip(rows, found)}  # fmt: skip


def compare_first_256(board, functions, states, differences):
    listed = shown(hwreg(board, "/PCI", "/DUMP", "/LOG", "/TEXT"))
    expected = {place for place in functions if is_shown(functions, place)}
    for place in expected ^ set(listed):
        differences[f"{named(place)} listed"] = "missing" if place in expected else "it is not in the dump"
    for place in set(functions) - set(listed):
        listed.update(shown(hwreg(board, "/PCI", "/DUMP", *place, "/LOG", "/TEXT")))
    for place in set(functions) & set(listed):
        row, view = listed[place]
        wanted = row_of(functions[place], states[0, *place])
        if row != wanted:
            differences[f"{named(place)} row"] = f"{wanted} in the dump, {row} shown"
        compare_bytes(f"{named(place)} ports", whole(functions[place]), view, differences)
    for place in set(functions) - set(listed):
        differences[f"{named(place)} shown"] = "missing"


def compare_bytes(where, wanted, found, differences):
    if wanted == found:
        return
    assert len(wanted) == len(found), where
    for at, (one, other) in enumerate(zip(wanted, found)):
        if one != other:
            differences[f"{where} {at:x}"] = f"{one:02x} in the dump, {other:02x} shown"


def with_window(board, functions):
    """(base, the machine with its configuration window). Where the dump does not tell its base, which the importer then
    says, one is added; and the host bridge, which knows the base, where the dump has none."""
    text = board.read_text()
    if found := re.search(r"^ecam ([0-9a-f]+)", text, re.MULTILINE):
        return int(found[1], 16), board
    assert "# missing: ecam: " in text
    lines = [f"ecam {WINDOW:x} 100"]
    if (0, 0, 0) not in functions:
        lines += ["pci 00:00.0 8086:29c0 class 060000", f"  dword 60 {WINDOW | 1:x}"]
    return WINDOW, changed(board, *lines)


def address(place):
    bus, device, number = place
    return bus << 20 | device << 15 | number << 12


def compare_extended(board, functions, differences):
    """All of what a dump has, the extended part as well, as the window's memory shows it; and the head of each extended
    capability by the address that the program finds itself."""
    long = {place: data for place, data in functions.items() if len(data) > BRIEF}
    base, board = with_window(board, functions) if long else (0, board)
    for place, data in long.items():
        compare_bytes(f"{named(place)} window", data, memory(board, base + address(place), len(data)), differences)
        for at in extended_capabilities(data):
            compare_read(board, place, at, "/RD", struct.unpack_from("<I", data, at)[0], differences)


def extended_capabilities(data):
    """Offsets of the entries of the list at 100h (PCI Express Base 3.0, 7.9)."""
    at, found = 0x100, []
    while at >= 0x100 and at not in found and at + 4 <= len(data):
        found.append(at)
        at = struct.unpack_from("<I", data, at)[0] >> 20 & 0xFFC
    return found


def compare_reads(board, functions, differences):
    """Single reads of each width in one function."""
    place, data = min(functions.items())
    for code, word, width in (("<B", "/RB", 1), ("<H", "/RW", 2), ("<I", "/RD", 4)):
        for at in range(0, 0x10, width):
            compare_read(board, place, at, word, struct.unpack_from(code, data, at)[0], differences)


def compare_read(board, place, at, word, wanted, differences):
    got = value(hwreg(board, "/PCI", word, *place, at))
    if got != wanted:
        differences[f"{named(place)} {word} {at:x}"] = f"{wanted:x} in the dump, {got:x} read"


def test_the_program_shows_what_the_dump_has(lspci_dump, tmp_path):
    differences = {}
    for domain, functions, path in machines_of(lspci_dump, tmp_path):
        board = imported(path, tmp_path)
        states = link_states({(0, *place): data for place, data in functions.items()}, tmp_path)
        own = {}
        compare_first_256(board, functions, states, own)
        compare_extended(board, functions, own)
        compare_reads(board, functions, own)
        differences.update({f"{domain:04x}:{where}": text for where, text in own.items()})
    judge(lspci_dump, differences)


@only(lambda dump: not dump.tree)  # a tree of sysfs is no input of lspci's
def test_lspci_reads_the_dump_as_it_is_read_here(lspci_dump, tmp_path):
    said = lspci(lspci_dump.text(), tmp_path, "-n", "-xxxx")
    assert of_text(said) == functions_of(lspci_dump)


def test_an_import_and_an_export_give_the_bytes_back(lspci_dump, tmp_path):
    for _, functions, path in machines_of(lspci_dump, tmp_path):
        board = imported(path, tmp_path)
        text = tool("export", "--lspci", "-", board).decode()
        wanted = {(0, *place): data for place, data in functions.items()}
        assert of_text(text) == wanted
        assert lspci(text, tmp_path, "-n", "-vvv") == lspci(text_of(wanted), tmp_path, "-n", "-vvv")


def test_a_machine_is_no_different_from_itself(lspci_dump, tmp_path):
    for _, _, path in machines_of(lspci_dump, tmp_path):
        one, other = imported(path, tmp_path, "one"), imported(path, tmp_path, "other")
        assert tool("diff", one, other) == b""
