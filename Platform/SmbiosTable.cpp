#include "Platform/SmbiosTable.h"

#include <cstdlib>

#include "Base/Memory.h"
#include "Base/Text.h"
#include "BasicLib/Driver.h"
#include "BasicLib/PhysMem.h"
#include "Common/ComFunc/MemoryLadder.h"
#include "Common/FileLib.h"
#include "Platform/MemSearch.h"

constexpr uint32_t DMI_ANCHOR = 0x494D445F; // "_DMI"
constexpr int SYSTAB_LINE = 63;             // 62 characters and the NUL
constexpr uint8_t TYPE_PROCESSOR = 4;

const SmbiosEntryLayout gSmbiosEntry32 = {32, 0x16, 0x18, 0x06, 0x10};
const SmbiosEntryLayout gSmbiosEntry64 = {24, 0x0C, 0x10, 0x07, 0};

constexpr size_t LOADED_COPIES = 16;

// The copies that were loaded last, the oldest first; end is NULL in a free place. By these alone the
// procedures that are given a bare pointer know where its table ends. A copy that its owner frees without
// ReleaseTable stays here until another one is loaded where it lay.
static SmbiosTable mLoadedCopies[LOADED_COPIES];

// True where a copy, its guard included, holds the address.
static bool Holds(SmbiosTable copy, const uint8_t *address) {
    return copy.end != nullptr && copy.begin <= address && address <= copy.end + SMBIOS_GUARD;
}

static void Forget(size_t place) {
    for (; place + 1 < LOADED_COPIES; ++place)
        mLoadedCopies[place] = mLoadedCopies[place + 1];
    mLoadedCopies[place] = {nullptr, nullptr};
}

static void Remember(SmbiosTable loaded) {
    for (size_t place = LOADED_COPIES; place-- > 0;) {
        if (Holds(mLoadedCopies[place], loaded.begin) || Holds(loaded, mLoadedCopies[place].begin))
            Forget(place);
    }
    if (mLoadedCopies[LOADED_COPIES - 1].end != nullptr)
        Forget(0);
    size_t place = 0;
    while (mLoadedCopies[place].end != nullptr)
        ++place;
    mLoadedCopies[place] = loaded;
}

// Copies a table into a block with room for the guard.
static void CopyTable(uint32_t address, uint32_t length, uint8_t *block) {
    Memset(block, 0, length + SMBIOS_GUARD);
    MemDump(address, length, block);
    Remember({block, block + length});
}

void ReleaseTable(uint8_t *table) {
    for (size_t place = 0; table != nullptr && place < LOADED_COPIES; ++place) {
        if (mLoadedCopies[place].begin == table)
            Forget(place);
    }
    Free(table);
}

SmbiosTable SmbiosTableAround(const uint8_t *structure) {
    for (SmbiosTable copy : mLoadedCopies) {
        if (Holds(copy, structure))
            return copy;
    }
    return {structure, nullptr};
}

// Copies the table that the entry point at an address describes; without the memory device there is none.
static EFI_STATUS CopyByEntryPoint(uint32_t entryPoint, const SmbiosEntryLayout *layout, uint8_t **table,
                                   uint32_t *length) {
    if (gMemFd == MEM_FD_NONE)
        return EFI_NOT_FOUND;
    uint32_t size = MemRead16(entryPoint + layout->lengthOffset) & 0xFFFF;
    uint32_t address = MemRead32(entryPoint + layout->addressOffset);
    uint8_t *block = static_cast<uint8_t *>(Malloc(size + SMBIOS_GUARD));
    if (block == nullptr)
        return EFI_NOT_FOUND;
    CopyTable(address, size, block);
    *table = block;
    *length = size;
    return EFI_SUCCESS;
}

const SmbiosEntryLayout *SmbiosOfSystabLine(char *line, uint32_t *entryPoint) {
    char *value = line;
    while (*value != 0 && *value != '=')
        ++value;
    if (*value == 0)
        return nullptr;
    *value++ = 0;
    *entryPoint = static_cast<uint32_t>(strtoull(value, nullptr, 0));
    if (Strcmp(line, "SMBIOS3") == 0)
        return &gSmbiosEntry64;
    return Strcmp(line, "SMBIOS") == 0 ? &gSmbiosEntry32 : nullptr;
}

// The first line in file order wins.
static EFI_STATUS LoadBySystab(FILE *systab, uint8_t **table, uint32_t *length) {
    char line[SYSTAB_LINE];
    while (fgets(line, sizeof(line), systab) != nullptr) {
        uint32_t entryPoint;
        const SmbiosEntryLayout *layout = SmbiosOfSystabLine(line, &entryPoint);
        if (layout != nullptr)
            return CopyByEntryPoint(entryPoint, layout, table, length);
    }
    return EFI_NOT_FOUND;
}

EFI_STATUS GetFwTableLinux(uint8_t **table, uint32_t *length) {
    FILE *systab = Fopen("/sys/firmware/efi/systab", "r");
    if (systab == nullptr)
        systab = Fopen("/proc/efi/systab", "r");
    if (systab == nullptr)
        return LoadLegacySmbiosTypes(table, length) == EFI_SUCCESS ? EFI_SUCCESS : EFI_NOT_FOUND;
    EFI_STATUS status = LoadBySystab(systab, table, length);
    Fclose(systab);
    return status;
}

EFI_STATUS LoadSmbios(uint8_t **table, uint32_t *length) {
    *table = nullptr;
    *length = 0;
    return GetFwTableLinux(table, length);
}

// Address of the first "_SM_" entry point, or of the second anchor when the first one has no "_DMI" behind
// it; the second is used as found. 0 without one.
static uint32_t FindEntry32() {
    constexpr uint32_t anchorLength = 4;
    uint32_t pos = 0;
    if (SearchFromMemReadByte(BIOS_AREA, BIOS_AREA_SIZE, "_SM_", &pos, 1) != EFI_SUCCESS)
        return 0;
    uint32_t entry = BIOS_AREA + pos - anchorLength;
    if (MemRead32(entry + gSmbiosEntry32.anchorOffset) == DMI_ANCHOR)
        return entry;
    if (SearchFromMemReadByte(BIOS_AREA, BIOS_AREA_SIZE, "_SM_", &pos, 0) != EFI_SUCCESS)
        return 0;
    return BIOS_AREA + pos - anchorLength;
}

static uint32_t FindEntry64() {
    constexpr uint32_t anchorLength = 5;
    uint32_t pos = 0;
    if (SearchFromMemReadByte(BIOS_AREA, BIOS_AREA_SIZE, "_SM3_", &pos, 1) != EFI_SUCCESS)
        return 0;
    return BIOS_AREA + pos - anchorLength;
}

EFI_STATUS GetSmbiosVersion(uint8_t **entryPoint, uint8_t *version) {
    if (entryPoint == nullptr || version == nullptr)
        return EFI_INVALID_PARAMETER;
    const SmbiosEntryLayout *layout = &gSmbiosEntry64;
    uint32_t address = FindEntry64();
    if (address == 0) {
        layout = &gSmbiosEntry32;
        address = FindEntry32();
    }
    if (address == 0)
        return EFI_NOT_FOUND;
    // Room for either layout: an odd version byte may choose the other one's offsets.
    uint8_t *copy = static_cast<uint8_t *>(Malloc(gSmbiosEntry32.size));
    if (copy == nullptr)
        return EFI_OUT_OF_RESOURCES;
    Memset(copy, 0, gSmbiosEntry32.size);
    MemDump(address, layout->size, copy);
    *version = copy[layout->majorOffset];
    if (layout == &gSmbiosEntry32 && *version > 2)
        *version = 2;
    *entryPoint = copy;
    return EFI_SUCCESS;
}

EFI_STATUS LegacySmbiosStructTableAddress(uint32_t *address, uint16_t *length) {
    uint8_t *entryPoint = nullptr;
    uint8_t version;
    EFI_STATUS status = GetSmbiosVersion(&entryPoint, &version);
    if (status != EFI_SUCCESS)
        return status;
    const SmbiosEntryLayout *layout = version > 2 ? &gSmbiosEntry64 : &gSmbiosEntry32;
    *address = Load32(entryPoint + layout->addressOffset);
    *length = Load16(entryPoint + layout->lengthOffset);
    Free(entryPoint);
    return EFI_SUCCESS;
}

EFI_STATUS LoadLegacySmbiosTypes(uint8_t **table, uint32_t *length) {
    *table = nullptr;
    *length = 0;
    uint32_t address;
    uint16_t size;
    EFI_STATUS status = LegacySmbiosStructTableAddress(&address, &size);
    if (status != EFI_SUCCESS)
        return status == EFI_OUT_OF_RESOURCES ? status : EFI_ABORTED;
    uint8_t *block = nullptr;
    uint32_t got = 0;
    if (GetMaxAllocMemory(&block, &got, size + SMBIOS_GUARD) != EFI_SUCCESS)
        return EFI_OUT_OF_RESOURCES;
    if (got < size + SMBIOS_GUARD) {
        Free(block);
        return EFI_OUT_OF_RESOURCES;
    }
    CopyTable(address & 0xFFFF0000, size, block);
    *table = block;
    *length = size;
    return EFI_SUCCESS;
}

// True behind the last byte of a loaded copy: a structure that begins inside it can reach into its guard.
static bool IsBehind(SmbiosTable table, const uint8_t *structure) {
    return table.end != nullptr && table.end <= structure;
}

bool IsSmbiosEnd(SmbiosTable table, const uint8_t *structure) {
    return IsBehind(table, structure) || structure[0] == SMBIOS_TYPE_END;
}

uint32_t GetStructureLength(const uint8_t *structure) {
    uint32_t position = structure[1];
    while (Load16(structure + position) != 0)
        ++position;
    return position + 2;
}

static uint32_t TotalSize(SmbiosTable table) {
    const uint8_t *structure = table.begin;
    while (!IsSmbiosEnd(table, structure))
        structure += GetStructureLength(structure);
    if (!IsBehind(table, structure))
        structure += GetStructureLength(structure);
    return static_cast<uint32_t>(structure - table.begin);
}

uint16_t GetTotalStructureSize(const uint8_t *table) {
    return static_cast<uint16_t>(TotalSize({table, SmbiosTableAround(table).end}));
}

const uint8_t *FindSmbiosType(SmbiosTable table, const uint8_t *start, uint8_t type) {
    while (!IsSmbiosEnd(table, start)) {
        if (start[0] == type)
            return start;
        start += GetStructureLength(start);
    }
    return type == SMBIOS_TYPE_END && !IsBehind(table, start) ? start : nullptr;
}

const uint8_t *SearchSmbiosType(const uint8_t *start, uint8_t type) {
    return FindSmbiosType(SmbiosTableAround(start), start, type);
}

uint32_t GetCPUSpeedSmb() {
    constexpr uint32_t maximumSpeed = 0x14;
    constexpr uint32_t currentSpeed = 0x16;
    uint8_t *table;
    uint32_t length;
    if (LoadSmbios(&table, &length) != EFI_SUCCESS)
        return 0xFFFFFFFF;
    uint32_t speed = 0xFFFFFFFF;
    const uint8_t *processor = FindSmbiosType({table, table + length}, table, TYPE_PROCESSOR);
    if (processor != nullptr)
        speed = (static_cast<uint32_t>(Load16(processor + currentSpeed)) << 16) |
                Load16(processor + maximumSpeed);
    ReleaseTable(table);
    return speed;
}

uint16_t GetCpuCurrentSpeed() {
    return static_cast<uint16_t>(GetCPUSpeedSmb() >> 16);
}
