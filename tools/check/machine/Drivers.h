// Kernel drivers that use the same hardware as hwreg's commands at the same time.
#pragma once

// Looks for them, and for the SMBus host itself, and notes them.
void FindDrivers();
