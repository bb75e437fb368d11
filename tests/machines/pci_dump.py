"""Configuration space as dumps hold it: lspci's text and trees of files `config`, each read by rules of its own here.

What is given are functions: {(domain, bus, device, function): bytes}, 64, 256 or 4096 of them, or as many as there are.
"""

import re
import subprocess

HEAD = re.compile(r"(?:([0-9a-f]{4,8}):)?([0-9a-f]{2}):([0-9a-f]{2})\.([0-7]) ")
ROW = re.compile(r"([0-9a-f]{2,3}):((?: [0-9a-f]{2}){1,16})\s*$")
PLACE = re.compile(r"([0-9a-f]{4,8}):([0-9a-f]{2}):([0-9a-f]{2})\.([0-7])")


def place_of(found):
    return tuple(int(number or "0", 16) for number in found.groups())


def of_text(text):
    """Of `lspci -x`, -xxx or -xxxx, whatever else it says."""
    functions, current = {}, None
    for line in text.splitlines():
        if head := HEAD.match(line):
            current = functions.setdefault(place_of(head), bytearray())
        elif (row := ROW.match(line)) and current is not None:
            assert int(row[1], 16) == len(current), f"a gap before {line}"
            current += bytes.fromhex(row[2])
    return {place: bytes(data) for place, data in functions.items() if data}


def of_tree(folder):
    """Of a tree of sysfs: each function has a folder of its name."""
    found = ((PLACE.fullmatch(path.parent.name), path) for path in folder.rglob("config"))
    return {place_of(name): path.read_bytes() for name, path in found if name}


def functions_of(dump):
    return of_tree(dump.tree) if dump.tree else of_text(dump.text())


def text_of(functions):
    """Such a text as lspci -F reads."""
    lines = []
    for (domain, bus, device, number), data in functions.items():
        lines.append(f"{domain:04x}:{bus:02x}:{device:02x}.{number} x")
        lines += [f"{at:02x}: {data[at : at + 16].hex(' ')}" for at in range(0, len(data), 16)]
        lines.append("")
    return "\n".join(lines)


def lspci(text, folder, *options):
    """What lspci makes of a dump."""
    path = folder / "lspci-input"
    path.write_text(text, encoding="latin-1")
    # Warnings about broken capabilities are a matter of the machine.
    run = subprocess.run(["lspci", "-F", path, "-D", *options], capture_output=True, encoding="latin-1", check=True)
    return run.stdout


ASPM = {"Disabled": "DIS", "L0s Enabled": "L0S", "L1 Enabled": "L1", "L0s L1 Enabled": "L01"}


def link_states(functions, folder):
    """The ASPM control of each function as lspci tells it; NA for those without a link."""
    states, current = {}, None
    for line in lspci(text_of(functions), folder, "-n", "-vv").splitlines():
        if head := HEAD.match(line):
            current = place_of(head)
            states[current] = "NA"
        elif found := re.match(r"\s+LnkCtl:\s+ASPM ([^;]*)", line):
            states[current] = ASPM[found[1].strip()]
    return states
