"""A lab's script, of which several run at once against one board: traffic.py dump|read|write LOCK|- [COUNT]

It prints how many of its commands went wrong, and how many they were. `dump` lists all functions until there is a file
`over`; `read` reads the IDs of the host bridge; `write` writes a register of the root port and looks whether the value
is there.
"""

import os
import pathlib
import sys

from hwreg import Machine, Ssh

BRIDGE = 0x29C08086
PORT, REGISTER = 0x1C, 0x28  # the upper half of an address: the emulated port keeps it and does nothing with it
WINDOW = 0xB0000000 + (PORT << 15) + REGISTER  # the same register without the ports


def dumps(board):
    first = None
    while not pathlib.Path("over").exists():
        shown = board.run("/PCI", "/DUMP", "/NOMSG", "/LOG").stdout
        first = first or shown
        yield shown == first


def reads(board, count):
    for _ in range(count):
        yield board.pci.read(0, 0, 0, 0, 32) == BRIDGE


def writes(board, count):
    for number in range(1, count + 1):
        board.pci.write(0, PORT, 0, REGISTER, number, 32)
        yield board.memory.read(WINDOW, 32) == number


def main(what, lock, *count):
    way = Ssh("board7", options=["-F", "ssh_config", "-o", f"ControlPath=control-{os.getpid()}"])  # its own
    board = Machine(way, lock=None if lock == "-" else lock)
    right = list({"dump": dumps, "read": reads, "write": writes}[what](board, *map(int, count)))
    print(right.count(False), len(right))


if __name__ == "__main__":
    main(*sys.argv[1:])
