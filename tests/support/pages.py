"""What pages for people show to be typed or to be written into files."""

import dataclasses
import re
import textwrap


@dataclasses.dataclass
class Step:
    command: str
    shown: list


def steps(text, prompt):
    """What is typed behind a prompt (with its indent), and the lines shown below."""
    found = []
    for line in text.splitlines():
        if line.startswith(prompt):
            found.append(Step(line.removeprefix(prompt), []))
            inside = True
        elif found and inside and line.startswith("    "):
            found[-1].shown.append(line[4:])
        else:
            inside = False
    return found


def files_shown(text):
    """The files of a page by their names: the indented lines below "A file `NAME`:"."""
    shown_files = re.findall(r"^A file `([^`/]+)`:\n\n((?:(?: {4}.*)?\n)+)", text, re.MULTILINE)
    return {name: textwrap.dedent(body) for name, body in shown_files}
