// For a process that makes many runs of the program, one after the other (tests/fuzz): the accesses arrive by
// calls instead of faults, and the memory goes back to what it was.
//
// Who switches this on has to tell of each load and store that the program makes in mappings of /dev/mem, to
// make its port accesses with BoardPortRead and BoardPortWrite, and to answer its CPUID.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Before the first BoardLoad: from now on a mapping of /dev/mem is the place in the board's memory itself, no
// page is closed, no signal is taken and the program's CPUID stays where it is. Nothing is logged until
// BoardLogAccesses(1).
//
// Only what lies in the window has to be told: the memory, but for loads from its page `plain` (0: there is
// none), which is mapped and no device's.
struct BoardWindow {
    uintptr_t start, length, plain;
};
enum { BOARD_PAGE = 4096 };
void BoardDirect(struct BoardWindow *window);
void BoardLogAccesses(int wanted);

// Before the program loads or stores so many bytes in the window. 0 when they lie in no mapping that allows
// it. What a store has left there reaches the device with the next access.
int BoardBeforeLoad(const volatile void *at, unsigned width);
int BoardBeforeStore(const volatile void *at, unsigned width);
void BoardSettle(void);

// EAX, EBX, ECX, EDX of a leaf on the CPU that the process is bound to.
void BoardCpuid(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]);
// 1 when the board has a say about the path.
int BoardServes(const char *path);
// Mappings of /dev/mem that the program holds.
int BoardMappings(void);

// The board's storage besides the variables of this library: its number, and each area's place.
enum { BOARD_AREAS = 2 };
void BoardArea(int number, void **start, uint64_t *length);

// Once a board is loaded: keeps what the memory holds, and which files lie behind the devices; and gives the
// memory back what it held, and closes the other files.
void BoardKeepMemory(void);
void BoardTakeBackMemory(void);

#ifdef __cplusplus
}
#endif

// For the library itself: whether a mapping that goes is such a place.
bool IsDirectMapping(const void *at);
