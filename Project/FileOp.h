// The file dump command: /MEM /RF and /IO /RF.
#pragma once

#include <cstdint>

// Copies a range of physical memory, or of ports read byte by byte, into a new file. 0, also after a write
// that came up short; an error status when nothing was written.
uint32_t FileOptEntry();
