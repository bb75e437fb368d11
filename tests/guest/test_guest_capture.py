"""A machine that hwreg-capture has captured answers as the machine did: each kind is captured in its guest, asked
there, and asked again on the simulator."""

import functools
import io
import re
import subprocess
import tarfile

import pytest

import guest
from boots import BEHIND_BRIDGES
from captures import QUESTIONS, answers, differences, questions
from guest import Machine
from harness import TOP

# The kind `pc` belongs to the quick run: tests/guest/ring says so.
KINDS = {
    "pc": Machine(machine="pc", devices=["VGA", "intel-hda", "piix3-usb-uhci", "pci-serial"]),
    "q35": Machine(),
    "ports": Machine(devices=BEHIND_BRIDGES),
    "ovmf": Machine(firmware="ovmf", devices=["qemu-xhci,addr=4"]),
    "cpus": Machine(smp=4, cpu="max"),
    "memory": Machine(memory=300, smp=2),
    "strict": Machine(devices=BEHIND_BRIDGES[:2], append=""),
}

# What tells another thing each time, beside what captures.VOLATILE names: by kind of question, with the reason.
VOLATILE = {
    r"/MSR /RD /ALL 0x(6e0|611|639|641)": "the next deadline of a CPU's timer; energy that was used",
    r"/CPUID /RD 0x(1|b|1f|8000001e)": "which CPU answers is the kernel's choice",
}

ASK = r"""
cd /tmp && mkdir asked && modprobe msr
hwreg-capture -o machine.board --spd --superio || exit
capture_questions machine.board >asked/lines
sed 's/@/DUMP/' asked/lines >lines
number=0
while read -r line; do
    number=$((number + 1))
    eval "hwreg $line" >asked/$number.out 2>&1 </dev/null
    echo $? >asked/$number.status
    [ ! -f DUMP ] || mv DUMP asked/$number.dump
done <lines
hwreg-capture -o asked/again.board --spd --superio || exit
tar cf asked.tar asked && gzip asked.tar
"""


@functools.cache
def asked(kind):
    """The board file, the questions and the guest's answers to them, and a board file of the machine afterwards."""
    files = {"/usr/bin/hwreg-capture": guest.built("hwreg-capture"), "/usr/bin/capture_questions": str(QUESTIONS)}
    fetch = ["/tmp/machine.board", "/tmp/asked.tar.gz"]
    boot = guest.run(KINDS[kind], [ASK], files, fetch)
    assert boot.results[0].ending == "exit 0", boot.results[0]
    with tarfile.open(fileobj=io.BytesIO(boot.files["/tmp/asked.tar.gz"])) as tar:
        members = (member for member in tar if member.isfile())
        found = {member.name.removeprefix("asked/"): tar.extractfile(member).read() for member in members}
    lines = found["lines"].decode().splitlines()
    given = [(int(found[f"{number}.status"]), found[f"{number}.out"], found.get(f"{number}.dump"))
             for number in range(1, len(lines) + 1)]  # fmt: skip
    return boot.files["/tmp/machine.board"], lines, given, found["again.board"]


def is_volatile(line):
    return any(re.fullmatch(pattern, line) for pattern in VOLATILE)


def has_smbus_switched_off(board):
    """OVMF leaves the host switched off, by bit 0 of its register 40h. QEMU's answers all the same; no other does."""
    function = re.search(r"^pci .*:2930 SMBus Controller\n((?:  .*\n)+)", board.decode(), re.MULTILINE)
    return function is not None and "\n  config 40 01 " not in function[1]


@pytest.mark.parametrize("kind", KINDS)
def test_the_capture_answers_as_the_machine(kind, tmp_path):
    board, lines, live, _ = asked(kind)
    path = tmp_path / "machine.board"
    path.write_bytes(board)
    assert questions(path) == lines and len(lines) >= 200
    replayed = answers(path, lines, tmp_path / "replayed")
    found = [entry for entry in differences(lines, live, replayed) if not is_volatile(entry[0])]
    assert has_smbus_switched_off(board) == (kind == "ovmf")
    if kind == "ovmf":
        found = [entry for entry in found if not entry[0].startswith("/SMBUS ")]
    assert not found, f"{len(found)} of {len(lines)} differ: {[line for line, _, _ in found]}, the first: {found[0]}"


@pytest.mark.parametrize("kind", KINDS)
def test_two_captures_of_a_machine_differ_in_nothing_but_what_is_volatile(kind, tmp_path):
    (tmp_path / "first.board").write_bytes(asked(kind)[0])
    (tmp_path / "second.board").write_bytes(asked(kind)[3])
    compare = [TOP / "tools" / "hwreg-board", "diff", "first.board", "second.board"]
    ran = subprocess.run(compare, cwd=tmp_path, capture_output=True, text=True, check=False)
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 0)
    ran = subprocess.run([*compare, "--volatile"], cwd=tmp_path, capture_output=True, text=True, check=False)
    assert "Seconds" in ran.stdout and ran.returncode == 0


@pytest.mark.parametrize("kind", KINDS)
def test_the_parts_are_there(kind):
    text = asked(kind)[0].decode()
    for part in ("bios area", "acpi FACP", "acpi DSDT", "smbios table"):
        assert f"\n# {part}" in text
    modules = re.findall(r"^smbus-eeprom (\w\w)$", text, re.MULTILINE)
    assert modules == ([] if kind == "pc" else ["a0", "a2", "a4", "a6", "a8", "aa", "ac", "ae"])
    assert ("# missing: spd: no SMBus host" in text) == (kind == "pc")  # it calls itself another bridge there
    assert "# missing: superio: nobody answers behind port 4e" in text
    assert len(re.findall(r"^# iomem: .*System RAM$", text, re.MULTILINE)) > 0
