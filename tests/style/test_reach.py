"""Headers tell which of their procedures no command reaches, and the names of state are told by their prefix."""

import re
import subprocess

from house import BUILD, FLOORS, TOP, judge, none, program, sources, tags

LIST = re.compile(r"^// No command reaches: ((?:[^.]|\n)*)\.$", re.MULTILINE)

# State of modules has the prefix m, what other modules see the prefix g, and constants are in capitals; but for names
# that are older than the rule.
OLDER = {
    **dict.fromkeys(["chipSetVid", "tempPcieBaseAddr", "BcdData", "PmAddress"], "seen by other modules"),
    **dict.fromkeys(["I2cSdpAddressList", "PciDeviceClassCode", "HelpList"], "tables"),
    **dict.fromkeys(["F000Reg", "E000Reg", "E800Reg"], "save slots"),
    **dict.fromkeys([f"Msr{area}Save{half}" for area in ("F000", "F800", "E000", "E800") for half in ("Edx", "Eax")],
                    "save slots"),
}


def linked_procedures():
    """The names of those that stay when the linker takes out what the program does not reach."""
    folder = BUILD / "reach"
    for command in (["cmake", "-S", TOP, "-B", folder, "-DCMAKE_BUILD_TYPE=Debug",
                     "-DCMAKE_CXX_FLAGS=-O0 -ffunction-sections", "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--gc-sections"],
                    ["cmake", "--build", folder, "--parallel", "2", "--target", "hwreg"]):  # fmt: skip
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    symbols = subprocess.run(["nm", "-C", "--defined-only", folder / "hwreg"], capture_output=True, text=True,
                             check=True)
    return set(re.findall(r" [tTwW] (\w+)(?:\(|$)", symbols.stdout, re.MULTILINE))


def listed(header):
    """The names in a header's list of procedures that no command reaches."""
    text = re.sub(r"\n// ?", " ", "".join(LIST.findall(header.read_text())))
    return set(re.findall(r"\w+", text))


def wrong_lists(top, linked):
    headers = [path for path in sources(top, *FLOORS) if path.suffix == ".h"]
    declared = {header: set() for header in headers}
    for tag in tags(top, headers, "p"):
        declared[top / tag["path"]].add(tag["name"])
    for header, names in declared.items():
        here = header.relative_to(top)
        yield from (f"{here}: {name} is not reached" for name in sorted(names - linked - listed(header)))
        yield from (f"{here}: {name} is reached" for name in sorted(listed(header) & linked))
        yield from (f"{here}: {name} is no procedure of this header" for name in sorted(listed(header) - names))


def misnamed_state(top):
    """Variables of files by their names: name, finding."""
    found = {}
    for tag in tags(top, program(top), "v"):
        if not re.fullmatch(r"[mg][A-Z]\w*|[A-Z][A-Z0-9_]*", tag["name"]):
            found[tag["name"]] = f"{tag['path']}:{tag['line']}: {tag['name']}"
    return found


def test_headers_tell_which_procedures_no_command_reaches():
    none(list(wrong_lists(TOP, linked_procedures())), "mend the header's line `No command reaches: ...`")


def test_state_is_told_by_its_prefix():
    judge(misnamed_state(TOP), OLDER, "name it m... (of the module) or g... (seen by others)")


def test_planted_names_are_found(plant):
    top = plant({
        "Base/A.h": "// As it is.\n//\n// No command reaches: Two,\n// Three, Five.\n#pragma once\n"
                    "int One();\nint Two();\nint Three();\nint Four();\n",
        "Base/A.cpp": "static int counter = 0;\nstatic int mCount = 0;\nconstexpr int LIMIT = 3;\nint gShown;\n",
    })
    assert list(wrong_lists(top, {"One", "Two"})) == [
        "Base/A.h: Four is not reached", "Base/A.h: Two is reached", "Base/A.h: Five is no procedure of this header"]
    assert misnamed_state(top) == {"counter": "Base/A.cpp:1: counter"}
