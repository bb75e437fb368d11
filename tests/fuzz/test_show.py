"""What is told of a run, and compared with that of a fresh process."""

import os
import pathlib
import select
import subprocess

import pytest

FUZZ = pathlib.Path(__file__).resolve().parent
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", FUZZ.parents[1] / "build"))


@pytest.fixture
def show(tmp_path):
    """show(fuzzer, data) gives the record of a run, in parts: the status, then each with its heading."""

    def run(name, data):
        (tmp_path / "input").write_bytes(data)
        shown = subprocess.run([BUILD / "fuzz" / "hwreg_fuzz", name, "--show", tmp_path / "input"], check=True,
                               stdin=subprocess.DEVNULL, capture_output=True).stdout
        return shown.split(b"\n--- ")

    return run


def test_status_output_and_accesses_are_told(show):
    status, output, accesses = show("words", b"i/IO\n/RB\n0x80")
    assert status.isdigit() and output.startswith(b"output\n") and b"Port: 80, " in output
    assert b"\nin8 0080 -> " in accesses


def test_a_file_that_is_written_is_told(show):
    *_, accesses, file = show("words", b"i/IO\n/RF\nPORTS.BIN\n0x80\n0x10")
    assert accesses.count(b"\nin") > 0
    assert file.startswith(b"file PORTS.BIN\n") and len(file) == len(b"file PORTS.BIN\n") + 0x10


def test_a_fresh_process_that_hangs_ends_with_its_parent(tmp_path):
    os.mkfifo(tmp_path / "input")  # never written to: the process waits for its input
    reading, writing = os.pipe()  # held open by the process alone
    program = BUILD / "fuzz" / "hwreg_fuzz"
    parent = subprocess.Popen(["sh", "-c", '"$0" words --show "$1" & exec sleep 60', program, tmp_path / "input"],
                              stdout=writing, stdin=subprocess.DEVNULL)
    os.close(writing)
    with open(tmp_path / "input", "wb"):  # it is there and reads
        parent.kill()
        parent.wait()
        assert select.select([reading], [], [], 30)[0] == [reading] and os.read(reading, 1) == b""
    os.close(reading)
