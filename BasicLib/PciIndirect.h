// Index/data register pairs inside PCI configuration space.
#pragma once

#include <cstdint>

// An index/data pair inside configuration space: the index value, cut to the width, is written to
// indexOffset, then dataOffset is read into or written from buffer. Another width prints an assertion.
void PciIndirectRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                     uint16_t dataOffset, uint32_t index, void *buffer);
void PciIndirectWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                      uint16_t dataOffset, uint32_t index, const void *buffer);
