"""The Debian packages: built, looked at, installed into a clean Debian system, used there, and removed again.

As root; `prepare` makes the clean system. $HWREG_BUILD is the build folder (default: build/).
"""

import dataclasses
import json
import os
import pathlib
import re
import shutil
import stat
import subprocess

import pytest

TOP = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("HWREG_BUILD", TOP / "build")).resolve()
FOLDER = BUILD / "package"
READ_HOST = "PCI Read Byte BDFO: 0 0 0 0, return data:0x86\n"

# What changes whenever packages come and go, whatever they are.
BOOKKEEPING = ("proc", "dev", "tmp", "var/cache", "var/log", "var/lib/apt", "var/lib/dpkg", "root")


def output(*words, **options):
    return subprocess.run(words, stdout=subprocess.PIPE, text=True, check=True, **options).stdout


def build():
    return [pathlib.Path(path) for path in output(TOP / "packaging" / "build", FOLDER).split()]


@pytest.fixture(scope="session")
def packages():
    """The paths of the packages, freshly built: that of the target, that of the desk and that for scripts."""
    return build()


def field(package, name):
    return output("dpkg-deb", "-f", package, name).strip()


@dataclasses.dataclass
class Root:
    """A Debian system in a folder."""

    path: pathlib.Path

    def run(self, *words, user="root"):
        """Runs a command there, with the mounts that it needs for as long as it runs. A single word is for bash."""
        words = ["bash", "-c", words[0]] if len(words) == 1 else words
        environment = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root",
                       "LC_ALL": "C.UTF-8", "DEBIAN_FRONTEND": "noninteractive"}
        mounted = 'mount -t proc proc "$0/proc" && mount -t devpts devpts "$0/dev/pts" && exec chroot "$@"'
        inside = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-c", mounted, self.path]
        return subprocess.run([*inside, f"--userspec={user}", self.path, *words], env=environment, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=300, check=False)

    def must(self, *words):
        ran = self.run(*words)
        assert ran.returncode == 0, ran.stdout + ran.stderr
        return ran.stdout

    def files(self):
        """What lies there: for each path the kind and mode, for a file also its size and time of change."""
        found = {}
        for folder, folders, names in os.walk(self.path):
            inside = os.path.relpath(folder, self.path)
            folders[:] = [name for name in folders if os.path.normpath(f"{inside}/{name}") not in BOOKKEEPING]
            for name in folders + names:
                path = os.path.join(folder, name)
                status = os.lstat(path)
                contents = () if stat.S_ISDIR(status.st_mode) else (status.st_size, status.st_mtime_ns)
                found[os.path.relpath(path, self.path)] = (status.st_mode, *contents)
        return found


def assert_same_files(before, after):
    assert [path for path in after if path not in before] == [], "left behind"
    assert [path for path in before if path not in after] == [], "taken away"
    assert [path for path in before if before[path] != after[path]] == [], "changed"


@pytest.fixture(scope="session")
def clean(packages):
    """A copy of the clean system, with the packages' files in it."""
    environment = {**os.environ, "HWREG_BUILD": str(BUILD)}
    subprocess.run([TOP / "tests" / "package" / "prepare", *packages], env=environment, check=True)
    work = FOLDER / "work"
    shutil.rmtree(work, ignore_errors=True)
    subprocess.run(["cp", "-a", FOLDER / "root", work], check=True)
    for package in packages:
        shutil.copy(package, work / "root" / (field(package, "Package") + ".deb"))
    yield Root(work)
    shutil.rmtree(work)


@dataclasses.dataclass
class Installation:
    root: Root
    planned: set  # packages that apt would bring along into the clean system
    said: str  # what apt says when it installs ours on top of what they depend on
    before: dict  # the files before that
    target: dict  # the files with the target's package alone


@pytest.fixture(scope="session")
def installed(clean, packages):
    """The packages, installed with apt one after the other, what they depend on first."""
    plan = clean.must("apt-get install -s /root/hwreg.deb")
    ours = f"hwreg (= {field(packages[0], 'Version')}), "
    foreign = [field(package, "Depends").replace(ours, "") for package in packages]
    clean.must("apt-get", "satisfy", "-y", "--no-install-recommends", "--no-download", ", ".join(foreign))
    before = clean.files()
    said = clean.must("apt-get install -y /root/hwreg.deb")
    target = clean.files()
    said += clean.must("apt-get install -y /root/hwreg-sim.deb")
    said += clean.must("apt-get install -y /root/python3-hwreg.deb")
    return Installation(clean, set(re.findall(r"^Inst (\S+)", plan, re.MULTILINE)), said, before, target)


@pytest.fixture
def root(installed):
    return installed.root


# The file

def test_lintian_has_nothing_to_say(packages):
    ran = subprocess.run(["lintian", "--allow-root", "--display-info", "--pedantic", "--fail-on",
                          "error,warning,info,pedantic", *packages], capture_output=True, text=True, check=False)
    assert (ran.stdout, ran.returncode) == ("", 0)


@pytest.mark.parametrize("name", ["hwreg", "hwreg-sim"])
def test_each_override_gives_its_reason(name):
    lines = (TOP / "packaging" / f"{name}.lintian-overrides").read_text().splitlines()
    assert lines[0].startswith("# ")


def test_the_same_tree_gives_the_same_packages(packages):
    first = [package.read_bytes() for package in packages]
    assert [package.read_bytes() for package in build()] == first


def test_the_packages_carry_the_version_of_the_program(packages):
    project = re.search(r"project\(hwreg VERSION ([0-9.]+)", (TOP / "CMakeLists.txt").read_text()).group(1)
    assert {field(package, "Version") for package in packages} == {project}
    assert output("dpkg-parsechangelog", "-l", TOP / "packaging" / "changelog", "-S", "Version").strip() == project


def test_nothing_runs_when_they_are_installed_or_removed(packages):
    """But that Python's modules are compiled, as Debian does it."""
    scripts = {field(package, "Package"): re.findall(r"\b(?:pre|post)(?:inst|rm)\b",
                                                     output("dpkg-deb", "--info", package)) for package in packages}
    assert scripts == {"hwreg": [], "hwreg-sim": [], "python3-hwreg": ["postinst", "prerm"]}
    for script in ("postinst", "prerm"):
        words = set((TOP / "packaging" / "python3-hwreg" / script).read_text().split())
        assert words & {"rm", "chmod", "chown", "ln", "mkdir", "modprobe", "systemctl", "hwreg"} == set()


# Installed

def test_what_the_commands_need_comes_along(installed):
    assert {"hwreg", "kmod", "systemd-sysv"} <= installed.planned
    for program in ("modprobe", "shutdown", "clear"):
        assert installed.root.run(f"command -v {program}").returncode == 0


def test_nothing_else_is_needed(installed):
    assert installed.said.count("0 upgraded, 1 newly installed, 0 to remove") == 3


def test_a_target_gets_the_program_its_manual_and_nothing_of_the_desk(installed):
    new = {path for path in installed.target if path not in installed.before and "hwreg" in path}
    assert "usr/sbin/hwreg" in new
    assert [path for path in new if re.search(r"sim|board|\.so", path)] == []


def test_the_files_lie_where_they_are_looked_for(root):
    paths = set(root.must("dpkg -L hwreg hwreg-sim python3-hwreg").split())
    assert {"/usr/sbin/hwreg", "/usr/bin/hwreg-sim", "/usr/share/man/man8/hwreg.8.gz",
            "/usr/share/man/man1/hwreg-sim.1.gz", "/usr/share/man/man5/hwreg-board.5.gz",
            "/usr/share/bash-completion/completions/hwreg",
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
            "/usr/share/doc/python3-hwreg/labs.md"} <= paths
    assert all(path == "/." or path.startswith("/usr") for path in paths)


def test_the_example_scripts_can_be_copied_and_run(root):
    ran = root.run("cp /usr/share/doc/hwreg/examples/cycle /tmp && CYCLE_FOLDER=/tmp /tmp/cycle report; rm /tmp/cycle")
    assert ran.stdout.startswith("counted:             none of 1000\n") and ran.stderr == ""
    ran = root.run("cd /usr/share/doc/hwreg/examples; export HWREG=hwreg-sim HWREG_CHECK=true; "
                   "./registers registers.list /tmp/table; cat /tmp/table; rm -f /tmp/table /run/lock/hwreg.lock")
    assert "\nhost-bridge          0x3E308086 " in ran.stdout and ran.stderr == ""


@pytest.mark.parametrize("words", ["", "/PCI /RB 0 0 0 0", "/MEM /H"])
def test_the_program_ends_silently_with_6_without_privilege(root, words):
    ran = root.run(f"hwreg {words}", user="nobody")
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
                                        ("hwreg-check", "config-window"),
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
                          f"hwreg.pytest_plugin {field(packages[2], 'Version')} False\n")
    root.must("rm /tmp/state /tmp/state.lock")


# Removed (the last test: it takes the packages away)

def test_nothing_is_left_after_the_packages_are_purged(installed):
    root = installed.root
    paths = root.must("dpkg -L hwreg hwreg-sim python3-hwreg").split()
    root.must("apt-get purge -y hwreg hwreg-sim python3-hwreg")
    assert_same_files(installed.before, root.files())
    assert root.run("dpkg -s hwreg").returncode != 0
    assert [path for path in paths if "hwreg" in path and os.path.lexists(f"{root.path}{path}")] == []
    assert output("find", root.path / "var/lib/dpkg/info", "-name", "*hwreg*") == ""
