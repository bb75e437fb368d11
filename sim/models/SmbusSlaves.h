// What hangs on the board's SMBus: EEPROMs and the SPD of DDR4 modules (System Management Bus 2.0, 5.5;
// JESD21-C, 4.1.6, EE1004 and TSE2004). Addresses are 8-bit ones, bit 0 being the direction.
#pragma once

#include "../BoardFile.h"

void SmbusSlavesReset();
// The last line that made a slave.
LinePlace SmbusSlavePlace();

enum SmbusOutcome {
    SMBUS_DONE,
    SMBUS_NOT_ACKNOWLEDGED,
    SMBUS_COLLISION, // another master won the bus
    SMBUS_HELD,      // the clock stays low
};

// The read byte and write byte protocols, ending at that time in microseconds. *data is set only by
// SMBUS_DONE.
SmbusOutcome SmbusReadByte(uint8_t address, uint8_t command, uint8_t *data, uint64_t time);
SmbusOutcome SmbusWriteByte(uint8_t address, uint8_t command, uint8_t data, uint64_t time);

// "smbus-eeprom ADDRESS [OPTIONS]": 256 bytes, all 0. "smbus-spd ADDRESS [OPTIONS]": 512 bytes in two pages,
// selected for all modules at once by writing to 6Ch (page 0) and 6Eh (page 1). A read at 6Dh is acknowledged
// while page 0 is selected, one at 6Fh never. Named again, the slave that is there is changed. Options, of
// which the offsets count through both pages:
//   write-time US   it does not answer for so long after each write
//   stops OFFSET    from there on it does not acknowledge
//   collides OFFSET from there on another master wins the bus
//   holds OFFSET    from there on it keeps the clock low for ever
void SmbusEepromLine(BoardLine *line);
void SmbusSpdLine(BoardLine *line);

// "smbus-remove ADDRESS"
void SmbusRemoveLine(BoardLine *line);

// "smbus-bytes OFFSET BYTE..." and "smbus-fill OFFSET COUNT BYTE|counting": contents of the slave above.
void SmbusBytesLine(BoardLine *line);
void SmbusFillLine(BoardLine *line);
