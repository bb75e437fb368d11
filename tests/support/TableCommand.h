// The firmware-table commands as the program carries them out between its start and its end.
#pragma once

// The first word behind the program's name is /SMBIOS or /ACPI, or one of two that no command has: SPEED for
// GetCpuCurrentSpeed, GetTotalStructureSize and the searches and views that load the table themselves, FADT
// for AcpiGetPMAddress and FindEntryInRsdp.
void RunTableCommand(int argc, char **argv);
