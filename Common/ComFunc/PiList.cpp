#include "Common/ComFunc/PiList.h"

#include "Base/ArgList.h"

PiEntry gPiList[PI_LIST_SIZE];

// Place of the entry with this identifier, or of the list's end.
static size_t PlaceOf(uint32_t id) {
    size_t i = 0;
    while (i < PI_LIST_SIZE && gPiList[i].interface != nullptr && gPiList[i].id != id)
        ++i;
    return i;
}

static bool IsEntry(size_t place) {
    return place < PI_LIST_SIZE && gPiList[place].interface != nullptr;
}

EFI_STATUS InstallPiList(uint32_t id, void *interface) {
    size_t place = PlaceOf(id);
    if (IsEntry(place))
        return EFI_SUCCESS;
    if (place == PI_LIST_SIZE)
        return EFI_OUT_OF_RESOURCES;
    gPiList[place] = {id, interface};
    if (place + 1 < PI_LIST_SIZE)
        gPiList[place + 1] = {0, nullptr};
    return EFI_SUCCESS;
}

EFI_STATUS UninstallPiList(uint32_t id, void *interface) {
    size_t place = PlaceOf(id);
    if (!IsEntry(place) || gPiList[place].interface != interface)
        return EFI_NOT_FOUND;
    for (; place + 1 < PI_LIST_SIZE; ++place)
        gPiList[place] = gPiList[place + 1];
    gPiList[place] = {0, nullptr};
    return EFI_SUCCESS;
}

EFI_STATUS LocatePiList(uint32_t id, void **interface) {
    size_t place = PlaceOf(id);
    if (!IsEntry(place))
        return EFI_NOT_FOUND;
    *interface = gPiList[place].interface;
    return EFI_SUCCESS;
}

typedef EFI_STATUS (*PiStep)(uint32_t id, void *interface);

static EFI_STATUS ForEachPair(PiStep step, uint32_t first, ArgList *list) {
    size_t pairs = 0;
    for (uint32_t id = first; id != 0; id = va_arg(list->args, uint32_t)) {
        void *interface = va_arg(list->args, void *);
        if (interface == nullptr)
            break;
        ++pairs;
        if (step(id, interface) != EFI_SUCCESS)
            break;
    }
    return pairs == 0 ? EFI_INVALID_PARAMETER : EFI_SUCCESS;
}

EFI_STATUS InstallMutiplePiList(uint32_t first, ...) {
    ArgList list;
    va_start(list.args, first);
    EFI_STATUS status = ForEachPair(InstallPiList, first, &list);
    va_end(list.args);
    return status;
}

EFI_STATUS UninstallMutiplePiList(uint32_t first, ...) {
    ArgList list;
    va_start(list.args, first);
    EFI_STATUS status = ForEachPair(UninstallPiList, first, &list);
    va_end(list.args);
    return status;
}
