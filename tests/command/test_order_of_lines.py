"""Between which accesses a line comes to the screen: it is what somebody sees when the next one hangs the board."""

import pytest
from expected import OPEN

STARTED = OPEN[-1]
SECONDS = "in8 0071 -> 06"
HITS = ["text 00200010 \"MARK\"", "text 00201010 \"MARK\""]


@pytest.mark.parametrize("words, access, occurrence, line", [
    ("/MEM /RF WHOLE.BIN 0x100000 0x100000", STARTED, 1, "R_MEM Start:0x100000, Size:0x100000"),
    ("/IO /RF WHOLE.BIN 0x10 0x100000", STARTED, 1, "R_IO Start:0x10, Size:0x100000"),
    ("/MEM /S 0x200000 0x4000 MARK", STARTED, 1, "<- (Ctrl+C: abort!)  searching: MARK ->"),
    ("/MEM /S 0x200000 0x4000 MARK", "munmap 00201000 1000", 1, " (0002) MARK return address: 00201010 "),
    ("/PCI /DUMP /NOMSG", "in16 0cfe -> 3e30", 1, "Bus Dev Fun VID_DID  ASPM IRQ_L IRQ_P Class"),
    ("/PCI /DUMP /NOMSG", "in16 0cfe -> 0600", 1, "00  00  00  80863E30 NA   NONE  NONE  Host Bridge"),
    ("/SMBUS /S 0xA0 0xA8", "in8 efa5 -> 23", 1, "Valid SMBus slave address 0xA0(data:23)."),
    ("/RTC 30 /T 1", STARTED, 1, "RTC wake up after 30 seconds!"),
    ("/RTC 30 /T 1", STARTED, 1, "Have no RTCLOG file!"),
    ("/RTC 30 /T 1", SECONDS, 1, "...timeout: 1 seconds (press ESC to break out)..."),
    ("/RTC 30 /T 1", SECONDS, 2, "Time: 04:05:06"),
])
def test_a_line_is_shown_behind_one_access_and_before_the_next(terminal, words, access, occurrence, line):
    keys = [b"\x1b"] if words.startswith("/RTC") else []
    log = terminal(words, keys, extra=HITS).log
    behind = [number for number, shown in enumerate(log, 1) if shown == access][occurrence - 1]
    before, after = (terminal(words, keys, extra=HITS, env={"HWBOARD_SIGNAL": f"SIGKILL {number}"}).text
                     for number in (behind, behind + 1))
    assert f"{line}\r\n" not in before and f"{line}\r\n" in after
