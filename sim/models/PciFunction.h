// PCI functions: their configuration space and how a write changes it.
// PCI Local Bus 3.0, chapter 6 (configuration space); PCI Express Base 3.0, 7.2 (extended space) and 7.8, 7.9
// (capability structures); PCI-to-PCI Bridge Architecture 1.2, 3.2 (type 1 header).
#pragma once

#include "../BoardFile.h"

constexpr unsigned PCI_SPACE = 4096;
constexpr unsigned PCI_EXTENDED_SPACE = 0x100; // where it begins

struct PciFunction {
    uint16_t number;          // (bus << 8) | (device << 3) | function
    LinePlace place;          // of the line that made it
    bool express;             // has the extended space; a conventional function reads all ones from 0x100 on
    bool verbatim;            // as it was found on a machine, whether it can be reached or not
    uint8_t *config;          // PCI_SPACE bytes
    struct PciWindow *window; // null where the configuration window shows what the ports show
    uint8_t writable[PCI_SPACE];  // bits that take the value written
    uint8_t oneClears[PCI_SPACE]; // bits that a written 1 clears
    uint8_t lastCap;              // where the capability list ends so far, 0 for no list
    bool inCap[PCI_SPACE];        // bytes of its capabilities so far
    uint16_t lastExtendedCap;
    // For a model that lives in configuration space, both may be null: called before a read is served, so
    // that it can put the value of the moment into config, and after a write of so many bytes has changed
    // config (of none: it has become another as a whole).
    void (*beforeRead)(PciFunction *function, uint16_t offset, unsigned width);
    void (*afterWrite)(PciFunction *function, uint16_t offset, unsigned width);
    void *device;
};

// What the configuration window shows in place of the stored byte.
struct PciWindow {
    bool differs[PCI_SPACE];
    uint8_t bytes[PCI_SPACE];
};

void PciReset();

// Lets the models that live in configuration space look at it anew.
void PciPlaceDevices();

// Null where no such function is.
PciFunction *PciFind(uint16_t number);
// One access of 1 to 4 bytes within an aligned dword. An absent function reads all ones.
uint32_t PciConfigRead(uint16_t number, uint16_t offset, unsigned width);
// The same through the configuration window.
uint32_t PciWindowRead(uint16_t number, uint16_t offset, unsigned width);
void PciConfigWrite(uint16_t number, uint16_t offset, unsigned width, uint32_t value);

// The bits as they are stored, without side effects and masks.
uint32_t PciStored(const PciFunction *function, uint16_t offset, unsigned width);
void PciStore(PciFunction *function, uint16_t offset, unsigned width, uint32_t value);

// The function that the lines of a board file are about; ends the process when no "pci" line came before.
PciFunction *PciLineFunction(const BoardLine *line);

// The writable bits that every header of the function's layout has.
void PciSetHeaderMasks(PciFunction *function);

// The layout of the function's header.
uint8_t PciLayout(const PciFunction *function);
// Two numbers as in 8086:1234, into the dword at the offset.
void PciSetIds(const BoardLine *line, int word, PciFunction *function, uint16_t offset);

// "pci BB:DD.F VVVV:DDDD [class CCSSPP] [rev RR] [header HH] [multi] [verbatim]" makes the function or goes
// on with one that is there; the lines behind it describe it. One that is `verbatim` is as it was found on a
// machine, whether it can be reached or not, and needs no numbers: its bytes are given by "config" lines.
void PciLine(BoardLine *line);
// "pci-remove BB:DD.F" or "pci-remove all"
void PciRemoveLine(BoardLine *line);
