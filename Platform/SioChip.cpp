#include "Platform/SioChip.h"

#include "BasicLib/IndexIo.h"
#include "BasicLib/PortIo.h"

constexpr uint8_t SIO_KEY_ENTER = 0xA5;
constexpr uint8_t SIO_KEY_EXIT = 0xAA;
constexpr uint32_t SIO_LDN = 0x07; // selects the logical device whose registers stand from 30h on

void UnlockSIO() {
    IoWrite8(SIO_INDEX, SIO_KEY_ENTER);
    IoWrite8(SIO_INDEX, SIO_KEY_ENTER);
}

void LockSIO() {
    IoWrite8(SIO_INDEX, SIO_KEY_EXIT);
}

void GetSIO2Buffer(uint8_t *buffer, uint8_t device) {
    IoIndexWrite8(SIO_INDEX, SIO_DATA, SIO_LDN, device);
    for (uint32_t reg = 0; reg < SIO_REGISTERS; ++reg)
        buffer[reg] = static_cast<uint8_t>(IoIndexRead8(SIO_INDEX, SIO_DATA, reg));
}
