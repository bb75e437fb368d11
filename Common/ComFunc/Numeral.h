// Numbers from text, text from numbers, packed BCD.
//
// No command reaches: HexToDecimal, DecimalToHex.
#pragma once

#include <cstdint>

// The rule for every operand: bytes before the first decimal digit are skipped, then "0x"/"0X" means
// hexadecimal and anything else decimal. NULL or no digit gives 0; overflow wraps modulo 2^64.
// `0x1f` is 31, `1f` is 1, `ff` is 0, `-5` is 5.
uint64_t str2Numeral(const char *text);

// Decimal: every byte that is not a digit is ignored (`1,000` is 1000). NULL gives 0.
uint64_t str2Numeral10(const char *text);

// Hexadecimal, with or without "0x": other bytes are ignored (`0x12_34` is 0x1234). NULL gives 0.
uint64_t str2Numeral16(const char *text);

// Writes the lower-case digits of value in base 2..36 and a NUL. In base 10 alone the value is signed.
// The buffer needs 32 bytes for bases of 5 and more, 65 for base 2. Another base writes an empty text.
void num2String(uint64_t value, char *buffer, unsigned base);

// One packed-BCD byte to binary, without validation (0x1A gives 20), and 0..99 to packed BCD.
uint8_t HexToDecimal8(uint8_t bcd);
uint8_t DecimalToHex8(uint32_t value);

// The same for 1 byte (size code 1), 16 bits (2) and 32 bits (3), stored through out in that width.
// 1, or 0 for a NULL out or another size code.
int HexToDecimal(uint8_t size, uint32_t value, void *out);
int DecimalToHex(uint8_t size, uint32_t value, void *out);
