"""What hwreg-check says about a command line, or about a machine."""

from __future__ import annotations

import dataclasses
from typing import Any


@dataclasses.dataclass(frozen=True)
class Foretold:
    """Of one line. `verdict` is "works", "refused" or "other": it gives other data than the hardware's. `status` is the
    one that hwreg will end with, if that can be told."""

    words: tuple[str, ...]
    does: str
    verdict: str
    status: int | None
    shows: str
    because: str
    why: str
    remedy: str
    cautions: tuple[str, ...]

    @classmethod
    def of(cls, told: dict[str, Any]) -> Foretold:
        return cls(tuple(told["words"]), told["does"], told["verdict"], told["status"], told["shows"], told["because"],
                   told["why"], told["remedy"], tuple(told["cautions"]))  # fmt: skip


@dataclasses.dataclass(frozen=True)
class Finding:
    """Something of the machine. `state` is "good", "caution", "bad" or "unknown"."""

    name: str
    state: str
    found: str
    remedy: str


@dataclasses.dataclass(frozen=True)
class Report:
    """Of a machine: what was found, and what each command can do there."""

    version: str
    kernel: str
    findings: tuple[Finding, ...]
    commands: tuple[Foretold, ...]

    @classmethod
    def of(cls, told: dict[str, Any]) -> Report:
        findings = tuple(Finding(found["name"], found["state"], found["found"], found["remedy"])
                         for found in told["findings"])  # fmt: skip
        return cls(told["version"], told["kernel"], findings, tuple(map(Foretold.of, told["commands"])))

    def finding(self, name: str) -> Finding:
        return next(found for found in self.findings if found.name == name)
