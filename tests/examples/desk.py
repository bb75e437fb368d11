"""A desk on which examples/cycle runs: its folder, a simulated machine whose clock goes fast, the kernel's files of
that clock, and what it finds in the PATH.

    desk.cycle()              runs it once, as a start of the machine does
    desk.count(), desk.log()  what it has left behind
"""

import os
import pathlib
import subprocess

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
CYCLE = TOP / "examples" / "cycle"
QUICK = "include intel.board\ncmos-run real 190\n"  # 400 seconds a second

# Says what it was told to say, in the place of hwreg-check: its status from the file `verdict`.
CHECK = """#!/bin/sh
echo "$*" >>{folder}/checked
read -r status <{folder}/verdict
[ "$status" = 0 ] || echo "no privilege"
exit "$status"
"""


class Desk:
    def __init__(self, folder):
        self.top = folder
        self.folder = folder / "cycle"
        self.clock = folder / "clock"
        self.bin = folder / "bin"
        self.folder.mkdir()
        self.bin.mkdir()
        (self.clock / "device" / "power").mkdir(parents=True)
        self.put_clock(time="04:05:06", alarm="", wakeup="enabled")
        (folder / "quick.board").write_text(QUICK)
        self.machine = f"hwreg-sim --board {folder}/quick.board --state {folder}/machine"
        (folder / "verdict").write_text("0\n")
        self.put_program("hwreg-check", CHECK.format(folder=folder))
        self.put_program("shutdown", "#!/bin/sh\n")  # simulated machines run none, but it is looked for
        self.put_program("hwreg-sim", f'#!/bin/sh\nexec {TOP}/sim/hwreg-sim "$@"\n')
        self.environment = {
            **os.environ, "HWREG_BUILD": str(BUILD), "LC_ALL": "C.UTF-8",
            "PATH": f"{self.bin}:/usr/sbin:/usr/bin:/sbin:/bin",
            "HWREG": f"{self.machine} --log={folder}/accesses",
            "HWREG_LOCK": str(folder / "hwreg.lock"), "CYCLE_FOLDER": str(self.folder),
            "CYCLE_CLOCK": str(self.clock), "CYCLE_DELAY": "5", "CYCLE_OFF": "60"}

    def put_program(self, name, text):
        (self.bin / name).write_text(text)
        (self.bin / name).chmod(0o755)

    def put_clock(self, time=None, alarm=None, wakeup=None):
        """The files of the kernel's driver, each as it is read."""
        for path, text in (("time", time), ("wakealarm", alarm), ("device/power/wakeup", wakeup)):
            if text is not None:
                (self.clock / path).write_text(text + "\n" if text else "")

    def hwreg(self, *words):
        """One command on the machine, as an engineer at the desk types it."""
        return self.start(["sh", "-c", f"$HWREG {' '.join(words)}"]).returncode

    def start(self, words, **more):
        environment = {**self.environment, **more}
        return subprocess.run(words, cwd=self.top, env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, timeout=300, start_new_session=True, check=False)

    def cycle(self, *words, shell=(), **more):
        return self.start([*shell, CYCLE, *words], **more)

    def put_count(self, contents, copy=None):
        """The counter file of hwreg, and the script's copy of it."""
        for name, counted in (("RTCLOG", contents), ("RTCLOG.last", copy)):
            if isinstance(counted, int):
                counted = counted.to_bytes(4, "little")
            if counted is not None:
                (self.folder / name).write_bytes(counted)

    def count(self):
        """The number in hwreg's file; None without one, or when it is not whole."""
        path = self.folder / "RTCLOG"
        contents = path.read_bytes() if path.exists() else b""
        return int.from_bytes(contents, "little") if len(contents) == 4 else None

    def log(self):
        """The lines of the script's log, without their dates."""
        path = self.folder / "log"
        return [line.split("Z ", 1)[1] for line in path.read_text().splitlines()] if path.exists() else []

    def switched_off(self):
        """How often the machine was."""
        path = self.top / "accesses"
        return path.read_text().count("system shutdown -P now\n") if path.exists() else 0
