"""Completion of command lines by a real bash, zsh and fish."""

import os
import re
import subprocess

import pytest

import shells
from examples import TOP
from texts import completion_forms, words_of

SIMULATOR = str(TOP / "sim" / "hwreg-sim")

# What the kernel of some machine tells.
MACHINE = r"""#!/bin/sh
case $1 in
/sys/bus/pci/devices) printf '%s\n' 0000:00:00.0 0000:00:1f.0 0000:00:1f.3 0000:0a:00.0 0001:77:00.0 ;;
/dev/cpu) printf '%s\n' 0 1 5 microcode ;;
/sys/firmware/dmi/entries) printf '%s\n' 0-0 17-0 17-1 ;;
/proc/ioports) printf '%s\n' '0000-0cf7 : PCI' '  0060-0060 : keyboard' '0cf8-0cff : PCI conf1' ;;
/proc/iomem) printf '%s\n' '000f0000-000fffff : System ROM' 'fed00000-fed003ff : HPET 0' \
    '100000000-27fffffff : System RAM' ;;
*) exec "/usr/bin/${0##*/}" "$@" ;;
esac
"""
SILENT = "#!/bin/sh\nexit 2\n"

ACCESSES = "/RB /RW /RD /WB /WW /WD /RI /WI"
HELP = "/H"
VIEW = "/LOG /TEXT /NOMSG"


@pytest.fixture(params=shells.SHELLS, name="shell")
def each_shell(request):
    return request.param


@pytest.fixture(name="complete")
def asked_of_a_shell(shell, tmp_path_factory):
    """complete(LINE) is the set of words that can stand in the place of the last one, in each shell."""
    def complete(line, machine=MACHINE, cwd=None, command="hwreg", setup=""):
        folder = tmp_path_factory.mktemp("asked")
        environment = {"PATH": f"{folder}:{os.environ['PATH']}"}
        for name in ("ls", "cat") if machine else ():
            (folder / name).write_text(machine)
            (folder / name).chmod(0o755)
        return shells.complete(shell, f"{command} {line}", cwd or folder, environment, setup)

    return complete


in_bash = pytest.mark.parametrize("shell", ["bash"], indirect=True)


@pytest.mark.parametrize("line, offered", [
    ("/P", "/PCI"),
    ("/SM", "/SMBUS /SMB /SMBIOS /SMN /SMU"),
    ("/SMBI", "/SMBIOS"),
    ("/U", ""),
    ("/PCI ", f"{ACCESSES} /DUMP {HELP}"),
    ("/PCI /R", "/RB /RW /RD /RI"),
    ("/PCI /RB 0 0 0 0 /", ""),
    ("/IO ", f"{ACCESSES} /DUMP /INDEX /RF {HELP}"),
    ("/IO /INDEX ", f"{ACCESSES} /DUMP"),
    ("/SIO /", f"/RB /WB /RI /WI /DUMP {HELP}"),
    ("/MSR /RD /", "/ALL /A"),
    ("/MSR /RD 0 /", ""),
    ("/RTC 60 /", "/F /T /RESET /GRESET"),
    ("/RTC 60 /F /", "/T"),
    ("/RTC 60 /RESET /T 5 /", ""),
    ("/SHUTDOWN ", f"/T {HELP}"),
    ("/TIMEOUT /T", "/T"),
    ("/SMN /WB 0 0x50200 1 /", "/WD"),
    ("/SMN /WD 0 0x50200 1 /", ""),
    ("/SMU /WD 1 2 3 /", ""),
    ("/SMBIOS ", f"/TYPE /DUMP /S {VIEW} {HELP}"),
    ("/SMBIOS /S ", ""),
    ("/ACPI /DUMP /", VIEW),
    ("/ACPI /DUMP /LOG /T", "/TEXT"),
    ("/LOG /ACPI ", f"/DUMP"),
    ("/EDID ", ""),
])  # fmt: skip
def test_switch_words_of_the_forms_are_offered(complete, line, offered):
    assert complete(line) == set(offered.split())


@in_bash
def test_words_are_no_patterns_of_file_names(complete):
    """With nullglob a pattern goes where there is no such file, as "[/T" or "[argument]..." would."""
    assert complete("/SHUTDOWN ", setup="shopt -s nullglob") == {"/T", *HELP.split()}


@pytest.mark.parametrize("typed", ["/?", "/HELP", "/H"])
def test_a_help_word_that_was_typed_is_known(complete, typed):
    assert complete(f"/SHUTDOWN {typed} ") == {"/T"}
    assert complete("/SHUTDOWN /HE") == set()


@pytest.mark.parametrize("line, offered", [
    ("/p", "/pci"), ("-P", "-PCI"), ("-p", "-pci"), ("P", "PCI"), ("p", "pci"),
    ("/pci /r", "/rb /rw /rd /ri"), ("/pci /", "/rb /rw /rd /wb /ww /wd /ri /wi /dump /h"),
    ("-pci -RB 0xa 0", "0"), ("pci rb 0 ", "0 0x1f"),
])  # fmt: skip
def test_words_are_offered_as_the_user_writes_them(complete, line, offered):
    assert complete(line) == set(offered.split())


@pytest.mark.parametrize("line, offered", [
    ("/PCI /RB ", "0 0xa"),
    ("/PCI /RB 0x", "0xa"),
    ("/PCI /RB 0X", "0xa"),
    ("/PCI /RB 0 ", "0 0x1f"),
    ("/PCI /RB 10 ", "0"),
    ("/PCI /RB 0xA ", "0"),
    ("/PCI /RB 0 31 ", "0 3"),
    ("/PCI /RB 0 031 ", "0 3"),
    ("/PCI /RB 0 9 ", ""),
    ("/PCI /RB 0x77 ", ""),
    ("/PCI /RB 0 0x1f 0 ", ""),
    ("/PCI /DUMP ", f"0 0xa {VIEW}"),
    ("/PCI /RB x[$(echo)] ", ""),
    ("/PCI /WI 0 0 0 0x40 3 ", "0 1"),
    ("/MSR /RD ", "0 1 5 /ALL /A"),
    ("/SMBIOS /TYPE ", "0 17"),
    ("/IO /RB ", "0x60 0xCF8"),
    ("/MEM /RD ", "0xF0000 0xFED00000"),
    ("/IO /INDEX /RB 0x7", "0x70 0x72"),
    ("/IO /INDEX /RB 0x70 ", "0"),
    ("/SMBUS /DUMP 0xA0 /", VIEW),
    ("/SMB /DUMP ", "0xA0 0xA2 0xA4 0xA6 0xA8 0xAA 0xAC 0xAE"),
    ("/I2C /RB ", "0 1 2 3 4 5"),
    ("/I2C /RB 0 ", "0x50 0x51 0x52 0x53 0x54 0x55 0x56 0x57"),
    ("/SMN /RD 1", "1 10 11 12 13 14 15 16"),
    ("/CPUID /RD 0x8000000", "0x80000000 0x80000001 0x80000002 0x80000003 0x80000004 0x80000005 0x80000006 "
                             "0x80000007 0x80000008"),
])  # fmt: skip
def test_operands_are_offered_where_they_are_known(complete, line, offered):
    assert complete(line) == set(offered.split())


def test_bits_are_numbered_to_31(complete):
    assert complete("/IO /RI 0x61 ") == {str(bit) for bit in range(32)}


def test_files_are_offered_for_a_dump(complete, tmp_path):
    for name in ("one.bin", "two.bin"):
        (tmp_path / name).touch()
    assert complete("/MEM /RF ", cwd=tmp_path) == {"one.bin", "two.bin"}
    assert complete("/MEM /RF t", cwd=tmp_path) == {"two.bin"}
    assert complete(f"/IO /RF {tmp_path}/o") == {f"{tmp_path}/one.bin"}
    assert complete("/MEM /RF two.bin 0xF", cwd=tmp_path) == {"0xF0000", "0xFED00000"}


@in_bash
@pytest.mark.parametrize("blanks", ["IFS=:", "IFS=", r"IFS=$'\n'"])
def test_the_users_shell_may_split_words_otherwise(complete, blanks):
    assert complete("/RTC 60 /", setup=blanks) == {"/F", "/T", "/RESET", "/GRESET"}
    assert complete("/MSR /RD ", setup=blanks) == {"0", "1", "5", "/ALL", "/A"}
    assert "0x1b" in complete("--board amd /MSR /RD 0 ", setup=blanks, command=SIMULATOR)


def test_nothing_is_offered_where_the_kernel_tells_nothing(complete):
    assert complete("/PCI /RB ", SILENT) == set()
    assert complete("/MSR /RD ", SILENT) == {"/ALL", "/A"}
    assert complete("/IO /RB ", SILENT) == set()


def test_this_machine_is_asked_without_errors(complete):
    for line in ("/PCI /RB ", "/PCI /RB 0 ", "/PCI /RB 0 0 ", "/MSR /RD ", "/SMBIOS /TYPE ", "/IO /RB ", "/MEM /RB "):
        complete(line, machine=None)


@pytest.mark.parametrize("line, offered", [
    ("--b", "--board --boards"),
    ("--board i", "intel"),
    ("--board = i", "intel"),
    ("--board amd /PC", "/PCI"),
    ("--board = amd /PC", "/PCI"),
    ("--log /PCI /RB 0 0x1f ", "0 2 3 4 5"),
    ("--log = f /pci /rb 0 0x1f ", "0 2 3 4 5"),
    ("--board amd --log -- /PC", "/PCI"),
    ("--state machine --re", "--reset"),
    ("--state = machine /PC", "/PCI"),
    ("--board amd --cap", "--capture"),
    ("--capture ", ""),
    ("--board amd --capture /PC", ""),
    ("--board amd --preflight --json /PC", "/PCI"),
    ("--preflight --", "--json --help --version"),
    ("/PCI --", ""),
])  # fmt: skip
def test_the_simulators_options_are_offered_before_a_command_line(complete, line, offered, tmp_path):
    assert complete(line, cwd=tmp_path, command=SIMULATOR) == set(offered.split())


def test_all_boards_and_options_of_the_simulator_are_offered(complete, tmp_path):
    said = subprocess.run([SIMULATOR, "--boards"], capture_output=True, text=True, check=True).stdout
    assert complete("--board ", cwd=tmp_path, command=SIMULATOR) == {line.split()[0] for line in said.splitlines()}
    said = subprocess.run([SIMULATOR, "--help"], capture_output=True, text=True, check=True).stdout
    assert complete("--", command=SIMULATOR) == set(re.findall(r"^  (--\w+)", said, re.MULTILINE))


def test_own_board_files_and_the_folders_to_them_are_offered(complete, tmp_path):
    (tmp_path / "mine.board").touch()
    (tmp_path / "mine.txt").touch()
    (tmp_path / "more").mkdir()
    for option in ("--board", "--check"):
        assert complete(f"{option} m", cwd=tmp_path, command=SIMULATOR) == {"mine.board", "more"}


SIMULATED = """
    include amd.board
    pci-remove 03:00.3
    msr 12345 1
    latch 3e0 2
    hole a0000000 1000
"""


@pytest.mark.parametrize("line, some", [
    ("/PCI /RB ", "0 0x1 0x2 0x3"),
    ("/PCI /RB 3 0 ", "0"),
    ("/MSR /RD ", "0 7"),
    ("/MSR /RD 0 0x123", "0x12345"),
    ("/IO /RB 0x3", "0x3E0"),
    ("/MEM /RD 0xA", "0xA0000000"),
    ("/SIO /RB ", "0x20 0x24"),
    ("/SMBIOS /TYPE ", "0 17"),
])
def test_a_simulated_machine_is_asked_for_what_it_has(complete, line, some, tmp_path):
    (tmp_path / "mine.board").write_text(SIMULATED)
    offered = complete(f"--board mine.board {line}", cwd=tmp_path, command=SIMULATOR)
    assert set(some.split()) <= offered
    assert "3" not in offered or not line.startswith("/PCI /RB 3 0")


def test_a_simulated_machine_that_has_mistakes_offers_nothing(complete, tmp_path):
    (tmp_path / "mine.board").write_text("no such keyword\n")
    assert complete("--board mine.board /PCI /RB ", cwd=tmp_path, command=SIMULATOR) == set()


@pytest.mark.parametrize("line, offered", [
    ("--", "--json --help --version"),
    ("--json --v", "--version"),
    ("--json /PC", "/PCI"),
    ("/pci /r", "/ri /rb /rw /rd"),
    ("-- --", ""),
    ("/PCI --", ""),
])  # fmt: skip
def test_the_checks_options_are_offered_before_a_command_line(complete, line, offered):
    assert complete(line, command="hwreg-check") == set(offered.split())


@pytest.mark.parametrize("line, offered", [
    ("", "import export show diff explain --help --version"),
    ("import --s", "--sysfs --superio --spd"),
    ("import --lspci ", "a.board b.board dump.txt folder"),
    ("import --spd a0 = d", "dump.txt"),
    ("import --lspci dump.txt -o ", "a.board b.board folder"),
    ("export --", "--lspci --dmi --acpi --cpuid --msr --spd --cmos --help"),
    ("show ", "a.board b.board folder"),
    ("show a.board m", "msrs memory missing"),
    ("diff --", "--group --volatile --ignore --help"),
    ("diff a.board ", "a.board b.board folder"),
    ("diff --group ", "a.board b.board folder"),
    ("diff --ignore ", "a.board b.board dump.txt folder"),
])  # fmt: skip
def test_words_of_hwreg_board_are_offered(complete, tmp_path, line, offered):
    for name in ("a.board", "b.board", "dump.txt"):
        (tmp_path / name).touch()
    (tmp_path / "folder").mkdir()
    assert complete(line, command="hwreg-board", cwd=tmp_path) == set(offered.split())


def test_all_options_of_hwreg_board_are_offered(complete):
    for verb in ("import", "export", "show", "diff"):
        said = subprocess.run([TOP / "tools" / "hwreg-board", verb, "--help"], capture_output=True, text=True,
                              check=True)
        options = set(re.findall(r"(?<![\w-])--\w+", said.stdout))
        assert options <= complete(f"{verb} --", command="hwreg-board")


@in_bash  # zsh and fish ask the same program
@pytest.mark.parametrize("form", completion_forms())
def test_each_switch_word_of_a_form_is_offered_in_its_place(complete, form):
    typed = []
    for token in form.replace("[", "").replace("]", "").split():
        if token.startswith("/"):
            for word in token.split("|"):
                assert word in complete(" ".join([*typed, word[:2]]))
            typed.append(token.split("|")[0])
        else:
            typed.append("1")
    assert words_of(form)
