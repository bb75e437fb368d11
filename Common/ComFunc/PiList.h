// A small list of interfaces by identifier.
//
// No command reaches: InstallPiList, UninstallPiList, LocatePiList, InstallMutiplePiList,
// UninstallMutiplePiList.
#pragma once

#include "Base/Types.h"

constexpr size_t PI_LIST_SIZE = 16;

struct PiEntry {
    uint32_t id;
    void *interface; // NULL ends the list
};

// Packed from the front.
extern PiEntry gPiList[PI_LIST_SIZE];

// Appends an entry; an identifier that is there already keeps its pointer. 0, or 0x80000009 when all 16
// places are taken.
EFI_STATUS InstallPiList(uint32_t id, void *interface);

// Removes the entry with this identifier and pointer and closes the gap. 0, or 0x8000000E without it.
EFI_STATUS UninstallPiList(uint32_t id, void *interface);

// The pointer with this identifier. 0, or 0x8000000E with *interface untouched.
EFI_STATUS LocatePiList(uint32_t id, void **interface);

// Pairs of uint32_t identifier and void * pointer, ended by a zero identifier or a NULL pointer; installed
// (removed) in turn until one fails. 0x80000002 for an empty list, else 0, also after a failure.
EFI_STATUS InstallMutiplePiList(uint32_t first, ...);
EFI_STATUS UninstallMutiplePiList(uint32_t first, ...);
