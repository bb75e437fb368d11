// The process's access to the machine: I/O privilege, the physical-memory device, the MSR driver.
#pragma once

#include "Base/Types.h"

// Descriptor of the physical-memory device. MEM_FD_NONE: physical memory is not available.
extern int16_t gMemFd;
constexpr int16_t MEM_FD_NONE = static_cast<int16_t>(0xFFFF);

// Raises the I/O privilege level to 3 (iopl(2)), opens "/dev/mem" (mem(4)) and makes sure that the MSR
// driver is loaded (msr(4)). 0, or 0x8000000F with nothing opened when the privilege is refused; without
// the memory device or MSR nodes the result is still 0. Prints nothing.
EFI_STATUS OpenLinuxDriver();

// Gives the I/O privilege back and closes the memory device, if there is one. Always 0.
EFI_STATUS CloseLinuxDriver();
