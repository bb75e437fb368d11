"""What a comparison of two machines collects."""

import dataclasses
import hashlib
from collections.abc import Callable

from hwregboard import volatile


@dataclasses.dataclass(frozen=True)
class Difference:
    """`place` is what patterns of --ignore are about. A side without it has None."""

    place: str
    name: str
    old: str | None
    new: str | None
    reason: str = ""  # why it does not count

    def line(self, first: str, second: str) -> str:
        text = f"{self.place} {self.name}".strip()
        if self.new is None:
            text += f": only in {first}"
        elif self.old is None:
            text += f": only in {second}"
        else:
            text += f": {self.old} -> {self.new}"
        return text + (f" (does not count: {self.reason})" if self.reason else "")


class Comparison:
    """Collects differences. `unjudged` sums up what the first machine cannot judge: what it lacks or does not know."""

    def __init__(self, rules: volatile.Rules) -> None:
        self.rules = rules
        self.found: list[Difference] = []
        self.unjudged = hashlib.blake2b(digest_size=16)

    def add(self, place: str, name: str, old: str | None, new: str | None, reason: str = "") -> None:
        reason = reason or self.rules.own(f"{place} {name}".strip())
        if not reason or self.rules.shown:
            self.found.append(Difference(place, name, old, new, reason))

    def only(self, place: str, name: str, in_first: bool, content: object = "") -> None:
        self.add(place, name, "" if in_first else None, None if in_first else "")
        if not in_first:
            self.unjudged.update(repr((place, content)).encode())

    def sides(self, part: str, first: dict, second: dict, name: Callable[[object], tuple[str, str]],
              content: Callable[[object], object]) -> list:  # fmt: skip
        """The keys of both sides in order. Those of one side are told one by one, or at once where the other side has
        nothing of that kind."""
        if bool(first) != bool(second):
            self.only(part, "", bool(first), [(key, content(second[key])) for key in second])
            return []
        for key in sorted(first.keys() ^ second.keys()):
            self.only(*name(key), key in first, content(second[key]) if key in second else "")
        return sorted(first.keys() & second.keys())
