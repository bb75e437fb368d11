"""What must hold whatever fails: for any line, function and number."""

import os
import re

FAILED_START = 6
IN_COMMON = {2, 3, 5, 6, 9}  # help or no form, not supported, no memory, no access

# Functions whose failure gives other values, and so the same lines with other numbers.
VALUES = {"mmap", "open", "pread", "pwrite", "fgets", "fread", "system"}
KEYS = {"getc", "ungetc"}
ALLOCATIONS = {"malloc", "calloc", "realloc"}

# Registers that end a failed transfer: a core is disabled, its target taken back, a STOP sent.
I2C_ENDING = ("6c", "04", "10")


# ---- the machine ----------------------------------------------------------------------------------------------------


def last(log, pattern):
    """Where the last line stands that the pattern matches, or -1."""
    return max((at for at, line in enumerate(log) if re.match(pattern, line)), default=-1)


def super_io_is_locked(result):
    """A5h A5h unlocks the chip at 4Eh, and AAh behind everything else locks it."""
    log = [line for line in result.log if re.match("(in|out)8 004[ef] ", line)]
    return "out8 004e a5" not in log or log[-1] == "out8 004e aa"


def smbus_host(result):
    """The ports of the SMBus host, by its first start; None when it was not started."""
    start = next((line for line in result.log if re.match(r"out8 ..[02468ace]2 48$", line)), None)
    return int(start.split()[1], 16) - 2 if start else None


def smbus_host_is_given_up(result):
    """A read of the status takes the host, the next write gives it up."""
    base = smbus_host(result)
    return base is None or [line for line in result.log if f"8 {base:04x} " in line][-1].startswith("out8 ")


def spd_pages(result):
    """The addresses to which the SMBus host wrote, of the two that select a page."""
    base = smbus_host(result)
    return [] if base is None else [line[-2:] for line in result.log if re.match(f"out8 {base + 4:04x} 6[ce]$", line)]


def spd_page_is_0(result):
    pages = spd_pages(result)
    return not pages or pages[-1] == "6c"


def i2c_core_is_disabled(result):
    """IC_ENABLE as it was last written."""
    written = [line for line in result.log if re.match(r"mw32 fedc.06c ", line)]
    return not written or int(written[-1].split()[-1], 16) == 0


def i2c_disable_was_lost(result):
    """The map that failed was that of the last write to IC_ENABLE: there is no way to the register."""
    failed = last(result.whole_log, "failed mmap")
    return failed >= 0 and not any(line.startswith("mw32 ") for line in result.whole_log[failed:])


def i2c_target_was_not_set(result):
    """A target that cannot be set ends the request at once, with the core as it is: nothing was written to it any more
    but the target."""
    written = [line for line in result.log if re.match(r"mw32 fedc.", line)]
    enabled = last(written, r"mw32 fedc.06c 0*1$")
    return enabled >= 0 and all(re.match(r"mw32 fedc.004 ", line) for line in written[enabled + 1 :])


def smn_die_is_0(result):
    """The die register (C0h of the host bridge) as it was last written."""
    ports = result.ports()
    writes = [after for line, after in zip(ports, ports[1:])
              if line == "out32 0cf8 800000c0" and after.startswith("out")]
    return not writes or writes[-1] == "out32 0cfc 00000000"


def nmi_is_let_through(result):
    """Bit 7 of the CMOS index masks the NMI."""
    indices = [int(line[-2:], 16) for line in result.log if line.startswith("out8 0070 ")]
    return not indices or indices[-1] < 0x80


def complaints_about_the_machine(result, usual):
    if not super_io_is_locked(result):
        yield "the Super I/O is unlocked"
    if not smbus_host_is_given_up(result):
        yield "the SMBus host is taken"
    if not spd_page_is_0(result):
        yield "page 1 of the SPD is selected"
    left_on_purpose = i2c_disable_was_lost(result) or i2c_target_was_not_set(result)
    if not i2c_core_is_disabled(result) and not left_on_purpose:
        yield "an I2C core is enabled"
    if not smn_die_is_0(result):
        yield "another die is selected"
    if nmi_is_let_through(usual) and not nmi_is_let_through(result):
        yield "the NMI is masked"


# ---- what was taken -------------------------------------------------------------------------------------------------


def opened(log):
    return [line.split()[1] for line in log if re.match(r"open .* -> ok$", line)]


def closed(log):
    return [line.split()[1] for line in log if line.startswith("close ")]


def mapped(log):
    return [line.split()[2:4] for line in log if re.match(r"mmap .* -> ok$", line)]


def unmapped(log):
    return [line.split()[1:3] for line in log if line.startswith("munmap ")]


def restoring_failed(result, function, calls):
    """True when it was the last of so many calls, which puts back what the first ones changed, that was refused: there
    is no help for it."""
    return any(int(line.split()[2]) % calls == 0 for line in result.failed if line.startswith(f"failed {function} "))


def descriptor_is_left_changed(result):
    """A descriptor is made non-blocking by three calls of fcntl: the last one puts its flags back."""
    return result.flags_after != result.flags_before and not restoring_failed(result, "fcntl", 3)


def complaints_about_what_is_held(result, function):
    if result.held:
        yield f"still held at the end: {result.held}"
    if sorted(opened(result.log)) != sorted(closed(result.log)):
        yield "a device file is not closed"
    if function != "munmap" and mapped(result.log) != unmapped(result.log):
        yield "a map is not taken away, or not at once"


# ---- effects --------------------------------------------------------------------------------------------------------


def effects(log):
    """Everything that changes the machine, without values: these may follow from what was read."""
    found = []
    for line in log:
        words = line.split()
        if re.match(r"(out|mw|ms)\d+$", words[0]) and len(words) == 3 and words[1] not in ("00ed", "0cf8"):
            found.append(tuple(words[:2]))
        elif words[0] == "pwrite":
            found.append(tuple(words[:3]))
        elif words[0] == "system" and words[1] != "modprobe":
            found.append(tuple(words))
    return found


def is_part_of(shorter, longer):
    """True when it is the same with some elements left out."""
    rest = iter(longer)
    return all(element in rest for element in shorter)


def only_known_effects(line, result, usual):
    done, known = effects(result.log), effects(usual.log)
    if line.command == "/I2C":
        done = [effect for effect in done if effect[1][-2:] not in I2C_ENDING]
    return is_part_of(done, known)


# ---- text and status ------------------------------------------------------------------------------------------------


def skeleton(text):
    """A text without colours, without the digits of its numbers and without the character columns of views."""
    plain = re.sub(r"\x1b\[[0-9;]*m", "", text)
    rows = re.sub(rf"(?m)^([0-9A-F]{{2}} (?:[0-9A-F]{{2}} |   ){{16}}) .*?(\r|$)", r"\1\2", plain)
    return re.sub(r"[0-9A-Fa-f]+", "", rows)


def kinds(text):
    """The lines of a text by what they are: views of other bytes have other contents."""
    return ["view" if re.fullmatch(r"[\s.]*", row) else row for row in skeleton(text).splitlines()]


def with_other_values(text, usual):
    return kinds(text) == kinds(usual)


def with_other_structures(text, usual):
    """Where a page of the tables is missing, structures begin elsewhere."""
    return kinds(text) != [] and set(kinds(text)) <= set(kinds(usual)) | {"view"}


def of_fewer_cpus(text, usual):
    return usual.startswith(text) and text[-1:] in ("", "\n")


# What opens a file takes three calls. The first two opens of a run are of device files.
OPENING_FIRST = "open 3|(fstat|fdopen) 1"
OPENING_SECOND = "open 4|(fstat|fdopen) 2"

# What is said instead, and with which status, where a call fails that the command cannot do without: for lines with
# these words (or on that board), and for these wishes. The first row that fits holds.
INSTEAD = [
    ("/RF", OPENING_FIRST, "FileOpen fail!\n", 21),
    ("/RF", r"malloc 1\+", "", 9),
    ("/SMBIOS intel", r"(fopen|fgets) \d", "", 7),  # the firmware there tells the tables' place in a file
    ("/SMBUS /DUMP", "malloc 1", "", 255),
    ("/IO /DUMP", "malloc 1", "", 5),
    ("/MEM /DUMP", "malloc 1", "", 5),
    ("/PCI /DUMP", "malloc 1", "", 5),
    ("/SIO /DUMP", "malloc 1", "", 5),
]

# The same for calls of which the command can do without some; the status is told by the value where none is given.
PERHAPS_INSTEAD = [
    ("/MEM /S", "(open|mmap) .*", "<- (Ctrl+C: abort!)  searching: firmware ->\n", 14),
    ("/I2C", "open 1", "I2C init error\n", 255),
    ("/I2C /READ", "mmap .*", "Read addr 0x50 offset 0x04 error!\n", 255),
    ("/I2C /WRITE", "mmap .*", "Write addr 0x50 offset 0x04 error!\n", 255),
    ("/ACPI", "(open|mmap) .*", "", 14),
    ("/ACPI", "calloc .*", "", 9),
    ("/SMBIOS", "([cm]alloc|open|mmap) .*", "", 7),
    ("/SMBIOS", "mmap .*", with_other_structures, 0),
    ("/SMBIOS /S", "malloc .*", "", 9),
    ("/SMBIOS /S", "mmap .*", "ERROR: Cannot find dimm_a2 in SMBIOS!\n", 14),
    ("/SMBIOS /TYPE", "mmap .*", "", 0),
    ("/MSR", "calloc .*", with_other_values, None),  # the name of a node is a formatted text
    ("/MSR /EVERY", "(calloc|open|system) .*", of_fewer_cpus, None),
]

# What is said in one line more.
ONE_MORE = [
    ("/RF", r"fwrite \d+", "Write to buffer fail!\n"),
    ("/RTC /RESET", OPENING_SECOND, "RBTLOG write fail!\n"),
    ("/RTC /GRESET", OPENING_SECOND, "RBTLOG write fail!\n"),
    ("/RTC /F", OPENING_SECOND, "RTCLOG write fail!\n"),
]

# What is said in place of a line.
ANOTHER = [
    ("/RTC /T", OPENING_FIRST, r"(\w+) count is: 5\n", r"Have no \1 file!\n"),
]

# Switch words that stand for several.
SEVERAL = {"/READ": "/RB /RW /RD", "/WRITE": "/WB /WW /WD", "/EVERY": "/A /ALL"}


def rows(table, line, wish):
    """What a table says of a line and a wish."""
    there = {*line.words.split(), line.board}
    for words, wishes, *said in table:
        if all(there & set(SEVERAL.get(word, word).split()) for word in words.split()) and re.fullmatch(wishes, wish):
            yield said


def fits(text, status, result, usual):
    same_text = text(result.text, usual.text) if callable(text) else result.text == text
    return same_text and status in (None, result.status)


def lost_piece(text, usual):
    """The one piece of the usual text that is missing; None when it is not that alone."""
    start = len(os.path.commonprefix([text, usual]))
    end = start + len(usual) - len(text)
    return usual[start:end] if end >= start and usual[end:] == text[start:] else None


def has_lost_one_piece(text, usual):
    """The formatter leaves out the number, or the message, for which it has no memory. No message has more than two
    ends of lines."""
    piece = lost_piece(text, usual)
    return piece is not None and piece.count("\n") <= 2


def loses_output(wish):
    """What is kept of the output while hardware is switched is written by the program itself. A full pipe is asked
    again, every other error loses the text."""
    return re.fullmatch(r"write \d+ (?!EAGAIN).*", wish) is not None


def text_is_as_stated(line, wish, result, usual, unbroken):
    """What no table states otherwise must be there as usual."""
    function = wish.split()[0]
    if loses_output(wish):
        return bool(lost_piece(result.text, usual.text)) and result.status == usual.status
    for words, other in rows(ANOTHER, line, wish):
        text, count = re.subn(words, other, usual.text)
        return count == 1 and result.text == text and result.status == usual.status
    for (message,) in rows(ONE_MORE, line, wish):
        return (message in result.text and result.text.replace(message, "", 1) == usual.text and
                result.status == usual.status)
    for text, status in rows(INSTEAD, line, wish):
        return fits(text, status, result, usual)
    if any(fits(text, status, result, usual) for text, status in rows(PERHAPS_INSTEAD, line, wish)):
        return True
    if function in VALUES:
        return with_other_values(result.text, usual.text)
    if result.status != usual.status:
        return False
    if function in ALLOCATIONS:
        return has_lost_one_piece(result.text, usual.text)
    if function in KEYS:  # the key is missing, and the next one does what it would have done
        return result.text.startswith(usual.text) and unbroken.text.startswith(result.text)
    return result.text == usual.text


def documented(line):
    """The exit statuses that the entry of the reference names, and those of all commands. Without any CPU /MSR /ALL has
    nothing to do."""
    if line.command == "/MSR":
        return IN_COMMON | {0}
    part = line.entry.parts["EXIT STATUS"]
    return IN_COMMON | {int(number) for number in re.findall(r"(?<![0-9A-Fx])\d+\b", part)}


def reported(text):
    """The value that the last line tells, or None."""
    found = re.findall(r"(?:return data:|return MSR: |offset 0x\w+: |Eax:)(?:0x)?([0-9A-F_]+)", text)
    digits = found[-1].replace("_", "") if found else ""
    return int(digits, 16) if digits else None


def status_is_explained(line, result, usual):
    value = reported(result.text)
    if result.status == usual.status or result.status in documented(line):
        return True
    return value is not None and result.status == value & 0xFF
