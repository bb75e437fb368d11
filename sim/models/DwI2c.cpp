// DesignWare DW_apb_i2c databook 2.0 (registers and signal behaviour; the same registers are public in
// Intel's and Altera's manuals). The core is one with IC_EMPTYFIFO_HOLD_MASTER_EN: when the transmit FIFO
// runs empty without a STOP it holds the clock low, and cannot be disabled before it has sent one. It lives
// in board time: an address or a byte takes the byte time, and all that has happened by now happens when a
// register is touched.
#include "DwI2c.h"

#include "../Arena.h"
#include "../Memory.h"
#include "../Mistake.h"
#include "SimplePorts.h"

#include <string.h>

namespace {

enum : uint32_t {
    IC_CON = 0x00,
    IC_TAR = 0x04,
    IC_DATA_CMD = 0x10,
    IC_SS_SCL_HCNT = 0x14,
    IC_HS_SCL_LCNT = 0x28,
    IC_INTR_STAT = 0x2C,
    IC_INTR_MASK = 0x30,
    IC_RAW_INTR_STAT = 0x34,
    IC_CLR_INTR = 0x40,
    IC_CLR_RX_UNDER = 0x44,
    IC_CLR_RX_OVER = 0x48,
    IC_CLR_TX_OVER = 0x4C,
    IC_CLR_TX_ABRT = 0x54,
    IC_CLR_ACTIVITY = 0x5C,
    IC_CLR_STOP_DET = 0x60,
    IC_CLR_START_DET = 0x64,
    IC_ENABLE = 0x6C,
    IC_STATUS = 0x70,
    IC_TXFLR = 0x74,
    IC_RXFLR = 0x78,
    IC_TX_ABRT_SOURCE = 0x80,
    IC_ENABLE_STATUS = 0x9C,
    IC_FS_SPKLEN = 0xA0,
    IC_COMP_PARAM_1 = 0xF4,
    IC_COMP_VERSION = 0xF8,
    IC_COMP_TYPE = 0xFC,
};

enum : uint32_t {
    INTR_RX_UNDER = 0x001,
    INTR_RX_OVER = 0x002,
    INTR_RX_FULL = 0x004,
    INTR_TX_OVER = 0x008,
    INTR_TX_EMPTY = 0x010,
    INTR_TX_ABRT = 0x040,
    INTR_ACTIVITY = 0x100,
    INTR_STOP_DET = 0x200,
    INTR_START_DET = 0x400,
};

constexpr uint64_t BLOCK = 0x1000;
constexpr uint32_t CON_MASTER_MODE = 0x01;
constexpr uint32_t CON_BITS = 0x7F;
constexpr uint32_t CON_RESET = 0x7F;
constexpr uint32_t TAR_BITS = 0x1FFF;
constexpr uint32_t TAR_RESET = 0x1055;
constexpr uint32_t TAR_7_BIT = 0x7F;
constexpr uint32_t DATA_CMD_READ = 0x100;
constexpr uint32_t DATA_CMD_STOP = 0x200;
constexpr uint32_t ABRT_7B_ADDR_NOACK = 0x0001;
constexpr uint32_t ABRT_TXDATA_NOACK = 0x0008;
constexpr uint32_t ABRT_MASTER_DIS = 0x0800;
constexpr uint32_t INTR_MASK_RESET = 0x8FF;
constexpr uint32_t COMP_PARAM_BASE =
    0x000000EA; // 32-bit APB, fast speed, interrupts, DMA, encoded parameters
constexpr uint32_t COMP_VERSION_202 = 0x3230322A;
constexpr uint32_t COMP_TYPE_MAGIC = 0x44570140;
constexpr uint32_t COUNT_REGISTERS = 6;
constexpr uint32_t MAX_DEPTH = 256;
constexpr uint32_t DEVICE_BYTES = 512;
constexpr uint32_t ADDRESSES = 128;
constexpr int MAX_CORES = 64;

struct Device {
    bool present;
    uint32_t refuses; // 0 for no byte
    uint8_t bytes[DEVICE_BYTES];
    uint32_t at;
    uint32_t written; // bytes since the address
};

enum BusState { BUS_IDLE, BUS_ADDRESS, BUS_BYTE, BUS_HELD };

struct Core {
    uint64_t base;
    uint32_t rxDepth, txDepth, byteTime;
    bool neverDisables, staysBusy;
    uint32_t abortAfter, abortSource;
    uint32_t con, tar, counts[COUNT_REGISTERS], mask, spikeLength;
    bool enable; // what was written; the core is enabled for as long as it is not idle as well
    uint32_t raw, source;
    uint16_t tx[MAX_DEPTH];
    uint8_t rx[MAX_DEPTH];
    uint32_t txCount, rxCount;
    BusState bus;
    bool reading;     // direction of the address that was sent
    uint16_t command; // on the bus
    uint64_t ends;    // of the address or byte on the bus
    uint32_t received;
    Device devices[ADDRESSES];
};

Core *gCores[MAX_CORES];
int gCoreCount;
Core *gCore; // the ones that the lines of the board file are about
Device *gDevice;

// ---- devices
// --------------------------------------------------------------------------------------------------------

// The one that the core's address register names, which keeps its value while the core is at work.
Device *Addressed(Core *core) {
    return &core->devices[core->tar & TAR_7_BIT];
}

// True when the device acknowledges.
bool DeviceTakes(Device *device, uint8_t byte) {
    if (++device->written == device->refuses)
        return false;
    if (device->written == 1)
        device->at = 2u * byte;
    else
        device->bytes[device->at++ % DEVICE_BYTES] = byte;
    return true;
}

uint8_t DeviceGives(Device *device) {
    return device->bytes[device->at++ % DEVICE_BYTES];
}

// ---- FIFOs
// ----------------------------------------------------------------------------------------------------------

uint16_t TakeCommand(Core *core) {
    uint16_t command = core->tx[0];
    core->txCount--;
    memmove(core->tx, core->tx + 1, core->txCount * sizeof core->tx[0]);
    return command;
}

void Received(Core *core, uint8_t byte) {
    if (core->rxCount == core->rxDepth)
        core->raw |= INTR_RX_OVER;
    else
        core->rx[core->rxCount++] = byte;
    if (++core->received == core->abortAfter) {
        core->raw |= INTR_TX_ABRT;
        core->source |= core->abortSource;
    }
}

uint32_t ReadData(Core *core) {
    if (core->rxCount == 0) {
        core->raw |= INTR_RX_UNDER;
        return 0;
    }
    uint8_t byte = core->rx[0];
    core->rxCount--;
    memmove(core->rx, core->rx + 1, core->rxCount);
    return byte;
}

void WriteData(Core *core, uint16_t command) {
    if (!core->enable ||
        (core->raw & INTR_TX_ABRT)) // after an abort the FIFO stays flushed until that is cleared
        return;
    if (!(core->con & CON_MASTER_MODE)) {
        core->raw |= INTR_TX_ABRT;
        core->source |= ABRT_MASTER_DIS;
    } else if (core->txCount == core->txDepth) {
        core->raw |= INTR_TX_OVER;
    } else {
        core->tx[core->txCount++] = command;
    }
}

// ---- the bus
// --------------------------------------------------------------------------------------------------------

void SendAddress(Core *core, uint64_t time) {
    core->raw |= INTR_START_DET | INTR_ACTIVITY;
    core->reading = core->tx[0] & DATA_CMD_READ;
    core->bus = BUS_ADDRESS;
    core->ends = time + core->byteTime;
}

void SendStop(Core *core) {
    core->raw |= INTR_STOP_DET;
    core->bus = BUS_IDLE;
}

void Abort(Core *core, uint32_t source) {
    core->raw |= INTR_TX_ABRT;
    core->source |= source;
    core->txCount = 0;
    SendStop(core);
}

void NextCommand(Core *core, uint64_t time) {
    if (!core->enable) {
        SendStop(core);
    } else if (core->txCount == 0) {
        core->bus = BUS_HELD;
    } else if (bool(core->tx[0] & DATA_CMD_READ) != core->reading) {
        SendAddress(core, time);
    } else {
        core->command = TakeCommand(core);
        core->bus = BUS_BYTE;
        core->ends = time + core->byteTime;
    }
}

void AddressSent(Core *core) {
    Device *device = Addressed(core);
    if (!device->present) {
        Abort(core, ABRT_7B_ADDR_NOACK);
        return;
    }
    device->written = 0;
    NextCommand(core, core->ends);
}

void ByteSent(Core *core) {
    if (core->command & DATA_CMD_READ) {
        Received(core, DeviceGives(Addressed(core)));
    } else if (!DeviceTakes(Addressed(core), static_cast<uint8_t>(core->command))) {
        Abort(core, ABRT_TXDATA_NOACK);
        return;
    }
    if (core->command & DATA_CMD_STOP)
        SendStop(core);
    else
        NextCommand(core, core->ends);
}

// Lets happen what has happened by now.
void Advance(Core *core) {
    uint64_t now = DelayPortMicroseconds();
    for (;;) {
        if (core->bus == BUS_IDLE && core->txCount > 0)
            SendAddress(core, now);
        else if (core->bus == BUS_HELD && core->txCount > 0)
            NextCommand(core, now);
        else if (core->bus == BUS_ADDRESS && now >= core->ends)
            AddressSent(core);
        else if (core->bus == BUS_BYTE && now >= core->ends)
            ByteSent(core);
        else
            return;
    }
}

// ---- registers
// ------------------------------------------------------------------------------------------------------

bool IsEnabled(const Core *core) {
    return core->enable || core->neverDisables || core->bus != BUS_IDLE;
}

void WriteEnable(Core *core, uint32_t value) {
    core->enable = value & 1;
    if (!core->enable)
        core->txCount = core->rxCount = 0;
}

uint32_t RawInterrupts(const Core *core) {
    uint32_t raw = core->raw;
    if (core->enable && core->txCount == 0)
        raw |= INTR_TX_EMPTY;
    if (core->rxCount > 0)
        raw |= INTR_RX_FULL;
    return raw;
}

uint32_t Status(const Core *core) {
    bool active = core->bus != BUS_IDLE || core->staysBusy;
    uint32_t status = active ? 0x21 : 0; // ACTIVITY, MST_ACTIVITY
    if (core->txCount < core->txDepth)
        status |= 0x02; // TFNF
    if (core->txCount == 0)
        status |= 0x04; // TFE
    if (core->rxCount > 0)
        status |= 0x08; // RFNE
    if (core->rxCount == core->rxDepth)
        status |= 0x10; // RFF
    return status;
}

// Reading a clear register; the bits that it clears.
uint32_t Clear(Core *core, uint32_t bits) {
    uint32_t were = core->raw & bits;
    core->raw &= ~bits;
    if (bits & INTR_TX_ABRT)
        core->source = 0;
    return were != 0;
}

uint32_t Parameters(const Core *core) {
    return COMP_PARAM_BASE | (core->rxDepth - 1) << 8 | (core->txDepth - 1) << 16;
}

uint32_t ReadRegister(Core *core, uint32_t offset) {
    if (offset >= IC_SS_SCL_HCNT && offset <= IC_HS_SCL_LCNT)
        return core->counts[(offset - IC_SS_SCL_HCNT) / 4];
    switch (offset) {
    case IC_CON:
        return core->con;
    case IC_TAR:
        return core->tar;
    case IC_DATA_CMD:
        return ReadData(core);
    case IC_INTR_STAT:
        return RawInterrupts(core) & core->mask;
    case IC_INTR_MASK:
        return core->mask;
    case IC_RAW_INTR_STAT:
        return RawInterrupts(core);
    case IC_CLR_INTR:
        return Clear(core, ~0u);
    case IC_CLR_RX_UNDER:
        return Clear(core, INTR_RX_UNDER);
    case IC_CLR_RX_OVER:
        return Clear(core, INTR_RX_OVER);
    case IC_CLR_TX_OVER:
        return Clear(core, INTR_TX_OVER);
    case IC_CLR_TX_ABRT:
        return Clear(core, INTR_TX_ABRT);
    case IC_CLR_ACTIVITY:
        return Clear(core, INTR_ACTIVITY);
    case IC_CLR_STOP_DET:
        return Clear(core, INTR_STOP_DET);
    case IC_CLR_START_DET:
        return Clear(core, INTR_START_DET);
    case IC_ENABLE:
        return core->enable || core->neverDisables;
    case IC_STATUS:
        return Status(core);
    case IC_TXFLR:
        return core->txCount;
    case IC_RXFLR:
        return core->rxCount;
    case IC_TX_ABRT_SOURCE:
        return core->source;
    case IC_ENABLE_STATUS:
        return IsEnabled(core);
    case IC_FS_SPKLEN:
        return core->spikeLength;
    case IC_COMP_PARAM_1:
        return Parameters(core);
    case IC_COMP_VERSION:
        return COMP_VERSION_202;
    case IC_COMP_TYPE:
        return COMP_TYPE_MAGIC;
    default:
        return 0;
    }
}

// Registers that take nothing while the core is enabled.
void WriteSetting(Core *core, uint32_t offset, uint32_t value) {
    if (IsEnabled(core))
        return;
    if (offset >= IC_SS_SCL_HCNT && offset <= IC_HS_SCL_LCNT)
        core->counts[(offset - IC_SS_SCL_HCNT) / 4] = value & 0xFFFF;
    else if (offset == IC_CON)
        core->con = value & CON_BITS;
    else if (offset == IC_TAR)
        core->tar = value & TAR_BITS;
    else if (offset == IC_FS_SPKLEN)
        core->spikeLength = value & 0xFF;
}

void WriteRegister(Core *core, uint32_t offset, uint32_t value) {
    if (offset == IC_DATA_CMD)
        WriteData(core, static_cast<uint16_t>(value));
    else if (offset == IC_ENABLE)
        WriteEnable(core, value);
    else if (offset == IC_INTR_MASK)
        core->mask = value & 0xFFF;
    else
        WriteSetting(core, offset, value);
}

// A state file may say what it likes.
void KeepFifosWithinBounds(Core *core) {
    core->rxDepth = core->rxDepth < MAX_DEPTH ? core->rxDepth : MAX_DEPTH;
    core->txDepth = core->txDepth < MAX_DEPTH ? core->txDepth : MAX_DEPTH;
    core->rxCount = core->rxCount < core->rxDepth ? core->rxCount : core->rxDepth;
    core->txCount = core->txCount < core->txDepth ? core->txCount : core->txDepth;
}

// The bus of the block is 32 bits wide: narrower accesses reach nothing.
uint32_t ReadBlock(void *device, uint64_t address, unsigned width) {
    Core *core = static_cast<Core *>(device);
    if (width != 4)
        return 0xFFFFFFFF;
    KeepFifosWithinBounds(core);
    Advance(core);
    uint32_t value = ReadRegister(core, static_cast<uint32_t>(address - core->base));
    Advance(core);
    return value;
}

void WriteBlock(void *device, uint64_t address, unsigned width, uint32_t value) {
    Core *core = static_cast<Core *>(device);
    if (width != 4)
        return;
    KeepFifosWithinBounds(core);
    Advance(core);
    WriteRegister(core, static_cast<uint32_t>(address - core->base), value);
    Advance(core);
}

// ---- board file
// -----------------------------------------------------------------------------------------------------

Core *FindCore(uint64_t base) {
    for (int i = 0; i < gCoreCount; i++)
        if (gCores[i]->base == base)
            return gCores[i];
    return nullptr;
}

void NewCore(uint64_t base) {
    if (gCoreCount == MAX_CORES)
        BoardFail("more than %d I2C cores", MAX_CORES);
    gCore = static_cast<Core *>(ArenaTakeRegisters(sizeof(Core)));
    gCores[gCoreCount++] = gCore;
    gCore->base = base;
    gCore->rxDepth = gCore->txDepth = 16;
    gCore->byteTime = 90;
    gCore->con = CON_RESET;
    gCore->tar = TAR_RESET;
    gCore->mask = INTR_MASK_RESET;
    ClaimMemory(base, BLOCK, ReadBlock, WriteBlock, gCore);
}

uint32_t Depth(const BoardLine *line, int word) {
    uint32_t depth = static_cast<uint32_t>(LineNumber(line, word, MAX_DEPTH));
    if (depth == 0)
        LineFail(line, "a FIFO has 1 to 256 entries", line->words[word]);
    return depth;
}

} // namespace

void DwI2cReset() {
    gCoreCount = 0;
    gCore = nullptr;
    gDevice = nullptr;
}

void I2cCoreLine(BoardLine *line) {
    uint64_t base = LineAddress(line, 1);
    gDevice = nullptr;
    if (base % BLOCK != 0)
        LineFail(line, "no multiple of 1000h", line->words[1]);
    gCore = FindCore(base);
    if (!gCore)
        NewCore(base);
    for (int i = 2; i < line->count; i++) {
        if (LineOption(line, i, "rx")) {
            gCore->rxDepth = Depth(line, ++i);
        } else if (LineOption(line, i, "tx")) {
            gCore->txDepth = Depth(line, ++i);
        } else if (LineOption(line, i, "byte-time")) {
            gCore->byteTime = static_cast<uint32_t>(LineNumber(line, ++i, UINT32_MAX));
        } else if (LineOption(line, i, "never-disables")) {
            gCore->neverDisables = true;
        } else if (LineOption(line, i, "stays-busy")) {
            gCore->staysBusy = true;
        } else if (LineOption(line, i, "abort-after")) {
            gCore->abortAfter = static_cast<uint32_t>(LineNumber(line, ++i, UINT32_MAX));
            gCore->abortSource = static_cast<uint32_t>(LineNumber(line, ++i, UINT32_MAX));
        } else {
            LineFail(line, "no such property of a core", line->words[i]);
        }
    }
}

void I2cDeviceLine(BoardLine *line) {
    if (!gCore)
        LineFail(line, "no \"i2c-core\" line comes before", line->words[0]);
    uint8_t address = static_cast<uint8_t>(LineNumber(line, 1, 0xFF));
    if (address > 0x7F)
        LineFail(line, "addresses have 7 bits here: a0 is 50", line->words[1]);
    gDevice = &gCore->devices[address];
    gDevice->present = true;
    if (LineHas(line, 2, "refuses"))
        gDevice->refuses = static_cast<uint32_t>(LineNumber(line, 3, UINT32_MAX));
}

void I2cWordsLine(BoardLine *line) {
    if (!gDevice)
        LineFail(line, "no \"i2c-device\" line comes before", line->words[0]);
    uint32_t at = 2 * static_cast<uint32_t>(LineNumber(line, 1, 0xFF));
    LineWord(line, 2);
    for (int i = 2; i < line->count; i++, at += 2) {
        if (at >= DEVICE_BYTES)
            LineFail(line, "a device has 256 registers", line->words[i]);
        uint32_t word = static_cast<uint32_t>(LineNumber(line, i, 0xFFFF));
        gDevice->bytes[at] = static_cast<uint8_t>(word);
        gDevice->bytes[at + 1] = static_cast<uint8_t>(word >> 8);
    }
}
