// The logical CPUs that are on.
#pragma once

#include <cstdint>

constexpr uint32_t MOST_CPUS = 32768; // an MSR node's number is a signed 16-bit one

// True when a CPU is on, as the kernel says; without that, when this process may run on it.
bool IsOnline(uint32_t cpu);

// One more than the highest number of those that are there, whether on or off.
uint32_t CpuEnd();
