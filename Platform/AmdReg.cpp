#include "Platform/AmdReg.h"

#include "BasicLib/Cpu.h"
#include "BasicLib/IndexIo.h"

constexpr uint16_t PM_INDEX = 0xCD6;
constexpr uint16_t PM_DATA = 0xCD7;
constexpr uint8_t PM_ACPI_PM1_EVT_BLK = 0x60;

constexpr uint32_t MSR_SYSCFG = 0xC0010010;
constexpr uint32_t SYSCFG_MTRR_FIX_DRAM = 0xC0000;        // enable and modification enable
constexpr uint32_t SYSCFG_MTRR_FIX_DRAM_MOD_EN = 0x80000; // RdMem and WrMem can be changed
constexpr uint32_t MTRR_FIX4K_E0000 = 0x26C;
constexpr uint32_t MTRR_FIX4K_E8000 = 0x26D;
constexpr uint32_t MTRR_FIX4K_F0000 = 0x26E;
constexpr uint32_t MTRR_FIX4K_F8000 = 0x26F;
constexpr uint32_t MTRR_DRAM_UNCACHED = 0x18181818; // RdMem, WrMem and type UC in each of four ranges

// What the MTRRs held before the region was opened.
static uint32_t MsrF000SaveEdx, MsrF000SaveEax;
static uint32_t MsrF800SaveEdx, MsrF800SaveEax;
static uint32_t MsrE000SaveEdx, MsrE000SaveEax;
static uint32_t MsrE800SaveEdx, MsrE800SaveEax;

uint8_t AmdPMxRead8(uint8_t index) {
    return static_cast<uint8_t>(LegacyIoIndexRead8(PM_INDEX, PM_DATA, index));
}

uint16_t AmdPMxRead16(uint8_t index) {
    return static_cast<uint16_t>(LegacyIoIndexRead16(PM_INDEX, PM_DATA, index));
}

uint32_t AmdPMxRead32(uint8_t index) {
    return LegacyIoIndexRead32(PM_INDEX, PM_DATA, index);
}

int AmdGetPMBaseAddress() {
    return AmdPMxRead16(PM_ACPI_PM1_EVT_BLK) & ~0x3;
}

// The RdMem and WrMem bits of a fixed MTRR say whether an access goes to DRAM or to the bus; they show and
// can be changed only under the modification enable.
static void OpenShadow() {
    uint32_t edx;
    uint32_t eax;
    ReadMsr(0, MSR_SYSCFG, &edx, &eax);
    if ((eax & SYSCFG_MTRR_FIX_DRAM_MOD_EN) == 0)
        WriteMsr(0, MSR_SYSCFG, edx, eax | SYSCFG_MTRR_FIX_DRAM_MOD_EN);
    ReadMsr(0, MTRR_FIX4K_F0000, &MsrF000SaveEdx, &MsrF000SaveEax);
    WriteMsr(0, MTRR_FIX4K_F0000, MTRR_DRAM_UNCACHED, MTRR_DRAM_UNCACHED);
    // The low half, 0xF8000-0xFBFFF, keeps its mapping. Intended: what firmware runs from there goes on
    // running.
    ReadMsr(0, MTRR_FIX4K_F8000, &MsrF800SaveEdx, &MsrF800SaveEax);
    WriteMsr(0, MTRR_FIX4K_F8000, MTRR_DRAM_UNCACHED, MsrF800SaveEax);
    ReadMsr(0, MTRR_FIX4K_E0000, &MsrE000SaveEdx, &MsrE000SaveEax);
    WriteMsr(0, MTRR_FIX4K_E0000, MTRR_DRAM_UNCACHED, MTRR_DRAM_UNCACHED);
    ReadMsr(0, MTRR_FIX4K_E8000, &MsrE800SaveEdx, &MsrE800SaveEax);
    WriteMsr(0, MTRR_FIX4K_E8000, MTRR_DRAM_UNCACHED, MTRR_DRAM_UNCACHED);
}

static void CloseShadow() {
    WriteMsr(0, MTRR_FIX4K_F0000, MsrF000SaveEdx, MsrF000SaveEax);
    WriteMsr(0, MTRR_FIX4K_F8000, MsrF800SaveEdx, MsrF800SaveEax);
    WriteMsr(0, MTRR_FIX4K_E0000, MsrE000SaveEdx, MsrE000SaveEax);
    WriteMsr(0, MTRR_FIX4K_E8000, MsrE800SaveEdx, MsrE800SaveEax);
    uint32_t edx;
    uint32_t eax;
    ReadMsr(0, MSR_SYSCFG, &edx, &eax);
    if ((eax & SYSCFG_MTRR_FIX_DRAM_MOD_EN) != 0)
        WriteMsr(0, MSR_SYSCFG, edx, eax & ~SYSCFG_MTRR_FIX_DRAM_MOD_EN);
}

void AmdRuntimeShadowRamWrite(uint8_t enable) {
    uint32_t edx;
    uint32_t eax;
    ReadMsr(0, MSR_SYSCFG, &edx, &eax);
    WriteMsr(0, MSR_SYSCFG, edx, eax | SYSCFG_MTRR_FIX_DRAM);
    if (enable != 0)
        OpenShadow();
    else
        CloseShadow();
    WriteMsr(0, MSR_SYSCFG, edx, eax);
}
