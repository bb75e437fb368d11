// 64-bit arithmetic in the named form that firmware code uses.
//
// No command reaches: LShiftU64, RShiftU64, MultU64x32.
#pragma once

#include <cstdint>

// value shifted left (right, filling with 0) by count modulo 64 bits.
uint64_t LShiftU64(uint64_t value, unsigned count);
uint64_t RShiftU64(uint64_t value, unsigned count);

// Low 64 bits of the product.
uint64_t MultU64x32(uint64_t a, uint32_t b);
