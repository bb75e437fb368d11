#include "Platform/Spd.h"

#include "Common/ComFunc/Signals.h"
#include "Platform/SmbusHost.h"

constexpr uint8_t SPD_PAGE0 = 0x6C; // SPA0
constexpr uint8_t SPD_PAGE1 = 0x6E; // SPA1

static const uint8_t gSpdAddrList[] = {0xA0, 0xA2, 0xA4, 0xA6, 0xA8, 0xAA, 0xFF};

// Selects a page by its address and returns the byte read there before, 0 when it cannot be read. Modules
// that do not answer at the page addresses are read all the same.
static uint8_t SelectPage(uint16_t base, uint8_t page) {
    uint8_t saved = 0;
    StandardSmbusRead(base, page, 0, &saved);
    StandardSmbusWrite(base, page, 0, 0);
    return saved;
}

EFI_STATUS GetDDR4Spd(uint16_t base, uint8_t slave, uint8_t *buffer, uint16_t) {
    HoldSignals(); // none may leave page 1 selected
    uint8_t saved0 = SelectPage(base, SPD_PAGE0);
    EFI_STATUS status = SmbusReadPage(base, slave, buffer);
    if (status == EFI_SUCCESS) {
        uint8_t saved1 = SelectPage(base, SPD_PAGE1);
        status = SmbusReadPage(base, slave, buffer + SMBUS_PAGE_BYTES);
        StandardSmbusWrite(base, SPD_PAGE1, 0, saved1);
    }
    StandardSmbusWrite(base, SPD_PAGE0, 0, saved0);
    ReleaseSignals();
    return status;
}

int IsSpdAddress(uint8_t slave) {
    for (const uint8_t *known = gSpdAddrList; *known != 0xFF; ++known) {
        if (*known == (slave & 0xFE))
            return 1;
    }
    return 0;
}
