// Comparing and copying identifiers.
//
// No command reaches: EFI_CmpGuid, EFI_SetGuid.
#pragma once

#include "Base/Types.h"

// True when both are given and all 16 bytes are equal.
bool EFI_CmpGuid(const EFI_GUID *a, const EFI_GUID *b);

// Copies 16 bytes. 1, or 0 when either is NULL.
int EFI_SetGuid(EFI_GUID *destination, const EFI_GUID *source);
