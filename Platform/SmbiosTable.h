// The SMBIOS structure table (DMTF DSP0134): finding it and walking it.
//
// A copy of the table is followed by SMBIOS_GUARD zero bytes, and a walk over it ends where the copy ends, as
// if an end-of-table structure stood there: no walk and no view leaves the block, whatever the table says. A
// caller's own table must have its end-of-table structure. Procedures that walk from a bare pointer
// ask whether it lies in one of the last 16 copies that were loaded.
//
// No command reaches: SmbiosTableAround, GetTotalStructureSize, SearchSmbiosType, GetCPUSpeedSmb,
// GetCpuCurrentSpeed.
#pragma once

#include "Base/Types.h"

// A formatted part (255 bytes at most) that runs out of the table, its terminator and the next header fit,
// and so does a dump page that begins inside the table.
constexpr uint32_t SMBIOS_GUARD = 512;

// A table in memory, from its first byte to behind its last. end is NULL where only its own end-of-table
// structure tells it.
struct SmbiosTable {
    const uint8_t *begin;
    const uint8_t *end;
};

// Where an entry point (DSP0134, 5.2) keeps what is used of it.
struct SmbiosEntryLayout {
    uint32_t size;
    uint32_t lengthOffset;  // u16; of the 64-bit form's u32 the low half
    uint32_t addressOffset; // u32; of the 64-bit form's u64 the low half
    uint32_t majorOffset;
    uint32_t anchorOffset; // intermediate anchor
};

// "_SM_" and "_SM3_".
extern const SmbiosEntryLayout gSmbiosEntry32, gSmbiosEntry64;

constexpr uint8_t SMBIOS_TYPE_END = 127;

// Copies the table into a heap block (the caller releases it with ReleaseTable), length without the guard. 0,
// or the status of GetFwTableLinux with *table NULL.
EFI_STATUS LoadSmbios(uint8_t **table, uint32_t *length);

// The same: through the entry point that the firmware's table file names ("/sys/firmware/efi/systab", then
// "/proc/efi/systab"), or, when neither can be opened, by the legacy way. 0, or 0x8000000E.
EFI_STATUS GetFwTableLinux(uint8_t **table, uint32_t *length);

// The entry point that a line "NAME=ADDRESS" of that file names, and its layout; NULL for any other line. The
// line is cut at the "=".
const SmbiosEntryLayout *SmbiosOfSystabLine(char *line, uint32_t *entryPoint);

// Looks for an entry point (DSP0134, 5.2) in 0xF0000-0xFFFFF, "_SM3_" before "_SM_", and copies it into a
// heap block that the caller frees. version is the major version (a "_SM_" never gives more than 2).
// Checksums are not verified. 0, 0x80000002 for a NULL output, 0x8000000E without one, 0x80000009 without
// memory.
EFI_STATUS GetSmbiosVersion(uint8_t **entryPoint, uint8_t *version);

// Address and length of the table as that entry point says. 0, or its status.
EFI_STATUS LegacySmbiosStructTableAddress(uint32_t *address, uint16_t *length);

// Copies the table of that entry point, from the 64 KiB boundary below its address on, which is intended: the
// offsets that /SMBIOS /S prints count from there. 0, 0x80000015 without an entry point, 0x80000009 without
// memory; the outputs are then 0.
EFI_STATUS LoadLegacySmbiosTypes(uint8_t **table, uint32_t *length);

// Frees such a copy; the walks no longer take what lies there for one.
void ReleaseTable(uint8_t *table);

// The loaded copy in which a structure begins, its guard included; any other table is the caller's own, from
// that structure on.
SmbiosTable SmbiosTableAround(const uint8_t *structure);

// True for the end-of-table structure and where the table has ended without one.
bool IsSmbiosEnd(SmbiosTable table, const uint8_t *structure);

// As SearchSmbiosType, within the table.
const uint8_t *FindSmbiosType(SmbiosTable table, const uint8_t *start, uint8_t type);

// Bytes of a structure with its strings and their double zero.
uint32_t GetStructureLength(const uint8_t *structure);

// Sum of all structures up to the end-of-table structure and with it, modulo 0x10000.
uint16_t GetTotalStructureSize(const uint8_t *table);

// The first structure of the type from start on; NULL when the end comes first. Type 127 finds the
// end-of-table structure itself.
const uint8_t *SearchSmbiosType(const uint8_t *start, uint8_t type);

// The first processor structure (type 4; DSP0134, 7.5): the word at 16h, current speed, in the high and the
// word at 14h, maximum speed, in the low 16 bits, MHz; 0xFFFFFFFF without a table or such a structure.
uint32_t GetCPUSpeedSmb();

// The high half of GetCPUSpeedSmb, MHz; 0xFFFF when it is not known.
uint16_t GetCpuCurrentSpeed();
