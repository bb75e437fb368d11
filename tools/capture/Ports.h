// What stands behind ports: the clock's memory, power management, and ports that were asked for.
#pragma once

// Puts both banks of the CMOS memory as they are read.
void CaptureCmos();

// Puts the PM1 block where the FADT has it.
void CapturePm1();

// Puts AMD's power-management registers on their chipsets.
void CapturePmRegisters();

// Puts the ports of --ports.
void CapturePorts();
