#include "tools/check/machine/Tables.h"

#include <cstdio>
#include <cstring>

#include "Base/Memory.h"
#include "BasicLib/PhysMem.h"
#include "Platform/AcpiTables.h"
#include "Platform/MemSearch.h"
#include "tools/check/machine/KernelFiles.h"
#include "tools/check/machine/MemoryDoor.h"
#include "tools/check/machine/Note.h"
#include "tools/check/machine/Smbios.h"

constexpr uint32_t RSDP_FIRST_PART = 20; // that the checksum of revision 0 covers

static TableState mSmbios = TABLE_UNKNOWN;
static TableState mRsdp = TABLE_UNKNOWN;
static SpdState mSpd = SPD_UNKNOWN;

static void NoteSmbios() {
    const char *why = "";
    mSmbios = FindSmbios(&why);
    switch (mSmbios) {
    case TABLE_RIGHT:
        return Note(FINDING_SMBIOS, STATE_GOOD, "the SMBIOS table is where the commands look, at %xh",
                    SmbiosAddress());
    case TABLE_WRONG:
        Note(FINDING_SMBIOS, STATE_BAD,
             "the commands take memory at %xh for the SMBIOS table, which it is not (%s): they search below "
             "1 MiB without a "
             "checksum, and begin at a border of 64 KiB",
             SmbiosAddress(), why);
        return Remedy(FINDING_SMBIOS, "take it from the kernel: dmidecode, /sys/firmware/dmi/tables/DMI");
    case TABLE_NONE:
        Note(FINDING_SMBIOS, STATE_BAD,
             "the commands find no SMBIOS table: neither the firmware's table file nor "
             "F0000h-FFFFFh names one");
        return Remedy(FINDING_SMBIOS, "take it from the kernel: dmidecode, /sys/firmware/dmi/tables/DMI");
    case TABLE_REFUSED: {
        FindingName reason =
            MemoryError() != 0 ? FINDING_DEV_MEM : ReasonOfPage(SmbiosAddress(), PageError(SmbiosAddress()));
        Note(FINDING_SMBIOS, STATE_BAD, "the memory that holds the SMBIOS table is not granted; see %s",
             FindingOf(reason)->name);
        return Remedy(FINDING_SMBIOS, "%s", RemedyOfPage(reason));
    }
    default:
        Note(FINDING_SMBIOS, STATE_UNKNOWN, "what is at %xh was not read", SmbiosAddress());
    }
}

static bool IsRootPointer(uint32_t address) {
    uint8_t *bytes = CopyPhysical(address, RSDP_SIZE);
    uint8_t sum = 0;
    for (uint32_t i = 0; bytes != nullptr && i < RSDP_FIRST_PART; ++i)
        sum = static_cast<uint8_t>(sum + bytes[i]);
    bool is = bytes != nullptr && sum == 0 && memcmp(bytes, "RSD PTR ", 8) == 0;
    Free(bytes);
    return is;
}

static void NoteRsdp() {
    uint32_t address = 0;
    if (MemoryError() != 0 || PageError(BIOS_AREA) != 0) {
        mRsdp = TABLE_REFUSED;
        return Note(FINDING_RSDP, STATE_BAD, "the memory below 1 MiB is not granted; see dev-mem");
    }
    if (GetRSDPAddress(&address) != EFI_SUCCESS) {
        mRsdp = TABLE_NONE;
        bool elsewhere = FileExists("/sys/firmware/acpi/tables/FACP");
        Note(FINDING_RSDP, STATE_BAD,
             "there is no ACPI root pointer in F0000h-FFFFFh, where /ACPI and /RTC look%s",
             elsewhere ? "; UEFI firmware has put it elsewhere" : "");
        return Remedy(FINDING_RSDP,
                      "take ACPI tables from the kernel: /sys/firmware/acpi/tables; /RTC takes the power "
                      "management block from the chipset instead");
    }
    mRsdp = IsRootPointer(address) ? TABLE_RIGHT : TABLE_WRONG;
    if (mRsdp == TABLE_RIGHT)
        return Note(FINDING_RSDP, STATE_GOOD, "the ACPI root pointer is at %xh", address);
    Note(FINDING_RSDP, STATE_BAD,
         "the commands take a text at %xh for the ACPI root pointer, which it is not: they look at "
         "no checksum",
         address);
    Remedy(FINDING_RSDP, "take ACPI tables from the kernel: /sys/firmware/acpi/tables");
}

// Kinds of memory (DMTF DSP0134, 7.18.2) by what hwreg reads of their SPD.
struct MemoryKind {
    const char *name;
    uint8_t type;
    bool whole;
};

static const MemoryKind mKinds[] = {
    {"DDR", 0x12, true},    {"DDR2", 0x13, true},    {"DDR3", 0x18, true},    {"DDR4", 0x1A, true},
    {"LPDDR", 0x1B, false}, {"LPDDR2", 0x1C, false}, {"LPDDR3", 0x1D, false}, {"LPDDR4", 0x1E, false},
    {"DDR5", 0x22, false},  {"LPDDR5", 0x23, false},
};

constexpr uint8_t TYPE_MEMORY = 17;
constexpr uint32_t MEMORY_SIZE = 0x0C;
constexpr uint32_t MEMORY_TYPE = 0x12;
constexpr uint32_t MOST_ADDRESSED = 6; // modules that hwreg takes for such by their address: A0h to AAh

static void NoteSpd() {
    SmbiosTable table = SmbiosOfMachine();
    const uint8_t *structure = table.begin;
    const MemoryKind *kind = nullptr;
    uint32_t modules = 0;
    while (structure != nullptr && (structure = FindSmbiosType(table, structure, TYPE_MEMORY)) != nullptr) {
        bool there = structure[1] > MEMORY_TYPE && Load16(structure + MEMORY_SIZE) != 0;
        for (const MemoryKind &known : mKinds) {
            if (there && structure[MEMORY_TYPE] == known.type)
                kind = &known;
        }
        modules += there ? 1 : 0;
        structure += GetStructureLength(structure);
    }
    if (kind == nullptr)
        return Note(FINDING_SPD, STATE_UNKNOWN, "of what kind the memory modules are is not told%s",
                    table.begin == nullptr ? " (the SMBIOS table cannot be read)" : "");
    mSpd = !kind->whole ? SPD_PARTLY : modules <= MOST_ADDRESSED ? SPD_WHOLE : SPD_FIRST;
    if (mSpd == SPD_WHOLE)
        return Note(FINDING_SPD, STATE_GOOD, "memory is %s: /SMBUS /DUMP reads the whole SPD", kind->name);
    if (kind->whole)
        Note(FINDING_SPD, STATE_CAUTION,
             "%u modules of %s: those at ACh and AEh show their first 256 bytes alone", modules, kind->name);
    else
        Note(FINDING_SPD, STATE_CAUTION,
             "memory is %s: its SPD is not in two pages as DDR4's, /SMBUS /DUMP shows 256 bytes "
             "that are not all of it, or a hub's registers",
             kind->name);
    Remedy(FINDING_SPD,
           "read it through the kernel: modprobe ee1004 or spd5118, and the file eeprom of the module");
}

void FindTables() {
    NoteSmbios();
    NoteRsdp();
    NoteSpd();
}

TableState SmbiosState() {
    return mSmbios;
}

TableState RsdpState() {
    return mRsdp;
}

SpdState SpdOfMemory() {
    return mSpd;
}
