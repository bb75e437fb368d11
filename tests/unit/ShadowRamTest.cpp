#include "Platform/ShadowRam.h"

#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Platform/AmdReg.h"
#include "Platform/IntelReg.h"
#include "TestHelp.h"
#include "sim/Board.h"

// What was saved lasts as long as the process: each test has one of its own.
static void InOwnProcess(void (*body)()) {
    fflush(nullptr);
    pid_t child = fork();
    if (child == 0) {
        body();
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "see the failures above";
}

static Log Pam(const std::string &index, const std::string &access) {
    return LegacyPci("800000" + index, access);
}

// Data ports of the registers 80h, 85h and 86h.
static Log PamChange(const std::string &index, const std::string &port, const std::string &before,
                     const std::string &after) {
    return Pam(index, "in8 " + port + " -> " + before) + Pam(index, "out8 " + port + " " + after);
}

static const char *const ODD_PAMS = "pci 00:00.0\nbyte 80 c1 rw ff\nbyte 85 10 rw ff\nbyte 86 cc rw ff";
static const uint16_t HOST_BRIDGE = 0;

static uint64_t Pams() {
    uint64_t bytes = 0;
    for (uint16_t offset = 0x80; offset <= 0x86; ++offset)
        bytes = bytes << 8 | BoardGetPci(HOST_BRIDGE, offset, 1);
    return bytes;
}

TEST(ShadowRam, IntelsRegionIsOpenedAndPutBack) {
    InOwnProcess([] {
        OpenBoard("intel");
        EXPECT_EQ(ShadowRamWrite(1), 1);
        EXPECT_EQ(TakeLog(), LegacyPci("80000000", "in16 0cfc -> 8086") +
                                 PamChange("80", "0cfc", "10", "30") + PamChange("85", "0cfd", "11", "33") +
                                 PamChange("86", "0cfe", "11", "33"));
        EXPECT_EQ(Pams(), 0x30333333333333u);
        EXPECT_EQ(ShadowRamWrite(0), 1);
        EXPECT_EQ(TakeLog(),
                  Pam("80", "out8 0cfc 10") + Pam("85", "out8 0cfd 11") + Pam("86", "out8 0cfe 11"));
        EXPECT_EQ(Pams(), 0x10333333331111u);
    });
}

TEST(ShadowRam, IntelsOtherBitsStay) {
    InOwnProcess([] {
        OpenBoard("intel", ODD_PAMS);
        IntelRuntimeShadowRamWrite(0x80);
        EXPECT_EQ(TakeLog(), PamChange("80", "0cfc", "c1", "f1") + PamChange("85", "0cfd", "10", "33") +
                                 PamChange("86", "0cfe", "cc", "ff"));
        IntelRuntimeShadowRamWrite(0);
        EXPECT_EQ(Pams(), 0xc13333333310ccu);
    });
}

TEST(ShadowRam, ClosingIntelsRegionUnopenedWritesNothing) {
    InOwnProcess([] {
        OpenBoard("intel");
        IntelRuntimeShadowRamWrite(0);
        EXPECT_EQ(TakeLog(), Log{});
    });
}

TEST(ShadowRam, OpeningIntelsRegionTwiceSavesTheOpenOne) {
    InOwnProcess([] {
        OpenBoard("intel");
        ShadowRamWrite(1);
        ShadowRamWrite(1);
        ShadowRamWrite(0);
        EXPECT_EQ(Pams(), 0x30333333333333u);
    });
}

static Log MsrRead(const std::string &index, const std::string &value) {
    return {"open /dev/cpu/0/msr rdonly cloexec -> ok", "pread /dev/cpu/0/msr " + index + " 8 -> " + value,
            "close /dev/cpu/0/msr"};
}

static Log MsrWrite(const std::string &index, const std::string &value) {
    return {"open /dev/cpu/0/msr wronly cloexec -> ok",
            "pwrite /dev/cpu/0/msr " + index + " 8 " + value + " -> ok", "close /dev/cpu/0/msr"};
}

static Log MsrChange(const std::string &index, const std::string &before, const std::string &after) {
    return MsrRead(index, before) + MsrWrite(index, after);
}

// SYSCFG as the board has it, and with both bits of the fixed ranges.
static const char *const SYSCFG = "c0010010";
static const char *const AS_IT_WAS = "0000000000740000";
static const char *const BOTH_BITS = "00000000007c0000";
static const char *const OPEN = "1818181818181818";

TEST(ShadowRam, AmdsRegionIsOpenedAndPutBack) {
    InOwnProcess([] {
        OpenBoard("amd");
        EXPECT_EQ(ShadowRamWrite(1), 1);
        EXPECT_EQ(TakeLog(), LegacyPci("80000000", "in16 0cfc -> 1022") +
                                 MsrChange(SYSCFG, AS_IT_WAS, BOTH_BITS) + MsrRead(SYSCFG, BOTH_BITS) +
                                 MsrChange("26e", "1515151515151515", OPEN) +
                                 MsrChange("26f", "1515151505050505", "1818181805050505") +
                                 MsrChange("26c", "1515151515151515", OPEN) +
                                 MsrChange("26d", "1515151515151515", OPEN) + MsrWrite(SYSCFG, AS_IT_WAS));
        EXPECT_EQ(BoardGetMsr(0, 0x26C), 0x1818181818181818u);
        EXPECT_EQ(BoardGetMsr(0, 0x26D), 0x1818181818181818u);
        EXPECT_EQ(BoardGetMsr(0, 0x26E), 0x1818181818181818u);
        EXPECT_EQ(BoardGetMsr(0, 0x26F), 0x1818181805050505u);
        EXPECT_EQ(BoardGetMsr(0, 0xC0010010), 0x740000u);
        EXPECT_EQ(BoardGetMsr(1, 0x26E), 0x1515151515151515u); // only processor 0 is changed

        EXPECT_EQ(ShadowRamWrite(0), 1);
        EXPECT_EQ(TakeLog(), MsrChange(SYSCFG, AS_IT_WAS, BOTH_BITS) + MsrWrite("26e", "1515151515151515") +
                                 MsrWrite("26f", "1515151505050505") + MsrWrite("26c", "1515151515151515") +
                                 MsrWrite("26d", "1515151515151515") +
                                 MsrChange(SYSCFG, BOTH_BITS, AS_IT_WAS) + MsrWrite(SYSCFG, AS_IT_WAS));
        EXPECT_EQ(BoardGetMsr(0, 0x26C), 0x1515151515151515u);
        EXPECT_EQ(BoardGetMsr(0, 0x26D), 0x1515151515151515u);
        EXPECT_EQ(BoardGetMsr(0, 0x26E), 0x1515151515151515u);
        EXPECT_EQ(BoardGetMsr(0, 0x26F), 0x1515151505050505u);
        EXPECT_EQ(BoardGetMsr(0, 0xC0010010), 0x740000u);
    });
}

TEST(ShadowRam, EachRangeOfAmdsRegionGetsItsOwnValueBack) {
    InOwnProcess([] {
        const uint64_t values[] = {0x0102030405060001, 0x1112131415161011, 0x0405060001041511,
                                   0x1415160514150610};
        OpenBoard("hygon");
        for (uint32_t i = 0; i < 4; ++i)
            BoardSetMsr(0, 0x26C + i, values[i]);
        ShadowRamWrite(0x100 + 1);
        EXPECT_EQ(BoardGetMsr(0, 0x26C), 0x1818181818181818u);
        EXPECT_EQ(BoardGetMsr(0, 0x26F) >> 32, 0x18181818u);
        ShadowRamWrite(0);
        for (uint32_t i = 0; i < 4; ++i)
            EXPECT_EQ(BoardGetMsr(0, 0x26C + i), values[i]) << i;
    });
}

// A register that does not keep bit 19 is asked for it once more.
TEST(ShadowRam, AmdsModificationEnableIsSetAgainWhenItIsStillClear) {
    InOwnProcess([] {
        OpenBoard("amd", "msr c0010010 0000000100740001 rw 0000000000040000");
        ShadowRamWrite(1);
        Log log = TakeLog();
        const Log once = MsrChange(SYSCFG, "0000000100740001", "00000001007c0001");
        EXPECT_EQ(Log(log.begin() + 4, log.begin() + 16), once + once);
        ShadowRamWrite(0);
        log = TakeLog();
        EXPECT_EQ(Log(log.end() - 6, log.end()),
                  MsrRead(SYSCFG, "0000000100740001") + MsrWrite(SYSCFG, "0000000100740001"));
    });
}

TEST(ShadowRam, SyscfgEndsAsItWasWithBothBitsSet) {
    InOwnProcess([] {
        OpenBoard("amd", "msr c0010010 00000000007c0000");
        ShadowRamWrite(1);
        EXPECT_EQ(BoardGetMsr(0, 0xC0010010), 0x7c0000u);
        TakeLog();
        ShadowRamWrite(0);
        EXPECT_EQ(BoardGetMsr(0, 0xC0010010), 0x7c0000u);
        Log log = TakeLog();
        EXPECT_EQ(Log(log.end() - 9, log.end()),
                  MsrChange(SYSCFG, BOTH_BITS, AS_IT_WAS) + MsrWrite(SYSCFG, BOTH_BITS));
    });
}

TEST(ShadowRam, ClosingAmdsRegionUnopenedWritesZeros) {
    InOwnProcess([] {
        OpenBoard("amd");
        AmdRuntimeShadowRamWrite(0);
        for (uint32_t index = 0x26C; index <= 0x26F; ++index)
            EXPECT_EQ(BoardGetMsr(0, index), 0u);
        EXPECT_EQ(BoardGetMsr(0, 0xC0010010), 0x740000u);
    });
}

TEST(ShadowRam, OfTheArgumentTheLowByteCounts) {
    InOwnProcess([] {
        OpenBoard("intel");
        EXPECT_EQ(ShadowRamWrite(0x100), 1); // closes, and was never opened
        EXPECT_EQ(Pams(), 0x10333333331111u);
        EXPECT_EQ(ShadowRamWrite(-1), 1);
        EXPECT_EQ(Pams(), 0x30333333333333u);
    });
}

TEST(ShadowRam, AnotherVendorsChipsetIsLeftAlone) {
    InOwnProcess([] {
        OpenBoard("unknown");
        EXPECT_EQ(ShadowRamWrite(1), 1);
        EXPECT_EQ(ShadowRamWrite(0), 1);
        EXPECT_EQ(TakeLog(), LegacyPci("80000000", "in16 0cfc -> ffff"));
    });
}
