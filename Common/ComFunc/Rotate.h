// Rotation of a value in place.
//
// No command reaches: LoopShiftRight, LoopShiftLeft.
#pragma once

#include <cstdint>

// Rotates the value of size code 1 (8 bits), 2 (16 bits) or 3 (32 bits) by count bit positions, modulo its
// width. 1, or 0 with nothing changed for a NULL pointer or another size code.
int LoopShiftRight(void *value, uint8_t size, uint32_t count);
int LoopShiftLeft(void *value, uint8_t size, uint32_t count);
