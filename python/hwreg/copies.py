"""Ranges of memory and ports: through /RF into a file there, which is fetched and removed, or as pages of a view."""

from __future__ import annotations

import base64
import binascii
from collections.abc import Sequence

from hwreg import arguments
from hwreg.session import Session
from hwreg.views import views_in

MARK = "hwreg-file"

# $1 and $2 are address and length, which stand behind the file's name, then comes the command. hwreg alone runs under
# the lock; base64 comes through consoles, too.
COPY = f"""
from=$1 length=$2; shift 2
file=$(mktemp) || exit
trap 'rm -f "$file"' EXIT
trap 'exit 143' HUP INT TERM
"$@" "$file" "$from" "$length" || exit
echo {MARK}
base64 "$file"
"""

# $1 are the keys that the view waits for, so that it waits for nobody: ESC behind the first page.
VIEW = """
keys=$1; shift
printf "$keys" | "$@"
"""


def script(text: str, operands: Sequence[str], line: Sequence[str]) -> list[str]:
    return ["sh", "-c", text.strip(), "hwreg", *operands, *line]


def copied(session: Session, name: str, first: int, length: int, seconds: float | None) -> bytes:
    if seconds is not None:
        seconds = arguments.seconds("seconds", seconds)
    operands = [arguments.spelled(first), arguments.spelled(length)]
    words = ["/S", name, "/RF"]
    ran = session.execute([*words, "FILE", *operands], script(COPY, operands, session.line(words, seconds=seconds)),
                          seconds)  # fmt: skip
    if ran is None:
        return bytes(length)
    _, mark, text = ran.text.partition(f"\n{MARK}\n")
    try:
        data = base64.b64decode("".join(text.split()), validate=True)
    except binascii.Error:
        data = b""
    if not mark or len(data) != length:
        raise session.failure(ran)
    return data


def viewed(session: Session, words: Sequence[str], length: int) -> bytes:
    """The first page of a dump."""
    line = script(VIEW, [r"\033"], session.line([*words, "/TEXT"]))
    ran = session.execute(words, line)
    if ran is None:
        return bytes(length)
    views = views_in(ran.stdout)
    if len(views) != 1 or len(views[0]) != length:
        raise session.failure(ran)
    return views[0]
