#include "Base/Text.h"

#include <string>

#include <gtest/gtest.h>

TEST(Text, StrlenCountsTheBytesBeforeTheNul) {
    EXPECT_EQ(Strlen(""), 0u);
    EXPECT_EQ(Strlen("PCI"), 3u);
    EXPECT_EQ(Strlen("P\0CI"), 1u);
    EXPECT_EQ(Strlen(std::string(100000, 'x').c_str()), 100000u);
}

TEST(Text, WcslenCountsTheUnitsBeforeTheNul) {
    const uint16_t empty[] = {0};
    const uint16_t text[] = {0x0100, 0x4100, 0xFFFF, 0, 'x', 0}; // low bytes of 0 do not end it
    EXPECT_EQ(Wcslen(empty), 0u);
    EXPECT_EQ(Wcslen(text), 3u);
}

TEST(Text, StrcmpGivesTheDifferenceWhereTheTextsPart) {
    EXPECT_EQ(Strcmp("", ""), 0);
    EXPECT_EQ(Strcmp("RB", "RB"), 0);
    EXPECT_EQ(Strcmp("RD", "RB"), 'D' - 'B');
    EXPECT_EQ(Strcmp("RB", "RD"), 'B' - 'D');
    EXPECT_EQ(Strcmp("RBX", "RB"), 'X');
    EXPECT_EQ(Strcmp("RB", "RBX"), -'X');
    EXPECT_EQ(Strcmp("", "A"), -'A');
}

TEST(Text, StrcpyCopiesTheTextWithItsNulAndNothingMore) {
    char place[] = "########";
    EXPECT_EQ(Strcpy(place, "PCI"), place);
    EXPECT_EQ(std::string(place, 8), std::string("PCI\0####", 8));
}

TEST(Text, StrcatAppendsTheTextWithItsNul) {
    char place[9] = "AB\0#####";
    EXPECT_EQ(Strcat(place, "CD"), place);
    EXPECT_EQ(std::string(place, 8), std::string("ABCD\0###", 8));
}

TEST(Text, UStrCpyAndUStrCatIgnoreTheSize) {
    char place[16] = {};
    EXPECT_EQ(UStrCpy(place, 1, "SMBUS"), place);
    EXPECT_STREQ(place, "SMBUS");
    EXPECT_EQ(UStrCat(place, 0, " SPD"), place);
    EXPECT_STREQ(place, "SMBUS SPD");
}

TEST(Text, Char8ToChar16SignExtendsEachByteAndEndsWithTwoZeroUnits) {
    uint16_t wide[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(Char8ToChar16(wide, "A\x80\xFF"), wide);
    const uint16_t expected[6] = {'A', 0xFF80, 0xFFFF, 0, 0, 9};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(wide[i], expected[i]) << i;
}

TEST(Text, Char8ToChar16OfAnEmptyTextWritesTwoZeroUnits) {
    uint16_t wide[3] = {9, 9, 9};
    Char8ToChar16(wide, "");
    EXPECT_EQ(wide[0], 0);
    EXPECT_EQ(wide[1], 0);
    EXPECT_EQ(wide[2], 9);
}

TEST(Text, Char16ToChar8KeepsTheLowByteAndEndsWithTwoNuls) {
    const uint16_t wide[] = {'A', 0x3042, 0xFF80, 0};
    char narrow[7] = "######";
    EXPECT_EQ(Char16ToChar8(narrow, wide), narrow);
    EXPECT_EQ(std::string(narrow, 6), std::string("AB\x80\0\0#", 6));
}

TEST(Text, BothWidthsRoundTripEveryByte) {
    char bytes[257] = {};
    for (int i = 1; i < 256; ++i)
        bytes[i - 1] = static_cast<char>(i);
    uint16_t wide[257];
    char back[257];
    EXPECT_STREQ(Char16ToChar8(back, Char8ToChar16(wide, bytes)), bytes);
}

TEST(Text, LowerToUpperConvertsAsciiLettersOnly) {
    char text[] = "/pci `az{ 0x1f \xE4";
    char *place = text;
    lowerToUpper(&place);
    EXPECT_STREQ(text, "/PCI `AZ{ 0X1F \xE4");
    EXPECT_EQ(place, text);
}

TEST(Text, UpperToLowerConvertsAsciiLettersOnly) {
    char text[] = "/PCI @AZ[ 0X1F \xC4";
    char *place = text;
    upperToLower(&place);
    EXPECT_STREQ(text, "/pci @az[ 0x1f \xC4");
    EXPECT_EQ(place, text);
}

TEST(Text, CaseConversionLeavesANullStringAlone) {
    char *none = nullptr;
    lowerToUpper(&none);
    upperToLower(&none);
    EXPECT_EQ(none, nullptr);
    lowerToUpper(nullptr);
    upperToLower(nullptr);
}
