"""Runs the program on a board with a processor of another family, as far as CPUID tells.

Where this machine's processor can make CPUID fault, the board answers it; else QEMU's user-mode emulation does, with
the board preloaded inside. A test that can have neither is skipped and says so.
"""

import shutil

import pytest

from harness import BUILD, WRAPPER, Run, run_program

EMULATOR = "qemu-x86_64"
EXTENDED_SIGNATURE = 0x80000001
INSIDE = ("HWBOARD", "HWBOARD_LOG", "LD_PRELOAD")  # the emulated program's, not the emulator's


def can_fault():
    return any(line.startswith("flags") and "cpuid_fault" in line.split() for line in open("/proc/cpuinfo"))


def is_sanitized():
    return b"__asan_init" in (BUILD / "hwreg").read_bytes()


def model_of(signature):
    """The emulator's -cpu for a signature as in EAX of leaf 1 and leaf 80000001h."""
    family = (signature >> 8 & 0xF) + (signature >> 20 & 0xFF)
    model = (signature >> 12 & 0xF0) | (signature >> 4 & 0xF)
    return f"qemu64,family={family},model={model},stepping={signature & 0xF}"


def emulate(prepared, signature):
    words = [EMULATOR, "-cpu", model_of(signature)]
    for name in INSIDE:
        words += ["-E", f"{name}={prepared.environment.pop(name)}"]
    prepared.command = [*words, prepared.executable, *prepared.words]
    prepared.executable = shutil.which(EMULATOR)


@pytest.fixture
def on_processor(new_folder, tmp_path):
    """on_processor(signature, args, board="amd", extra=()) -> Result

    runner       what runs it, with the arguments of harness.run_program
    """

    def go(signature, args, board="amd", extra=(), timeout=60, runner=run_program):
        if WRAPPER:
            pytest.skip("the wrapper has a CPUID of its own, and does not run the emulator")
        lines = [extra] if isinstance(extra, str) else list(extra)
        if can_fault():
            lines.append(f"cpuid {EXTENDED_SIGNATURE:x} 0 {signature:x} 0 0 0")
        prepared = Run(new_folder(), args, board, lines, False, "hwreg", None)
        if not can_fault():
            if shutil.which(EMULATOR) is None:
                pytest.skip(f"the processor cannot make CPUID fault, and {EMULATOR} (qemu-user) is not installed")
            if is_sanitized():
                pytest.skip("the processor cannot make CPUID fault, and the address sanitizer does not run emulated")
            emulate(prepared, signature)
        return runner(prepared, tmp_path, None, None, None, timeout)

    return go


__all__ = ["on_processor"]
