// The file dump command: /MEM /RF and /IO /RF.
#pragma once

#include <cstdint>

// Copies a range of physical memory, or of ports read byte by byte, into a new file. 0, also after a write
// that came up short; 0x80000002 after the help, 0x80000003 without the switch word, 0x80000015 for a range
// beyond 4 GiB or a file that cannot be created, 0x80000009 without memory, with the file created and empty.
uint32_t FileOptEntry();
