// What the fuzzers by goal share: numbers, texts and choices out of an input, and what has to hold.
#pragma once

#include "tests/fuzz/Fuzzers.h"

// Ends the fuzzer with a message when something that has to hold does not.
void Expect(bool holds, const char *what);

// Numbers, lowest byte first; bytes behind the end of the input are 0.
uint16_t Take16(Input *input);
uint32_t Take32(Input *input);
uint64_t Take64(Input *input);

// A number below a limit that is not 0.
uint32_t TakeBelow(Input *input, uint32_t limit);

// A number of that many bits out of few bytes: small, at a power of two, its complement or any.
uint64_t TakeOdd(Input *input, unsigned bits);

// A text ended by a line feed or the input's end, at most so many bytes, in a heap block of its own size
// (freed by the caller), so that the sanitizer sees its end. NUL bytes end it, too.
char *TakeText(Input *input, size_t most);

// The same for bytes: those that there are, at most so many.
uint8_t *TakeBlock(Input *input, size_t most, size_t *length);

// True when all bytes are this one.
bool AllBytes(const void *bytes, uint8_t value, size_t count);

// What the procedure writes to standard output from here to the end; the text has a NUL behind it.
void BeginOutput();
const char *EndOutputOf(size_t *length);
