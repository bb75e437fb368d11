#!/usr/bin/env /usr/bin/python3
"""The pictures of docs/pictures: screens that the program really shows, and drawings.

    tests/docs/pictures.py             tells which pictures are no longer so; exit status 1 for any
    tests/docs/pictures.py --update    makes them anew

The screens are taken from a terminal on which a command runs, under the simulator of the build folder. python3-rich
draws them, Graphviz the drawings, which have their source beside them. Both name fonts that a reader may have, and
nothing is fetched.
"""

import os
import pathlib
import pty
import re
import select
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as tree

from rich.console import Console
from rich.segment import Segment, Segments
from rich.terminal_theme import TerminalTheme
from rich.text import Text

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
FOLDER = TOP / "docs" / "pictures"
FLEET = TOP / "docs" / "fleets.md"

LIMIT = 300  # seconds that a screen may take
PAUSE = 1.0  # seconds without output after which a program waits for a key
SVG = "{http://www.w3.org/2000/svg}"

# The sixteen colours, the bright ones last; all of them are legible on the background.
COLOURS = [(72, 79, 88), (255, 123, 114), (63, 185, 80), (210, 153, 34), (88, 166, 255), (188, 140, 255),
           (57, 197, 207), (201, 209, 217)]  # fmt: skip
BRIGHT = [(110, 118, 129), (255, 161, 152), (86, 211, 100), (227, 179, 65), (121, 192, 255), (210, 168, 255),
          (86, 212, 221), (240, 246, 252)]  # fmt: skip
THEME = TerminalTheme((13, 17, 23), (201, 209, 217), COLOURS, BRIGHT)

# rich's own names fonts by their addresses.
FORMAT = """\
<svg viewBox="0 0 {width} {height}" width="{width}" xmlns="http://www.w3.org/2000/svg">
<style>
.{unique_id}-matrix {{
    font-family: "DejaVu Sans Mono", "Liberation Mono", Menlo, Consolas, monospace;
    font-size: {char_height}px;
    white-space: pre;
}}
{styles}
</style>
<defs>
{lines}
</defs>
{chrome}
<g class="{unique_id}-matrix" transform="translate({terminal_x}, {terminal_y})">
{backgrounds}
{matrix}
</g>
</svg>
"""


# ---- screens
def shown_on_terminal(command, folder, asks=False):
    """What a command of the shell writes on a terminal; one that asks for a key is broken off there."""
    environment = {**os.environ, "PATH": f"{TOP}/sim:{os.environ['PATH']}", "HWREG_BUILD": str(BUILD),
                   "LC_ALL": "C.UTF-8", "TERM": "xterm-256color"}
    master, slave = pty.openpty()
    with subprocess.Popen(["bash", "-c", command], stdin=slave, stdout=slave, stderr=slave, cwd=folder,
                          env=environment, start_new_session=True) as child:
        os.close(slave)
        text = taken(master, asks)
        if asks:
            os.write(master, b"\x1b")
            taken(master, False)
        child.wait(LIMIT)
    os.close(master)
    return text


def taken(master, asks):
    text, deadline = b"", time.monotonic() + LIMIT
    while time.monotonic() < deadline:
        if asks and text and not select.select([master], [], [], PAUSE)[0]:
            break
        try:
            piece = os.read(master, 65536)
        except OSError:  # the last one has closed the terminal
            break
        if not piece:
            break
        text += piece
    return text.decode()


def lines_of(text):
    """The lines of a screen, with their colours. What a carriage return went back over is covered, or this fails."""
    text = re.sub("\r+\n", "\n", text).removesuffix("\n")
    lines = []
    for line in text.split("\n"):
        covered, _, left = line.rpartition("\r")
        if covered:
            assert len(without_colours(covered.rpartition("\r")[2]).rstrip()) <= len(without_colours(left)), line
        assert "\x1b" not in without_colours(line), f"no colour: {line!r}"
        lines.append(left)
    return lines


def without_colours(text):
    return re.sub("\x1b\\[[0-9;]*m", "", text)


def folded(line, width):
    """A line that is typed, as a terminal shows it."""
    return [line[at:at + width] for at in range(0, len(line), width)]


def drawn(name, lines, width):
    """A picture of a screen."""
    console = Console(record=True, width=width, file=open(os.devnull, "w", encoding="utf-8"), force_terminal=True,
                      color_system="truecolor", legacy_windows=False, _environ={})
    text = Text.from_ansi("\n".join(lines), no_wrap=True)
    for line in console.render_lines(text, pad=False):
        console.print(Segments([*Segment.simplify(line), Segment.line()]), end="")
    picture = console.export_svg(title="", theme=THEME, code_format=FORMAT, unique_id=name)
    return re.sub(r"</text>(?=<text)", "</text>\n", picture)


def paged_view():
    """A page of memory: the SMBIOS tables of the board."""
    command = "/MEM /DUMP 0x7A5BD000"
    shown = shown_on_terminal(f"hwreg-sim {command}", TOP, asks=True)
    return [f"$ scripts/run {command}", *lines_of(shown)], 80


def fleet():
    """The first clush of docs/fleets.md, and the commands before it that make its machines."""
    typed = [line.removeprefix("    lab$ ") for line in FLEET.read_text().splitlines() if line.startswith("    lab$ ")]
    (last, *_) = (at for at, command in enumerate(typed) if command.startswith("clush"))
    with tempfile.TemporaryDirectory() as folder:
        for command in typed[:last]:
            shown_on_terminal(command.replace("/usr/share/hwreg", f"{TOP}/sim"), folder)
        shown = shown_on_terminal(typed[last], folder)
    return [*folded(f"lab$ {typed[last]}", 80), *lines_of(shown)], 80


SCREENS = {"paged-view": paged_view, "fleet": fleet}


# ---- drawings
def rendered(name):
    ran = subprocess.run(["dot", "-Tsvg", FOLDER / f"{name}.dot"], capture_output=True, check=True, text=True)
    assert ran.stderr == "", ran.stderr
    return ran.stdout


def said(picture):
    """What a picture shows, without the places: texts, shapes and colours. The places in a drawing come from the fonts
    of the machine that renders it."""
    return [(item.tag.removeprefix(SVG), item.get("fill"), item.get("stroke"), item.get("class"),
             (item.text or "").strip()) for item in tree.fromstring(picture.encode()).iter()]


def text_of(picture):
    """The lines of a screen's picture."""
    lines = {}
    for item in tree.fromstring(picture.encode()).iter(f"{SVG}text"):
        lines.setdefault(float(item.get("y")), []).append((float(item.get("x")), item.text))
    width = 20 * 0.61  # of a character, in rich's pictures
    result = []
    for _, pieces in sorted(lines.items()):
        line = ""
        for place, text in sorted(pieces):
            line = line.ljust(round(place / width)) + text.replace("\N{NO-BREAK SPACE}", " ")
        result.append(line)
    return result


def drawings():
    return sorted(path.stem for path in FOLDER.glob("*.dot"))


def made():
    """(path, picture, is it as it was) of each picture."""
    for name, screen in SCREENS.items():
        path, picture = FOLDER / f"{name}.svg", drawn(name, *screen())
        yield path, picture, path.exists() and path.read_text() == picture
    for name in drawings():
        path, picture = FOLDER / f"{name}.svg", rendered(name)
        yield path, picture, path.exists() and said(path.read_text()) == said(picture)


def main(update):
    stale = [(path, picture) for path, picture, same in made() if not same]
    for path, picture in stale:
        print(path.relative_to(TOP))
        if update:
            path.write_text(picture)
    return bool(stale) and not update


if __name__ == "__main__":
    sys.exit(main("--update" in sys.argv[1:]))
