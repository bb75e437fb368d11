// The library linked into a program instead of preloaded, as the unit tests have it.
#include "sim/Board.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/io.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

static int gFailures;

static void Check(bool held, const char *what) {
    if (held)
        return;
    printf("not so: %s\n", what);
    gFailures++;
}

static void UnloadedDoorsLeadToTheKernel() {
    int descriptor = open("/dev/cpu/77/msr", O_RDONLY);
    Check(descriptor < 0 && errno == ENOENT, "an unloaded board serves no files");
    Check(*BoardLog() == 0, "nothing is logged without a board");
    Check(BoardGetPci(0, 0, 2) == 0xFFFF, "no functions without a board");
}

static void PortsAndLog(const char *boards) {
    char path[4096];
    snprintf(path, sizeof path, "%s/intel.board", boards);
    BoardLoad(path);
    Check(iopl(3) == 0, "iopl(3) is granted");
    BoardSetPort(0x72, 0x5A);
    Check(inb(0x72) == 0x5A, "a port set from outside is read");
    outb(0x33, 0x72);
    Check(BoardGetPort(0x72) == 0x33, "a written port is seen from outside");
    Check(strcmp(BoardLog(), "iopl 3\nin8 0072 -> 5a\nout8 0072 33\n") == 0, "the log holds the three lines");
    BoardPortWrite(0x72, 1, 0x77);
    Check(BoardPortRead(0x72, 1) == 0x77, "a port is reached without an instruction");
    Check(strstr(BoardLog(), "out8 0072 77\nin8 0072 -> 77\n"), "that leaves the same lines");
    BoardLogClear();
    Check(*BoardLog() == 0, "a cleared log is empty");
    Check(BoardMicroseconds() == 0, "no time has passed");
    outb(0, 0xED);
    Check(BoardMicroseconds() == 1, "a write to the delay port takes a microsecond");
}

static void MemoryFromOutside() {
    const char text[] = "poked";
    char back[sizeof text];
    BoardPoke(0x2000, text, sizeof text);
    int descriptor = open("/dev/mem", O_RDWR | O_SYNC);
    void *mapping = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0x2000);
    Check(mapping != MAP_FAILED && strcmp(static_cast<char *>(mapping), text) == 0, "poked bytes are mapped");
    strcpy(static_cast<char *>(mapping), "POKED");
    BoardPeek(0x2000, back, sizeof back);
    Check(strcmp(back, "POKED") == 0, "stored bytes are peeked");
    munmap(mapping, 4096);
    close(descriptor);
}

static void RegistersFromOutside() {
    BoardSetMsr(3, 0x123, 0x1122334455667788);
    int descriptor = open("/dev/cpu/3/msr", O_RDONLY);
    unsigned long value = 0;
    Check(pread(descriptor, &value, 8, 0x123) == 8 && value == 0x1122334455667788, "a set MSR is read");
    close(descriptor);
    descriptor = open("/dev/cpu/3/msr", O_WRONLY);
    value = 5;
    Check(pwrite(descriptor, &value, 8, 0x123) == 8 && BoardGetMsr(3, 0x123) == 5, "a written MSR is seen");
    close(descriptor);
    Check(BoardGetMsr(2, 0x123) == 0, "the MSR is that CPU's alone");
    BoardSetPci(0x0000, 0x2C, 2, 0xBEEF);
    outl(0x8000002C, 0xCF8);
    Check(inw(0xCFC) == 0xBEEF, "a set configuration register is read");
    Check(BoardGetPci(0xFFFF, 0, 4) == 0xFFFFFFFF, "an absent function reads all ones");
}

static void LoadingAgainStartsAfresh(const char *boards) {
    char path[4096];
    int before = open("/dev/mem", O_RDWR);
    snprintf(path, sizeof path, "%s/amd.board", boards);
    BoardLoad(path);
    Check(*BoardLog() == 0, "the log starts empty");
    Check(BoardGetMsr(3, 0x123) == 0, "the MSR is gone");
    Check(BoardGetPci(0, 0, 2) == 0x1022, "the new host bridge is there");
    char byte;
    BoardPeek(0x2000, &byte, 1);
    Check(byte == 0, "memory holds the new board's contents");
    Check(pread(before, &byte, 1, 0x2000) == 1 && strstr(BoardLog(), "pread /dev/mem 2000 1 -> ok"),
          "a descriptor from before still leads to the board's memory");
    close(before);
    BoardUnload();
    Check(open("/dev/cpu/0/msr", O_RDONLY) < 0 && !strstr(BoardLog(), "/dev/cpu"),
          "an unloaded board is gone");
}

__attribute__((noinline)) static uint32_t Signature() {
    uint32_t eax = 1, ebx, ecx = 0, edx;
    __asm__ volatile("cpuid" : "+a"(eax), "=b"(ebx), "+c"(ecx), "=d"(edx));
    return eax;
}

static void CpuidIsThatOfTheLoadedBoard(const char *boards) {
    char path[4096];
    uint32_t own = Signature();
    for (int round = 0; round < 2; round++) {
        snprintf(path, sizeof path, "%s/amd.board", boards);
        BoardLoad(path);
        Check(Signature() == 0x00800F82, "a loaded board answers CPUID");
        snprintf(path, sizeof path, "%s/hygon.board", boards);
        BoardLoad(path);
        Check(Signature() == 0x00900F02, "the next one answers it, too");
        snprintf(path, sizeof path, "%s/base.board", boards);
        BoardLoad(path);
        Check(Signature() == own, "one without leaves leaves it to the processor");
        snprintf(path, sizeof path, "%s/amd.board", boards);
        BoardLoad(path);
        BoardUnload();
        Check(Signature() == own, "without a board it is the processor's again");
    }
}

static void AnswersStandInFrontOfDevices(const char *boards) {
    char path[4096];
    const uint8_t bytes[] = {0x86, 0x80, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB};
    snprintf(path, sizeof path, "%s/intel.board", boards);
    BoardLoad(path);
    iopl(3);
    BoardAnswer(ANSWER_OTHER_PORTS | ANSWER_DEVICE_MEMORY | ANSWER_MSRS, bytes, sizeof bytes, 0x5A);
    Check(inw(0x70) == 0x8086, "a read takes as many bytes as it is wide");
    outl(0x80000000, 0xCF8);
    Check(inw(0xCFC) == 0x8086 && inb(0x80) == 0x11, "doors that were not named keep their devices");
    int descriptor = open("/dev/cpu/0/msr", O_RDONLY);
    uint64_t value = 0;
    Check(pread(descriptor, &value, 8, 0x10) == 8 && value == 0x9988776655443322, "an MSR takes eight");
    Check(pread(descriptor, &value, 8, 0x12345) == -1, "absent registers stay absent");
    close(descriptor);
    descriptor = open("/dev/mem", O_RDWR | O_SYNC);
    void *mapping = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, descriptor, 0xE0000000);
    Check(*static_cast<volatile uint32_t *>(mapping) == 0x5A5ABBAA, "behind the last byte is the rest");
    munmap(mapping, 4096);
    close(descriptor);
}

// The exit status of a program that makes so many accesses.
static int StatusOfLimited(const char *board, uint64_t limit, int accesses) {
    int status = -1;
    pid_t child = fork();
    if (child == 0) {
        BoardLoad(board);
        iopl(3);
        BoardLimit(limit, [] { _exit(0); });
        for (int i = 0; i < accesses; i++)
            inb(0x80);
        _exit(3);
    }
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

static void ALimitedProgramLeaves(const char *boards) {
    char path[4096];
    snprintf(path, sizeof path, "%s/intel.board", boards);
    Check(StatusOfLimited(path, 1000, 1000) == 3, "a program within its limit runs to its end");
    Check(StatusOfLimited(path, 1000, 1001) == 0, "a program leaves when it has used up its limit");
}

int main(int, char **argv) {
    UnloadedDoorsLeadToTheKernel();
    PortsAndLog(argv[1]);
    MemoryFromOutside();
    RegistersFromOutside();
    LoadingAgainStartsAfresh(argv[1]);
    CpuidIsThatOfTheLoadedBoard(argv[1]);
    AnswersStandInFrontOfDevices(argv[1]);
    ALimitedProgramLeaves(argv[1]);
    return gFailures != 0;
}
