#include "Platform/PciCaps.h"

#include "BasicLib/PciConfig.h"
#include "BasicLib/PciWindow.h"
#include "BasicLib/PhysMem.h"

// No list of 256 bytes has more entries; a longer walk is a loop.
constexpr unsigned PCI_CAP_LIMIT = 256;
constexpr uint16_t STATUS_CAP_LIST = 0x10;
constexpr uint8_t HEADER_CARDBUS = 0x02;

uint16_t FindExpressCap(uint16_t bus, uint16_t dev, uint16_t fun, bool endAtNull) {
    uint16_t pointer = PciRead16(bus, dev, fun, PCI_CAPABILITY_LIST) & 0xFF;
    for (unsigned i = 0; pointer != 0 && i < PCI_CAP_LIMIT; ++i) {
        uint16_t entry = PciRead16(bus, dev, fun, pointer);
        uint8_t id = static_cast<uint8_t>(entry);
        if (id == PCI_CAP_ID_EXP)
            return pointer;
        if (id == 0 && endAtNull)
            return 0;
        pointer = entry >> 8;
    }
    return 0;
}

int isPcieController(uint16_t bus, uint16_t dev, uint16_t fun) {
    return FindExpressCap(bus, dev, fun, false) != 0;
}

uint16_t PcieFindCapId(uint16_t bus, uint16_t dev, uint16_t fun, uint8_t capId) {
    uint32_t page = MemPciBase(bus, dev, fun);
    if ((MemRead8(page + PCI_STATUS) & STATUS_CAP_LIST) == 0)
        return 0;
    bool cardBus = (MemRead8(page + PCI_HEADER_TYPE) & ~HEADER_MULTI_FUNCTION & 0xFF) == HEADER_CARDBUS;
    uint32_t pointer = MemRead8(page + (cardBus ? PCI_CB_CAPABILITY_LIST : PCI_CAPABILITY_LIST)) & 0xFC;
    uint8_t id = 0;
    for (unsigned i = 0; pointer != 0 && id < 0xFF && i < PCI_CAP_LIMIT; ++i) {
        id = static_cast<uint8_t>(MemRead8(page + pointer));
        if (id == capId)
            return static_cast<uint16_t>(pointer);
        pointer = MemRead8(page + pointer + 1) & 0xFC;
    }
    return 0;
}
