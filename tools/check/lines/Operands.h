// The operands of a command line, taken as hwreg takes them, with a caution for each that is not what it
// seems.
#pragma once

#include "tools/check/lines/Line.h"

// The number count places behind the word at pos, cut to so many bits. name is what it is called.
uint32_t NumberAt(Line *line, uint16_t pos, unsigned count, unsigned bits, const char *name);

// Takes what stands behind the place of an access, from so many places behind the form's word on; a bit's
// number is cut to so many bits.
AccessOperands OperandsOf(Line *line, const AccessForm *form, unsigned count, unsigned bitNumberBits);

// An access to a place that one number names.
struct NumberedAccess {
    uint32_t number;
    AccessOperands operands;
};

// Takes it and says what it does. The number has so many bits and stands behind the form's word; name and
// where are what it and the place are called ("address", "memory at"). False for a bit that there is not.
bool TakeNumbered(Line *line, const AccessForm *form, unsigned bits, const char *name, const char *where,
                  NumberedAccess *access);

// The text there; NULL without one.
const char *TextAt(Line *line, uint16_t pos, unsigned count);

// Marks the first word that is this switch word of the command alone ("ALL", "T"). False without one; *pos
// may be NULL.
bool TakeWord(Line *line, const char *key, uint16_t *pos);

// True when the word at this place of the vector is one of the parser's switch words.
bool IsSwitchWord(const char *word);

// Cautions for views that wait for a key.
void CautionOfKeys(Line *line);
