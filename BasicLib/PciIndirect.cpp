#include "BasicLib/PciIndirect.h"

#include "Base/Memory.h"
#include "BasicLib/PciPorts.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/Place.h"
#include "Common/Sprint.h"

static bool IsWidth(uint8_t width) {
    return width >= PCI_WIDTH_8 && width <= PCI_WIDTH_32;
}

// Writes the index and returns the width in bytes.
static uint32_t WriteIndex(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                           uint32_t index) {
    uint32_t bytes = 1u << (width - 1);
    Place at = PciPlace(bus, dev, fun, offset);
    WritePlace(&at, bytes, index);
    return bytes;
}

void PciIndirectRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                     uint16_t dataOffset, uint32_t index, void *buffer) {
    if (!IsWidth(width)) {
        PrintAssert(BASIC_LIB_SOURCE, 1046, "FALSE");
        return;
    }
    uint32_t bytes = WriteIndex(width, bus, dev, fun, indexOffset, index);
    Place data = PciPlace(bus, dev, fun, dataOffset);
    uint32_t value = ReadPlace(&data, bytes);
    if (buffer != nullptr)
        Memcpy(buffer, &value, bytes);
}

void PciIndirectWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                      uint16_t dataOffset, uint32_t index, const void *buffer) {
    if (!IsWidth(width)) {
        PrintAssert(BASIC_LIB_SOURCE, 1080, "FALSE");
        return;
    }
    uint32_t bytes = WriteIndex(width, bus, dev, fun, indexOffset, index);
    if (buffer == nullptr)
        return;
    uint32_t value = 0;
    Memcpy(&value, buffer, bytes);
    Place data = PciPlace(bus, dev, fun, dataOffset);
    WritePlace(&data, bytes, value);
}
