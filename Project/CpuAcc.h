// The /MSR and /CPUID commands. The record they take is the run's own, gCmdArg.
#pragma once

#include "Base/Types.h"
#include "Common/Global.h"

// Handler of /MSR and /CPUID; /MSR wins. The low half of the MSR, EAX, or 0x80000002.
EFI_STATUS CpuAccEntry();

// Reads or writes one 64-bit MSR on one CPU, or on every CPU in turn (a word "ALL" or "A"). The low 32 bits
// of the last value read back, or 0x80000002 without an access word.
uint32_t RWMsr64(const CmdArg *record);

// The accesses and report lines of RWMsr64. cpu is the CPU number, or the count of CPUs when all is
// non-zero. *high and *low go in as the value to write and come back as the value read; on to the next CPU
// goes what the last one returned. 0, or 0x80000002 for a NULL pointer.
EFI_STATUS MsrAccess(const CmdArg *record, uint8_t all, int16_t cpu, uint32_t index, uint32_t *high,
                     uint32_t *low);

// Prints one CPUID leaf. EAX, or 0x80000002 without a read word.
uint32_t CpuId(const CmdArg *record);
