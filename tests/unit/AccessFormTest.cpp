#include "Project/AccessForm.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

static AccessWidth Find(std::initializer_list<const char *> words, uint16_t *pos) {
    SetCommand(words);
    AccessForm form = FindAccess(CmdWord());
    *pos = form.pos;
    return form.width;
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

TEST(AccessForm, AWidthIsFoundByItself) {
    uint16_t pos = 0;
    SetCommand({"hwreg", "/RB", "/RD", "/WD"});
    EXPECT_TRUE(FindWidth(ACCESS_DWORD, &pos));
    EXPECT_EQ(pos, 3);
    EXPECT_TRUE(FindWidth(ACCESS_BYTE, &pos));
    EXPECT_EQ(pos, 1);
    EXPECT_FALSE(FindWidth(ACCESS_WORD, &pos));
}

TEST(AccessForm, TheFirstFormIsThatOfTheFirstWord) {
    AccessForm form;
    SetCommand({"RB", "/RW", "/RB", "/DUMP"}); // the program's name is no word
    EXPECT_TRUE(FindFirstForm(CmdWord(), &form));
    EXPECT_EQ(form.width, ACCESS_WORD);
    EXPECT_EQ(form.pos, 1);
    SetCommand({"hwreg", "/DUMP", "/RB"});
    EXPECT_TRUE(FindFirstForm(CmdWord(), &form));
    EXPECT_EQ(form.width, ACCESS_NONE);
    EXPECT_EQ(form.pos, 1);
    SetCommand({"hwreg", "/IO", "/RQ"});
    EXPECT_FALSE(FindFirstForm(CmdWord(), &form));
}

static AccessWidth OfWord(const char *word) {
    return AccessOfWord(0, word, 0).width;
}

TEST(AccessForm, AWordNamesTheWidthOfItsReadOrWrite) {
    EXPECT_EQ(OfWord("/RI"), ACCESS_BIT);
    EXPECT_EQ(OfWord("WB"), ACCESS_BYTE);
    EXPECT_EQ(OfWord("-RW"), ACCESS_WORD);
    EXPECT_EQ(OfWord("\\WD"), ACCESS_DWORD);
    EXPECT_EQ(OfWord("/RQ"), ACCESS_NONE);
    EXPECT_EQ(OfWord("/DUMP"), ACCESS_NONE);
}

TEST(AccessForm, ReadAndWriteFlagsAreThoseOfTheWidth) {
    SetCommand({"hwreg", "/IO", "/RB", "/WD"});
    AccessForm byte = FindAccess(CmdWord());
    EXPECT_TRUE(byte.reads);
    EXPECT_FALSE(byte.writes);
    AccessForm dword = AccessOfWord(CmdWord(), "/WD", 3);
    EXPECT_TRUE(dword.writes);
    EXPECT_FALSE(dword.reads);
    EXPECT_EQ(dword.pos, 3);
    EXPECT_FALSE(AccessOfWord(CmdWord(), "/RI", 3).reads);
    EXPECT_FALSE(AccessOfWord(CmdWord(), "/WW", 3).writes);
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
