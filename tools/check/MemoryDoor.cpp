#include "tools/check/MemoryDoor.h"

#include <cerrno>
#include <cstring>

#include "BasicLib/Driver.h"
#include "BasicLib/PhysMem.h"

static int mError = 0;

void FindMemoryDoor() {
    errno = 0;
    OpenMemoryDevice();
    mError = gMemFd != MEM_FD_NONE ? 0 : errno == 0 ? EMFILE : errno;
    if (mError == 0)
        Note(FINDING_DEV_MEM, STATE_GOOD, "/dev/mem can be opened");
    else
        Note(FINDING_DEV_MEM, STATE_BAD, "/dev/mem cannot be opened: %s", strerror(mError));
}

int MemoryError() {
    return mError;
}

int PageError(uint32_t address) {
    return mError != 0 ? mError : ProbePhysMem(address);
}

FindingName ReasonOfPage(uint32_t, int error) {
    if (mError != 0)
        return FINDING_DEV_MEM;
    return error == EAGAIN || error == EINVAL ? FINDING_PAT : FINDING_STRICT_DEVMEM;
}
