#include "Project/Smbios.h"

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "Base/Memory.h"
#include "Platform/SmbiosTable.h"
#include "SmbiosTables.h"
#include "TestHelp.h"

static size_t Views(const std::string &text) {
    size_t count = 0;
    for (size_t at = text.find("\r\n00 "); at != std::string::npos; at = text.find("\r\n00 ", at + 1))
        ++count;
    return count;
}

TEST(Smbios, AWalkOverAnotherTableEndsAtItsEndStructure) {
    std::string large; // its block is cut up when it is free
    while (large.size() < 700)
        large += SYSTEM;
    OpenTable(large + END);
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"});
    Printed([] { ShowSmbiosAllType(nullptr); }); // a table was loaded and released before
    const std::string own = DIMM + END + END;
    std::vector<uint8_t *> tables(64); // some of them where the released one was
    for (uint8_t *&table : tables) {
        table = static_cast<uint8_t *>(Malloc(own.size()));
        memcpy(table, own.data(), own.size());
        EXPECT_EQ(SearchSmbiosType(table, 17), table);
        std::string text = Printed([=] { EXPECT_EQ(ShowSmbiosTargetType(table, 127), 0x8000000Eu); });
        EXPECT_EQ(Views(text), 1u);
    }
    std::for_each(tables.begin(), tables.end(), Free);
}

TEST(Smbios, OfAnotherTableEachStructureOfATypeIsShown) {
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"});
    const uint8_t *table = StillTable(DIMM + SYSTEM + DIMM + END);
    EXPECT_EQ(Views(Printed([=] { ShowSmbiosTargetType(table, 17); })), 2u);
}

TEST(Smbios, WithoutMemoryForItsCapitalsATextIsNotSearched) {
    OpenTable(SYSTEM + END);
    SetCommand({"hwreg", "/SMBIOS", "/S", "Maker"});
    unsigned refused = 0;
    for (unsigned count = 1; count < 10; ++count) {
        EFI_STATUS status = EFI_SUCCESS;
        FailMalloc(count);
        std::string text = Printed([&] { status = SmbiosEntry(); });
        refused += status == 0x80000009u && text.empty() ? 1 : 0;
    }
    EXPECT_EQ(refused, 1u);
}

TEST(Smbios, NothingIsKeptWhenAnAllocationFails) {
    OpenTable(SYSTEM + END);
    SetCommand({"hwreg", "/SMBIOS", "/LOG", "/TEXT"});
    FeedInput("");
    long held = BlocksHeld();
    for (unsigned count = 1; count < 12; ++count) {
        FailMalloc(count);
        Printed([] { SmbiosEntry(); });
        GetCPUSpeedSmb();
        EXPECT_EQ(BlocksHeld(), held) << count;
    }
}

TEST(Smbios, AllTypesOfTheLoadedTableAreShown) {
    OpenTable(SYSTEM + DIMM + END);
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"});
    std::string text = Printed([] { EXPECT_EQ(ShowSmbiosAllType(nullptr), 0u); });
    EXPECT_NE(text.find("SMBIOS Type:001, Length:008, Handle:001\n"), std::string::npos);
    EXPECT_NE(text.find("SMBIOS Type:017, Length:005, Handle:017\n"), std::string::npos);
    EXPECT_EQ(Views(text), 2u);
}

TEST(Smbios, WithoutDumpTheStructuresAreNamedAndNotShown) {
    OpenLegacy();
    SetCommand({"hwreg", "/SMBIOS"});
    const uint8_t *table = StillTable(SYSTEM + DIMM + END);
    std::string text = Printed([&] { EXPECT_EQ(ShowSmbiosAllType(table), 0u); });
    EXPECT_EQ(text, "SMBIOS Type:001, Length:008, Handle:001\nSMBIOS Type:017, Length:005, Handle:017\n");
    EXPECT_EQ(TakeLog(), Log{}); // a table that is given is not loaded
}

TEST(Smbios, ATableThatCannotBeLoadedIsAccessDenied) {
    OpenLegacy();
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/LOG"});
    EXPECT_EQ(Printed([] {
                  EXPECT_EQ(ShowSmbiosAllType(nullptr), 0x8000000Fu);
                  EXPECT_EQ(ShowSmbiosTargetType(nullptr, 17), 0x8000000Fu);
              }),
              "");
}

TEST(Smbios, TheEndOfATypeIsNotFoundEvenIfSomeWereShown) {
    OpenTable(SYSTEM + DIMM + BOARD + DIMM + END);
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"});
    std::string text = Printed([] { EXPECT_EQ(ShowSmbiosTargetType(nullptr, 17), 0x8000000Eu); });
    EXPECT_EQ(Views(text), 2u);
    EXPECT_EQ(text.find("SMBIOS Type"), std::string::npos);
    EXPECT_EQ(Printed([] { EXPECT_EQ(ShowSmbiosTargetType(nullptr, 4), 0x8000000Eu); }), "");
}

TEST(Smbios, ATableInTheMiddleOfACopyIsShownFromThereOn) {
    OpenTable(SYSTEM + DIMM + BOARD);
    SetCommand({"hwreg", "/SMBIOS", "/LOG"});
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    const uint8_t *middle = table + SYSTEM.size();
    std::string text = Printed([&] { EXPECT_EQ(ShowSmbiosAllType(middle), 0u); });
    EXPECT_EQ(text, "SMBIOS Type:017, Length:005, Handle:017\nSMBIOS Type:002, Length:014, Handle:002\n");
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"});
    EXPECT_EQ(Printed([&] { EXPECT_EQ(ShowSmbiosTargetType(middle, 1), 0x8000000Eu); }), "");
    ReleaseTable(table);
}

TEST(Smbios, InACopyEndStructuresAreShownOneAfterTheOther) {
    OpenTable(SYSTEM + END + DIMM + END);
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"});
    std::string text = Printed([] { EXPECT_EQ(ShowSmbiosTargetType(nullptr, 127), 0x8000000Eu); });
    EXPECT_EQ(Views(text), 2u);
}

TEST(Smbios, ATableThatWasLoadedForItsViewsIsReleased) {
    OpenTable(SYSTEM + DIMM + END);
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/LOG", "/TEXT"});
    long held = BlocksHeld();
    Printed([] {
        ShowSmbiosTargetType(nullptr, 17);
        ShowSmbiosAllType(nullptr);
    });
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(Smbios, EscEndsTheViewsWithSuccess) {
    OpenTable(SYSTEM + DIMM + DIMM + END);
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/TEXT"});
    FeedInput("\x1b\x1b");
    EXPECT_EQ(Views(Printed([] { EXPECT_EQ(ShowSmbiosTargetType(nullptr, 17), 0u); })), 1u);
    EXPECT_EQ(Views(Printed([] { EXPECT_EQ(ShowSmbiosAllType(nullptr), 0u); })), 1u);
    FeedInput(" \x1b");
    EXPECT_EQ(Views(Printed([] { EXPECT_EQ(ShowSmbiosTargetType(nullptr, 17), 0u); })), 2u);
}

TEST(Smbios, TheCommandsStatusIsThatOfLoadingOrOfTheSearch) {
    OpenLegacy();
    SetCommand({"hwreg", "/SMBIOS", "/LOG"});
    EXPECT_EQ(Printed([] { EXPECT_EQ(SmbiosEntry(), 0x80000007u); }), "");
    OpenTable(SYSTEM + END);
    Printed([] { EXPECT_EQ(SmbiosEntry(), 0u); });
    SetCommand({"hwreg", "/SMBIOS", "/S", "nowhere"});
    Printed([] { EXPECT_EQ(SmbiosEntry(), 0x8000000Eu); });
    SetCommand({"hwreg", "/SMBIOS", "/S", "Maker"});
    Printed([] { EXPECT_EQ(SmbiosEntry(), 0u); });
    SetCommand({"hwreg", "/SMBIOS", "/?"});
    Printed([] { EXPECT_EQ(SmbiosEntry(), 0x80000002u); });
}

TEST(Smbios, TheListingTurnsTheViewOnAndOneTypeTheLogModeToo) {
    OpenTable(SYSTEM + END);
    FeedInput(" ");
    CmdArg *record = SetCommand({"hwreg", "/SMBIOS"});
    Printed([] { EXPECT_EQ(SmbiosEntry(), 0u); });
    EXPECT_EQ(record->DispFlags, DISP_DUMP);
    record = SetCommand({"hwreg", "/SMBIOS", "/TYPE", "1"});
    Printed([] { EXPECT_EQ(SmbiosEntry(), 0u); });
    EXPECT_EQ(record->DispFlags, DISP_DUMP | DISP_LOG);
    record = SetCommand({"hwreg", "/SMBIOS", "/S", "x"});
    Printed([] { EXPECT_EQ(SmbiosEntry(), 0x8000000Eu); });
    EXPECT_EQ(record->DispFlags, 0);
}
