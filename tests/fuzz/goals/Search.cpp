// search: the searches of Search.h over buffers of few different bytes. Asserted: the places that a search
// without going back finds, counted from each possible start; that a replacement changes the match alone;
// that nothing beyond buffer and pattern is looked at.
#include <stdlib.h>
#include <string.h>

#include "Base/Memory.h"
#include "Common/ComFunc/Search.h"
#include "Goal.h"
#include "Models.h"
#include "tests/fuzz/Held.h"

namespace {

constexpr size_t MOST_BYTES = 64;
constexpr size_t MOST_PATTERN = 6;
constexpr uint32_t NOWHERE = 0xFFFFFFFF;

// Bytes of few kinds: a letter of four for each, so that partial matches are many.
uint8_t *TakeLetters(Input *input, size_t most, size_t *length) {
    uint8_t *bytes = TakeBlock(input, TakeBelow(input, static_cast<uint32_t>(most) + 1), length);
    for (size_t i = 0; i < *length; i++)
        bytes[i] = static_cast<uint8_t>("ab\xFF"[bytes[i] % 3]);
    return bytes;
}

char *AsText(const uint8_t *bytes, size_t length) {
    char *text = static_cast<char *>(malloc(length + 1));
    memcpy(text, bytes, length);
    text[length] = 0;
    return text;
}

void CheckResult(EFI_STATUS status, uint32_t pos, uint64_t expected, const char *what) {
    Expect(status == (expected == NOT_THERE ? EFI_NOT_FOUND : EFI_SUCCESS), what);
    Expect(pos == (expected == NOT_THERE ? NOWHERE : expected), what);
}

void CheckWide(const uint8_t *bytes, size_t length, const uint8_t *pattern, size_t patternLength,
               uint32_t from, uint64_t expected) {
    uint16_t *buffer = static_cast<uint16_t *>(malloc(length * 2 + 1));
    uint16_t *wanted = static_cast<uint16_t *>(malloc(patternLength * 2 + 2));
    for (size_t i = 0; i < length; i++)
        buffer[i] = static_cast<uint16_t>(bytes[i] * 0x101);
    for (size_t i = 0; i < patternLength; i++)
        wanted[i] = static_cast<uint16_t>(pattern[i] * 0x101);
    wanted[patternLength] = 0;
    uint32_t pos = from;
    EFI_STATUS status = WSearchFromBuffer(buffer, static_cast<uint32_t>(length), wanted, &pos, 0);
    CheckResult(status, pos, expected, "WSearchFromBuffer");
    free(buffer);
    free(wanted);
}

// The block is the procedure's afterwards or stays the one that it was.
void CheckReplacement(const uint8_t *bytes, size_t length, const uint8_t *pattern, size_t patternLength,
                      Input *input) {
    size_t newLength;
    uint8_t *replacement = TakeLetters(input, MOST_PATTERN, &newLength);
    uint8_t *block = static_cast<uint8_t *>(Malloc(length + 1));
    memcpy(block, bytes, length);
    uint32_t size = static_cast<uint32_t>(length);
    uint32_t pos = 0;
    uint64_t expected = FindWithoutGoingBack(bytes, length, pattern, patternLength, 0);
    EFI_STATUS status = ReplaceBufferContent(&block, &size, pattern, static_cast<uint32_t>(patternLength),
                                             replacement, static_cast<uint32_t>(newLength), &pos, 1);
    CheckResult(status, pos, expected, "ReplaceBufferContent");
    if (status == EFI_SUCCESS) {
        size_t start = pos - patternLength;
        Expect(size == length - patternLength + newLength, "the new length");
        Expect(memcmp(block, bytes, start) == 0 && memcmp(block + start, replacement, newLength) == 0 &&
                   memcmp(block + start + newLength, bytes + pos, length - pos) == 0,
               "the match alone is replaced");
    } else
        Expect(size == length && memcmp(block, bytes, length) == 0, "without a match all stays");
    Free(block);
    free(replacement);
}

void CheckRefusals(const uint8_t *bytes) {
    uint32_t pos = 0;
    uint8_t *block = nullptr;
    uint32_t length = 0;
    Expect(SearchFromBuffer(nullptr, 1, bytes, 1, &pos, 1) == EFI_INVALID_PARAMETER &&
               SearchFromBuffer(bytes, 1, nullptr, 1, &pos, 1) == EFI_INVALID_PARAMETER &&
               SearchFromBuffer(bytes, 1, bytes, 1, nullptr, 1) == EFI_INVALID_PARAMETER &&
               SearchStringFromBuffer(bytes, 1, nullptr, &pos, 1) == EFI_INVALID_PARAMETER &&
               WSearchFromBuffer(nullptr, 0, nullptr, &pos, 1) == EFI_INVALID_PARAMETER &&
               ReplaceBufferContent(nullptr, &length, bytes, 1, bytes, 1, &pos, 1) == EFI_INVALID_PARAMETER &&
               ReplaceBufferContent(&block, nullptr, bytes, 1, bytes, 1, &pos, 1) == EFI_INVALID_PARAMETER &&
               ReplaceBufferContent(&block, &length, bytes, 1, nullptr, 1, &pos, 1) == EFI_INVALID_PARAMETER,
           "arguments that are missing");
    block = static_cast<uint8_t *>(Malloc(4));
    length = 4;
    Expect(ReplaceBufferContent(&block, &length, bytes, 0, bytes, NOWHERE, &pos, 1) == EFI_BUFFER_TOO_SMALL,
           "4 GiB");
    RefuseBlock(1);
    Expect(ReplaceBufferContent(&block, &length, bytes, 0, bytes, 1, &pos, 1) == EFI_BUFFER_TOO_SMALL,
           "no memory");
    Expect(length == 4, "the old block stays");
    Free(block);
}

} // namespace

void FuzzSearch(Input input) {
    size_t length;
    size_t patternLength;
    uint32_t from = TakeByte(&input) % 80;
    uint8_t *pattern = TakeLetters(&input, MOST_PATTERN, &patternLength);
    uint8_t *bytes = TakeLetters(&input, MOST_BYTES, &length);
    uint32_t pos = from;
    EFI_STATUS status = SearchFromBuffer(bytes, static_cast<uint32_t>(length), pattern,
                                         static_cast<uint32_t>(patternLength), &pos, 0);
    uint64_t expected = FindWithoutGoingBack(bytes, length, pattern, patternLength, from);
    CheckResult(status, pos, expected, "SearchFromBuffer");
    char *text = AsText(pattern, patternLength);
    status = SearchStringFromBuffer(bytes, static_cast<uint32_t>(length), text, &pos, 1);
    CheckResult(status, pos, FindWithoutGoingBack(bytes, length, pattern, patternLength, 0),
                "SearchStringFromBuffer");
    CheckWide(bytes, length, pattern, patternLength, from, expected);
    CheckReplacement(bytes, length, pattern, patternLength, &input);
    CheckRefusals(bytes);
    free(text);
    free(bytes);
    free(pattern);
}
