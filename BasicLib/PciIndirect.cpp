#include "BasicLib/PciIndirect.h"

#include "Base/Memory.h"
#include "BasicLib/PciPorts.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/Place.h"
#include "Common/Sprint.h"

// Writes the index of a pair in its width and returns that in bytes; 0 after an assertion for another width.
static uint32_t SelectIndex(uint8_t width, const Place *at, uint32_t index, unsigned assertLine) {
    uint32_t bytes = PciWidthBytes(width);
    if (bytes == 0)
        PrintAssert(BASIC_LIB_SOURCE, assertLine, "FALSE");
    else
        WritePlace(at, bytes, index);
    return bytes;
}

void PciIndirectRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                     uint16_t dataOffset, uint32_t index, void *buffer) {
    Place at = PciPlace(bus, dev, fun, indexOffset);
    uint32_t bytes = SelectIndex(width, &at, index, 1046);
    if (bytes == 0)
        return;
    at.offset = dataOffset;
    uint32_t value = ReadPlace(&at, bytes);
    if (buffer != nullptr)
        Memcpy(buffer, &value, bytes);
}

void PciIndirectWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                      uint16_t dataOffset, uint32_t index, const void *buffer) {
    Place at = PciPlace(bus, dev, fun, indexOffset);
    uint32_t bytes = SelectIndex(width, &at, index, 1080);
    if (bytes == 0 || buffer == nullptr)
        return;
    uint32_t value = 0;
    Memcpy(&value, buffer, bytes);
    at.offset = dataOffset;
    WritePlace(&at, bytes, value);
}
