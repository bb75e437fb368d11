// doors: command lines on machines that refuse something: I/O privilege, the memory device, maps, MSR nodes
// at first or always, a chipset that nobody knows; a block of the heap, or all that is printed. What has to
// be as before is that of every run of the program (Command.h); the procedures that only ask for the doors
// say the same twice.
#include "BasicLib/Cpu.h"
#include "BasicLib/Driver.h"
#include "Goal.h"
#include "tests/fuzz/Command.h"
#include "tests/fuzz/Held.h"
#include "tests/fuzz/Sandbox.h"
#include "tests/fuzz/State.h"

// A byte for the machine, one for the block that is refused (0 for none; bit 7: nobody takes the output), the
// words.
void FuzzDoors(Input input) {
    const char *const boards[] = {"noiopl", "nomem", "nomsr", "latemsr", "refusedmap", "unknown",
                                  "cpugap", "hygon", "intel", "amd",     "tables"};
    Words words;
    LoadBoard(boards[TakeByte(&input) % 11]);
    uint8_t refusal = TakeByte(&input);
    BeginWords(&words);
    AddWords(&words, reinterpret_cast<const char *>(input.bytes), input.length, '\n');
    Expect(ProbeIoPrivilege() == ProbeIoPrivilege(), "the privilege is granted or not");
    RefuseBlock(refusal & 0x7F);
    if (refusal & 0x80)
        LoseOutput();
    RunProgram(&words);
    Expect(ProbeMsrNode(0) == ProbeMsrNode(0), "an MSR node is there or not");
}
