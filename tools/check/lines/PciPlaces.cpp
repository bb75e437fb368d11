#include "tools/check/lines/PciPlaces.h"

#include "BasicLib/PciPorts.h"

constexpr uint8_t STATUS_CAP_LIST = 0x10;
constexpr uint8_t CAP_ALIGNMENT = 0xFC;
constexpr unsigned MOST_CAPS = 48; // in 192 bytes

PciReached ReachedBy(PciTyped typed) {
    uint32_t sum = (static_cast<uint32_t>(typed.bus) << 16) + (static_cast<uint32_t>(typed.dev) << 11) +
                   (static_cast<uint32_t>(typed.fun) << 8);
    return {sum >> 16, static_cast<uint16_t>((sum >> 11) & 0x1F), static_cast<uint16_t>((sum >> 8) & 7)};
}

bool IsSpilled(PciTyped typed, PciReached reached) {
    return typed.bus != reached.bus || typed.dev != reached.dev || typed.fun != reached.fun;
}

bool CautionOfNoList(Line *line) {
    const PciFunction *list;
    if (PciFunctions(&list) != 0)
        return false;
    Caution(line, "whether it works here cannot be told: the kernel shows no list of PCI functions");
    return true;
}

const PciFunction *KnownFunction(PciReached reached) {
    const PciFunction *list;
    uint32_t count = PciFunctions(&list);
    for (uint32_t i = 0; i < count; ++i) {
        if (list[i].bus == reached.bus && list[i].dev == reached.dev && list[i].fun == reached.fun)
            return &list[i];
    }
    return nullptr;
}

bool IsConventional(PciReached reached) {
    uint8_t bytes[PCI_CONFIG_BYTES];
    uint16_t bus = static_cast<uint16_t>(reached.bus);
    if (!ReadPciConfig(bus, reached.dev, reached.fun, 0, bytes, sizeof(bytes)))
        return false;
    uint8_t pointer =
        (bytes[PCI_STATUS] & STATUS_CAP_LIST) != 0 ? bytes[PCI_CAPABILITY_LIST] & CAP_ALIGNMENT : 0;
    for (unsigned i = 0; pointer != 0 && i < MOST_CAPS; ++i) {
        if (bytes[pointer] == PCI_CAP_ID_EXP)
            return false;
        pointer = bytes[pointer + 1] & CAP_ALIGNMENT;
    }
    return true;
}
