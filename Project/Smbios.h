// The /SMBIOS command.
//
// No command reaches: ShowSmbiosTargetType, ShowSmbiosAllType.
#pragma once

#include "Base/Types.h"

// Shows each structure of the type in the hex view until ESC. A NULL table is loaded (0x8000000F when that
// fails). 0 after ESC, 0x8000000E when no structure of the type is left.
EFI_STATUS ShowSmbiosTargetType(const uint8_t *table, uint8_t type);

// Shows every structure but the end-of-table one with a line of its own, until ESC. 0, or 0x8000000F when a
// NULL table cannot be loaded.
EFI_STATUS ShowSmbiosAllType(const uint8_t *table);

// Handler of /SMBIOS: lists, shows, dumps or searches the structures. 0; 0x80000002 after the help,
// 0x80000007 without a table, 0x8000000E for a text that is not there, 0x80000009 without memory for the
// search.
EFI_STATUS SmbiosEntry();
