// A machine of a fuzzer's own in place of a board: a handful of procedures that answer for ports, registers
// and MSRs, and areas of memory. It costs no system call, which makes a fuzzer by goal many times as fast.
#pragma once

#include <stdint.h>

// What answers; each may be left out. Ports without one read all ones, registers are memory then, MSRs read
// 0.
struct Machine {
    uint32_t (*readPort)(uint16_t port, unsigned width);
    void (*writePort)(uint16_t port, unsigned width, uint32_t value);
    uint32_t (*readRegister)(uint32_t address, unsigned width); // single accesses to memory, not the copies
    void (*writeRegister)(uint32_t address, unsigned width, uint32_t value);
    uint64_t (*readMsr)(uint32_t index);
    void (*writeMsr)(uint32_t index, uint64_t value);
    void (*readCpuid)(uint32_t leaf, uint32_t registers[4]);
};

// From here to StopMachine the program's accesses are this machine's. It begins without memory, and with
// nothing known of its chipset.
void StartMachine(const Machine *machine);
void StopMachine();
bool MachineIsOn();

// Memory from a page on, of whole pages. What is nowhere reads all ones.
void AddMemory(uint32_t address, uint8_t *bytes, uint32_t length);

// A page that cannot be mapped, with the error that mmap gives; through the second descriptor it can, unless
// that is refused, too.
void RefusePage(uint32_t address, int error, bool throughSecond);

// Whether the second descriptor can be had (at the start it can).
void SetSecondDescriptor(bool there);

// What has happened since the start: delay units, maps that are still held, holds of signals that have not
// been released.
uint64_t MachineDelays();
int MapsHeld();
int SignalHolds();

// One port access, for whoever stands in front of the ports.
uint32_t MachineReadPort(uint32_t port, unsigned width);
void MachineWritePort(uint32_t port, unsigned width, uint32_t value);
void MachineDelay(uint32_t count);

// The processor's leaf; false without one of this machine's.
bool MachineCpuid(uint32_t leaf, uint32_t registers[4]);
