#include "Project/CpuAcc.h"

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Runs the command and gives what it prints; its result is compared.
static std::string RunCpu(std::initializer_list<const char *> words, EFI_STATUS status) {
    SetCommand(words);
    return Printed([&] { EXPECT_EQ(CpuAccEntry(), status); });
}

TEST(CpuAcc, HelpPrintsThreeLinesWithoutTouchingHardware) {
    OpenBoard("intel");
    const std::string help =
        " /MSR /WD [CpuNo] [MsrAddr] [EDX] [EAX]: Write CPUn MSR EDX:EAX(64 Bit) to MsrAddr\n"
        " /MSR /RD /ALL [MsrReg]: Dump All valid CPUs MsrReg\n"
        " /CPUID /RD [CpuIdIndex]: Read CPUID CpuIdIndex\n";
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD", "0", "0x10", "/HELP"}, 0x80000002), help);
    EXPECT_EQ(RunCpu({"hwreg", "/CPUID", "/?"}, 0x80000002), help);
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(CpuAcc, AnMsrIsReadAndItsLowHalfReturned) {
    OpenBoard("intel");
    BoardSetMsr(0, 0x1A0, 0x1122334455667788);
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD", "0", "0x1A0"}, 0x55667788),
              "Cpu[00] Msr read from 000001A0, return MSR: 0x11223344_55667788\n");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RQ", "0", "0x1A0"}, 0x55667788),
              "Cpu[00] Msr read from 000001A0, return MSR: 0x11223344_55667788\n");
}

TEST(CpuAcc, AnMsrIsWrittenAndReadBack) {
    OpenBoard("intel");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/WD", "1", "0x1A0", "1", "0x850089"}, 0x850089),
              "Cpu[01] Msr write to 000001A0, return MSR: 0x00000001_00850089\n");
    EXPECT_EQ(TakeLog(), (Log{"open /dev/cpu/1/msr wronly cloexec -> ok",
                              "pwrite /dev/cpu/1/msr 1a0 8 0000000100850089 -> ok", "close /dev/cpu/1/msr",
                              "open /dev/cpu/1/msr rdonly cloexec -> ok",
                              "pread /dev/cpu/1/msr 1a0 8 -> 0000000100850089", "close /dev/cpu/1/msr"}));
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/WQ", "1", "0x20E", "0", "5"}, 5),
              "Cpu[01] Msr write to 0000020E, return MSR: 0x00000000_00000005\n");
}

TEST(CpuAcc, TheValueReadBackIsWhatTheMsrKept) {
    OpenBoard("intel");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/WD", "0", "0x3A", "0", "0xFF"}, 5), // read-only
              "Cpu[00] Msr write to 0000003A, return MSR: 0x00000000_00000005\n");
}

TEST(CpuAcc, AllCpusAreReadInTurn) {
    OpenBoard("intel", "cpus 0-2");
    const std::string lines = "Cpu[00] Msr read from 0000001B, return MSR: 0x00000000_FEE00D00\n"
                              "Cpu[01] Msr read from 0000001B, return MSR: 0x00000000_FEE00C00\n"
                              "Cpu[02] Msr read from 0000001B, return MSR: 0x00000000_FEE00C00\n";
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD", "/ALL", "0x1B"}, 0xFEE00C00), lines);
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD", "/A", "0x1B"}, 0xFEE00C00), lines);
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD", "all", "0x1B"}, 0xFEE00C00), lines);
}

TEST(CpuAcc, WritingAllCpusHandsOnWhatTheLastOneKept) {
    OpenBoard("intel", "cpus 0-1\nmsr 000001a0 0 rw 00000005008500ff cpus 0");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/WD", "/ALL", "0x1A0", "0xFFFFFFFF", "0xFFFFFFFF"}, 0x00850089),
              "Cpu[00] Msr write to 000001A0, return MSR: 0x00000005_008500FF\n"
              "Cpu[01] Msr write to 000001A0, return MSR: 0x00000005_00850089\n");
    Log log = TakeLog();
    Log writes;
    for (const std::string &line : log) {
        if (line.substr(0, 6) == "pwrite")
            writes.push_back(line);
    }
    EXPECT_EQ(writes, (Log{"pwrite /dev/cpu/0/msr 1a0 8 ffffffffffffffff -> ok",
                           "pwrite /dev/cpu/1/msr 1a0 8 00000005008500ff -> ok"}));
}

TEST(CpuAcc, AllCpusWithoutTheDriverPrintNothing) {
    OpenBoard("nomsr");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD", "/ALL", "0x1B"}, 0), "");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/WD", "/ALL", "0x1B", "1", "0x22"}, 0x22), "");
}

TEST(CpuAcc, WhatCannotBeReadShowsAsZero) {
    OpenBoard("intel");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD", "0", "0x12345"}, 0),
              "Cpu[00] Msr read from 00012345, return MSR: 0x00000000_00000000\n");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD", "99", "0x10"}, 0),
              "Cpu[99] Msr read from 00000010, return MSR: 0x00000000_00000000\n");
}

TEST(CpuAcc, AnyWriteSwitchMakesItAWrite) {
    OpenBoard("intel");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/WB", "/RD", "0", "0x20E", "3", "4"}, 4),
              "Cpu[00] Msr write to 0000020E, return MSR: 0x00000003_00000004\n");
}

TEST(CpuAcc, AccessWordsAreTriedInTheOrderWdRdWqRq) {
    OpenBoard("intel");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RQ", "/RD", "0", "0x20E"}, 0),
              "Cpu[00] Msr read from 0000020E, return MSR: 0x00000000_00000000\n");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/WQ", "/WD", "0", "0x20E", "0", "9"}, 9),
              "Cpu[00] Msr write to 0000020E, return MSR: 0x00000000_00000009\n");
}

TEST(CpuAcc, WithoutAnAccessWordNothingIsPrinted) {
    OpenBoard("intel");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR"}, 0x80000002), "");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RB", "0", "0x10"}, 0x80000002), "");
    EXPECT_EQ(RunCpu({"hwreg", "/CPUID"}, 0x80000002), "");
    EXPECT_EQ(RunCpu({"hwreg", "/CPUID", "/WD", "0"}, 0x80000002), "");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(CpuAcc, MissingOperandsAreZero) {
    OpenBoard("intel", "msr 00000000 0000000100000002");
    EXPECT_EQ(RunCpu({"hwreg", "/MSR", "/RD"}, 2),
              "Cpu[00] Msr read from 00000000, return MSR: 0x00000001_00000002\n");
}

TEST(CpuAcc, MsrWinsOverCpuid) {
    OpenBoard("intel");
    EXPECT_EQ(RunCpu({"hwreg", "/CPUID", "/MSR", "/RD", "0", "0x20E"}, 0),
              "Cpu[00] Msr read from 0000020E, return MSR: 0x00000000_00000000\n");
}

TEST(CpuAcc, NeitherMsrNorCpuidIsNothingToDo) {
    EXPECT_EQ(RunCpu({"hwreg", "/PCI", "/RD", "0"}, 0), "");
}

TEST(CpuAcc, MsrAccessNeedsBothHalves) {
    OpenBoard("intel");
    CmdArg *record = SetCommand({"hwreg", "/MSR", "/RD", "0", "0x10"});
    uint32_t half = 7;
    EXPECT_EQ(Printed([&] {
                  EXPECT_EQ(MsrAccess(record, 0, 0, 0x10, nullptr, &half), 0x80000002u);
                  EXPECT_EQ(MsrAccess(record, 0, 0, 0x10, &half, nullptr), 0x80000002u);
                  EXPECT_EQ(MsrAccess(nullptr, 0, 0, 0x10, &half, &half), 0x80000002u);
              }),
              "");
    EXPECT_EQ(half, 7u);
}

TEST(CpuAcc, MsrAccessGivesTheValueReadBack) {
    OpenBoard("intel", "msr 00000123 1122334455667788");
    CmdArg *record = SetCommand({"hwreg", "/MSR", "/RD", "0", "0x123"});
    uint32_t high = 0, low = 0;
    Printed([&] { EXPECT_EQ(MsrAccess(record, 0, 3, 0x123, &high, &low), 0u); });
    EXPECT_EQ(high, 0x11223344u);
    EXPECT_EQ(low, 0x55667788u);
}

TEST(CpuAcc, CpuidPrintsTheFourRegistersAndReturnsEax) {
    OpenBoard("amd");
    const std::string line =
        "CPUID read from 00000000: Eax:0000000D, Ebx:68747541, Ecx:444D4163, Edx:69746E65\n";
    EXPECT_EQ(RunCpu({"hwreg", "/CPUID", "/RD", "0"}, 0xD), line);
    EXPECT_EQ(RunCpu({"hwreg", "/CPUID", "/RQ", "0"}, 0xD), line);
    EXPECT_EQ(RunCpu({"hwreg", "/CPUID", "/RD"}, 0xD), line); // a missing leaf is leaf 0
}

TEST(CpuAcc, CpuidTakesALeafOf32Bits) {
    OpenBoard("amd");
    EXPECT_EQ(RunCpu({"hwreg", "/CPUID", "/RD", "0x180000001"}, 0x800F82),
              "CPUID read from 80000001: Eax:00800F82, Ebx:20000000, Ecx:35C233FF, Edx:2FD3FBFF\n");
}
