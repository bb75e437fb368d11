#include "Common/ComFunc/CmdLine.h"

#include <string>

#include <gtest/gtest.h>

#include "TestHelp.h"

TEST(CmdLine, AWordMatchesBareOrBehindOneOfThreePrefixes) {
    EXPECT_EQ(CmdSearchFromBuffer("IO", "IO"), 0u);
    EXPECT_EQ(CmdSearchFromBuffer("/IO", "IO"), 0u);
    EXPECT_EQ(CmdSearchFromBuffer("-IO", "IO"), 0u);
    EXPECT_EQ(CmdSearchFromBuffer("\\IO", "IO"), 0u);
}

TEST(CmdLine, AWordIsMatchedWholeAndCaseSensitively) {
    for (const char *word :
         {"", "/", "I", "/I", "IOX", "/IOX", "//IO", "--IO", "+IO", "io", "/io", "/IO ", " IO"})
        EXPECT_EQ(CmdSearchFromBuffer(word, "IO"), 0x8000000Eu) << word;
}

TEST(CmdLine, ASwitchWordMayHave20Characters) {
    const std::string longest(20, 'A');
    EXPECT_EQ(CmdSearchFromBuffer(longest.c_str(), longest.c_str()), 0u);
    EXPECT_EQ(CmdSearchFromBuffer(("/" + longest).c_str(), longest.c_str()), 0u);
    EXPECT_EQ(CmdSearchFromBuffer("x", longest.c_str()), 0x8000000Eu);
    const std::string tooLong(21, 'A');
    EXPECT_EQ(CmdSearchFromBuffer(tooLong.c_str(), tooLong.c_str()), 0x80000005u);
    EXPECT_EQ(CmdSearchFromBuffer(nullptr, tooLong.c_str()), 0x80000005u); // looked at before anything else
}

TEST(CmdLine, ANullWordOrSwitchWordAborts) {
    EXPECT_EQ(CmdSearchFromBuffer(nullptr, "IO"), 0x80000015u);
    EXPECT_EQ(CmdSearchFromBuffer("IO", nullptr), 0x80000015u);
    EXPECT_EQ(CmdSearchFromBuffer(nullptr, nullptr), 0x80000015u);
}

TEST(CmdLine, AnArgumentOfAnyLengthIsCompared) {
    EXPECT_EQ(CmdSearchFromBuffer(std::string(100000, 'I').c_str(), "IO"), 0x8000000Eu);
}

TEST(CmdLine, ASwitchIsKnownWithoutMemory) {
    for (const char *word : {"IO", "/IO", "-IO", "\\IO"}) {
        LimitMalloc(0);
        EXPECT_EQ(CmdSearchFromBuffer(word, "IO"), 0u) << word;
    }
}

TEST(CmdLine, CmdSearchFromArgvGivesTheFirstPosition) {
    char **argv = Words({"hwreg", "/PCI", "/RB", "0", "RB"});
    uint16_t pos = 99;
    EXPECT_EQ(CmdSearchFromArgv(argv, "RB", &pos), 0u);
    EXPECT_EQ(pos, 2);
    EXPECT_EQ(CmdSearchFromArgv(argv, "PCI", &pos), 0u);
    EXPECT_EQ(pos, 1);
    EXPECT_EQ(CmdSearchFromArgv(argv, "PCI", nullptr), 0u);
}

TEST(CmdLine, CmdSearchFromArgvLooksAtTheProgramNameToo) {
    uint16_t pos = 99;
    EXPECT_EQ(CmdSearchFromArgv(Words({"IO", "/IO"}), "IO", &pos), 0u);
    EXPECT_EQ(pos, 0);
}

TEST(CmdLine, CmdSearchFromArgvFindsWordsWithoutAFlag) {
    uint16_t pos = 99;
    EXPECT_EQ(CmdSearchFromArgv(Words({"hwreg", "/MSR", "\\ALL"}), "ALL", &pos), 0u);
    EXPECT_EQ(pos, 2);
}

TEST(CmdLine, CmdSearchFromArgvFailures) {
    uint16_t pos = 99;
    EXPECT_EQ(CmdSearchFromArgv(Words({"hwreg", "/PCI"}), "RB", &pos), 0x8000000Eu);
    EXPECT_EQ(CmdSearchFromArgv(Words({}), "RB", &pos), 0x80000015u);
    EXPECT_EQ(CmdSearchFromArgv(Words({"hwreg"}), nullptr, &pos), 0x80000015u);
    EXPECT_EQ(pos, 99);
}

TEST(CmdLine, PositionsAreNotCutTo8Bits) {
    std::vector<char *> argv(300, const_cast<char *>("x"));
    argv.push_back(const_cast<char *>("/RB"));
    argv.push_back(nullptr);
    uint16_t pos = 0;
    EXPECT_EQ(CmdSearchFromArgv(argv.data(), "RB", &pos), 0u);
    EXPECT_EQ(pos, 300);
}

TEST(CmdLine, OperandsFollowTheirSwitch) {
    SetCommand({"hwreg", "/PCI", "/RB", "0", "0x1f", "3"});
    EXPECT_EQ(CmdOperand(2, 1), 0u);
    EXPECT_EQ(CmdOperand(2, 2), 0x1Fu);
    EXPECT_EQ(CmdOperand(2, 3), 3u);
    EXPECT_STREQ(CmdArgText(2, 0), "/RB");
    EXPECT_STREQ(CmdArgText(2, 2), "0X1F");
}

TEST(CmdLine, AnOperandBeyondTheLastWordIsZeroHoweverFarBeyond) {
    SetCommand({"hwreg", "/PCI", "/RB", "7"});
    EXPECT_EQ(CmdOperand(2, 1), 7u);
    EXPECT_EQ(CmdArgText(2, 2), nullptr);
    EXPECT_EQ(CmdArgText(2, 3), nullptr);
    EXPECT_EQ(CmdArgText(2, 1000), nullptr);
    EXPECT_EQ(CmdOperand(2, 2), 0u);
    EXPECT_EQ(CmdOperand(2, 1000), 0u);
}

TEST(CmdLine, TheFirstWordThatIsThereAtAllIsFound) {
    SetCommand({"hwreg", "/RD", "/RB"});
    uint16_t pos = 99;
    EXPECT_TRUE(CmdFind({"RB", "RW", "RD"}, &pos));
    EXPECT_EQ(pos, 2);
    EXPECT_TRUE(CmdFind({"RW", "RD"}, &pos));
    EXPECT_EQ(pos, 1);
    EXPECT_TRUE(CmdFind({"RD"}, nullptr));
    EXPECT_FALSE(CmdFind({"WB", "WW"}, &pos));
    EXPECT_EQ(pos, 1);
}

TEST(CmdLine, InAnEmptyVectorNothingIsFound) {
    char *empty[] = {nullptr};
    uint16_t pos = 99;
    EXPECT_FALSE(CmdFindIn(empty, {"S"}, &pos));
    EXPECT_FALSE(CmdFindIn(nullptr, {"S"}, &pos));
    EXPECT_EQ(pos, 99);
}

TEST(CmdLine, OperandsAreCutToTheirWidth) {
    SetCommand({"hwreg", "/RB", "0x123456789ABCDEF0"});
    EXPECT_EQ(OperandByte(1, 1), 0xF0);
    EXPECT_EQ(OperandWord(1, 1), 0xDEF0);
    EXPECT_EQ(OperandDword(1, 1), 0x9ABCDEF0u);
    EXPECT_EQ(OperandDword(1, 2), 0u);
}
