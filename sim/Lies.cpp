#include "Lies.h"

#include "Mistake.h"

#include <stdio.h>
#include <stdlib.h>

namespace {

constexpr unsigned long USUAL_READS = 1000;
constexpr unsigned RAREST = 10; // one read in 2^10 is a lie
constexpr unsigned LATEST = 11; // less than 2^11 reads come before the first one
constexpr int STUCK_COUNT = 16;

enum Kind { FLIPPED, ONES, ZEROS, ANYTHING, STUCK_AT_IT, STUCK_AT_ANOTHER, KIND_COUNT };

// A place that gives the same value again and again.
struct Stuck {
    LieSpace space;
    uint64_t place;
    uint64_t value;
    uint64_t left; // reads
};

bool gLying;
uint64_t gState;
uint64_t gHonest;     // reads that are still true
uint64_t gRarity;     // one read in so many, a power of two
unsigned gKinds;      // those that this seed knows, a bit each
unsigned long gReads; // for which a place is stuck, at most; 0: for ever
Stuck gStuck[STUCK_COUNT];
int gNextStuck;

// SplitMix64.
uint64_t Draw() {
    uint64_t z = gState += 0x9E3779B97F4A7C15;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
}

Kind DrawKind() {
    for (;;) {
        unsigned kind = static_cast<unsigned>(Draw() % KIND_COUNT);
        if (gKinds >> kind & 1)
            return Kind(kind);
    }
}

uint64_t Stick(LieSpace space, uint64_t place, uint64_t value) {
    uint64_t reads = gReads == 0 ? UINT64_MAX : 1 + Draw() % gReads;
    gStuck[gNextStuck++ % STUCK_COUNT] = {space, place, value, reads};
    return value;
}

Stuck *StuckAt(LieSpace space, uint64_t place) {
    for (Stuck &stuck : gStuck)
        if (stuck.left > 0 && stuck.space == space && stuck.place == place)
            return &stuck;
    return nullptr;
}

uint64_t Lie(LieSpace space, uint64_t place, unsigned width, uint64_t value) {
    switch (DrawKind()) {
    case FLIPPED:
        return value ^ static_cast<uint64_t>(1) << Draw() % (8 * width);
    case ONES:
        return UINT64_MAX;
    case ZEROS:
        return 0;
    case ANYTHING:
        return Draw();
    case STUCK_AT_IT:
        return Stick(space, place, value);
    default:
        return Stick(space, place, Draw());
    }
}

} // namespace

void LiesFromEnvironment() {
    const char *asked = getenv("HWBOARD_LIES");
    unsigned long seed;
    char rest;
    if (!asked || !*asked)
        return;
    gReads = USUAL_READS;
    if (sscanf(asked, "%lu %lu %c", &seed, &gReads, &rest) != 2 && sscanf(asked, "%lu %c", &seed, &rest) != 1)
        BoardFail("HWBOARD_LIES=%s is no seed and number of reads", asked);
    gLying = true;
    gState = seed;
    gHonest = Draw() % (static_cast<uint64_t>(1) << Draw() % (LATEST + 1));
    gRarity = static_cast<uint64_t>(1) << Draw() % (RAREST + 1);
    do
        gKinds = Draw() % (1 << KIND_COUNT);
    while (gKinds == 0);
}

uint64_t LieOr(LieSpace space, uint64_t place, unsigned width, uint64_t value) {
    if (!gLying || gHonest > 0) {
        gHonest -= gHonest > 0;
        return value;
    }
    if (Stuck *stuck = StuckAt(space, place)) {
        stuck->left--;
        value = stuck->value;
    } else if (Draw() % gRarity == 0)
        value = Lie(space, place, width, value);
    return width == 8 ? value : value & ((static_cast<uint64_t>(1) << (8 * width)) - 1);
}

size_t LieLength(size_t count) {
    return gLying && gHonest == 0 && count > 0 && Draw() % gRarity == 0 ? Draw() % count : count;
}
