#include "Platform/DwI2c.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "BasicLib/PhysMem.h"
#include "TestHelp.h"
#include "sim/Board.h"

// The first core of the amd board: FIFOs of 64, device 50h with the words 1234h, 5678h and ABh.
constexpr uint32_t CORE = 0xFEDC2000;
constexpr uint32_t IC_CON = CORE + 0x00;
constexpr uint32_t IC_TAR = CORE + 0x04;
constexpr uint32_t IC_DATA_CMD = CORE + 0x10;
constexpr uint32_t IC_RAW_INTR_STAT = CORE + 0x34;
constexpr uint32_t IC_ENABLE = CORE + 0x6C;
constexpr uint32_t IC_ENABLE_STATUS = CORE + 0x9C;

// The loads and stores that the log holds, without mappings and delays.
static Log TakeRegisters() {
    Log kept;
    for (const std::string &line : TakeLog()) {
        if (line.compare(0, 4, "mr32") == 0 || line.compare(0, 4, "mw32") == 0)
            kept.push_back(line);
    }
    return kept;
}

// The data commands written, as numbers.
static std::vector<uint32_t> TakeCommands() {
    std::vector<uint32_t> commands;
    for (const std::string &line : TakeRegisters()) {
        if (line.compare(0, 13, "mw32 fedc2010") == 0)
            commands.push_back(static_cast<uint32_t>(std::stoul(line.substr(14), nullptr, 16)));
    }
    return commands;
}

// The core of a board with these lines behind "i2c-core fedc2000", readied.
static I2cContext OpenCore(const std::string &lines = "") {
    OpenBoard("amd", "i2c-core fedc2000 byte-time 0 " + lines);
    I2cContext ctx = {};
    EXPECT_EQ(I2cInit(0, &ctx), EFI_SUCCESS);
    TakeLog();
    return ctx;
}

TEST(DwI2c, ThereAreSixCores) {
    const uint32_t expected[] = {0xFEDC2000, 0xFEDC3000, 0xFEDC4000, 0xFEDC5000, 0xFEDC6000, 0xFEDCB000};
    for (uint32_t bus = 0; bus < I2C_BUS_COUNT; ++bus)
        EXPECT_EQ(I2cSdpAddressList[bus], expected[bus]);
}

TEST(DwI2c, TheDepthsComeFromTheParameterRegister) {
    OpenBoard("amd");
    const uint32_t receive[] = {64, 1, 2, 16, 1, 256};
    const uint32_t transmit[] = {64, 1, 2, 16, 64, 256};
    for (uint32_t bus = 0; bus < I2C_BUS_COUNT; ++bus) {
        I2cContext ctx = {};
        EXPECT_EQ(I2cInit(bus, &ctx), EFI_SUCCESS);
        EXPECT_EQ(ctx.base, I2cSdpAddressList[bus]);
        EXPECT_EQ(ctx.rxDepth, receive[bus]);
        EXPECT_EQ(ctx.txDepth, transmit[bus]);
    }
}

TEST(DwI2c, ReadyingFailsOnOtherChipsetsAndBuses) {
    I2cContext ctx;
    OpenBoard("intel");
    EXPECT_EQ(I2cInit(0, &ctx), EFI_UNSUPPORTED);
    EXPECT_EQ(I2cInit(6, &ctx), EFI_UNSUPPORTED); // the maker is looked at first
    for (const char *board : {"amd", "ati", "hygon"}) {
        ResetEverything();
        OpenBoard(board);
        EXPECT_EQ(I2cInit(5, &ctx), EFI_SUCCESS);
        EXPECT_EQ(I2cInit(6, &ctx), EFI_INVALID_PARAMETER);
        EXPECT_EQ(I2cInit(0xFFFFFFFF, &ctx), EFI_INVALID_PARAMETER);
    }
}

TEST(DwI2c, ReadyingFailsOnACoreThatDoesNotDisable) {
    OpenBoard("amd", "i2c-core fedc2000 never-disables");
    I2cContext ctx;
    EXPECT_EQ(I2cInit(0, &ctx), EFI_NOT_READY);
    ResetEverything();
    OpenBoard("amd", "sequence fedc209c 0 1");
    EXPECT_EQ(I2cInit(0, &ctx), EFI_NOT_READY);
}

TEST(DwI2c, TheSpeedIsCutToOneOfTwoAndTheFieldTellsAThird) {
    struct {
        uint64_t asked, chosen;
        uint32_t con;
    } const cases[] = {{0, 100000, 0x63},       {1, 100000, 0x63},         {100000, 100000, 0x63},
                       {100001, 400000, 0x65},  {400000, 400000, 0x65},    {400001, 400000, 0x67},
                       {3400000, 400000, 0x67}, {1ull << 40, 400000, 0x67}};
    for (const auto &speed : cases) {
        I2cContext ctx = OpenCore();
        uint64_t hz = speed.asked;
        EXPECT_EQ(SetBusFrequency(&ctx, &hz), EFI_SUCCESS);
        EXPECT_EQ(hz, speed.chosen) << speed.asked;
        EXPECT_EQ(MemRead32(IC_CON), speed.con) << speed.asked;
        const uint32_t counts[] = {642, 749, 132, 239, 132, 239};
        for (uint32_t i = 0; i < 6; ++i)
            EXPECT_EQ(MemRead32(CORE + 0x14 + 4 * i), counts[i]);
        EXPECT_EQ(MemRead32(CORE + 0xA0), 7u);
    }
}

TEST(DwI2c, TheSpeedOfACoreThatDoesNotDisableStays) {
    I2cContext ctx = OpenCore();
    ctx.base = 0xFEDC3000;
    ResetEverything();
    OpenBoard("amd", "i2c-core fedc3000 never-disables");
    uint64_t hz = 1;
    EXPECT_EQ(SetBusFrequency(&ctx, &hz), EFI_NOT_READY);
    EXPECT_EQ(TakeCommands().size(), 0u);
    EXPECT_EQ(MemRead32(0xFEDC3000), 0x7Fu);
}

// ---- waits ----------------------------------------------------------------------------------------------

// Polls of one register, each with the delay behind it.
static Log Polls(const std::string &read, unsigned count, unsigned delay) {
    Log lines;
    for (unsigned i = 0; i < count; ++i)
        lines = lines + Mapped("fedc2000", "2000", {read}) + Delays(delay);
    return lines;
}

TEST(DwI2c, AFreeBusIsWaitedForTwentyTimes1000) {
    OpenBoard("amd", "i2c-core fedc2000 stays-busy");
    EXPECT_EQ(I2cDwWaitBusNotBusy(CORE), 1u);
    EXPECT_EQ(TakeLog(), Polls("mr32 fedc2070 -> 00000027", 20, 1000));
    ResetEverything();
    OpenBoard("amd", "sequence fedc2070 25 21 5");
    EXPECT_EQ(I2cDwWaitBusNotBusy(CORE), EFI_SUCCESS);
    EXPECT_EQ(TakeLog(), Polls("mr32 fedc2070 -> 00000025", 1, 1000) +
                             Polls("mr32 fedc2070 -> 00000021", 1, 1000) +
                             Mapped("fedc2000", "2000", {"mr32 fedc2070 -> 00000005"}));
}

TEST(DwI2c, AnEmptyTransmitFifoIsWaitedForAHundredTimes25) {
    OpenBoard("amd", "sequence fedc2070 fffffffb");
    EXPECT_EQ(I2cDwWaitTxData(CORE), EFI_TIMEOUT);
    EXPECT_EQ(TakeLog(), Polls("mr32 fedc2070 -> fffffffb", 100, 25));
    ResetEverything();
    OpenBoard("amd", "sequence fedc2070 0 4");
    EXPECT_EQ(I2cDwWaitTxData(CORE), EFI_SUCCESS);
}

TEST(DwI2c, ReceivedBytesAreWaitedForAHundredTimes25) {
    OpenBoard("amd", "sequence fedc2078 1");
    EXPECT_EQ(I2cDwWaitRxData(CORE, 2), EFI_TIMEOUT);
    EXPECT_EQ(TakeLog(), Polls("mr32 fedc2078 -> 00000001", 100, 25));
    ResetEverything();
    OpenBoard("amd", "sequence fedc2078 0 1 3");
    EXPECT_EQ(I2cDwWaitRxData(CORE, 2), EFI_SUCCESS); // more than asked for
    ResetEverything();
    OpenBoard("amd", "sequence fedc2078 2");
    EXPECT_EQ(I2cDwWaitRxData(CORE, 2), EFI_SUCCESS);
}

TEST(DwI2c, TheEnabledBitIsWaitedForTenTimes25) {
    OpenBoard("amd", "sequence fedc209c ffffffff");
    EXPECT_EQ(I2cDwWaitI2cEnable(CORE, 1), EFI_TIMEOUT);
    EXPECT_EQ(TakeLog(), Polls("mr32 fedc209c -> ffffffff", 10, 25));
    EXPECT_EQ(I2cDwWaitI2cEnable(CORE, 0), EFI_SUCCESS); // differs from the state
    ResetEverything();
    OpenBoard("amd", "sequence fedc209c fffffffe");
    EXPECT_EQ(I2cDwWaitI2cEnable(CORE, 0), EFI_TIMEOUT);
    EXPECT_EQ(I2cDwWaitI2cEnable(CORE, 1), EFI_SUCCESS);
}

// ---- errors ---------------------------------------------------------------------------------------------

TEST(DwI2c, ACoreWithoutAnErrorIsLeftAlone) {
    OpenCore();
    EXPECT_EQ(I2cDwCheckErrors(CORE), 0u);
    EXPECT_EQ(TakeRegisters(), (Log{"mr32 fedc2034 -> 00000000"}));
}

TEST(DwI2c, AReadOfAnEmptyFifoIsAnErrorThatDisablesTheCoreAndTakesItsTargetBack) {
    OpenCore();
    EXPECT_EQ(I2cSetTarget(0x50, CORE), EFI_SUCCESS);
    MemRead32(IC_DATA_CMD);
    TakeLog();
    EXPECT_EQ(I2cDwCheckErrors(CORE), 1u);
    EXPECT_EQ(TakeRegisters(),
              (Log{"mr32 fedc2034 -> 00000011", "mr32 fedc2044 -> 00000001", "mw32 fedc206c 00000000",
                   "mr32 fedc209c -> 00000000", "mr32 fedc209c -> 00000000", "mw32 fedc2004 00000000"}));
    EXPECT_EQ(MemRead32(IC_RAW_INTR_STAT), 0u);
}

TEST(DwI2c, TheBitsOfAnErrorAreTheResult) {
    struct {
        uint32_t raw, source, error;
    } const cases[] = {
        {0x01, 0, 0x01},    {0x02, 0, 0x02},    {0x03, 0, 0x03},    {0xFFFFFFBC, 0, 0},
        {0x40, 0, 0}, // an abort without a source
        {0x40, 0x01, 0x01}, {0x40, 0x02, 0x02}, {0x40, 0x40, 0x40}, {0x40, 0xFFFFFFFF, 0x43},
        {0x40, 0x08, 0},    {0x43, 0x08, 0}, // the source stands in the raw bits' place
        {0x41, 0x40, 0x40},
    };
    for (const auto &error : cases) {
        ResetEverything();
        char lines[120];
        snprintf(lines, sizeof(lines), "sequence fedc2034 %x\nsequence fedc2080 %x", error.raw, error.source);
        OpenBoard("amd", lines);
        EXPECT_EQ(I2cDwCheckErrors(CORE), error.error) << lines;
        Log log = TakeRegisters();
        EXPECT_EQ(log.back() == "mw32 fedc2004 00000000", error.error != 0) << lines;
    }
}

TEST(DwI2c, WhatIsReportedIsClearedInOrder) {
    OpenBoard("amd", "sequence fedc2034 43\nsequence fedc2080 8");
    EXPECT_EQ(I2cDwCheckErrors(CORE), 0u);
    Log log = TakeAccesses();
    log.erase(std::remove_if(log.begin(), log.end(), [](const std::string &line) { return line[1] != 'r'; }),
              log.end());
    EXPECT_EQ(log,
              (Log{"mr32 fedc2034", "mr32 fedc2044", "mr32 fedc2048", "mr32 fedc2080", "mr32 fedc2054"}));
}

TEST(DwI2c, AnErrorOfACoreThatDoesNotDisableIsReportedAllTheSame) {
    OpenBoard("amd", "i2c-core fedc2000 never-disables\nsequence fedc2034 1");
    EXPECT_EQ(I2cDwCheckErrors(CORE), 1u);
    Log log = TakeRegisters();
    EXPECT_EQ(log.size(), 3u + 10 + 10 + 1); // status, clear, disable; both waits; target
    EXPECT_EQ(log.back(), "mw32 fedc2004 00000000");
}

// ---- target ---------------------------------------------------------------------------------------------

TEST(DwI2c, ATargetThatIsSetCostsOneRead) {
    OpenCore();
    EXPECT_EQ(I2cSetTarget(0x1055, CORE), EFI_SUCCESS);
    EXPECT_EQ(TakeRegisters(), (Log{"mr32 fedc2004 -> 00001055"}));
}

TEST(DwI2c, ATargetIsSetWhileTheCoreIsDisabledAndThenItIsEnabled) {
    OpenCore();
    MemWrite32(IC_ENABLE, 1);
    EXPECT_EQ(I2cSetTarget(0x2C, CORE), EFI_SUCCESS);
    EXPECT_EQ(MemRead32(IC_TAR), 0x2Cu);
    EXPECT_EQ(MemRead32(IC_ENABLE_STATUS), 1u);
}

TEST(DwI2c, FailuresToSetATargetAreToldApart) {
    struct {
        const char *lines;
        EFI_STATUS status;
        bool takenBack;
    } const cases[] = {
        {"i2c-core fedc2000 never-disables", EFI_NOT_READY, false},
        {"sequence fedc209c 0 1", EFI_DEVICE_ERROR, true}, // disabled, then enabled again
        {"sequence fedc209c 0", EFI_DEVICE_ERROR, true},   // does not enable
        {"sequence fedc2004 0 51", EFI_INVALID_PARAMETER, false},
    };
    for (const auto &failure : cases) {
        ResetEverything();
        OpenBoard("amd", failure.lines);
        EXPECT_EQ(I2cSetTarget(0x50, CORE), failure.status) << failure.lines;
        EXPECT_EQ(TakeRegisters().back() == "mw32 fedc2004 00000000", failure.takenBack) << failure.lines;
    }
}

// ---- requests -------------------------------------------------------------------------------------------

TEST(DwI2c, ARequestIsAReadOrAWriteOrAWriteAndARead) {
    I2cContext ctx = OpenCore();
    uint8_t out[] = {1, 0xCD, 0xAB};
    uint8_t in[4] = {};
    I2cRequest write = {1, {{0, 3, out}, {}}};
    EXPECT_EQ(I2cAccess(&ctx, 0x50, &write), EFI_SUCCESS);
    EXPECT_EQ(TakeCommands(), (std::vector<uint32_t>{1, 0xCD, 0x2AB}));
    I2cRequest both = {2, {{0, 1, out}, {I2C_FLAG_READ, 4, in}}};
    EXPECT_EQ(StartRequest(&ctx, 0x50, &both), EFI_SUCCESS);
    EXPECT_EQ(TakeCommands(), (std::vector<uint32_t>{1, 0x100, 0x100, 0x100, 0x300}));
    EXPECT_EQ(in[0] | in[1] << 8 | in[2] << 16, 0xABABCD);
    I2cRequest read = {1, {{I2C_FLAG_READ, 1, in}, {}}};
    EXPECT_EQ(I2cAccess(&ctx, 0x50, &read), EFI_SUCCESS); // goes on where the device stands
    EXPECT_EQ(TakeCommands(), (std::vector<uint32_t>{0x300}));
    EXPECT_EQ(in[0], 0);
}

TEST(DwI2c, UnsupportedRequestsTouchNothing) {
    I2cContext ctx = OpenCore();
    uint8_t bytes[4] = {};
    const uint32_t flags[] = {I2C_FLAG_SMBUS_PROCESS_CALL, I2C_FLAG_SMBUS_PEC, 0xC0000, 0x40001};
    for (uint32_t flag : flags) {
        I2cRequest req = {1, {{flag, 1, bytes}, {}}};
        EXPECT_EQ(I2cAccess(&ctx, 0x50, &req), EFI_UNSUPPORTED);
    }
    I2cRequest empty = {1, {{I2C_FLAG_READ, 0, bytes}, {}}};
    EXPECT_EQ(I2cAccess(&ctx, 0x50, &empty), EFI_UNSUPPORTED);
    I2cRequest twoWrites = {2, {{0, 1, bytes}, {0, 1, bytes}}};
    EXPECT_EQ(I2cAccess(&ctx, 0x50, &twoWrites), EFI_INVALID_PARAMETER);
    for (uint32_t count : {0u, 3u}) {
        I2cRequest counted = {count, {{0, 1, bytes}, {I2C_FLAG_READ, 1, bytes}}};
        EXPECT_EQ(I2cAccess(&ctx, 0x50, &counted), EFI_INVALID_PARAMETER) << count;
    }
    EXPECT_EQ(TakeLog(), Log{});
}

TEST(DwI2c, OfTwoReadsTheFirstIsWritten) {
    I2cContext ctx = OpenCore();
    uint8_t number = 1;
    uint8_t in[2] = {};
    I2cRequest req = {2, {{I2C_FLAG_READ, 1, &number}, {I2C_FLAG_READ, 2, in}}};
    EXPECT_EQ(I2cAccess(&ctx, 0x50, &req), EFI_SUCCESS);
    EXPECT_EQ(TakeCommands(), (std::vector<uint32_t>{1, 0x100, 0x300}));
    EXPECT_EQ(in[0] | in[1] << 8, 0x5678);
}

TEST(DwI2c, AContextHoldsNoBufferOfARequestThatIsOver) {
    for (const char *lines : {"", "\nsequence fedc2078 1"}) { // the second one ends while bytes are missing
        ResetEverything();
        I2cContext ctx = OpenCore(lines);
        uint8_t out[2];
        I2CRead(&ctx, 0x50, 1, out);
        EXPECT_EQ(ctx.writeBuffer, nullptr);
        EXPECT_EQ(ctx.readBuffer, nullptr);
        EXPECT_EQ(ctx.writeCount + ctx.readCount + ctx.totalCount, 0u);
    }
}

// One byte to write and two to read, in a context of that total.
static std::vector<uint32_t> CommandsOfTotal(uint32_t total) {
    I2cContext ctx = OpenCore();
    EXPECT_EQ(I2cSetTarget(0x50, CORE), EFI_SUCCESS);
    uint8_t number = 1;
    uint8_t in[2] = {};
    ctx.writeBuffer = &number;
    ctx.writeCount = 1;
    ctx.readBuffer = in;
    ctx.readCount = 2;
    ctx.totalCount = total;
    EXPECT_EQ(I2cWriteRead(&ctx), EFI_SUCCESS);
    return TakeCommands();
}

TEST(DwI2c, ATransferEndsWithItsTotalWhateverThePhasesHold) {
    EXPECT_EQ(CommandsOfTotal(3), (std::vector<uint32_t>{1, 0x100, 0x300}));
    ResetEverything();
    EXPECT_EQ(CommandsOfTotal(1), (std::vector<uint32_t>{1})); // without a stop: a read was to follow
    ResetEverything();
    EXPECT_EQ(CommandsOfTotal(0), (std::vector<uint32_t>{}));
}

TEST(DwI2c, ATargetThatCannotBeSetIsADeviceErrorWithoutAStop) {
    I2cContext ctx = {};
    ctx.base = CORE;
    uint8_t byte = 0;
    I2cRequest req = {1, {{0, 1, &byte}, {}}};
    for (const char *lines :
         {"i2c-core fedc2000 never-disables", "sequence fedc209c 0", "sequence fedc2004 0 51"}) {
        ResetEverything();
        OpenBoard("amd", lines);
        EXPECT_EQ(I2cAccess(&ctx, 0x50, &req), EFI_DEVICE_ERROR) << lines;
        EXPECT_EQ(TakeCommands().size(), 0u) << lines;
    }
}

TEST(DwI2c, EachFailureOfATransferHasItsStatusAndLeavesTheCoreDisabled) {
    struct {
        const char *lines;
        EFI_STATUS status;
        bool stops;
    } const cases[] = {
        {"i2c-core fedc2000 stays-busy", EFI_NOT_READY, false},
        {"sequence fedc2070 6 2", EFI_TIMEOUT, true},
        {"sequence fedc2078 1", EFI_TIMEOUT, true},
        {"sequence fedc2034 2", EFI_DEVICE_ERROR, true},
        {"i2c-core fedc2000 abort-after 2 1", EFI_DEVICE_ERROR, true},
    };
    for (const auto &failure : cases) {
        ResetEverything();
        I2cContext ctx = OpenCore(std::string("\n") + failure.lines);
        uint8_t out[2];
        EXPECT_EQ(I2CRead(&ctx, 0x50, 1, out), failure.status) << failure.lines;
        std::vector<uint32_t> commands = TakeCommands();
        EXPECT_EQ(!commands.empty() && commands.back() == 0x200, failure.stops) << failure.lines;
        EXPECT_EQ(MemRead32(IC_ENABLE), 0u) << failure.lines;
        EXPECT_EQ(MemRead32(IC_ENABLE_STATUS), 0u) << failure.lines;
    }
}

TEST(DwI2c, ACoreThatDoesNotEnableForATransferIsNotReady) {
    I2cContext ctx = OpenCore("\nsequence fedc209c 0 0 0 0 1 1 0");
    uint8_t out[2];
    EXPECT_EQ(I2CRead(&ctx, 0x50, 1, out), EFI_NOT_READY);
    EXPECT_EQ(TakeCommands().size(), 0u);
    EXPECT_EQ(MemRead32(IC_ENABLE), 0u);
}

// ---- FIFOs of all depths --------------------------------------------------------------------------------

// Reads count bytes of the device that holds each byte's number, through FIFOs of that depth.
static std::vector<uint8_t> ReadThrough(unsigned depth, unsigned count) {
    char lines[64];
    snprintf(lines, sizeof(lines), "rx %x tx %x", depth, depth);
    std::string words = "\ni2c-words 0";
    for (unsigned i = 0; i < 128; ++i) {
        char word[8];
        snprintf(word, sizeof(word), " %x", 2 * i | (2 * i + 1) << 8);
        words += word;
    }
    I2cContext ctx = OpenCore(lines + std::string("\ni2c-device 50") + words);
    std::vector<uint8_t> bytes(count);
    uint8_t offset = 0;
    I2cRequest req = {2, {{0, 1, &offset}, {I2C_FLAG_READ, count, bytes.data()}}};
    EXPECT_EQ(I2cAccess(&ctx, 0x50, &req), EFI_SUCCESS) << depth;
    return bytes;
}

TEST(DwI2c, ReadsLongerThanTheFifoGoInPiecesWithOneStopAtTheEnd) {
    for (unsigned depth : {1u, 2u, 3u, 16u, 17u, 64u, 256u}) {
        for (unsigned count : {1u, 2u, 16u, 33u, 200u}) {
            ResetEverything();
            std::vector<uint8_t> bytes = ReadThrough(depth, count);
            for (unsigned i = 0; i < count; ++i)
                EXPECT_EQ(bytes[i], i) << depth << " " << count;
            std::vector<uint32_t> commands = TakeCommands();
            std::vector<uint32_t> expected(count + 1, 0x100);
            expected.front() = 0;
            expected.back() = 0x300;
            EXPECT_EQ(commands, expected) << depth << " " << count;
        }
    }
}

TEST(DwI2c, EachPieceIsReadBeforeTheNextIsAskedFor) {
    ReadThrough(2, 5);
    std::string order;
    for (const std::string &line : TakeRegisters()) {
        if (line.compare(0, 13, "mw32 fedc2010") == 0)
            order += 'w';
        if (line.compare(0, 13, "mr32 fedc2078") == 0)
            order += line.back();
        if (line.compare(0, 13, "mr32 fedc2010") == 0)
            order += 'r';
    }
    EXPECT_EQ(order, "w"
                     "ww2rr"
                     "ww2rr"
                     "w1r");
}

TEST(DwI2c, WritesLongerThanTheFifoGoInPiecesWithOneStopAtTheEnd) {
    for (unsigned depth : {1u, 2u, 16u, 64u}) {
        for (unsigned count : {1u, 2u, 3u, 40u}) {
            ResetEverything();
            char lines[32];
            snprintf(lines, sizeof(lines), "rx %x tx %x", depth, depth);
            I2cContext ctx = OpenCore(lines);
            std::vector<uint8_t> bytes(count, 0x11);
            I2cRequest req = {1, {{0, count, bytes.data()}, {}}};
            EXPECT_EQ(I2cAccess(&ctx, 0x50, &req), EFI_SUCCESS);
            std::vector<uint32_t> expected(count, 0x11);
            expected.back() = 0x211;
            EXPECT_EQ(TakeCommands(), expected);
        }
    }
}

TEST(DwI2c, ARegisterIsTwoBytesLowFirst) {
    I2cContext ctx = OpenCore();
    uint8_t out[2] = {};
    EXPECT_EQ(I2CWrite(&ctx, 0x50, 0x10, 0x1234), EFI_SUCCESS);
    EXPECT_EQ(TakeCommands(), (std::vector<uint32_t>{0x10, 0x34, 0x212}));
    EXPECT_EQ(I2CRead(&ctx, 0x50, 0x10, out), EFI_SUCCESS);
    EXPECT_EQ(TakeCommands(), (std::vector<uint32_t>{0x10, 0x100, 0x300}));
    EXPECT_EQ(out[0], 0x34);
    EXPECT_EQ(out[1], 0x12);
}
