#include "Project/SMBusAcc.h"

#include "Base/Memory.h"
#include "BasicLib/PciConfig.h"
#include "BasicLib/PortIo.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/HexView.h"
#include "Common/Global.h"
#include "Common/Sprint.h"
#include "Platform/AmdReg.h"
#include "Platform/PciFind.h"
#include "Project/AccessForm.h"

constexpr uint16_t CLASS_SMBUS = 0x0C05;
constexpr uint16_t PCI_COMMAND = 0x04;
constexpr uint32_t COMMAND_IO = 0x01;
constexpr uint16_t INTEL_SMB_BASE = 0x20;
constexpr uint32_t INTEL_SMB_BASE_MASK = ~0x1Fu;
constexpr uint8_t AMD_PM_SMBUS_BASE = 0x00;
constexpr uint16_t AMD_SMBUS_BASE_MASK = 0xFF00;

// Registers, as offsets from the block's base.
constexpr uint16_t HST_STS = 0x00;
constexpr uint16_t HST_CNT = 0x02;
constexpr uint16_t HST_CMD = 0x03;
constexpr uint16_t XMIT_SLVA = 0x04;
constexpr uint16_t HST_D0 = 0x05;

constexpr uint8_t STS_CLEAR_ALL = 0xFF;
constexpr uint8_t STS_DEV_ERR = 0x04;
constexpr uint8_t STS_ENDED = 0x0E; // done, device error or bus error
constexpr uint8_t STS_FAILED = 0x10;
constexpr uint8_t CNT_START_BYTE_DATA = 0x48;
constexpr uint8_t CNT_KILL = 0x02;
constexpr uint8_t CNT_AFTER_FAILURE = 0x81;
constexpr uint32_t POLL_LIMIT = 0xFFFFF;

constexpr uint8_t SPD_PAGE0 = 0x6C; // SPA0
constexpr uint8_t SPD_PAGE1 = 0x6E; // SPA1
constexpr uint8_t SPD_DEVICE_TYPE = 2;
constexpr uint8_t SPD_DDR4_SDRAM = 0x0C;
constexpr uint32_t DUMP_BYTES = 256;
constexpr uint32_t DDR4_BYTES = 512;
constexpr uint32_t SCAN_DELAY = 10;

static const uint8_t gSpdAddrList[] = {0xA0, 0xA2, 0xA4, 0xA6, 0xA8, 0xAA, 0xFF};

int GetSMBusBaseAddress(uint16_t *base) {
    uint16_t vendor = ChipsetLpcIdentify();
    uint16_t bus;
    uint16_t dev;
    uint16_t fun;
    if (!SourchPciControllerByClass(&bus, &dev, &fun, CLASS_SMBUS))
        return 0;
    uint32_t command = PciRead32(bus, dev, fun, PCI_COMMAND);
    if ((command & COMMAND_IO) == 0)
        PciWrite32(bus, dev, fun, PCI_COMMAND, command | COMMAND_IO);
    if (vendor == VENDOR_INTEL)
        *base = static_cast<uint16_t>(PciRead32(bus, dev, fun, INTEL_SMB_BASE) & INTEL_SMB_BASE_MASK);
    else
        *base = AmdPMxRead16(AMD_PM_SMBUS_BASE) & AMD_SMBUS_BASE_MASK;
    return 1;
}

void SmbusWrite8(uint16_t port, uint8_t value) {
    IoDelay(1);
    IoWrite8(port, value);
}

uint8_t SmbusRead8(uint16_t port) {
    IoDelay(1);
    return static_cast<uint8_t>(IoRead8(port));
}

static uint16_t Register(uint16_t base, uint16_t offset) {
    return static_cast<uint16_t>(base + offset);
}

// Polls until the transaction has ended and clears what it left in the status. False after a time-out or a
// device error; a bus error ends the wait and counts as no failure, which is intended.
static bool WaitTransaction(uint16_t base) {
    uint8_t status = 0;
    uint32_t tries = 0;
    for (; tries < POLL_LIMIT && (status & STS_ENDED) == 0; ++tries) {
        IoDelay(1);
        status = SmbusRead8(Register(base, HST_STS));
    }
    SmbusWrite8(Register(base, HST_STS), status);
    return (status & STS_ENDED) != 0 && (status & STS_DEV_ERR) == 0;
}

// Starts a transaction and waits for it. False after cleaning up a failure.
static bool StartAndWait(uint16_t base) {
    SmbusWrite8(Register(base, HST_STS), STS_CLEAR_ALL);
    SmbusWrite8(Register(base, HST_CNT), CNT_START_BYTE_DATA);
    if (WaitTransaction(base))
        return true;
    if ((SmbusRead8(Register(base, HST_CNT)) & CNT_KILL) != 0)
        SmbusWrite8(Register(base, HST_STS), STS_FAILED);
    SmbusWrite8(Register(base, HST_CNT), CNT_AFTER_FAILURE);
    return false;
}

// The byte-data transaction whose address and command are set. Reading the status takes Intel's semaphore
// (INUSE_STS), on which firmware may wait; the status written back gives it up.
static bool RunTransaction(uint16_t base) {
    HoldSignals(); // none may leave the host taken
    bool done = StartAndWait(base);
    ReleaseSignals();
    return done;
}

EFI_STATUS StandardSmbusRead(uint16_t base, uint8_t slave, uint8_t offset, uint8_t *data) {
    SmbusWrite8(Register(base, XMIT_SLVA), slave | 1);
    SmbusWrite8(Register(base, HST_CMD), offset);
    if (!RunTransaction(base))
        return EFI_DEVICE_ERROR;
    *data = SmbusRead8(Register(base, HST_D0));
    return EFI_SUCCESS;
}

EFI_STATUS StandardSmbusWrite(uint16_t base, uint8_t slave, uint8_t offset, uint8_t data) {
    SmbusWrite8(Register(base, HST_D0), data);
    SmbusWrite8(Register(base, XMIT_SLVA), slave & 0xFE);
    SmbusWrite8(Register(base, HST_CMD), offset);
    return RunTransaction(base) ? EFI_SUCCESS : EFI_DEVICE_ERROR;
}

// Reads offsets 0 to 255 of a device until one fails.
static EFI_STATUS ReadPage(uint16_t base, uint8_t slave, uint8_t *buffer) {
    for (uint32_t i = 0; i < DUMP_BYTES; ++i) {
        EFI_STATUS status = StandardSmbusRead(base, slave, static_cast<uint8_t>(i), buffer + i);
        if (status != EFI_SUCCESS)
            return status;
    }
    return EFI_SUCCESS;
}

// Selects a page by its address and returns the byte read there before, 0 when it cannot be read. Modules
// that do not answer at the page addresses are read all the same.
static uint8_t SelectPage(uint16_t base, uint8_t page) {
    uint8_t saved = 0;
    StandardSmbusRead(base, page, 0, &saved);
    StandardSmbusWrite(base, page, 0, 0);
    return saved;
}

EFI_STATUS GetDDR4Spd(uint16_t base, uint8_t slave, uint8_t *buffer, uint16_t) {
    uint8_t saved0 = SelectPage(base, SPD_PAGE0);
    EFI_STATUS status = ReadPage(base, slave, buffer);
    if (status == EFI_SUCCESS) {
        uint8_t saved1 = SelectPage(base, SPD_PAGE1);
        status = ReadPage(base, slave, buffer + DUMP_BYTES);
        StandardSmbusWrite(base, SPD_PAGE1, 0, saved1);
    }
    StandardSmbusWrite(base, SPD_PAGE0, 0, saved0);
    return status;
}

int IsSpdAddress(uint8_t slave) {
    for (const uint8_t *known = gSpdAddrList; *known != 0xFF; ++known) {
        if (*known == (slave & 0xFE))
            return 1;
    }
    return 0;
}

static int ShowSmbusHelp() {
    Printf(" /SMBUS /RB 0xa0 0: Read 1-BYTE data from smbus 0xA0 offset 0\n");
    Printf(" /SMBUS /WB 0xa0 0 0xFF: Write 1-BYTE 0xFF to smbus 0xA0 offset 0\n");
    Printf(" /SMBUS /DUMP 0xa0: Dump datas from smbus 0xA0\n");
    Printf(" /SMBUS /S 0xA0 0xA8: Search valid smbus device from 0xA0 to 0xA8\n");
    return -1;
}

static int SmbusReadCommand(uint16_t base, uint8_t result) {
    uint16_t pos;
    if (!FindOneOf("RB", "RW", "RD", &pos))
        return result;
    uint8_t slave = static_cast<uint8_t>(CmdOperand(pos, 1));
    uint8_t offset = static_cast<uint8_t>(CmdOperand(pos, 2));
    if (StandardSmbusRead(base, slave, offset, &result) != EFI_SUCCESS) {
        Printf("Read addr 0x%02X offset 0x%02X error!\n", slave, offset);
        return -1;
    }
    Printf("SMBus read slave addr 0x%02X offset 0x%02X: 0x%02X\n", slave, offset, result);
    return result;
}

static int SmbusWriteCommand(uint16_t base, uint8_t result) {
    uint16_t pos;
    if (!FindOneOf("WB", "WW", "WD", &pos))
        return result;
    uint8_t slave = static_cast<uint8_t>(CmdOperand(pos, 1));
    uint8_t offset = static_cast<uint8_t>(CmdOperand(pos, 2));
    uint8_t data = static_cast<uint8_t>(CmdOperand(pos, 3));
    if (StandardSmbusWrite(base, slave, offset, data) != EFI_SUCCESS) {
        Printf("Write addr 0x%02X offset 0x%02X error!\n", slave, offset);
        return -1;
    }
    StandardSmbusRead(base, slave, offset, &data); // what was typed is shown when it cannot be read back
    Printf("SMBus write slave addr 0x%02X offset 0x%02X: 0x%02X\n", slave, offset, data);
    return data;
}

static bool DumpDdr4(uint16_t base, uint8_t slave, uint8_t *buffer) {
    HoldSignals(); // none may leave page 1 selected
    EFI_STATUS status = GetDDR4Spd(base, slave, buffer, DDR4_BYTES);
    ReleaseSignals();
    if (status != EFI_SUCCESS) {
        Printf("Dump (DDR4) addr 0x%02X error!\n", slave);
        return false;
    }
    Printf("Dump SMBus(DDR4) from slave address 0x%02X:\n", slave);
    gCmdArg->DispFlags |= DISP_LOG;
    DebugMsg(buffer, DDR4_BYTES);
    return true;
}

static bool DumpDevice(uint16_t base, uint8_t slave, uint8_t *buffer) {
    if (ReadPage(base, slave, buffer) != EFI_SUCCESS) {
        Printf("Dump addr 0x%02X error!\n", slave);
        return false;
    }
    Printf("Dump SMBus from slave address 0x%02X:\n", slave);
    DebugMsg(buffer, DUMP_BYTES);
    return true;
}

static int SmbusDumpCommand(uint16_t base, uint8_t result) {
    uint16_t pos;
    if (CmdSearchFromArgv(gCmdArg->Argv, "DUMP", &pos) != EFI_SUCCESS)
        return result;
    uint8_t slave = static_cast<uint8_t>(CmdOperand(pos, 1));
    bool isDdr4 = IsSpdAddress(slave) &&
                  StandardSmbusRead(base, slave, SPD_DEVICE_TYPE, &result) == EFI_SUCCESS &&
                  result == SPD_DDR4_SDRAM;
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(isDdr4 ? DDR4_BYTES : DUMP_BYTES));
    if (buffer == nullptr)
        return -1;
    bool shown = isDdr4 ? DumpDdr4(base, slave, buffer) : DumpDevice(base, slave, buffer);
    Free(buffer);
    return shown ? result : -1;
}

static int SmbusScanCommand(uint16_t base, uint8_t result) {
    uint16_t pos;
    if (CmdSearchFromArgv(gCmdArg->Argv, "S", &pos) != EFI_SUCCESS)
        return result;
    if (CmdArgText(pos, 2) == nullptr)
        return -1;
    uint8_t to = static_cast<uint8_t>(CmdOperand(pos, 2));
    for (uint32_t address = static_cast<uint8_t>(CmdOperand(pos, 1)); address <= to; address += 2) {
        IoDelay(SCAN_DELAY);
        if (StandardSmbusRead(base, static_cast<uint8_t>(address), 0, &result) == EFI_SUCCESS)
            Printf("Valid SMBus slave address 0x%02X(data:%02X).\n", address, result);
    }
    return result;
}

int SMBusEntryPoint() {
    constexpr uint8_t nothingRead = 0xFF;
    if (CmdHas(Flag::HELP))
        return ShowSmbusHelp();
    uint16_t base;
    if (!GetSMBusBaseAddress(&base))
        return -1;
    if (CmdHas(Flag::READ))
        return SmbusReadCommand(base, nothingRead);
    if (CmdHas(Flag::WRITE))
        return SmbusWriteCommand(base, nothingRead);
    if (CmdHas(Flag::DUMP))
        return SmbusDumpCommand(base, nothingRead);
    if (CmdHas(Flag::S))
        return SmbusScanCommand(base, nothingRead);
    return nothingRead;
}
