#include "Project/ACPIAcc.h"

#include <gtest/gtest.h>

#include "TestHelp.h"

// A machine with a root pointer.
static void OpenMachine() {
    OpenBoard("base", "fill f0000 10000 00");
    PokeText(0xF5A00, "RSD PTR ");
}

TEST(ACPIAcc, WithoutMemoryForItsCopyTheRootPointerIsNotShown) {
    OpenMachine();
    SetCommand({"hwreg", "/ACPI", "/DUMP", "/LOG"});
    LimitMalloc(39);
    EXPECT_EQ(Printed([] { EXPECT_EQ(AcpiEntry(), 0x80000009u); }), "");
}

TEST(ACPIAcc, TheCommandGivesTheStatusOfTheSearch) {
    OpenMachine();
    SetCommand({"hwreg", "/ACPI"});
    EXPECT_EQ(Printed([] { EXPECT_EQ(AcpiEntry(), 0u); }), "");
    OpenBoard("base", "fill f0000 10000 00");
    EXPECT_EQ(Printed([] { EXPECT_EQ(AcpiEntry(), 0x8000000Eu); }), "");
}

TEST(ACPIAcc, TheCopyIsReleased) {
    OpenMachine();
    SetCommand({"hwreg", "/ACPI", "/DUMP", "/LOG"});
    long held = BlocksHeld();
    Printed([] { AcpiEntry(); });
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(ACPIAcc, TheCommandReadsNothingWithoutItsWord) {
    OpenMachine();
    SetCommand({"hwreg", "/DUMP"});
    EXPECT_EQ(Printed([] { EXPECT_EQ(AcpiEntry(), 0u); }), "");
    EXPECT_EQ(TakeLog(), Log{});
}
