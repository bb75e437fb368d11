// The DesignWare I2C cores of AMD and Hygon fusion controller hubs, driven as polled masters at 100 kHz.
// Register names are those of the DW_apb_i2c databook.
#pragma once

#include "Base/Types.h"

constexpr uint32_t I2C_BUS_COUNT = 6;

// Physical addresses of the cores, by bus number.
extern const uint32_t I2cSdpAddressList[I2C_BUS_COUNT];

// A core and the transfer it is to make. Counts are what is still to be done.
struct I2cContext {
    uint32_t base;
    uint8_t *writeBuffer;
    uint32_t writeCount;
    uint8_t *readBuffer;
    uint32_t readCount;
    uint32_t totalCount; // write plus read
    uint32_t rxDepth;    // FIFO depths, 1..256
    uint32_t txDepth;
};

constexpr uint32_t I2C_FLAG_READ = 0x00000001;
constexpr uint32_t I2C_FLAG_SMBUS_PROCESS_CALL = 0x00040000; // not supported
constexpr uint32_t I2C_FLAG_SMBUS_PEC = 0x00080000;          // not supported

// UEFI PI 1.7, volume 5, 10.4 (EFI_I2C_REQUEST_PACKET), with room for two operations.
struct I2cOperation {
    uint32_t flags;
    uint32_t length; // bytes
    uint8_t *buffer;
};

struct I2cRequest {
    uint32_t count;
    I2cOperation operation[2];
};

// Readies the core of a bus (0..5) at 100 kHz. 0, 0x80000003 on another vendor's chipset, 0x80000002 for
// another bus number, 0x80000006 when the core does not disable.
EFI_STATUS I2cInit(uint32_t busNo, I2cContext *ctx);

// Programs IC_CON and the counts for *hz, which becomes the speed chosen: 100,000 or 400,000. 0, or
// 0x80000006 when the core does not disable.
EFI_STATUS SetBusFrequency(I2cContext *ctx, uint64_t *hz);

// Sets the 7-bit target address and enables the core, unless it is set already. 0, 0x80000006 or 0x80000007
// when the core does not disable or enable, 0x80000002 when the address does not read back.
EFI_STATUS I2cSetTarget(uint32_t slave, uint32_t base);

// The transfer that the context describes: a write phase, then a read phase, each left out when the total
// count is 0 before it. 0, 0x80000006 for a busy bus or a core that does not enable, 0x80000012 for a FIFO
// that does not move, 0x80000007 for an error on the bus.
EFI_STATUS I2cWriteRead(I2cContext *ctx);

// Carries out a request: a read, a write, or two operations of which the second is a read (the first is then
// written). A target that cannot be set ends it at once; after a transfer, failed or not, the core is
// disabled and the context holds none of the buffers. 0, 0x80000003 for flags or lengths that are not
// supported, 0x80000002 for another shape, 0x80000007 without a target, or the transfer's status.
EFI_STATUS I2cAccess(I2cContext *ctx, uint32_t slave, I2cRequest *req);

// The same, under the name that an I2C protocol gives it.
EFI_STATUS StartRequest(I2cContext *ctx, uint32_t slave, I2cRequest *req);

// A 16-bit register of a device, low byte first; out receives 2 bytes. The request's status.
EFI_STATUS I2CWrite(I2cContext *ctx, uint32_t slave, uint8_t offset, uint16_t data);
EFI_STATUS I2CRead(I2cContext *ctx, uint32_t slave, uint8_t offset, uint8_t *out);

// What the wait for an idle master gives in place of a status.
constexpr EFI_STATUS I2C_BUS_BUSY = 1;

// Waits, each with a bound; 0 when the condition came true. Master idle: else I2C_BUS_BUSY. Transmit FIFO
// empty, count bytes received, enabled bit different from state (1 waits for disabled): else 0x80000012.
EFI_STATUS I2cDwWaitBusNotBusy(uint32_t base);
EFI_STATUS I2cDwWaitTxData(uint32_t base);
EFI_STATUS I2cDwWaitRxData(uint32_t base, uint32_t count);
EFI_STATUS I2cDwWaitI2cEnable(uint32_t base, uint32_t state);

// Clears what the core reports; 0 without an error, else the error bits with the core disabled and its target
// taken back.
uint32_t I2cDwCheckErrors(uint32_t base);
