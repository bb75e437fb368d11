"""The command line of hwreg-board."""

import argparse
import io
import os
import sys
from collections.abc import Callable

from hwregboard import acpi, cells, cpuid, differences, dmi, groups, lspci, msr, show, volatile
from hwregboard.board import read_board, write_board
from hwregboard.errors import Mistake, letters, printable
from hwregboard.explain import explained
from hwregboard.imports import import_machine, spd_option
from hwregboard.machine import Machine

SAME, DIFFERENT, TROUBLE = 0, 1, 2
LINE = 1 << 16  # characters of a log's line; what is longer is no log, and may have no end

DESCRIPTION = """Makes a board file of what people attach to reports, shows what a captured or imported machine holds,
compares machines, and gives what they hold back in the formats of their own tools. Exit status: 0 done or the same,
1 different, 2 trouble."""


def version() -> str:
    return "hwreg-board 1.01"


def spd_argument(text: str) -> tuple[int, str]:
    try:
        return spd_option(text)
    except Mistake as error:
        raise argparse.ArgumentTypeError(str(error)) from None


def parser() -> argparse.ArgumentParser:
    top = argparse.ArgumentParser("hwreg-board", description=DESCRIPTION, allow_abbrev=False)
    top.add_argument("--version", action="version", version=version())
    verbs = top.add_subparsers(dest="verb", required=True, metavar="import|export|show|diff|explain")
    verb = verbs.add_parser("import", help="make a board file of dumps", allow_abbrev=False)
    for name, text in (("lspci", "lspci -x, -xxx or -xxxx"), ("dmi", "the binary dump of dmidecode, or its two parts"),
                       ("acpi", "acpidump, or raw tables"), ("cpuid", "cpuid -r, libcpuid, hwloc"),
                       ("msr", "a list of MSRs"), ("superio", "superiotool -d"), ("cmos", "CMOS memory"),
                       ("sysfs", "a tree of sysfs or an archive of one")):  # fmt: skip
        verb.add_argument(f"--{name}", action="append", metavar="DIR" if name == "sysfs" else "FILE", help=text)
    verb.add_argument("--spd", action="append", type=spd_argument, metavar="ADDRESS=FILE", help="a module's SPD")
    verb.add_argument("-o", "--output", required=True, metavar="BOARD", help="the board file, - for standard output")
    verb = verbs.add_parser("export", help="give a part back in its tool's format", allow_abbrev=False)
    one = verb.add_mutually_exclusive_group(required=True)
    for name in EXPORTS:
        one.add_argument(f"--{name}", metavar="FILE", help="- for standard output")
    one.add_argument("--spd", nargs=2, metavar=("ADDRESS", "FILE"))
    verb.add_argument("board", metavar="BOARD")
    verb = verbs.add_parser("show", help="what a board file holds", allow_abbrev=False)
    verb.add_argument("board", metavar="BOARD")
    verb.add_argument("part", metavar="PART", nargs="?", choices=list(show.PARTS), help=", ".join(show.PARTS))
    verb = verbs.add_parser("diff", help="compare two machines, or sort many into groups", allow_abbrev=False)
    verb.add_argument("--group", action="store_true", help="put machines that are the same into groups")
    verb.add_argument("--volatile", action="store_true", help="show the registers that change by themselves, too")
    verb.add_argument("--ignore", action="append", default=[], metavar="FILE", help="what else does not count")
    verb.add_argument("board", metavar="BOARD", nargs="+")
    verb = verbs.add_parser("explain", help="say what the lines of hwreg-sim's log mean", allow_abbrev=False)
    verb.add_argument("log", metavar="LOG", nargs="?", default="-", help="- or nothing for standard input")
    return top


def say(lines: list[str]) -> None:
    for line in lines:
        print(letters(f"hwreg-board: {line}"), file=sys.stderr)


def write_output(file: str, data: bytes) -> None:
    """A file is there as a whole or not at all."""
    try:
        if file == "-":
            sys.stdout.buffer.write(data)
            sys.stdout.buffer.flush()
            return
        if os.path.exists(file) and not os.path.isfile(file):
            with open(file, "wb") as opened:
                opened.write(data)
            return
        beside = f"{file}.{os.getpid()}"
        with open(beside, "wb") as opened:
            opened.write(data)
        os.replace(beside, file)
    except OSError as error:
        raise Mistake(file, 0, error.strerror or str(error)) from None


def run_import(options: argparse.Namespace) -> int:
    given = ("lspci", "dmi", "acpi", "cpuid", "msr", "superio", "cmos", "sysfs", "spd")
    if not any(getattr(options, name) for name in given):
        raise Mistake("import", 0, "no dump is named; hwreg-board import --help lists the options")
    notes: list[str] = []
    machine = import_machine(options, notes)
    machine.heading = ["Made by hwreg-board import.", *(f"note: {note}" for note in notes)]
    write_output(options.output, write_board(machine).encode())
    say(notes)
    return SAME


EXPORTS: dict[str, Callable[[Machine], bytes]] = {
    "lspci": lspci.export_lspci, "dmi": dmi.export_dmi, "acpi": acpi.export_acpi, "cpuid": cpuid.export_cpuid,
    "msr": msr.export_msr, "cmos": cells.export_cmos,
}  # fmt: skip


def run_export(options: argparse.Namespace) -> int:
    machine = read_board(options.board)
    if options.spd:
        address, file = options.spd
        write_output(file, cells.export_spd(machine, spd_option(f"{address}=x")[0]))
        return SAME
    name = next(name for name in EXPORTS if getattr(options, name))
    write_output(getattr(options, name), EXPORTS[name](machine))
    return SAME


def run_show(options: argparse.Namespace) -> int:
    show.print_machine(read_board(options.board), options.part)
    return SAME


def run_diff(options: argparse.Namespace) -> int:
    rules = volatile.Rules(options.ignore, shown=options.volatile)
    if options.group:
        return DIFFERENT if groups.print_groups(options.board, rules) else SAME
    if len(options.board) != 2:
        raise Mistake("diff", 0, "two board files are compared, more with --group")
    found = differences.compare(read_board(options.board[0]), read_board(options.board[1]), rules)
    for line in differences.lines(found, *options.board):
        print(printable(line))
    return DIFFERENT if differences.counts(found) else SAME


def run_explain(options: argparse.Namespace) -> int:
    try:
        with open(0 if options.log == "-" else options.log, errors="replace", closefd=options.log != "-") as log:
            for line in explained(iter(lambda: log.readline(LINE), "")):
                print(printable(line), flush=True)
    except OSError as error:
        raise Mistake(options.log, 0, error.strerror or str(error)) from None
    return SAME


def main(words: list[str]) -> int:
    options = parser().parse_args(words)
    for stream in (sys.stdout, sys.stderr):  # names of files and logs may have letters that no encoding knows
        if isinstance(stream, io.TextIOWrapper):
            stream.reconfigure(errors="backslashreplace")
    try:
        run = {"import": run_import, "export": run_export, "show": run_show, "diff": run_diff,
               "explain": run_explain}[options.verb]  # fmt: skip
        status = run(options)
        sys.stdout.flush()
        return status
    except Mistake as error:
        print(error, file=sys.stderr)
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        return SAME
    except OSError as error:
        print(f"standard output: {error.strerror}", file=sys.stderr)
    except RecursionError:
        print("the input is nested too deeply", file=sys.stderr)
    return TROUBLE
