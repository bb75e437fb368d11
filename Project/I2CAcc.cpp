#include "Project/I2CAcc.h"

#include "Base/Types.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Signals.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/DwI2c.h"

static int ShowI2cHelp() {
    Printf(" /I2C /rb [I2cNo] [SlaveAddr] [Offset]: Read BYTE from I2cNo SlaveAddr Offset\n");
    Printf(" /I2C /wb [I2cNo] [SlaveAddr] [Offset] [Data]: Write BYTE from I2cNo SlaveAddr Offset Data\n");
    return 2;
}

static EFI_STATUS ReadRegister(I2cContext *ctx, uint8_t slave, uint8_t offset, uint16_t *value) {
    uint8_t bytes[2];
    EFI_STATUS status = I2CRead(ctx, slave, offset, bytes);
    if (status == EFI_SUCCESS)
        *value = static_cast<uint16_t>(bytes[0] | (bytes[1] << 8));
    return status;
}

// Readies the bus that the first operand names.
static bool InitBus(uint16_t pos, I2cContext *ctx) {
    if (I2cInit(OperandDword(pos, 1), ctx) == EFI_SUCCESS)
        return true;
    Printf("I2C init error\n");
    return false;
}

static int I2cReadCommand(uint16_t pos) {
    I2cContext ctx;
    if (!InitBus(pos, &ctx))
        return -1;
    uint8_t slave = OperandByte(pos, 2);
    uint8_t offset = OperandByte(pos, 3);
    uint16_t value;
    if (ReadRegister(&ctx, slave, offset, &value) != EFI_SUCCESS) {
        Printf("Read addr 0x%02X offset 0x%02X error!\n", slave, offset);
        return -1;
    }
    Printf("I2C read slave addr 0x%02X offset 0x%02X: 0x%04X\n", slave, offset, value);
    return value;
}

static int I2cWriteCommand(uint16_t pos) {
    I2cContext ctx;
    if (!InitBus(pos, &ctx))
        return -1;
    uint8_t slave = OperandByte(pos, 2);
    uint8_t offset = OperandByte(pos, 3);
    uint16_t data = OperandWord(pos, 4);
    if (I2CWrite(&ctx, slave, offset, data) != EFI_SUCCESS) {
        Printf("Write addr 0x%02X offset 0x%02X error!\n", slave, offset);
        return -1;
    }
    ReadRegister(&ctx, slave, offset, &data); // what was typed is shown when it cannot be read back
    Printf("I2C write slave addr 0x%02X offset 0x%02X: 0x%04X\n", slave, offset, data);
    return data;
}

static int AccessBus(CmdType cmd) {
    constexpr int nothingRead = 0xFFFF;
    uint16_t pos;
    if (HasFlag(cmd, Flag::READ))
        return CmdFind({"RB", "RW", "RD"}, &pos) ? I2cReadCommand(pos) : nothingRead;
    if (HasFlag(cmd, Flag::WRITE))
        return CmdFind({"WB", "WW", "WD"}, &pos) ? I2cWriteCommand(pos) : nothingRead;
    return nothingRead;
}

int I2CEntryPoint() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowI2cHelp();
    HoldSignals(); // none may leave a core enabled in the middle of a transfer
    int result = AccessBus(cmd);
    ReleaseSignals();
    return result;
}
