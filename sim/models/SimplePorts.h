// Ports without a device worth the name: latches that keep a byte each, constants, and the delay port.
#pragma once

#include "../BoardFile.h"

void SimplePortsReset();

// "latch PORT COUNT [BYTE | counting]": each byte keeps what was written last. They share one store of 65536
// bytes.
void LatchPortLine(BoardLine *line);
void LatchPortSet(uint16_t port, uint8_t value);
uint8_t LatchPortGet(uint16_t port);

// "constant PORT BYTE...": reads these bytes, whatever is written.
void ConstantPortLine(BoardLine *line);

// To be called before the board file is read: port EDh takes a microsecond of the board's time for each
// write, until a line puts something else there.
void DelayPortStart();
// "delay PORT": another port that does, and where nothing answers.
void DelayPortLine(BoardLine *line);
uint64_t DelayPortMicroseconds();
