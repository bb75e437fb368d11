// The command line of the check.
#pragma once

struct CheckOptions {
    bool json;
    bool help;
    bool version;
    int firstWord; // of hwreg's, in the argument vector; its length where there is none
};

// What was asked for; written by ParseOptions alone.
extern CheckOptions gOptions;

// Reads the options in front of hwreg's words. False, after a message on standard error, for what is no
// option.
bool ParseOptions(int argc, char **argv);

// The summary, on standard output.
void ShowUsage();
