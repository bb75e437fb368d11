#include "Project/SMBusAcc.h"

#include "Base/Memory.h"
#include "BasicLib/PortIo.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/HexView.h"
#include "Common/ComFunc/Output.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/SmbusHost.h"
#include "Platform/Spd.h"

constexpr uint8_t SPD_DEVICE_TYPE = 2;
constexpr uint8_t SPD_DDR4_SDRAM = 0x0C;
constexpr uint32_t SCAN_DELAY = 10;

static int ShowSmbusHelp() {
    Printf(" /SMBUS /RB 0xa0 0: Read 1-BYTE data from smbus 0xA0 offset 0\n");
    Printf(" /SMBUS /WB 0xa0 0 0xFF: Write 1-BYTE 0xFF to smbus 0xA0 offset 0\n");
    Printf(" /SMBUS /DUMP 0xa0: Dump datas from smbus 0xA0\n");
    Printf(" /SMBUS /S 0xA0 0xA8: Search valid smbus device from 0xA0 to 0xA8\n");
    return -1;
}

// Says what has failed and gives the result of a command that did.
static int Fail(const char *text, uint8_t slave, uint8_t offset) {
    Printf(text, slave, offset);
    return -1;
}

static int SmbusReadCommand(uint16_t base, uint8_t result) {
    uint16_t pos;
    if (!CmdFind({"RB", "RW", "RD"}, &pos))
        return result;
    uint8_t slave = OperandByte(pos, 1);
    uint8_t offset = OperandByte(pos, 2);
    if (StandardSmbusRead(base, slave, offset, &result) != EFI_SUCCESS)
        return Fail("Read addr 0x%02X offset 0x%02X error!\n", slave, offset);
    Printf("SMBus read slave addr 0x%02X offset 0x%02X: 0x%02X\n", slave, offset, result);
    return result;
}

static int SmbusWriteCommand(uint16_t base, uint8_t result) {
    uint16_t pos;
    if (!CmdFind({"WB", "WW", "WD"}, &pos))
        return result;
    uint8_t slave = OperandByte(pos, 1);
    uint8_t offset = OperandByte(pos, 2);
    uint8_t data = OperandByte(pos, 3);
    if (StandardSmbusWrite(base, slave, offset, data) != EFI_SUCCESS)
        return Fail("Write addr 0x%02X offset 0x%02X error!\n", slave, offset);
    StandardSmbusRead(base, slave, offset, &data); // what was typed is shown when it cannot be read back
    Printf("SMBus write slave addr 0x%02X offset 0x%02X: 0x%02X\n", slave, offset, data);
    return data;
}

static bool DumpDdr4(uint16_t base, uint8_t slave, uint8_t *buffer) {
    if (GetDDR4Spd(base, slave, buffer, DDR4_SPD_BYTES) != EFI_SUCCESS) {
        Printf("Dump (DDR4) addr 0x%02X error!\n", slave);
        return false;
    }
    Printf("Dump SMBus(DDR4) from slave address 0x%02X:\n", slave);
    DispSet(DISP_LOG);
    DebugMsg(buffer, DDR4_SPD_BYTES);
    return true;
}

static bool DumpDevice(uint16_t base, uint8_t slave, uint8_t *buffer) {
    if (SmbusReadPage(base, slave, buffer) != EFI_SUCCESS) {
        Printf("Dump addr 0x%02X error!\n", slave);
        return false;
    }
    Printf("Dump SMBus from slave address 0x%02X:\n", slave);
    DebugMsg(buffer, SMBUS_PAGE_BYTES);
    return true;
}

static int SmbusDumpCommand(uint16_t base, uint8_t result) {
    uint16_t pos;
    if (!CmdFind({"DUMP"}, &pos))
        return result;
    uint8_t slave = OperandByte(pos, 1);
    bool isDdr4 = IsSpdAddress(slave) &&
                  StandardSmbusRead(base, slave, SPD_DEVICE_TYPE, &result) == EFI_SUCCESS &&
                  result == SPD_DDR4_SDRAM;
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(isDdr4 ? DDR4_SPD_BYTES : SMBUS_PAGE_BYTES));
    if (buffer == nullptr)
        return -1;
    bool shown = isDdr4 ? DumpDdr4(base, slave, buffer) : DumpDevice(base, slave, buffer);
    Free(buffer);
    return shown ? result : -1;
}

static int SmbusScanCommand(uint16_t base, uint8_t result) {
    uint16_t pos;
    if (!CmdFind({"S"}, &pos))
        return result;
    if (CmdArgText(pos, 2) == nullptr)
        return -1;
    uint8_t to = OperandByte(pos, 2);
    for (uint32_t address = OperandByte(pos, 1); address <= to && !OutputIsLost(); address += 2) {
        IoDelay(SCAN_DELAY);
        if (StandardSmbusRead(base, static_cast<uint8_t>(address), 0, &result) == EFI_SUCCESS)
            Printf("Valid SMBus slave address 0x%02X(data:%02X).\n", address, result);
    }
    return result;
}

int SMBusEntryPoint() {
    constexpr uint8_t nothingRead = 0xFF;
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowSmbusHelp();
    uint16_t base;
    if (!GetSMBusBaseAddress(&base))
        return -1;
    if (HasFlag(cmd, Flag::READ))
        return SmbusReadCommand(base, nothingRead);
    if (HasFlag(cmd, Flag::WRITE))
        return SmbusWriteCommand(base, nothingRead);
    if (HasFlag(cmd, Flag::DUMP))
        return SmbusDumpCommand(base, nothingRead);
    if (HasFlag(cmd, Flag::S))
        return SmbusScanCommand(base, nothingRead);
    return nothingRead;
}
