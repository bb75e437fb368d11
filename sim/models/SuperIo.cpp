// The scheme of ISA Plug and Play that Super I/O chips share: an index and a data port, global registers 00h
// to 2Fh, and the registers from 30h on of the logical device that register 07h selects (Plug and Play ISA
// 1.0a, chapter 4 and appendix A). Entry by a key of two bytes and exit by a key at the index
// port as in Nuvoton's data sheets (NCT6776F, chapter 8), exit by register 02h as in ITE's (IT8728F, chapter
// 8).
#include "SuperIo.h"

#include "../Arena.h"
#include "../Ports.h"

namespace {

constexpr uint32_t FIRST_DEVICE_REGISTER = 0x30;

enum : uint8_t {
    CONFIGURE_CONTROL = 0x02,
    WAIT_FOR_KEY = 0x02, // bit 1 of it
    LOGICAL_DEVICE = 0x07,
};

struct Register {
    uint8_t value;
    bool present;
    bool writable;
};

struct Device {
    Register registers[0x100];
};

struct Chip {
    uint16_t port;
    uint8_t keys[2];
    bool hasExitKey;
    uint8_t exitKey;
    uint8_t keysSeen;
    bool open;
    uint8_t index;
    Register globals[FIRST_DEVICE_REGISTER];
    Device devices[0x100];
};

Chip *gChip; // the one that the lines of the board file are about

// The register that the index names.
Register *Selected(Chip *chip) {
    if (chip->index < FIRST_DEVICE_REGISTER)
        return &chip->globals[chip->index];
    return &chip->devices[chip->globals[LOGICAL_DEVICE].value].registers[chip->index];
}

void Close(Chip *chip) {
    chip->open = false;
    chip->keysSeen = 0;
}

void TakeKey(Chip *chip, uint8_t value) {
    if (value == chip->keys[chip->keysSeen & 1])
        chip->keysSeen++;
    else
        chip->keysSeen = value == chip->keys[0];
    chip->open = chip->keysSeen == 2;
}

void WriteIndex(Chip *chip, uint8_t value) {
    if (!chip->open)
        TakeKey(chip, value);
    else if (chip->hasExitKey && value == chip->exitKey)
        Close(chip);
    else
        chip->index = value;
}

void WriteData(Chip *chip, uint8_t value) {
    Register *selected = Selected(chip);
    if (!chip->open)
        return;
    if (!chip->hasExitKey && chip->index == CONFIGURE_CONTROL && (value & WAIT_FOR_KEY))
        Close(chip);
    else if (selected->present && selected->writable)
        selected->value = value;
}

uint32_t ReadPort(void *device, uint16_t port, unsigned) {
    Chip *chip = static_cast<Chip *>(device);
    if (!chip->open)
        return 0xFF;
    if (port == chip->port)
        return chip->index;
    const Register *selected = Selected(chip);
    return selected->present ? selected->value : 0xFF;
}

void WritePort(void *device, uint16_t port, unsigned, uint32_t value) {
    Chip *chip = static_cast<Chip *>(device);
    if (port == chip->port)
        WriteIndex(chip, static_cast<uint8_t>(value));
    else
        WriteData(chip, static_cast<uint8_t>(value));
}

void NeedChip(const BoardLine *line) {
    if (!gChip)
        LineFail(line, "the board has no superio yet", nullptr);
}

// The words from `word` on: the first register, then the bytes, then perhaps "ro".
void SetRegisters(const BoardLine *line, int word, Register *registers, uint32_t from, uint32_t to) {
    uint32_t at = static_cast<uint32_t>(LineNumber(line, word, to - 1));
    bool readOnly = LineHas(line, line->count - 1, "ro");
    LineByte(line, word + 1);
    for (int i = word + 1; i < line->count - readOnly; i++, at++) {
        if (at < from || at >= to)
            LineFail(line, "registers 00 to 2f are the chip's, 30 to ff a device's", LineWord(line, word));
        registers[at] = {static_cast<uint8_t>(LineNumber(line, i, 0xFF)), true, !readOnly};
    }
}

} // namespace

void SuperIoReset() {
    gChip = nullptr;
}

void SuperIoLine(BoardLine *line) {
    gChip = static_cast<Chip *>(ArenaTakeRegisters(sizeof(Chip)));
    gChip->port = static_cast<uint16_t>(LineNumber(line, 1, 0xFFFE));
    gChip->keys[0] = static_cast<uint8_t>(LineNumber(line, 2, 0xFF));
    gChip->keys[1] = static_cast<uint8_t>(LineNumber(line, 3, 0xFF));
    gChip->hasExitKey = line->count > 4;
    if (gChip->hasExitKey)
        gChip->exitKey = static_cast<uint8_t>(LineNumber(line, 4, 0xFF));
    gChip->globals[LOGICAL_DEVICE] = {0, true, true};
    ClaimPorts(gChip->port, 2, WIDTH_8, ReadPort, WritePort, gChip);
}

void SuperIoGlobalLine(BoardLine *line) {
    NeedChip(line);
    SetRegisters(line, 1, gChip->globals, 0, FIRST_DEVICE_REGISTER);
}

void SuperIoDeviceLine(BoardLine *line) {
    NeedChip(line);
    uint8_t number = static_cast<uint8_t>(LineNumber(line, 1, 0xFF));
    SetRegisters(line, 2, gChip->devices[number].registers, FIRST_DEVICE_REGISTER, 0x100);
}
