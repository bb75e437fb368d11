#include "Project/FileOp.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include "TestHelp.h"
#include "sim/Board.h"

// Runs the command in a folder of its own and gives what it prints; its result is compared.
static std::string RunFile(std::initializer_list<const char *> words, uint32_t status) {
    SetCommand(words);
    return Printed([&] { EXPECT_EQ(FileOptEntry(), status); });
}

static std::string Memory(uint32_t address, size_t length) {
    std::string bytes(length, 0);
    BoardPeek(address, &bytes[0], length);
    return bytes;
}

TEST(FileOp, HelpPrintsTwoLinesWithoutTouchingAnything) {
    OpenBoard("intel");
    EnterScratchFolder();
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "A.BIN", "0", "1", "/?"}, 0x80000002),
              " /MEM /RF SMBIOS.bin 0xFF550 0x100: Dump 256 bytes to SMBIOS.bin\n"
              " /IO /RF IO.bin 0 0x100: Dump IO from 0 t0 0x100 to IO.bin file\n");
    EXPECT_EQ(TakeLog(), Log{});
    EXPECT_FALSE(std::filesystem::exists("A.BIN"));
}

TEST(FileOp, WithoutTheSwitchWordNothingIsDone) {
    EXPECT_EQ(RunFile({"hwreg", "/MEM"}, 0x80000003), "");
}

TEST(FileOp, MemoryIsWrittenToANewFile) {
    OpenBoard("intel");
    EnterScratchFolder();
    WriteFile("SMBIOS.BIN", std::string(5000, 'x')); // is cut
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "smbios.bin", "0xFF550", "0x100"}, 0), "Waitting ...\n\n");
    EXPECT_EQ(FileText("SMBIOS.BIN"), Memory(0xFF550, 0x100));
    EXPECT_EQ(TakeLog(), Mapped("000ff000", "1000"));
}

TEST(FileOp, PortsAreReadByteByByteAndWrapAt0x10000) {
    OpenBoard("intel", "latch fff0 10 counting");
    EnterScratchFolder();
    EXPECT_EQ(RunFile({"hwreg", "/IO", "/RF", "IO.BIN", "0xFFF0", "0x20"}, 0), "Waitting ...\n\n");
    const std::string file = FileText("IO.BIN");
    ASSERT_EQ(file.size(), 0x20u);
    EXPECT_EQ(file.substr(0, 4), std::string("\x00\x01\x02\x03", 4));
    EXPECT_EQ(file[15], 0x0F);
    Log log = TakeAccesses();
    ASSERT_EQ(log.size(), 0x20u);
    EXPECT_EQ(log[15], "in8 ffff");
    EXPECT_EQ(log[16], "in8 0000");
    EXPECT_EQ(log[31], "in8 000f");
}

TEST(FileOp, MemoryWinsOverPorts) {
    OpenBoard("intel");
    EnterScratchFolder();
    RunFile({"hwreg", "/IO", "/MEM", "/RF", "A.BIN", "0x1000", "0x10"}, 0);
    EXPECT_EQ(FileText("A.BIN"), Memory(0x1000, 0x10));
}

TEST(FileOp, WithoutASourceThereAreZerosWhateverTheHeapGives) {
    EnterScratchFolder();
    NextMalloc([](size_t size) { return memset(malloc(size), 0xA5, size); });
    EXPECT_EQ(RunFile({"hwreg", "/RF", "ZERO.BIN", "0", "0x1234"}, 0), "Waitting ...\n\n");
    EXPECT_EQ(FileText("ZERO.BIN"), std::string(0x1234, '\0'));
}

TEST(FileOp, ARangePast4GiBIsAnError) {
    OpenBoard("intel");
    EnterScratchFolder();
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "F.BIN", "0xFFFFFF00", "0x200"}, 0x80000015),
              "StartAddr error!\n");
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "F.BIN", "0xFFFFFF00", "0x101"}, 0x80000015),
              "StartAddr error!\n");
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "F.BIN", "1", "0"}, 0x80000015), "StartAddr error!\n");
    EXPECT_FALSE(std::filesystem::exists("F.BIN"));
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "F.BIN", "0xFFFFFF00", "0x100"}, 0), "Waitting ...\n\n");
    EXPECT_EQ(FileText("F.BIN"), Memory(0xFFFFFF00, 0x100));
}

TEST(FileOp, NoBytesFromAddressZeroAreAnEmptyFile) {
    OpenBoard("intel");
    EnterScratchFolder();
    RunFile({"hwreg", "/MEM", "/RF", "F.BIN", "0", "0"}, 0);
    EXPECT_EQ(FileText("F.BIN"), "");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(FileOp, AFileThatCannotBeCreatedIsReported) {
    OpenBoard("intel");
    EnterScratchFolder();
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "NO/SUCH", "0", "1"}, 0x80000015), "FileOpen fail!\n");
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(FileOp, WithoutABufferNothingIsPrintedAndTheFileStaysEmpty) {
    OpenBoard("intel");
    EnterScratchFolder();
    SetCommand({"hwreg", "/MEM", "/RF", "F.BIN", "0", "0x10000"});
    LimitMalloc(0xFFF);
    EXPECT_EQ(Printed([] { EXPECT_EQ(FileOptEntry(), 0x80000009u); }), "");
    EXPECT_EQ(FileText("F.BIN"), "");
}

TEST(FileOp, AWholeNumberOfMiBShowsProgress) {
    OpenBoard("intel");
    EnterScratchFolder();
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "F.BIN", "0x100000", "0x100000"}, 0),
              "Waitting ...\n\nR_MEM Start:0x100000, Size:0x100000\n");
    EXPECT_EQ(FileText("F.BIN"), Memory(0x100000, 0x100000));
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "F.BIN", "0x100000", "0x100001"}, 0), "Waitting ...\n\n");
}

TEST(FileOp, PortsShowProgressToo) {
    OpenBoard("intel");
    EnterScratchFolder();
    std::filesystem::create_symlink("/dev/full", "FULL.BIN"); // ends the copy behind its first chunk
    SetCommand({"hwreg", "/IO", "/RF", "FULL.BIN", "0x10", "0x100000"});
    LimitMalloc(0x1000);
    EXPECT_EQ(Printed([] { EXPECT_EQ(FileOptEntry(), 0u); }),
              "Waitting ...\n\nR_IO Start:0x10, Size:0x100000\nWrite to buffer fail!\n");
    EXPECT_EQ(TakeLog().size(), 0x1000u);
}

TEST(FileOp, ALargeRangeIsCopiedInChunksThatTheHeapGrants) {
    OpenBoard("intel");
    EnterScratchFolder();
    SetCommand({"hwreg", "/MEM", "/RF", "F.BIN", "0x100000", "0x280000"});
    LimitMalloc(0x100000);
    EXPECT_EQ(Printed([] { EXPECT_EQ(FileOptEntry(), 0u); }), "Waitting ...\n\n");
    LimitMalloc(SIZE_MAX);
    EXPECT_EQ(FileText("F.BIN"), Memory(0x100000, 0x280000));
    SetCommand({"hwreg", "/MEM", "/RF", "F.BIN", "0x100000", "0x300000"});
    LimitMalloc(0x100000);
    EXPECT_EQ(Printed([] { EXPECT_EQ(FileOptEntry(), 0u); }),
              "Waitting ...\n\nR_MEM Start:0x100000, Size:0x300000\nR_MEM Start:0x200000, Size:0x200000\n"
              "R_MEM Start:0x300000, Size:0x100000\n");
    LimitMalloc(SIZE_MAX);
    EXPECT_EQ(FileText("F.BIN"), Memory(0x100000, 0x300000));
}

TEST(FileOp, TheLastChunkMayBeAnyPartOfOne) {
    OpenBoard("intel");
    EnterScratchFolder();
    for (const char *size : {"0xFFF", "0x1000", "0x1001", "0x1FFF", "0x2000", "0x2001"}) {
        SetCommand({"hwreg", "/MEM", "/RF", "F.BIN", "0x1010", size});
        LimitMalloc(0x1000);
        EXPECT_EQ(Printed([] { EXPECT_EQ(FileOptEntry(), 0u); }), "Waitting ...\n\n");
        LimitMalloc(SIZE_MAX);
        EXPECT_EQ(FileText("F.BIN"), Memory(0x1010, strtoul(size, nullptr, 0))) << size;
    }
}

TEST(FileOp, AFullDiskIsReportedAndTheStatusStaysZero) {
    OpenBoard("intel");
    EnterScratchFolder();
    std::filesystem::create_symlink("/dev/full", "FULL.BIN");
    EXPECT_EQ(RunFile({"hwreg", "/MEM", "/RF", "FULL.BIN", "0x1000", "0x10"}, 0),
              "Waitting ...\n\nWrite to buffer fail!\n");
}

TEST(FileOp, MemoryThatCannotBeReadArrivesAsOnes) {
    OpenBoard("refusedmap");
    EnterScratchFolder();
    RunFile({"hwreg", "/MEM", "/RF", "F.BIN", "0xE0000000", "0x20"}, 0);
    EXPECT_EQ(FileText("F.BIN"), std::string(0x20, '\xFF'));
}

TEST(FileOp, BufferAndFileAreReleasedOnEveryPath) {
    OpenBoard("intel");
    EnterScratchFolder();
    std::filesystem::create_symlink("/dev/full", "FULL.BIN");
    unsigned open = OpenDescriptors();
    for (const char *name : {"F.BIN", "FULL.BIN", "NO/SUCH"}) {
        SetCommand({"hwreg", "/MEM", "/RF", name, "0x1000", "0x10"});
        long held = BlocksHeld();
        Printed([] { FileOptEntry(); });
        EXPECT_EQ(BlocksHeld(), held) << name;
        EXPECT_EQ(OpenDescriptors(), open) << name;
    }
}
