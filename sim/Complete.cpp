#include "Complete.h"

#include "Mistake.h"
#include "models/Ecam.h"
#include "models/PciConfigPorts.h"
#include "models/PciFunction.h"
#include "models/PciRegisters.h"
#include "models/SmbusHost.h"
#include "models/SmbusSlaves.h"

#include <string.h>

namespace {

constexpr unsigned FUNCTIONS = 0x10000;
constexpr uint32_t CLASS_SMBUS = 0x0C05;

bool gBusReached[0x100];

unsigned Bus(const PciFunction *function) {
    return function->number >> 8;
}

void NoteBuses(const PciFunction *bridge) {
    if (PciLayout(bridge) != LAYOUT_BRIDGE && PciLayout(bridge) != LAYOUT_CARDBUS)
        return;
    unsigned first = bridge->config[PCI_SECONDARY_BUS];
    for (unsigned bus = first; first != 0 && bus <= bridge->config[PCI_SUBORDINATE_BUS]; bus++)
        gBusReached[bus] = true;
}

bool UsesExtendedSpace(const PciFunction *function) {
    static const uint8_t ZEROS[PCI_SPACE] = {};
    return function->express &&
           memcmp(function->config + PCI_EXTENDED_SPACE, ZEROS, PCI_SPACE - PCI_EXTENDED_SPACE) != 0;
}

// What keeps the function from being found, null for nothing.
const char *Obstacle(const PciFunction *function) {
    const PciFunction *first = PciFind(function->number & ~7);
    if (!PciConfigPortsPresent() && !EcamReaches(Bus(function)))
        return "neither \"pci-ports\" nor an \"ecam\" line with its bus leads there";
    if (!gBusReached[Bus(function)])
        return "no bridge leads to its bus";
    if (!first)
        return "the device has no function 0";
    if (first != function && !(first->config[PCI_HEADER_TYPE] & HEADER_MULTI_FUNCTION))
        return "function 0 of the device is not \"multi\"";
    if (UsesExtendedSpace(function) && !EcamReaches(Bus(function)))
        return "no \"ecam\" line with its bus leads to what it has from 100h on";
    return nullptr;
}

void CheckFunction(void *argument) {
    const PciFunction *function = static_cast<const PciFunction *>(argument);
    const char *obstacle = function->verbatim ? nullptr : Obstacle(function);
    MistakePlace(function->place.path, function->place.number);
    if (obstacle)
        BoardFail("cannot be reached: %s: \"%02x:%02x.%x\"", obstacle, Bus(function),
                  function->number >> 3 & 0x1F, function->number & 7u);
}

bool HasClass(const PciFunction *function) {
    return PciStored(function, PCI_CLASS, 2) == CLASS_SMBUS;
}

bool AnyHasClass() {
    for (unsigned number = 0; number < FUNCTIONS; number++) {
        const PciFunction *function = PciFind(static_cast<uint16_t>(number));
        if (function && HasClass(function))
            return true;
    }
    return false;
}

void CheckHost(void *argument) {
    const SmbusHostPlace *host = static_cast<const SmbusHostPlace *>(argument);
    const PciFunction *function = host->function;
    MistakePlace(host->place.path, host->place.number);
    if (!host->place.path || (function && (function->verbatim || PciFind(function->number) != function)))
        return;
    if (function ? !HasClass(function) : !AnyHasClass())
        BoardFail("the host cannot be found: no function of class 0c0500 stands for it");
    if (function && !PciFind(0))
        BoardFail("the host cannot be found: no host bridge (pci 00:00.0) tells the chipset");
    if (function && (function->config[PCI_BASE_ADDRESS_4] & 1) == 0)
        BoardFail("the host cannot be found: register 20h of its function names no ports");
}

void CheckSlaves(void *) {
    int hosts;
    SmbusHosts(&hosts);
    LinePlace place = SmbusSlavePlace();
    MistakePlace(place.path, place.number);
    if (place.path && hosts == 0)
        BoardFail("no \"smbus-host\" line leads to the slave");
}

} // namespace

void CheckReach() {
    memset(gBusReached, 0, sizeof gBusReached);
    gBusReached[0] = true;
    for (unsigned number = 0; number < FUNCTIONS; number++)
        if (const PciFunction *function = PciFind(static_cast<uint16_t>(number)))
            NoteBuses(function);
    for (unsigned number = 0; number < FUNCTIONS; number++)
        if (PciFunction *function = PciFind(static_cast<uint16_t>(number)))
            MistakeTry(CheckFunction, function);
    int hosts;
    const SmbusHostPlace *host = SmbusHosts(&hosts);
    for (int i = 0; i < hosts; i++)
        MistakeTry(CheckHost, const_cast<SmbusHostPlace *>(&host[i]));
    MistakeTry(CheckSlaves, nullptr);
    MistakePlace(nullptr, 0);
}
