#include "tools/capture/Ports.h"

#include <cstring>

#include "BasicLib/Chipset.h"
#include "BasicLib/IndexIo.h"
#include "BasicLib/PortIo.h"
#include "Platform/AcpiTables.h"
#include "Platform/AmdReg.h"
#include "Platform/CmosClock.h"
#include "tools/capture/Options.h"
#include "tools/capture/Sheet.h"

constexpr uint32_t BANK_BYTES = 128;
constexpr uint16_t PM1_ENABLE = 2; // from the event block (ACPI 6.4, 4.8.3.1)
constexpr uint16_t PM1_CONTROL = 4;
constexpr uint32_t PORTS_A_LINE = 128;

void CaptureCmos() {
    uint8_t bytes[2 * BANK_BYTES];
    for (uint32_t i = 0; i < BANK_BYTES; ++i) {
        bytes[i] = Get8IO7071(static_cast<uint8_t>(i));
        bytes[BANK_BYTES + i] =
            static_cast<uint8_t>(LegacyIoIndexRead8(CMOS_INDEX_HIGH, CMOS_INDEX_HIGH + 1, i));
    }
    Put("# --- cmos\ncmos\n# the clock counts in %s\n", isCmosInBCD() ? "BCD" : "binary");
    PutBytes("cmos-bytes", 0, bytes, sizeof(bytes), true);
    Put("cmos-run real\n");
}

void CapturePm1() {
    Put("# --- pm1\n");
    PmAddressRecord record = {0, 0, 0};
    if (AcpiGetPMAddress(&record) != EFI_SUCCESS || record.pm1EventBlock == 0) {
        Put("# missing: pm1: no FADT says where it is\n");
        return;
    }
    uint16_t base = record.pm1EventBlock;
    Put("pm1 %x %x %x %x\n", base, IoRead16(base), IoRead16(base + PM1_ENABLE), IoRead16(base + PM1_CONTROL));
}

void CapturePmRegisters() {
    if (ThisChipset()->pmBlock != HOME_PM)
        return;
    uint8_t bytes[256];
    for (uint32_t i = 0; i < sizeof(bytes); ++i)
        bytes[i] = AmdPMxRead8(static_cast<uint8_t>(i));
    Put("pm-registers\n");
    PutBytes("pm-bytes", 0, bytes, sizeof(bytes), true);
}

void CapturePorts() {
    for (uint32_t i = 0; i < gOptions.ports.count; ++i) {
        const AskedRange *asked = &gOptions.ports.ranges[i];
        for (uint32_t port = asked->first; port <= asked->last; ++port) {
            bool begins = (port - asked->first) % PORTS_A_LINE == 0;
            if (begins)
                Put("%sconstant %x", port == asked->first ? "" : "\n", port);
            Put(" %02x", IoRead8(port));
        }
        Put("\n");
    }
}
