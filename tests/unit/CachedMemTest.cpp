// Pages that the kernel holds cached: a map through the descriptor with O_SYNC fails with EAGAIN, and a
// second descriptor without O_SYNC is tried.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "BasicLib/Driver.h"
#include "BasicLib/PhysMem.h"
#include "TestHelp.h"
#include "sim/Board.h"

static const std::string CACHED = "refuse 200000 1000 EAGAIN sync\n";
static const Log OPEN_AGAIN = {"open /dev/mem rdwr cloexec -> ok"};

static Log Refused(const std::string &page, const std::string &length, const std::string &error) {
    return {"mmap /dev/mem " + page + " " + length + " rw shared -> " + error};
}

static const Log REFUSED = Refused("00200000", "2000", "EAGAIN");

// The tests' own end of a run, which closes the second descriptor as well.
static void Close() {
    CloseLinuxDriver();
    gMemFd = MEM_FD_NONE;
}

TEST(CachedMem, EachWidthIsReadThroughTheSecondDescriptor) {
    OpenBoard("base", CACHED);
    Poke32(0x200010, 0x89ABCDEF);
    EXPECT_EQ(MemRead32(0x200010), 0x89ABCDEFu);
    EXPECT_EQ(TakeLog(), REFUSED + OPEN_AGAIN + Mapped("00200000", "2000"));
    EXPECT_EQ(MemRead16(0x200010), 0xCDEFu);
    EXPECT_EQ(MemRead8(0x200010), 0xEFu);
    EXPECT_EQ(TakeLog(), REFUSED + Mapped("00200000", "2000") + REFUSED + Mapped("00200000", "2000"));
    Close();
}

TEST(CachedMem, WritesGoThroughTheSecondDescriptorToo) {
    OpenBoard("base", CACHED);
    MemWrite32(0x200020, 0x12345678);
    EXPECT_EQ(TakeLog(), REFUSED + OPEN_AGAIN + Mapped("00200000", "2000"));
    uint32_t value = 0;
    BoardPeek(0x200020, &value, sizeof(value));
    EXPECT_EQ(value, 0x12345678u);
    Close();
}

TEST(CachedMem, APageIsCopiedThroughTheSecondDescriptor) {
    OpenBoard("base", CACHED + "fill 200000 1000 address");
    uint8_t page[0x1000] = {};
    EXPECT_EQ(Dump_PhysMem(0x200000, page, sizeof(page)), 1);
    EXPECT_EQ(page[0xFFC], 0xFC);
    EXPECT_EQ(page[0xFFE], 0x20);
    EXPECT_EQ(TakeLog(), Refused("00200000", "1000", "EAGAIN") + OPEN_AGAIN + Mapped("00200000", "1000"));
    Close();
}

TEST(CachedMem, TheFirstDescriptorIsTriedFirstForEachPage) {
    OpenBoard("base", CACHED);
    MemRead8(0x200000);
    TakeLog();
    MemRead8(0x300000);
    EXPECT_EQ(TakeLog(), Mapped("00300000", "2000"));
    Close();
}

TEST(CachedMem, WithoutARefusalThereIsNoSecondDescriptor) {
    OpenBoard("base");
    MemRead8(0x200000);
    EXPECT_EQ(TakeLog(), Mapped("00200000", "2000"));
    EXPECT_EQ(CloseLinuxDriver(), 0u);
    EXPECT_EQ(TakeLog(), (Log{"iopl 0", "close /dev/mem"}));
    gMemFd = MEM_FD_NONE;
}

TEST(CachedMem, AnotherErrorIsFinal) {
    for (const char *error : {"EPERM", "EINVAL", "ENOMEM", "EACCES", "ENXIO"}) {
        OpenBoard("base", std::string("refuse 200000 1000 ") + error + " sync");
        EXPECT_EQ(MemRead32(0x200000), 0xFFFFu);
        EXPECT_EQ(TakeLog(), Refused("00200000", "2000", error));
        Close();
    }
}

TEST(CachedMem, AMapThatFailsThroughBothIsAFailure) {
    OpenBoard("base", "refuse 200000 1000 EAGAIN");
    EXPECT_EQ(MemRead32(0x200000), 0xFFFFu);
    EXPECT_EQ(MemRead16(0x200000), 0xFFFFu);
    EXPECT_EQ(MemRead8(0x200000), 0xFFu);
    EXPECT_EQ(TakeLog(), REFUSED + OPEN_AGAIN + REFUSED + REFUSED + REFUSED + REFUSED + REFUSED);
    Close();
}

TEST(CachedMem, ASecondDescriptorThatCannotBeOpenedIsAFailure) {
    OpenBoard("base", CACHED);
    int lowest = dup(STDIN_FILENO);
    close(lowest);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit full = {static_cast<rlim_t>(lowest), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &full), 0);
    EXPECT_EQ(MemRead32(0x200000), 0xFFFFu);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    Log log = TakeLog();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[0], REFUSED[0]);
    EXPECT_EQ(log[1], "open /dev/mem rdwr cloexec -> EMFILE");
    Close();
}

TEST(CachedMem, TheSecondDescriptorIsNotInherited) {
    OpenBoard("base", CACHED);
    MemRead8(0x200000);
    EXPECT_NE(fcntl(CachedMemFd(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(fcntl(CachedMemFd(), F_GETFL) & O_SYNC, 0);
    Close();
}

TEST(CachedMem, BothDescriptorsAreClosedAndTheNextRunOpensItsOwn) {
    OpenBoard("base", CACHED);
    MemRead8(0x200000);
    TakeLog();
    EXPECT_EQ(CloseLinuxDriver(), 0u);
    EXPECT_EQ(TakeLog(), (Log{"iopl 0", "close /dev/mem", "close /dev/mem"}));
    gMemFd = MEM_FD_NONE;
    OpenBoard("base", CACHED);
    MemRead8(0x200000);
    EXPECT_EQ(TakeLog(), REFUSED + OPEN_AGAIN + Mapped("00200000", "2000"));
    Close();
}
