#include "Platform/SmbiosTable.h"

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "Base/Memory.h"
#include "SmbiosTables.h"
#include "TestHelp.h"
#include "sim/Board.h"

// Maximum speed at 14h and current speed at 16h (DSP0134, 7.5).
static std::string Processor(uint16_t maximum, uint16_t current) {
    std::string body(0x30 - 4, '\x5A');
    memcpy(&body[0x14 - 4], &maximum, sizeof(maximum));
    memcpy(&body[0x16 - 4], &current, sizeof(current));
    return Structure(4, 0x04, body, String("CPU0"));
}

static void PutEntry32(uint32_t address, uint16_t length, uint8_t major = 2) {
    PokeText(SMBIOS_ENTRY, "_SM_");
    BoardPoke(SMBIOS_ENTRY + 6, &major, 1);
    PokeText(SMBIOS_ENTRY + 0x10, "_DMI_");
    Poke16(SMBIOS_ENTRY + 0x16, length);
    Poke32(SMBIOS_ENTRY + 0x18, address);
}

// ---- entry points ----

TEST(SmbiosTable, TheVersionOfA64BitEntryPointIsItsMajorVersion) {
    for (unsigned number : {0u, 2u, 3u, 4u, 255u}) {
        uint8_t major = static_cast<uint8_t>(number);
        OpenLegacy();
        PutEntry64(SMBIOS_TABLE, 0x1234, major);
        PokeText(SMBIOS_ENTRY + 24, "BEHIND");
        uint8_t *entry = nullptr;
        uint8_t version = 0x5A;
        ASSERT_EQ(GetSmbiosVersion(&entry, &version), 0u);
        EXPECT_EQ(version, major);
        uint8_t expected[32] = {}; // what is not copied is 0
        BoardPeek(SMBIOS_ENTRY, expected, 24);
        EXPECT_EQ(memcmp(entry, expected, sizeof(expected)), 0);
        Free(entry);
    }
}

TEST(SmbiosTable, TheVersionOfA32BitEntryPointIsNeverAbove2) {
    for (unsigned number : {0u, 1u, 2u, 3u, 255u}) {
        uint8_t major = static_cast<uint8_t>(number);
        OpenLegacy();
        PutEntry32(SMBIOS_TABLE, 0x1234, major);
        PokeText(SMBIOS_ENTRY + 31, "L"); // the last byte
        uint8_t *entry = nullptr;
        uint8_t version = 0x5A;
        ASSERT_EQ(GetSmbiosVersion(&entry, &version), 0u);
        EXPECT_EQ(version, major > 2 ? 2 : major);
        uint8_t expected[32];
        BoardPeek(SMBIOS_ENTRY, expected, sizeof(expected));
        EXPECT_EQ(memcmp(entry, expected, sizeof(expected)), 0);
        Free(entry);
    }
}

TEST(SmbiosTable, TheVersionWantsBothOutputs) {
    OpenTable(END);
    uint8_t *entry = nullptr;
    uint8_t version;
    EXPECT_EQ(GetSmbiosVersion(nullptr, &version), 0x80000002u);
    EXPECT_EQ(GetSmbiosVersion(&entry, nullptr), 0x80000002u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(SmbiosTable, WithoutAnEntryPointThereIsNoVersion) {
    OpenLegacy();
    uint8_t *entry = nullptr;
    uint8_t version = 0x5A;
    EXPECT_EQ(GetSmbiosVersion(&entry, &version), 0x8000000Eu);
    EXPECT_EQ(entry, nullptr);
}

// The first anchor may be a text that firmware holds; the second one is taken at its word.
TEST(SmbiosTable, BehindAnAnchorThatIsNoEntryPointTheNextOneIsTaken) {
    OpenLegacy();
    PokeText(0xF1000, "_SM_ is no entry point");
    uint8_t *entry = nullptr;
    uint8_t version;
    EXPECT_EQ(GetSmbiosVersion(&entry, &version), 0x8000000Eu);
    PutEntry32(SMBIOS_TABLE, 0x1234);
    ASSERT_EQ(GetSmbiosVersion(&entry, &version), 0u);
    uint8_t expected[32];
    BoardPeek(SMBIOS_ENTRY, expected, sizeof(expected));
    EXPECT_EQ(memcmp(entry, expected, 31), 0);
    Free(entry);
}

TEST(SmbiosTable, WithoutMemoryThereIsNoVersion) {
    OpenTable(END);
    uint8_t *entry = nullptr;
    uint8_t version;
    FailMalloc(1);
    EXPECT_EQ(GetSmbiosVersion(&entry, &version), 0x80000009u);
    EXPECT_EQ(entry, nullptr);
}

TEST(SmbiosTable, AddressAndLengthComeFromTheLayoutOfTheVersion) {
    uint32_t address = 0;
    uint16_t length = 0;
    OpenLegacy();
    PutEntry64(0x7A5BD123, 0x4567);
    EXPECT_EQ(LegacySmbiosStructTableAddress(&address, &length), 0u);
    EXPECT_EQ(address, 0x7A5BD123u);
    EXPECT_EQ(length, 0x4567);
    OpenLegacy();
    PutEntry32(0x000E1234, 0x89AB, 3);
    EXPECT_EQ(LegacySmbiosStructTableAddress(&address, &length), 0u);
    EXPECT_EQ(address, 0x000E1234u);
    EXPECT_EQ(length, 0x89AB);
}

TEST(SmbiosTable, AddressAndLengthGiveTheStatusOfTheEntryPoint) {
    OpenLegacy();
    uint32_t address;
    uint16_t length;
    EXPECT_EQ(LegacySmbiosStructTableAddress(&address, &length), 0x8000000Eu);
    PutEntry32(SMBIOS_TABLE, 1);
    FailMalloc(1);
    EXPECT_EQ(LegacySmbiosStructTableAddress(&address, &length), 0x80000009u);
}

// ---- loading ----

TEST(SmbiosTable, TheLegacyCopyIsThatOfThe64KiBBlockInWhichTheTableBegins) {
    OpenLegacy();
    PokeText(0xE0000, SYSTEM + END);
    PokeText(0xE1234, DIMM + END);
    PutEntry32(0xE1234, 0x40);
    uint8_t *table = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(LoadLegacySmbiosTypes(&table, &length), 0u);
    EXPECT_EQ(length, 0x40u);
    uint8_t expected[0x40];
    BoardPeek(0xE0000, expected, sizeof(expected));
    EXPECT_EQ(memcmp(table, expected, sizeof(expected)), 0);
    ReleaseTable(table);
}

TEST(SmbiosTable, WithoutAnEntryPointTheLegacyCopyIsAbortedAndItsOutputsAreZero) {
    OpenLegacy();
    uint8_t byte;
    uint8_t *table = &byte;
    uint32_t length = 0x1234;
    EXPECT_EQ(LoadLegacySmbiosTypes(&table, &length), 0x80000015u);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(length, 0u);
}

TEST(SmbiosTable, WithoutMemoryThereIsNoLegacyCopyAndItsOutputsAreZero) {
    // Not even for the entry point, nothing for the table, or less than it needs.
    for (size_t limit : {31u, 100u, 0x4000u}) {
        OpenLegacy();
        PutEntry32(SMBIOS_TABLE, 0x8000);
        uint8_t byte;
        uint8_t *table = &byte;
        uint32_t length = 0x1234;
        LimitMalloc(limit);
        EXPECT_EQ(LoadLegacySmbiosTypes(&table, &length), 0x80000009u);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(length, 0u);
    }
}

TEST(SmbiosTable, WithoutATableLoadingGivesNotFoundAndNothing) {
    for (const char *lines : {"", "systab sys \"ACPI=0x1000\""}) {
        OpenBoard("base", std::string("fill f0000 10000 00\n") + lines);
        uint8_t byte;
        uint8_t *table = &byte;
        uint32_t length = 0x1234;
        EXPECT_EQ(LoadSmbios(&table, &length), 0x8000000Eu);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(length, 0u);
    }
}

TEST(SmbiosTable, WithoutMemoryLoadingGivesNotFoundAndNothing) {
    for (const char *lines : {"", "systab sys \"SMBIOS3=0xf5a00\""}) {
        OpenBoard("base", std::string("fill f0000 10000 00\n") + lines);
        PutEntry64(SMBIOS_TABLE, 0x8000);
        uint8_t byte;
        uint8_t *table = &byte;
        uint32_t length = 0x1234;
        LimitMalloc(0x7FFF);
        EXPECT_EQ(LoadSmbios(&table, &length), 0x8000000Eu);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(length, 0u);
    }
}

TEST(SmbiosTable, WithoutTheMemoryDeviceLoadingGivesNotFoundAndNothing) {
    for (const char *lines : {"", "systab sys \"SMBIOS3=0xf5a00\"", "systab sys \"SMBIOS=0xf5a00\""}) {
        OpenBoard("base", std::string("mem ENOENT\n") + lines);
        uint8_t byte;
        uint8_t *table = &byte;
        uint32_t length = 0x1234;
        EXPECT_EQ(LoadSmbios(&table, &length), 0x8000000Eu);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(length, 0u);
    }
}

TEST(SmbiosTable, ATableIsLoadedThroughTheFileAndTheFileIsClosed) {
    OpenBoard("base", "systab sys \"SMBIOS=0x7eb80010\"");
    PokeText(0x7EB80010 + 0x16, std::string("\x03\0\x01\x00\xB7\x7E", 6));
    PokeText(SMBIOS_TABLE + 1, "abcd");
    uint8_t *table = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(memcmp(table, "abc", 3), 0);
    ReleaseTable(table);
    Log log = TakeLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "close /sys/firmware/efi/systab"), 1);
}

TEST(SmbiosTable, ALineOfTheFileThatHasNoValueNamesNoEntryPoint) {
    char line[] = "SMBIOS";
    uint32_t entry = 0x5A;
    EXPECT_EQ(SmbiosOfSystabLine(line, &entry), nullptr);
    EXPECT_STREQ(line, "SMBIOS");
    EXPECT_EQ(entry, 0x5Au);
}

// Copies a table of so many bytes to a place that the heap gives.
static void LoadAt(uint8_t *place, uint16_t bytes) {
    uint8_t *table = nullptr;
    uint32_t length = 0;
    PutEntry64(SMBIOS_TABLE, bytes);
    NextMalloc([=](size_t) { return place; });
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(SmbiosTableAround(place).begin, place);
}

// A copy may be given back with Free: its place is then in a later one.
TEST(SmbiosTable, OfACopyInsideALaterOneNothingIsKnownAnyMore) {
    OpenBoard("base", "systab sys \"SMBIOS3=0xf5a00\"");
    uint8_t *block = static_cast<uint8_t *>(Malloc(0x4000));
    LoadAt(block + 0x100, 0x10);
    LoadAt(block, 0x200);
    EXPECT_EQ(SmbiosTableAround(block + 0x100).begin, block);
    ReleaseTable(block);
    EXPECT_EQ(SmbiosTableAround(block + 0x100).end, nullptr);
}

TEST(SmbiosTable, OfACopyAroundALaterOneNothingIsKnownAnyMore) {
    OpenBoard("base", "systab sys \"SMBIOS3=0xf5a00\"");
    uint8_t *block = static_cast<uint8_t *>(Malloc(0x4000));
    LoadAt(block, 0x1000);
    LoadAt(block + 0x100, 0x10);
    EXPECT_EQ(SmbiosTableAround(block).end, nullptr);
    Free(block);
}

// ---- walking ----

TEST(SmbiosTable, TheSizeOfAStructureEndsWithTheZeroWordBehindItsStrings) {
    EXPECT_EQ(GetStructureLength(StillTable(SYSTEM + END)), 8u + 6 + 8 + 1);
    EXPECT_EQ(GetStructureLength(StillTable(DIMM + END)), 5u + 5 + 1);
    EXPECT_EQ(GetStructureLength(StillTable(END)), 6u);
}

TEST(SmbiosTable, TheSizeOfAStructureWithoutStringsIsItsFormattedLengthAnd2) {
    EXPECT_EQ(GetStructureLength(StillTable(Structure(126, 1, std::string(20, 'x')) + SYSTEM)), 26u);
    EXPECT_EQ(GetStructureLength(StillTable(BOARD + SYSTEM)), 16u); // a formatted part of zeros
}

TEST(SmbiosTable, TheTotalSizeCountsTheEndStructureAndNothingBehindIt) {
    const std::string table = SYSTEM + BOARD + DIMM + END;
    EXPECT_EQ(GetTotalStructureSize(StillTable(table + SYSTEM + END)), table.size());
    EXPECT_EQ(GetTotalStructureSize(StillTable(END)), 6);
}

TEST(SmbiosTable, TheTotalSizeIsCutTo16Bits) {
    std::string table;
    while (table.size() < 0x10000)
        table += Structure(11, 1, "\1", String(std::string(1000, 'x').c_str()));
    table += END;
    EXPECT_EQ(GetTotalStructureSize(StillTable(table)), table.size() - 0x10000);
}

TEST(SmbiosTable, TheTotalSizeOfALoadedTableWithoutEndIsThatOfItsStructures) {
    OpenTable(SYSTEM + DIMM);
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(GetTotalStructureSize(table), SYSTEM.size() + DIMM.size());
    ReleaseTable(table);
}

TEST(SmbiosTable, ATypeIsFoundAtOrBehindTheStart) {
    const uint8_t *table = StillTable(SYSTEM + BOARD + DIMM + DIMM + END);
    const uint8_t *first = table + SYSTEM.size() + BOARD.size();
    EXPECT_EQ(SearchSmbiosType(table, 1), table);
    EXPECT_EQ(SearchSmbiosType(table, 17), first);
    EXPECT_EQ(SearchSmbiosType(first, 17), first);
    EXPECT_EQ(SearchSmbiosType(first + DIMM.size(), 17), first + DIMM.size());
    EXPECT_EQ(SearchSmbiosType(first + 2 * DIMM.size(), 17), nullptr);
    EXPECT_EQ(SearchSmbiosType(first, 1), nullptr);
}

TEST(SmbiosTable, ATypeBehindTheEndStructureIsNotFoundButTheEndStructureIs) {
    const uint8_t *table = StillTable(SYSTEM + END + DIMM + END);
    EXPECT_EQ(SearchSmbiosType(table, 17), nullptr);
    EXPECT_EQ(SearchSmbiosType(table, 127), table + SYSTEM.size());
}

TEST(SmbiosTable, AStructureOfFormattedLength0IsWalkedOver) {
    OpenTable(std::string("\x07\0\x01\x02text\0\0", 10) + std::string(4, '\0') + DIMM + END);
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(SearchSmbiosType(table, 17), table + 14);
    ReleaseTable(table);
}

TEST(SmbiosTable, AWalkEndsWithTheCopy) {
    OpenTable(SYSTEM + DIMM);
    PokeText(static_cast<uint32_t>(SMBIOS_TABLE + SYSTEM.size() + DIMM.size()), BOARD + END);
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(SearchSmbiosType(table, 17), table + SYSTEM.size());
    EXPECT_EQ(SearchSmbiosType(table, 2), nullptr);
    EXPECT_EQ(SearchSmbiosType(table, 0), nullptr);
    EXPECT_EQ(SearchSmbiosType(table, 127), nullptr);
    ReleaseTable(table);
}

TEST(SmbiosTable, TwoLoadedTablesAreWalkedEachToItsOwnEnd) {
    OpenTable(SYSTEM + DIMM);
    uint8_t *first;
    uint32_t firstLength;
    ASSERT_EQ(LoadSmbios(&first, &firstLength), 0u);
    PokeText(SMBIOS_TABLE, BOARD + DIMM + SYSTEM + DIMM);
    PutEntry64(SMBIOS_TABLE, static_cast<uint16_t>(BOARD.size()));
    uint8_t *second;
    uint32_t secondLength;
    ASSERT_EQ(LoadSmbios(&second, &secondLength), 0u);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(SearchSmbiosType(first, 17), first + SYSTEM.size());
        EXPECT_EQ(SearchSmbiosType(first, 0), nullptr);
        EXPECT_EQ(GetTotalStructureSize(first), SYSTEM.size() + DIMM.size());
        if (round == 0) {
            EXPECT_EQ(SearchSmbiosType(second, 17), nullptr);
            EXPECT_EQ(GetTotalStructureSize(second), BOARD.size());
            ReleaseTable(second); // and the first one is walked again
        }
    }
    ReleaseTable(first);
}

TEST(SmbiosTable, AReleasedTableIsForgottenWhicheverOfThemItWas) {
    OpenTable(SYSTEM + DIMM);
    uint8_t *tables[3];
    uint32_t length;
    for (uint8_t *&table : tables)
        ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    ReleaseTable(tables[1]);
    EXPECT_EQ(GetTotalStructureSize(tables[0]), length);
    EXPECT_EQ(GetTotalStructureSize(tables[2]), length);
    ReleaseTable(tables[0]);
    EXPECT_EQ(GetTotalStructureSize(tables[2]), length);
    ReleaseTable(tables[2]);
}

TEST(SmbiosTable, ACopyReachesToTheEndOfItsGuard) {
    OpenTable(SYSTEM + DIMM);
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    for (uint32_t offset : {0u, 1u, length, length + SMBIOS_GUARD}) {
        EXPECT_EQ(SmbiosTableAround(table + offset).begin, table) << offset;
        EXPECT_EQ(SmbiosTableAround(table + offset).end, table + length) << offset;
    }
    EXPECT_EQ(SmbiosTableAround(table + length + SMBIOS_GUARD + 1).end, nullptr);
    EXPECT_EQ(GetTotalStructureSize(table + length), 0);
    EXPECT_EQ(GetTotalStructureSize(table + SYSTEM.size()), DIMM.size()); // from the middle on
    ReleaseTable(table);
}

TEST(SmbiosTable, ACopyThatItsOwnerFreesIsNeverTouchedAgain) {
    OpenTable(SYSTEM + DIMM);
    uint8_t *freed;
    uint8_t *table;
    uint32_t length;
    for (int round = 0; round < 40; ++round) { // more of them than are remembered
        ASSERT_EQ(LoadSmbios(&freed, &length), 0u);
        Free(freed);
        ASSERT_EQ(LoadSmbios(&table, &length), 0u); // mostly in the same block
        EXPECT_EQ(GetTotalStructureSize(table), length);
        EXPECT_EQ(GetTotalStructureSize(StillTable(DIMM + END)), DIMM.size() + END.size());
        Free(table);
    }
}

TEST(SmbiosTable, ACopyEndsWhereItEndsAlsoWhenALongerOneLayThereBefore) {
    const std::string longer = SYSTEM + DIMM + std::string(2, '\0');
    OpenTable(longer);
    uint8_t *freed;
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&freed, &length), 0u);
    Free(freed);
    PutEntry64(SMBIOS_TABLE, static_cast<uint16_t>(length - 2));
    ASSERT_EQ(LoadSmbios(&table, &length), 0u); // in the same block, unless a sanitizer keeps that back
    EXPECT_EQ(SmbiosTableAround(table).end, table + length);
    EXPECT_EQ(GetTotalStructureSize(table), length);
    ReleaseTable(table);
}

TEST(SmbiosTable, SixteenCopiesAtOnceAreRememberedAndThenTheOldestGiveWay) {
    OpenTable(SYSTEM + DIMM);
    uint8_t *tables[18];
    uint32_t length;
    for (uint8_t *&table : tables)
        ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    for (unsigned i = 0; i < 18; ++i)
        EXPECT_EQ(SmbiosTableAround(tables[i]).end, i < 2 ? nullptr : tables[i] + length) << i;
    for (uint8_t *table : tables)
        ReleaseTable(table);
}

TEST(SmbiosTable, AReleasedCopyMakesRoomWithoutMakingTheNewestTheOldest) {
    OpenTable(SYSTEM + DIMM);
    uint8_t *tables[18];
    uint32_t length;
    for (unsigned i = 0; i < 16; ++i)
        ASSERT_EQ(LoadSmbios(&tables[i], &length), 0u);
    ReleaseTable(tables[0]);
    ASSERT_EQ(LoadSmbios(&tables[16], &length), 0u);
    ASSERT_EQ(LoadSmbios(&tables[17], &length), 0u);
    for (unsigned i = 1; i < 18; ++i)
        EXPECT_EQ(SmbiosTableAround(tables[i]).end, i == 1 ? nullptr : tables[i] + length) << i;
    for (unsigned i = 1; i < 18; ++i)
        ReleaseTable(tables[i]);
}

TEST(SmbiosTable, ABlockThatIsTooSmallForTheLongestTableIsNotFilled) {
    OpenLegacy();
    PutEntry32(SMBIOS_TABLE, 0xFFFF);
    long held = BlocksHeld();
    LimitMalloc(0x10000); // the table would fit, its guard would not
    uint8_t byte;
    uint8_t *table = &byte;
    uint32_t length = 0x1234;
    EXPECT_EQ(LoadLegacySmbiosTypes(&table, &length), 0x80000009u);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(BlocksHeld(), held);
}

// ---- the processor's speed ----

TEST(SmbiosTable, TheSpeedsAreThoseAt16hAndAt14hOfTheFirstProcessor) {
    OpenTable(SYSTEM + Processor(4900, 3600) + Processor(4000, 3000) + END);
    EXPECT_EQ(GetCPUSpeedSmb(), 3600u << 16 | 4900u);
    EXPECT_EQ(GetCpuCurrentSpeed(), 3600);
}

TEST(SmbiosTable, WithoutAProcessorOrATableTheSpeedIsAllOnes) {
    OpenTable(SYSTEM + DIMM + END);
    EXPECT_EQ(GetCPUSpeedSmb(), 0xFFFFFFFFu);
    EXPECT_EQ(GetCpuCurrentSpeed(), 0xFFFF);
    OpenLegacy();
    EXPECT_EQ(GetCPUSpeedSmb(), 0xFFFFFFFFu);
    EXPECT_EQ(GetCpuCurrentSpeed(), 0xFFFF);
}

TEST(SmbiosTable, AProcessorThatRunsOutOfTheCopyIsReadAsFarAsItGoes) {
    OpenTable(SYSTEM + Processor(0x1234, 0x5678).substr(0, 0x16));
    EXPECT_EQ(GetCPUSpeedSmb(), 0x1234u);
}
