#include "Common/ComFunc/Search.h"

#include "Base/Memory.h"
#include "Base/Text.h"

// The single pass over units of unitSize bytes; lengths and *pos count units.
static EFI_STATUS SearchUnits(const void *buffer, uint32_t length, const void *pattern,
                              uint32_t patternLength, size_t unitSize, uint32_t *pos, int fromStart) {
    if (buffer == nullptr || pattern == nullptr || pos == nullptr)
        return EFI_INVALID_PARAMETER;
    const uint8_t *data = static_cast<const uint8_t *>(buffer);
    const uint8_t *wanted = static_cast<const uint8_t *>(pattern);
    uint32_t matched = 0;
    uint32_t at = fromStart ? 0 : *pos;
    for (; at < length && matched < patternLength; ++at) {
        bool equal = Memcmp(data + at * unitSize, wanted + matched * unitSize, unitSize) == 0;
        matched = equal ? matched + 1 : 0;
    }
    if (matched < patternLength || at > length) {
        *pos = 0xFFFFFFFF;
        return EFI_NOT_FOUND;
    }
    *pos = at;
    return EFI_SUCCESS;
}

EFI_STATUS SearchFromBuffer(const void *buffer, uint32_t length, const void *pattern, uint32_t patternLength,
                            uint32_t *pos, int fromStart) {
    return SearchUnits(buffer, length, pattern, patternLength, 1, pos, fromStart);
}

EFI_STATUS SearchStringFromBuffer(const void *buffer, uint32_t length, const char *string, uint32_t *pos,
                                  int fromStart) {
    uint32_t patternLength = string == nullptr ? 0 : static_cast<uint32_t>(Strlen(string));
    return SearchUnits(buffer, length, string, patternLength, 1, pos, fromStart);
}

EFI_STATUS WSearchFromBuffer(const uint16_t *buffer, uint32_t length, const uint16_t *string, uint32_t *pos,
                             int fromStart) {
    uint32_t patternLength = string == nullptr ? 0 : static_cast<uint32_t>(Wcslen(string));
    return SearchUnits(buffer, length, string, patternLength, 2, pos, fromStart);
}

EFI_STATUS ReplaceBufferContent(uint8_t **buffer, uint32_t *length, const void *pattern,
                                uint32_t patternLength, const void *replacement, uint32_t replacementLength,
                                uint32_t *pos, int fromStart) {
    if (buffer == nullptr || length == nullptr || (replacement == nullptr && replacementLength != 0))
        return EFI_INVALID_PARAMETER;
    EFI_STATUS status = SearchFromBuffer(*buffer, *length, pattern, patternLength, pos, fromStart);
    if (status != EFI_SUCCESS)
        return status;

    uint64_t newLength = static_cast<uint64_t>(*length) - patternLength + replacementLength;
    if (newLength > 0xFFFFFFFF)
        return EFI_BUFFER_TOO_SMALL;
    uint8_t *block = static_cast<uint8_t *>(Malloc(newLength));
    if (block == nullptr)
        return EFI_BUFFER_TOO_SMALL;
    uint32_t start = *pos - patternLength;
    Memcpy(block, *buffer, start);
    Memcpy(block + start, replacement, replacementLength);
    Memcpy(block + start + replacementLength, *buffer + *pos, *length - *pos);
    Free(*buffer);
    *buffer = block;
    *length = static_cast<uint32_t>(newLength);
    return EFI_SUCCESS;
}
