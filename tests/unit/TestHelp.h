// What the tests of several modules need: a command line, captured output, a keyboard, a board, allocations
// that fail. Everything set here lasts until the end of the test (UnitRun.cpp puts it back).
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "Common/Global.h"

// What the action writes to standard output, byte for byte.
std::string Printed(const std::function<void()> &action);

// An argument vector with a terminating NULL whose words may be changed in place. Valid until the test ends.
char **Words(std::initializer_list<const char *> words);

// Does with the words what the start of the program does: upper-cases them, builds the command word and fills
// the record, to which gCmdArg points afterwards.
CmdArg *SetCommand(std::initializer_list<const char *> words);

// Adds flags to the command word whose words the argument vector does not have.
void AddFlags(CmdType flags);

// Standard input becomes a pipe that holds these bytes and then ends.
void FeedInput(const std::string &bytes);

// Standard input becomes a terminal; what is written to the descriptor returned is typed on it.
int OpenKeyboard();

// The bytes of standard input that have not been read yet, up to its end or up to where a read would wait.
std::string InputLeft();

// The signals that the kernel holds back from this process now, number 1 in the lowest bit.
uint64_t SignalsBlocked();

// Every signal that ends or stops a program, but for those that nobody can hold and crashes.
void ExpectWholeTable(uint64_t signals);

// Makes an empty folder, which is removed with its files when the test ends, the current one.
void EnterScratchFolder();

// The whole file, and a new file with these bytes.
std::string FileText(const std::string &path);
void WriteFile(const std::string &path, const std::string &bytes);

// The count-th allocation of the program from now on fails, once; 1 is the next one.
void FailMalloc(unsigned count);

// From now on every allocation of more than this many bytes fails.
void LimitMalloc(size_t bytes);

// The next allocation of the program is what this gives for its size.
void NextMalloc(const std::function<void *(size_t)> &allocate);

// A copy of the bytes with no memory behind it: a look at one byte more ends the test. Never given back.
const char *AtTheEndOfMemory(const std::string &bytes);

// Heap blocks that the program has taken and not released, over the whole run: compare two of them.
long BlocksHeld();

// How many descriptors below 100 are open.
unsigned OpenDescriptors();

// From now on every open of the program gives this number and opens nothing, and a close of it closes
// nothing.
void OpenGives(int descriptor);

// The count-th open of the program from now on fails, once; 1 is the next one.
void FailOpen(unsigned count);

// How often the number of OpenGives has been given and not closed again.
long GivenAndNotClosed();

// Loads sim/boards/<name>.board with these lines of board description behind it, opens the hardware
// and clears the log. The clock stands still unless a line starts it again.
void OpenBoard(const std::string &name, const std::string &lines = "");

// The same without opening the hardware.
void LoadBoard(const std::string &name, const std::string &lines = "");

// Puts bytes of the board's memory in place.
void PokeText(uint32_t address, const std::string &text);
void Poke16(uint32_t address, uint16_t value);
void Poke32(uint32_t address, uint32_t value);

// Number of a PCI function as the board counts them.
uint16_t Function(unsigned bus, unsigned dev, unsigned fun);

// Lines of the board's access log, one an access (docs/boards.md describes them).
typedef std::vector<std::string> Log;

// The log since it was cleared; it is cleared again.
Log TakeLog();

// The same without the values that reads and opens gave (" -> ...").
Log TakeAccesses();

// count writes to the delay port 0xED.
Log Delays(unsigned count);

// An access to PCI configuration space through the legacy ports: two delays, the address in 8 hexadecimal
// digits, the access to the data port.
Log LegacyPci(const std::string &address, const std::string &access);

// A physical-memory access: the page is mapped in that length, accessed and unmapped. No access: none is
// logged.
Log Mapped(const std::string &page, const std::string &length, const Log &accesses = {});

// Logs one after the other.
Log operator+(Log first, const Log &second);

// Takes back everything that the helpers changed.
void ResetEverything();
