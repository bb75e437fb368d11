// Ports of the I/O space (Intel SDM volume 1, chapter 19). Every access is exactly one in or out
// instruction of its width; a port number is used modulo 0x10000. The driver must be open: without I/O
// privilege the instruction faults the process.
#pragma once

#include <cstdint>

constexpr uint32_t LAST_PORT = 0xFFFF;

// The instructions themselves; the value comes before the port. Reads are zero-extended. outb returns the
// value masked to 8 bits, outl the value.
uint32_t inb(uint32_t port);
uint32_t inw(uint32_t port);
uint32_t inl(uint32_t port);
uint32_t outb(uint32_t value, uint32_t port);
void outw(uint32_t value, uint32_t port);
uint32_t outl(uint32_t value, uint32_t port);

// The layer that commands use; the port comes before the value, and values are cut to the width.
uint32_t IoRead8(uint32_t port);
uint32_t IoRead16(uint32_t port);
uint32_t IoRead32(uint32_t port);
void IoWrite8(uint32_t port, uint32_t value);
void IoWrite16(uint32_t port, uint32_t value);
void IoWrite32(uint32_t port, uint32_t value);

// Writes 0 to port 0xED count times. No device answers there on PC chipsets, and a write takes about a
// microsecond: count is a delay in such units.
void IoDelay(uint32_t count);
