"""Where a capture goes, and what is left when it cannot."""

import os
import subprocess

import pytest

from harness import BOARDS, BUILD, LIMIT

ENVIRONMENT = {**os.environ, "HWBOARD": str(BOARDS / "unknown.board"), "LD_PRELOAD": str(BUILD / "libhwboard.so")}


def capture_to(*words, **more):
    return subprocess.run([BUILD / "hwreg-capture", *words], env=ENVIRONMENT, stderr=subprocess.PIPE, timeout=LIMIT,
                          check=False, **more)


def test_standard_output_is_the_default():
    done = capture_to(stdout=subprocess.PIPE)
    assert (done.returncode, done.stderr) == (0, b"")
    assert done.stdout.startswith(b"capture 1\n") and done.stdout.endswith(b"\nend\n")


def test_the_file_has_the_rights_that_the_user_gives_new_files(tmp_path):
    path = tmp_path / "machine.board"
    assert capture_to("-o", path).returncode == 0
    assert path.stat().st_mode & 0o777 == 0o644 and list(tmp_path.iterdir()) == [path]


@pytest.mark.parametrize("before", ["", "before"])
def test_a_full_disk_leaves_what_was_there_and_is_told(tmp_path, before):
    script = (f'mount -t tmpfs -o size=8k none "{tmp_path}" && cd "{tmp_path}" || exit 99; '
              f'[ -z "{before}" ] || echo "{before}" >machine.board; export LD_PRELOAD={BUILD}/libhwboard.so; '
              f'"{BUILD}/hwreg-capture" -o machine.board; status=$?; unset LD_PRELOAD; '
              "ls -A; cat * 2>/dev/null; exit $status")
    environment = {**ENVIRONMENT, "LD_PRELOAD": ""}
    done = subprocess.run(["unshare", "-m", "sh", "-c", script], env=environment, capture_output=True, text=True,
                          timeout=LIMIT, check=False)
    if done.returncode in (1, 99) and "hwreg-capture" not in done.stderr:
        pytest.skip("may not mount here: " + done.stderr)
    assert (done.returncode, done.stderr) == (1, "hwreg-capture: machine.board: No space left on device\n")
    assert done.stdout == ("machine.board\nbefore\n" if before else "")


def test_a_device_stays_one_and_its_failure_is_told():
    done = capture_to("-o", "/dev/full")
    assert (done.returncode, done.stderr) == (1, b"hwreg-capture: /dev/full: No space left on device\n")
    assert os.major(os.stat("/dev/full").st_rdev) == 1
    assert capture_to("-o", "/dev/null").returncode == 0


def test_standard_output_that_takes_nothing_is_told():
    with open("/dev/full", "wb") as full:
        done = capture_to(stdout=full)
    assert (done.returncode, done.stderr) == (1, b"hwreg-capture: standard output: No space left on device\n")


def test_what_was_cut_off_is_no_capture(tmp_path):
    path = tmp_path / "cut.board"
    whole = capture_to(stdout=subprocess.PIPE).stdout
    for length in range(20, len(whole) - 5, len(whole) // 40):
        path.write_bytes(whole[:length])
        done = subprocess.run([BUILD / "hwreg", "/PCI", "/RB", "0", "0", "0", "0"], capture_output=True, check=False,
                              env={**ENVIRONMENT, "HWBOARD": str(path)})
        assert done.returncode == 125 and str(path).encode() in done.stderr


@pytest.mark.parametrize("words", [
    ["--no-such"], ["-o"], ["--msr"], ["--msr", "x"], ["--msr", "2-1"], ["--msr", "1-100000000"], ["--msr", "-1"],
    ["--ports", "0-10000"], ["--memory", "0-"], ["--smn", "1"], ["--smn", "x", "1"], ["word"],
    ["--msr", "1"] * 65,
])  # fmt: skip
def test_a_wrong_option_is_told_and_nothing_is_touched(run, words):
    result = run(words, program="hwreg-capture")
    assert (result.status, result.out, result.log) == (2, b"", [])
    assert result.err.startswith(b"hwreg-capture: ") and result.err.count(b"\n") == 1


def test_help_and_version_touch_nothing(run):
    shown = run("--help", program="hwreg-capture")
    assert shown.status == 0 and shown.out.startswith(b"usage: hwreg-capture ") and shown.log == []
    assert run("--version", program="hwreg-capture").out.startswith(b"hwreg-capture 1.")


@pytest.mark.parametrize("board, said", [
    ("noiopl", "no I/O privilege: Operation not permitted; run it as root"),
    ("nomem", "no physical memory (/dev/mem): No such file or directory; run it as root"),
])
def test_without_privilege_it_says_what_is_missing(run, tmp_path, board, said):
    result = run(f"-o {tmp_path}/machine.board", board=board, program="hwreg-capture")
    assert (result.status, result.out) == (6, b"")
    assert result.err.decode().startswith(f"hwreg-capture: {said}") and result.err.count(b"\n") == 1
    assert not (tmp_path / "machine.board").exists()


def test_progress_is_for_terminals_alone(terminal, tmp_path):
    result = terminal(f"-o {tmp_path}/machine.board", board="unknown", program="hwreg-capture")
    assert result.status == 0
    assert b"PCI bus 255 of 256" in result.out and result.out.endswith(b"\r\x1b[K")
