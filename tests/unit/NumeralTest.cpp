#include "Common/ComFunc/Numeral.h"

#include <string>

#include <gtest/gtest.h>

TEST(Numeral, OperandsAreDecimalUnlessPrefixedWith0x) {
    EXPECT_EQ(str2Numeral("10"), 10u);
    EXPECT_EQ(str2Numeral("0x10"), 16u);
    EXPECT_EQ(str2Numeral("0X10"), 16u);
    EXPECT_EQ(str2Numeral("0x1f"), 31u);
    EXPECT_EQ(str2Numeral("0X1F"), 31u);
    EXPECT_EQ(str2Numeral("1f"), 1u);
    EXPECT_EQ(str2Numeral("010"), 10u);
}

TEST(Numeral, WhatStandsBeforeTheFirstDecimalDigitIsSkipped) {
    EXPECT_EQ(str2Numeral("ff"), 0u);
    EXPECT_EQ(str2Numeral("FF"), 0u);
    EXPECT_EQ(str2Numeral("-5"), 5u);
    EXPECT_EQ(str2Numeral("+0x20"), 0x20u);
    EXPECT_EQ(str2Numeral("abc0xFF"), 0xFFu);
    EXPECT_EQ(str2Numeral("ff7"), 7u);
    EXPECT_EQ(str2Numeral("x10"), 10u);
}

TEST(Numeral, A0xThatIsNotAtTheFirstDigitIsNoPrefix) {
    EXPECT_EQ(str2Numeral("10x20"), 1020u);
    EXPECT_EQ(str2Numeral("00x10"), 10u);
}

TEST(Numeral, ThereIsNoHexadecimalSuffix) {
    EXPECT_EQ(str2Numeral("10h"), 10u);
    EXPECT_EQ(str2Numeral("0FFh"), 0u);
}

TEST(Numeral, AMissingOrEmptyOperandIsZero) {
    EXPECT_EQ(str2Numeral(nullptr), 0u);
    EXPECT_EQ(str2Numeral(""), 0u);
    EXPECT_EQ(str2Numeral("0x"), 0u);
    EXPECT_EQ(str2Numeral("0"), 0u);
    EXPECT_EQ(str2Numeral10(nullptr), 0u);
    EXPECT_EQ(str2Numeral10(""), 0u);
    EXPECT_EQ(str2Numeral16(nullptr), 0u);
    EXPECT_EQ(str2Numeral16(""), 0u);
}

TEST(Numeral, DecimalIgnoresEveryOtherByte) {
    EXPECT_EQ(str2Numeral10("1,000"), 1000u);
    EXPECT_EQ(str2Numeral10("12G4"), 124u);
    EXPECT_EQ(str2Numeral10("1F"), 1u);
    EXPECT_EQ(str2Numeral10("0x20"), 20u);
    EXPECT_EQ(str2Numeral10("-42"), 42u);
    EXPECT_EQ(str2Numeral("1,000"), 1000u);
    EXPECT_EQ(str2Numeral10("\xC4"
                            "5"),
              5u);
}

TEST(Numeral, HexadecimalIgnoresEveryOtherByte) {
    EXPECT_EQ(str2Numeral16("ff"), 255u);
    EXPECT_EQ(str2Numeral16("0X1F"), 31u);
    EXPECT_EQ(str2Numeral16("0x12_34"), 0x1234u);
    EXPECT_EQ(str2Numeral16("aBcDeF"), 0xABCDEFu);
    EXPECT_EQ(str2Numeral16("#10"), 0x10u);
    EXPECT_EQ(str2Numeral16("xyz0x1F"), 0x1Fu);
    EXPECT_EQ(str2Numeral16("a0x10"), 0xA010u); // the 0x is not at the first digit
    EXPECT_EQ(str2Numeral16("0xfg1"), 0xF1u);
}

TEST(Numeral, OverflowWrapsModulo2To64) {
    EXPECT_EQ(str2Numeral("18446744073709551615"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(str2Numeral("18446744073709551616"), 0u);
    EXPECT_EQ(str2Numeral("18446744073709551621"), 5u);
    EXPECT_EQ(str2Numeral("0xFFFFFFFFFFFFFFFF"), 0xFFFFFFFFFFFFFFFFu);
    EXPECT_EQ(str2Numeral("0x123456789ABCDEF01"), 0x23456789ABCDEF01u);
}

TEST(Numeral, AnXBehindAnotherDigitThan0IsNoPrefix) {
    EXPECT_EQ(str2Numeral("5x10"), 510u);
    EXPECT_EQ(str2Numeral16("5x10"), 0x510u);
}

TEST(Numeral, OperandsOfAnyLengthComeToAnEnd) {
    EXPECT_EQ(str2Numeral((std::string(100000, '0') + "7").c_str()), 7u);
    EXPECT_EQ(str2Numeral((std::string(100000, 'z') + "7").c_str()), 7u);
    EXPECT_EQ(str2Numeral16(("0x" + std::string(100000, '0') + "1f").c_str()), 0x1Fu);
}

static std::string InBase(uint64_t value, unsigned base) {
    char text[66];
    num2String(value, text, base);
    return text;
}

TEST(Numeral, Num2StringWritesLowerCaseDigits) {
    EXPECT_EQ(InBase(255, 16), "ff");
    EXPECT_EQ(InBase(0xABCDEF, 16), "abcdef");
    EXPECT_EQ(InBase(8, 8), "10");
    EXPECT_EQ(InBase(35, 36), "z");
    EXPECT_EQ(InBase(36, 36), "10");
    EXPECT_EQ(InBase(5, 2), "101");
    EXPECT_EQ(InBase(1234567890, 10), "1234567890");
}

TEST(Numeral, Num2StringHas36Digits) {
    const std::string digits = "0123456789abcdefghijklmnopqrstuvwxyz";
    for (unsigned value = 0; value < 36; ++value)
        EXPECT_EQ(InBase(value, 36), digits.substr(value, 1));
}

TEST(Numeral, Num2StringOfZeroIsOneDigit) {
    for (unsigned base = 2; base <= 36; ++base)
        EXPECT_EQ(InBase(0, base), "0") << base;
}

TEST(Numeral, Num2StringIsSignedInBase10Alone) {
    EXPECT_EQ(InBase(static_cast<uint64_t>(-10), 10), "-10");
    EXPECT_EQ(InBase(0x8000000000000000, 10), "-9223372036854775808");
    EXPECT_EQ(InBase(0x7FFFFFFFFFFFFFFF, 10), "9223372036854775807");
    EXPECT_EQ(InBase(0xFFFFFFFFFFFFFFFF, 16), "ffffffffffffffff");
    EXPECT_EQ(InBase(0xFFFFFFFFFFFFFFFF, 8), "1777777777777777777777");
    EXPECT_EQ(InBase(0xFFFFFFFFFFFFFFFF, 2), std::string(64, '1'));
    EXPECT_EQ(InBase(0xFFFFFFFFFFFFFFFF, 36), "3w5e11264sgsf");
}

TEST(Numeral, Num2StringAndTheParsersAreInverse) {
    const uint64_t values[] = {0, 1, 9, 10, 0xFF, 0x100, 0xFFFFFFFF, 0x123456789ABCDEF0};
    for (uint64_t value : values) {
        EXPECT_EQ(str2Numeral10(InBase(value, 10).c_str()), value);
        EXPECT_EQ(str2Numeral16(InBase(value, 16).c_str()), value);
    }
}

TEST(Numeral, Num2StringWritesNoMoreThanTheDigitsAndTheNul) {
    char text[] = "########";
    num2String(255, text, 16);
    EXPECT_EQ(std::string(text, 8), std::string("ff\0#####", 8));
}

TEST(Numeral, Num2StringOfAnUnknownBaseIsEmpty) {
    EXPECT_EQ(InBase(5, 0), "");
    EXPECT_EQ(InBase(5, 1), "");
    EXPECT_EQ(InBase(5, 37), "");
}

TEST(Numeral, HexToDecimal8ReadsPackedBcdWithoutValidation) {
    EXPECT_EQ(HexToDecimal8(0x59), 59);
    EXPECT_EQ(HexToDecimal8(0x00), 0);
    EXPECT_EQ(HexToDecimal8(0x99), 99);
    EXPECT_EQ(HexToDecimal8(0x1A), 20);
    EXPECT_EQ(HexToDecimal8(0xFF), 165);
}

TEST(Numeral, DecimalToHex8PacksTheLow8Bits) {
    EXPECT_EQ(DecimalToHex8(59), 0x59);
    EXPECT_EQ(DecimalToHex8(0), 0x00);
    EXPECT_EQ(DecimalToHex8(99), 0x99);
    EXPECT_EQ(DecimalToHex8(100), 0xA0);
    EXPECT_EQ(DecimalToHex8(159), 0xF9);
    EXPECT_EQ(DecimalToHex8(256 + 59), 0x59);
}

TEST(Numeral, Packed8RoundTripsEveryTwoDigitNumber) {
    for (uint32_t value = 0; value < 100; ++value)
        EXPECT_EQ(HexToDecimal8(DecimalToHex8(value)), value);
}

TEST(Numeral, HexToDecimalStoresInTheWidthOfTheSizeCode) {
    uint32_t out = 0xEEEEEEEE;
    EXPECT_EQ(HexToDecimal(1, 0x59, &out), 1);
    EXPECT_EQ(out, 0xEEEEEE00u + 59);
    EXPECT_EQ(HexToDecimal(1, 0x159, &out), 1); // the number is cut, not what it becomes
    EXPECT_EQ(out, 0xEEEEEE00u + 59);
    out = 0xEEEEEEEE;
    EXPECT_EQ(HexToDecimal(2, 0x2019, &out), 1);
    EXPECT_EQ(out, 0xEEEE0000u + 2019);
    EXPECT_EQ(HexToDecimal(3, 0x20190710, &out), 1);
    EXPECT_EQ(out, 20190710u);
}

TEST(Numeral, DecimalToHexStoresInTheWidthOfTheSizeCode) {
    uint32_t out = 0xEEEEEEEE;
    EXPECT_EQ(DecimalToHex(1, 59, &out), 1);
    EXPECT_EQ(out, 0xEEEEEE59u);
    out = 0xEEEEEEEE;
    EXPECT_EQ(DecimalToHex(2, 2019, &out), 1);
    EXPECT_EQ(out, 0xEEEE2019u);
    EXPECT_EQ(DecimalToHex(3, 20190710, &out), 1);
    EXPECT_EQ(out, 0x20190710u);
}

TEST(Numeral, OneByteConversionsAgreeWithThe8BitForms) {
    for (uint32_t value = 0; value < 256; ++value) {
        uint8_t out = 0;
        EXPECT_EQ(HexToDecimal(1, value, &out), 1);
        EXPECT_EQ(out, HexToDecimal8(static_cast<uint8_t>(value)));
        EXPECT_EQ(DecimalToHex(1, value, &out), 1);
        EXPECT_EQ(out, DecimalToHex8(value));
    }
}

TEST(Numeral, BcdConversionsGiveZeroWithoutAPlaceToStore) {
    for (uint8_t size = 1; size <= 3; ++size) {
        EXPECT_EQ(HexToDecimal(size, 0x59, nullptr), 0);
        EXPECT_EQ(DecimalToHex(size, 59, nullptr), 0);
    }
}

TEST(Numeral, BcdConversionsOfAnotherSizeCodeStoreNothing) {
    uint32_t out = 0xEEEEEEEE;
    EXPECT_EQ(HexToDecimal(0, 0x59, &out), 0);
    EXPECT_EQ(HexToDecimal(4, 0x59, &out), 0);
    EXPECT_EQ(DecimalToHex(0, 59, &out), 0);
    EXPECT_EQ(DecimalToHex(4, 59, &out), 0);
    EXPECT_EQ(out, 0xEEEEEEEEu);
}
