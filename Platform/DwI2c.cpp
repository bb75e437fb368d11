#include "Platform/DwI2c.h"

#include "BasicLib/Chipset.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/PortIo.h"
#include "Platform/DwI2cTiming.h"

// Registers, as offsets from a core's base; all 32 bits wide, and a narrower access is not allowed. IC_CON,
// IC_TAR, the counts and the spike length can be written only while the core is disabled; a core that is told
// to be disabled finishes its byte first, so IC_ENABLE_STATUS has to be asked. An IC_CLR_ register clears by
// being read.
constexpr uint32_t IC_CON = 0x00;
constexpr uint32_t IC_TAR = 0x04;
constexpr uint32_t IC_DATA_CMD = 0x10;
constexpr uint32_t IC_SS_SCL_HCNT = 0x14;
constexpr uint32_t IC_SS_SCL_LCNT = 0x18;
constexpr uint32_t IC_FS_SCL_HCNT = 0x1C;
constexpr uint32_t IC_FS_SCL_LCNT = 0x20;
constexpr uint32_t IC_HS_SCL_HCNT = 0x24;
constexpr uint32_t IC_HS_SCL_LCNT = 0x28;
constexpr uint32_t IC_INTR_MASK = 0x30;
constexpr uint32_t IC_RAW_INTR_STAT = 0x34;
constexpr uint32_t IC_CLR_INTR = 0x40;
constexpr uint32_t IC_CLR_RX_UNDER = 0x44;
constexpr uint32_t IC_CLR_RX_OVER = 0x48;
constexpr uint32_t IC_CLR_TX_ABRT = 0x54;
constexpr uint32_t IC_ENABLE = 0x6C;
constexpr uint32_t IC_STATUS = 0x70;
constexpr uint32_t IC_RXFLR = 0x78;
constexpr uint32_t IC_TX_ABRT_SOURCE = 0x80;
constexpr uint32_t IC_ENABLE_STATUS = 0x9C;
constexpr uint32_t IC_FS_SPKLEN = 0xA0;
constexpr uint32_t IC_COMP_PARAM_1 = 0xF4;

constexpr uint32_t CON_MASTER = 0x41; // master mode, slave disabled
constexpr uint32_t CON_SPEED_STANDARD = 0x02;
constexpr uint32_t CON_SPEED_FAST = 0x04;
constexpr uint32_t CON_SPEED_HIGH = 0x06;
constexpr uint32_t CON_RESTART_EN = 0x20;
constexpr uint32_t DATA_CMD_READ = 0x100; // asks for a byte; without it the low 8 bits are sent
constexpr uint32_t DATA_CMD_STOP = 0x200; // behind this byte; without it the bus stays taken
constexpr uint32_t INTR_RX_UNDER = 0x01;
constexpr uint32_t INTR_RX_OVER = 0x02;
constexpr uint32_t INTR_TX_ABRT = 0x40;
constexpr uint32_t STATUS_TX_FIFO_EMPTY = 0x04;
constexpr uint32_t STATUS_MASTER_ACTIVITY = 0x20;
constexpr uint32_t ENABLE_STATUS_EN = 0x01;
constexpr uint32_t SPIKE_LENGTH = 7;

constexpr uint32_t IC_CLOCK_KHZ = 150000;
constexpr uint32_t FALL_TIME = 3; // times in 0.1 us
constexpr uint32_t SS_HIGH_TIME = 40;
constexpr uint32_t SS_LOW_TIME = 47;
constexpr uint32_t FS_HIGH_TIME = 6;
constexpr uint32_t FS_LOW_TIME = 13;
constexpr uint64_t STANDARD_HZ = 100000;
constexpr uint64_t FAST_HZ = 400000;

// How often a register is looked at, and the delay units (of about a microsecond) between two looks.
struct PollLimit {
    uint32_t polls;
    uint32_t delay;
};

constexpr PollLimit BUS_LIMIT = {20, 1000};
constexpr PollLimit FIFO_LIMIT = {100, 25}; // a byte takes 90 us at 100 kHz
constexpr PollLimit ENABLE_LIMIT = {10, 25};

const uint32_t I2cSdpAddressList[I2C_BUS_COUNT] = {0xFEDC2000, 0xFEDC3000, 0xFEDC4000,
                                                   0xFEDC5000, 0xFEDC6000, 0xFEDCB000};

static uint32_t Get(uint32_t base, uint32_t reg) {
    return MemRead32(base + reg);
}

static void Set(uint32_t base, uint32_t reg, uint32_t value) {
    MemWrite32(base + reg, value);
}

// Polls a register until its masked bits are others than the unwanted ones. False when the polls are used up.
static bool WaitWhile(uint32_t base, uint32_t reg, uint32_t mask, uint32_t unwanted, PollLimit limit) {
    for (uint32_t i = 0; i < limit.polls; ++i) {
        if ((Get(base, reg) & mask) != unwanted)
            return true;
        IoDelay(limit.delay);
    }
    return false;
}

EFI_STATUS I2cDwWaitBusNotBusy(uint32_t base) {
    bool idle = WaitWhile(base, IC_STATUS, STATUS_MASTER_ACTIVITY, STATUS_MASTER_ACTIVITY, BUS_LIMIT);
    return idle ? EFI_SUCCESS : I2C_BUS_BUSY;
}

EFI_STATUS I2cDwWaitTxData(uint32_t base) {
    return WaitWhile(base, IC_STATUS, STATUS_TX_FIFO_EMPTY, 0, FIFO_LIMIT) ? EFI_SUCCESS : EFI_TIMEOUT;
}

EFI_STATUS I2cDwWaitRxData(uint32_t base, uint32_t count) {
    for (uint32_t i = 0; i < FIFO_LIMIT.polls; ++i) {
        if (Get(base, IC_RXFLR) >= count)
            return EFI_SUCCESS;
        IoDelay(FIFO_LIMIT.delay);
    }
    return EFI_TIMEOUT;
}

EFI_STATUS I2cDwWaitI2cEnable(uint32_t base, uint32_t state) {
    bool changed = WaitWhile(base, IC_ENABLE_STATUS, ENABLE_STATUS_EN, state, ENABLE_LIMIT);
    return changed ? EFI_SUCCESS : EFI_TIMEOUT;
}

// The same with the delay before each poll, until the enabled bit is as wanted.
static bool PollEnabled(uint32_t base, uint32_t wanted) {
    for (uint32_t i = 0; i < ENABLE_LIMIT.polls; ++i) {
        IoDelay(ENABLE_LIMIT.delay);
        if ((Get(base, IC_ENABLE_STATUS) & ENABLE_STATUS_EN) == wanted)
            return true;
    }
    return false;
}

static EFI_STATUS Disable(uint32_t base) {
    Set(base, IC_ENABLE, 0);
    return I2cDwWaitI2cEnable(base, 1);
}

static EFI_STATUS Enable(uint32_t base) {
    Set(base, IC_ENABLE, 1);
    return I2cDwWaitI2cEnable(base, 0);
}

uint32_t I2cDwCheckErrors(uint32_t base) {
    uint32_t value = Get(base, IC_RAW_INTR_STAT);
    uint32_t raw = value;
    if ((raw & INTR_RX_UNDER) != 0)
        Get(base, IC_CLR_RX_UNDER);
    if ((raw & INTR_RX_OVER) != 0)
        Get(base, IC_CLR_RX_OVER);
    if ((raw & INTR_TX_ABRT) != 0) {
        value = Get(base, IC_TX_ABRT_SOURCE);
        Get(base, IC_CLR_TX_ABRT);
    }
    // The mask falls on the abort source too and keeps its address bits: data without an acknowledge is no
    // error here. Intended: the bytes that such a device gives are taken all the same.
    uint32_t error = value & (INTR_RX_UNDER | INTR_RX_OVER | INTR_TX_ABRT);
    if (error == 0)
        return 0;
    Disable(base);
    PollEnabled(base, 0);
    Set(base, IC_TAR, 0);
    return error;
}

// The value of IC_CON for a speed, which is cut to the one that the counts serve. A request above 400 kHz
// leaves the speed field at high speed with the fast counts. Intended: high-speed counts are the fast ones
// too, so such a core runs at 400 kHz.
static uint32_t ChooseSpeed(uint64_t *hz) {
    uint32_t con = CON_MASTER;
    if (*hz > FAST_HZ) {
        *hz = FAST_HZ;
        con |= CON_SPEED_HIGH;
    }
    if (*hz <= STANDARD_HZ) {
        *hz = STANDARD_HZ;
        con |= CON_SPEED_STANDARD;
    } else {
        *hz = FAST_HZ;
        con |= CON_SPEED_FAST;
    }
    return con | CON_RESTART_EN;
}

EFI_STATUS SetBusFrequency(I2cContext *ctx, uint64_t *hz) {
    uint32_t base = ctx->base;
    if (Disable(base) != EFI_SUCCESS)
        return EFI_NOT_READY;
    Set(base, IC_CON, ChooseSpeed(hz));
    Set(base, IC_FS_SPKLEN, SPIKE_LENGTH);
    Set(base, IC_FS_SPKLEN, SPIKE_LENGTH);
    uint32_t fastHigh = i2c_dw_scl_hcnt(IC_CLOCK_KHZ, FS_HIGH_TIME, FALL_TIME, 0, 0);
    uint32_t fastLow = i2c_dw_scl_lcnt(IC_CLOCK_KHZ, FS_LOW_TIME, FALL_TIME, 0);
    Set(base, IC_SS_SCL_HCNT, i2c_dw_scl_hcnt(IC_CLOCK_KHZ, SS_HIGH_TIME, FALL_TIME, 0, 0));
    Set(base, IC_SS_SCL_LCNT, i2c_dw_scl_lcnt(IC_CLOCK_KHZ, SS_LOW_TIME, FALL_TIME, 0));
    Set(base, IC_FS_SCL_HCNT, fastHigh);
    Set(base, IC_FS_SCL_LCNT, fastLow);
    Set(base, IC_HS_SCL_HCNT, fastHigh);
    Set(base, IC_HS_SCL_LCNT, fastLow);
    return EFI_SUCCESS;
}

EFI_STATUS I2cInit(uint32_t busNo, I2cContext *ctx) {
    if (!ThisChipset()->dwI2c)
        return EFI_UNSUPPORTED;
    if (busNo >= I2C_BUS_COUNT)
        return EFI_INVALID_PARAMETER;
    *ctx = {};
    ctx->base = I2cSdpAddressList[busNo];
    if (Disable(ctx->base) != EFI_SUCCESS)
        return EFI_NOT_READY;
    Set(ctx->base, IC_INTR_MASK, 0);
    Get(ctx->base, IC_CLR_INTR);
    Get(ctx->base, IC_CLR_TX_ABRT);
    uint32_t depths = Get(ctx->base, IC_COMP_PARAM_1);
    ctx->rxDepth = ((depths >> 8) & 0xFF) + 1;
    ctx->txDepth = ((depths >> 16) & 0xFF) + 1;
    uint64_t hz = STANDARD_HZ;
    return SetBusFrequency(ctx, &hz);
}

EFI_STATUS I2cSetTarget(uint32_t slave, uint32_t base) {
    if (Get(base, IC_TAR) == slave)
        return EFI_SUCCESS;
    if (Disable(base) != EFI_SUCCESS)
        return EFI_NOT_READY;
    if (!PollEnabled(base, 0)) {
        Set(base, IC_TAR, 0);
        return EFI_DEVICE_ERROR;
    }
    Set(base, IC_TAR, slave);
    Enable(base);
    if (!PollEnabled(base, 1)) {
        Set(base, IC_TAR, 0);
        return EFI_DEVICE_ERROR;
    }
    return Get(base, IC_TAR) == slave ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

// Ends a failed transfer on the bus and hands the status on.
static EFI_STATUS StopWith(I2cContext *ctx, EFI_STATUS status) {
    Set(ctx->base, IC_DATA_CMD, DATA_CMD_STOP);
    return status;
}

static uint32_t Smaller(uint32_t a, uint32_t b) {
    return a < b ? a : b;
}

static EFI_STATUS WritePhase(I2cContext *ctx) {
    while (ctx->writeCount > 0) {
        uint32_t chunk = Smaller(ctx->writeCount, ctx->txDepth);
        for (; chunk > 0; --chunk) {
            bool last = ctx->totalCount == 1 && ctx->readCount == 0;
            Set(ctx->base, IC_DATA_CMD, *ctx->writeBuffer | (last ? DATA_CMD_STOP : 0));
            ++ctx->writeBuffer;
            --ctx->writeCount;
            --ctx->totalCount;
        }
        EFI_STATUS status = I2cDwWaitTxData(ctx->base);
        if (status != EFI_SUCCESS)
            return StopWith(ctx, status);
    }
    return EFI_SUCCESS;
}

// Takes count received bytes out of the FIFO.
static EFI_STATUS TakeBytes(I2cContext *ctx, uint32_t count) {
    for (; count > 0; --count) {
        if (I2cDwCheckErrors(ctx->base) != 0)
            return StopWith(ctx, EFI_DEVICE_ERROR);
        *ctx->readBuffer++ = static_cast<uint8_t>(Get(ctx->base, IC_DATA_CMD));
    }
    return EFI_SUCCESS;
}

// The core turns from writing to reading with a restart of its own (IC_RESTART_EN).
static EFI_STATUS ReadPhase(I2cContext *ctx) {
    while (ctx->readCount > 0) {
        uint32_t chunk = Smaller(ctx->readCount, ctx->rxDepth);
        for (uint32_t i = 0; i < chunk; ++i) {
            bool last = ctx->totalCount == 1;
            Set(ctx->base, IC_DATA_CMD, DATA_CMD_READ | (last ? DATA_CMD_STOP : 0));
            --ctx->readCount;
            --ctx->totalCount;
        }
        EFI_STATUS status = I2cDwWaitRxData(ctx->base, chunk);
        if (status != EFI_SUCCESS)
            return StopWith(ctx, status);
        status = TakeBytes(ctx, chunk);
        if (status != EFI_SUCCESS)
            return status;
    }
    return EFI_SUCCESS;
}

EFI_STATUS I2cWriteRead(I2cContext *ctx) {
    if (I2cDwWaitBusNotBusy(ctx->base) != EFI_SUCCESS)
        return EFI_NOT_READY;
    Set(ctx->base, IC_INTR_MASK, 0);
    Get(ctx->base, IC_CLR_INTR);
    if (Enable(ctx->base) != EFI_SUCCESS)
        return EFI_NOT_READY;
    EFI_STATUS status = ctx->totalCount != 0 ? WritePhase(ctx) : EFI_SUCCESS;
    return status == EFI_SUCCESS && ctx->totalCount != 0 ? ReadPhase(ctx) : status;
}

static void SetPhases(I2cContext *ctx, const I2cOperation *write, const I2cOperation *read) {
    ctx->writeBuffer = write == nullptr ? nullptr : write->buffer;
    ctx->writeCount = write == nullptr ? 0 : write->length;
    ctx->readBuffer = read == nullptr ? nullptr : read->buffer;
    ctx->readCount = read == nullptr ? 0 : read->length;
    ctx->totalCount = ctx->writeCount + ctx->readCount;
}

static EFI_STATUS RunTransfer(I2cContext *ctx, uint32_t slave) {
    if (I2cSetTarget(slave, ctx->base) != EFI_SUCCESS)
        return EFI_DEVICE_ERROR; // the core stays as that left it, for whoever asks why: the next I2cInit
                                 // disables it
    EFI_STATUS status = I2cWriteRead(ctx);
    Disable(ctx->base);
    return status;
}

EFI_STATUS I2cAccess(I2cContext *ctx, uint32_t slave, I2cRequest *req) {
    const I2cOperation *first = &req->operation[0];
    const I2cOperation *second = &req->operation[1];
    if ((first->flags & (I2C_FLAG_SMBUS_PROCESS_CALL | I2C_FLAG_SMBUS_PEC)) != 0 || first->length == 0)
        return EFI_UNSUPPORTED;
    if (req->count == 1 && (first->flags & I2C_FLAG_READ) != 0)
        SetPhases(ctx, nullptr, first);
    else if (req->count == 1)
        SetPhases(ctx, first, nullptr);
    else if (req->count == 2 && (second->flags & I2C_FLAG_READ) != 0)
        SetPhases(ctx, first, second);
    else
        return EFI_INVALID_PARAMETER;
    EFI_STATUS status = RunTransfer(ctx, slave);
    SetPhases(ctx, nullptr, nullptr); // the buffers are the request's
    return status;
}

EFI_STATUS StartRequest(I2cContext *ctx, uint32_t slave, I2cRequest *req) {
    return I2cAccess(ctx, slave, req);
}

EFI_STATUS I2CWrite(I2cContext *ctx, uint32_t slave, uint8_t offset, uint16_t data) {
    uint8_t bytes[] = {offset, static_cast<uint8_t>(data), static_cast<uint8_t>(data >> 8)};
    I2cRequest req = {1, {{0, sizeof(bytes), bytes}, {}}};
    return StartRequest(ctx, slave, &req);
}

EFI_STATUS I2CRead(I2cContext *ctx, uint32_t slave, uint8_t offset, uint8_t *out) {
    I2cRequest req = {2, {{0, 1, &offset}, {I2C_FLAG_READ, 2, out}}};
    return StartRequest(ctx, slave, &req);
}
