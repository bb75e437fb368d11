#include "Platform/PciFind.h"

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

TEST(PciFind, AFunctionIsMultipleByItsHeaderType) {
    OpenBoard("intel");
    EXPECT_FALSE(isPciMultipleFunction(0, 0));
    EXPECT_EQ(TakeAccesses(), LegacyPci("8000000e", "in8 0cfe"));
    EXPECT_TRUE(isPciMultipleFunction(0, 0x14));
    EXPECT_TRUE(isPciMultipleFunction(0, 0x1C)); // header 81
    EXPECT_FALSE(isPciMultipleFunction(0, 3));   // absent: FF
    BoardSetPci(Function(0, 0x14, 0), 0x0E, 1, 0x7F);
    EXPECT_FALSE(isPciMultipleFunction(0, 0x14));
}

TEST(PciFind, TheFirstFunctionOfAClassIsFound) {
    OpenBoard("intel");
    uint16_t bus = 99, dev = 99, fun = 99;
    EXPECT_EQ(SourchPciControllerByClass(&bus, &dev, &fun, 0x0C05), 1);
    EXPECT_EQ(bus, 0);
    EXPECT_EQ(dev, 0x1F);
    EXPECT_EQ(fun, 4);
    EXPECT_EQ(SourchPciControllerByClass(&bus, &dev, &fun, 0x0200), 1); // five of them: the first wins
    EXPECT_EQ(bus, 2);
    EXPECT_EQ(dev, 0);
    EXPECT_EQ(fun, 0);
}

TEST(PciFind, TheClassSearchProbesEveryFunctionWithOneReadEach) {
    OpenBoard("intel");
    SourchPciControllerByClass(nullptr, nullptr, nullptr, 0x0604); // 00:01.0
    Log log = TakeAccesses();
    ASSERT_EQ(log.size(), 9u * 4);
    EXPECT_EQ(Log(log.begin() + 28, log.end()),
              LegacyPci("8000070a", "in16 0cfe") + LegacyPci("8000080a", "in16 0cfe"));
}

TEST(PciFind, TheOutputsOfTheClassSearchAreOptional) {
    OpenBoard("intel");
    uint16_t dev = 99;
    EXPECT_EQ(SourchPciControllerByClass(nullptr, &dev, nullptr, 0x0C05), 1);
    EXPECT_EQ(dev, 0x1F);
}

TEST(PciFind, AClassThatIsNotThereIsReported) {
    OpenBoard("intel");
    uint16_t bus = 99, dev = 99, fun = 99;
    EXPECT_EQ(Printed([&] { EXPECT_EQ(SourchPciControllerByClass(&bus, &dev, &fun, 0x0C07), 0); }),
              "Not found ClaseCode(0C07)\n");
    EXPECT_EQ(bus, 99);
    EXPECT_EQ(TakeLog().size(), 65536u * 4);
}

TEST(PciFind, TheClassCodeIsTheWordAt0A) {
    OpenBoard("intel");
    EXPECT_EQ(GetPciClassCode(0, 0x1F, 4), 0x0C05);
    EXPECT_EQ(TakeAccesses(), LegacyPci("8000fc0a", "in16 0cfe"));
    EXPECT_EQ(GetPciClassCode(0, 0, 0), 0x0600);
    EXPECT_EQ(GetPciClassCode(1, 0, 0), 0x0108); // the programming interface is no part of it
}
