// The memory-mapped window of PCI configuration space: where hwreg takes it to be, and where it is.
#pragma once

#include <cstdint>

enum WindowState : uint8_t {
    WINDOW_RIGHT,
    WINDOW_WRONG,       // extended registers are read from, and written to, something else
    WINDOW_NO_REGISTER, // hwreg knows none for this chipset: extended registers read all ones
    WINDOW_UNKNOWN,     // it cannot be told
};

struct ConfigWindow {
    WindowState state;
    uint32_t base;         // as hwreg computes it; 0 where it is not known
    int firstBus, lastBus; // that the true window holds; -1 where there is none
    uint64_t trueBase;     // of bus 0; 0 where there is none, or it is not known
};

// Looks for it; notes it. BasicLib's window stands at base from then on.
void FindWindow();

// What FindWindow has found; never NULL.
const ConfigWindow *Window();
