#include "Decode.h"

#include "Encoding.h"

#include <string.h>

namespace {

// The register numbers of ModRM and SIB bytes.
const int REGISTERS[16] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                           REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};

enum Direction { NOTHING = 0, READS = 1, WRITES = 2, BOTH = 3 };

struct Access {
    Direction direction;
    unsigned width;
};

int64_t Displacement(const uint8_t *at, unsigned size) {
    if (size == 1)
        return int8_t(*at);
    int32_t value;
    memcpy(&value, at, sizeof value);
    return value;
}

// The effective address of a ModRM byte that names memory. A compressed displacement (EVEX) counts in units
// of the access width.
bool EffectiveAddress(const uint8_t *modrm, const greg_t *registers, const Encoding *e, unsigned width,
                      uint64_t *address) {
    unsigned mode = *modrm >> 6;
    unsigned base = *modrm & 7;
    const uint8_t *at = modrm + 1;
    uint64_t sum = 0;
    bool noBase = false;
    if (base == 4) {
        unsigned index = ((*at >> 3) & 7) | (e->rexX ? 8 : 0);
        base = *at & 7;
        if (index != 4)
            sum = static_cast<uint64_t>(registers[REGISTERS[index]]) << (*at >> 6);
        noBase = base == 5 && mode == 0;
        at++;
    } else if (base == 5 && mode == 0) {
        return false; // relative to the instruction pointer: no device was ever mapped there
    }
    if (!noBase)
        sum += static_cast<uint64_t>(registers[REGISTERS[base | (e->rexB ? 8 : 0)]]);
    if (mode == 1)
        sum += static_cast<uint64_t>(Displacement(at, 1) * (e->evex ? static_cast<int64_t>(width) : 1));
    else if (mode == 2 || noBase)
        sum += static_cast<uint64_t>(Displacement(at, 4));
    *address = e->addressSize ? sum & 0xFFFFFFFF : sum;
    return true;
}

// Opcodes of one byte that have a ModRM byte.
Access OneByteAccess(uint8_t opcode, uint8_t modrm, unsigned width) {
    unsigned reg = (modrm >> 3) & 7;
    unsigned size = (opcode & 1) ? width : 1;
    if (opcode < 0x40 && (opcode & 7) < 4) { // add, or, adc, sbb, and, sub, xor, cmp
        bool toMemory = !(opcode & 2) && (opcode >> 3) != 7;
        return {toMemory ? BOTH : READS, size};
    }
    switch (opcode) {
    case 0x63: // movsxd
        return {READS, 4};
    case 0x69:
    case 0x6B: // imul
        return {READS, width};
    case 0x80:
    case 0x81:
    case 0x83: // add ... cmp with an immediate
        return {reg == 7 ? READS : BOTH, size};
    case 0x84:
    case 0x85: // test
    case 0x8A:
    case 0x8B: // mov
        return {READS, size};
    case 0x88:
    case 0x89: // mov
        return {WRITES, size};
    case 0x86:
    case 0x87: // xchg
    case 0xC0:
    case 0xC1:
    case 0xD0:
    case 0xD1:
    case 0xD2:
    case 0xD3: // shifts and rotates
        return {BOTH, size};
    case 0xC6:
    case 0xC7: // mov with an immediate
        return {reg == 0 ? WRITES : NOTHING, size};
    case 0xF6:
    case 0xF7: // test; not, neg; mul, imul, div, idiv
        return {reg == 2 || reg == 3 ? BOTH : READS, size};
    case 0xFE:
    case 0xFF: // inc, dec; call, push
        return {reg < 2 ? BOTH : READS, reg < 2 ? size : 8};
    default:
        return {NOTHING, 0};
    }
}

// Scalar forms of the SSE moves: movss with F3, movsd with F2, else the whole vector.
unsigned ScalarOrVector(const Encoding *e) {
    return e->repeat == 0xF3 ? 4 : e->repeat == 0xF2 ? 8 : e->vectorWidth;
}

// Opcodes behind 0F.
Access TwoByteAccess(uint8_t opcode, uint8_t modrm, unsigned width, const Encoding *e) {
    unsigned general = e->rexW ? 8 : 4;
    bool vector = e->operandSize || e->repeat != 0 || e->vectorWidth > 16;
    if (opcode >= 0x40 && opcode <= 0x4F) // cmov
        return {READS, width};
    switch (opcode) {
    case 0x10:
        return {READS, ScalarOrVector(e)};
    case 0x11:
        return {WRITES, ScalarOrVector(e)};
    case 0x12:
    case 0x16:
        return {READS, e->repeat == 0xF3 ? e->vectorWidth : 8};
    case 0x13:
    case 0x17:
    case 0xD6:
        return {WRITES, 8};
    case 0x28:
        return {READS, e->vectorWidth};
    case 0x29:
    case 0x2B:
        return {WRITES, e->vectorWidth};
    case 0x6E:
        return {READS, general};
    case 0x6F:
        return {READS, vector ? e->vectorWidth : 8};
    case 0x7E:
        return e->repeat == 0xF3 ? Access{READS, 8} : Access{WRITES, general};
    case 0x7F:
    case 0xE7:
        return {WRITES, vector ? e->vectorWidth : 8};
    case 0xB6:
    case 0xBE:
        return {READS, 1};
    case 0xB7:
    case 0xBF:
        return {READS, 2};
    case 0xB0:
    case 0xC0: // cmpxchg, xadd
        return {BOTH, 1};
    case 0xB1:
    case 0xC1:
        return {BOTH, width};
    case 0xAF: // imul
        return {READS, width};
    case 0xBA: // bt, bts, btr, btc with an immediate
        return {((modrm >> 3) & 7) == 4 ? READS : BOTH, width};
    case 0xC3: // movnti
        return {WRITES, general};
    default: // arithmetic on vectors
        return {(opcode >= 0x50 && opcode <= 0x76) || opcode >= 0xD0 ? READS : NOTHING,
                vector ? e->vectorWidth : 8};
    }
}

// Opcodes behind 0F 38.
Access ThreeByteAccess(uint8_t opcode, unsigned width, const Encoding *e) {
    if (opcode == 0xF0 || opcode == 0xF1) // movbe
        return {opcode == 0xF0 ? READS : WRITES, width};
    if (opcode == 0x58 || opcode == 0x59 || opcode == 0x78 || opcode == 0x79) { // vpbroadcast d, q, b, w
        const unsigned WIDTHS[4] = {4, 8, 1, 2};
        return {READS, WIDTHS[(opcode & 1) | (opcode >= 0x78 ? 2 : 0)]};
    }
    return {READS, e->vectorWidth};
}

void DecodePort(uint8_t opcode, const uint8_t *at, const greg_t *registers, const Encoding *e,
                Instruction *result) {
    result->kind = (opcode & 2) ? INSTRUCTION_PORT_OUT : INSTRUCTION_PORT_IN;
    result->width = !(opcode & 1) ? 1 : e->operandSize ? 2 : 4;
    result->port = (opcode & 8) ? static_cast<uint16_t>(registers[REG_RDX]) : *at;
    result->length = (opcode & 8) ? 0 : 1;
}

void AddOperand(Instruction *result, uint64_t address, unsigned width, Direction direction) {
    result->operands[result->operandCount++] = {address, width, (direction & READS) != 0,
                                                (direction & WRITES) != 0};
}

// One iteration, whether repeated or not: the trap flag stops after each.
bool DecodeString(uint8_t opcode, const greg_t *registers, unsigned width, Instruction *result) {
    unsigned size = (opcode & 1) ? width : 1;
    uint64_t source = static_cast<uint64_t>(registers[REG_RSI]);
    uint64_t destination = static_cast<uint64_t>(registers[REG_RDI]);
    switch (opcode & 0xFE) {
    case 0xA4: // movs
        AddOperand(result, source, size, READS);
        AddOperand(result, destination, size, WRITES);
        break;
    case 0xA6: // cmps
        AddOperand(result, source, size, READS);
        AddOperand(result, destination, size, READS);
        break;
    case 0xAA: // stos
        AddOperand(result, destination, size, WRITES);
        break;
    case 0xAC: // lods
        AddOperand(result, source, size, READS);
        break;
    case 0xAE: // scas
        AddOperand(result, destination, size, READS);
        break;
    default:
        return false;
    }
    result->kind = INSTRUCTION_MEMORY_STRING;
    return true;
}

} // namespace

Instruction DecodeInstruction(const uint8_t *code, const greg_t *registers) {
    Instruction result = {};
    Encoding e;
    ReadEncoding(code, &e);
    const uint8_t *at = code + e.head;
    uint8_t opcode = e.opcode;
    unsigned width = e.rexW ? 8 : e.operandSize ? 2 : 4;

    if (e.map == 0 && (opcode & 0xF4) == 0xE4) {
        DecodePort(opcode, at, registers, &e, &result);
        result.length += e.head;
        return result;
    }
    if (e.map == 0 && opcode >= 0x6C && opcode <= 0x6F) {
        result.kind = INSTRUCTION_PORT_STRING;
        return result;
    }
    if (e.segment || (e.map == 0 && DecodeString(opcode, registers, width, &result)))
        return result;
    if (e.map == 0 && opcode >= 0xA0 && opcode <= 0xA3) { // mov between the accumulator and a full address
        uint64_t address;
        memcpy(&address, at, sizeof address);
        result.kind = INSTRUCTION_MEMORY;
        AddOperand(&result, address, (opcode & 1) ? width : 1, (opcode & 2) ? WRITES : READS);
        return result;
    }
    Access access = e.map == 0   ? OneByteAccess(opcode, *at, width)
                    : e.map == 1 ? TwoByteAccess(opcode, *at, width, &e)
                    : e.map == 2 ? ThreeByteAccess(opcode, width, &e)
                                 : Access{READS, e.vectorWidth};
    uint64_t address;
    if (access.direction == NOTHING || *at >= 0xC0 ||
        !EffectiveAddress(at, registers, &e, access.width, &address))
        return result;
    result.kind = INSTRUCTION_MEMORY;
    AddOperand(&result, address, access.width, access.direction);
    return result;
}
