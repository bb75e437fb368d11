#include "Ports.h"

#include "Arena.h"
#include "Mistake.h"

#include <string.h>

namespace {

constexpr int MAX_CLAIMS = 1024;

PortClaim gClaims[MAX_CLAIMS];
int gClaimCount;
bool gUnlogged[0x10000];

PortClaim *FindClaim(uint16_t port, unsigned width) {
    for (int i = gClaimCount - 1; i >= 0; i--) {
        PortClaim *claim = &gClaims[i];
        if (claim->enabled && (claim->widths & width) && port >= claim->base &&
            static_cast<uint32_t>(port) + width <= claim->base + claim->count)
            return claim;
    }
    return nullptr;
}

uint32_t WidthMask(unsigned width) {
    return width == 4 ? 0xFFFFFFFFu : (1u << (8 * width)) - 1;
}

} // namespace

PortClaim *ClaimPorts(uint32_t base, uint32_t count, unsigned widths, PortReader read, PortWriter write,
                      void *device) {
    if (gClaimCount == MAX_CLAIMS)
        BoardFail("more than %d port claims", MAX_CLAIMS);
    PortClaim *claim = &gClaims[gClaimCount++];
    *claim = {base, count, widths, true, read, write, device};
    return claim;
}

PortClaim *PortClaimOf(const void *device) {
    int i = 0;
    while (gClaims[i].device != device)
        i++;
    return &gClaims[i];
}

void PortsReset() {
    gClaimCount = 0;
    memset(gUnlogged, 0, sizeof gUnlogged);
}

void UnloggedLine(BoardLine *line) {
    uint64_t port = LineNumber(line, 1, 0xFFFF);
    memset(gUnlogged + port, true, LineCount(line, 2, 0x10000 - port));
}

bool PortLogged(uint16_t port) {
    return !gUnlogged[port];
}

uint32_t PortRead(uint16_t port, unsigned width) {
    PortClaim *claim = FindClaim(port, width);
    if (claim)
        return claim->read ? claim->read(claim->device, port, width) & WidthMask(width) : WidthMask(width);
    if (width == 1)
        return 0xFF;
    unsigned half = width / 2;
    uint32_t low = PortRead(port, half);
    return low | PortRead(static_cast<uint16_t>(port + half), half) << (8 * half);
}

void PortWrite(uint16_t port, unsigned width, uint32_t value) {
    PortClaim *claim = FindClaim(port, width);
    if (claim) {
        if (claim->write)
            claim->write(claim->device, port, width, value & WidthMask(width));
        return;
    }
    if (width == 1)
        return;
    unsigned half = width / 2;
    PortWrite(port, half, value);
    PortWrite(static_cast<uint16_t>(port + half), half, value >> (8 * half));
}
