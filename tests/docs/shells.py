"""What bash, zsh and fish offer for a command line, each asked in the way that it completes itself.

    shells.complete("zsh", "hwreg /PCI ", folder)      the set of words that can stand in the place of the last one

A blank at the end begins a new word. zsh is asked on a terminal. Bash takes "=" for a word of its own, and a test
writes "--board = i" for its --board=i; the others get it in one word.
"""

import atexit
import functools
import os
import pathlib
import pty
import re
import shlex
import shutil
import subprocess
import tempfile

from texts import COMPLETION

FOLDER = COMPLETION.parent
SHELLS = ("bash", "zsh", "fish")

BASH = r"""
source "$1" || exit
%s
shift
set -u
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
_hwreg "$1" && printf '%%s\n' "${COMPREPLY[@]}"
"""

# Each compadd that is no question of the completion system tells what it adds.
ZSH = r"""
fpath=(%(folder)s $fpath)
autoload -Uz compinit && compinit -u -C -d %(dump)s
compadd() {
    [[ ${argv[1,(i)--]} == *-(O|A|D)* ]] && { builtin compadd "$@"; return }
    local -a hits
    local path_to=${argv[${argv[(i)-p]}+1]-}
    builtin compadd -A hits "$@"
    (($#hits)) && print -rl -- $path_to$^hits >>%(said)s
    builtin compadd "$@"
}
ask() { : >%(said)s; _main_complete; compstate[insert]='' compstate[list]='' }
zle -C ask complete-word ask
zle-line-init() { BUFFER=$ASKED CURSOR=$#ASKED; zle ask; exit 0 }
zle -N zle-line-init
%(setup)s
"""


def complete(shell, line, cwd, environment=None, setup=""):
    environment = {**os.environ, "TERM": "dumb", **(environment or {})}
    said = {"bash": ask_bash, "zsh": ask_zsh, "fish": ask_fish}[shell](line, cwd, environment, setup)
    offered = said.split("\n")[:-1] if said else []
    assert len(offered) == len(set(offered))
    return set(offered)


def ask_bash(line, cwd, environment, setup):
    ran = subprocess.run(["bash", "--norc", "-c", BASH % setup, "bash", COMPLETION, *line.split(" ")], cwd=cwd,
                         env=environment, check=False, capture_output=True, text=True)
    assert ran.stderr == "" and ran.returncode == 0
    return ran.stdout.lstrip("\n")


def joined(line):
    return line.replace(" = ", "=")


def ask_fish(line, cwd, environment, setup):
    environment["HOME"] = environment["XDG_CONFIG_HOME"] = environment["XDG_DATA_HOME"] = scratch()
    script = f"source {FOLDER}/hwreg.fish\n{setup}\ncomplete -C {shlex.quote(joined(line))}"
    ran = subprocess.run(["fish", "--no-config", "-c", script], cwd=cwd, env=environment, check=False,
                         capture_output=True, text=True)
    assert ran.stderr == "" and ran.returncode == 0
    asked = re.match(r"[^ =]*=|", joined(line).split(" ")[-1])[0]
    words = [said.split("\t")[0] for said in ran.stdout.splitlines()]
    assert all(word.startswith(asked) for word in words)
    return "".join(f"{word.removeprefix(asked).rstrip('/')}\n" for word in words)


@functools.cache
def scratch():
    """A folder for what the shells keep from call to call, such as zsh's table of the completions."""
    folder = tempfile.mkdtemp()
    atexit.register(shutil.rmtree, folder)
    return folder


def ask_zsh(line, cwd, environment, setup):
    said = pathlib.Path(scratch(), "said")
    said.unlink(missing_ok=True)
    start = ZSH % {"folder": FOLDER, "dump": f"{scratch()}/dump", "said": said, "setup": setup}
    pathlib.Path(scratch(), ".zshrc").write_text(start)
    on_terminal(["zsh", "-d", "-i"], cwd, environment | {"ZDOTDIR": scratch(), "ASKED": joined(line)})
    return said.read_text()


def on_terminal(command, cwd, environment):
    """Runs a command on a terminal of its own."""
    master, slave = pty.openpty()
    with subprocess.Popen(command, stdin=slave, stdout=slave, stderr=slave, cwd=cwd, env=environment,
                          start_new_session=True) as child:
        os.close(slave)
        screen = b""
        try:
            while piece := os.read(master, 4096):
                screen += piece
        except OSError:  # the last one has closed the terminal
            pass
        os.close(master)
        assert child.wait() == 0, screen
