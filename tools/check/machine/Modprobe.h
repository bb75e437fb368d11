// What "modprobe msr" would do, from the files that it reads.
#pragma once

#include <cstdint>

enum ModuleState : uint8_t {
    MODULE_LOADED,
    MODULE_BUILT_IN,
    MODULE_COMES,   // "modprobe msr" will load it
    MODULE_REFUSED, // it is there, and something keeps it from being loaded
    MODULE_ABSENT,
};

struct MsrModule {
    ModuleState state;
    char why[160];        // for REFUSED and ABSENT
    const char *remedy;   // the same; "" for none
    char allowWrites[16]; // "on", "off", "default"
    char writesFrom[80];  // what says so; "" for nobody
};

// Looks, and loads nothing.
void FindMsrModule(MsrModule *module);
