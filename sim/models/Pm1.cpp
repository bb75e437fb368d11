// ACPI 6.4, 4.8.3.1 and 4.8.3.2: status bits are cleared by writing ones, bits of nobody read zero, SLP_EN
// and GBL_RLS are write-only. The machine does not really sleep: what is written to control stands in the
// log.
#include "Pm1.h"

#include "../Arena.h"
#include "../Ports.h"
#include "Cmos.h"

#include <string.h>

namespace {

enum : uint16_t {
    STATUS_BITS = 0xC731, // WAK, PCIEXP_WAKE, RTC, SLPBTN, PWRBTN, GBL, BM, TMR
    STATUS_RTC = 0x0400,
    ENABLE_BITS = 0x4721,  // PCIEXP_WAKE_DIS, RTC, SLPBTN, PWRBTN, GBL, TMR
    CONTROL_BITS = 0x1C03, // SLP_TYP, BM_RLD, SCI_EN
};

enum { STATUS, ENABLE, CONTROL, REGISTERS };

struct Pm1 {
    uint16_t registers[REGISTERS];
};

Pm1 *gPm1;
uint16_t gBase;
PortClaim *gClaims[REGISTERS];

unsigned Offset(uint16_t port) {
    return static_cast<unsigned>(port - gBase);
}

void CatchUp() {
    if (CmosTakeAlarm())
        gPm1->registers[STATUS] |= STATUS_RTC;
}

void Change(int which, uint16_t bits, uint16_t value) {
    uint16_t *at = &gPm1->registers[which];
    if (which == STATUS)
        *at = uint16_t(*at & ~(value & bits));
    else {
        uint16_t kept = which == ENABLE ? ENABLE_BITS : CONTROL_BITS;
        *at = static_cast<uint16_t>(((*at & ~bits) | (value & bits)) & kept);
    }
}

uint32_t Read(void *, uint16_t port, unsigned) {
    CatchUp();
    unsigned offset = Offset(port);
    return static_cast<uint32_t>(gPm1->registers[offset / 2]) >> (offset % 2 * 8);
}

void Write(void *, uint16_t port, unsigned width, uint32_t value) {
    unsigned offset = Offset(port);
    unsigned shift = offset % 2 * 8;
    CatchUp();
    unsigned bits = width == WIDTH_16 ? 0xFFFF : 0xFFu << shift;
    Change(static_cast<int>(offset / 2), static_cast<uint16_t>(bits), static_cast<uint16_t>(value << shift));
}

} // namespace

void Pm1Reset() {
    gPm1 = nullptr;
    memset(gClaims, 0, sizeof gClaims);
}

void Pm1Line(BoardLine *line) {
    uint16_t base = static_cast<uint16_t>(LineNumber(line, 1, 0xFFFF - 2 * REGISTERS));
    Pm1 contents = {};
    for (int i = 0; i < REGISTERS && line->count > 2; i++)
        contents.registers[i] = static_cast<uint16_t>(LineNumber(line, i + 2, 0xFFFF));
    gPm1 = static_cast<Pm1 *>(ArenaTakeRegisters(sizeof(Pm1)));
    *gPm1 = contents;
    gBase = base;
    for (int i = 0; i < REGISTERS; i++) {
        if (gClaims[i])
            gClaims[i]->enabled = false;
        gClaims[i] =
            ClaimPorts(base + 2u * static_cast<unsigned>(i), 2, WIDTH_8 | WIDTH_16, Read, Write, gPm1);
    }
}
