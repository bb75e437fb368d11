#include "Project/Smbios.h"

#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "Base/Memory.h"
#include "TestHelp.h"
#include "sim/Board.h"

static constexpr uint32_t ENTRY = 0xF5A00;
static constexpr uint32_t TABLE = 0x7EB70000;

// A structure without strings is followed by two zeros, one with strings by their NULs and one more.
static std::string Structure(uint8_t type, uint16_t handle, const std::string &body,
                             const std::string &strings = "") {
    std::string text = {static_cast<char>(type), static_cast<char>(4 + body.size()),
                        static_cast<char>(handle), static_cast<char>(handle >> 8)};
    text += body + (strings.empty() ? std::string(1, '\0') : strings);
    return text + '\0';
}

static std::string String(const char *text) {
    return std::string(text) + '\0';
}

// Maximum speed at 14h and current speed at 16h (DSP0134, 7.5).
static std::string Processor(uint16_t maximum, uint16_t current) {
    std::string body(0x30 - 4, '\x5A');
    memcpy(&body[0x14 - 4], &maximum, sizeof(maximum));
    memcpy(&body[0x16 - 4], &current, sizeof(current));
    return Structure(4, 0x04, body, String("CPU0"));
}

static const std::string END = Structure(127, 0xFEFF, "");
static const std::string SYSTEM = Structure(1, 0x01, "\1\2\3\4", String("Maker") + String("Product"));
static const std::string BOARD = Structure(2, 0x02, std::string(10, '\0'));
static const std::string DIMM = Structure(17, 0x11, "\1", String("DIMM"));

static void Poke(uint64_t address, const std::string &bytes) {
    BoardPoke(address, bytes.data(), bytes.size());
}

static void Poke16(uint64_t address, uint16_t value) {
    BoardPoke(address, &value, sizeof(value));
}

static void Poke32(uint64_t address, uint32_t value) {
    BoardPoke(address, &value, sizeof(value));
}

static void PutEntry32(uint32_t address, uint16_t length, uint8_t major = 2) {
    Poke(ENTRY, "_SM_");
    BoardPoke(ENTRY + 6, &major, 1);
    Poke(ENTRY + 0x10, "_DMI_");
    Poke16(ENTRY + 0x16, length);
    Poke32(ENTRY + 0x18, address);
}

static void PutEntry64(uint32_t address, uint16_t length, uint8_t major = 3) {
    Poke(ENTRY, "_SM3_");
    BoardPoke(ENTRY + 7, &major, 1);
    Poke16(ENTRY + 0x0C, length);
    Poke32(ENTRY + 0x10, address);
}

// A machine without system table file and with nothing in the F-segment.
static void OpenLegacy() {
    OpenBoard("base", "fill f0000 10000 00");
}

// The same with this table.
static void OpenTable(const std::string &table) {
    OpenLegacy();
    Poke(TABLE, table);
    PutEntry64(TABLE, static_cast<uint16_t>(table.size()));
}

// A table outside of the heap, as the walking procedures take it.
static const uint8_t *Place(const std::string &table) {
    static uint8_t place[0x20000];
    memset(place, 0, sizeof(place));
    memcpy(place, table.data(), table.size());
    return place;
}

// ---- entry points ----

TEST(Smbios, TheVersionOfA64BitEntryPointIsItsMajorVersion) {
    for (unsigned number : {0u, 2u, 3u, 4u, 255u}) {
        uint8_t major = static_cast<uint8_t>(number);
        OpenLegacy();
        PutEntry64(TABLE, 0x1234, major);
        Poke(ENTRY + 24, "BEHIND");
        uint8_t *entry = nullptr;
        uint8_t version = 0x5A;
        ASSERT_EQ(GetSmbiosVersion(&entry, &version), 0u);
        EXPECT_EQ(version, major);
        uint8_t expected[32] = {}; // what is not copied is 0
        BoardPeek(ENTRY, expected, 24);
        EXPECT_EQ(memcmp(entry, expected, sizeof(expected)), 0);
        Free(entry);
    }
}

TEST(Smbios, TheVersionOfA32BitEntryPointIsNeverAbove2) {
    for (unsigned number : {0u, 1u, 2u, 3u, 255u}) {
        uint8_t major = static_cast<uint8_t>(number);
        OpenLegacy();
        PutEntry32(TABLE, 0x1234, major);
        Poke(ENTRY + 31, "L"); // the last byte
        uint8_t *entry = nullptr;
        uint8_t version = 0x5A;
        ASSERT_EQ(GetSmbiosVersion(&entry, &version), 0u);
        EXPECT_EQ(version, major > 2 ? 2 : major);
        uint8_t expected[32];
        BoardPeek(ENTRY, expected, sizeof(expected));
        EXPECT_EQ(memcmp(entry, expected, sizeof(expected)), 0);
        Free(entry);
    }
}

TEST(Smbios, TheVersionWantsBothOutputs) {
    OpenTable(END);
    uint8_t *entry = nullptr;
    uint8_t version;
    EXPECT_EQ(GetSmbiosVersion(nullptr, &version), 0x80000002u);
    EXPECT_EQ(GetSmbiosVersion(&entry, nullptr), 0x80000002u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(Smbios, WithoutAnEntryPointThereIsNoVersion) {
    OpenLegacy();
    uint8_t *entry = nullptr;
    uint8_t version = 0x5A;
    EXPECT_EQ(GetSmbiosVersion(&entry, &version), 0x8000000Eu);
    EXPECT_EQ(entry, nullptr);
}

TEST(Smbios, WithoutMemoryThereIsNoVersion) {
    OpenTable(END);
    uint8_t *entry = nullptr;
    uint8_t version;
    FailMalloc(1);
    EXPECT_EQ(GetSmbiosVersion(&entry, &version), 0x80000009u);
    EXPECT_EQ(entry, nullptr);
}

TEST(Smbios, AddressAndLengthComeFromTheLayoutOfTheVersion) {
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

TEST(Smbios, AddressAndLengthGiveTheStatusOfTheEntryPoint) {
    OpenLegacy();
    uint32_t address;
    uint16_t length;
    EXPECT_EQ(LegacySmbiosStructTableAddress(&address, &length), 0x8000000Eu);
    PutEntry32(TABLE, 1);
    FailMalloc(1);
    EXPECT_EQ(LegacySmbiosStructTableAddress(&address, &length), 0x80000009u);
}

// ---- loading ----

TEST(Smbios, TheLegacyCopyIsThatOfThe64KiBBlockInWhichTheTableBegins) {
    OpenLegacy();
    Poke(0xE0000, SYSTEM + END);
    Poke(0xE1234, DIMM + END);
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

TEST(Smbios, WithoutAnEntryPointTheLegacyCopyIsAbortedAndItsOutputsAreZero) {
    OpenLegacy();
    uint8_t byte;
    uint8_t *table = &byte;
    uint32_t length = 0x1234;
    EXPECT_EQ(LoadLegacySmbiosTypes(&table, &length), 0x80000015u);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(length, 0u);
}

TEST(Smbios, WithoutMemoryThereIsNoLegacyCopyAndItsOutputsAreZero) {
    // Not even for the entry point, nothing for the table, or less than it needs.
    for (size_t limit : {31u, 100u, 0x4000u}) {
        OpenLegacy();
        PutEntry32(TABLE, 0x8000);
        uint8_t byte;
        uint8_t *table = &byte;
        uint32_t length = 0x1234;
        LimitMalloc(limit);
        EXPECT_EQ(LoadLegacySmbiosTypes(&table, &length), 0x80000009u);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(length, 0u);
    }
}

TEST(Smbios, WithoutATableLoadingGivesNotFoundAndNothing) {
    for (const char *lines : {"", "systab sys ACPI=0x1000"}) {
        OpenBoard("base", std::string("fill f0000 10000 00\n") + lines);
        uint8_t byte;
        uint8_t *table = &byte;
        uint32_t length = 0x1234;
        EXPECT_EQ(LoadSmbios(&table, &length), 0x8000000Eu);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(length, 0u);
    }
}

TEST(Smbios, WithoutMemoryLoadingGivesNotFoundAndNothing) {
    for (const char *lines : {"", "systab sys SMBIOS3=0xf5a00"}) {
        OpenBoard("base", std::string("fill f0000 10000 00\n") + lines);
        PutEntry64(TABLE, 0x8000);
        uint8_t byte;
        uint8_t *table = &byte;
        uint32_t length = 0x1234;
        LimitMalloc(0x7FFF);
        EXPECT_EQ(LoadSmbios(&table, &length), 0x8000000Eu);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(length, 0u);
    }
}

TEST(Smbios, WithoutTheMemoryDeviceLoadingGivesNotFoundAndNothing) {
    for (const char *lines : {"", "systab sys SMBIOS3=0xf5a00", "systab sys SMBIOS=0xf5a00"}) {
        OpenBoard("base", std::string("mem ENOENT\n") + lines);
        uint8_t byte;
        uint8_t *table = &byte;
        uint32_t length = 0x1234;
        EXPECT_EQ(LoadSmbios(&table, &length), 0x8000000Eu);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(length, 0u);
    }
}

TEST(Smbios, ATableIsLoadedThroughTheFileAndTheFileIsClosed) {
    OpenBoard("base", "systab sys SMBIOS=0x7eb80010");
    Poke(0x7EB80010 + 0x16, std::string("\x03\0\x01\x00\xB7\x7E", 6));
    Poke(TABLE + 1, "abcd");
    uint8_t *table = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(memcmp(table, "abc", 3), 0);
    ReleaseTable(table);
    Log log = TakeLog();
    EXPECT_EQ(std::count(log.begin(), log.end(), "close /sys/firmware/efi/systab"), 1);
}

// ---- walking ----

TEST(Smbios, TheSizeOfAStructureEndsWithTheZeroWordBehindItsStrings) {
    EXPECT_EQ(GetStructureLength(Place(SYSTEM + END)), 8u + 6 + 8 + 1);
    EXPECT_EQ(GetStructureLength(Place(DIMM + END)), 5u + 5 + 1);
    EXPECT_EQ(GetStructureLength(Place(END)), 6u);
}

TEST(Smbios, TheSizeOfAStructureWithoutStringsIsItsFormattedLengthAnd2) {
    EXPECT_EQ(GetStructureLength(Place(Structure(126, 1, std::string(20, 'x')) + SYSTEM)), 26u);
    EXPECT_EQ(GetStructureLength(Place(BOARD + SYSTEM)), 16u); // a formatted part of zeros
}

TEST(Smbios, TheTotalSizeCountsTheEndStructureAndNothingBehindIt) {
    const std::string table = SYSTEM + BOARD + DIMM + END;
    EXPECT_EQ(GetTotalStructureSize(Place(table + SYSTEM + END)), table.size());
    EXPECT_EQ(GetTotalStructureSize(Place(END)), 6);
}

TEST(Smbios, TheTotalSizeIsCutTo16Bits) {
    std::string table;
    while (table.size() < 0x10000)
        table += Structure(11, 1, "\1", String(std::string(1000, 'x').c_str()));
    table += END;
    EXPECT_EQ(GetTotalStructureSize(Place(table)), table.size() - 0x10000);
}

TEST(Smbios, TheTotalSizeOfALoadedTableWithoutEndIsThatOfItsStructures) {
    OpenTable(SYSTEM + DIMM);
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(GetTotalStructureSize(table), SYSTEM.size() + DIMM.size());
    ReleaseTable(table);
}

TEST(Smbios, ATypeIsFoundAtOrBehindTheStart) {
    const uint8_t *table = Place(SYSTEM + BOARD + DIMM + DIMM + END);
    const uint8_t *first = table + SYSTEM.size() + BOARD.size();
    EXPECT_EQ(SearchSmbiosType(table, 1), table);
    EXPECT_EQ(SearchSmbiosType(table, 17), first);
    EXPECT_EQ(SearchSmbiosType(first, 17), first);
    EXPECT_EQ(SearchSmbiosType(first + DIMM.size(), 17), first + DIMM.size());
    EXPECT_EQ(SearchSmbiosType(first + 2 * DIMM.size(), 17), nullptr);
    EXPECT_EQ(SearchSmbiosType(first, 1), nullptr);
}

TEST(Smbios, ATypeBehindTheEndStructureIsNotFoundButTheEndStructureIs) {
    const uint8_t *table = Place(SYSTEM + END + DIMM + END);
    EXPECT_EQ(SearchSmbiosType(table, 17), nullptr);
    EXPECT_EQ(SearchSmbiosType(table, 127), table + SYSTEM.size());
}

TEST(Smbios, AStructureOfFormattedLength0IsWalkedOver) {
    OpenTable(std::string("\x07\0\x01\x02text\0\0", 10) + std::string(4, '\0') + DIMM + END);
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(SearchSmbiosType(table, 17), table + 14);
    ReleaseTable(table);
}

TEST(Smbios, AWalkEndsWithTheCopy) {
    OpenTable(SYSTEM + DIMM);
    Poke(TABLE + SYSTEM.size() + DIMM.size(), BOARD + END);
    uint8_t *table;
    uint32_t length;
    ASSERT_EQ(LoadSmbios(&table, &length), 0u);
    EXPECT_EQ(SearchSmbiosType(table, 17), table + SYSTEM.size());
    EXPECT_EQ(SearchSmbiosType(table, 2), nullptr);
    EXPECT_EQ(SearchSmbiosType(table, 0), nullptr);
    EXPECT_EQ(SearchSmbiosType(table, 127), nullptr);
    ReleaseTable(table);
}

// ---- showing ----

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
    const uint8_t *table = Place(SYSTEM + DIMM + END);
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

TEST(Smbios, EscEndsTheViewsWithSuccess) {
    OpenTable(SYSTEM + DIMM + DIMM + END);
    SetCommand({"hwreg", "/SMBIOS", "/DUMP", "/TEXT"});
    FeedInput("\x1b\x1b");
    EXPECT_EQ(Views(Printed([] { EXPECT_EQ(ShowSmbiosTargetType(nullptr, 17), 0u); })), 1u);
    EXPECT_EQ(Views(Printed([] { EXPECT_EQ(ShowSmbiosAllType(nullptr), 0u); })), 1u);
    FeedInput(" \x1b");
    EXPECT_EQ(Views(Printed([] { EXPECT_EQ(ShowSmbiosTargetType(nullptr, 17), 0u); })), 2u);
}

// ---- the processor's speed ----

TEST(Smbios, TheSpeedsAreThoseAt16hAndAt14hOfTheFirstProcessor) {
    OpenTable(SYSTEM + Processor(4900, 3600) + Processor(4000, 3000) + END);
    EXPECT_EQ(GetCPUSpeedSmb(), 3600u << 16 | 4900u);
    EXPECT_EQ(GetCpuCurrentSpeed(), 3600);
}

TEST(Smbios, WithoutAProcessorOrATableTheSpeedIsAllOnes) {
    OpenTable(SYSTEM + DIMM + END);
    EXPECT_EQ(GetCPUSpeedSmb(), 0xFFFFFFFFu);
    EXPECT_EQ(GetCpuCurrentSpeed(), 0xFFFF);
    OpenLegacy();
    EXPECT_EQ(GetCPUSpeedSmb(), 0xFFFFFFFFu);
    EXPECT_EQ(GetCpuCurrentSpeed(), 0xFFFF);
}

TEST(Smbios, AProcessorThatRunsOutOfTheCopyIsReadAsFarAsItGoes) {
    OpenTable(SYSTEM + Processor(0x1234, 0x5678).substr(0, 0x16));
    EXPECT_EQ(GetCPUSpeedSmb(), 0x1234u);
}

// ---- the command ----

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
