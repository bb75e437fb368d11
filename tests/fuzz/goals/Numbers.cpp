// numbers: every conversion of Numeral.h against sums of digits and weights, from the last digit to the
// first. Asserted: the values, that nothing is stored beyond the width or the text, and that texts have no
// needless digit.
#include <stdlib.h>
#include <string.h>

#include "Common/ComFunc/Numeral.h"
#include "Goal.h"

namespace {

constexpr size_t LONGEST_TEXT = 100;
constexpr uint8_t UNTOUCHED = 0xEE;

// Value of a letter or digit in any base; 36 for other bytes.
unsigned DigitOf(char c) {
    const char *digits = "0123456789abcdefghijklmnopqrstuvwxyz";
    char small = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    const char *found = small == 0 ? nullptr : strchr(digits, small);
    return found ? static_cast<unsigned>(found - digits) : 36;
}

// The digits of the base among those of the text, whatever stands between.
uint64_t SumOf(const char *text, unsigned base) {
    uint64_t sum = 0;
    uint64_t weight = 1;
    for (size_t i = strlen(text); i-- > 0;)
        if (DigitOf(text[i]) < base) {
            sum += DigitOf(text[i]) * weight;
            weight *= base;
        }
    return sum;
}

bool BeginsHex(const char *text) {
    return text[0] == '0' && (text[1] | 0x20) == 'x';
}

const char *FirstOf(const char *text, unsigned base) {
    while (*text && DigitOf(*text) >= base)
        text++;
    return text;
}

uint64_t ModelHex(const char *text) {
    const char *first = FirstOf(text, 16);
    return SumOf(BeginsHex(first) ? first + 2 : first, 16);
}

void CheckText(Input *input) {
    char *text = TakeText(input, LONGEST_TEXT);
    const char *first = FirstOf(text, 10);
    Expect(str2Numeral10(text) == SumOf(text, 10), "str2Numeral10 sums the digits");
    Expect(str2Numeral16(text) == ModelHex(text), "str2Numeral16 sums the hexadecimal digits");
    Expect(str2Numeral(text) == (BeginsHex(first) ? SumOf(first + 2, 16) : SumOf(text, 10)),
           "str2Numeral takes hexadecimal behind 0x alone");
    Expect(str2Numeral(nullptr) + str2Numeral10(nullptr) + str2Numeral16(nullptr) == 0, "no text is 0");
    free(text);
}

void CheckDigits(Input *input) {
    unsigned base = TakeByte(input) % 40;
    uint64_t value = TakeOdd(input, 64);
    char buffer[80];
    memset(buffer, UNTOUCHED, sizeof buffer);
    num2String(value, buffer, base);
    const char *end = static_cast<const char *>(memchr(buffer, 0, sizeof buffer));
    Expect(end != nullptr, "num2String ends its text");
    size_t length = static_cast<size_t>(end - buffer);
    Expect(AllBytes(end + 1, UNTOUCHED, sizeof buffer - length - 1), "num2String stays within the text");
    if (base < 2 || base > 36) {
        Expect(length == 0, "another base gives no text");
        return;
    }
    Expect(length <= (base < 5 ? 64u : 28u), "num2String keeps to its room");
    bool negative = base == 10 && static_cast<int64_t>(value) < 0;
    Expect((buffer[0] == '-') == negative, "the sign stands in front of negative decimal numbers alone");
    const char *digits = buffer + negative;
    Expect(SumOf(digits, base) == (negative ? 0 - value : value), "num2String writes the value");
    Expect(digits[0] != 0 && (digits[0] != '0' || digits[1] == 0), "no needless zero");
    for (const char *at = digits; *at; at++)
        Expect(DigitOf(*at) < base && (*at < 'A' || *at > 'Z'), "small digits of the base");
}

uint64_t Regroup(uint32_t value, uint32_t from, uint32_t to) {
    uint64_t sum = 0;
    uint64_t weight = 1;
    for (uint32_t left = value; left != 0; left /= from) {
        sum += left % from * weight;
        weight *= to;
    }
    return sum;
}

void CheckStored(const uint8_t *stored, uint8_t size, int result, uint64_t value, const char *what) {
    size_t bytes = size >= 1 && size <= 3 ? static_cast<size_t>(1) << (size - 1) : 0;
    Expect(result == (bytes != 0), what);
    Expect(memcmp(stored, &value, bytes) == 0, what);
    Expect(AllBytes(stored + bytes, UNTOUCHED, 8 - bytes), what);
}

void CheckSized(Input *input) {
    uint8_t size = TakeByte(input) & 7;
    uint32_t value = static_cast<uint32_t>(TakeOdd(input, 32));
    uint32_t cut = size == 1 ? value & 0xFF : size == 2 ? value & 0xFFFF : value;
    uint8_t stored[8];
    memset(stored, UNTOUCHED, sizeof stored);
    int result = HexToDecimal(size, value, stored);
    CheckStored(stored, size, result, Regroup(cut, 16, 10), "HexToDecimal");
    memset(stored, UNTOUCHED, sizeof stored);
    result = DecimalToHex(size, value, stored);
    CheckStored(stored, size, result, size == 1 ? DecimalToHex8(cut) : Regroup(cut, 10, 16), "DecimalToHex");
    Expect(HexToDecimal(size, value, nullptr) + DecimalToHex(size, value, nullptr) == 0, "nowhere to store");
}

void CheckBcd(Input *input) {
    uint8_t byte = TakeByte(input);
    Expect(HexToDecimal8(byte) == static_cast<uint8_t>(byte % 16 + byte / 16 * 10), "HexToDecimal8");
    if (byte < 100)
        Expect(HexToDecimal8(DecimalToHex8(byte)) == byte, "a byte of BCD and back");
    Expect(DecimalToHex8(byte) == static_cast<uint8_t>(byte + byte / 10 * 6), "DecimalToHex8");
}

} // namespace

void FuzzNumbers(Input input) {
    switch (TakeByte(&input) % 4) {
    case 0:
        return CheckText(&input);
    case 1:
        return CheckDigits(&input);
    case 2:
        return CheckSized(&input);
    default:
        return CheckBcd(&input);
    }
}
