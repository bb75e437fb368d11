// Clock counts of the DesignWare I2C core (DW_apb_i2c databook, IC_CLK frequency configuration).
#pragma once

#include <cstdint>

// Counts of the high and low period: the clock in kHz, times in units of 0.1 us. cond chooses the formula
// without the fall time.
uint32_t i2c_dw_scl_hcnt(uint32_t ic_clk, uint32_t tSYMBOL, uint32_t tf, int cond, int offset);
uint32_t i2c_dw_scl_lcnt(uint32_t ic_clk, uint32_t tLOW, uint32_t tf, int offset);
