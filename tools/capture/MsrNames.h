// The MSRs that a capture reads by itself: architectural ones and those of chipsets, none of which does
// anything when it is read (Intel SDM volume 4; AMD64 APM volume 2, appendix A; AMD PPR for family
// 17h, 2.1.14).
#pragma once

#include <cstdint>

enum MsrMaker : uint8_t { MSR_BOTH, MSR_INTEL, MSR_AMD };

struct MsrName {
    uint32_t index;
    MsrMaker maker;
    const char *name; // NULL ends the table
};

// Ascending.
extern const MsrName gMsrNames[];

// The protected processor inventory numbers, which are serial numbers.
constexpr uint32_t MSR_PPIN = 0x4F;
constexpr uint32_t MSR_AMD_PPIN = 0xC00102F1;

// Machine-check capabilities, whose low byte counts the banks, and the first of each bank's four registers.
constexpr uint32_t MSR_MCG_CAP = 0x179;
constexpr uint32_t MSR_MC0_CTL = 0x400;
