#include "Fuzzers.h"

#include "Command.h"
#include "goals/Goals.h"

#include <stdio.h>
#include <string.h>

static const Fuzzer FUZZERS[] = {
    {"words", nullptr, FuzzWords, nullptr, false},
    {"tables", ReadCommands, FuzzTables, nullptr, false},
    {"devices", ReadCommands, FuzzDevices, nullptr, false},
    {"keys", ReadCommands, FuzzKeys, MutateKeys, false},
    {"numbers", nullptr, FuzzNumbers, nullptr, true},
    {"switches", nullptr, FuzzSwitches, nullptr, true},
    {"format", nullptr, FuzzFormat, nullptr, true},
    {"search", nullptr, FuzzSearch, nullptr, true},
    {"procedures", nullptr, FuzzProcedures, nullptr, true},
    {"pages", nullptr, FuzzPages, nullptr, true},
    {"memory", nullptr, FuzzMemory, nullptr, true},
    {"smbios", nullptr, FuzzSmbios, nullptr, true},
    {"acpi", nullptr, FuzzAcpi, nullptr, true},
    {"pci", nullptr, FuzzPci, nullptr, true},
    {"caps", nullptr, FuzzCaps, nullptr, true},
    {"ports", nullptr, FuzzPorts, nullptr, true},
    {"smbus", nullptr, FuzzSmbus, nullptr, true},
    {"i2c", nullptr, FuzzI2c, nullptr, true},
    {"clock", nullptr, FuzzClock, nullptr, true},
    {"platform", nullptr, FuzzPlatform, nullptr, true},
    {"sequences", nullptr, FuzzSequences, nullptr, false},
    {"boards", nullptr, FuzzBoards, nullptr, true},
    {"files", nullptr, FuzzFiles, nullptr, false},
    {"doors", nullptr, FuzzDoors, nullptr, false},
};

const Fuzzer *FindFuzzer(const char *name) {
    for (const Fuzzer &fuzzer : FUZZERS)
        if (strcmp(fuzzer.name, name) == 0)
            return &fuzzer;
    return nullptr;
}

void ListFuzzers() {
    for (const Fuzzer &fuzzer : FUZZERS)
        puts(fuzzer.name);
}
