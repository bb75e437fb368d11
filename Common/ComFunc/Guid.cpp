#include "Common/ComFunc/Guid.h"

#include "Base/Memory.h"

bool EFI_CmpGuid(const EFI_GUID *a, const EFI_GUID *b) {
    return a != nullptr && b != nullptr && Memcmp(a, b, sizeof(EFI_GUID)) == 0;
}

int EFI_SetGuid(EFI_GUID *destination, const EFI_GUID *source) {
    if (destination == nullptr || source == nullptr)
        return 0;
    Memcpy(destination, source, sizeof(EFI_GUID));
    return 1;
}
