// Loading a board: through the environment when the library is preloaded, through Board.h when it is linked.
#include "Board.h"

#include "Affinity.h"
#include "Arena.h"
#include "BoardReader.h"
#include "Changes.h"
#include "Complete.h"
#include "Cpuid.h"
#include "KernelFiles.h"
#include "Lies.h"
#include "Log.h"
#include "Memory.h"
#include "Mistake.h"
#include "Msr.h"
#include "Ports.h"
#include "SentSignal.h"
#include "ServedFiles.h"
#include "Settings.h"
#include "State.h"
#include "Trap.h"
#include "models/AmdPm.h"
#include "models/Answers.h"
#include "models/Cmos.h"
#include "models/DwI2c.h"
#include "models/Ecam.h"
#include "models/PciConfigPorts.h"
#include "models/PciFunction.h"
#include "models/Pm1.h"
#include "models/SimplePorts.h"
#include "models/SmbusHost.h"
#include "models/SmbusSlaves.h"
#include "models/Smn.h"
#include "models/SuperIo.h"

#include <stdlib.h>
#include <string.h>

#define EXPORTED __attribute__((visibility("default")))

namespace {

void ForgetBoard() {
    ReplaceCpuid(false);
    ArenaReset();
    SettingsReset();
    KernelFilesReset();
    AffinityReset();
    PortsReset();
    SimplePortsReset();
    AnswersReset();
    LimitAccesses(UINT64_MAX, nullptr);
    CmosReset();
    Pm1Reset();
    SuperIoReset();
    AmdPmReset();
    SmbusSlavesReset();
    DwI2cReset();
    SmnReset();
    PciReset();
    PciConfigPortsReset();
    EcamReset();
    SmbusHostsReset();
    MsrReset();
}

void Read(const char *path, const char *memoryFile) {
    ForgetBoard();
    MemoryReset(memoryFile);
    ServedFilesReset();
    DelayPortStart();
    ReadBoardFile(path);
    CheckReach();
}

void ReadAlone(void *path) {
    Read(static_cast<const char *>(path), nullptr);
}

void Load(const char *path, const char *memoryFile) {
    Read(path, memoryFile);
    gBoard.loaded = true;
    if (gBoard.cpuidLeaves && !Direct()) {
        TrapArm();
        ReplaceCpuid(true);
    }
}

__attribute__((constructor)) void LoadFromEnvironment() {
    const char *path = getenv("HWBOARD");
    if (!path || !*path)
        return;
    if (getenv("HWBOARD_CHECK")) {
        MistakesCollect();
        Load(path, nullptr);
        MistakesEnd();
    }
    LogOpenFile(getenv("HWBOARD_LOG"));
    Load(path, getenv("HWBOARD_MEMFILE"));
    if (const char *state = getenv("HWBOARD_STATE"))
        StateTake(state, getenv("HWBOARD_RESET") != nullptr);
    else if (const char *registers = getenv("HWBOARD_REGISTERS"))
        ArenaShareRegisters(registers);
    PciPlaceDevices();
    AmdPmPlaceDevices();
    SentSignalFromEnvironment();
    LiesFromEnvironment();
}

} // namespace

EXPORTED void BoardLoad(const char *path) {
    LogKeep();
    LogClear();
    Load(path, nullptr);
}

EXPORTED int BoardCheck(const char *path, bool all, char *text, uint64_t size) {
    int mistakes = MistakesCatch(ReadAlone, const_cast<char *>(path), all, text, size);
    ForgetBoard();
    return mistakes;
}

EXPORTED void BoardUnload() {
    ForgetBoard();
}

EXPORTED const char *BoardLog() {
    return LogText();
}

EXPORTED void BoardLogClear() {
    LogClear();
}

EXPORTED void BoardPoke(uint64_t address, const void *data, uint64_t length) {
    uint8_t *memory = MemoryAt(address, length);
    if (!memory)
        BoardFail("BoardPoke outside of the memory");
    memcpy(memory, data, length);
    NoteChange(address, length);
}

EXPORTED void BoardPeek(uint64_t address, void *data, uint64_t length) {
    const uint8_t *memory = MemoryAt(address, length);
    if (!memory)
        BoardFail("BoardPeek outside of the memory");
    memcpy(data, memory, length);
}

EXPORTED void BoardSetPort(uint16_t port, uint8_t value) {
    LatchPortSet(port, value);
}

EXPORTED uint8_t BoardGetPort(uint16_t port) {
    return LatchPortGet(port);
}

EXPORTED void BoardSetMsr(int cpu, uint32_t index, uint64_t value) {
    MsrSet(cpu, index, value);
}

EXPORTED uint64_t BoardGetMsr(int cpu, uint32_t index) {
    return MsrGet(cpu, index);
}

EXPORTED void BoardSetPci(uint16_t function, uint16_t offset, int width, uint32_t value) {
    PciFunction *found = PciFind(function);
    if (!found)
        BoardFail("BoardSetPci of an absent function");
    PciStore(found, offset, static_cast<unsigned>(width), value);
}

EXPORTED uint32_t BoardGetPci(uint16_t function, uint16_t offset, int width) {
    PciFunction *found = PciFind(function);
    return found ? PciStored(found, offset, static_cast<unsigned>(width)) : 0xFFFFFFFFu >> (32 - 8 * width);
}

EXPORTED uint32_t BoardPortRead(uint16_t port, unsigned width) {
    return LoggedPortRead(port, width);
}

EXPORTED void BoardPortWrite(uint16_t port, unsigned width, uint32_t value) {
    LoggedPortWrite(port, width, value);
}

EXPORTED uint64_t BoardMicroseconds() {
    return DelayPortMicroseconds();
}

EXPORTED void BoardAnswer(unsigned doors, const void *bytes, uint64_t length, uint8_t rest) {
    AnswersStart(doors, bytes, length, rest);
}

EXPORTED void BoardLimit(uint64_t accesses, void (*leave)(void)) {
    LimitAccesses(accesses, leave);
}
