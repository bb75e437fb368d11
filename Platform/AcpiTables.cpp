#include "Platform/AcpiTables.h"

#include "Base/Memory.h"
#include "BasicLib/PhysMem.h"
#include "Platform/MemSearch.h"

constexpr uint32_t RSDP_RSDT_ADDRESS = 0x10;
constexpr uint32_t RSDP_XSDT_ADDRESS = 0x18; // low half
constexpr uint32_t SDT_LENGTH = 0x04;
constexpr uint32_t SDT_HEADER = 36;
constexpr uint32_t SDT_LENGTH_LIMIT = 0x10000;
constexpr uint32_t FADT_SIZE = 244;
constexpr uint32_t FADT_PM1A_EVT_BLK = 0x38;
constexpr uint32_t FADT_RESET_ADDRESS = 0x78; // of the address structure at 0x74, low 16 bits
constexpr uint32_t FADT_RESET_VALUE = 0x80;

// A root table: how much of it is copied and how wide its entries are.
struct RootTable {
    uint32_t addressOffset;
    uint32_t copySize;
    uint32_t entrySize;
};

static const RootTable mXsdt = {RSDP_XSDT_ADDRESS, SDT_HEADER + 16 * 8, 8};
static const RootTable mRsdt = {RSDP_RSDT_ADDRESS, SDT_HEADER + 256 * 4, 4};

EFI_STATUS GetRSDPAddress(uint32_t *address) {
    if (address == nullptr)
        return EFI_INVALID_PARAMETER;
    constexpr uint32_t anchorLength = 7;
    uint32_t pos = 0;
    if (SearchFromMemReadByte(BIOS_AREA, BIOS_AREA_SIZE, "RSD PTR", &pos, 1) != EFI_SUCCESS)
        return EFI_NOT_FOUND;
    *address = BIOS_AREA + pos - anchorLength;
    return EFI_SUCCESS;
}

// Entry i, from the copy as far as it goes and then from the table itself. Of 64-bit entries the low half.
static uint32_t RootEntry(const RootTable *kind, uint32_t table, const uint8_t *copy, uint32_t i) {
    uint32_t offset = SDT_HEADER + kind->entrySize * i;
    return offset + kind->entrySize <= kind->copySize ? Load32(copy + offset) : MemRead32(table + offset);
}

// What a table's length makes of entries. Above the limit it is a lie, but the first entries may be true; all
// ones is a table that could not be read.
static uint32_t EntryCount(const RootTable *kind, uint32_t length) {
    if (length < SDT_HEADER || length == 0xFFFFFFFF)
        return 0;
    if (length > SDT_LENGTH_LIMIT)
        length = SDT_LENGTH_LIMIT;
    return (length - SDT_HEADER) / kind->entrySize;
}

static EFI_STATUS SearchRootTable(const RootTable *kind, const uint8_t *rsdp, uint32_t signature,
                                  uint32_t *address) {
    uint32_t table = Load32(rsdp + kind->addressOffset);
    if (table == 0)
        return EFI_NOT_FOUND;
    uint8_t *copy = CopyPhysical(table, kind->copySize);
    if (copy == nullptr)
        return EFI_OUT_OF_RESOURCES;
    EFI_STATUS status = EFI_NOT_FOUND;
    uint32_t count = EntryCount(kind, Load32(copy + SDT_LENGTH));
    for (uint32_t i = 0; i < count && status != EFI_SUCCESS; ++i) {
        uint32_t entry = RootEntry(kind, table, copy, i);
        if (MemRead32(entry) == signature) {
            *address = entry;
            status = EFI_SUCCESS;
        }
    }
    Free(copy);
    return status;
}

EFI_STATUS CopyRsdp(uint8_t **rsdp) {
    uint32_t address;
    EFI_STATUS status = GetRSDPAddress(&address);
    if (status != EFI_SUCCESS)
        return status;
    *rsdp = CopyPhysical(address, RSDP_SIZE);
    return *rsdp == nullptr ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS;
}

EFI_STATUS FindEntryInRsdp(uint32_t mode, uint32_t signature, uint32_t *address) {
    uint8_t *rsdp;
    EFI_STATUS status = CopyRsdp(&rsdp);
    if (status != EFI_SUCCESS)
        return status;
    status = EFI_NOT_FOUND;
    if (mode == ACPI_XSDT_THEN_RSDT)
        status = SearchRootTable(&mXsdt, rsdp, signature, address);
    if (status != EFI_SUCCESS && (mode == ACPI_XSDT_THEN_RSDT || mode == ACPI_RSDT_ONLY))
        status = SearchRootTable(&mRsdt, rsdp, signature, address);
    Free(rsdp);
    return status;
}

EFI_STATUS AcpiGetPMAddress(PmAddressRecord *record) {
    uint32_t address;
    EFI_STATUS status = FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, ACPI_SIGNATURE_FADT, &address);
    if (status != EFI_SUCCESS)
        return status;
    uint8_t *fadt = CopyPhysical(address, FADT_SIZE);
    if (fadt == nullptr)
        return EFI_OUT_OF_RESOURCES;
    if (Load32(fadt) != ACPI_SIGNATURE_FADT) { // refused this time: its ones are no port numbers
        Free(fadt);
        return EFI_NOT_FOUND;
    }
    record->pm1EventBlock = static_cast<uint16_t>(Load32(fadt + FADT_PM1A_EVT_BLK));
    record->resetRegister = static_cast<uint16_t>(Load32(fadt + FADT_RESET_ADDRESS));
    record->resetValue = fadt[FADT_RESET_VALUE];
    Free(fadt);
    return EFI_SUCCESS;
}
