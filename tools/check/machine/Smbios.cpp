#include "tools/check/machine/Smbios.h"

#include <cstdio>
#include <cstring>

#include "Base/Memory.h"
#include "BasicLib/PhysMem.h"
#include "Common/FileLib.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/MemoryDoor.h"
#include "tools/check/machine/MemoryMap.h"

constexpr uint32_t MOST_TABLE_BYTES = 0x100000;
constexpr uint32_t COPY_BORDER = 0xFFFF0000; // the commands copy a legacy table from there on
constexpr uint32_t BIOS_ROMS = 0xC0000;
constexpr uint32_t FIRST_MIB = 0x100000;
constexpr uint32_t LEAST_STRUCTURE = 4;

// Where the commands take the table from, or where the kernel has found it.
struct TablePlace {
    uint64_t address;
    uint32_t length;
};

static TablePlace mPlace;
static bool mRight = false; // what is in memory
static uint8_t mKernels[MOST_TABLE_BYTES + SMBIOS_GUARD];
static uint32_t mKernelsLength = 0;
static uint8_t *mCopy = nullptr;
static uint32_t mCopyLength = 0;

// As the commands do: the firmware's table file, else a search below 1 MiB.
static bool TakeSystab(FILE *file) {
    char line[KERNEL_LINE];
    while (NextLine(file, line)) {
        uint32_t entry = 0;
        const SmbiosEntryLayout *layout = SmbiosOfSystabLine(line, &entry);
        if (layout == nullptr)
            continue;
        mPlace = {MemRead32(entry + layout->addressOffset), MemRead16(entry + layout->lengthOffset) & 0xFFFF};
        return true;
    }
    return false;
}

static bool TakeLegacy() {
    uint32_t address = 0;
    uint16_t length = 0;
    if (LegacySmbiosStructTableAddress(&address, &length) != EFI_SUCCESS)
        return false;
    mPlace = {address & COPY_BORDER, length};
    return true;
}

static bool TakePlace() {
    FILE *file = Fopen("/sys/firmware/efi/systab", "r");
    if (file == nullptr)
        file = Fopen("/proc/efi/systab", "r");
    if (file == nullptr)
        return TakeLegacy();
    bool taken = TakeSystab(file);
    Fclose(file);
    return taken;
}

// What the kernel's entry point says; length 0 without one.
static TablePlace KernelsPlace() {
    uint8_t entry[64];
    uint32_t got = ReadWhole("/sys/firmware/dmi/tables/smbios_entry_point", entry, sizeof(entry));
    if (got >= gSmbiosEntry64.size && memcmp(entry, "_SM3_", 5) == 0)
        return {Load32(entry + gSmbiosEntry64.addressOffset) |
                    static_cast<uint64_t>(Load32(entry + gSmbiosEntry64.addressOffset + 4)) << 32,
                Load32(entry + gSmbiosEntry64.lengthOffset)};
    if (got >= gSmbiosEntry32.size - 1 && memcmp(entry, "_SM_", 4) == 0)
        return {Load32(entry + gSmbiosEntry32.addressOffset), Load16(entry + gSmbiosEntry32.lengthOffset)};
    return {0, 0};
}

static int ErrorOfPages() {
    int error = 0;
    uint64_t page = mPlace.address - mPlace.address % PAGE_4KB;
    for (; error == 0 && page < mPlace.address + mPlace.length; page += PAGE_4KB)
        error = PageError(static_cast<uint32_t>(page));
    return error;
}

// Reading what is no memory may order a device to do something.
static bool IsMemory(uint64_t address) {
    static const char *const names[] = {"System RAM",  "Reserved",   "reserved",
                                        "ACPI Tables", "System ROM", "ACPI Non-volatile Storage"};
    const Resource *list;
    const Resource *claimant = ClaimantOf(address);
    if (MemoryMap(&list) == 0 || (address >= BIOS_ROMS && address < FIRST_MIB))
        return true;
    for (const char *name : names) {
        if (claimant != nullptr && strcmp(claimant->name, name) == 0)
            return true;
    }
    return false;
}

// Structures one behind the other up to the last byte, or to one that ends the table.
static bool IsTable(const uint8_t *bytes, uint32_t length) {
    uint32_t at = 0;
    while (at + LEAST_STRUCTURE <= length) {
        bool ones = bytes[at] == 0xFF && bytes[at + 1] == 0xFF; // nobody is there
        if (bytes[at + 1] < LEAST_STRUCTURE || ones)
            return false;
        if (bytes[at] == SMBIOS_TYPE_END)
            return true;
        at += GetStructureLength(bytes + at);
    }
    return at != 0 && at == length;
}

static TableState JudgeByLook(const char **why) {
    *why = "there is something else in that place";
    if (!IsMemory(mPlace.address) || !IsMemory(mPlace.address + mPlace.length))
        return TABLE_WRONG;
    mCopy = static_cast<uint8_t *>(Malloc(mPlace.length + SMBIOS_GUARD));
    if (mCopy == nullptr)
        return TABLE_UNKNOWN;
    memset(mCopy, 0, mPlace.length + SMBIOS_GUARD);
    MemDump(static_cast<uint32_t>(mPlace.address), mPlace.length, mCopy);
    mCopyLength = mPlace.length;
    uint32_t both = mPlace.length < mKernelsLength ? mPlace.length : mKernelsLength;
    mRight = both != 0 ? memcmp(mCopy, mKernels, both) == 0 : IsTable(mCopy, mCopyLength);
    return mRight ? TABLE_RIGHT : TABLE_WRONG;
}

TableState FindSmbios(const char **why) {
    *why = "";
    mKernelsLength = ReadWhole("/sys/firmware/dmi/tables/DMI", mKernels, MOST_TABLE_BYTES);
    if (MemoryError() != 0)
        return TABLE_REFUSED;
    if (!TakePlace())
        return TABLE_NONE;
    if (mPlace.length == 0 || ErrorOfPages() != 0)
        return mPlace.length == 0 ? TABLE_WRONG : TABLE_REFUSED;
    TablePlace kernels = KernelsPlace();
    bool same = kernels.length != 0 && mPlace.address == kernels.address &&
                mPlace.length == (kernels.length & 0xFFFF);
    if (same)
        return TABLE_RIGHT;
    return JudgeByLook(why);
}

uint32_t SmbiosAddress() {
    return static_cast<uint32_t>(mPlace.address);
}

SmbiosTable SmbiosOfMachine() {
    if (mKernelsLength != 0)
        return {mKernels, mKernels + mKernelsLength};
    if (mRight)
        return {mCopy, mCopy + mCopyLength};
    return {nullptr, nullptr};
}
