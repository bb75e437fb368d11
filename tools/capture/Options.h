// The command line of the capture.
#pragma once

#include <cstdint>

// First and last of a range that was asked for, and the die of one in the system management network.
struct AskedRange {
    uint32_t first;
    uint32_t last;
    uint32_t die;
};

constexpr uint32_t ASKED_RANGES = 64;

struct AskedRanges {
    AskedRange ranges[ASKED_RANGES];
    uint32_t count;
};

struct CaptureOptions {
    const char *output; // NULL: standard output
    bool help;
    bool version;
    bool superio;
    bool spd;
    bool noSerials;
    AskedRanges msrs;
    AskedRanges smn;
    AskedRanges ports;
    AskedRanges memory;
};

// What was asked for; written by ParseOptions alone.
extern CaptureOptions gOptions;

// Reads the command line. False, after a message on standard error, for what is no option or no range.
bool ParseOptions(int argc, char **argv);

// The summary, on standard output.
void ShowUsage();
