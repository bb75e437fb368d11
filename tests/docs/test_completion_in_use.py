"""Completion as the shells find and use it: loaded by the commands' names, at the tab key."""

import os
import pty
import re
import select
import subprocess
import time

import pytest

import shells
from texts import COMPLETION


def test_bash_completion_loads_the_file_by_the_commands_name(tmp_path):
    folder = tmp_path / "completions"
    folder.mkdir()
    (folder / "hwreg").symlink_to(COMPLETION)
    script = ("source /usr/share/bash-completion/bash_completion; _completion_loader hwreg; complete -p hwreg; "
              "COMP_WORDS=(hwreg /PC) COMP_CWORD=1; _hwreg hwreg; echo $COMPREPLY")
    ran = subprocess.run(["bash", "--norc", "-c", script], env={**os.environ, "BASH_COMPLETION_USER_DIR": tmp_path},
                         capture_output=True, text=True, check=False)
    assert ran.stdout == "complete -F _hwreg hwreg\n/PCI\n"


@pytest.mark.parametrize("command", ["hwreg", "hwreg-sim", "hwreg-check", "hwreg-board"])
def test_fish_loads_the_file_by_the_commands_name(tmp_path, command):
    """fish looks for completions of commands that there are."""
    (tmp_path / f"{command}.fish").symlink_to(COMPLETION.parent / "hwreg.fish")
    (tmp_path / command).touch(mode=0o755)
    script = f"set -p fish_complete_path {tmp_path}; complete -C '{command} --help' ; complete -C '{command} /PC'"
    ran = subprocess.run(["fish", "--no-config", "-c", script], capture_output=True, text=True, check=False,
                         env={**os.environ, "PATH": f"{tmp_path}:{os.environ['PATH']}", "HOME": str(tmp_path)})
    assert ran.stdout.split() == {"hwreg": ["/PCI"], "hwreg-board": ["--help"]}.get(command, ["--help", "/PCI"])


def test_zsh_loads_the_file_by_the_commands_names(tmp_path):
    (tmp_path / "_hwreg").symlink_to(COMPLETION.parent / "_hwreg")
    script = (f"fpath=({tmp_path} $fpath); autoload -Uz compinit; compinit -u -D; "
              "print $_comps[hwreg] $_comps[hwreg-sim] $_comps[hwreg-check] $_comps[hwreg-board]")
    ran = subprocess.run(["zsh", "-f", "-c", script], capture_output=True, text=True, check=False)
    assert ran.stdout == "_hwreg _hwreg _hwreg _hwreg\n"
    assert shells.complete("zsh", "hwreg /PC", tmp_path, setup=f"fpath[1]={tmp_path}") == {"/PCI"}


def test_zsh_says_which_operand_is_asked_for(tmp_path):
    setup = "zstyle ':completion:*' format 'here: %d'\n_message() { builtin print -rl -- \"$argv[-1]\" >>$OPERANDS; }"
    operands = tmp_path / "operands"
    shells.complete("zsh", "hwreg /MEM /S 0x1000 ", tmp_path, {"OPERANDS": str(operands)}, setup)
    assert operands.read_text() == "length\n"


class Shell:
    """An interactive shell on a terminal."""

    def __init__(self, cwd, *command):
        self.master, slave = pty.openpty()
        environment = {**os.environ, "PS1": "> ", "TERM": "dumb", "INPUTRC": "/dev/null", "HISTFILE": ""}
        self.child = subprocess.Popen(command, stdin=slave, stdout=slave, stderr=slave, cwd=cwd, env=environment,
                                      start_new_session=True)
        os.close(slave)
        self.screen = ""

    def type(self, text, expected, seconds=300):
        """Types a text and waits until the screen shows the expected one behind what it showed before."""
        seen = len(self.screen)
        os.write(self.master, text.encode())
        deadline = time.monotonic() + seconds
        while expected not in self.screen[seen:]:
            left = deadline - time.monotonic()
            assert left > 0, self.screen
            if select.select([self.master], [], [], left)[0]:
                self.screen += os.read(self.master, 4096).decode().replace("\r", "").replace("\x07", "")

    def end(self):
        os.write(self.master, b"\x15exit\n")
        self.child.wait(timeout=300)
        os.close(self.master)


def complete_with_tab(shell):
    shell.type("hwreg /pc\t", "hwreg /pci ")
    shell.type("/du\t", "/dump ")
    shell.type("\x15hwreg /MEM /RF du\t", "dump\\ file ")


def test_the_tab_key_of_bash_completes_on_a_terminal(tmp_path):
    (tmp_path / "dump file").touch()
    shell = Shell(tmp_path, "bash", "--norc", "--noprofile", "-i")
    shell.type(f"source {COMPLETION}\n", "> ")
    complete_with_tab(shell)
    shell.type("\x15hwreg /SMB\t\t", "/SMBUS")
    shell.end()
    assert re.search(r"/SMB +/SMBIOS +/SMBUS", shell.screen)


def test_the_tab_key_of_zsh_completes_on_a_terminal(tmp_path):
    (tmp_path / "dump file").touch()
    shell = Shell(tmp_path, "zsh", "-f", "-i")
    shell.type(f"fpath=({COMPLETION.parent} $fpath); autoload -Uz compinit; compinit -u -D; echo read''y\n", "ready")
    complete_with_tab(shell)
    shell.type("\x15hwreg /SMB\t\t", "/SMBIOS")
    shell.end()
