#include "tools/capture/Firmware.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Base/Memory.h"
#include "Common/FileLib.h"
#include "Platform/AcpiTables.h"
#include "Platform/MemSearch.h"
#include "Platform/SmbiosTable.h"
#include "tools/capture/Acpi.h"
#include "tools/capture/Parts.h"
#include "tools/capture/Sheet.h"

constexpr uint32_t AREA_START = 0xE0000;
constexpr uint32_t AREA_BYTES = 0x20000;
constexpr uint32_t ANCHOR_STEP = 16; // entry points begin at such borders (DSP0134, 5.2)
constexpr uint32_t MOST_SMBIOS_BYTES = 0x40000;
constexpr uint32_t MOST_ENTRIES = 16;
constexpr uint32_t COPY_BORDER = 0xFFFF0000; // the commands copy a legacy table from there on
constexpr int MOST_LINES = 64;

static SmbiosRange mTables[MOST_ENTRIES];
static uint32_t mCount = 0;

static bool IsKnown(SmbiosRange table) {
    for (uint32_t i = 0; i < mCount; ++i) {
        if (mTables[i].address == table.address && mTables[i].length == table.length)
            return true;
    }
    return false;
}

// The table that an entry point's bytes describe.
static SmbiosRange TableOf(const uint8_t *entry, const SmbiosEntryLayout *layout) {
    uint32_t length = layout == &gSmbiosEntry64 ? Load32(entry + layout->lengthOffset)
                                                : Load16(entry + layout->lengthOffset);
    uint32_t address = Load32(entry + layout->addressOffset);
    if (layout == &gSmbiosEntry64 && Load32(entry + layout->addressOffset + 4) != 0)
        Put("# missing: smbios table: above 4 GiB; the commands look for it at %x\n", address);
    if (length > MOST_SMBIOS_BYTES)
        Put("# missing: smbios table at %x: its length of %x bytes is taken for %x\n", address, length,
            MOST_SMBIOS_BYTES);
    return {address, length < MOST_SMBIOS_BYTES ? length : MOST_SMBIOS_BYTES};
}

static void AddTable(SmbiosRange table) {
    if (table.length == 0 || IsKnown(table))
        return;
    if (mCount == MOST_ENTRIES)
        return Put("# missing: smbios table at %x: more than %u of them\n", table.address, MOST_ENTRIES);
    mTables[mCount++] = table;
    uint32_t skip = table.address & ~COPY_BORDER;
    if (skip != 0)
        AddPart(table.address & COPY_BORDER, skip, "memory in front of the smbios table");
    AddPart(table.address, table.length, "smbios table");
}

// An entry point that stands outside of the BIOS area.
static void AddEntryPoint(uint32_t address, const SmbiosEntryLayout *layout) {
    const MemoryPart *part = AddPart(address, layout->size, "smbios entry point");
    if (part != nullptr && part->length == layout->size)
        AddTable(TableOf(part->bytes, layout));
}

static void AddEntryPointsOf(const MemoryPart *area) {
    for (uint32_t at = 0; at + gSmbiosEntry32.size <= area->length; at += ANCHOR_STEP) {
        if (memcmp(area->bytes + at, "_SM3_", 5) == 0)
            AddTable(TableOf(area->bytes + at, &gSmbiosEntry64));
        else if (memcmp(area->bytes + at, "_SM_", 4) == 0)
            AddTable(TableOf(area->bytes + at, &gSmbiosEntry32));
    }
}

// What the commands take, wherever its anchor stands.
static void AddLegacyTable() {
    uint32_t address = 0;
    uint16_t length = 0;
    if (LegacySmbiosStructTableAddress(&address, &length) != EFI_SUCCESS)
        return;
    AddTable({address, length});
    AddPart(address & COPY_BORDER, length, "memory that is copied for the smbios table");
}

// Takes what a line of the system table file leads to.
static void FollowSystab(char *line) {
    uint32_t address = 0;
    const SmbiosEntryLayout *layout = SmbiosOfSystabLine(line, &address); // cuts the line at the "="
    if (layout != nullptr)
        AddEntryPoint(address, layout);
    else if (strcmp(line, "ACPI20") == 0 || strcmp(line, "ACPI") == 0)
        AddAcpi(address, false);
}

static void PutSystab(const char *kind, const char *path) {
    FILE *file = Fopen(path, "r");
    if (file == nullptr) {
        if (errno != ENOENT && errno != ENOTDIR)
            Put("systab %s %s\n", kind, ErrorName(errno));
        return;
    }
    char line[256];
    int count = 0;
    for (; count < MOST_LINES && fgets(line, sizeof(line), file) != nullptr; ++count) {
        line[strcspn(line, "\n\"")] = 0;
        Put("systab %s \"%s\"\n", kind, line);
        FollowSystab(line);
    }
    if (count == 0)
        Put("systab %s \"\"\n", kind); // it is there and says nothing
    Fclose(file);
}

void ReadFirmware() {
    uint32_t rootPointer = 0;
    AddPart(AREA_START, AREA_BYTES, "bios area");
    AddLegacyTable(); // in front of all others, of which there may be too many
    for (const MemoryPart *part = FirstPart(); part != nullptr && part->start < AREA_START + AREA_BYTES;
         part = part->next)
        AddEntryPointsOf(part);
    if (GetRSDPAddress(&rootPointer) == EFI_SUCCESS)
        AddAcpi(rootPointer, true);
    PutSystab("sys", "/sys/firmware/efi/systab");
    PutSystab("proc", "/proc/efi/systab");
}

uint32_t SmbiosCount() {
    return mCount;
}

SmbiosRange SmbiosAt(uint32_t count) {
    return mTables[count];
}
