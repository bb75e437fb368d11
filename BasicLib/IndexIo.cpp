#include "BasicLib/IndexIo.h"

#include "BasicLib/PortIo.h"

static void SelectIndex(uint32_t indexPort, uint32_t index) {
    IoDelay(2);
    if (index < 0x100)
        IoWrite8(indexPort, index);
    else if (index < 0x10000)
        IoWrite16(indexPort, index);
    else
        IoWrite32(indexPort, index);
}

uint32_t IoIndexRead8(uint32_t indexPort, uint32_t dataPort, uint32_t index) {
    SelectIndex(indexPort, index);
    return IoRead8(dataPort);
}

uint32_t IoIndexRead16(uint32_t indexPort, uint32_t dataPort, uint32_t index) {
    SelectIndex(indexPort, index);
    return IoRead16(dataPort);
}

uint32_t IoIndexRead32(uint32_t indexPort, uint32_t dataPort, uint32_t index) {
    SelectIndex(indexPort, index);
    return IoRead32(dataPort);
}

void IoIndexWrite8(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value) {
    SelectIndex(indexPort, index);
    IoWrite8(dataPort, value);
}

void IoIndexWrite16(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value) {
    SelectIndex(indexPort, index);
    IoWrite16(dataPort, value);
}

void IoIndexWrite32(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value) {
    SelectIndex(indexPort, index);
    IoWrite32(dataPort, value);
}

// count consecutive byte registers, the highest first.
static uint32_t ReadBytes(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t count) {
    uint32_t value = 0;
    while (count > 0) {
        --count;
        value = (value << 8) | IoIndexRead8(indexPort, dataPort, index + count);
    }
    return value;
}

static void WriteBytes(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value,
                       uint32_t count) {
    while (count > 0) {
        --count;
        IoIndexWrite8(indexPort, dataPort, index + count, (value >> (8 * count)) & 0xFF);
    }
}

uint32_t LegacyIoIndexRead8(uint32_t indexPort, uint32_t dataPort, uint32_t index) {
    return ReadBytes(indexPort, dataPort, index, 1);
}

uint32_t LegacyIoIndexRead16(uint32_t indexPort, uint32_t dataPort, uint32_t index) {
    return ReadBytes(indexPort, dataPort, index, 2);
}

uint32_t LegacyIoIndexRead32(uint32_t indexPort, uint32_t dataPort, uint32_t index) {
    return ReadBytes(indexPort, dataPort, index, 4);
}

void LegacyIoIndexWrite8(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value) {
    WriteBytes(indexPort, dataPort, index, value, 1);
}

void LegacyIoIndexWrite16(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value) {
    WriteBytes(indexPort, dataPort, index, value, 2);
}

void LegacyIoIndexWrite32(uint32_t indexPort, uint32_t dataPort, uint32_t index, uint32_t value) {
    WriteBytes(indexPort, dataPort, index, value, 4);
}
