#include "Project/I2CAcc.h"

#include "Base/Types.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Output.h"
#include "Common/ComFunc/Signals.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/DwI2c.h"

static int ShowI2cHelp() {
    Printf(" /I2C /rb [I2cNo] [SlaveAddr] [Offset]: Read BYTE from I2cNo SlaveAddr Offset\n");
    Printf(" /I2C /wb [I2cNo] [SlaveAddr] [Offset] [Data]: Write BYTE from I2cNo SlaveAddr Offset Data\n");
    return 2;
}

// A register of a device: its core, readied, and the operands behind it.
struct I2cRegister {
    I2cContext core;
    uint8_t slave;
    uint8_t offset;
};

// Takes the operands behind the switch word and readies the core.
static bool OpenRegister(uint16_t pos, I2cRegister *at) {
    at->slave = OperandByte(pos, 2);
    at->offset = OperandByte(pos, 3);
    if (I2cInit(OperandDword(pos, 1), &at->core) == EFI_SUCCESS)
        return true;
    Printf("I2C init error\n");
    return false;
}

// Leaves the value as it is when the register cannot be read.
static EFI_STATUS ReadRegister(I2cRegister *at, uint16_t *value) {
    uint8_t bytes[2];
    EFI_STATUS status = I2CRead(&at->core, at->slave, at->offset, bytes);
    if (status == EFI_SUCCESS)
        *value = static_cast<uint16_t>(bytes[0] | (bytes[1] << 8));
    return status;
}

static int I2cReadCommand(uint16_t pos) {
    I2cRegister at;
    uint16_t value;
    if (!OpenRegister(pos, &at))
        return -1;
    if (ReadRegister(&at, &value) != EFI_SUCCESS) {
        Printf("Read addr 0x%02X offset 0x%02X error!\n", at.slave, at.offset);
        return -1;
    }
    Printf("I2C read slave addr 0x%02X offset 0x%02X: 0x%04X\n", at.slave, at.offset, value);
    return value;
}

static int I2cWriteCommand(uint16_t pos) {
    I2cRegister at;
    uint16_t data = OperandWord(pos, 4);
    if (!OpenRegister(pos, &at))
        return -1;
    if (I2CWrite(&at.core, at.slave, at.offset, data) != EFI_SUCCESS) {
        Printf("Write addr 0x%02X offset 0x%02X error!\n", at.slave, at.offset);
        return -1;
    }
    ReadRegister(&at, &data); // what was typed is shown when it cannot be read back
    Printf("I2C write slave addr 0x%02X offset 0x%02X: 0x%04X\n", at.slave, at.offset, data);
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
    HoldOutput();  // nobody who does not read may keep a core enabled
    HoldSignals(); // nor may a signal leave it in the middle of a transfer
    int result = AccessBus(cmd);
    ReleaseSignals();
    ReleaseOutput();
    return result;
}
