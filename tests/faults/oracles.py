"""What must hold whatever fails: for any line, function and number."""

import re

FAILED_START = 6
IN_COMMON = {2, 3, 5, 6, 9}  # help or no form, not supported, no memory, no access

# Functions whose failure gives other values, and so other views; and those without which a view is not broken off.
VALUES = {"mmap", "open", "pread", "fgets"}
KEYS = {"getc", "ungetc"}

# Registers that end a failed transfer: a core is disabled, its target taken back, a STOP sent.
I2C_ENDING = ("6c", "04", "10")

# Functions whose failure changes nothing that can be seen: what they do is done all the same, or nobody waits for it.
WITHOUT_EFFECT = {"close", "munmap", "setvbuf", "signalfd", "poll"}

MESSAGES = [
    "FileOpen fail!", "Write to buffer fail!", "StartAddr error!", "I2C init error", "InitSmuService error: 8000000F",
    "Have no RTCLOG file!", "Have no RBTLOG file!", "RTCLOG write fail!", "RBTLOG write fail!",
    "Error: cannot get PMBase", "ERROR:Make sure format is correct!",
]  # fmt: skip
MESSAGE_FORMS = [r"Read addr 0x\w+ offset 0x\w+ error!", r"Write addr 0x\w+ offset 0x\w+ error!",
                 r"Dump (\(DDR4\) )?addr 0x\w+ error!", r"ERROR: Cannot find \S+ in SMBIOS!",
                 r"Not found ClaseCode\(\w+\)"]  # fmt: skip


# ---- the machine ----------------------------------------------------------------------------------------------------


def last(log, pattern):
    """Where the last line stands that the pattern matches, or -1."""
    return max((at for at, line in enumerate(log) if re.match(pattern, line)), default=-1)


def super_io_is_locked(result):
    """A5h A5h unlocks the chip at 4Eh, AAh locks it."""
    log = [line for line in result.log if line.startswith("out8 004e ")]
    unlocked = last(log, "out8 004e a5")
    return unlocked == -1 or "out8 004e aa" in log[unlocked:]


def spd_pages(result):
    """The addresses to which the SMBus host wrote, of the two that select a page."""
    return [line[-2:] for line in result.log if re.match(r"out8 (efa4|0b04) 6[ce]$", line)]


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


def i2c_target_does_not_read_back(result):
    """IC_TAR was read last: a target that cannot be set ends the request at once, with the core as it is."""
    accesses = result.memory_accesses()
    return bool(accesses) and re.match(r"mr32 fedc.004 ", accesses[-1]) is not None


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
    if not spd_page_is_0(result):
        yield "page 1 of the SPD is selected"
    left_on_purpose = i2c_disable_was_lost(result) or i2c_target_does_not_read_back(result)
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


def without_messages(text):
    for message in MESSAGES:
        text = text.replace(message + "\n", "")
    for form in MESSAGE_FORMS:
        text = re.sub(form + "\n", "", text)
    return text


def kinds(text):
    """The lines of a text by what they are: views of other bytes have other lengths."""
    found = set()
    for row in skeleton(text).splitlines():
        found.add("view" if re.fullmatch(r"[\s.]*", row) else row)
    return found


def documented(line):
    """The exit statuses that the entry of the reference names, and those of all commands. Without any CPU /MSR /ALL has
    nothing to do."""
    if line.command == "/MSR":
        return IN_COMMON | {0}
    part = line.entry.parts["EXIT STATUS"]
    return IN_COMMON | {int(number) for number in re.findall(r"(?<![0-9A-Fx])\d+\b", part)}


def only_known_text(function, result, usual):
    if function in VALUES:
        return kinds(without_messages(result.text)) <= kinds(usual.text) | {"view"}
    text = without_messages(result.text)
    return is_part_of(text, usual.text) or is_part_of(skeleton(text), skeleton(usual.text))


def reported(text):
    """The value that the last line tells, or None."""
    found = re.findall(r"(?:return data:|return MSR: |offset 0x\w+: |Eax:)(?:0x)?([0-9A-F_]+)", text)
    return int(found[-1].replace("_", ""), 16) if found else None


def status_is_explained(line, result, usual):
    value = reported(result.text)
    if result.status == usual.status or result.status in documented(line):
        return True
    return value is not None and result.status == value & 0xFF
