// Synopsys DW_apb_i2c cores as masters, with register-file devices on their buses.
#pragma once

#include "../BoardFile.h"

void DwI2cReset();

// "i2c-core BASE [OPTIONS]": a core. Named again, the one that is there is changed. Options:
//   rx DEPTH, tx DEPTH      FIFO depths 1 to 100 (256), 10 (16) unless given
//   byte-time US            time of a byte or an address on the bus, 5a (90) unless given
//   never-disables          it is enabled and stays so, whatever is written
//   stays-busy              the bus is never free
//   abort-after COUNT SOURCE  raises TX_ABRT with that source when so many bytes have been received; they
//   stay
void I2cCoreLine(BoardLine *line);

// "i2c-device ADDRESS [refuses N]": a device of 256 registers of 16 bits on the bus of the core above, at a
// 7-bit address. The first byte of a write chooses the register, the others go to it and the ones behind it,
// low byte first, as reads come from there. It does not acknowledge byte N of a write, 1 being the first.
void I2cDeviceLine(BoardLine *line);

// "i2c-words REGISTER WORD...": contents of the device above.
void I2cWordsLine(BoardLine *line);
