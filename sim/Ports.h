// The board's I/O space: 65536 ports of a byte, claimed by device models in pieces.
#pragma once

#include "BoardFile.h"

enum : unsigned { WIDTH_8 = 1, WIDTH_16 = 2, WIDTH_32 = 4, WIDTH_ANY = WIDTH_8 | WIDTH_16 | WIDTH_32 };

typedef uint32_t (*PortReader)(void *device, uint16_t port, unsigned width);
typedef void (*PortWriter)(void *device, uint16_t port, unsigned width, uint32_t value);

// A model's claim on ports base .. base + count - 1, for accesses of the widths named (in bytes, a set of the
// bits above) that lie within it. A model may move or silence its claim at any time, as a base address
// register does.
struct PortClaim {
    uint32_t base;
    uint32_t count;
    unsigned widths;
    bool enabled;
    PortReader read;
    PortWriter write;
    void *device;
};

// The later claim stands in front of the earlier one. A null reader reads all ones, a null writer drops the
// value.
PortClaim *ClaimPorts(uint32_t base, uint32_t count, unsigned widths, PortReader read, PortWriter write,
                      void *device);
// The first claim that was made for a device.
PortClaim *PortClaimOf(const void *device);
void PortsReset();

// "unlogged PORT COUNT": accesses there leave no line in the log, as for a wait of a million polls.
void UnloggedLine(BoardLine *line);
bool PortLogged(uint16_t port);

// One access of 1, 2 or 4 bytes. When no claim takes it whole it is made in halves, down to single bytes; a
// byte that nobody claims reads 0xFF.
uint32_t PortRead(uint16_t port, unsigned width);
void PortWrite(uint16_t port, unsigned width, uint32_t value);
