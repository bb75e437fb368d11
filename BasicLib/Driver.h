// The process's access to the machine: I/O privilege, the physical-memory device, the MSR driver.
//
// No command reaches: ProbeIoPrivilege.
#pragma once

#include "Base/Types.h"

// Descriptor of the physical-memory device. MEM_FD_NONE: physical memory is not available.
extern int16_t gMemFd;
constexpr int16_t MEM_FD_NONE = static_cast<int16_t>(0xFFFF);

// A second descriptor of the same device, opened without O_SYNC when it is first asked for and kept for the
// run; MEM_FD_NONE when it cannot be opened. Memory that the kernel itself holds cached, firmware tables for
// the most part, can be mapped only through it (Documentation/x86/pat.rst of the Linux kernel).
int16_t CachedMemFd();

// 0 when the I/O privilege is granted, which is given back at once, else the error number (errno(3)).
int ProbeIoPrivilege();

// Opens "/dev/mem" (mem(4)); errno(3) tells why gMemFd is MEM_FD_NONE then.
void OpenMemoryDevice();

// Raises the I/O privilege level to 3 (iopl(2)) and opens "/dev/mem". 0, or 0x8000000F with nothing opened
// when the privilege is refused; without the memory device the result is still 0. Prints nothing.
EFI_STATUS OpenPortsAndMemory();

// The same, and makes sure that the MSR driver is loaded (msr(4)); without MSR nodes the result is still 0.
EFI_STATUS OpenLinuxDriver();

// Gives the I/O privilege back and closes the descriptors of the memory device, if there are any. Always 0.
EFI_STATUS CloseLinuxDriver();
