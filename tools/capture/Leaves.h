// The CPUID leaves of all processors.
#pragma once

#include <cstdint>

// Puts the basic, hypervisor and extended leaves with their subleaves; what processors differ in with a list
// of them.
void CaptureLeaves();
