// acpi: root pointers, root tables and FADTs, made by choice, through AcpiTables.h, with pages that are
// refused. Asserted: the table that a plain walk over the same bytes finds, and the values of the FADT.
#include <errno.h>
#include <string.h>

#include "Base/Memory.h"
#include "BasicLib/PhysMem.h"
#include "Goal.h"
#include "Machine.h"
#include "Models.h"
#include "Platform/AcpiTables.h"
#include "Platform/MemSearch.h"
#include "tests/fuzz/Held.h"

namespace {

constexpr uint32_t BIOS_BYTES = BIOS_AREA_SIZE + PAGE_4KB;
constexpr uint32_t TABLES = 0x7FE00000;
constexpr uint32_t TABLES_BYTES = 4 * PAGE_4KB;
constexpr uint32_t XSDT_AT = 0;
constexpr uint32_t RSDT_AT = 0x800;
constexpr uint32_t FADT_AT = 0x1F80; // across a border
constexpr uint32_t OTHER_AT = 0x3000;
constexpr uint32_t NO_TABLE = 0xFFFFFFFF;
constexpr uint32_t SIGNATURE_OTHER = 0x43495041; // "APIC"

alignas(4096) uint8_t gBios[BIOS_BYTES];
alignas(4096) uint8_t gTables[TABLES_BYTES];
uint32_t gRefused; // the page that cannot be mapped, 0 for none
uint32_t gRootAt;

void Put32(uint32_t at, uint32_t value) {
    memcpy(gTables + at, &value, 4);
}

uint8_t ByteAt(uint32_t address) {
    if (gRefused != 0 && address - gRefused < PAGE_4KB)
        return 0xFF;
    return address - TABLES < TABLES_BYTES    ? gTables[address - TABLES]
           : address - BIOS_AREA < BIOS_BYTES ? gBios[address - BIOS_AREA]
                                              : 0xFF;
}

// As a copy sees it: zero behind the end of memory.
uint32_t Copied32(uint32_t address, uint32_t offset) {
    uint32_t value = 0;
    for (uint32_t i = 0; i < 4; i++)
        if (static_cast<uint64_t>(address) + offset + i < 0x100000000)
            value |= static_cast<uint32_t>(ByteAt(address + offset + i)) << (8 * i);
    return value;
}

// As a single access sees it: one that is refused reads FFFFh, and it takes two pages.
uint32_t Read32(uint32_t address) {
    uint32_t page = address & ~(PAGE_4KB - 1);
    if (gRefused != 0 && (gRefused == page || gRefused - PAGE_4KB == page))
        return 0xFFFF;
    uint32_t value = 0;
    for (uint32_t i = 0; i < 4; i++)
        value |= static_cast<uint32_t>(static_cast<uint64_t>(address) + i < 0x100000000 ? ByteAt(address + i)
                                                                                        : 0xFF)
                 << (8 * i);
    return value;
}

void PutRoot(Input *input, uint8_t form) {
    uint8_t root[RSDP_SIZE] = "RSD PTR ";
    uint32_t rsdt = form & 1 ? Take32(input) : form & 2 ? 0 : TABLES + RSDT_AT;
    uint32_t xsdt = form & 4 ? Take32(input) : form & 8 ? 0 : TABLES + XSDT_AT;
    memcpy(root + 0x10, &rsdt, 4);
    memcpy(root + 0x18, &xsdt, 4);
    root[0] = form & 0x10 ? 'r' : 'R';
    gRootAt = Take16(input) & (form & 0x20 ? 0xFFFF : 0xFFF0);
    memcpy(gBios + gRootAt, root, sizeof root);
}

// A root table with an entry for each byte of the input, or with any length.
void PutRootTable(Input *input, uint32_t at, uint32_t entrySize) {
    uint8_t count = TakeByte(input) % 24;
    uint32_t length = 36 + count * entrySize;
    memset(gTables + at, 0, 36);
    for (uint32_t i = 0; i < count; i++) {
        uint8_t choice = TakeByte(input);
        uint32_t entry = choice & 0x80 ? Take32(input) : TABLES + (choice & 0x40 ? FADT_AT : OTHER_AT);
        Put32(at + 36 + i * entrySize, entry);
        if (entrySize == 8)
            Put32(at + 40 + i * entrySize, choice & 0x20 ? 1 : 0);
    }
    uint8_t lie = TakeByte(input);
    if (lie == 0xA5)
        length = Take32(input); // of many entries, which takes its time
    else if (lie >= 0xF0)
        length = lie == 0xFF ? 0xFFFFFFFF : lie & 0x0F;
    Put32(at + 4, length);
}

void PutTables(Input *input) {
    uint8_t form = TakeByte(input);
    memset(gTables, 0, sizeof gTables); // nothing of the input before
    PutRootTable(input, XSDT_AT, 8);
    PutRootTable(input, RSDT_AT, 4);
    Put32(FADT_AT, form & 1 ? ACPI_SIGNATURE_FADT ^ 0x20 : ACPI_SIGNATURE_FADT);
    Put32(FADT_AT + 0x38, Take32(input));
    Put32(FADT_AT + 0x78, Take32(input));
    gTables[FADT_AT + 0x80] = TakeByte(input);
    Put32(OTHER_AT, SIGNATURE_OTHER);
    gRefused = form & 0xE0 ? 0 : TABLES + (form >> 2 & 3) * PAGE_4KB;
    if (gRefused != 0)
        RefusePage(gRefused, EPERM, true);
}

uint32_t ModelRoot() {
    const uint8_t anchor[] = {'R', 'S', 'D', ' ', 'P', 'T', 'R'};
    uint64_t end = FindWithoutGoingBack(gBios, BIOS_AREA_SIZE, anchor, sizeof anchor, 0);
    return end == NOT_THERE || end == BIOS_AREA_SIZE ? NO_TABLE : BIOS_AREA + static_cast<uint32_t>(end) - 7;
}

uint32_t ModelEntry(uint32_t table, uint32_t entrySize, uint32_t copied, uint32_t signature) {
    uint32_t length = Copied32(table, 4);
    if (table == 0 || length < 36 || length == 0xFFFFFFFF)
        return NO_TABLE;
    length = length > 0x10000 ? 0x10000 : length;
    for (uint32_t at = 36; at + entrySize <= length; at += entrySize) {
        uint32_t entry = at + entrySize <= copied ? Copied32(table, at) : Read32(table + at);
        if (Read32(entry) == signature)
            return entry;
    }
    return NO_TABLE;
}

uint32_t ModelFind(uint32_t root, uint32_t mode, uint32_t signature) {
    if (root == NO_TABLE || (mode != ACPI_XSDT_THEN_RSDT && mode != ACPI_RSDT_ONLY))
        return NO_TABLE;
    uint32_t found = NO_TABLE;
    if (mode == ACPI_XSDT_THEN_RSDT)
        found = ModelEntry(Copied32(root, 0x18), 8, 36 + 16 * 8, signature);
    return found != NO_TABLE ? found : ModelEntry(Copied32(root, 0x10), 4, 36 + 256 * 4, signature);
}

void CheckRoot(uint32_t root) {
    uint32_t address = 0;
    uint8_t *copy = nullptr;
    EFI_STATUS expected = root == NO_TABLE ? EFI_NOT_FOUND : EFI_SUCCESS;
    Expect(GetRSDPAddress(nullptr) == EFI_INVALID_PARAMETER, "no output");
    Expect(GetRSDPAddress(&address) == expected && address == (root == NO_TABLE ? 0 : root),
           "the root pointer");
    Expect(CopyRsdp(&copy) == expected && (copy != nullptr) == (root != NO_TABLE), "a copy of it");
    for (uint32_t i = 0; copy && i < RSDP_SIZE; i++)
        Expect(copy[i] == ByteAt(root + i), "a copy of it");
    Free(copy);
}

void CheckFind(uint32_t root, uint32_t mode, uint32_t signature) {
    uint32_t address = 0x1234;
    uint32_t expected = ModelFind(root, mode, signature);
    EFI_STATUS status = FindEntryInRsdp(mode, signature, &address);
    Expect(status == (expected == NO_TABLE ? EFI_NOT_FOUND : EFI_SUCCESS), "a table by its signature");
    Expect(address == (expected == NO_TABLE ? 0x1234 : expected), "the first table with that signature");
    RefuseBlock(mode);
    status = FindEntryInRsdp(mode, signature, &address);
    Expect(root == NO_TABLE || mode != 1 || status == EFI_OUT_OF_RESOURCES, "no memory for the root pointer");
    RefuseBlock(0);
}

void CheckFadt(uint32_t root) {
    uint32_t fadt = ModelFind(root, ACPI_XSDT_THEN_RSDT, ACPI_SIGNATURE_FADT);
    bool there = fadt != NO_TABLE && Copied32(fadt, 0) == ACPI_SIGNATURE_FADT;
    PmAddressRecord record = {1, 2, 3};
    Expect(AcpiGetPMAddress(&record) == (there ? EFI_SUCCESS : EFI_NOT_FOUND), "a FADT");
    PmAddressRecord expected = {1, 2, 3};
    if (there)
        expected = {static_cast<uint16_t>(Copied32(fadt, 0x38)), static_cast<uint16_t>(Copied32(fadt, 0x78)),
                    static_cast<uint8_t>(Copied32(fadt, 0x80))};
    Expect(record.pm1EventBlock == expected.pm1EventBlock && record.resetRegister == expected.resetRegister &&
               record.resetValue == expected.resetValue,
           "the values of the FADT, or none");
}

} // namespace

void FuzzAcpi(Input input) {
    const Machine none = {};
    StartMachine(&none);
    AddMemory(BIOS_AREA, gBios, BIOS_BYTES);
    AddMemory(TABLES, gTables, TABLES_BYTES);
    PutRoot(&input, TakeByte(&input));
    PutTables(&input);
    uint32_t root = ModelRoot();
    switch (TakeByte(&input) % 4) {
    case 0:
        CheckRoot(root);
        break;
    case 1:
        CheckFadt(root);
        break;
    default:
        CheckFind(root, TakeByte(&input) % 4, TakeByte(&input) & 1 ? SIGNATURE_OTHER : ACPI_SIGNATURE_FADT);
        break;
    }
    memset(gBios + gRootAt, 0, RSDP_SIZE);
    StopMachine();
}
