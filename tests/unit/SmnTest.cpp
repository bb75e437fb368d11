#include "Platform/Smn.h"

#include <cstring>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include <gtest/gtest.h>

#include "BasicLib/PciConfig.h"
#include "TestHelp.h"
#include "sim/Board.h"

constexpr uint32_t SMN_ON_TWO_DIES = 0x18000; // 11223344h on die 0, 55667788h on die 1
constexpr uint16_t HOST_BRIDGE = 0;

// One SMN access through the bridge's die, address and data registers.
static Log Chosen(const std::string &die, const std::string &address, const std::string &data) {
    return LegacyPci("800000c0", "out32 0cfc " + die) + LegacyPci("800000c4", "out32 0cfc " + address) +
           LegacyPci("800000c8", data) + LegacyPci("800000c0", "out32 0cfc 00000000");
}

TEST(Smn, ARegisterIsReadInEachWidth) {
    OpenBoard("amd");
    uint32_t value = 0xEEEEEEEE;
    EXPECT_EQ(AmdSmnRegisterRead(PCI_WIDTH_8, 1, SMN_ON_TWO_DIES, &value), EFI_SUCCESS);
    EXPECT_EQ(value, 0xEEEEEE88u);
    EXPECT_EQ(TakeLog(), Chosen("00000001", "00018000", "in8 0cfc -> 88"));
    EXPECT_EQ(AmdSmnRegisterRead(PCI_WIDTH_16, 1, SMN_ON_TWO_DIES, &value), EFI_SUCCESS);
    EXPECT_EQ(value, 0xEEEE7788u);
    EXPECT_EQ(TakeLog(), Chosen("00000001", "00018000", "in16 0cfc -> 7788"));
    EXPECT_EQ(AmdSmnRegisterRead(PCI_WIDTH_32, 0, SMN_ON_TWO_DIES, &value), EFI_SUCCESS);
    EXPECT_EQ(value, 0x11223344u);
    EXPECT_EQ(TakeLog(), Chosen("00000000", "00018000", "in32 0cfc -> 11223344"));
}

TEST(Smn, ARegisterIsWrittenInEachWidth) {
    OpenBoard("amd");
    const uint32_t data = 0xA1B2C3D4;
    uint32_t value = 0;
    EXPECT_EQ(AmdSmnRegisterWrite(PCI_WIDTH_8, 0, SMN_ON_TWO_DIES, &data), EFI_SUCCESS);
    EXPECT_EQ(TakeLog(), Chosen("00000000", "00018000", "out8 0cfc d4"));
    AmdSmnRegisterRead(PCI_WIDTH_32, 0, SMN_ON_TWO_DIES, &value);
    EXPECT_EQ(value, 0x112233D4u);
    TakeLog();
    EXPECT_EQ(AmdSmnRegisterWrite(PCI_WIDTH_16, 0, SMN_ON_TWO_DIES, &data), EFI_SUCCESS);
    EXPECT_EQ(TakeLog(), Chosen("00000000", "00018000", "out16 0cfc c3d4"));
    EXPECT_EQ(AmdSmnRegisterWrite(PCI_WIDTH_32, 16, SMN_ON_TWO_DIES, &data), EFI_SUCCESS);
    EXPECT_EQ(TakeLog(), Chosen("00000010", "00018000", "out32 0cfc a1b2c3d4"));
    AmdSmnRegisterRead(PCI_WIDTH_32, 16, SMN_ON_TWO_DIES, &value);
    EXPECT_EQ(value, data);
    AmdSmnRegisterRead(PCI_WIDTH_32, 0, SMN_ON_TWO_DIES, &value);
    EXPECT_EQ(value, 0x1122C3D4u);
}

TEST(Smn, AnyDieAndAddressAreWrittenAsTheyAre) {
    OpenBoard("amd");
    uint32_t value = 0;
    AmdSmnRegisterRead(PCI_WIDTH_32, 0xFFFFFFFF, 0x12345679, &value);
    EXPECT_EQ(TakeLog(), Chosen("ffffffff", "12345679", "in32 0cfc -> ffffffff"));
}

TEST(Smn, AnotherWidthAccessesNoDataAndSetsTheDieBack) {
    OpenBoard("amd");
    uint32_t value = 0xEEEEEEEE;
    Log expected = LegacyPci("800000c0", "out32 0cfc 00000001") +
                   LegacyPci("800000c4", "out32 0cfc 00018000") +
                   LegacyPci("800000c0", "out32 0cfc 00000000");
    for (uint8_t width : std::initializer_list<uint8_t>{0, 4, 255}) {
        EXPECT_EQ(AmdSmnRegisterRead(width, 1, SMN_ON_TWO_DIES, &value), EFI_INVALID_PARAMETER);
        EXPECT_EQ(TakeLog(), expected);
        EXPECT_EQ(AmdSmnRegisterWrite(width, 1, SMN_ON_TWO_DIES, &value), EFI_INVALID_PARAMETER);
        EXPECT_EQ(TakeLog(), expected);
    }
    EXPECT_EQ(value, 0xEEEEEEEEu);
    EXPECT_EQ(BoardGetPci(HOST_BRIDGE, 0xC0, 4), 0u);
}

TEST(Smn, TheMailboxPairClearsTheLowAddressBitsOfReadsAlone) {
    OpenBoard("amd", "pci 03:00.0 1022:1450\ndword b8 0 rw ffffffff\ndword bc 12345678 rw ffffffff");
    uint32_t value = 0;
    SmuRegisterRead(3, 0x3B10567, &value);
    EXPECT_EQ(value, 0x12345678u);
    EXPECT_EQ(TakeLog(),
              LegacyPci("800300b8", "out32 0cfc 03b10564") + LegacyPci("800300bc", "in32 0cfc -> 12345678"));
    value = 0x9ABCDEF0;
    SmuRegisterWrite(3, 0x3B10567, &value);
    EXPECT_EQ(TakeLog(),
              LegacyPci("800300b8", "out32 0cfc 03b10567") + LegacyPci("800300bc", "out32 0cfc 9abcdef0"));
}

static Log Mailbox(const std::string &address, const std::string &data) {
    return LegacyPci("800000b8", "out32 0cfc " + address) + LegacyPci("800000bc", data);
}

TEST(Smn, AMessageClearsTheResponseSendsTheArgumentsAndReadsThemBack) {
    OpenBoard("amd", "smu-mailbox 0");
    uint32_t args[SMU_ARGUMENTS] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(NbioSmuServiceRequestV9(5, args), 1u);
    const char *addresses[] = {"03b10598", "03b1059c", "03b105a0", "03b105a4", "03b105a8", "03b105ac"};
    Log expected = Mailbox("03b10564", "in32 0cfc -> 00000001") + Mailbox("03b10564", "out32 0cfc 00000000");
    for (unsigned k = 0; k < SMU_ARGUMENTS; ++k)
        expected = expected + Mailbox(addresses[k], "out32 0cfc 0000000" + std::to_string(k + 1));
    expected =
        expected + Mailbox("03b10528", "out32 0cfc 00000005") + Mailbox("03b10564", "in32 0cfc -> 00000001");
    for (unsigned k = 0; k < SMU_ARGUMENTS; ++k) {
        expected = expected + Mailbox(addresses[k], "in32 0cfc -> 000000" + std::to_string(k + 1) + "0");
        EXPECT_EQ(args[k], 0x10 * (k + 1));
    }
    EXPECT_EQ(TakeLog(), expected);
}

TEST(Smn, TheReservedIdentifierIsNotSentAndLeavesTheArguments) {
    OpenBoard("amd");
    uint32_t args[SMU_ARGUMENTS] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(NbioSmuServiceRequestV9(0xFF, args), 1u);
    EXPECT_EQ(TakeLog(), Log{});
    EXPECT_EQ(args[5], 6u);
}

TEST(Smn, AResponseIsGivenAsItIs) {
    OpenBoard("amd", "smu-reply 9 ff\nsmu-reply a 80000001");
    uint32_t args[SMU_ARGUMENTS] = {};
    EXPECT_EQ(NbioSmuServiceRequestV9(9, args), 0xFFu);
    EXPECT_EQ(NbioSmuServiceRequestV9(10, args), 0x80000001u);
    EXPECT_EQ(NbioSmuServiceRequestV9(11, args), 0xFEu);
}

// Sends a message in a child that is ended when it has worked for a while; how it ended, and what it printed
// until then.
static int SendAndEnd(uint32_t identifier, std::string *said) {
    int pipes[2];
    EXPECT_EQ(pipe(pipes), 0);
    pid_t child = fork();
    if (child == 0) {
        uint32_t args[SMU_ARGUMENTS] = {};
        dup2(pipes[1], STDOUT_FILENO);
        close(pipes[0]);
        itimerval working = {{0, 0}, {1, 0}};
        setitimer(ITIMER_PROF, &working, nullptr);
        NbioSmuServiceRequestV9(identifier, args);
        _exit(0);
    }
    close(pipes[1]);
    char buffer[4096];
    for (ssize_t count; (count = read(pipes[0], buffer, sizeof(buffer))) > 0;) {
        if (said->size() < 1000)
            said->append(buffer, static_cast<size_t>(count));
    }
    close(pipes[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

TEST(Smn, AnAnswerThatNeverComesIsWaitedFor) {
    OpenBoard("amd", "smu-reply 7 0\nunlogged 0 10000");
    std::string said;
    int status = SendAndEnd(7, &said);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPROF);
    EXPECT_EQ(said, "");
}

TEST(Smn, AFatalAnswerIsAssertedWithoutEnd) {
    OpenBoard("amd", "smu-reply 8 fc");
    std::string said;
    int status = SendAndEnd(8, &said);
    const std::string line = "ASSERT in ./Project/NbioSmu.c on 166: FALSE\n";
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPROF);
    EXPECT_EQ(said.substr(0, 3 * line.size()), line + line + line);
}

TEST(Smn, OtherMakersChipsetsAreRefused) {
    for (const char *board : {"intel", "unknown"}) {
        ResetEverything();
        OpenBoard(board);
        EXPECT_EQ(InitSmuService(), EFI_ACCESS_DENIED);
    }
}

TEST(Smn, OnAmdAndHygonTheProcessorDecides) {
    for (const char *board : {"amd", "hygon", "ati"}) {
        ResetEverything();
        OpenBoard(board);
        EXPECT_EQ(InitSmuService(), EFI_SUCCESS);
        ResetEverything();
        OpenBoard(board, "cpuid 80000001 0 00870f10 0 0 0");
        EXPECT_EQ(InitSmuService(), EFI_ACCESS_DENIED);
    }
}

// What is held back at each write to the bridge.
static std::vector<uint64_t> mHeldAtWrites;

extern "C" {
void __real__Z10PciWrite32ttttj(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t value);
void __wrap__Z10PciWrite32ttttj(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t value);
}

void __wrap__Z10PciWrite32ttttj(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t value) {
    mHeldAtWrites.push_back(SignalsBlocked());
    __real__Z10PciWrite32ttttj(bus, dev, fun, offset, value);
}

TEST(Smn, EverySignalIsHeldFromTheChoiceOfADieToItsReturn) {
    OpenBoard("amd");
    uint32_t value = 0;
    mHeldAtWrites.clear();
    AmdSmnRegisterRead(PCI_WIDTH_32, 1, SMN_ON_TWO_DIES, &value);
    AmdSmnRegisterWrite(PCI_WIDTH_32, 1, SMN_ON_TWO_DIES, &value);
    ASSERT_EQ(mHeldAtWrites.size(), 7u); // die, address, die 0; and the data of the write
    for (uint64_t held : mHeldAtWrites)
        ExpectWholeTable(held);
    EXPECT_EQ(SignalsBlocked(), 0u);
}
