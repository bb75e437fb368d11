// platform: what depends on the chipset, on platforms of all makers: power management, reset and power-off,
// the BIOS shadow region, the SMBus host's base, and the system management network with its mailbox.
// Asserted: who is asked and what is written, maker by maker; that the shadow region and the die are put back
// as they were.
#include <string.h>

#include "BasicLib/Chipset.h"
#include "BasicLib/PciPorts.h"
#include "BasicLib/PhysMem.h"
#include "ConfigSpaces.h"
#include "Goal.h"
#include "Machine.h"
#include "Platform/AmdReg.h"
#include "Platform/IntelReg.h"
#include "Platform/MemSearch.h"
#include "Platform/PmBase.h"
#include "Platform/ShadowRam.h"
#include "Platform/SmbusHost.h"
#include "Platform/Smn.h"

namespace {

constexpr uint32_t SYSCFG = 0xC0010010;
const uint32_t MSRS[] = {SYSCFG, 0x26C, 0x26D, 0x26E, 0x26F};
constexpr uint32_t MSR_COUNT = sizeof MSRS / sizeof *MSRS;
constexpr uint32_t BIOS_BYTES = BIOS_AREA_SIZE + PAGE_4KB;
constexpr uint32_t MAILBOX_ANSWER = 0x3B10564;

struct Written {
    uint16_t port;
    uint32_t value;
};

// Registers beside the configuration spaces.
struct Registers {
    uint64_t msrs[MSR_COUNT];
    bool locked; // what is written to the first one is lost
    uint8_t pmIndex;
    uint8_t pm[256];
    Written last; // of other ports
    uint32_t signature;
    uint32_t smn[64]; // of the mailbox, by the address's bits
    uint32_t busy;    // reads before the mailbox answers
    uint32_t reply;
};
Registers gRegisters;
alignas(4096) uint8_t gBios[BIOS_BYTES];

uint32_t *SmnOf(uint32_t address) {
    return &gRegisters.smn[(address >> 2) & 63];
}

uint32_t HostBridge32(uint32_t offset) {
    return SpaceRead(&gSpaces.functions[0], offset, 4);
}

// The mailbox answers a while after the message.
uint32_t ReadMailbox() {
    uint32_t address = HostBridge32(0xB8);
    if (address != MAILBOX_ANSWER)
        return *SmnOf(address);
    if (gRegisters.busy > 0) {
        gRegisters.busy--;
        return 0;
    }
    return gRegisters.reply;
}

uint32_t ReadPort(uint16_t port, unsigned width) {
    if (port == 0xCD7)
        return gRegisters.pm[gRegisters.pmIndex];
    if (port == 0xCFC && (gSpaces.address & 0xFFFFFC) == 0xBC)
        return ReadMailbox();
    return SpacesReadPort(port, width);
}

void WritePort(uint16_t port, unsigned width, uint32_t value) {
    if (port == 0xCD6)
        gRegisters.pmIndex = static_cast<uint8_t>(value);
    else if (port == 0xCFC && (gSpaces.address & 0xFFFFFC) == 0xBC)
        *SmnOf(HostBridge32(0xB8)) = value;
    else if (port >= 0xCF8 && port < 0xD00 && port != 0xCF9)
        SpacesWritePort(port, width, value);
    else
        gRegisters.last = {port, value};
}

uint64_t *MsrOf(uint32_t index) {
    for (uint32_t i = 0; i < MSR_COUNT; i++)
        if (MSRS[i] == index)
            return &gRegisters.msrs[i];
    return nullptr;
}

uint64_t ReadMsrOf(uint32_t index) {
    const uint64_t *found = MsrOf(index);
    return found ? *found : 0;
}

void WriteMsrOf(uint32_t index, uint64_t value) {
    uint64_t *found = MsrOf(index);
    Expect(found != nullptr, "only the MSRs of the shadow region are written");
    if (index != SYSCFG || !gRegisters.locked)
        *found = value;
}

void ReadLeaf(uint32_t leaf, uint32_t registers[4]) {
    Expect(leaf == 0x80000001, "the leaf of the signature");
    registers[0] = gRegisters.signature;
}

bool IsAmd() {
    return chipSetVid == VENDOR_AMD || chipSetVid == VENDOR_HYGON;
}

// The function that counts is the first one of a class; it is made so by choice, since a search through all
// buses takes its time.
ConfigFunction *PutClass(uint16_t classCode) {
    ConfigFunction *function = &gSpaces.functions[gSpaces.count - 1];
    memcpy(function->bytes + PCI_CLASS_DEVICE, &classCode, 2);
    for (uint32_t i = 0; i < gSpaces.count; i++) {
        ConfigFunction *other = &gSpaces.functions[i];
        if (other != function)
            memset(other->bytes + PCI_CLASS_DEVICE, 0, 2);
    }
    return FunctionAt(function->bus, function->dev, function->fun) == function ? function : nullptr;
}

void CheckShadow(Input *input) {
    gRegisters.locked = (TakeByte(input) & 3) == 3;
    ShadowRamWrite(0); // a second disable has nothing to put back that the first one has not
    uint64_t msrs[MSR_COUNT];
    for (uint32_t i = 0; i < MSR_COUNT; i++)
        msrs[i] = gRegisters.msrs[i] = Take64(input);
    msrs[0] = gRegisters.msrs[0] &= ~static_cast<uint64_t>(0x80000); // changes are closed outside of a pair
    static ConfigFunction before;
    before = gSpaces.functions[0];
    Expect(ShadowRamWrite(1) == 1, "the region is opened");
    const uint8_t *pam = gSpaces.functions[0].bytes + 0x80;
    if (chipSetVid == VENDOR_INTEL)
        Expect((pam[0] & 0x30) == 0x30 && (pam[5] & 0x33) == 0x33 && (pam[6] & 0x33) == 0x33,
               "reads and writes");
    else if (IsAmd())
        Expect(gRegisters.msrs[1] == 0x1818181818181818 && gRegisters.msrs[2] == 0x1818181818181818 &&
                   gRegisters.msrs[3] == 0x1818181818181818 && gRegisters.msrs[4] >> 32 == 0x18181818,
               "reads and writes");
    ShadowRamWrite(0x100); // its low byte counts
    Expect(memcmp(&before, &gSpaces.functions[0], sizeof before) == 0, "the bridge is as it was");
    Expect(memcmp(msrs, gRegisters.msrs, sizeof msrs) == 0, "the MSRs are as they were");
}

void CheckPmBase(Input *input) {
    uint16_t block = Take16(input);
    uint8_t kind = TakeByte(input) % 8;
    ConfigFunction *function = PutClass(0x0580);
    if (!function)
        return;
    memcpy(function->bytes + 0x40, &block, 2);
    memcpy(gRegisters.pm + 0x60, &block, 2);
    PmAddress = {0, 0, 0};
    AddMemory(BIOS_AREA, gBios, BIOS_BYTES); // no root pointer there
    bool intel = chipSetVid == VENDOR_INTEL;
    size_t printed;
    BeginOutput();
    int base = GetPMBaseAddress(PM_EVENT_BLOCK);
    EndOutputOf(&printed);
    Expect(base == (intel     ? block & 0xFF80
                    : IsAmd() ? block & 0xFFFC
                              : 0xFFFF),
           "the PM1 block by the chipset");
    Expect(GetPMBaseAddress(PM_RESET_REGISTER) == 0xCF9 && GetPMBaseAddress(PM_RESET_VALUE) == 6 &&
               GetPMBaseAddress(3) == -1,
           "the reset register");
    gRegisters.last = {0, 0};
    int done = ForcedShutdownByPMIO(kind);
    Expect(done == (kind == 1 || kind == 4 || kind == 5), "what can be done by a write");
    Written expected = kind == 4 ? Written{0xCF9, 6} : kind == 5 ? Written{0xCF9, 0x0E} : Written{0, 0};
    if (kind == 1 && (intel || IsAmd()))
        expected = {static_cast<uint16_t>(base + 5), intel ? 0x3Cu : 0x34u};
    Expect(gRegisters.last.port == expected.port && gRegisters.last.value == expected.value,
           "the write that does it");
    PmAddress = {0, 0, 0};
}

void CheckSmbusBase(Input *input) {
    uint16_t block = Take16(input);
    uint16_t command = Take16(input);
    ConfigFunction *function = PutClass(0x0C05);
    if (!function)
        return;
    memcpy(function->bytes + 0x20, &block, 2);
    memcpy(function->bytes + PCI_COMMAND, &command, 2);
    memcpy(gRegisters.pm, &block, 2);
    uint16_t base = 0;
    Expect(GetSMBusBaseAddress(&base) == 1, "a host");
    Expect(base == (chipSetVid == VENDOR_INTEL ? block & 0xFFE0 : block & 0xFF00),
           "the host's base by the chipset");
    Expect(SpaceRead(function, PCI_COMMAND, 2) == (command | 1u), "its decoding is on");
}

// Without a function of the class every place on every bus is looked at, which takes its time: a byte of its
// own.
void CheckAbsent(Input *input) {
    if (TakeByte(input) != 0xA5)
        return;
    for (uint32_t i = 0; i < gSpaces.count; i++)
        memset(gSpaces.functions[i].bytes + PCI_CLASS_DEVICE, 0, 2);
    uint16_t base = 0x1234;
    size_t printed;
    BeginOutput();
    Expect(GetSMBusBaseAddress(&base) == 0 && base == 0x1234, "no host");
    if (chipSetVid == VENDOR_INTEL)
        Expect(GetPMBaseAddressByPmio() == 0x1800, "where firmware puts it when the function is hidden");
    EndOutputOf(&printed);
    Expect(printed != 0, "a message");
}

void CheckSmn(Input *input) {
    uint8_t code = TakeByte(input) % 5;
    uint32_t bytes = PciWidthBytes(code);
    uint32_t die = Take32(input);
    uint32_t address = Take32(input);
    uint32_t value = Take32(input);
    uint8_t *bridge = gSpaces.functions[0].bytes;
    memcpy(bridge + 0xC8, &value, 4);
    uint32_t read = 0;
    EFI_STATUS expected = bytes != 0 ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
    Expect(AmdSmnRegisterRead(code, die, address, &read) == expected, "a register of a die");
    Expect(memcmp(&read, &value, bytes) == 0 && read >> (bytes == 4 ? 31 : 8 * bytes) >> (bytes == 4) == 0,
           "its data");
    Expect(HostBridge32(0xC0) == 0 && HostBridge32(0xC4) == address, "the die is set back");
    value = ~value;
    Expect(AmdSmnRegisterWrite(code, die, address, &value) == expected, "a register of a die");
    Expect(memcmp(bridge + 0xC8, &value, bytes) == 0 && HostBridge32(0xC0) == 0, "and is set back");
    gRegisters.signature = Take32(input);
    uint32_t family = gRegisters.signature & 0x0FFF0F00;
    bool served = IsAmd() && (family == 0x00800F00 || family == 0x00900F00);
    Expect(InitSmuService() == (served ? EFI_SUCCESS : EFI_ACCESS_DENIED), "who has such a network");
}

void CheckMailbox(Input *input) {
    uint32_t arguments[SMU_ARGUMENTS];
    uint32_t sent[SMU_ARGUMENTS];
    uint32_t message = TakeByte(input);
    gRegisters.busy = 1u + TakeByte(input) % 16;
    gRegisters.reply = TakeByte(input) % 0xFC; // but for the fatal one, which never comes back
    gRegisters.reply += gRegisters.reply == 0;
    for (uint32_t i = 0; i < SMU_ARGUMENTS; i++)
        sent[i] = arguments[i] = Take32(input);
    uint32_t answer = NbioSmuServiceRequestV9(message, arguments);
    Expect(answer == (message == 0xFF ? 1 : gRegisters.reply), "the answer of the mailbox");
    Expect(memcmp(arguments, sent, sizeof sent) == 0, "the arguments as the mailbox holds them");
    for (uint32_t i = 0; i < SMU_ARGUMENTS && message != 0xFF; i++)
        Expect(*SmnOf(0x3B10598 + 4 * i) == sent[i], "the arguments have arrived");
    Expect(message == 0xFF || *SmnOf(0x3B10528) == message, "the message has arrived");
}

} // namespace

void FuzzPlatform(Input input) {
    static const Machine machine = {ReadPort, WritePort, nullptr, nullptr, ReadMsrOf, WriteMsrOf, ReadLeaf};
    uint8_t kind = TakeByte(&input);
    gRegisters = {};
    StartSpaces(&input);
    StopMachine();
    StartMachine(&machine);
    ThisChipset(); // is known from here on
    void (*const checks[])(Input *) = {CheckShadow, CheckPmBase,  CheckSmbusBase,
                                       CheckSmn,    CheckMailbox, CheckAbsent};
    checks[kind % 6](&input);
    StopMachine();
}
