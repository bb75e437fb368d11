// procedures: the small ones on bytes, texts, bits and lists that commands call a few of. Asserted: what the
// C library does where it has the same, arithmetic in other words elsewhere, and for lists of interfaces a
// list that is kept beside.
#include <stdlib.h>
#include <string.h>

#include "Base/Arith.h"
#include "Base/Memory.h"
#include "Base/Text.h"
#include "Common/ComFunc/Guid.h"
#include "Common/ComFunc/HexView.h"
#include "Common/ComFunc/MemoryLadder.h"
#include "Common/ComFunc/PiList.h"
#include "Common/ComFunc/Rotate.h"
#include "Common/ComFunc/Shell.h"
#include "Common/Global.h"
#include "Goal.h"
#include "Project/CpuAcc.h"
#include "Project/Edid.h"

namespace {

constexpr size_t MOST_TEXT = 40;
constexpr uint8_t UNTOUCHED = 0xEE;

void CheckTexts(Input *input) {
    char *a = TakeText(input, MOST_TEXT);
    char *b = TakeByte(input) & 1 ? strdup(a) : TakeText(input, MOST_TEXT);
    char joined[2 * MOST_TEXT + 2];
    char expected[2 * MOST_TEXT + 2];
    memset(joined, UNTOUCHED, sizeof joined);
    Expect(Strlen(a) == strlen(a), "Strlen");
    size_t same = 0;
    while (a[same] && a[same] == b[same])
        same++;
    Expect(Strcmp(a, b) == a[same] - b[same], "Strcmp");
    bool careless = (TakeByte(input) & 1) != 0;
    char *copy = careless ? UStrCpy(joined, 0, a) : Strcpy(joined, a);
    char *whole = careless ? UStrCat(joined, 0, b) : Strcat(joined, b);
    strcat(strcpy(expected, a), b);
    size_t length = strlen(expected);
    Expect(copy == joined && whole == joined && strcmp(joined, expected) == 0,
           "a copy with a text behind it");
    Expect(AllBytes(joined + length + 1, UNTOUCHED, sizeof joined - length - 1), "and no more");
    char *at = joined;
    careless ? upperToLower(&at) : lowerToUpper(&at);
    for (size_t i = 0; i < length; i++) {
        char small =
            expected[i] >= 'A' && expected[i] <= 'Z' ? static_cast<char>(expected[i] + 32) : expected[i];
        char large =
            expected[i] >= 'a' && expected[i] <= 'z' ? static_cast<char>(expected[i] - 32) : expected[i];
        Expect(joined[i] == (careless ? small : large), "letters of the other case");
    }
    char *none = nullptr;
    lowerToUpper(&none);
    upperToLower(nullptr);
    free(a);
    free(b);
}

void CheckWideTexts(Input *input) {
    char *text = TakeText(input, MOST_TEXT);
    size_t length = strlen(text);
    uint16_t wide[MOST_TEXT + 3];
    char narrow[MOST_TEXT + 3];
    memset(wide, UNTOUCHED, sizeof wide);
    memset(narrow, UNTOUCHED, sizeof narrow);
    Expect(Char8ToChar16(wide, text) == wide && Wcslen(wide) == length, "units of 16 bits");
    for (size_t i = 0; i < length; i++)
        Expect(wide[i] == static_cast<uint16_t>(static_cast<signed char>(text[i])),
               "bytes are sign-extended");
    Expect(wide[length] == 0 && wide[length + 1] == 0 && wide[length + 2] == 0xEEEE, "two zeros behind");
    Expect(Char16ToChar8(narrow, wide) == narrow && strcmp(narrow, text) == 0, "and back");
    Expect(narrow[length + 1] == 0 && static_cast<uint8_t>(narrow[length + 2]) == UNTOUCHED,
           "two zeros behind");
    free(text);
}

void CheckBytes(Input *input) {
    size_t length;
    uint8_t *a = TakeBlock(input, MOST_TEXT, &length);
    uint8_t *b = static_cast<uint8_t *>(Malloc(length + 1));
    Expect(Memcpy(b, a, length) == b && memcmp(a, b, length) == 0, "Memcpy");
    size_t place = length == 0 ? 0 : TakeByte(input) % length;
    uint8_t value = TakeByte(input);
    int before = length == 0 ? 0 : static_cast<int8_t>(a[place]) - static_cast<int8_t>(value);
    if (length != 0)
        b[place] = value;
    Expect(Memcmp(a, b, length) == before, "Memcmp tells the first difference of signed bytes");
    Expect(Memset(b, value + 0x100, length) == b && AllBytes(b, value, length), "Memset");
    uint32_t number = Take32(input);
    uint8_t stored[8];
    memcpy(stored + 3, &number, 4);
    Expect(Load32(stored + 3) == number && Load16(stored + 3) == (number & 0xFFFF), "values at any place");
    Free(b);
    Free(RTMalloc(length));
    uint32_t wanted = Take32(input) % 0x800000;
    uint8_t *block = nullptr;
    uint32_t size = 0;
    EFI_STATUS status = GetMaxAllocMemory(&block, &size, wanted);
    Expect(status == EFI_SUCCESS && size <= wanted && (size == wanted || size >= 0x1000),
           "the largest block");
    Free(block);
    free(a);
}

void CheckArithmetic(Input *input) {
    uint64_t value = TakeOdd(input, 64);
    uint64_t other = TakeOdd(input, 64);
    unsigned count = TakeByte(input);
    uint64_t power = static_cast<uint64_t>(1) << (count % 64);
    Expect(LShiftU64(value, count) == value * power, "left by a count is times a power of two");
    Expect(RShiftU64(value, count) == value / power, "right by a count is by a power of two");
    uint64_t low = (value & 0xFFFFFFFF) * (other & 0xFFFFFFFF);
    Expect(MultU64x32(value, static_cast<uint32_t>(other)) ==
               low + ((value >> 32) * (other & 0xFFFFFFFF) << 32),
           "a product by halves");
}

void CheckRotation(Input *input) {
    uint8_t size = TakeByte(input) % 5;
    uint32_t count = TakeOdd(input, 32) & 0xFFFFFFFF;
    uint64_t value = Take64(input);
    unsigned width = size >= 1 && size <= 3 ? 4u << size : 0;
    uint64_t right = value;
    uint64_t expected = value;
    for (unsigned i = 0; width != 0 && i < width; i++) { // bit by bit
        uint64_t bit = value >> i & 1;
        unsigned to = (i + width - count % width) % width;
        expected = (expected & ~(static_cast<uint64_t>(1) << to)) | bit << to;
    }
    Expect(LoopShiftRight(&right, size, count) == (width != 0) && right == expected,
           "a rotation to the right");
    Expect(LoopShiftLeft(&right, size, count) == (width != 0) && right == value, "and back to the left");
    Expect(LoopShiftRight(nullptr, size, count) == 0 && LoopShiftLeft(nullptr, size, count) == 0, "nothing");
}

void CheckGuids(Input *input) {
    EFI_GUID a = {Take32(input), Take16(input), Take16(input), {TakeByte(input), 1, 2, 3, 4, 5, 6, 7}};
    EFI_GUID b = a;
    uint8_t place = TakeByte(input);
    reinterpret_cast<uint8_t *>(&b)[place % 16] ^= place & 0xF0;
    Expect(EFI_CmpGuid(&a, &b) == ((place & 0xF0) == 0), "identifiers that differ");
    Expect(!EFI_CmpGuid(nullptr, &b) && !EFI_CmpGuid(&a, nullptr), "no identifier");
    Expect(EFI_SetGuid(&b, &a) == 1 && memcmp(&a, &b, sizeof a) == 0, "a copy");
    Expect(EFI_SetGuid(nullptr, &a) == 0 && EFI_SetGuid(&b, nullptr) == 0, "nothing to copy");
    Expect(ExecuteWithSystem32("") == EFI_UNSUPPORTED, "no such shell");
}

// The list as it has to be: identifiers in order of their coming.
struct Entries {
    PiEntry entries[PI_LIST_SIZE];
    size_t count;
};

size_t PlaceIn(const Entries *list, uint32_t id) {
    size_t place = 0;
    while (place < list->count && list->entries[place].id != id)
        place++;
    return place;
}

void Install(Entries *list, uint32_t id, void *interface) {
    EFI_STATUS status = InstallPiList(id, interface);
    bool there = PlaceIn(list, id) < list->count;
    Expect(status == (there || list->count < PI_LIST_SIZE ? EFI_SUCCESS : EFI_OUT_OF_RESOURCES),
           "room for one more");
    if (!there && list->count < PI_LIST_SIZE)
        list->entries[list->count++] = {id, interface};
}

void Uninstall(Entries *list, uint32_t id, void *interface) {
    size_t place = PlaceIn(list, id);
    bool there = place < list->count && list->entries[place].interface == interface;
    Expect(UninstallPiList(id, interface) == (there ? EFI_SUCCESS : EFI_NOT_FOUND), "an entry goes");
    for (; there && place + 1 < list->count; place++)
        list->entries[place] = list->entries[place + 1];
    list->count -= there;
}

void CheckInterfaces(Input *input) {
    static char things[2];
    Entries list = {};
    memset(gPiList, 0, sizeof gPiList);
    while (input->length > 0) {
        uint8_t step = TakeByte(input);
        uint32_t id = TakeByte(input) % 20 + 1u;
        void *thing = &things[step >> 7];
        void *found = nullptr;
        if (step % 8 < 5)
            Install(&list, id, thing);
        else if (step % 8 < 7)
            Uninstall(&list, id, thing);
        else {
            Install(&list, id, thing);
            Install(&list, id + 1, thing);
            Expect(InstallMutiplePiList(id, thing, id + 1, thing, 0, nullptr) == EFI_SUCCESS,
                   "pairs that are there");
            Expect(UninstallMutiplePiList(0) == EFI_INVALID_PARAMETER, "an empty list");
            Expect(InstallMutiplePiList(id, nullptr) == EFI_INVALID_PARAMETER, "a list without a pointer");
            Expect(UninstallMutiplePiList(id + 30, thing, id, thing, 0, nullptr) == EFI_SUCCESS,
                   "until one fails");
        }
        size_t place = PlaceIn(&list, id);
        bool there = place < list.count;
        Expect(LocatePiList(id, &found) == (there ? EFI_SUCCESS : EFI_NOT_FOUND),
               "an entry by its identifier");
        Expect(found == (there ? list.entries[place].interface : nullptr), "its pointer");
    }
    for (size_t i = 0; i < list.count; i++)
        Expect(gPiList[i].id == list.entries[i].id, "the list is packed from the front");
}

// No platform has a source for the block; it is asked all the same.
void CheckEdid(Input *input) {
    CmdArg record = {};
    record.Cmd[0] = TakeByte(input) & 1; // the help
    gCmdArg = &record;
    size_t printed;
    BeginOutput();
    EFI_STATUS status = EdidEntry();
    EndOutputOf(&printed);
    gCmdArg = nullptr;
    Expect(status == (record.Cmd[0] ? EFI_INVALID_PARAMETER : EFI_UNSUPPORTED) &&
               (record.Cmd[0] == 0 || printed != 0),
           "a help, or no source");
    Expect(MsrAccess(nullptr, 0, 0, 0, nullptr, nullptr) == EFI_INVALID_PARAMETER, "no record");
    Expect(MsrAccess(&record, 0, 0, 0, nullptr, nullptr) == EFI_INVALID_PARAMETER,
           "nowhere to put the value");
    Expect(DebugMsgTxt(nullptr, 1) == 31 && DebugMsg(nullptr, 1) == DEBUG_MSG_NO_KEY, "nothing to be shown");
    uint8_t *block = nullptr;
    uint32_t length = 5;
    Expect(GetEdidByLinux(&block, &length) == EFI_UNSUPPORTED && block == nullptr && length == 5,
           "no source");
}

} // namespace

void FuzzProcedures(Input input) {
    void (*const checks[])(Input *) = {CheckTexts,    CheckWideTexts, CheckBytes,      CheckArithmetic,
                                       CheckRotation, CheckGuids,     CheckInterfaces, CheckEdid};
    uint8_t kind = TakeByte(&input) % 8;
    checks[kind](&input);
}
