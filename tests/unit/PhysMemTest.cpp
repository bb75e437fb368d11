#include "BasicLib/PhysMem.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <gtest/gtest.h>

#include "Base/Memory.h"
#include "BasicLib/Driver.h"
#include "TestHelp.h"
#include "sim/Board.h"

// Memory from 0x500 on holds the address of each dword; these pages log every access.
static void OpenWatchedMemory() {
    OpenBoard("intel", "watch 00000000 00004000");
}

static uint32_t Peek32(uint32_t address) {
    uint32_t value;
    BoardPeek(address, &value, sizeof(value));
    return value;
}

TEST(PhysMem, AReadMapsTwoPagesAndIsOneAccessOfItsWidth) {
    OpenWatchedMemory();
    EXPECT_EQ(MemRead8(0x1235), 0x12u);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mr8 00001235 -> 12"}));
    EXPECT_EQ(MemRead16(0x1234), 0x1234u);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mr16 00001234 -> 1234"}));
    EXPECT_EQ(MemRead32(0x1234), 0x1234u);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mr32 00001234 -> 00001234"}));
}

TEST(PhysMem, AWriteMapsTwoPagesAndIsOneAccessOfItsWidth) {
    OpenWatchedMemory();
    MemWrite8(0x1000, 0x9A);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mw8 00001000 9a"}));
    MemWrite16(0x1004, 0xBCDE);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mw16 00001004 bcde"}));
    MemWrite32(0x1008, 0xDEADBEEF);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000", {"mw32 00001008 deadbeef"}));
    EXPECT_EQ(Peek32(0x1000), 0x0000109Au);
    EXPECT_EQ(Peek32(0x1004), 0x0000BCDEu);
    EXPECT_EQ(Peek32(0x1008), 0xDEADBEEFu);
}

TEST(PhysMem, AWrittenValueIsCutToTheWidth) {
    OpenWatchedMemory();
    BoardPoke(0x2000, "\0\0\0\0\0\0\0\0", 8);
    MemWrite8(0x2000, 0x12345678);
    MemWrite16(0x2004, 0x12345678);
    EXPECT_EQ(Peek32(0x2000), 0x78u);
    EXPECT_EQ(Peek32(0x2004), 0x5678u);
}

TEST(PhysMem, AnAccessAcrossAPageBorderStaysInsideItsMapping) {
    OpenWatchedMemory();
    EXPECT_EQ(MemRead32(0xFFE), 0x10000000u); // bytes 0xFFE to 0x1001
    EXPECT_EQ(TakeLog(), Mapped("00000000", "2000", {"mr32 00000ffe -> 10000000"}));
    EXPECT_EQ(MemRead16(0x1FFF), 0x0000u);
    MemWrite32(0x1FFD, 0x44332211);
    EXPECT_EQ(Peek32(0x1FFC), 0x332211FCu);
    EXPECT_EQ(Peek32(0x2000), 0x00002044u);
}

TEST(PhysMem, TheLastBytesBelow4GiBAreInReach) {
    OpenBoard("intel");
    EXPECT_EQ(MemRead8(0xFFFFFFFE), 0xFCu); // the model byte
    EXPECT_EQ(TakeLog(), Mapped("fffff000", "2000"));
    EXPECT_EQ(MemRead32(0xFFFFFFF0), 0x00E05BEAu);
}

TEST(PhysMem, EachAccessMapsAfresh) {
    OpenBoard("intel");
    MemRead8(0x1000);
    MemRead8(0x1000);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "2000") + Mapped("00001000", "2000"));
}

TEST(PhysMem, ARefusedMapGives16OnesForADwordToo) {
    OpenBoard("refusedmap");
    EXPECT_EQ(MemRead8(0xE0000000), 0xFFu);
    EXPECT_EQ(MemRead16(0xE0000000), 0xFFFFu);
    EXPECT_EQ(MemRead32(0xE0000000), 0xFFFFu);
    const std::string refused = "mmap /dev/mem e0000000 2000 rw shared -> EPERM";
    EXPECT_EQ(TakeLog(), (Log{refused, refused, refused}));
}

TEST(PhysMem, AWriteIsDroppedWhenTheMapIsRefused) {
    OpenBoard("intel", "refuse 00001000 00001000 EPERM");
    EXPECT_EQ(Printed([] {
                  MemWrite8(0x1000, 0x55);
                  MemWrite16(0x1000, 0x5555);
                  MemWrite32(0x1000, 0x55555555);
              }),
              "");
    EXPECT_EQ(Peek32(0x1000), 0x1000u);
    EXPECT_EQ(TakeLog().size(), 3u); // three refused maps
}

TEST(PhysMem, TheSecondPageOfTheMappingCanRefuseAnAccessThatNeedsOnlyTheFirst) {
    OpenBoard("intel", "refuse 00003000 00001000 EPERM");
    EXPECT_EQ(MemRead32(0x2000), 0xFFFFu);
}

TEST(PhysMem, ErrnoTellsAboutTheLastAttempt) {
    OpenBoard("refusedmap");
    MemRead8(0xE0000000);
    EXPECT_EQ(errno, EPERM);
    MemRead8(0x1000);
    EXPECT_EQ(errno, 0);
    errno = EBADF;
    gMemFd = MEM_FD_NONE;
    MemWrite8(0x1000, 0);
    EXPECT_EQ(errno, 0);
}

TEST(PhysMem, WithoutTheMemoryDeviceReadsGiveAllOnesAndWritesNothing) {
    OpenBoard("nomem");
    EXPECT_EQ(MemRead8(0x1000), 0xFFFFFFFFu);
    EXPECT_EQ(MemRead16(0x1000), 0xFFFFFFFFu);
    EXPECT_EQ(MemRead32(0x1000), 0xFFFFFFFFu);
    MemWrite8(0x1000, 0x55);
    MemWrite16(0x1000, 0x55);
    MemWrite32(0x1000, 0x55);
    EXPECT_EQ(TakeLog(), Log{});
    EXPECT_EQ(Peek32(0x1000), 0x1000u);
}

// A buffer with its first bytes filled with 0xEE, so that what was copied shows.
struct Buffer {
    uint8_t bytes[0x5000];
};

static void Clear(Buffer *buffer) {
    memset(buffer->bytes, 0xEE, sizeof(buffer->bytes));
}

static bool IsAll(const uint8_t *bytes, uint8_t value, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (bytes[i] != value)
            return false;
    }
    return true;
}

// True when the bytes are those of the board's memory from address on.
static bool IsMemory(const uint8_t *bytes, uint32_t address, size_t count) {
    std::vector<uint8_t> memory(count);
    BoardPeek(address, memory.data(), count);
    return memcmp(bytes, memory.data(), count) == 0;
}

TEST(PhysMem, DumpPhysMemCopiesTheWholePageWhateverTheLowBits) {
    OpenBoard("intel");
    Buffer buffer;
    Clear(&buffer);
    EXPECT_EQ(Dump_PhysMem(0x1ABC, buffer.bytes, 0x1000), 1);
    EXPECT_TRUE(IsMemory(buffer.bytes, 0x1000, 0x1000));
    EXPECT_EQ(buffer.bytes[0x1000], 0xEE);
    EXPECT_EQ(TakeLog(), Mapped("00001000", "1000"));
}

TEST(PhysMem, DumpPhysMemReadsThePageOnceInOrderWithAlignedLoads) {
    OpenWatchedMemory();
    uint8_t page[0x1001];
    EXPECT_EQ(Dump_PhysMem(0x1000, page + 1, 0x1000), 1); // also into a buffer at an odd address
    EXPECT_TRUE(IsMemory(page + 1, 0x1000, 0x1000));
    Log log = TakeAccesses();
    uint32_t next = 0x1000;
    for (size_t i = 1; i + 1 < log.size(); ++i) {
        char kind[8];
        unsigned address;
        ASSERT_EQ(sscanf(log[i].c_str(), "%7s %x", kind, &address), 2) << log[i];
        ASSERT_TRUE(strcmp(kind, "mr32") == 0 || strcmp(kind, "mr64") == 0) << log[i];
        ASSERT_EQ(address, next);
        next += strcmp(kind, "mr32") == 0 ? 4 : 8;
    }
    EXPECT_EQ(next, 0x2000u);
}

TEST(PhysMem, DumpPhysMemAssertsAShortLengthAndCopiesThePageAllTheSame) {
    OpenBoard("intel");
    Buffer buffer;
    Clear(&buffer);
    EXPECT_EQ(Printed([&] { EXPECT_EQ(Dump_PhysMem(0x1000, buffer.bytes, 0x100), 1); }),
              "ASSERT in ./BasicLib/BasicLib on 537: length >= PAGE_4KB\n");
    EXPECT_TRUE(IsMemory(buffer.bytes, 0x1000, 0x1000));
    EXPECT_EQ(Printed([&] { Dump_PhysMem(0x1000, buffer.bytes, 0x1000); }), "");
    EXPECT_NE(Printed([&] { Dump_PhysMem(0x1000, buffer.bytes, 0xFFF); }), "");
}

TEST(PhysMem, DumpPhysMemFillsThePageWithOnesWhenTheMapIsRefused) {
    OpenBoard("refusedmap");
    Buffer buffer;
    Clear(&buffer);
    EXPECT_EQ(Dump_PhysMem(0xE0000010, buffer.bytes, 0x1000), 0);
    EXPECT_TRUE(IsAll(buffer.bytes, 0xFF, 0x1000));
    EXPECT_EQ(buffer.bytes[0x1000], 0xEE);
    EXPECT_EQ(TakeLog(), (Log{"mmap /dev/mem e0000000 1000 rw shared -> EPERM"}));
    EXPECT_EQ(errno, EPERM);
}

TEST(PhysMem, DumpPhysMemLeavesTheBufferAloneWithoutTheMemoryDevice) {
    OpenBoard("nomem");
    Buffer buffer;
    Clear(&buffer);
    EXPECT_EQ(Dump_PhysMem(0x1000, buffer.bytes, 0x1000), 0);
    EXPECT_TRUE(IsAll(buffer.bytes, 0xEE, sizeof(buffer.bytes)));
    EXPECT_EQ(TakeLog(), Log{});
}

// MemDump into a block of exactly the length, so that a sanitized build sees a byte too many; then compared
// with the memory.
static void ExpectDump(uint32_t start, uint32_t length, const Log &log) {
    std::vector<uint8_t> block(length);
    block.shrink_to_fit();
    EXPECT_EQ(MemDump(start, length, block.data()), 0u);
    EXPECT_TRUE(IsMemory(block.data(), start, length)) << start << " " << length;
    EXPECT_EQ(TakeLog(), log);
}

TEST(PhysMem, DumpPhysMemWithoutABufferReadsNothing) {
    OpenBoard("intel");
    EXPECT_EQ(Dump_PhysMem(0x1000, nullptr, 0x1000), 0);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PhysMem, MemDumpOfARangeAcrossABorderReadsBothPages) {
    OpenBoard("intel");
    ExpectDump(0x1FF0, 0x20, Mapped("00001000", "1000") + Mapped("00002000", "1000"));
}

TEST(PhysMem, MemDumpOfWholePagesHasNoTail) {
    OpenBoard("intel");
    ExpectDump(0x1000, 0x2000, Mapped("00001000", "1000") + Mapped("00002000", "1000"));
    ExpectDump(0x3000, 0x1000, Mapped("00003000", "1000"));
}

TEST(PhysMem, MemDumpInsideOnePageReadsItOnce) {
    OpenBoard("intel");
    ExpectDump(0x1010, 0x20, Mapped("00001000", "1000"));
    ExpectDump(0x1000, 0x20, Mapped("00001000", "1000"));
    ExpectDump(0x1F00, 0x100, Mapped("00001000", "1000")); // up to the border and no further
}

TEST(PhysMem, MemDumpOfHeadPagesAndTail) {
    OpenBoard("intel");
    ExpectDump(0x1FF0, 0x2020,
               Mapped("00001000", "1000") + Mapped("00002000", "1000") + Mapped("00003000", "1000") +
                   Mapped("00004000", "1000"));
    ExpectDump(0x1000, 0x1001, Mapped("00001000", "1000") + Mapped("00002000", "1000"));
    ExpectDump(0x1001, 0x1FFF, Mapped("00001000", "1000") + Mapped("00002000", "1000"));
}

TEST(PhysMem, MemDumpOfEveryAlignmentAndLength) {
    OpenBoard("intel");
    for (uint32_t start = 0x1FF8; start < 0x2008; ++start) {
        for (uint32_t length :
             {1u, 7u, 8u, 9u, 0xFF8u, 0xFFFu, 0x1000u, 0x1001u, 0x1FFFu, 0x2000u, 0x2001u}) {
            std::vector<uint8_t> block(length);
            EXPECT_EQ(MemDump(start, length, block.data()), 0u);
            EXPECT_TRUE(IsMemory(block.data(), start, length)) << start << " " << length;
        }
    }
}

TEST(PhysMem, MemDumpEndsAt4GiB) {
    OpenBoard("intel");
    Buffer buffer;
    Clear(&buffer);
    EXPECT_EQ(MemDump(0xFFFFFF00, 0x200, buffer.bytes), 0u);
    EXPECT_TRUE(IsMemory(buffer.bytes, 0xFFFFFF00, 0x100));
    EXPECT_TRUE(IsAll(buffer.bytes + 0x100, 0xEE, 0x1000));
    EXPECT_EQ(TakeLog(), Mapped("fffff000", "1000"));
    Clear(&buffer);
    EXPECT_EQ(MemDump(0xFFFFF000, 0x2000, buffer.bytes), 0u);
    EXPECT_TRUE(IsMemory(buffer.bytes, 0xFFFFF000, 0x1000));
    EXPECT_TRUE(IsAll(buffer.bytes + 0x1000, 0xEE, 0x1000));
    EXPECT_EQ(TakeLog(), Mapped("fffff000", "1000"));
    ExpectDump(0xFFFFFF00, 0x100, Mapped("fffff000", "1000"));
    ExpectDump(0xFFFFFFFF, 1, Mapped("fffff000", "1000"));
}

TEST(PhysMem, MemDumpOfNothingReadsThePageAndCopiesNothing) {
    OpenBoard("intel");
    Buffer buffer;
    Clear(&buffer);
    EXPECT_EQ(MemDump(0x1000, 0, buffer.bytes), 0u);
    EXPECT_EQ(MemDump(0x2010, 0, buffer.bytes), 0u);
    EXPECT_TRUE(IsAll(buffer.bytes, 0xEE, sizeof(buffer.bytes)));
    EXPECT_EQ(TakeLog(), Mapped("00001000", "1000") + Mapped("00002000", "1000"));
}

TEST(PhysMem, MemDumpWithoutABufferIsInvalid) {
    OpenBoard("intel");
    EXPECT_EQ(MemDump(0x1000, 0x10, nullptr), 0x80000002u);
    EXPECT_EQ(MemDump(0xFFFFFF00, 0x200, nullptr), 0x80000002u);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PhysMem, MemDumpGivesOnesForPagesThatCannotBeRead) {
    OpenBoard("intel", "refuse 00002000 00001000 EPERM");
    Buffer buffer;
    Clear(&buffer);
    EXPECT_EQ(MemDump(0x1FF0, 0x1020, buffer.bytes), 0u);
    EXPECT_TRUE(IsMemory(buffer.bytes, 0x1FF0, 0x10));
    EXPECT_TRUE(IsAll(buffer.bytes + 0x10, 0xFF, 0x1000));
    EXPECT_TRUE(IsMemory(buffer.bytes + 0x1010, 0x3000, 0x10));
    EXPECT_EQ(buffer.bytes[0x1020], 0xEE);
}

TEST(PhysMem, MemDumpWithoutTheMemoryDeviceClearsHeadAndTailAndKeepsWholePages) {
    OpenBoard("nomem");
    Buffer buffer;
    Clear(&buffer);
    EXPECT_EQ(MemDump(0x1FF0, 0x2020, buffer.bytes), 0u);
    EXPECT_TRUE(IsAll(buffer.bytes, 0, 0x10));
    EXPECT_TRUE(IsAll(buffer.bytes + 0x10, 0xEE, 0x2000));
    EXPECT_TRUE(IsAll(buffer.bytes + 0x2010, 0, 0x10));
    EXPECT_EQ(buffer.bytes[0x2020], 0xEE);
}

TEST(PhysMem, ACopyIsZeroBehindTheEndOfMemory) {
    OpenBoard("intel");
    void *used = Malloc(32); // the block that the copy will get
    memset(used, 0xA5, 32);
    Free(used);
    uint8_t *copy = CopyPhysical(0xFFFFFFF0, 32);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(std::string(copy + 16, copy + 32), std::string(16, '\0'));
    Free(copy);
    FailMalloc(1);
    EXPECT_EQ(CopyPhysical(0x1000, 32), nullptr);
}

// Ends the process: 1 when it may leave a core dump, else 0.
[[noreturn]] static void EndDumpable(bool copies) {
    prctl(PR_SET_DUMPABLE, 1);
    uint8_t page[PAGE_4KB];
    if (copies)
        Dump_PhysMem(0x100000, page, sizeof(page));
    _exit(prctl(PR_GET_DUMPABLE));
}

TEST(PhysMemDeathTest, WhatIsCopiedFromMemoryIsKeptOutOfCoreDumps) {
    OpenBoard("intel");
    EXPECT_EXIT(EndDumpable(false), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(EndDumpable(true), testing::ExitedWithCode(0), "");
}

TEST(PhysMem, AProbeWithoutTheMemoryDeviceFindsNoDevice) {
    OpenBoard("nomem");
    EXPECT_EQ(ProbePhysMem(0x1000), ENODEV);
    EXPECT_EQ(ProbePhysAccess(0x1000), ENODEV);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(PhysMem, AProbeMapsWhatACopyOrAnAccessMapsAndAccessesNothing) {
    OpenBoard("intel", "refuse 00002000 00001000 EPERM");
    EXPECT_EQ(ProbePhysMem(0x1FFF), 0);
    EXPECT_EQ(TakeLog(), (Log{"mmap /dev/mem 00001000 1000 r shared -> ok", "munmap 00001000 1000"}));
    EXPECT_EQ(ProbePhysAccess(0x1FFF), EPERM);
    EXPECT_EQ(ProbePhysAccess(0x0FFF), 0);
    EXPECT_EQ(ProbePhysMem(0x2000), EPERM);
}
