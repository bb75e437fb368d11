// As much of the instruction set as is needed to tell what an instruction that faulted wanted of the
// hardware.
#pragma once

#include <stdint.h>
#include <sys/ucontext.h>

enum InstructionKind {
    INSTRUCTION_UNKNOWN,
    INSTRUCTION_PORT_IN,
    INSTRUCTION_PORT_OUT,
    INSTRUCTION_PORT_STRING, // ins, outs
    INSTRUCTION_MEMORY,
    INSTRUCTION_MEMORY_STRING, // movs, stos, lods, cmps, scas
};

struct MemoryOperand {
    uint64_t address; // virtual
    unsigned width;   // in bytes, 1 to 64
    bool read, written;
};

struct Instruction {
    InstructionKind kind;
    unsigned length; // known for port instructions only
    unsigned width;  // of a port access
    uint16_t port;
    int operandCount;
    MemoryOperand operands[2]; // in the order in which the processor uses them
};

// `registers` are those of the signal's context (REG_RAX ...).
Instruction DecodeInstruction(const uint8_t *code, const greg_t *registers);
