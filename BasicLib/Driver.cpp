#include "BasicLib/Driver.h"

#include <fcntl.h>
#include <sys/io.h>
#include <unistd.h>

#include <cerrno>

#include "BasicLib/Cpu.h"
#include "Common/ComFunc/Shell.h"

int16_t gMemFd = MEM_FD_NONE;
static int16_t mCachedMemFd = MEM_FD_NONE;

// Close-on-exec: a command run through the shell must not inherit the memory device.
static int16_t OpenPhysicalMemory(int caching) {
    int fd = open("/dev/mem", O_RDWR | O_CLOEXEC | caching, 0666);
    if (fd > INT16_MAX) { // does not fit the 16-bit descriptor: another file would be meant
        close(fd);
        return MEM_FD_NONE;
    }
    return fd < 0 ? MEM_FD_NONE : static_cast<int16_t>(fd);
}

int16_t CachedMemFd() {
    if (mCachedMemFd == MEM_FD_NONE)
        mCachedMemFd = OpenPhysicalMemory(0);
    return mCachedMemFd;
}

int ProbeIoPrivilege() {
    if (iopl(3) != 0)
        return errno;
    iopl(0);
    return 0;
}

void OpenMemoryDevice() {
    gMemFd = OpenPhysicalMemory(O_SYNC);
}

EFI_STATUS OpenPortsAndMemory() {
    if (iopl(3) != 0)
        return EFI_ACCESS_DENIED;
    OpenMemoryDevice();
    return EFI_SUCCESS;
}

EFI_STATUS OpenLinuxDriver() {
    EFI_STATUS status = OpenPortsAndMemory();
    if (status != EFI_SUCCESS)
        return status;
    if (ProbeMsrNode(0) != 0) {
        ExecuteSystemCmd("modprobe msr");
        ProbeMsrNode(0); // a second failure is of no matter: MSRs then read 0
    }
    return EFI_SUCCESS;
}

EFI_STATUS CloseLinuxDriver() {
    iopl(0);
    if (gMemFd != MEM_FD_NONE)
        close(gMemFd);
    if (mCachedMemFd != MEM_FD_NONE)
        close(mCachedMemFd);
    mCachedMemFd = MEM_FD_NONE;
    return EFI_SUCCESS;
}
