// Mistakes that can be told only when the whole board is known.
#pragma once

// Functions and SMBus hosts that no access reaches, but for verbatim ones: these are as they were found.
void CheckReach();
