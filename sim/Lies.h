// Devices that lie: HWBOARD_LIES="SEED [READS]" has values that are read from ports, device memory and MSRs
// come out wrong now and then, drawn from the seed alone, so that a run is like any other with it.
#pragma once

#include <stddef.h>
#include <stdint.h>

void LiesFromEnvironment();

enum LieSpace { LIE_PORT, LIE_MEMORY, LIE_MSR };

// What the program gets in place of a value of so many bytes that it reads at a place.
uint64_t LieOr(LieSpace space, uint64_t place, unsigned width, uint64_t value);

// How many of these bytes a read of a device file gives.
size_t LieLength(size_t count);
