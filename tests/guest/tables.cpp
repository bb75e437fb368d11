// Prints what no command shows of the firmware tables: the FADT's values and the processor's speeds.
#include <cstdio>

#include "BasicLib/Driver.h"
#include "Platform/AcpiTables.h"
#include "Platform/SmbiosTable.h"

int main() {
    if (OpenLinuxDriver() != EFI_SUCCESS)
        return 1;
    PmAddressRecord record = {};
    EFI_STATUS status = AcpiGetPMAddress(&record);
    printf("%08llx %04x %04x %02x\n", static_cast<unsigned long long>(status), record.pm1EventBlock,
           record.resetRegister, record.resetValue);
    uint32_t xsdtOrRsdt = 0;
    uint32_t rsdtOnly = 0;
    FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, ACPI_SIGNATURE_FADT, &xsdtOrRsdt);
    FindEntryInRsdp(ACPI_RSDT_ONLY, ACPI_SIGNATURE_FADT, &rsdtOnly);
    printf("%08x %08x\n", xsdtOrRsdt, rsdtOnly);
    printf("%u %u\n", GetCPUSpeedSmb() >> 16, GetCPUSpeedSmb() & 0xFFFF);
    printf("%u\n", GetCpuCurrentSpeed());
    CloseLinuxDriver();
    return 0;
}
