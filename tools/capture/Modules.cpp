#include "tools/capture/Modules.h"

#include <cstdint>
#include <cstdio>

#include "BasicLib/IndexIo.h"
#include "Common/ComFunc/Signals.h"
#include "Platform/SioChip.h"
#include "Platform/SmbusHost.h"
#include "Platform/Spd.h"
#include "tools/capture/Options.h"
#include "tools/capture/Pci.h"
#include "tools/capture/Serials.h"
#include "tools/capture/Sheet.h"

constexpr uint32_t LOGICAL_DEVICES = 0x20;
constexpr uint32_t FIRST_DEVICE_REGISTER = 0x30;
constexpr uint32_t SIO_LOGICAL_DEVICE = 0x07;
constexpr uint32_t SIO_CHIP_ID = 0x20;
constexpr uint32_t EXIT_KEY = 0xAA;
constexpr uint8_t FIRST_MODULE = 0xA0;
constexpr uint8_t LAST_MODULE = 0xAE;
constexpr uint8_t SPD_TYPE = 2;

static uint8_t mRegisters[LOGICAL_DEVICES][SIO_REGISTERS];

static bool HasOneByte(const uint8_t *bytes, uint32_t length) {
    for (uint32_t i = 1; i < length; ++i) {
        if (bytes[i] != bytes[0])
            return false;
    }
    return true;
}

// Reads all devices while signals are held: none may leave the chip unlocked. True when the chip takes the
// exit key at its index port, and so has no register behind it.
static bool ReadSuperIo(uint8_t globals[FIRST_DEVICE_REGISTER]) {
    HoldSignals();
    UnlockSIO();
    uint8_t device = static_cast<uint8_t>(IoIndexRead8(SIO_INDEX, SIO_DATA, SIO_LOGICAL_DEVICE));
    for (uint32_t reg = 0; reg < FIRST_DEVICE_REGISTER; ++reg)
        globals[reg] = static_cast<uint8_t>(IoIndexRead8(SIO_INDEX, SIO_DATA, reg));
    bool exits = false;
    for (uint32_t i = 0; i < LOGICAL_DEVICES && globals[SIO_CHIP_ID] != 0xFF; ++i) {
        GetSIO2Buffer(mRegisters[i], static_cast<uint8_t>(i));
        exits = IoIndexRead8(SIO_INDEX, SIO_DATA, SIO_CHIP_ID) != globals[SIO_CHIP_ID];
        if (exits)
            UnlockSIO();
    }
    if (globals[SIO_CHIP_ID] != 0xFF)
        IoIndexWrite8(SIO_INDEX, SIO_DATA, SIO_LOGICAL_DEVICE, device);
    LockSIO();
    ReleaseSignals();
    return exits;
}

static void PutDevice(uint32_t device, uint32_t end) {
    const uint8_t *registers = mRegisters[device];
    if (HasOneByte(registers + FIRST_DEVICE_REGISTER, end - FIRST_DEVICE_REGISTER))
        return; // nobody there: ones, or the zeros that some chips have in that place
    char keyword[32];
    snprintf(keyword, sizeof(keyword), "superio-device %02x", device);
    PutBytes(keyword, FIRST_DEVICE_REGISTER, registers + FIRST_DEVICE_REGISTER, end - FIRST_DEVICE_REGISTER,
             true);
}

void CaptureSuperIo() {
    uint8_t globals[FIRST_DEVICE_REGISTER] = {};
    Progress("Super I/O");
    bool exits = ReadSuperIo(globals);
    if (HasOneByte(globals, sizeof(globals)) || globals[SIO_CHIP_ID] == 0xFF) {
        Put("# missing: superio: nobody answers behind port 4e\n");
        return;
    }
    Put("superio 4e a5 a5%s\n", exits ? " aa" : "");
    PutBytes("superio-global", 0, globals, sizeof(globals), true);
    for (uint32_t device = 0; device < LOGICAL_DEVICES; ++device)
        PutDevice(device, exits ? EXIT_KEY : SIO_REGISTERS);
}

// Modules of two pages, by the type in byte 2 (JESD21-C, annex L; JESD400-5 has those of one).
static bool HasTwoPages(uint8_t type) {
    return type == 0x0C || type == 0x0E || type == 0x10 || type == 0x11;
}

static void CaptureModule(uint16_t base, uint8_t address) {
    uint8_t bytes[DDR4_SPD_BYTES] = {};
    uint8_t type = 0;
    if (StandardSmbusRead(base, address, SPD_TYPE, &type) != EFI_SUCCESS)
        return;
    bool pages = HasTwoPages(type);
    EFI_STATUS status =
        pages ? GetDDR4Spd(base, address, bytes, DDR4_SPD_BYTES) : SmbusReadPage(base, address, bytes);
    uint32_t length = pages ? DDR4_SPD_BYTES : SMBUS_PAGE_BYTES;
    if (status != EFI_SUCCESS)
        Put("# missing: bytes of the module at %02x: it has stopped to answer\n", address);
    if (gOptions.noSerials)
        HideModuleSerial(bytes, length);
    Put("%s %02x\n", pages ? "smbus-spd" : "smbus-eeprom", address);
    PutBytes("  smbus-bytes", 0, bytes, length, true);
}

void CaptureModules() {
    uint16_t base = 0;
    if (!HasSmbusHost() || !GetSMBusBaseAddress(&base) || base == 0) {
        Put("# missing: spd: no SMBus host\n");
        return;
    }
    for (uint32_t address = FIRST_MODULE; address <= LAST_MODULE; address += 2) {
        Progress("memory modules");
        CaptureModule(base, static_cast<uint8_t>(address));
    }
}
