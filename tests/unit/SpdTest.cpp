#include "Platform/Spd.h"

#include <gtest/gtest.h>

#include "Common/ComFunc/Signals.h"
#include "Platform/SmbusHost.h"
#include "TestHelp.h"

constexpr uint16_t INTEL_BASE = 0xEFA0; // of the intel board

TEST(Spd, OnlyTheSixModuleAddressesAreSpdAddresses) {
    for (unsigned slave = 0; slave < 0x100; ++slave) {
        bool known = slave >= 0xA0 && slave <= 0xAB;
        EXPECT_EQ(IsSpdAddress(static_cast<uint8_t>(slave)), known ? 1 : 0) << std::hex << slave;
    }
}

TEST(Spd, ADdr4ModuleGives512BytesWhateverTheSizeSays) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0");
    uint8_t buffer[514] = {};
    buffer[512] = 0xEE;
    EXPECT_EQ(GetDDR4Spd(INTEL_BASE, 0xA2, buffer, 1), EFI_SUCCESS);
    for (unsigned i = 0; i < 512; ++i)
        EXPECT_EQ(buffer[i], i == 2 ? 0x0C : (i & 0xFF)) << i;
    EXPECT_EQ(buffer[512], 0xEE);
}

TEST(Spd, AModuleThatStopsGivesTheStatusOfTheReadThatFailed) {
    OpenBoard("intel", "pci 00:1f.4\nsmbus-host pci 0\nsmbus-spd a2 stops 110");
    uint8_t buffer[512] = {};
    EXPECT_EQ(GetDDR4Spd(INTEL_BASE, 0xA2, buffer, sizeof(buffer)), EFI_DEVICE_ERROR);
    EXPECT_EQ(buffer[255 + 16], 0x0F);
    EXPECT_EQ(buffer[256 + 16], 0);
}

TEST(Spd, PageZeroIsSelectedAfterADdr4DumpHoweverItEnds) {
    for (const char *stops : {"", "\nsmbus-spd a2 stops 40", "\nsmbus-spd a2 stops 140"}) {
        ResetEverything();
        OpenBoard("intel", std::string("pci 00:1f.4\nsmbus-host pci 0") + stops);
        uint8_t buffer[512];
        GetDDR4Spd(INTEL_BASE, 0xA2, buffer, sizeof(buffer));
        uint8_t data = 0;
        // "Read page address" is acknowledged in page 0 alone.
        EXPECT_EQ(StandardSmbusRead(INTEL_BASE, 0x6C, 0, &data), EFI_SUCCESS) << stops;
        EXPECT_FALSE(SignalsAreHeld());
    }
}
