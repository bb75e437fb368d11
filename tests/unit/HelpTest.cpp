#include "Main/Help.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

static std::string Banner() {
    return Printed(showlogo);
}

TEST(Help, TheFirstBannerLineStands23SpacesOffTheMargin) {
    const std::string first = std::string(23, ' ') + "Utility -- Rev 1.01 BUILD 2019-07-10\n";
    EXPECT_EQ(Banner().substr(0, first.size()), first);
}

TEST(Help, TheSecondBannerLineIsANoticeBetweenAsterisks) {
    const std::string banner = Banner();
    const std::string second = banner.substr(banner.find('\n') + 1);
    const std::string asterisks(21, '*');
    ASSERT_EQ(second.size(), 80u); // with its line end: both lines together have 117 characters
    EXPECT_EQ(second.substr(0, 23), asterisks + "  ");
    EXPECT_EQ(second.substr(56), "  " + asterisks + "\n");
    const std::string notice = second.substr(23, 33);
    EXPECT_NE(notice.front(), ' ');
    EXPECT_NE(notice.back(), ' ');
    EXPECT_EQ(notice.find('*'), std::string::npos);
}

static const char *const HELP_LINES = "  CMD: \n"
                                      "      /IO:    Io Access;            /MEM:    Memory Access;\n"
                                      "      /PCI:   Pci Access;           /SMBUS:  Smbus Access;\n"
                                      "      /MSR:   MSR Access;           /SMBIOS: SMBios Access;\n"
                                      "  ===========================================================\n"
                                      "  OPT:/RI [Addr, ...]:                   Read Bit;\n"
                                      "      /RB [Addr, ...]:                   Read Byte;\n"
                                      "      /RW [Addr, ...]:                   Read Word;\n"
                                      "      /RD [Addr, ...]:                   Read Dword;\n"
                                      "      /WI [Addr, ...] [iData]:           Write Bit;\n"
                                      "      /WB [Addr, ...] [bData]:           Write Byte;\n"
                                      "      /WW [Addr, ...] [wData]:           Write Word;\n"
                                      "      /WD [Addr, ...] [dData]:           Write Dword;\n"
                                      "   More detail please refer ReadMe.doc. \n";

static std::string HelpOn(const char *board) {
    OpenBoard(board);
    return Printed([] { EXPECT_EQ(showHelp(), 0u); });
}

TEST(Help, TheScreenIsTheBannerTheVendorAndFourteenLines) {
    EXPECT_EQ(HelpOn("intel"), Banner() + "  Help list(Intel):\n" + HELP_LINES);
}

TEST(Help, TheHeadingNamesTheVendorOfTheChipset) {
    EXPECT_NE(HelpOn("amd").find("  Help list(AMD):\n"), std::string::npos);
    EXPECT_NE(HelpOn("ati").find("  Help list(AMD):\n"), std::string::npos);
    EXPECT_NE(HelpOn("hygon").find("  Help list(Higon):\n"), std::string::npos);
    EXPECT_NE(HelpOn("unknown").find("  Help list(Unknown):\n"), std::string::npos);
}

TEST(Help, NoKeyIsAskedForAndTheScreenIsNotCleared) {
    FeedInput("x");
    EXPECT_EQ(HelpOn("intel").find("Press any key"), std::string::npos);
    EXPECT_EQ(InputLeft(), "x");
    EXPECT_EQ(TakeAccesses(), LegacyPci("80000000", "in16 0cfc")); // the vendor and nothing else
}
