#include "Platform/PciCaps.h"

#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

TEST(PciCaps, APciExpressControllerHasItsCapability) {
    OpenBoard("intel");
    EXPECT_TRUE(isPcieController(1, 0, 0));
    EXPECT_TRUE(isPcieController(0, 1, 0));
    EXPECT_FALSE(isPcieController(0, 0x14, 0)); // capabilities, but not this one
    EXPECT_FALSE(isPcieController(5, 1, 0));    // no list
}

TEST(PciCaps, TheCapabilityListIsWalkedInWords) {
    OpenBoard("intel");
    EXPECT_TRUE(isPcieController(1, 0, 0));
    EXPECT_EQ(TakeLog(),
              LegacyPci("80010034", "in16 0cfc -> 0040") + LegacyPci("80010040", "in16 0cfc -> 5001") +
                  LegacyPci("80010050", "in16 0cfc -> 7005") + LegacyPci("80010070", "in16 0cfc -> b010"));
    EXPECT_FALSE(isPcieController(5, 1, 0));
    EXPECT_EQ(TakeAccesses(), LegacyPci("80050834", "in16 0cfc"));
}

TEST(PciCaps, TheWalkTakesPointersAsTheyStandAndAsksNoStatusBit) {
    OpenBoard("intel");
    const uint16_t card = Function(5, 1, 0);
    BoardSetPci(card, 0x34, 2, 0xFF41); // the high byte is not the pointer's
    BoardSetPci(card, 0x41, 2, 0x5305);
    BoardSetPci(card, 0x53, 2, 0x0010);
    EXPECT_TRUE(isPcieController(5, 1, 0));
}

TEST(PciCaps, AnIdOfZeroDoesNotEndTheWalk) {
    OpenBoard("intel");
    const uint16_t card = Function(5, 1, 0);
    BoardSetPci(card, 0x34, 1, 0x40);
    BoardSetPci(card, 0x40, 2, 0x5000);
    BoardSetPci(card, 0x50, 2, 0x0010);
    EXPECT_TRUE(isPcieController(5, 1, 0));
}

TEST(PciCaps, ACapabilityListThatRunsInACircleComesToAnEnd) {
    OpenBoard("caploop");
    EXPECT_FALSE(isPcieController(0, 0x14, 0));
    EXPECT_FALSE(isPcieController(1, 0, 0));
    EXPECT_FALSE(isPcieController(9, 9, 7)); // an absent function: 0xFF leads to 0xFF
}

TEST(PciCaps, AWalkInACircleTakesAsManyStepsAsAListCanHaveEntries) {
    OpenBoard("caploop");
    EXPECT_FALSE(isPcieController(0, 0x14, 0));
    EXPECT_EQ(TakeLog().size(), (1u + 256) * LegacyPci("", "").size());
    PcieFindCapId(0, 0, 0, 0xFF); // looks the window up
    TakeLog();
    EXPECT_EQ(PcieFindCapId(0, 0x14, 0, 0x10), 0);
    EXPECT_EQ(TakeLog().size(), (3u + 256 * 2) * Mapped("", "", {""}).size());
}

TEST(PciCaps, ACapabilityIsFoundInTheMemoryMappedPage) {
    OpenBoard("intel");
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x10), 0x70);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x01), 0x40);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x11), 0xB0);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x09), 0);
}

TEST(PciCaps, OneBitOfTheStatusSaysThatThereIsAList) {
    OpenBoard("intel");
    uint16_t card = Function(1, 0, 0);
    BoardSetPci(card, 0x06, 2, 0xFFEF);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x10), 0);
    BoardSetPci(card, 0x06, 2, 0x0010);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x10), 0x70);
}

TEST(PciCaps, TheCapabilitySearchReadsBytes) {
    OpenBoard("intel");
    PcieFindCapId(0, 0, 0, 0xFF); // looks the window up
    TakeLog();
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x05), 0x50);
    const Log reads[] = {{"mr8 e0100006 -> 10"}, {"mr8 e010000e -> 00"}, {"mr8 e0100034 -> 40"},
                         {"mr8 e0100040 -> 01"}, {"mr8 e0100041 -> 50"}, {"mr8 e0100050 -> 05"}};
    Log expected;
    for (const Log &read : reads)
        expected = expected + Mapped("e0100000", "2000", read);
    EXPECT_EQ(TakeLog(), expected);
}

TEST(PciCaps, WithoutTheStatusBitThereIsNoCapabilityList) {
    OpenBoard("intel");
    BoardSetPci(Function(1, 0, 0), 0x06, 2, 0);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x10), 0);
}

TEST(PciCaps, TheListOfACardBusBridgeBeginsAt14) {
    OpenBoard("intel");
    EXPECT_EQ(PcieFindCapId(5, 0, 0, 0x01), 0xA0);
    BoardSetPci(Function(5, 0, 0), 0x0E, 1, 0x82); // a multi-function one too
    EXPECT_EQ(PcieFindCapId(5, 0, 0, 0x01), 0xA0);
}

TEST(PciCaps, TheLowBitsOfCapabilityPointersAreCleared) {
    OpenBoard("intel");
    const uint16_t drive = Function(1, 0, 0);
    BoardSetPci(drive, 0x34, 1, 0x43);
    BoardSetPci(drive, 0x41, 1, 0x51);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x01), 0x40);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x05), 0x50);
}

TEST(PciCaps, AnIdOfAllOnesEndsTheCapabilitySearch) {
    OpenBoard("intel");
    BoardSetPci(Function(1, 0, 0), 0x40, 2, 0x50FF);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x05), 0);
}

TEST(PciCaps, ACapabilitySearchInACircleComesToAnEnd) {
    OpenBoard("caploop");
    EXPECT_EQ(PcieFindCapId(0, 0x14, 0, 0x10), 0);
    EXPECT_EQ(PcieFindCapId(1, 0, 0, 0x10), 0);
    EXPECT_EQ(PcieFindCapId(9, 0, 0, 0x10), 0); // absent: all ones
}
