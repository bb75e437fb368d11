#include "Goal.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr size_t OUTPUT_BYTES = 1 << 16;

char gOutput[OUTPUT_BYTES + 1];
size_t gOutputLength;
FILE *gOutputStream;
FILE *gOutputBefore;

ssize_t KeepOutput(void *, const char *text, size_t length) {
    size_t room = OUTPUT_BYTES - gOutputLength;
    size_t taken = length < room ? length : room;
    memcpy(gOutput + gOutputLength, text, taken);
    gOutputLength += taken;
    return ssize_t(length);
}

uint64_t TakeNumber(Input *input, unsigned bytes) {
    uint64_t number = 0;
    for (unsigned i = 0; i < bytes; i++)
        number |= static_cast<uint64_t>(TakeByte(input)) << (8 * i);
    return number;
}

} // namespace

void Expect(bool holds, const char *what) {
    if (!holds)
        Fail(what, "this has to hold");
}

uint16_t Take16(Input *input) {
    return static_cast<uint16_t>(TakeNumber(input, 2));
}

uint32_t Take32(Input *input) {
    return static_cast<uint32_t>(TakeNumber(input, 4));
}

uint64_t Take64(Input *input) {
    return TakeNumber(input, 8);
}

uint32_t TakeBelow(Input *input, uint32_t limit) {
    return (limit <= 0x100 ? TakeByte(input) : limit <= 0x10000 ? Take16(input) : Take32(input)) % limit;
}

uint64_t TakeOdd(Input *input, unsigned bits) {
    uint8_t kind = TakeByte(input);
    uint64_t number;
    switch (kind >> 6) {
    case 0:
        number = kind;
        break;
    case 1:
        number = static_cast<uint64_t>(1) << (kind & 63);
        break;
    case 2:
        number = ~static_cast<uint64_t>(kind & 63);
        break;
    default:
        number = TakeNumber(input, (bits + 7) / 8);
        break;
    }
    return bits == 64 ? number : number & ((static_cast<uint64_t>(1) << bits) - 1);
}

char *TakeText(Input *input, size_t most) {
    Input left = TakeBytes(input, most);
    const uint8_t *newline = static_cast<const uint8_t *>(memchr(left.bytes, '\n', left.length));
    size_t length = newline ? static_cast<size_t>(newline - left.bytes) : left.length;
    size_t back = left.length - length - (newline ? 1 : 0); // not of this text
    input->bytes -= back;
    input->length += back;
    return strndup(reinterpret_cast<const char *>(left.bytes), length);
}

uint8_t *TakeBlock(Input *input, size_t most, size_t *length) {
    Input taken = TakeBytes(input, most);
    uint8_t *block = static_cast<uint8_t *>(malloc(taken.length == 0 ? 1 : taken.length));
    memcpy(block, taken.bytes, taken.length);
    *length = taken.length;
    return block;
}

bool AllBytes(const void *bytes, uint8_t value, size_t count) {
    const uint8_t *at = static_cast<const uint8_t *>(bytes);
    for (size_t i = 0; i < count; i++)
        if (at[i] != value)
            return false;
    return true;
}

void BeginOutput() {
    if (!gOutputStream) {
        gOutputStream = fopencookie(nullptr, "w", {nullptr, KeepOutput, nullptr, nullptr});
        setvbuf(gOutputStream, nullptr, _IONBF, 0);
    }
    gOutputLength = 0;
    gOutputBefore = stdout;
    stdout = gOutputStream;
}

const char *EndOutputOf(size_t *length) {
    fflush(stdout);
    stdout = gOutputBefore;
    gOutput[gOutputLength] = 0;
    *length = gOutputLength;
    return gOutput;
}
