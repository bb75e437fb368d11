"""The Debian packages: looked at, installed into a clean Debian system, used there, and removed again."""

import dataclasses
import json
import os
import re
import shutil
import subprocess

import pytest

import roots
from roots import TOP, field, output

NAMES = ["hwreg", "hwreg-static", "hwreg-sim", "python3-hwreg"]
READ_HOST = "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n"


def assert_same_files(before, after):
    assert [path for path in after if path not in before] == [], "left behind"
    assert [path for path in before if path not in after] == [], "taken away"
    assert [path for path in before if before[path] != after[path]] == [], "changed"


@pytest.fixture(scope="session")
def clean(packages):
    """A copy of the clean system, with the packages' files in it."""
    root = roots.clean().copy("debian")
    for name, package in packages.items():
        shutil.copy(package, root.path / "root" / f"{name}.deb")
    yield root
    shutil.rmtree(root.path)


@dataclasses.dataclass
class Installation:
    root: roots.Root
    planned: set  # packages that apt would bring along into the clean system
    recommended: set  # the same where it installs what is recommended, too
    said: str  # what apt says when it installs ours on top of what they depend on
    before: dict  # the files before that
    target: dict  # the files with the target's package alone


@pytest.fixture(scope="session")
def installed(clean, packages):
    """The packages, installed with apt one after the other, what they depend on first."""
    planned, recommended = [set(re.findall(r"^Inst (\S+)", clean.must(f"apt-get install -s {option} /root/hwreg.deb"),
                                           re.MULTILINE))
                            for option in ("--no-install-recommends", "--install-recommends")]
    depends = ", ".join(field(package, "Depends") for package in packages.values() if field(package, "Depends"))
    foreign = ", ".join(name for name in depends.split(", ") if not name.startswith("hwreg"))
    clean.must("apt-get", "satisfy", "-y", "--no-install-recommends", "--no-download", foreign)
    before = clean.files()
    said = clean.must("apt-get install -y --no-install-recommends /root/hwreg.deb")
    target = clean.files()
    for name in NAMES[1:]:
        said += clean.must(f"apt-get install -y --no-install-recommends /root/{name}.deb")
    return Installation(clean, planned, recommended, said, before, target)


@pytest.fixture
def root(installed):
    return installed.root


# The files

def test_lintian_has_nothing_to_say(release):
    options = ["--allow-root", "--display-info", "--display-experimental", "--pedantic",
               "--fail-on", "error,warning,info,pedantic,experimental"]
    ran = subprocess.run(["lintian", *options, release / "hwreg_1.01_amd64.changes"], capture_output=True, text=True,
                         check=False)
    assert (ran.stdout, ran.returncode) == ("", 0)


def test_each_override_gives_its_reason():
    overrides = sorted((TOP / "debian").glob("*.lintian-overrides"))
    assert [path.stem for path in overrides] == ["hwreg-sim", "hwreg-static"]
    assert all(path.read_text().startswith("# ") for path in overrides)


def test_the_packages_carry_the_version_of_the_program(packages):
    project = re.search(r"project\(hwreg VERSION ([0-9.]+)", (TOP / "CMakeLists.txt").read_text()).group(1)
    assert {name: field(package, "Version") for name, package in packages.items()} == dict.fromkeys(NAMES, project)
    recipe = (TOP / "packaging" / "hwreg.spec").read_text()
    assert re.findall(r"^Version: (.*)$|- (.*)-1$", recipe, re.MULTILINE) == [(project, ""), ("", project)]


def test_nothing_runs_when_they_are_installed_or_removed(packages, tmp_path):
    """But that Python's modules are compiled, as Debian does it."""
    for name, package in packages.items():
        subprocess.run(["dpkg-deb", "-e", package, tmp_path / name], check=True)
        scripts = {path.name: path.read_text() for path in (tmp_path / name).iterdir() if os.access(path, os.X_OK)}
        assert set(scripts) == ({"postinst", "prerm"} if name == "python3-hwreg" else set())
        words = {word for text in scripts.values() for word in text.split()}
        assert words & {"chmod", "chown", "ln", "mkdir", "modprobe", "systemctl", "hwreg"} == set()


def test_they_depend_on_what_they_need_and_on_no_init(packages):
    depends = {name: re.sub(r" \(>= 2.\d+\)$", "", field(package, "Depends")) for name, package in packages.items()}
    assert depends == {
        "hwreg": "kmod, ncurses-bin (>= 6.2), libc6",
        "hwreg-static": "",
        "hwreg-sim": "hwreg (= 1.01), python3:any (>= 3.11~), libc6",
        "python3-hwreg": "python3:any (>= 3.11~)"}
    assert field(packages["hwreg"], "Recommends") == "systemd-sysv | sysvinit-core | runit-init"


# Installed

def test_what_the_commands_need_comes_along(installed):
    assert {"hwreg", "kmod"} <= installed.planned and "systemd-sysv" not in installed.planned
    for program in ("modprobe", "clear"):
        assert installed.root.run(f"command -v {program}").returncode == 0


def test_an_init_comes_along_where_recommended_packages_do(installed):
    assert "systemd-sysv" in installed.recommended


def test_nothing_else_is_needed(installed):
    assert installed.said.count("0 upgraded, 1 newly installed, 0 to remove") == 4


def test_a_target_gets_the_program_its_manual_and_nothing_of_the_desk(installed):
    new = {path for path in installed.target if path not in installed.before and "hwreg" in path}
    assert "usr/sbin/hwreg" in new
    assert [path for path in new if re.search(r"sim|board|\.so", path)] == []


def test_the_files_lie_where_they_are_looked_for(root):
    paths = set(root.must(f"dpkg -L {' '.join(NAMES)}").split())
    assert {"/usr/sbin/hwreg", "/usr/bin/hwreg-sim", "/usr/share/man/man8/hwreg.8.gz",
            "/usr/share/man/man1/hwreg-sim.1.gz", "/usr/share/man/man5/hwreg-board.5.gz",
            "/usr/share/bash-completion/completions/hwreg", "/usr/share/zsh/vendor-completions/_hwreg",
            "/usr/share/fish/vendor_completions.d/hwreg.fish", "/usr/share/fish/vendor_completions.d/hwreg-sim.fish",
            "/usr/share/doc/hwreg/ReadMe.doc", "/usr/share/doc/hwreg-sim/boards.md", "/usr/share/doc/hwreg/fleets.md",
            "/usr/share/doc/hwreg/cookbook.md", "/usr/share/doc/hwreg/foretold.md", "/usr/sbin/hwreg-capture",
            "/usr/sbin/hwreg-check", "/usr/share/man/man8/hwreg-check.8.gz",
            "/usr/share/bash-completion/completions/hwreg-check", "/usr/share/man/man8/hwreg-capture.8.gz",
            "/usr/bin/hwreg-board",
            "/usr/share/man/man1/hwreg-board.1.gz", "/usr/share/man/man5/hwreg-board.5.gz",
            "/usr/share/doc/hwreg-sim/machine-on-the-desk.md", "/usr/share/doc/hwreg/copyright",
            "/usr/share/doc/hwreg/examples/cycle", "/usr/share/doc/hwreg/examples/cycle.service",
            "/usr/share/doc/hwreg/examples/registers", "/usr/share/doc/hwreg/examples/registers.list",
            "/usr/share/hwreg/boards/intel.board", "/usr/lib/python3/dist-packages/hwreg/py.typed",
            "/usr/lib/python3/dist-packages/hwreg/labgrid_driver.py", "/usr/share/doc/python3-hwreg/python.md",
            "/usr/share/doc/python3-hwreg/labs.md", "/usr/share/doc/hwreg/installing.md",
            "/usr/share/doc/hwreg/README.Debian", "/usr/share/doc-base/hwreg.hwreg",
            "/usr/share/doc-base/hwreg-sim.hwreg-sim", "/usr/share/doc-base/python3-hwreg.python3-hwreg",
            "/usr/sbin/hwreg-static", "/usr/sbin/hwreg-check-static", "/usr/sbin/hwreg-capture-static",
            "/usr/share/man/man8/hwreg-static.8.gz"} <= paths
    assert all(path == "/." or path.startswith("/usr") for path in paths)


@pytest.mark.parametrize("name", ["hwreg", "hwreg-sim", "python3-hwreg"])
def test_the_registered_documents_are_there(root, name):
    registered = root.must(f"cat /usr/share/doc-base/{name}.{name}")
    patterns = re.search(r"^Files: (.*)$", registered, re.MULTILINE)[1]
    found = set(root.must(f"shopt -s failglob; printf '%s\\n' {patterns}").split())
    documents = root.must(rf"find /usr/share/doc/{name} -maxdepth 1 -name '*.md' -o -name ReadMe.doc").split()
    assert found == set(documents)


def test_the_example_scripts_can_be_copied_and_run(root):
    ran = root.run("cp /usr/share/doc/hwreg/examples/cycle /tmp && CYCLE_FOLDER=/tmp /tmp/cycle report; rm /tmp/cycle")
    assert ran.stdout.startswith("counted:             none of 1000\n") and ran.stderr == ""
    ran = root.run("cd /usr/share/doc/hwreg/examples; export HWREG=hwreg-sim HWREG_CHECK=true; "
                   "./registers registers.list /tmp/table; cat /tmp/table; rm -f /tmp/table /run/lock/hwreg.lock")
    assert "\nhost-bridge          0x3E308086 " in ran.stdout and ran.stderr == ""


@pytest.mark.parametrize("program", ["hwreg", "hwreg-static"])
@pytest.mark.parametrize("words", ["", "/PCI /RB 0 0 0 0", "/MEM /H"])
def test_the_program_ends_silently_with_6_without_privilege(root, program, words):
    ran = root.run(f"{program} {words}", user="nobody")
    assert (ran.stdout, ran.stderr, ran.returncode) == ("", "", 6)


def test_simulated_machines_work_for_everybody(root):
    ran = root.run("hwreg-sim /PCI /RB 0 0 0 0", user="nobody")
    assert (ran.stdout, ran.stderr, ran.returncode) == (READ_HOST, "", 0x86)
    logged = root.run("hwreg-sim --log /PCI /RB 0 0 0 0", user="nobody").stderr.splitlines()
    assert (logged[0], logged[-1]) == ("iopl 3", "close /dev/mem")


def test_the_network_of_the_simulated_processor_can_be_read(root):
    ran = root.run("hwreg-sim --board amd /SMN /RD 0 0x100", user="nobody")
    assert ran.stderr == "" and ran.stdout.startswith("SMN Read Dword Die:0, Regester:100, return data:0x")


def test_a_machine_is_captured_replayed_and_compared(root):
    script = """cd /tmp && hwreg-sim --board amd --capture -o a.board && hwreg-sim --board a.board /PCI /RB 0 0 0 0
        sed 's/^msr 2ff .*/msr 2ff 1/' a.board >b.board && hwreg-board diff a.board b.board; rm -f a.board b.board"""
    ran = root.run(script, user="nobody")
    assert (ran.stdout, ran.stderr) == ("PCI Read Byte BDFO: 0 0 0 0, return data:0x22\n"
                                        "msr 2ff IA32_MTRR_DEF_TYPE: c00 -> 1\n", "")


def test_the_log_is_explained(root):
    ran = root.run("hwreg-sim --log --explain /PCI /RB 0 0 0 0", user="nobody")
    assert "Vendor ID" in ran.stderr and ran.stdout == READ_HOST


def test_a_capture_without_privilege_tells_what_is_missing(root):
    ran = root.run("hwreg-capture", user="nobody")
    assert (ran.stdout, ran.returncode) == ("", 6) and "root" in ran.stderr


def test_a_check_without_privilege_tells_what_is_refused(root):
    ran = root.run("hwreg-check --json /PCI /RB 0 0 0 0", user="nobody")
    told = json.loads(ran.stdout)
    assert (told["verdict"], told["status"], ran.returncode, ran.stderr) == ("refused", 6, 1, "")


def test_every_simulated_machine_is_whole(root):
    names = [line.split()[0] for line in root.must("hwreg-sim --boards").splitlines()]
    assert {"intel", "amd", "noiopl"} <= set(names)
    for name in names:
        ran = root.run(f"hwreg-sim --board {name} /IO /RB 0x61", user="nobody")
        assert ran.stderr == "" and ran.returncode < 0x80, name


def test_a_board_of_ones_own_can_include_an_installed_one(root):
    ran = root.run("cd /tmp; printf 'include /usr/share/hwreg/boards/intel.board\\nlatch 300 1 a5\\n' >mine.board; "
                   "hwreg-sim --board mine.board /IO /RB 0x300")
    assert ran.returncode == 0xA5


@pytest.mark.parametrize("page, text", [("hwreg", "/PCI"), ("hwreg-sim", "--board"), ("hwreg-capture", "--superio"),
                                        ("hwreg-check", "config-window"), ("hwreg-static", "/PCI"),
                                        ("hwreg-board", "import"), ("5 hwreg-board", "pci-ports")])
def test_man_finds_the_manual(root, page, text):
    ran = root.run(f"MANWIDTH=80 man --warnings {page} | col -b", user="nobody")
    assert text in ran.stdout and "NAME" in ran.stdout
    assert ran.stderr == ""
    assert page.split()[-1] in root.must(f"man -w {page}")


def test_the_help_screen_sends_to_a_reference_that_is_there(root):
    assert "ReadMe.doc" in root.run("hwreg-sim").stdout
    assert root.must("cat /usr/share/doc/hwreg/ReadMe.doc") == (TOP / "docs" / "commands.txt").read_text()


def test_the_page_on_boards_leads_to_a_machine(root):
    page = root.must("cat /usr/share/doc/hwreg-sim/boards.md")
    assert page.startswith("# Board files") and "## The log" in page and "Adding a device model" not in page


@pytest.mark.parametrize("command", ["hwreg", "hwreg-sim"])
def test_bash_completes_the_commands(root, command):
    loaded = (f". /usr/share/bash-completion/bash_completion; _completion_loader {command}; complete -p {command}; "
              f"COMP_WORDS=({command} /PC) COMP_CWORD=1; _hwreg {command}; echo $COMPREPLY")
    assert root.must(loaded).endswith(f"-F _hwreg {command}\n/PCI\n")


@pytest.mark.parametrize("link", ["zsh/vendor-completions/_hwreg", "fish/vendor_completions.d/hwreg.fish",
                                  "fish/vendor_completions.d/hwreg-board.fish"])
def test_the_files_of_other_shells_lead_to_what_they_ask(root, link):
    file = root.must(f"realpath -e /usr/share/{link}").strip()
    assert root.must(f"ls $(dirname {file})").split() == ["_hwreg", "candidates", "forms", "hwreg", "hwreg.fish"]


LOOK = """
import importlib.metadata, hwreg, sys
machine = hwreg.Machine(hwreg.Sim("intel", state="/tmp/state"))
print(hex(machine.pci.read(0, 0, 0, 0, 32)), machine.check("/IO", "/RB", "0x80").verdict, hwreg.__file__)
plugin, = importlib.metadata.entry_points(group="pytest11", name="hwreg.pytest_plugin")
print(plugin.value, importlib.metadata.version("hwreg"), "pytest" in sys.modules)
"""


@pytest.mark.parametrize("user", ["nobody", "root"])
def test_scripts_import_the_package(root, user, packages):
    ran = root.run("/usr/bin/python3", "-W", "error", "-c", LOOK, user=user)
    assert ran.stderr == ""
    assert ran.stdout == ("0x3e308086 works /usr/lib/python3/dist-packages/hwreg/__init__.py\n"
                          f"hwreg.pytest_plugin {field(packages['python3-hwreg'], 'Version')} False\n")
    root.must("rm /tmp/state /tmp/state.lock")


@pytest.mark.parametrize("name", ["simulated-board", "python", "static"])
def test_the_tests_that_debian_runs_pass(root, name):
    """As autopkgtest runs them, with what they ask for installed."""
    asked = re.search(rf"^Tests: {name}\nDepends: (.*)$", (TOP / "debian/tests/control").read_text(), re.MULTILINE)[1]
    root.must(f"dpkg -s {asked.replace(',', '')}")
    shutil.copy(TOP / "debian" / "tests" / name, root.path / "tmp" / "tried")
    root.must("mkdir -m 777 /tmp/adt && cd /tmp/adt && /tmp/tried; status=$?; rm -r /tmp/adt /tmp/tried; exit $status",
              AUTOPKGTEST_TMP="/tmp/adt")


# Removed (the last test: it takes the packages away)

def test_nothing_is_left_after_the_packages_are_purged(installed):
    root = installed.root
    paths = root.must(f"dpkg -L {' '.join(NAMES)}").split()
    root.must(f"apt-get purge -y {' '.join(NAMES)}")
    assert_same_files(installed.before, root.files())
    assert root.run("dpkg -s hwreg").returncode != 0
    assert [path for path in paths if "hwreg" in path and os.path.lexists(f"{root.path}{path}")] == []
    assert output("find", root.path / "var/lib/dpkg/info", "-name", "*hwreg*") == ""
