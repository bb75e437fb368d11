#include "Project/AccessForm.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

static AccessWidth Find(std::initializer_list<const char *> words, uint16_t *pos) {
    SetCommand(words);
    return FindAccess(pos);
}

TEST(AccessForm, TheAccessWordAndItsPositionAreFound) {
    uint16_t pos = 0;
    EXPECT_EQ(Find({"hwreg", "/IO", "/RB", "0x80"}, &pos), ACCESS_BYTE);
    EXPECT_EQ(pos, 2);
    EXPECT_EQ(Find({"hwreg", "/WD", "/IO"}, &pos), ACCESS_DWORD);
    EXPECT_EQ(pos, 1);
    EXPECT_EQ(Find({"hwreg", "/IO", "-rw"}, &pos), ACCESS_WORD);
    EXPECT_EQ(Find({"hwreg", "/IO", "WI"}, &pos), ACCESS_BIT);
    EXPECT_EQ(Find({"hwreg", "/IO", "/RQ", "/WQ", "/DUMP"}, &pos), ACCESS_NONE);
}

TEST(AccessForm, TheNarrowerWidthWinsAndTheWriteWordIsFoundFirst) {
    uint16_t pos = 0;
    EXPECT_EQ(Find({"hwreg", "/RD", "/RW", "/RB", "/RI"}, &pos), ACCESS_BIT);
    EXPECT_EQ(pos, 4);
    EXPECT_EQ(Find({"hwreg", "/RB", "/WB"}, &pos), ACCESS_BYTE);
    EXPECT_EQ(pos, 2);
}

TEST(AccessForm, AWordNamesTheWidthOfItsReadOrWrite) {
    EXPECT_EQ(AccessOfWord("/RI"), ACCESS_BIT);
    EXPECT_EQ(AccessOfWord("WB"), ACCESS_BYTE);
    EXPECT_EQ(AccessOfWord("-RW"), ACCESS_WORD);
    EXPECT_EQ(AccessOfWord("\\WD"), ACCESS_DWORD);
    EXPECT_EQ(AccessOfWord("/RQ"), ACCESS_NONE);
    EXPECT_EQ(AccessOfWord("/DUMP"), ACCESS_NONE);
}

TEST(AccessForm, ReadAndWriteFlagsAreThoseOfTheWidth) {
    SetCommand({"hwreg", "/IO", "/RB", "/WD"});
    EXPECT_TRUE(AccessReads(ACCESS_BYTE));
    EXPECT_FALSE(AccessWrites(ACCESS_BYTE));
    EXPECT_TRUE(AccessWrites(ACCESS_DWORD));
    EXPECT_FALSE(AccessReads(ACCESS_DWORD));
    EXPECT_FALSE(AccessReads(ACCESS_BIT));
    EXPECT_FALSE(AccessWrites(ACCESS_WORD));
}

// What is printed for the value; the value returned is compared.
static std::string Report(AccessWidth width, uint32_t value, uint32_t returned) {
    return Printed([&] { EXPECT_EQ(ReportData(width, value), returned); });
}

TEST(AccessForm, TheReportHasTheFormatOfTheWidthAndCutsTheValueToIt) {
    EXPECT_EQ(Report(ACCESS_BIT, 1, 1), "return data:1\n");
    EXPECT_EQ(Report(ACCESS_BYTE, 5, 5), "return data:0x05\n");
    EXPECT_EQ(Report(ACCESS_BYTE, 0xFFFFFFFF, 0xFF), "return data:0xFF\n");
    EXPECT_EQ(Report(ACCESS_WORD, 0xFFFFFFFF, 0xFFFF), "return data:0xFFFF\n");
    EXPECT_EQ(Report(ACCESS_WORD, 0x1A, 0x1A), "return data:0x001A\n");
    EXPECT_EQ(Report(ACCESS_DWORD, 0xCAFE, 0xCAFE), "return data:0x0000CAFE\n");
}
