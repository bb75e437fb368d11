#!/usr/bin/python3
"""Makes seeds/ anew: captures of simulated machines and logs of some commands, with few lines of each kind, so that the
fuzzers get through them fast. The program has to be built."""

import pathlib
import subprocess
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
SIMULATOR = HERE.parents[2] / "sim" / "hwreg-sim"
MOST = 24  # lines of a capture, and of a log, that begin with the same word
COMMANDS = {"intel": ("/PCI /DUMP /NOMSG", "/SMBUS /RB 0xA0 2", "/IO /INDEX /RB 0x70 0x71 0x0A", "/MSR /RD /ALL 0x1B",
                      "/MEM /WD 0x1000 1", "/SIO /DUMP /LOG"),
            "amd": ("/SMN /RD 0 0x50000", "/SMBUS /RB 0xA0 2", "/I2C 0 /RB 0x50 0 1")}  # fmt: skip


def thinned(text: str) -> str:
    count: dict[str, int] = {}
    kept = []
    for line in text.splitlines():
        word = " ".join(line.split(None, 2)[:2 if line.startswith("#") else 1])
        count[word] = count.get(word, 0) + 1
        if count[word] <= MOST:
            kept.append(line.rstrip() + "\n")
    return "".join(kept)


def simulated(board: str, *words: str) -> str:
    return subprocess.run([SIMULATOR, "--board", board, *words], capture_output=True, text=True, check=False).stdout


def main() -> None:
    (HERE / "seeds").mkdir(exist_ok=True)
    for board, commands in COMMANDS.items():
        (HERE / "seeds" / f"{board}.board").write_text(thinned(simulated(board, "--capture")))
        with tempfile.NamedTemporaryFile("r") as log:
            for command in commands:
                simulated(board, f"--log={log.name}", *command.split())
            (HERE / "seeds" / f"{board}.log").write_text(thinned(log.read()))


if __name__ == "__main__":
    main()
