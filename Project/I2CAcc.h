// The /I2C command.
#pragma once

// Handler of /I2C. The value read, 0xFFFF without an access, 2 after the help, -1 after a failure.
int I2CEntryPoint();
