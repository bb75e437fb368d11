#include "BasicLib/Cpu.h"

#include <cpuid.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

TEST(Cpu, CpusAreCountedByTheirMsrNodes) {
    OpenBoard("intel", "cpus 0-1");
    EXPECT_EQ(GetCpuCount(), 2);
    EXPECT_EQ(TakeLog(), (Log{"open /dev/cpu/0/msr rdonly cloexec -> ok", "close /dev/cpu/0/msr",
                              "open /dev/cpu/1/msr rdonly cloexec -> ok", "close /dev/cpu/1/msr",
                              "open /dev/cpu/2/msr rdonly cloexec -> ENOENT"}));
}

TEST(Cpu, CountingEndsAtTheFirstGap) {
    OpenBoard("cpugap");
    EXPECT_EQ(GetCpuCount(), 4);
}

TEST(Cpu, ThereAreNoCpusWithoutTheMsrDriver) {
    OpenBoard("nomsr");
    EXPECT_EQ(GetCpuCount(), 0);
}

TEST(Cpu, CountingEndsAtTheLastCpuThatASigned16BitNumberNames) {
    OpenGives(1000);
    EXPECT_EQ(GetCpuCount(), 32767);
    EXPECT_EQ(GivenAndNotClosed(), 0);
}

TEST(Cpu, AnMsrIsOnePositionedReadOf8Bytes) {
    OpenBoard("intel");
    BoardSetMsr(2, 0x1A0, 0x1122334455667788);
    uint32_t high = 1, low = 1;
    ReadMsr(2, 0x1A0, &high, &low);
    EXPECT_EQ(high, 0x11223344u);
    EXPECT_EQ(low, 0x55667788u);
    EXPECT_EQ(TakeLog(), (Log{"open /dev/cpu/2/msr rdonly cloexec -> ok",
                              "pread /dev/cpu/2/msr 1a0 8 -> 1122334455667788", "close /dev/cpu/2/msr"}));
}

TEST(Cpu, AnMsrIndexUsesAll32Bits) {
    OpenBoard("amd");
    uint32_t high = 1, low = 1;
    ReadMsr(0, 0xC0010058, &high, &low);
    EXPECT_EQ(high, 0u);
    EXPECT_EQ(low, 0xF8000021u);
    EXPECT_EQ(TakeLog()[1], "pread /dev/cpu/0/msr c0010058 8 -> 00000000f8000021");
}

TEST(Cpu, AnAbsentMsrReadsZero) {
    OpenBoard("intel");
    uint32_t high = 1, low = 1;
    EXPECT_EQ(Printed([&] { ReadMsr(0, 0x12345, &high, &low); }), "");
    EXPECT_EQ(high, 0u);
    EXPECT_EQ(low, 0u);
    EXPECT_EQ(TakeLog(), (Log{"open /dev/cpu/0/msr rdonly cloexec -> ok",
                              "pread /dev/cpu/0/msr 12345 8 -> EIO", "close /dev/cpu/0/msr"}));
}

TEST(Cpu, AnMsrOfAnAbsentCpuReadsZero) {
    OpenBoard("intel");
    uint32_t high = 1, low = 1;
    ReadMsr(8, 0x10, &high, &low);
    EXPECT_EQ(high, 0u);
    EXPECT_EQ(low, 0u);
    EXPECT_EQ(TakeLog(), (Log{"open /dev/cpu/8/msr rdonly cloexec -> ENOENT"}));
    LoadBoard("nomsr");
    high = low = 1;
    ReadMsr(0, 0x10, &high, &low);
    EXPECT_EQ(high, 0u);
    EXPECT_EQ(low, 0u);
}

TEST(Cpu, AnMsrThatIsReadInPartIsAnErrorAndGivesNothing) {
    EnterScratchFolder();
    WriteFile("SHORT", "1234567");
    int file = open("SHORT", O_RDONLY);
    OpenGives(file);
    uint64_t value = 0x5A;
    EXPECT_EQ(TryReadMsr(0, 0, &value), EIO);
    EXPECT_EQ(value, 0x5Au);
    EXPECT_EQ(GivenAndNotClosed(), 0);
    OpenGives(-1);
    close(file);
    LoadBoard("nomsr");
    EXPECT_EQ(TryReadMsr(0, 0, &value), ENOENT);
}

TEST(Cpu, ACpuNumberIsASigned16BitOne) {
    OpenBoard("intel");
    uint32_t high = 1, low = 1;
    ReadMsr(0x10003, 0x1B, &high, &low);
    EXPECT_EQ(low, 0xFEE00C00u);
    EXPECT_EQ(TakeLog()[0], "open /dev/cpu/3/msr rdonly cloexec -> ok");
    ReadMsr(0xFFFF, 0x1B, &high, &low); // CPU -1
    EXPECT_EQ(low, 0u);
}

TEST(Cpu, AnMsrIsOnePositionedWriteOf8Bytes) {
    OpenBoard("intel");
    WriteMsr(1, 0x1A0, 0x1, 0x850089);
    EXPECT_EQ(TakeLog(), (Log{"open /dev/cpu/1/msr wronly cloexec -> ok",
                              "pwrite /dev/cpu/1/msr 1a0 8 0000000100850089 -> ok", "close /dev/cpu/1/msr"}));
    EXPECT_EQ(BoardGetMsr(1, 0x1A0), 0x100850089u);
    EXPECT_EQ(BoardGetMsr(0, 0x1A0), 0x850089u);
}

TEST(Cpu, ARefusedWriteIsSilent) {
    OpenBoard("intel");
    EXPECT_EQ(Printed([] { WriteMsr(0, 0x3A, 1, 2); }), ""); // locked
    EXPECT_EQ(TakeLog(), (Log{"open /dev/cpu/0/msr wronly cloexec -> ok",
                              "pwrite /dev/cpu/0/msr 3a 8 0000000100000002 -> EIO", "close /dev/cpu/0/msr"}));
    EXPECT_EQ(BoardGetMsr(0, 0x3A), 5u);
    EXPECT_EQ(Printed([] { WriteMsr(99, 0x3A, 1, 2); }), "");
    EXPECT_EQ(TakeLog(), (Log{"open /dev/cpu/99/msr wronly cloexec -> ENOENT"}));
}

TEST(Cpu, AnMsrNodeMayHaveDescriptor0) {
    FeedInput(""); // which takes no write
    OpenGives(0);
    uint32_t high = 1, low = 1;
    ReadMsr(0, 0x10, &high, &low);
    EXPECT_EQ(GivenAndNotClosed(), 0);
    WriteMsr(0, 0x10, 0, 0);
    EXPECT_EQ(GivenAndNotClosed(), 0);
}

TEST(Cpu, CpuidGivesTheFourRegistersOfSubLeafZero) {
    OpenBoard("base", "cpuid 4 0 1 2 3 4\ncpuid 4 1 5 6 7 8");
    uint32_t registers[4] = {};
    GetCpuId(4, registers);
    EXPECT_EQ(registers[0], 1u);
    EXPECT_EQ(registers[1], 2u);
    EXPECT_EQ(registers[2], 3u);
    EXPECT_EQ(registers[3], 4u);
}

TEST(Cpu, CpuidOnTheMachineItselfIsThatOfTheProcessor) {
    for (uint32_t leaf : {0u, 4u, 7u, 0xDu, 0x80000000u, 0x80000002u}) {
        uint32_t registers[4] = {};
        uint32_t expected[4] = {};
        GetCpuId(leaf, registers);
        __cpuid_count(leaf, 0, expected[0], expected[1], expected[2], expected[3]);
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(registers[i], expected[i]) << leaf << " " << i;
    }
}
