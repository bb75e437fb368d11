// The display's EDID block. This platform has no source for it, and no switch word leads here.
//
// No command reaches: GetEdidByLinux, EdidEntry.
#pragma once

#include "Base/Types.h"

// Where an EDID source for this platform belongs: a heap block (freed by the caller) and its length. Always
// 0x80000003, with the outputs untouched.
EFI_STATUS GetEdidByLinux(uint8_t **buffer, uint32_t *length);

// Shows the EDID block without pauses. The status of GetEdidByLinux, or 0x80000002 after the help.
EFI_STATUS EdidEntry();
