#include "Platform/DwI2cTiming.h"

// The clock in kHz times a time in 0.1 us gives counts times this.
constexpr uint32_t COUNT_DIVISOR = 10000;

static uint32_t ToCount(uint32_t clockKhz, uint32_t time) {
    return (clockKhz * time + COUNT_DIVISOR / 2) / COUNT_DIVISOR;
}

// What the core adds by itself is taken off: 1 clock of the low period, 8 of the high one, or 3 where the
// fall time is counted in.
uint32_t i2c_dw_scl_hcnt(uint32_t ic_clk, uint32_t tSYMBOL, uint32_t tf, int cond, int offset) {
    uint32_t symbol = cond != 0 ? tSYMBOL : tSYMBOL + tf;
    uint32_t overhead = cond != 0 ? 8 : 3;
    return ToCount(ic_clk, symbol) - overhead + static_cast<uint32_t>(offset);
}

uint32_t i2c_dw_scl_lcnt(uint32_t ic_clk, uint32_t tLOW, uint32_t tf, int offset) {
    return ToCount(ic_clk, tLOW + tf) - 1 + static_cast<uint32_t>(offset);
}
