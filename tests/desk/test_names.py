"""The names of registers are the same wherever they are told."""

import re

from harness import TOP
from hwregboard.names_msr import msr_name

CAPTURED = re.findall(r'\{(0x[0-9A-F]+), MSR_\w+, "(\w+)"\}', (TOP / "tools/capture/MsrNames.cpp").read_text())


def test_the_desk_calls_the_msrs_of_a_capture_as_the_capture_does():
    assert len(CAPTURED) > 100
    assert [(index, name) for index, name in CAPTURED if msr_name(int(index, 16)) != name] == []
