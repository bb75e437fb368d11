#include "Platform/AcpiTables.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Places of the tables: each in pages of its own.
static constexpr uint32_t ROOT = 0xF5A00;
static constexpr uint32_t RSDT = 0x7A400000;
static constexpr uint32_t XSDT = 0x7A420000;
static constexpr uint32_t FADT = 0x7A440000;
static constexpr uint32_t OTHERS = 0x7A450000; // tables with other signatures, one a page
static constexpr uint32_t SIGNATURE_APIC = 0x43495041;

// An address in a root table: low half first, the high half of a wide one 0.
typedef std::vector<uint32_t> Entries;

static uint32_t Other(uint32_t number) {
    return OTHERS + 0x1000 * number;
}

// Entries that lead to tables with other signatures.
static Entries Others(uint32_t count) {
    Entries entries;
    for (uint32_t i = 0; i < count; ++i)
        entries.push_back(Other(i % 8));
    return entries;
}

static Entries With(Entries entries, size_t at, uint32_t address) {
    entries[at] = address;
    return entries;
}

static void PutRoot(uint32_t rsdt, uint32_t xsdt) {
    PokeText(ROOT, "RSD PTR ");
    Poke32(ROOT + 0x10, rsdt);
    Poke32(ROOT + 0x18, xsdt);
}

static void PutTable(uint32_t address, const char *signature, const Entries &entries, uint32_t size) {
    PokeText(address, signature);
    Poke32(address + 4, 36 + size * static_cast<uint32_t>(entries.size()));
    for (uint32_t i = 0; i < entries.size(); ++i)
        Poke32(address + 36 + size * i, entries[i]);
}

static void PutRsdt(const Entries &entries) {
    PutTable(RSDT, "RSDT", entries, 4);
}

static void PutXsdt(const Entries &entries) {
    PutTable(XSDT, "XSDT", entries, 8);
}

static void SetLength(uint32_t table, uint32_t length) {
    Poke32(table + 4, length);
}

// A machine with a root pointer to both tables, a FADT that neither names, and eight other tables.
static void OpenMachine(const std::string &lines = "") {
    OpenBoard("base", "fill f0000 10000 00\n" + lines);
    PutRoot(RSDT, XSDT);
    PokeText(FADT, "FACP");
    for (uint32_t i = 0; i < 8; ++i)
        PokeText(Other(i), i == 3 ? "APIC" : "SSDT");
}

static uint32_t Find(uint32_t signature, uint32_t mode = ACPI_XSDT_THEN_RSDT) {
    uint32_t address = 0;
    EFI_STATUS status = FindEntryInRsdp(mode, signature, &address);
    EXPECT_EQ(status, address != 0 ? 0u : 0x8000000Eu);
    return address;
}

static uint32_t FindFadt(uint32_t mode = ACPI_XSDT_THEN_RSDT) {
    return Find(ACPI_SIGNATURE_FADT, mode);
}

// Whether a page of the table was mapped since the log was cleared.
static bool WasRead(uint32_t address) {
    char page[16];
    snprintf(page, sizeof(page), " %08x ", address);
    for (const std::string &line : TakeLog()) {
        if (line.find(page) != std::string::npos)
            return true;
    }
    return false;
}

TEST(AcpiTables, TheRootPointersAddressIsThatOfItsText) {
    OpenMachine();
    uint32_t address = 0;
    EXPECT_EQ(GetRSDPAddress(&address), 0u);
    EXPECT_EQ(address, ROOT);
}

TEST(AcpiTables, TheRootPointerIsSearchedAfreshEachTime) {
    OpenMachine();
    uint32_t address = 0;
    EXPECT_EQ(GetRSDPAddress(&address), 0u);
    PokeText(0xF0001, "RSD PTR");
    EXPECT_EQ(GetRSDPAddress(&address), 0u);
    EXPECT_EQ(address, 0xF0001u);
}

TEST(AcpiTables, WithoutAnOutputTheRootPointerIsNotSearched) {
    OpenMachine();
    EXPECT_EQ(GetRSDPAddress(nullptr), 0x80000002u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(AcpiTables, WithoutARootPointerNothingIsFound) {
    OpenBoard("base", "fill f0000 10000 00");
    uint32_t address = 0x1234;
    EXPECT_EQ(GetRSDPAddress(&address), 0x8000000Eu);
    EXPECT_EQ(FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, ACPI_SIGNATURE_FADT, &address), 0x8000000Eu);
    EXPECT_EQ(address, 0x1234u);
}

TEST(AcpiTables, ATableIsFoundThroughTheXsdt) {
    OpenMachine();
    PutXsdt({Other(0), FADT, Other(3)});
    EXPECT_EQ(FindFadt(), FADT);
    EXPECT_EQ(Find(SIGNATURE_APIC), Other(3));
}

TEST(AcpiTables, WhatTheXsdtNamesIsNeverLookedUpInTheRsdt) {
    OpenMachine();
    PutXsdt({Other(3)});
    PutRsdt({Other(0), Other(3)});
    EXPECT_EQ(Find(SIGNATURE_APIC), Other(3));
    EXPECT_FALSE(WasRead(RSDT));
}

TEST(AcpiTables, AMissInTheXsdtIsLookedUpInTheRsdt) {
    OpenMachine();
    PutXsdt(Others(5));
    PutRsdt({Other(0), FADT});
    EXPECT_EQ(FindFadt(), FADT);
    EXPECT_TRUE(WasRead(XSDT));
}

TEST(AcpiTables, TheSecondModeReadsTheRsdtAlone) {
    OpenMachine();
    PutXsdt({FADT});
    PutRsdt({Other(3)});
    EXPECT_EQ(FindFadt(ACPI_RSDT_ONLY), 0u);
    EXPECT_FALSE(WasRead(XSDT));
    EXPECT_EQ(Find(SIGNATURE_APIC, ACPI_RSDT_ONLY), Other(3));
}

TEST(AcpiTables, AnotherModeFindsNothing) {
    OpenMachine();
    PutXsdt({FADT});
    PutRsdt({FADT});
    for (uint32_t mode : {0u, 3u, 4u, 0xFFFFFFFFu})
        EXPECT_EQ(FindFadt(mode), 0u) << mode;
}

TEST(AcpiTables, TheFirstTableWithASignatureWins) {
    OpenMachine();
    PutXsdt({Other(5), Other(1), Other(2)});
    EXPECT_EQ(Find(0x54445353), Other(5)); // "SSDT"
}

TEST(AcpiTables, OfA64BitEntryTheLowHalfIsUsed) {
    OpenMachine();
    PutXsdt({FADT});
    Poke32(XSDT + 40, 0x00000012);
    EXPECT_EQ(FindFadt(), FADT);
}

TEST(AcpiTables, TheRevisionOfTheRootPointerDoesNotMatter) {
    OpenMachine();
    PutXsdt({FADT});
    PutRsdt({Other(0)});
    for (uint32_t revision : {0u, 1u, 2u, 0xFFu}) {
        uint8_t byte = static_cast<uint8_t>(revision);
        BoardPoke(ROOT + 15, &byte, 1);
        EXPECT_EQ(FindFadt(), FADT) << revision;
    }
}

TEST(AcpiTables, AnXsdtOf20EntriesIsSearchedThroughAll20) {
    OpenMachine();
    PutRsdt({});
    for (size_t at : {0u, 14u, 15u, 16u, 17u, 19u}) {
        PutXsdt(With(Others(20), at, FADT));
        EXPECT_EQ(FindFadt(), FADT) << at;
    }
}

TEST(AcpiTables, AnRsdtOf300EntriesIsSearchedThroughAll300) {
    OpenMachine();
    PutXsdt({});
    for (size_t at : {0u, 254u, 255u, 256u, 257u, 299u}) {
        PutRsdt(With(Others(300), at, FADT));
        EXPECT_EQ(FindFadt(), FADT) << at;
        EXPECT_EQ(FindFadt(ACPI_RSDT_ONLY), FADT) << at;
    }
}

TEST(AcpiTables, EntriesBeyondTheLengthAreNoEntries) {
    OpenMachine();
    PutRsdt({});
    PutXsdt({Other(0), Other(1), FADT});
    SetLength(XSDT, 36 + 3 * 8 - 1);
    EXPECT_EQ(FindFadt(), 0u);
    SetLength(XSDT, 36 + 3 * 8);
    EXPECT_EQ(FindFadt(), FADT);
    PutXsdt(With(Others(300), 299, FADT));
    SetLength(XSDT, 36 + 299 * 8 + 7);
    EXPECT_EQ(FindFadt(), 0u);
}

// The 164 bytes of the XSDT are copied at once; what lies behind them is read where it stands, each entry on
// its own.
TEST(AcpiTables, EntriesBeyondTheCopyAreReadFromTheTable) {
    OpenMachine();
    PutXsdt(With(Others(18), 17, FADT));
    BoardLogClear();
    uint32_t address;
    ASSERT_EQ(FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, ACPI_SIGNATURE_FADT, &address), 0u);
    Log expected;
    for (uint32_t page = 0xF0; page <= 0xF5; ++page) {
        char text[16];
        snprintf(text, sizeof(text), "%08x", page << 12);
        expected = expected + Mapped(text, "1000");
    }
    expected = expected + Mapped("000f5000", "1000") + Mapped("7a420000", "1000");
    for (uint32_t i = 0; i < 18; ++i) {
        char text[16];
        snprintf(text, sizeof(text), "%08x", i == 17 ? FADT : Other(i % 8));
        if (i >= 16)
            expected = expected + Mapped("7a420000", "2000");
        expected = expected + Mapped(text, "2000");
    }
    EXPECT_EQ(TakeLog(), expected);
}

// Of the RSDT 1060 bytes: the entries up to 255.
TEST(AcpiTables, TheFirst256EntriesOfTheRsdtAreInItsCopy) {
    for (uint32_t at : {255u, 256u}) {
        OpenMachine();
        PutRsdt(With(Others(257), at, FADT));
        BoardLogClear();
        EXPECT_EQ(FindFadt(ACPI_RSDT_ONLY), FADT);
        Log log = TakeLog();
        EXPECT_EQ(std::count(log.begin(), log.end(), Mapped("7a400000", "2000").front()), at == 256 ? 1 : 0);
    }
}

TEST(AcpiTables, WithoutMemoryForATableTheOtherOneIsSearched) {
    OpenMachine();
    PutXsdt({FADT});
    PutRsdt({Other(3)});
    uint32_t address;
    FailMalloc(2); // the root pointer has its copy
    EXPECT_EQ(FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, SIGNATURE_APIC, &address), 0u);
    EXPECT_EQ(address, Other(3));
    LimitMalloc(163);
    EXPECT_EQ(FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, SIGNATURE_APIC, &address), 0x80000009u);
    LimitMalloc(39);
    EXPECT_EQ(FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, SIGNATURE_APIC, &address), 0x80000009u);
}

// It was there when its signature was read.
TEST(AcpiTables, AFadtThatCannotBeCopiedLeavesTheRecordAlone) {
    OpenMachine("sequence 7a440000 50434146 ffffffff");
    PutXsdt({FADT});
    PmAddressRecord record = {0x1234, 0x5678, 0x9A};
    long held = BlocksHeld();
    EXPECT_EQ(AcpiGetPMAddress(&record), 0x8000000Eu);
    EXPECT_EQ(record.pm1EventBlock, 0x1234);
    EXPECT_EQ(BlocksHeld(), held);
}

TEST(AcpiTables, AnAddressOf0IsNoTable) {
    OpenMachine();
    PutTable(0, "XSDT", {FADT}, 8);
    PutRoot(RSDT, 0);
    PutRsdt({Other(3)});
    EXPECT_EQ(FindFadt(), 0u);
    EXPECT_EQ(Find(SIGNATURE_APIC), Other(3)); // the search goes on with the RSDT
    PutTable(0, "RSDT", {FADT}, 4);
    PutRoot(0, 0);
    EXPECT_EQ(FindFadt(), 0u);
    EXPECT_EQ(FindFadt(ACPI_RSDT_ONLY), 0u);
    BoardLogClear();
    EXPECT_EQ(FindFadt(), 0u);
    EXPECT_FALSE(WasRead(0));
}

// The third is the length of an XSDT that begins in the interrupt vectors.
TEST(AcpiTables, OfATableAbove64KiBTheEntriesWithin64KiBAreSearched) {
    OpenMachine();
    const uint32_t last = (0x10000 - 36) / 8 - 1;
    for (uint32_t length : {0x10001u, 0x10008u, 0xF000FF53u, 0xFFFFFFFEu}) {
        PutRsdt({});
        PutXsdt(With(Others(last + 2), last, FADT));
        SetLength(XSDT, length);
        EXPECT_EQ(FindFadt(), FADT) << length;
        PutXsdt(With(Others(last + 2), last + 1, FADT));
        SetLength(XSDT, length);
        EXPECT_EQ(FindFadt(), 0u) << length;
        PutRsdt({FADT});
        EXPECT_EQ(FindFadt(), FADT) << length; // the search goes on with the RSDT
    }
}

TEST(AcpiTables, ATableThatCannotBeReadHasNoEntries) {
    OpenMachine("refuse 7a420000 1000 EPERM");
    PutRsdt({FADT});
    EXPECT_EQ(FindFadt(), FADT); // by the RSDT
    OpenMachine("refuse 7a420000 1000 EPERM\nrefuse 7a400000 1000 EPERM");
    EXPECT_EQ(FindFadt(), 0u);
    EXPECT_FALSE(WasRead(0xFFFFF000));
}

TEST(AcpiTables, ATableOf64KiBIsSearchedToItsEnd) {
    OpenMachine();
    PutXsdt(With(Others((0x10000 - 36) / 8), (0x10000 - 36) / 8 - 1, FADT));
    SetLength(XSDT, 0x10000);
    PutRsdt({});
    EXPECT_EQ(FindFadt(), FADT);
    PutRsdt(With(Others((0x10000 - 36) / 4), (0x10000 - 36) / 4 - 1, FADT));
    EXPECT_EQ(FindFadt(ACPI_RSDT_ONLY), FADT);
}

TEST(AcpiTables, ALengthBelowTheHeadersEndsTheSearchOfThatTable) {
    OpenMachine();
    for (uint32_t length : {0u, 1u, 35u, 36u, 39u}) {
        PutXsdt({FADT});
        SetLength(XSDT, length);
        PutRsdt({Other(3), FADT});
        EXPECT_EQ(Find(SIGNATURE_APIC), Other(3)) << length; // through the RSDT
        SetLength(RSDT, length);
        EXPECT_EQ(Find(SIGNATURE_APIC), 0u) << length;
        BoardLogClear();
        EXPECT_EQ(FindFadt(), 0u) << length;
        EXPECT_FALSE(WasRead(FADT)) << length;
    }
}

TEST(AcpiTables, OneEntryTakes8BytesOfAnXsdtAnd4OfAnRsdt) {
    OpenMachine();
    PutXsdt({FADT});
    PutRsdt({FADT});
    SetLength(RSDT, 39);
    SetLength(XSDT, 43);
    EXPECT_EQ(FindFadt(), 0u);
    SetLength(XSDT, 44);
    EXPECT_EQ(FindFadt(), FADT);
    SetLength(RSDT, 40);
    EXPECT_EQ(FindFadt(ACPI_RSDT_ONLY), FADT);
}

TEST(AcpiTables, TablesThatPointToThemselvesAndEachOtherAreSearchedOnce) {
    OpenMachine();
    PutXsdt({XSDT, RSDT, ROOT, XSDT + 36});
    PutRsdt({RSDT, XSDT, ROOT, RSDT + 36});
    EXPECT_EQ(FindFadt(), 0u);
}

TEST(AcpiTables, TablesThatCannotBeMappedHoldNothing) {
    OpenMachine("refuse 7a420000 1000 EPERM\nrefuse 7a450000 1000 EPERM");
    PutXsdt({FADT});
    PutRsdt({Other(0), FADT});
    EXPECT_EQ(FindFadt(), FADT);
    EXPECT_EQ(Find(SIGNATURE_APIC), 0u);
}

// The value is that of a refused dword.
TEST(AcpiTables, AnEntryThatCannotBeMappedHasTheSignature0000FFFF) {
    OpenMachine("refuse 7a440000 1000 EPERM");
    PutXsdt({FADT});
    PutRsdt({FADT});
    EXPECT_EQ(FindFadt(), 0u);
    EXPECT_EQ(Find(0xFFFFFFFF), 0u);
    EXPECT_EQ(Find(0x0000FFFF), FADT);
}

TEST(AcpiTables, NothingIsKeptWhenAnAllocationFails) {
    OpenMachine();
    PutXsdt({Other(3)});
    PutRsdt({Other(3)});
    long held = BlocksHeld();
    for (unsigned count = 1; count < 8; ++count) {
        PmAddressRecord record;
        FailMalloc(count);
        AcpiGetPMAddress(&record);
        EXPECT_EQ(BlocksHeld(), held) << count;
    }
}

TEST(AcpiTables, TablesAtTheTopOfMemoryEndThere) {
    OpenMachine();
    PutRoot(0xFFFFFFF0, 0xFFFFFFE0);
    PokeText(0xFFFFFFE0, "XSDT");
    SetLength(0xFFFFFFE0, 0x1000);
    PokeText(0xFFFFFFF0, "RSDT");
    SetLength(0xFFFFFFF0, 0x1000);
    EXPECT_EQ(FindFadt(), 0u);
}

TEST(AcpiTables, WithoutMemoryTheSearchFails) {
    OpenMachine();
    PutXsdt({FADT});
    uint32_t address = 0x1234;
    LimitMalloc(0);
    EXPECT_EQ(FindEntryInRsdp(ACPI_XSDT_THEN_RSDT, ACPI_SIGNATURE_FADT, &address), 0x80000009u);
    EXPECT_EQ(address, 0x1234u);
}

// Event block 38h, reset register 78h (low half first), reset value 80h.
static void PutFadt(uint32_t eventBlock, uint32_t resetRegister, uint8_t resetValue) {
    OpenMachine();
    PutXsdt({Other(0), FADT});
    Poke32(FADT + 0x38, eventBlock);
    Poke32(FADT + 0x78, resetRegister);
    Poke32(FADT + 0x7C, 0xFFFFFFFF);
    BoardPoke(FADT + 0x80, &resetValue, 1);
}

TEST(AcpiTables, TheFadtGivesEventBlockResetRegisterAndResetValue) {
    PutFadt(0x00001800, 0x00000CF9, 0x06);
    PmAddressRecord record = {1, 2, 3};
    EXPECT_EQ(AcpiGetPMAddress(&record), 0u);
    EXPECT_EQ(record.pm1EventBlock, 0x1800);
    EXPECT_EQ(record.resetRegister, 0x0CF9);
    EXPECT_EQ(record.resetValue, 0x06);
}

TEST(AcpiTables, TheFadtsAddressesAreCutTo16Bits) {
    PutFadt(0xABCD0804, 0xFEDC1234, 0xFF);
    PmAddressRecord record = {};
    EXPECT_EQ(AcpiGetPMAddress(&record), 0u);
    EXPECT_EQ(record.pm1EventBlock, 0x0804);
    EXPECT_EQ(record.resetRegister, 0x1234);
    EXPECT_EQ(record.resetValue, 0xFF);
}

TEST(AcpiTables, AFadtThatOnlyTheRsdtNamesIsUsed) {
    PutFadt(0x600, 0xCF9, 0x0F);
    PutRoot(RSDT, 0);
    PutRsdt({FADT});
    PmAddressRecord record = {};
    EXPECT_EQ(AcpiGetPMAddress(&record), 0u);
    EXPECT_EQ(record.pm1EventBlock, 0x600);
}

// 116 bytes of ACPI 1.0: the reset fields are what follows in memory.
TEST(AcpiTables, TheLengthOfTheFadtIsNotConsulted) {
    PutFadt(0x600, 0x5555, 0x77);
    SetLength(FADT, 116);
    PmAddressRecord record = {};
    EXPECT_EQ(AcpiGetPMAddress(&record), 0u);
    EXPECT_EQ(record.resetRegister, 0x5555);
    EXPECT_EQ(record.resetValue, 0x77);
}

TEST(AcpiTables, WithoutAFadtTheRecordIsUntouched) {
    OpenMachine();
    PutXsdt(Others(5));
    PutRsdt(Others(5));
    PmAddressRecord record = {0x1111, 0x2222, 0x33};
    EXPECT_EQ(AcpiGetPMAddress(&record), 0x8000000Eu);
    OpenBoard("base", "fill f0000 10000 00");
    EXPECT_EQ(AcpiGetPMAddress(&record), 0x8000000Eu);
    EXPECT_EQ(record.pm1EventBlock, 0x1111);
    EXPECT_EQ(record.resetRegister, 0x2222);
    EXPECT_EQ(record.resetValue, 0x33);
}

TEST(AcpiTables, WithoutMemoryForTheFadtTheRecordIsUntouched) {
    PutFadt(0x600, 0xCF9, 0x0F);
    PmAddressRecord record = {0x1111, 0x2222, 0x33};
    LimitMalloc(243); // root pointer and XSDT fit
    EXPECT_EQ(AcpiGetPMAddress(&record), 0x80000009u);
    EXPECT_EQ(record.pm1EventBlock, 0x1111);
}
