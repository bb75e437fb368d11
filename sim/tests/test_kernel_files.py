"""The kernel's files on a machine: those that its lines name, those that it has of itself, and no others."""

import pathlib
import subprocess

import pytest
from harness import BUILD, board_file

LOCKDOWN = "/sys/kernel/security/lockdown"


@pytest.fixture
def read(tmp_path):
    """read(path, *lines, board=...) -> what `cat` finds in the file there, its complaint, and the log."""

    def go(path, *lines, board="intel", program=("cat",)):
        log = tmp_path / "log"
        log.unlink(missing_ok=True)
        environment = {"HWBOARD": str(board_file(tmp_path, board, lines)), "HWBOARD_LOG": str(log), "LC_ALL": "C",
                       "LD_PRELOAD": str(BUILD / "libhwboard.so"), "PATH": "/usr/bin:/bin"}
        ran = subprocess.run([*program, path], env=environment, capture_output=True, check=False)
        assert ran.returncode != 125, ran.stderr
        said = log.read_text().splitlines() if log.exists() else []
        return ran.stdout, ran.stderr.decode().rpartition(": ")[2].strip(), said

    return go


def test_lines_make_a_file(read):
    lines = [f'file "{LOCKDOWN}" "none [integrity] confidentiality"', 'file "/proc/cmdline" "quiet"',
             f'file "{LOCKDOWN}" "more"']
    assert read(LOCKDOWN, *lines) == (
        b"none [integrity] confidentiality\nmore\n", "", [f"open {LOCKDOWN} rdonly -> ok"])
    assert read("/proc/cmdline", *lines)[0] == b"quiet\n"


def test_bytes_make_a_file(read):
    path = "/sys/firmware/acpi/tables/MCFG"
    lines = [f'file-bytes "{path}" 4 10 ??', f'file-bytes "{path}" 0 4d', f'file-bytes "{path}" 1000 5a']
    assert read(path, *lines)[0] == b"\x4d\0\0\0\x10\xff" + bytes(0xFFA) + b"\x5a"


def test_lines_and_bytes_go_together(read):
    assert read("/proc/x", 'file "/proc/x" "abc"', 'file-bytes "/proc/x" 1 58')[0] == b"aXc\n"


def test_a_file_may_refuse_to_open_and_may_be_taken_away(read):
    refused = f'file "{LOCKDOWN}" EACCES'
    assert read(LOCKDOWN, refused) == (b"", "Permission denied", [f"open {LOCKDOWN} rdonly -> EACCES"])
    assert read(LOCKDOWN, refused, f'file "{LOCKDOWN}" "open"')[0] == b"open\n"
    assert read(LOCKDOWN, f'file "{LOCKDOWN}" "open"', f'file "{LOCKDOWN}" ENOENT')[1] == "No such file or directory"
    assert read("/proc/bus/pci/devices", 'file "/proc/bus/pci/devices" ENOENT')[1] == "No such file or directory"


@pytest.mark.parametrize("path", ["/proc/version", "/proc/iomem", "/proc/ioports", "/proc/bus/pci/00/00.0",
                                  "/sys/devices/system/cpu/kernel_max"])
def test_what_the_host_has_the_machine_has_not(read, path):
    assert path.startswith(("/proc/bus", "/proc/io")) or pathlib.Path(path).read_text()
    assert read(path) == (b"", "No such file or directory", [f"open {path} rdonly -> ENOENT"])


def test_folders_are_not_listed(read):
    assert read("/sys/class/net", program=["ls"])[1] == "No such file or directory"
    assert read("/usr", program=["ls"])[0] == subprocess.run(["ls", "/usr"], capture_output=True, check=True).stdout


def test_a_folder_that_a_machine_has_not_is_not_the_hosts(read):
    for path in ("/etc/modprobe.d", "/etc/modprobe.d/", "/sys", "/run/systemd"):
        assert read(path, program=["ls"])[:2] == (b"", "No such file or directory")
    assert read("/proc/self/fd", program=["ls"])[0].startswith(b"0")


@pytest.mark.parametrize("path, expected", [("/proc/self/comm", b"cat\n"), ("/etc/hostname", None)])
def test_the_process_and_other_files_are_the_hosts(read, path, expected):
    assert read(path) == (pathlib.Path(path).read_bytes() if expected is None else expected, "", [])


def test_any_other_file_may_be_named(read):
    assert read("/etc/hostname", 'file "/etc/hostname" "board"')[0] == b"board\n"


def test_they_are_read_and_not_written(run):
    words = f"open {LOCKDOWN} w open {LOCKDOWN} rwc open /proc/none rwc open {LOCKDOWN} re write 3 x close 3"
    result = run(words, extra=f'file "{LOCKDOWN}" "none"', program="hwboard_probe")
    assert result.text.splitlines() == ["open EACCES", "open EACCES", "open ENOENT", "open 3", "write EBADF", "close 0"]
    assert result.log[-1] == f"open {LOCKDOWN} rdonly cloexec -> ok"


def test_each_opening_has_a_place_of_its_own(run):
    words = "fopen /proc/cmdline r fgets fopen /proc/cmdline r fgets fclose"
    result = run(words, extra=['file "/proc/cmdline" "one"'], program="hwboard_probe")
    assert result.text.splitlines().count("line one") == 2


# What a machine has of itself


def config(bus, device, function):
    return f"/sys/bus/pci/devices/0000:{bus:02x}:{device:02x}.{function}/config"


def test_functions_have_their_configuration_space(read):
    found, complaint, log = read(config(0, 0x1F, 4))
    assert (len(found), found[:4].hex(), found[0x40], complaint) == (256, "8680 23a3".replace(" ", ""), 1, "")
    assert log == [f"open {config(0, 0x1F, 4)} rdonly -> ok"]
    assert len(read(config(1, 0, 0))[0]) == 4096
    assert read(config(0, 9, 0))[1] == "No such file or directory"
    assert read("/sys/bus/pci/devices/0000:00:1f.8/config")[1] == "No such file or directory"
    assert read("/sys/bus/pci/devices/0000:0:1f.4/config")[1] == "No such file or directory"


def test_the_window_shows_what_the_ports_do_not(read):
    found = read(config(0, 9, 0), "pci 00:09.0 verbatim", "config 40 11", "config 100 22", "window 40 33",
                 "window 100 44")[0]  # fmt: skip
    assert (found[0x40], found[0x100]) == (0x11, 0x44)


def test_the_list_of_functions_is_as_the_kernel_writes_it(read):
    found = read("/proc/bus/pci/devices", "pci 00:03.0 8086:1533 class 020000", "bar 0 mem64 123dd000000 1000",
                 "bar 2 io e000 20", "irq b 1")[0].decode()  # fmt: skip
    (line,) = [line for line in found.splitlines() if line.startswith("0018")]
    fields = line.split("\t")
    assert fields[:3] == ["0018", "80861533", "b"] and len(fields) == 18
    assert [field.strip() for field in fields[3:10]] == ["123dd000004", "0", "e001", "0", "0", "0", "0"]
    assert all(len(field) == 16 for field in fields[3:17]) and fields[17] == ""
    assert [line[:4] for line in found.splitlines()] == sorted(line[:4] for line in found.splitlines())


@pytest.mark.parametrize("name", ["online", "present", "possible"])
@pytest.mark.parametrize("cpus", ["0", "0-3", "0-2,5,7-8", "0-1023"])
def test_the_processors_are_listed(read, name, cpus):
    assert read(f"/sys/devices/system/cpu/{name}", f"cpus {cpus}")[0] == f"{cpus}\n".encode()


@pytest.mark.parametrize("nodes, module, builtin", [("always", False, True), ("modprobe", True, False),
                                                    ("never", False, False)])
def test_the_module_for_msrs_is_where_the_nodes_come_from(read, nodes, module, builtin):
    line = f"msr-nodes {nodes}"
    assert read("/lib/modules/6.1.0-1-amd64/modules.dep", line)[0] == b"kernel/arch/x86/kernel/msr.ko:\n" * module
    assert read("/lib/modules/6.1.0-1-amd64/modules.builtin", line)[0] == b"kernel/arch/x86/kernel/msr.ko\n" * builtin
    there = "" if module else "No such file or directory"
    assert read("/lib/modules/6.1.0-1-amd64/kernel/arch/x86/kernel/msr.ko", line)[:2] == (b"", there)
    assert read("/lib/modules/6.1.0-1-amd64/modules.alias", line)[1] == "No such file or directory"
