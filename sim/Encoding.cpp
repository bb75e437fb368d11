#include "Encoding.h"

#include <string.h>

namespace {

constexpr unsigned LONGEST = 15;
constexpr unsigned UNKNOWN = LONGEST + 1;

// What follows an opcode, a character each: nothing (' '), an immediate of 1 byte (b), of 2 (w), of 2 and 1
// (e), of the operand size (z: 2 or 4; v: up to 8), a relative address of 4 (j), an absolute one (a); a ModRM
// byte (m), and behind it an immediate of 1 byte (B), of 2 (W), of the operand size (Z), or one with the
// first two of its group alone (g, G); a ModRM byte that never names memory (r). No instruction: x.
const char ONE_BYTE[] = "mmmmbzxxmmmmbzxx" // 0F is no opcode, nor are prefixes
                        "mmmmbzxxmmmmbzxx"
                        "mmmmbzxxmmmmbzxx"
                        "mmmmbzxxmmmmbzxx"
                        "xxxxxxxxxxxxxxxx"
                        "                "
                        "xxxmxxxxzZbB    "
                        "bbbbbbbbbbbbbbbb"
                        "BZxBmmmmmmmmmmmm"
                        "          x     "
                        "aaaa    bz      "
                        "bbbbbbbbvvvvvvvv"
                        "BBw xxBZe w  bx "
                        "mmmmxxx mmmmmmmm"
                        "bbbbbbbbjjxb    "
                        "x xx  gG      mm";
const char TWO_BYTE[] = "mmmmx     x xm B"
                        "mmmmmmmmmmmmmmmm"
                        "rrrrxxxxmmmmmmmm"
                        "      x xxxxxxxx"
                        "mmmmmmmmmmmmmmmm"
                        "mmmmmmmmmmmmmmmm"
                        "mmmmmmmmmmmmmmmm"
                        "BBBBmmm mmmmmmmm"
                        "jjjjjjjjjjjjjjjj"
                        "mmmmmmmmmmmmmmmm"
                        "   mBmmm   mBmmm"
                        "mmmmmmmmmmBmmmmm"
                        "mmBmBBBm        "
                        "mmmmmmmmmmmmmmmm"
                        "mmmmmmmmmmmmmmmm"
                        "mmmmmmmmmmmmmmmm";
static_assert(sizeof ONE_BYTE == 257 && sizeof TWO_BYTE == 257, "an entry for each opcode");

constexpr uint8_t VZEROUPPER = 0x77;
constexpr uint8_t EXTRQ = 0x78;

const uint8_t *ReadPrefixes(const uint8_t *at, Encoding *e) {
    for (;; at++) {
        if (*at == 0x66)
            e->operandSize = true;
        else if (*at == 0x67)
            e->addressSize = true;
        else if (*at == 0xF2 || *at == 0xF3)
            e->repeat = *at;
        else if (*at == 0x64 || *at == 0x65)
            e->segment = true;
        else if (*at != 0x2E && *at != 0x36 && *at != 0x3E && *at != 0x26 && *at != 0xF0)
            break;
    }
    if ((*at & 0xF0) == 0x40) {
        e->rexW = *at & 8;
        e->rexX = *at & 2;
        e->rexB = *at & 1;
        at++;
    }
    return at;
}

// The prefix that the two low bits of a VEX, EVEX or XOP byte stand for.
void ImpliedPrefix(uint8_t bits, Encoding *e) {
    e->operandSize = bits == 1;
    e->repeat = bits == 2 ? 0xF3 : bits == 3 ? 0xF2 : 0;
}

// XOP's first byte is that of a pop, which has no bits where XOP has its map.
bool IsVectorPrefix(const uint8_t *at) {
    return *at == 0xC4 || *at == 0xC5 || *at == 0x62 || (*at == 0x8F && (at[1] & 0x1F) >= 8);
}

const uint8_t *ReadVectorPrefix(const uint8_t *at, Encoding *e) {
    e->vector = true;
    if (at[0] == 0xC5) {
        e->map = 1;
        e->vectorWidth = (at[1] & 4) ? 32 : 16;
        ImpliedPrefix(at[1] & 3, e);
        return at + 2;
    }
    e->rexX = !(at[1] & 0x40);
    e->rexB = !(at[1] & 0x20);
    e->rexW = at[2] & 0x80;
    ImpliedPrefix(at[2] & 3, e);
    if (at[0] != 0x62) {
        e->map = at[1] & 0x1F;
        e->vectorWidth = (at[2] & 4) ? 32 : 16;
        return at + 3;
    }
    e->evex = true;
    e->map = at[1] & 7;
    e->vectorWidth = 16u << ((at[3] >> 5) & 3);
    return at + 4;
}

char WhatFollows(const Encoding *e) {
    switch (e->map) {
    case 0:
        return ONE_BYTE[e->opcode];
    case 1:
        if (e->vector) // nothing but vectors and masks is there, and one that has no operand
            return strchr("mB", TWO_BYTE[e->opcode]) || e->opcode == VZEROUPPER ? TWO_BYTE[e->opcode] : 'x';
        if (e->opcode == EXTRQ && (e->operandSize || e->repeat == 0xF2))
            return 'W';
        return TWO_BYTE[e->opcode];
    case 3:
    case 8: // XOP
        return 'B';
    case 2:
    case 5: // EVEX
    case 6:
    case 9: // XOP
        return 'm';
    case 10: // XOP
        return 'Z';
    default:
        return 'x';
    }
}

unsigned ModrmLength(const uint8_t *at) {
    unsigned mode = *at >> 6;
    unsigned base = *at & 7;
    if (mode == 3)
        return 1;
    unsigned length = 1;
    if (base == 4) {
        base = at[1] & 7;
        length = 2;
    }
    return length + (mode == 1 ? 1 : mode == 2 || base == 5 ? 4 : 0);
}

unsigned OperandsLength(char what, const uint8_t *at, const Encoding *e) {
    unsigned sized = e->operandSize && !e->rexW ? 2 : 4;
    switch (what) {
    case ' ':
        return 0;
    case 'b':
    case 'r':
        return 1;
    case 'w':
        return 2;
    case 'e':
        return 3;
    case 'z':
        return sized;
    case 'v':
        return e->rexW ? 8 : sized;
    case 'j': // with an operand size of 16 bits processors differ
        return sized == 4 ? 4 : UNKNOWN;
    case 'a':
        return e->addressSize ? 4 : 8;
    case 'm':
        return ModrmLength(at);
    case 'B':
        return ModrmLength(at) + 1;
    case 'W':
        return ModrmLength(at) + 2;
    case 'Z':
        return ModrmLength(at) + sized;
    case 'g':
    case 'G':
        return ModrmLength(at) + ((*at & 0x30) ? 0 : what == 'g' ? 1 : sized);
    default:
        return UNKNOWN;
    }
}

} // namespace

void ReadEncoding(const uint8_t *code, Encoding *encoding) {
    *encoding = {};
    encoding->vectorWidth = 16;
    const uint8_t *at = ReadPrefixes(code, encoding);
    if (IsVectorPrefix(at))
        at = ReadVectorPrefix(at, encoding);
    else if (*at == 0x0F) {
        encoding->map = at[1] == 0x38 ? 2 : at[1] == 0x3A ? 3 : 1;
        at += encoding->map == 1 ? 1 : 2;
    }
    encoding->opcode = *at++;
    encoding->head = static_cast<unsigned>(at - code);
}

unsigned InstructionLength(const uint8_t *code, const uint8_t *end, Encoding *encoding) {
    unsigned there = end - code < LONGEST ? static_cast<unsigned>(end - code) : LONGEST;
    uint8_t bytes[2 * LONGEST] = {}; // whatever it begins with, it ends in here
    memcpy(bytes, code, there);
    ReadEncoding(bytes, encoding);
    unsigned length =
        encoding->head + OperandsLength(WhatFollows(encoding), bytes + encoding->head, encoding);
    return length <= there ? length : 0;
}
