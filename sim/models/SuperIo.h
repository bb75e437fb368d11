// A Super I/O chip's configuration registers behind an index and a data port.
#pragma once

#include "../BoardFile.h"

void SuperIoReset();

// "superio PORT KEY KEY [EXIT]": a chip at PORT (index) and PORT + 1 (data). Until both key bytes have been
// written to the index port, one after the other, everything reads FFh and nothing is kept. It closes again
// when EXIT is written to the index port (so that register EXIT cannot be reached), or, without one, when bit
// 1 of register 02h is set.
void SuperIoLine(BoardLine *line);

// "superio-global REGISTER BYTE... [ro]" and "superio-device LDN REGISTER BYTE... [ro]": registers of the
// chip above, below 30h and from there on. Others read FFh and keep nothing.
void SuperIoGlobalLine(BoardLine *line);
void SuperIoDeviceLine(BoardLine *line);
