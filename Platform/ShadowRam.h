// The BIOS shadow region, 0xE0000-0xFFFFF: read-only after boot, and what opens it for writing.
//
// No command reaches: ShadowRamWrite.
#pragma once

// Makes the DRAM behind the region readable and writable (enable non-zero) or puts the previous mapping back,
// by the chipset vendor's means; another vendor's chipset is left alone. To be called as a pair within one
// process. Always 1.
int ShadowRamWrite(int enable);
