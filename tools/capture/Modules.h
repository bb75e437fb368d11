// What --superio and --spd ask for: registers behind a key, and memory modules behind a bus.
#pragma once

// Unlocks the Super I/O chip, puts the registers of all logical devices and locks it again.
void CaptureSuperIo();

// Puts what the memory modules say of themselves, after CapturePci has found the SMBus host.
void CaptureModules();
