"""What goes wrong. Each says what was run and what came back."""

from __future__ import annotations


class HwregError(Exception):
    """The base of all. What was not run has an empty command and no status."""

    def __init__(self, problem: str, command: str = "", status: int | None = None, stdout: str = "",
                 stderr: str = "") -> None:  # fmt: skip
        self.command = command
        self.status = status
        self.stdout = stdout
        self.stderr = stderr
        parts = [problem]
        if command:
            parts.append(f"run: {command}")
        if status is not None:
            parts.append(f"status: {status}")
        parts += [f"{name}: {text.strip()}" for name, text in (("printed", stdout), ("error", stderr)) if text.strip()]
        super().__init__("\n  ".join(parts))


class WrongArgument(HwregError, ValueError):
    """Found before anything was run."""


class NotAllowed(HwregError):
    """Not run, since the machine object, or hwreg-check, does not allow it."""


class NoAnswer(HwregError):
    """There is no line with the value: no privilege (status 6), no such device, hwreg or the machine not reached."""


class Failed(HwregError):
    """hwreg says so itself."""


class TimedOut(HwregError):
    """The lock was not had in time, or the command did not end in time and was ended."""
