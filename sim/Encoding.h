// How an instruction is written: its prefixes, its opcode, and where it ends. Intel 64 and IA-32
// Architectures Software Developer's Manual, volume 2: 2.1 to 2.7 (formats), A (opcode maps); AMD64
// Architecture Programmer's Manual, volume 6, 1.9 (XOP).
#pragma once

#include <stdint.h>

struct Encoding {
    bool operandSize; // 66
    bool addressSize; // 67
    uint8_t repeat;   // F2, F3 or 0
    bool segment;     // FS or GS
    bool rexW, rexX, rexB;
    bool vector;          // VEX, EVEX or XOP
    bool evex;            // the second of these
    unsigned vectorWidth; // 16; 32 and 64 with VEX and EVEX
    unsigned map;         // 0 one byte, 1: 0F, 2: 0F 38, 3: 0F 3A; others with EVEX and XOP alone
    uint8_t opcode;
    unsigned head; // bytes up to the opcode, and with it
};

// The instruction there, up to its opcode.
void ReadEncoding(const uint8_t *code, Encoding *encoding);

// How many bytes the instruction has that begins there; 0 where none is known that ends before `end` or
// there.
unsigned InstructionLength(const uint8_t *code, const uint8_t *end, Encoding *encoding);
