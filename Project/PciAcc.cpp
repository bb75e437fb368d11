#include "Project/PciAcc.h"

#include "Base/Memory.h"
#include "BasicLib/PciConfig.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Console.h"
#include "Common/ComFunc/HexView.h"
#include "Common/ComFunc/Output.h"
#include "Common/Sprint.h"
#include "Platform/PciCaps.h"
#include "Platform/PciClassCode.h"
#include "Platform/PciFind.h"
#include "Project/AccessForm.h"

constexpr uint16_t LINK_CONTROL = 0x10; // from the PCI Express capability
constexpr uint8_t ASPM_CONTROL = 0x03;
constexpr uint8_t SCAN_ARGC = 5; // a dump with more words than this names one function

static EFI_STATUS ShowPciHelp() {
    Printf(" /PCI /RB 0 0x1f 0 0: Read 1-BYTE from PCI B0D1FF0 offset 0\n");
    Printf(" /PCI /WB 0 0x1f 0 0x2C 0x12: Write 0x12 to B0D1FF0 offset 0x2C\n");
    Printf(" /PCI /DUMP /NOMSG: List all PCI controller without data message\n");
    Printf(" /PCI /DUMP /TEXT: Dump all PCI device data\n");
    return EFI_INVALID_PARAMETER;
}

EFI_STATUS ShowPciClassType(uint16_t bus, uint16_t dev, uint16_t fun) {
    uint16_t code = GetPciClassCode(bus, dev, fun);
    for (const PciClassName *row = PciDeviceClassCode; row->code != PCI_CLASS_END; ++row) {
        if (row->code == code) {
            Printf("%s", row->name);
            return EFI_SUCCESS;
        }
    }
    Printf("Unknown PCI\n");
    return EFI_SUCCESS;
}

EFI_STATUS ReadPciAspm(uint16_t bus, uint16_t dev, uint16_t fun) {
    static const char *const mAspmNames[] = {"DIS ", "L0S ", "L1  ", "L01 "};
    uint16_t express = FindExpressCap(bus, dev, fun, true);
    if (express == 0) {
        Printf("NA  ");
        return EFI_NOT_FOUND;
    }
    uint8_t linkControl = PciRead8(bus, dev, fun, static_cast<uint16_t>(express + LINK_CONTROL));
    Printf("%s", mAspmNames[linkControl & ASPM_CONTROL]);
    return EFI_NOT_FOUND;
}

EFI_STATUS ReadPciInterruptPL(uint16_t bus, uint16_t dev, uint16_t fun) {
    static const char *const mPinNames[] = {"NULL  ", "INTA  ", "INTB  ", "INTC  ", "INTD  "};
    uint16_t word = PciRead16(bus, dev, fun, PCI_INTERRUPT_LINE);
    uint8_t line = static_cast<uint8_t>(word);
    uint8_t pin = static_cast<uint8_t>(word >> 8);
    if (word == 0) {
        Printf("NONE  NONE  ");
        return EFI_SUCCESS;
    }
    if (line == 0)
        Printf("NONE  ");
    else
        Printf("IRQ%02X ", line);
    if (pin < sizeof(mPinNames) / sizeof(mPinNames[0]))
        Printf("%s", mPinNames[pin]);
    else
        Printf("%02X    ", pin);
    return EFI_SUCCESS;
}

// Shows a present function: the header line before the first one, its summary line and its first 256 bytes.
// Returns the key of the hex view; *shown tells whether the function is present.
static int ShowFunction(uint16_t bus, uint16_t dev, uint16_t fun, bool header, uint8_t *buffer, bool *shown) {
    uint16_t vendor = PciRead16(bus, dev, fun, PCI_VENDOR_ID);
    uint16_t device = PciRead16(bus, dev, fun, PCI_DEVICE_ID);
    *shown = vendor != 0xFFFF && device != 0xFFFF;
    if (!*shown)
        return DEBUG_MSG_NO_KEY;
    if (header)
        Printf("Bus Dev Fun VID_DID  ASPM IRQ_L IRQ_P Class\n");
    Printf("%02X  %02X  %02X  %04X%04X ", bus, dev, fun, vendor, device);
    ReadPciAspm(bus, dev, fun);
    Printf(" ");
    ReadPciInterruptPL(bus, dev, fun);
    ShowPciClassType(bus, dev, fun);
    for (uint16_t offset = 0; offset < PCI_CONFIG_BYTES; ++offset)
        buffer[offset] = PciRead8(bus, dev, fun, offset);
    return DebugMsg(buffer, PCI_CONFIG_BYTES);
}

// One device of the scan. Functions 1 to 7 are looked at only when function 0 says multi-function. False
// when ESC or lost output ends the listing.
static bool ListDevice(uint16_t bus, uint16_t dev, uint8_t *buffer, bool *header) {
    bool multiple = false;
    for (uint16_t fun = 0; fun < PCI_FUNCTION_COUNT; ++fun) {
        if (!multiple)
            multiple = isPciMultipleFunction(bus, dev) != 0;
        if (!multiple && fun != 0)
            return true;
        bool shown;
        int key = ShowFunction(bus, dev, fun, *header, buffer, &shown);
        if (shown)
            *header = false;
        if (shown && (key == KEY_ESC || OutputIsLost()))
            return false;
    }
    return true;
}

static void ListAll(uint8_t *buffer) {
    bool header = true;
    for (uint16_t bus = 0; bus < PCI_BUS_COUNT; ++bus) {
        for (uint16_t dev = 0; dev < PCI_DEVICE_COUNT; ++dev) {
            if (!ListDevice(bus, dev, buffer, &header))
                return;
        }
    }
}

static EFI_STATUS PciDump() {
    uint16_t pos;
    if (!CmdFind({"DUMP"}, &pos))
        return EFI_SUCCESS;
    uint8_t *buffer = static_cast<uint8_t *>(Malloc(PCI_CONFIG_BYTES));
    if (buffer == nullptr)
        return EFI_BUFFER_TOO_SMALL;
    if (gCmdArg->Argc <= SCAN_ARGC) {
        ListAll(buffer);
    } else {
        bool shown;
        ShowFunction(OperandWord(pos, 1), OperandWord(pos, 2), OperandWord(pos, 3), true, buffer, &shown);
    }
    Free(buffer);
    return EFI_SUCCESS;
}

// Indexed by AccessWidth.
static const AccessText mTexts[ACCESS_WIDTHS] = {
    {nullptr, nullptr},
    {"PCI Read BDFO: %X %X %X %X Bit%d, ", "PCI Write BDFO: %X %X %X %X Bit%d, "},
    {"PCI Read Byte BDFO: %X %X %X %X, ", "PCI Write Byte BDFO: %X %X %X %X, Data:%02X, "},
    {"PCI Read Word BDFO: %X %X %X %X, ", "PCI Write Word BDFO: %X %X %X %X, Data:%04X, "},
    {"PCI Read DWord BDFO: %X %X %X %X, ", "PCI Write Dword BDFO: %X %X %X %X, Data:%08X, "},
};

static uint32_t PciRegister(CmdType cmd) {
    AccessForm form = FindAccess(cmd);
    if (form.width == ACCESS_NONE)
        return EFI_INVALID_PARAMETER;
    Place at = PciPlace(OperandWord(form.pos, 1), OperandWord(form.pos, 2), OperandWord(form.pos, 3),
                        OperandWord(form.pos, 4));
    if (form.width == ACCESS_BIT)
        return AccessBit(&form, mTexts, &at, OperandByte(form.pos, 5), OperandByte(form.pos, 6));
    return AccessData(&form, mTexts, &at, OperandDword(form.pos, 5));
}

uint32_t PciAccess() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return static_cast<uint32_t>(ShowPciHelp());
    if (HasFlag(cmd, Flag::DUMP))
        return static_cast<uint32_t>(PciDump());
    if (!HasFlag(cmd, Flag::READ | Flag::WRITE))
        return EFI_INVALID_PARAMETER;
    return PciRegister(cmd);
}
