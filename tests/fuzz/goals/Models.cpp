#include "Models.h"

#include <string.h>

uint64_t FindWithoutGoingBack(const uint8_t *bytes, uint64_t length, const uint8_t *pattern,
                              size_t patternLength, uint64_t from) {
    for (uint64_t start = from; start <= length;) {
        if (patternLength > 0) {
            const void *next = memchr(bytes + start, pattern[0], length - start);
            if (!next)
                return NOT_THERE;
            start = static_cast<uint64_t>(static_cast<const uint8_t *>(next) - bytes);
        }
        uint64_t same = 0;
        while (same < patternLength && start + same < length && bytes[start + same] == pattern[same])
            same++;
        if (same == patternLength)
            return start + same;
        start += same + 1; // the byte that did not match has been passed, too
    }
    return NOT_THERE;
}
