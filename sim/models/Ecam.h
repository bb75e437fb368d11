// Configuration space in memory: PCI Express Base 3.0, 7.2.2 (enhanced configuration access mechanism).
#pragma once

#include "../BoardFile.h"

void EcamReset();

// "ecam BASE BUSES": a window of 1 MiB for each bus.
void EcamLine(BoardLine *line);

// True when a window has the bus.
bool EcamReaches(unsigned bus);
