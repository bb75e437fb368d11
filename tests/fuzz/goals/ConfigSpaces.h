// Made-up configuration spaces behind the ports of configuration mechanism 1 and behind the memory-mapped
// window.
#pragma once

#include <stdint.h>

#include "Goal.h"

constexpr uint32_t MOST_FUNCTIONS = 4;
constexpr uint32_t FUNCTION_BYTES = 0x1000;
constexpr uint32_t WINDOW_BASE = 0xE0000000;

struct ConfigFunction {
    uint16_t bus, dev, fun;
    uint8_t bytes[FUNCTION_BYTES];
};

// The host bridge is the first one.
struct ConfigSpaces {
    uint32_t count;
    ConfigFunction functions[MOST_FUNCTIONS];
    uint32_t address;  // that was written to CF8h
    uint32_t accesses; // of data
    bool hasWindow;
};
extern ConfigSpaces gSpaces;

// Functions with the bytes that the input has, behind a host bridge of one of the makers whose window stands
// at WINDOW_BASE; starts the machine that has them.
void StartSpaces(Input *input);

// The function, or null.
ConfigFunction *FunctionAt(uint32_t bus, uint32_t dev, uint32_t fun);

// What an access reads: the space's bytes, ones where there is no function.
uint32_t SpaceRead(const ConfigFunction *function, uint32_t offset, unsigned width);

// The ports, for a machine that has more.
uint32_t SpacesReadPort(uint16_t port, unsigned width);
void SpacesWritePort(uint16_t port, unsigned width, uint32_t value);
