// What the lines of a board file put into a function's configuration space.
#pragma once

#include "../BoardFile.h"

// "byte OFFSET VALUE [rw MASK] [w1c MASK]" and so on
void PciByteLine(BoardLine *line);
void PciWordLine(BoardLine *line);
void PciDwordLine(BoardLine *line);
// "irq LINE PIN", "subsystem VVVV:DDDD", "bar N io|mem|mem64 ADDRESS SIZE"
void PciIrqLine(BoardLine *line);
void PciSubsystemLine(BoardLine *line);
void PciBarLine(BoardLine *line);
// "buses PRIMARY SECONDARY SUBORDINATE", for a bridge
void PciBusesLine(BoardLine *line);
// "cap ID OFFSET [BYTE...]", "pcie OFFSET TYPE DIS|L0S|L1|L01", "xcap ID VERSION OFFSET"
void PciCapLine(BoardLine *line);
void PciExpressLine(BoardLine *line);
void PciExtendedCapLine(BoardLine *line);
