// smbios: entry points in the BIOS area and tables of structures, made by choice, through SmbiosTable.h.
// Asserted: the entry point, the table and the structures that a plain walk over the same bytes finds; that
// the walks end at the table's end whatever it says (its copy has a block of its own, so that the sanitizer
// sees its end); and which of the loaded copies holds an address.
#include <stdlib.h>
#include <string.h>

#include "Base/Memory.h"
#include "BasicLib/PhysMem.h"
#include "Goal.h"
#include "Machine.h"
#include "Models.h"
#include "Platform/MemSearch.h"
#include "Platform/SmbiosTable.h"
#include "tests/fuzz/Held.h"

namespace {

constexpr uint32_t BIOS_BYTES = BIOS_AREA_SIZE + PAGE_4KB; // an access near the end maps a page behind it
constexpr uint32_t TABLE = 0xD0000;
constexpr uint32_t TABLE_BYTES = 4 * PAGE_4KB;
constexpr uint32_t MOST_STRUCTURES = 12;
constexpr uint32_t REMEMBERED = 16; // of loaded copies
constexpr uint32_t MOST_LOADS = 20;

alignas(4096) uint8_t gBios[BIOS_BYTES];
alignas(4096) uint8_t gTable[TABLE_BYTES];
uint32_t gTableLength;

// Entry points overwrite each other where they are put at one place.
struct Written {
    uint32_t at, length;
};
Written gWritten[8];
size_t gWrittenCount;

void PutBios(uint32_t at, const void *bytes, uint32_t length) {
    memcpy(gBios + at, bytes, length);
    gWritten[gWrittenCount++] = {at, length};
}

void ClearBios() {
    while (gWrittenCount > 0) {
        const Written *written = &gWritten[--gWrittenCount];
        memset(gBios + written->at, 0, written->length);
    }
}

void PutEntry(Input *input) {
    uint8_t kind = TakeByte(input);
    bool wide = (kind & 1) != 0;
    uint8_t entry[32];
    for (uint8_t &byte : entry)
        byte = kind & 0x80 ? TakeByte(input) : 0;
    memcpy(entry, wide ? "_SM3_" : "_SM_", wide ? 5 : 4);
    if (kind & 2)
        memcpy(entry + (wide ? 0 : 0x10), wide ? "_SM3_" : "_DMI_", 5);
    entry[wide ? 7 : 6] = kind & 4 ? TakeByte(input) : wide ? 3 : 2;
    uint32_t address = kind & 8 ? Take32(input) : TABLE + TakeByte(input);
    uint16_t length = kind & 16 ? Take16(input) & 0x3FFF : static_cast<uint16_t>(gTableLength);
    memcpy(entry + (wide ? 0x10 : 0x18), &address, 4);
    memcpy(entry + (wide ? 0x0C : 0x16), &length, 2);
    uint32_t at = kind & 32 ? Take16(input) : TakeByte(input) * 16u;
    PutBios(kind & 64 ? BIOS_AREA_SIZE - 1 - TakeByte(input) : at, entry, wide ? 24 : 32);
}

// A structure: its formatted part, strings, and two zeros; one byte may say otherwise.
uint32_t PutStructure(Input *input, uint32_t at) {
    const uint8_t types[] = {0, 1, 4, 17, 126, 127, 4, 255};
    uint8_t form = TakeByte(input);
    uint8_t length = form & 8 ? TakeByte(input) : 4 + TakeByte(input) % 32;
    gTable[at] = types[form & 7];
    gTable[at + 1] = length;
    uint32_t end = at + (length < 4 ? 4 : length);
    for (uint32_t i = at + 2; i < end; i++)
        gTable[i] = form & 16 ? TakeByte(input) : static_cast<uint8_t>(i);
    for (uint8_t strings = form >> 5 & 3; strings > 0; strings--) {
        for (uint8_t letters = TakeByte(input) % 16; letters > 0; letters--)
            gTable[end++] = 'A';
        gTable[end++] = 0;
    }
    gTable[end++] = 0;
    if (form & 0x80)
        gTable[end++] = 0;
    return end;
}

void PutTable(Input *input) {
    uint32_t end = 0;
    memset(gTable, 0, sizeof gTable); // nothing of the input before
    for (uint32_t count = TakeByte(input) % (MOST_STRUCTURES + 1); count > 0; count--)
        end = PutStructure(input, end);
    memset(gTable + end, TakeByte(input) & 1 ? 0xFF : 0, PAGE_4KB);
    gTableLength = end;
}

uint64_t FindAnchor(const char *anchor, uint64_t from) {
    const uint8_t *text = reinterpret_cast<const uint8_t *>(anchor);
    uint64_t end = FindWithoutGoingBack(gBios, BIOS_AREA_SIZE, text, strlen(anchor), from);
    return end == NOT_THERE || end == BIOS_AREA_SIZE ? NOT_THERE : end;
}

// Offset of the entry point that counts in the BIOS area. Behind an anchor that is none the search goes on,
// and sees no more of that page.
uint64_t ModelEntry(bool *wide) {
    uint64_t end = FindAnchor("_SM3_", 0);
    *wide = end != NOT_THERE;
    if (*wide)
        return end - 5;
    end = FindAnchor("_SM_", 0);
    if (end == NOT_THERE || memcmp(gBios + end - 4 + 0x10, "_DMI", 4) == 0)
        return end == NOT_THERE ? end : end - 4;
    uint64_t next = (end + PAGE_4KB - 1) / PAGE_4KB * PAGE_4KB;
    end = FindAnchor("_SM_", next);
    return end == NOT_THERE ? end : end - 4;
}

struct ModelTable {
    bool there;
    uint8_t version;
    uint32_t address;
    uint16_t length;
};

ModelTable ModelOfTable() {
    bool wide;
    uint64_t entry = ModelEntry(&wide);
    if (entry == NOT_THERE)
        return {};
    uint8_t copy[32] = {};
    memcpy(copy, gBios + entry, wide ? 24 : 32);
    ModelTable model = {true, copy[wide ? 7 : 6], 0, 0};
    model.version = !wide && model.version > 2 ? 2 : model.version;
    bool readsWide = model.version > 2;
    memcpy(&model.address, copy + (readsWide ? 0x10 : 0x18), 4);
    memcpy(&model.length, copy + (readsWide ? 0x0C : 0x16), 2);
    return model;
}

uint8_t ByteAt(uint32_t address) {
    return address - TABLE < TABLE_BYTES      ? gTable[address - TABLE]
           : address - BIOS_AREA < BIOS_BYTES ? gBios[address - BIOS_AREA]
                                              : 0xFF;
}

// Where the structure at that place ends: behind its double zero, of which what lies behind the table counts.
uint32_t ModelNext(const uint8_t *table, uint32_t length, uint32_t at) {
    uint32_t place = at + (at + 1 < length ? table[at + 1] : 0);
    while ((place < length && table[place] != 0) || (place + 1 < length && table[place + 1] != 0))
        place++;
    return place + 2;
}

uint32_t ModelFind(const uint8_t *table, uint32_t length, uint8_t type, bool *found) {
    uint32_t at = 0;
    while (at < length && table[at] != SMBIOS_TYPE_END && table[at] != type)
        at = ModelNext(table, length, at);
    *found = at < length && table[at] == type;
    return at;
}

void CheckWalk(const uint8_t *table, uint32_t length, uint8_t type) {
    bool found;
    uint32_t at = ModelFind(table, length, type, &found);
    const uint8_t *expected = found ? table + at : nullptr;
    Expect(FindSmbiosType({table, table + length}, table, type) == expected, "the first structure of a type");
    Expect(SearchSmbiosType(table, type) == expected, "the same from a bare pointer into a copy");
    bool ended;
    uint32_t total = ModelFind(table, length, SMBIOS_TYPE_END, &ended);
    if (ended)
        total = ModelNext(table, length, total);
    Expect(GetTotalStructureSize(table) == static_cast<uint16_t>(total), "the size of all structures");
    for (uint32_t place = 0, next; place < length; place = next) {
        next = ModelNext(table, length, place);
        Expect(GetStructureLength(table + place) == next - place, "the length of a structure");
        Expect(IsSmbiosEnd({table, table + length}, table + place) == (table[place] == SMBIOS_TYPE_END),
               "an end");
    }
    Expect(IsSmbiosEnd({table, table + length}, table + length), "the table's end is an end");
}

uint8_t *CheckLoad(const ModelTable *model) {
    uint8_t *table;
    uint32_t length;
    EFI_STATUS status = LoadLegacySmbiosTypes(&table, &length);
    Expect(status == (model->there ? EFI_SUCCESS : EFI_ABORTED), "a table is loaded when it is there");
    if (!model->there) {
        Expect(table == nullptr && length == 0, "no table");
        return nullptr;
    }
    Expect(length == model->length, "the length is that of the entry point");
    uint32_t start = model->address & 0xFFFF0000;
    for (uint32_t i = 0; i < length; i++)
        Expect(table[i] == (start + static_cast<uint64_t>(i) < 0x100000000 ? ByteAt(start + i) : 0),
               "a copy");
    Expect(AllBytes(table + length, 0, SMBIOS_GUARD), "zeros guard the end");
    return table;
}

void CheckEntry(const ModelTable *model) {
    uint8_t *entry = nullptr;
    uint8_t version = 0;
    Expect(GetSmbiosVersion(&entry, &version) == (model->there ? EFI_SUCCESS : EFI_NOT_FOUND),
           "an entry point");
    Expect(version == model->version, "the major version");
    Free(entry);
    uint8_t *table;
    uint32_t length;
    RefuseBlock(1);
    Expect(GetSmbiosVersion(&entry, &version) == (model->there ? EFI_OUT_OF_RESOURCES : EFI_NOT_FOUND),
           "no memory");
    RefuseBlock(1);
    Expect(LoadLegacySmbiosTypes(&table, &length) == (model->there ? EFI_OUT_OF_RESOURCES : EFI_ABORTED),
           "the same");
    RefuseBlock(0);
    Expect(GetSmbiosVersion(nullptr, &version) == EFI_INVALID_PARAMETER &&
               GetSmbiosVersion(&entry, nullptr) == EFI_INVALID_PARAMETER,
           "no output");
}

// A block of the table's own size and its guard, of which the procedures know nothing but what they are told.
void CheckOwnTable(uint8_t type) {
    uint8_t *table = static_cast<uint8_t *>(calloc(1, gTableLength + SMBIOS_GUARD));
    memcpy(table, gTable, gTableLength);
    bool found;
    uint32_t at = ModelFind(table, gTableLength, type, &found);
    Expect(FindSmbiosType({table, table + gTableLength}, table, type) == (found ? table + at : nullptr),
           "the first structure of a type");
    for (uint32_t place = 0, next; place < gTableLength; place = next) {
        next = ModelNext(table, gTableLength, place);
        Expect(GetStructureLength(table + place) == next - place, "the length of a structure");
    }
    Expect(SmbiosTableAround(table).end == nullptr, "nobody's copy");
    bool ended;
    ModelFind(table, gTableLength, SMBIOS_TYPE_END, &ended);
    if (ended)
        Expect(SearchSmbiosType(table, type) == (found ? table + at : nullptr), "a table that ends itself");
    free(table);
}

// Some copies at a time: the last ones are known by the addresses within them, guard and all.
void CheckCopies(const ModelTable *model, uint32_t count) {
    uint8_t *copies[MOST_LOADS];
    for (uint32_t i = 0; i < count; i++)
        copies[i] = CheckLoad(model);
    count = model->there ? count : 0;
    if (count == 3) { // one that its owner has freed, and another one in its place
        Free(copies[2]);
        copies[2] = CheckLoad(model);
    }
    for (uint32_t i = 0; i < count; i++) {
        bool known = count - i <= REMEMBERED;
        const uint8_t *begin = SmbiosTableAround(copies[i] + model->length + SMBIOS_GUARD - 1).begin;
        Expect(!known || begin == copies[i], "a copy is known by its last byte");
        Expect(!known || SmbiosTableAround(copies[i]).end == copies[i] + model->length,
               "a copy knows its end");
    }
    for (uint32_t i = 0; i < count; i++)
        ReleaseTable(copies[i]);
    ReleaseTable(nullptr);
    Expect(count == 0 || SmbiosTableAround(copies[0]).end == nullptr, "what was released is known no more");
}

void CheckLine(Input *input) {
    const char *const names[] = {"SMBIOS", "SMBIOS3", "ACPI20", "SMBIOS="};
    uint8_t choice = TakeByte(input);
    char *text = TakeText(input, 40);
    char line[64] = {};
    if (choice & 0x80)
        strcat(strcat(line, names[choice & 3]), "=0x");
    strcat(line, text);
    char cut[64];
    strcpy(cut, line);
    uint32_t address = 0;
    const SmbiosEntryLayout *layout = SmbiosOfSystabLine(cut, &address);
    const char *value = strchr(line, '=');
    size_t name = value ? static_cast<size_t>(value - line) : 0;
    bool narrow = name == 6 && memcmp(line, "SMBIOS", 6) == 0;
    bool wide = name == 7 && memcmp(line, "SMBIOS3", 7) == 0;
    Expect(layout == (narrow ? &gSmbiosEntry32
                      : wide ? &gSmbiosEntry64
                             : nullptr),
           "the name in front of the sign");
    Expect(!value || address == static_cast<uint32_t>(strtoull(value + 1, nullptr, 0)),
           "the number behind it");
    free(text);
}

} // namespace

void FuzzSmbios(Input input) {
    const Machine none = {};
    uint8_t form = TakeByte(&input);
    uint8_t type = TakeByte(&input);
    if (form % 16 == 15)
        return CheckLine(&input);
    PutTable(&input);
    if (form % 16 < 10)
        return CheckOwnTable(type);
    StartMachine(&none);
    AddMemory(BIOS_AREA, gBios, BIOS_BYTES);
    AddMemory(TABLE, gTable, TABLE_BYTES);
    for (uint32_t entries = form >> 6; entries > 0; entries--)
        PutEntry(&input);
    ModelTable model = ModelOfTable();
    if (form & 1)
        CheckEntry(&model);
    else if (form & 32)
        CheckCopies(&model, TakeByte(&input) % 8 == 7 ? MOST_LOADS : 3);
    else if (uint8_t *table = CheckLoad(&model)) {
        CheckWalk(table, model.length, type);
        ReleaseTable(table);
    }
    ClearBios();
    StopMachine();
}
