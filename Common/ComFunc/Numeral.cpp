#include "Common/ComFunc/Numeral.h"

#include "Base/Memory.h"

static bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Value of a hexadecimal digit, -1 for any other byte.
static int HexDigit(char c) {
    if (IsDigit(c))
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

static bool HasHexPrefix(const char *text) {
    return text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

static const char *SkipToDigit(const char *text) {
    while (*text != 0 && !IsDigit(*text))
        ++text;
    return text;
}

uint64_t str2Numeral(const char *text) {
    if (text == nullptr)
        return 0;
    text = SkipToDigit(text);
    return HasHexPrefix(text) ? str2Numeral16(text) : str2Numeral10(text);
}

uint64_t str2Numeral10(const char *text) {
    if (text == nullptr)
        return 0;
    uint64_t value = 0;
    for (text = SkipToDigit(text); *text != 0; ++text) {
        if (IsDigit(*text))
            value = value * 10 + static_cast<uint64_t>(*text - '0');
    }
    return value;
}

uint64_t str2Numeral16(const char *text) {
    if (text == nullptr)
        return 0;
    while (*text != 0 && HexDigit(*text) < 0)
        ++text;
    if (HasHexPrefix(text))
        text += 2;
    uint64_t value = 0;
    for (; *text != 0; ++text) {
        int digit = HexDigit(*text);
        if (digit >= 0)
            value = (value << 4) + static_cast<uint64_t>(digit);
    }
    return value;
}

void num2String(uint64_t value, char *buffer, unsigned base) {
    char reversed[64];
    unsigned count = 0;
    if (base >= 2 && base <= 36) {
        if (base == 10 && static_cast<int64_t>(value) < 0) {
            *buffer++ = '-';
            value = 0 - value;
        }
        do {
            reversed[count++] = "0123456789abcdefghijklmnopqrstuvwxyz"[value % base];
            value /= base;
        } while (value != 0);
    }
    while (count > 0)
        *buffer++ = reversed[--count];
    *buffer = 0;
}

uint8_t HexToDecimal8(uint8_t bcd) {
    return static_cast<uint8_t>((bcd & 0x0F) + (bcd >> 4) * 10);
}

uint8_t DecimalToHex8(uint32_t value) {
    uint8_t low = static_cast<uint8_t>(value);
    return static_cast<uint8_t>((low / 10) * 16 + low % 10);
}

// Reads value digit by digit in one base and puts the digits together in another.
static uint32_t Rebase(uint32_t value, uint32_t from, uint32_t to) {
    uint32_t result = 0;
    uint32_t weight = 1;
    for (; value != 0; value /= from, weight *= to)
        result += (value % from) * weight;
    return result;
}

// Stores the low 8, 16 or 32 bits by size code; false for another code or nowhere to store.
static int StoreSized(uint8_t size, uint32_t value, void *out) {
    if (out == nullptr || size < 1 || size > 3)
        return 0;
    Memcpy(out, &value, 1u << (size - 1));
    return 1;
}

static uint32_t CutToSize(uint8_t size, uint32_t value) {
    return size == 1 ? value & 0xFF : size == 2 ? value & 0xFFFF : value;
}

int HexToDecimal(uint8_t size, uint32_t value, void *out) {
    return StoreSized(size, Rebase(CutToSize(size, value), 16, 10), out);
}

int DecimalToHex(uint8_t size, uint32_t value, void *out) {
    // One byte keeps the tens nibble above 9 that values of 100 and more give, as DecimalToHex8 does.
    uint32_t cut = CutToSize(size, value);
    return StoreSized(size, size == 1 ? DecimalToHex8(cut) : Rebase(cut, 10, 16), out);
}
