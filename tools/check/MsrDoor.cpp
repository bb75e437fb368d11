#include "tools/check/MsrDoor.h"

#include <cerrno>

#include "BasicLib/Cpu.h"

void FindMsrDoor() {
}

MsrNode MsrNodeOf(uint32_t cpu) {
    int error = ProbeMsrNode(cpu);
    if (error == 0)
        return MSR_NODE_THERE;
    return error == EPERM || error == EACCES ? MSR_NODE_REFUSED : MSR_NODE_NEVER;
}

uint32_t MsrCpus() {
    return static_cast<uint32_t>(GetCpuCount());
}

bool MsrWritesRefused() {
    return false;
}
