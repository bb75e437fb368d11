"""What was imported is exported with the same bytes, and a machine is no different from itself."""

import subprocess

from acpi_dump import tables_in, tables_of
from collection import only
from cpu_dump import of_cpuid_r, processors_of
from program import tool
from small_dumps import cmos_of
from smbios_dump import TABLE_AT, is_entry, table_address, table_of
from test_acpi import imported as acpi_board
from test_cpu import imported as cpuid_board
from test_recordings import cmos_board
from test_smbios import has_table
from test_smbios import imported as smbios_board


def exported(make, dump, folder, option):
    """What comes out of the machine, which is no different from itself imported again."""
    board, other = make(dump, folder), make(dump, folder, "other")
    assert tool("diff", board, other) == b""
    return tool("export", option, "-", board)


@only(has_table)
def test_smbios_tables_come_back(smbios_dump, tmp_path):
    """An entry point is given the table's place in the file, as dmidecode does it."""
    data = smbios_dump.bytes()
    back = exported(smbios_board, smbios_dump, tmp_path, "--dmi")
    assert table_of(back) == table_of(data)
    if is_entry(data) and table_address(data) == TABLE_AT:
        assert back == data


def test_cpuid_leaves_come_back(cpuid_msr_dump, tmp_path):
    """Where all processors are alike, one is written."""
    back = of_cpuid_r(exported(cpuid_board, cpuid_msr_dump, tmp_path, "--cpuid").decode())
    processors = processors_of(cpuid_msr_dump)[0]
    assert {cpu: back.get(cpu, back[0]) for cpu in processors} == processors


def test_acpi_tables_come_back(acpi_dump, tmp_path):
    text = exported(acpi_board, acpi_dump, tmp_path, "--acpi").decode()
    wanted = sorted(data for _, _, data in tables_of(acpi_dump))
    assert sorted(data for _, _, data in tables_in(text)) == wanted
    (tmp_path / "dump").write_text(text)
    subprocess.run(["acpixtract", "-a", "dump"], cwd=tmp_path, capture_output=True, check=True)
    assert sorted(path.read_bytes() for path in tmp_path.glob("*.dat")) == wanted


def test_cmos_bytes_come_back(cmos_dump, tmp_path):
    banks = cmos_of(cmos_dump)
    back = exported(cmos_board, cmos_dump, tmp_path, "--cmos")
    assert back == banks[0x70] + banks[0x72]
