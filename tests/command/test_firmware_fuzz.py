"""Firmware tables that lie: whatever stands in memory, the program ends and reads nothing outside of its buffers.

The sanitized build sees the reads; here as there a crash or an endless run fails. More tables, or others:

    HWREG_FUZZ_TABLES=1000000 HWREG_FUZZ_SEED=7 scripts/test sanitize firmware_fuzz
"""

import os
import struct

from corrupt_firmware import BOARD, NEVER_MAPPED, make_case, write_cases
from firmware_model import Memory, acpi_dump, smbios, table_copy

TABLES = int(os.environ.get("HWREG_FUZZ_TABLES", "10000"))
SEED = os.environ.get("HWREG_FUZZ_SEED", "1")
BATCH = 20000  # cases that are in memory together
EVERY = 20  # one in so many is also run by the program itself


def cases(first, count):
    return [make_case(f"{SEED}:{number}") for number in range(first, min(first + count, TABLES))]


def by_systab(batch):
    """Cases with the same system table file share a board."""
    groups = {}
    for case in batch:
        groups.setdefault(tuple(case.systab or ()), []).append(case)
    return groups.values()


def run_group(run, folder, group):
    board, file, progress = (folder / name for name in ("tables.board", "cases", "progress"))
    board.write_text("\n".join(BOARD + [f'systab sys "{line}"' for line in group[0].systab or ()]) + "\n")
    write_cases(file, group)
    try:
        with open(os.devnull, "wb") as nowhere:
            result = run([board, file, progress], board=None, program="hwboard_tables", stdout=nowhere, timeout=600)
        assert (result.status, result.err) == (0, b"")
    finally:
        (number,) = struct.unpack("<I", progress.read_bytes())
        last = group[number]
        if number != len(group) - 1:
            failed = folder / "failed.board"
            failed.write_text("\n".join(last.board()) + "\n")
            print(f"case {last.seed}: {failed} with {' '.join(last.words)}")
    assert number == len(group) - 1


def test_no_table_makes_the_commands_crash_or_run_on(run, new_folder):
    for first in range(0, TABLES, BATCH):
        for group in by_systab(cases(first, BATCH)):
            run_group(run, new_folder(), group)


def expected(case):
    memory = Memory(case.pieces, NEVER_MAPPED)
    if case.words[0] == "/ACPI":
        return acpi_dump(memory, plain=False)
    return smbios(table_copy(memory, case.systab), *case.words[1:], plain=False)


def test_the_program_makes_of_corrupt_tables_what_the_rules_make_of_them(run, new_folder):
    board = new_folder() / "tables.board"
    compared = 0
    for number in range(0, TABLES, EVERY):
        case = make_case(f"{SEED}:{number}")
        if not case.words[0].startswith("/"):
            continue
        board.write_text("\n".join(case.board()) + "\n")
        result = run(case.words, board=board)
        assert (result.text, result.status) == expected(case), (case.seed, case.words)
        compared += 1
    assert compared > TABLES // EVERY // 2


def test_the_cases_reach_the_tables():
    # Most are found, some are not; lists of structures end early and late; FADTs are found among lies.
    made = [make_case(f"{SEED}:{number}") for number in range(1000)]
    smbios_cases = [case for case in made if case.words[0] == "/SMBIOS"]
    copies = [table_copy(Memory(case.pieces, NEVER_MAPPED), case.systab) for case in smbios_cases]
    lengths = [len(copy) for copy in copies if copy is not None]
    assert len(smbios_cases) * 0.5 < len(lengths) < len(smbios_cases)
    assert 0 in lengths and max(lengths) > 0xFFF0 and sum(50 < length < 1000 for length in lengths) > 200
    assert {case.words[0] for case in made} == {"/SMBIOS", "/ACPI", "SPEED", "FADT"}
