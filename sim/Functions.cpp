#include "Functions.h"

#include <string.h>

namespace {

// How a table writes its pointers: size and sign in the low half, what they count from in the high one.
constexpr uint8_t POINTER_SIZES = 0x0F;
constexpr uint8_t POINTER_FULL = 0x00;
constexpr uint8_t POINTER_FULL_SIGNED = 0x0C;
constexpr uint8_t POINTER_8 = 0x04;
constexpr uint8_t POINTER_4 = 0x03;
constexpr uint8_t POINTER_4_SIGNED = 0x0B;

// The table of functions: a head (version, how three kinds of pointers are written, where .eh_frame is, how
// many rows), then a row for each: where it begins and where its description is, from the table's begin on.
// Every linker writes it so.
const uint8_t TABLE_HEAD[4] = {1, 0x1B, 0x03, 0x3B};
constexpr size_t TABLE_ROWS = 12;
constexpr size_t ROW = 8;

constexpr uint32_t LONG_DESCRIPTION = 0xFFFFFFFF; // 64-bit DWARF

uint32_t Dword(const uint8_t *at) {
    uint32_t value;
    memcpy(&value, at, sizeof value);
    return value;
}

uint64_t Qword(const uint8_t *at) {
    uint64_t value;
    memcpy(&value, at, sizeof value);
    return value;
}

size_t PointerSize(uint8_t encoding) {
    switch (encoding & POINTER_SIZES) {
    case POINTER_4:
    case POINTER_4_SIGNED:
        return 4;
    case POINTER_FULL:
    case POINTER_FULL_SIGNED:
    case POINTER_8:
        return 8;
    default:
        return 0;
    }
}

const uint8_t *SkipNumber(const uint8_t *at) { // LEB128
    while (*at & 0x80)
        at++;
    return at + 1;
}

// How the functions that share this description (a CIE) write their addresses.
bool AddressEncoding(const uint8_t *common, uint8_t *encoding) {
    *encoding = POINTER_FULL;
    uint8_t version = common[8];
    const char *kinds = reinterpret_cast<const char *>(common + 9);
    const uint8_t *at = common + 9 + strlen(kinds) + 1;
    if (*kinds == 0)
        return true;
    at = SkipNumber(SkipNumber(at));             // alignment of code and data
    at = version == 1 ? at + 1 : SkipNumber(at); // the return address
    if (*kinds != 'z')
        return false;
    at = SkipNumber(at); // how long the rest is
    for (kinds++; *kinds; kinds++) {
        if (*kinds == 'R') {
            *encoding = *at;
            return true;
        }
        if (*kinds == 'P') // the personality, and how its address is written
            at += 1 + PointerSize(*at);
        else if (*kinds == 'L')
            at++;
    }
    return true;
}

const uint8_t *FromTable(const FunctionTable *table, const uint8_t *at) {
    return table->start + static_cast<int32_t>(Dword(at));
}

const uint8_t *Row(const FunctionTable *table, size_t row) {
    return table->start + TABLE_ROWS + row * ROW;
}

int TakeFirst(dl_phdr_info *info, size_t, void *file) {
    *static_cast<LoadedFile *>(file) = {info->dlpi_addr, info->dlpi_phdr, info->dlpi_phnum};
    return 1;
}

} // namespace

LoadedFile MainProgram() {
    LoadedFile file = {};
    dl_iterate_phdr(TakeFirst, &file);
    return file;
}

FunctionTable FindFunctionTable(const LoadedFile *file) {
    for (size_t i = 0; i < file->headerCount; i++) {
        const ElfW(Phdr) *header = &file->headers[i];
        const uint8_t *start = reinterpret_cast<const uint8_t *>(file->base + header->p_vaddr);
        if (header->p_type == PT_GNU_EH_FRAME && memcmp(start, TABLE_HEAD, sizeof TABLE_HEAD) == 0)
            return {start, Dword(start + TABLE_ROWS - 4)};
    }
    return {nullptr, 0};
}

CodeRange FunctionAt(const FunctionTable *table, size_t row) {
    const CodeRange none = {nullptr, nullptr};
    const uint8_t *start = FromTable(table, Row(table, row));
    const uint8_t *description = FromTable(table, Row(table, row) + 4);
    uint8_t encoding;
    if (Dword(description) == LONG_DESCRIPTION ||
        !AddressEncoding(description + 4 - Dword(description + 4), &encoding) || PointerSize(encoding) == 0)
        return none;
    size_t size = PointerSize(encoding);
    const uint8_t *length = description + 8 + size; // behind the address, which the row has, too
    return {start, start + (size == 4 ? Dword(length) : Qword(length))};
}

CodeRange FunctionAround(const FunctionTable *table, const uint8_t *byte) {
    size_t first = 0, behind = table->count;
    while (first < behind) { // the rows before `first` begin at the byte or before it
        size_t middle = first + (behind - first) / 2;
        if (FromTable(table, Row(table, middle)) <= byte)
            first = middle + 1;
        else
            behind = middle;
    }
    CodeRange range = first > 0 ? FunctionAt(table, first - 1) : CodeRange{nullptr, nullptr};
    return byte < range.end ? range : CodeRange{nullptr, nullptr};
}
