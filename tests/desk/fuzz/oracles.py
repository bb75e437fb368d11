"""What has to hold whatever comes in: hwreg-board ends with a status and, when that is 2, with a line that names a
file; in time, with no more output than its input is worth; what it imports is a machine."""

import contextlib
import dataclasses
import functools
import io
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import traceback
from collections.abc import Iterator

from inputs import Input

TOP = pathlib.Path(__file__).resolve().parents[3]
LIBRARY = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve() / "libhwboard.so"
EXPORTS = {"lspci": "pci", "dmi": "smbios", "acpi": "acpi", "cpuid": "cpuid", "msr": "msr", "cmos": "cmos"}
SECONDS, SECONDS_A_BYTE = 2, 40e-6  # of the processor
OUTPUT, OUTPUT_A_BYTE = 16 << 20, 1000
MEMORY = 3 << 29  # bytes on top of what the fuzzer has


class Finding(Exception):
    """What kind, in a line by which findings are told apart, and more about it."""

    def __init__(self, kind: str, more: str = "") -> None:
        super().__init__(kind)
        self.kind, self.more = kind, more


class TooLong(BaseException):
    pass


@dataclasses.dataclass(frozen=True)
class Result:
    status: int
    out: bytes
    err: bytes


@functools.cache
def hwreg_board() -> object:
    """The command with its description of options made once, which takes longer than most inputs."""
    from hwregboard import command

    command.parser = functools.cache(command.parser)
    return command


def too_long(number: int, frame: object) -> None:
    raise TooLong


@contextlib.contextmanager
def bounded(seconds: float) -> Iterator[None]:
    """TooLong after so much of the processor's time."""
    signal.signal(signal.SIGPROF, too_long)
    signal.setitimer(signal.ITIMER_PROF, seconds)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_PROF, 0)


def bound_memory() -> None:
    pages = int(pathlib.Path("/proc/self/statm").read_text().split()[0])
    resource.setrlimit(resource.RLIMIT_AS, (pages * resource.getpagesize() + MEMORY, resource.RLIM_INFINITY))


def unbound_memory() -> None:
    resource.setrlimit(resource.RLIMIT_AS, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))


def innermost(error: BaseException) -> str:
    """The place in hwregboard that an exception comes from."""
    frames = [frame for frame in traceback.extract_tb(error.__traceback__) if "hwregboard" in frame.filename]
    return f"{pathlib.Path(frames[-1].filename).name}:{frames[-1].name}" if frames else "the fuzzer"


def run(words: list[str], size: int) -> Result:
    """hwreg-board in this process, with files of so many bytes in its working folder."""
    out, err = io.TextIOWrapper(io.BytesIO()), io.TextIOWrapper(io.BytesIO())
    try:
        with bounded(SECONDS + SECONDS_A_BYTE * size), contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
            status = hwreg_board().main(words)
    except TooLong as error:
        raise Finding(f"does not end, {words[0]} in {innermost(error)}", f"{size} bytes of input") from None
    except (Exception, SystemExit) as error:
        raise Finding(f"{type(error).__name__} in {innermost(error)}", traceback.format_exc()) from None
    out.flush()
    err.flush()
    return Result(status, out.buffer.getvalue(), err.buffer.getvalue())


# ---- files and words of an input


def file_names(given: Input) -> list[str]:
    return [f"{option}.{number}" for number, (option, _) in enumerate(given.files)]


def write_files(given: Input, folder: pathlib.Path) -> None:
    for name, (_, contents) in zip(file_names(given), given.files):
        (folder / name).write_bytes(contents)


def commands(given: Input) -> list[list[str]]:
    """What is asked of hwreg-board about the input."""
    names = file_names(given)
    boards = [name for name in names if name.startswith("board")]
    if given.verb == "import":
        words = [word for number, name in enumerate(names) for option in [name.partition(".")[0]]
                 for word in (f"--{option}", f"{0xA0 + 2 * number:x}={name}" if option == "spd" else name)]  # fmt: skip
        return [["import", *words, "-o", "made"]]
    if given.verb == "diff":
        rules = [word for name in names if name.startswith("ignore") for word in ("--ignore", name)]
        return [["diff", *rules, *boards], ["diff", "--volatile", *rules, *reversed(boards)]]
    if given.verb == "group":
        return [["diff", "--group", *boards]]
    if given.verb == "export":
        return [*(["export", f"--{option}", f"out.{option}", boards[0]] for option in EXPORTS),
                ["export", "--spd", "a0", "out.spd", boards[0]]]  # fmt: skip
    return [[given.verb, names[0]]]


def unpacked_size(given: Input) -> int:
    from hwregboard import errors
    from hwregboard import inputs as files

    total = 0
    for _, contents in given.files:
        try:
            total += len(files.unpacked("", contents))
        except errors.Mistake:
            total += len(contents)
    return total


# ---- judging


def judge(given: Input, words: list[str], result: Result, size: int) -> None:
    """One command by what it said."""
    names = {*file_names(given), "made"}
    allowed = (0, 1, 2) if words[0] == "diff" else (0, 2)
    if result.status not in allowed:
        raise Finding(f"{words[0]} ends with {result.status}")
    for stream in (result.err, result.out):
        strange = [line for line in stream.decode().split("\n")
                   if not line.isprintable() or stream is result.err and not line.isascii()]  # fmt: skip
        if strange:
            raise Finding(f"{words[0]} prints what is no letter", ascii(strange[0][:160]))
        if len(stream) > OUTPUT + OUTPUT_A_BYTE * size:
            raise Finding(f"{words[0]} prints too much", f"{len(stream)} bytes for {size}")
    lines = result.err.decode().splitlines()
    if result.status == 2:
        told = re.match(r"([^:(]+)(\(.*\))?(:\d+)?: \S", lines[0] if lines else "")
        if not told or told[1] not in names | {"diff --group"} or len(lines) > 1 and words[1] != "--group":
            raise Finding(f"{words[0]} fails without naming a file", result.err.decode()[:400])
    elif any(not line.startswith("hwreg-board: ") for line in lines) or lines and words[0] != "import":
        raise Finding(f"{words[0]} complains and goes on", result.err.decode()[:400])


def check_made(folder: pathlib.Path, size: int) -> None:
    """The board file that was written is read back as it was written."""
    from hwregboard import board, errors

    text = (folder / "made").read_text()
    if len(text) > OUTPUT + OUTPUT_A_BYTE * size:
        raise Finding("import writes too much", f"{len(text)} bytes for {size}")
    try:
        with bounded(SECONDS + SECONDS_A_BYTE * (size + len(text))):
            again = board.write_board(board.read_board("made"))
    except TooLong as error:
        raise Finding(f"does not end, reading what was imported in {innermost(error)}") from None
    except errors.Mistake as error:
        raise Finding(re.sub(r"\d+|'.*|\".*", "N", f"what was imported cannot be read: {error}"), str(error)) from None
    except Exception as error:
        raise Finding(f"{type(error).__name__} in {innermost(error)}", traceback.format_exc()) from None
    if again != text:
        pairs = zip(text.split("\n"), again.split("\n"))
        first = next((pair for pair in pairs if pair[0] != pair[1]), ("", ""))
        raise Finding(f"what was imported is not read back: {first[0].split(' ')[0][:20]}", "\n".join(first))


def check_simulator(folder: pathlib.Path) -> None:
    """The simulator takes the board."""
    environment = {"PATH": os.environ["PATH"], "HWBOARD": str(folder / "made"), "HWBOARD_CHECK": "1",
                   "LD_PRELOAD": str(LIBRARY)}  # fmt: skip
    done = subprocess.run(["/bin/true"], env=environment, capture_output=True, cwd=folder, timeout=60, check=False,
                          preexec_fn=unbound_memory)  # fmt: skip
    if done.returncode != 0:
        told = done.stderr.decode(errors="replace")
        kind = re.sub(r"^\S*:\d+: |\d+", "", told.split("\n")[0])[:60]
        raise Finding(f"the simulator refuses the board: {kind}", told)


def check_uses(given: Input, size: int) -> None:
    """What was imported is shown, is the same as itself, and comes back out of what is exported of it."""
    size += pathlib.Path("made").stat().st_size
    for words, wanted in ((["show", "made"], 0), (["diff", "made", "made"], 0)):
        result = run(words, size)
        judge(given, words, result, size)
        if result.status != wanted:
            raise Finding(f"{words[0]} of what was imported ends with {result.status}",
                          (result.err or result.out).decode())  # fmt: skip
    for option in sorted({option for option, _ in given.files} & EXPORTS.keys()):
        check_way_back(given, option, size)


def smbios(machine: object) -> object:
    """Entry point and table; where the table lies is the importer's."""
    from hwregboard import dmi

    found = dmi.find_smbios(machine)
    kind = dmi.kind_of(found[0]) if found else None
    return (dmi.with_address(found[0], kind, 0), found[1]) if found and kind else found


def tables(machine: object) -> object:
    from hwregboard import acpi

    return sorted(table.data for table in acpi.find_tables(machine, made=False))


FIRMWARE = {"dmi": smbios, "acpi": tables}


def check_way_back(given: Input, option: str, size: int) -> None:
    from hwregboard import board, cells, differences, volatile

    for words in (["export", f"--{option}", "back", "made"], ["import", f"--{option}", "back", "-o", "again"]):
        result = run(words, 10 * size)
        if result.status != 0 and option == "cmos" and cells.is_text(pathlib.Path("back").read_bytes()):
            return  # bytes that are letters are taken for a text of numbers
        if result.status != 0:
            raise Finding(f"{words[0]} --{option} of what was imported fails", result.err.decode()[:400])
    first, second = board.read_board("made"), board.read_board("again")
    if option in FIRMWARE:
        if (lost := FIRMWARE[option](first)) != FIRMWARE[option](second):
            raise Finding(f"import of export --{option} gives other tables", str(lost)[:400])
        return
    found = differences.compare(first, second, volatile.Rules())
    lost = [each for each in found if each.place.startswith(EXPORTS[option]) and each.name != "devices"
            and (each.place != "cmos" or 1 in first.cmos.mask)]  # bytes that nobody knows are written as ff
    if lost:
        raise Finding(f"import of export --{option} gives another machine: {re.sub('[0-9a-f]+ ', '', lost[0].place)}",
                      lost[0].line("made", "again"))  # fmt: skip


def check_fresh(given: Input, results: list[Result], folder: pathlib.Path, written: bytes | None) -> None:
    """A process of its own, with the modules as they are, does the same."""
    for words, result in zip(commands(given), results):
        done = subprocess.run([sys.executable, TOP / "tools" / "hwreg-board", *words], cwd=folder, capture_output=True,
                              stdin=subprocess.DEVNULL, timeout=600, check=False, preexec_fn=unbound_memory)
        if (done.returncode, done.stdout, done.stderr) != (result.status, result.out, result.err):
            raise Finding(f"{words[0]} does something else in a fresh process",
                          f"{done.returncode} {done.stderr[:200]!r}, not {result.status} {result.err[:200]!r}")
    if written is not None and (folder / "made").read_bytes() != written:
        raise Finding("import writes something else in a fresh process")


def try_input(given: Input, folder: pathlib.Path) -> tuple[list[Result], int]:
    """Runs the commands and judges each: the results, and the size of the input when it is unpacked."""
    write_files(given, folder)
    (folder / "made").unlink(missing_ok=True)
    size = unpacked_size(given)
    results = []
    for words in commands(given):
        results.append(run(words, size))
        judge(given, words, results[-1], size)
    if given.verb == "import" and results[0].status == 0:
        check_made(folder, size)
    return results, size


def try_uses(given: Input, folder: pathlib.Path, size: int) -> None:
    """What costs more and so is asked of few inputs."""
    if given.verb == "import" and (folder / "made").exists():
        if LIBRARY.exists():
            check_simulator(folder)
        check_uses(given, size)
