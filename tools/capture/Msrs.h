// The model-specific registers of all processors.
#pragma once

#include <cstdint>

// Puts the MSRs of the table that are there, those of the machine-check banks and those that were asked for;
// what processors differ in with a list of them.
void CaptureMsrs();
