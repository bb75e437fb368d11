"""The program on a machine that was imported, and what it prints as bytes."""

import os
import re
import subprocess

from harness import BUILD, TOP

SECONDS = 120
HEAD = re.compile(rb" {3}00( [0-9A-F]{2})* +0\S*")
ROW = re.compile(rb"[0-9A-F]{2}((?: [0-9A-F]{2}){1,16}) {7,}")
RETURNED = re.compile(r"(?:return data:|: )0x([0-9A-F]+)\n")


def tool(*words):
    """What hwreg-board writes on standard output."""
    command = ["/usr/bin/python3", TOP / "tools" / "hwreg-board", *words]
    run = subprocess.run(command, capture_output=True, timeout=SECONDS)
    assert run.returncode == 0, f"hwreg-board {' '.join(map(str, words))}: {run.stderr.decode()}"
    return run.stdout


def changed(board, *lines):
    """The machine with further lines, in a file beside the other."""
    path = board.with_name(f"changed-{board.name}")
    path.write_text("\n".join([f"include {board.name}", *lines, ""]))
    return path


def hwreg(board, *words):
    """What the program prints on the machine."""
    environment = {**os.environ, "HWBOARD": str(board), "LD_PRELOAD": str(BUILD / "libhwboard.so")}
    run = subprocess.run([BUILD / "hwreg", *map(str, words)], env=environment, cwd=board.parent,
                         stdin=subprocess.DEVNULL, capture_output=True, timeout=SECONDS)  # fmt: skip
    assert run.stderr == b"" and run.returncode >= 0, f"hwreg {words}: {run.returncode} {run.stderr.decode()}"
    return run.stdout


def views(out):
    """The bytes of each hex view in what the program printed."""
    found = []
    for line in out.split(b"\r\n"):
        if HEAD.fullmatch(line.rpartition(b"\n")[2]):
            found.append(bytearray())
        elif (row := ROW.match(line)) and found:
            found[-1] += bytes.fromhex(row[1].decode())
    return [bytes(view) for view in found]


def value(out):
    """The number that a read returned; of an MSR both halves."""
    text = out.decode()
    if found := re.search(r"return MSR: 0x([0-9A-F]{8})_([0-9A-F]{8})\n", text):
        return int(found[1] + found[2], 16)
    found = RETURNED.search(text)
    assert found, text
    return int(found[1], 16)


def memory(board, address, length):
    """Bytes of memory as the program copies them into a file."""
    path = board.parent / "memory.bin"
    hwreg(board, "/S", "/MEM", "/RF", path.name, hex(address), hex(length))
    data = path.read_bytes()
    path.unlink()
    assert len(data) == length
    return data
