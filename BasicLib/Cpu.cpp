#include "BasicLib/Cpu.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Common/Sprint.h"

// Close-on-exec: no MSR node may leak into a command run through the shell.
static int OpenMsrNode(uint32_t cpu, int mode) {
    char path[64] = "/dev/cpu/0/msr"; // the first one is opened at every start, which has no time to format
    if (cpu != 0)
        Sprintf_s(path, "/dev/cpu/%ld/msr", static_cast<int64_t>(static_cast<int16_t>(cpu)));
    return open(path, mode | O_CLOEXEC);
}

int ProbeMsrNode(uint32_t cpu) {
    int fd = OpenMsrNode(cpu, O_RDONLY);
    if (fd < 0)
        return errno;
    close(fd);
    return 0;
}

int32_t GetCpuCount() {
    // The node's number is a signed 16-bit one: no CPU beyond it can be named.
    int32_t count = 0;
    while (count < INT16_MAX && ProbeMsrNode(static_cast<uint32_t>(count)) == 0)
        ++count;
    return count;
}

int TryReadMsr(uint32_t cpu, uint32_t index, uint64_t *value) {
    int fd = OpenMsrNode(cpu, O_RDONLY);
    if (fd < 0)
        return errno;
    uint64_t read;
    ssize_t got = pread(fd, &read, sizeof(read), static_cast<off_t>(index));
    int error = got == sizeof(read) ? 0 : got < 0 ? errno : EIO;
    if (error == 0)
        *value = read;
    close(fd);
    return error;
}

void ReadMsr(uint32_t cpu, uint32_t index, uint32_t *high, uint32_t *low) {
    uint64_t value = 0;
    TryReadMsr(cpu, index, &value);
    *high = static_cast<uint32_t>(value >> 32);
    *low = static_cast<uint32_t>(value);
}

void WriteMsr(uint32_t cpu, uint32_t index, uint32_t high, uint32_t low) {
    int fd = OpenMsrNode(cpu, O_WRONLY);
    if (fd < 0)
        return;
    uint64_t value = (static_cast<uint64_t>(high) << 32) + low;
    if (pwrite(fd, &value, sizeof(value), static_cast<off_t>(index)) != sizeof(value)) {
        // Refused by the CPU or the kernel: only a read-back shows it.
    }
    close(fd);
}

void GetCpuIdSub(uint32_t leaf, uint32_t subleaf, uint32_t registers[4]) {
    __asm__ volatile("cpuid"
                     : "=a"(registers[0]), "=b"(registers[1]), "=c"(registers[2]), "=d"(registers[3])
                     : "a"(leaf), "c"(subleaf));
}

void GetCpuId(uint32_t leaf, uint32_t registers[4]) {
    GetCpuIdSub(leaf, 0, registers);
}
