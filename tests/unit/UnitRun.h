// What any run of the unit tests begins with.
#pragma once

// Signals act as usual whatever the starter ignores. Which of them act is found out here, once for the
// process.
void TakeSignalsAsUsual();

// Takes GoogleTest's options from the command line, and has each test start with nothing of the one before.
void BeginUnitTests(int *argc, char **argv);
