// Who this process is to the kernel: capabilities, namespaces, filters of system calls, containers, lockdown.
#pragma once

#include <cstdint>

// Looks for all of it but what only the doors themselves show, and notes it.
void FindPrivilege();

// Bits of the effective set (linux/capability.h).
constexpr unsigned CAPABILITY_MODULE = 16; // loads modules
constexpr unsigned CAPABILITY_RAWIO = 17;  // ports, /dev/mem, MSRs
constexpr unsigned CAPABILITY_ADMIN = 21;  // addresses in the kernel's lists, whole configuration spaces

enum Told : uint8_t { TOLD_NO, TOLD_YES, TOLD_NOTHING };

// Whether this process has a capability.
Told HasCapability(unsigned capability);

// False in a user namespace other than the machine's first one, where root is nobody to the hardware.
bool InFirstUserNamespace();

// True when system calls of this process are filtered.
bool HasCallFilter();

// True when this process seems to run in a container.
bool InContainer();

// True when the kernel is locked down, as far as it says.
bool IsLockedDown();
