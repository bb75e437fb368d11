#include "Platform/SmbusHost.h"

#include "BasicLib/Chipset.h"
#include "BasicLib/PciConfig.h"
#include "BasicLib/PortIo.h"
#include "Common/ComFunc/Signals.h"
#include "Platform/AmdReg.h"
#include "Platform/PciFind.h"

constexpr uint16_t CLASS_SMBUS = 0x0C05;
constexpr uint32_t COMMAND_IO = 0x01;

// Where the block stands: Intel's in the function's fifth base address register, AMD's in the first two of
// the power-management registers, whose low byte holds other things.
constexpr uint16_t INTEL_SMB_BASE = 0x20;
constexpr uint32_t INTEL_SMB_BASE_MASK = ~0x1Fu;
constexpr uint8_t AMD_PM_SMBUS_BASE = 0x00;
constexpr uint16_t AMD_SMBUS_BASE_MASK = 0xFF00;

// Registers, as offsets from the block's base. Status bits are cleared by writing ones; they must be clear
// before a transaction starts, or its end is not seen. Address, command and data keep their values, so a
// transaction is these and then the start bit.
constexpr uint16_t HST_STS = 0x00;
constexpr uint16_t HST_CNT = 0x02;
constexpr uint16_t HST_CMD = 0x03;
constexpr uint16_t XMIT_SLVA = 0x04;
constexpr uint16_t HST_D0 = 0x05;

constexpr uint8_t STS_CLEAR_ALL = 0xFF;
constexpr uint8_t STS_DEV_ERR = 0x04;
constexpr uint8_t STS_ENDED = 0x0E; // done, device error or bus error
constexpr uint8_t STS_FAILED = 0x10;
constexpr uint8_t CNT_START_BYTE_DATA = 0x48; // START, and byte data as the protocol
constexpr uint8_t CNT_KILL = 0x02;
constexpr uint8_t CNT_AFTER_FAILURE = 0x81; // PEC_EN and INTREN, without KILL: the host is free again
constexpr uint32_t POLL_LIMIT = 0xFFFFF; // two delay units each: some seconds; a slave may stretch the clock

int GetSMBusBaseAddress(uint16_t *base) {
    const Chipset *chipset = ThisChipset();
    uint16_t bus;
    uint16_t dev;
    uint16_t fun;
    if (!SourchPciControllerByClass(&bus, &dev, &fun, CLASS_SMBUS))
        return 0;
    uint32_t command = PciRead32(bus, dev, fun, PCI_COMMAND);
    if ((command & COMMAND_IO) == 0)
        PciWrite32(bus, dev, fun, PCI_COMMAND, command | COMMAND_IO);
    if (chipset->smbusBlock == HOME_PCI)
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
// device error; a bus error ends the wait and counts as no failure. Intended: a scan lists such an address
// with the byte that the host holds, and does not hide it.
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

EFI_STATUS SmbusReadPage(uint16_t base, uint8_t slave, uint8_t *buffer) {
    for (uint32_t i = 0; i < SMBUS_PAGE_BYTES; ++i) {
        EFI_STATUS status = StandardSmbusRead(base, slave, static_cast<uint8_t>(i), buffer + i);
        if (status != EFI_SUCCESS)
            return status;
    }
    return EFI_SUCCESS;
}
