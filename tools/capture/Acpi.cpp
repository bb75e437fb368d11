#include "tools/capture/Acpi.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "Base/Memory.h"
#include "Platform/AcpiTables.h"
#include "tools/capture/Parts.h"
#include "tools/capture/Sheet.h"

constexpr uint32_t MOST_TABLES = 1024;
constexpr uint32_t MOST_ENTRIES = 0x10000 / 4; // of a root table: the commands look no further
constexpr uint32_t MOST_TABLE_BYTES = 8 << 20;
constexpr uint32_t MOST_LYING_BYTES = 0x10000; // of a table that says more: the commands look no further
constexpr uint32_t TABLE_HEADER = 36;
constexpr uint32_t LEAST_ROOT_BYTES = TABLE_HEADER + 256 * 4; // the commands copy that much, whatever it says
constexpr uint32_t LEAST_FADT_BYTES = 244;
constexpr uint32_t FADT_PM1A_EVT_BLK = 56;
constexpr uint32_t MCFG_SIGNATURE = 0x4746434D;
constexpr uint32_t MCFG_FIRST = 44;
constexpr uint32_t MCFG_ENTRY = 16;

static AcpiTable mTables[MOST_TABLES];
static uint32_t mCount = 0;

static bool IsSignature(const uint8_t *bytes) {
    for (int i = 0; i < 4; ++i) {
        if (isupper(bytes[i]) == 0 && isdigit(bytes[i]) == 0 && bytes[i] != '_')
            return false;
    }
    return true;
}

static bool IsKnown(uint32_t address) {
    for (uint32_t i = 0; i < mCount; ++i) {
        if (mTables[i].address == address)
            return true;
    }
    return false;
}

static bool AddsUp(const uint8_t *bytes, uint32_t length) {
    uint8_t sum = 0;
    for (uint32_t i = 0; i < length; ++i)
        sum = static_cast<uint8_t>(sum + bytes[i]);
    return sum == 0;
}

static const MemoryPart *AddTable(uint32_t address);

// A field of a table that holds an address, of 4 or 8 bytes.
static uint32_t AddressAt(const MemoryPart *part, uint32_t offset, uint32_t width) {
    if (offset + width > part->length)
        return 0;
    if (width == 8 && Load32(part->bytes + offset + 4) != 0) {
        Put("# missing: the table that %x of the one at %x names: above 4 GiB\n", offset, part->start);
        return 0;
    }
    return Load32(part->bytes + offset);
}

static void AddOf(const MemoryPart *part, uint32_t offset, uint32_t width) {
    uint32_t address = AddressAt(part, offset, width);
    if (address != 0)
        AddTable(address);
}

static void AddFadtTables(const MemoryPart *part) {
    AddOf(part, 36, 4);  // FIRMWARE_CTRL
    AddOf(part, 40, 4);  // DSDT
    AddOf(part, 132, 8); // X_FIRMWARE_CTRL
    AddOf(part, 140, 8); // X_DSDT
}

static void AddEntries(const MemoryPart *part, uint32_t width) {
    uint32_t length = Load32(part->bytes + 4);
    uint32_t count = length < TABLE_HEADER ? 0 : (length - TABLE_HEADER) / width;
    for (uint32_t i = 0; i < count && i < MOST_ENTRIES; ++i)
        AddOf(part, TABLE_HEADER + i * width, width);
}

// How much of a table is read: what it says, unless that cannot be.
static uint32_t BytesOf(const uint8_t *header) {
    uint32_t length = Load32(header + 4);
    if (length >= TABLE_HEADER && length <= MOST_TABLE_BYTES)
        return length;
    return length < TABLE_HEADER ? TABLE_HEADER : MOST_LYING_BYTES;
}

static const MemoryPart *AddTableBytes(uint32_t address, uint32_t least) {
    uint8_t header[TABLE_HEADER];
    if (IsKnown(address))
        return nullptr;
    if (mCount == MOST_TABLES) {
        Put("# missing: acpi table at %x: more than %u of them\n", address, MOST_TABLES);
        return nullptr;
    }
    int error = ReadPhysical(address, address > UINT32_MAX - TABLE_HEADER ? 0 : TABLE_HEADER, header);
    char name[32];
    snprintf(name, sizeof(name), "acpi table at %x", address);
    if (address > UINT32_MAX - TABLE_HEADER || error != 0) {
        PutMissing(name, error);
        return nullptr;
    }
    if (!IsSignature(header)) {
        Put("# missing: %s: no signature there\n", name);
        return nullptr;
    }
    uint32_t signature = Load32(header);
    uint32_t length = BytesOf(header);
    uint32_t said = Load32(header + 4);
    if (said != length)
        Put("# missing: %s: its length of %x bytes is taken for %x\n", name, said, length);
    const MemoryPart *part = AddPart(address, length, "acpi %.4s at %x, %u bytes",
                                     reinterpret_cast<const char *>(header), address, length);
    if (signature == ACPI_SIGNATURE_FADT)
        least = LEAST_FADT_BYTES;
    if (length < least && address <= UINT32_MAX - least)
        AddPart(address + length, least - length, "memory behind that table, which the commands copy");
    bool whole = part != nullptr && part->length == length && said == length;
    mTables[mCount++] = {address, signature, part != nullptr ? part->length : 0,
                         whole && AddsUp(part->bytes, length)};
    return part != nullptr && part->length >= TABLE_HEADER ? part : nullptr;
}

static const MemoryPart *AddTable(uint32_t address) {
    const MemoryPart *part = AddTableBytes(address, TABLE_HEADER);
    if (part != nullptr && Load32(part->bytes) == ACPI_SIGNATURE_FADT)
        AddFadtTables(part);
    return part;
}

static void AddRootTable(uint32_t address, uint32_t width) {
    if (address == 0)
        return;
    const MemoryPart *part = AddTableBytes(address, LEAST_ROOT_BYTES);
    if (part != nullptr)
        AddEntries(part, width);
}

void AddAcpi(uint32_t rootPointer, bool searched) {
    if (IsKnown(rootPointer) || mCount == MOST_TABLES)
        return;
    const MemoryPart *part = AddPart(rootPointer, RSDP_SIZE, "acpi root pointer at %x", rootPointer);
    if (part == nullptr || part->length < RSDP_SIZE)
        return;
    mTables[mCount++] = {rootPointer, 0, 0, false};
    bool second = part->bytes[15] >= 2;
    if (second && Load32(part->bytes + 28) != 0)
        Put("# missing: the XSDT of the root pointer at %x: above 4 GiB\n", rootPointer);
    if (second || searched)
        AddRootTable(Load32(part->bytes + 24), 8);
    AddRootTable(Load32(part->bytes + 16), 4);
}

uint32_t AcpiTableCount() {
    return mCount;
}

const AcpiTable *AcpiTableAt(uint32_t count) {
    return &mTables[count];
}

static const MemoryPart *PartOf(const AcpiTable *table) {
    const MemoryPart *part = FirstPart();
    while (part != nullptr && (part->start != table->address || part->length != table->length))
        part = part->next;
    return part;
}

uint16_t Pm1OfTables() {
    for (uint32_t i = 0; i < mCount; ++i) {
        const MemoryPart *part = mTables[i].signature == ACPI_SIGNATURE_FADT ? PartOf(&mTables[i]) : nullptr;
        if (part != nullptr && part->length >= LEAST_FADT_BYTES)
            return Load16(part->bytes + FADT_PM1A_EVT_BLK);
    }
    return 0;
}

int LastWindowBus(uint32_t base) {
    int last = -1;
    for (uint32_t i = 0; i < mCount; ++i) {
        const MemoryPart *part = mTables[i].signature == MCFG_SIGNATURE ? PartOf(&mTables[i]) : nullptr;
        for (uint32_t at = MCFG_FIRST; part != nullptr && at + MCFG_ENTRY <= part->length; at += MCFG_ENTRY) {
            const uint8_t *entry = part->bytes + at;
            if (Load32(entry) == base && Load32(entry + 4) == 0 && Load16(entry + 8) == 0)
                last = entry[11];
        }
    }
    return last;
}
