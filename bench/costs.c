// Prints what single hardware accesses and system calls cost here.
//
//   bench_costs PAGE
//
// One line each: picoseconds, what it is. PAGE is the address of two pages of /dev/mem that may be mapped and
// read; a program named shutdown has to be there that does nothing.
#define _GNU_SOURCE
#include <fcntl.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/io.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

enum { PAGE = 4096, TOUCHED = 256, LOOP_INSTRUCTIONS = 10000, BATCHES = 9 };

static int mMemory;
static off_t mPage;
static char mBuffer[PAGE];

static void Stop(const char *what) {
    perror(what);
    exit(1);
}

static void MapAndRead(size_t size) {
    volatile uint32_t *map = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, mMemory, mPage);
    if (map == MAP_FAILED)
        Stop("mmap");
    (void)*map;
    munmap((void *)map, size);
}

static void MapOne(void) {
    MapAndRead(PAGE);
}

static void MapTwo(void) {
    MapAndRead(2 * PAGE);
}

static void ReadPage(void) {
    if (pread(mMemory, mBuffer, PAGE, mPage) != PAGE)
        Stop("pread");
}

static void PortWrite(void) {
    outb(0, 0xED);
}

static void PortRead(void) {
    inb(0x87);
}

static void ReadConfiguration(void) {
    outl(0x80000000, 0xCF8);
    inl(0xCFC);
}

static void OpenAndClose(const char *path, int mode) {
    int fd = open(path, mode);
    if (fd < 0)
        Stop(path);
    close(fd);
}

static void OpenMemory(void) {
    OpenAndClose("/dev/mem", O_RDWR | O_SYNC);
}

static void OpenMsr(void) {
    OpenAndClose("/dev/cpu/0/msr", O_RDONLY);
}

static void Privilege(void) {
    iopl(3);
}

// A page of memory that was just allocated, written for the first time.
static void TouchPages(void) {
    char *block = mmap(NULL, TOUCHED * PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED)
        Stop("mmap");
    for (int i = 0; i < TOUCHED; i++)
        ((volatile char *)block)[i * PAGE] = 1;
    munmap(block, TOUCHED * PAGE);
}

// LOOP_INSTRUCTIONS of them: loads, stores, sums and a jump.
static void RunLoop(void) {
    int rounds = LOOP_INSTRUCTIONS / 10;
    __asm__ volatile("1: mov (%1), %%eax\n add $1, %%eax\n mov %%eax, (%1)\n lea 3(%%rax), %%edx\n"
                     "xor %%eax, %%edx\n mov 4(%1), %%eax\n add %%edx, %%eax\n mov %%eax, 4(%1)\n"
                     "sub $1, %0\n jnz 1b\n"
                     : "+r"(rounds)
                     : "r"(mBuffer)
                     : "eax", "edx", "cc", "memory");
}

static void RunShell(void) {
    if (system("shutdown") != 0)
        Stop("shutdown");
}

static void BindToOneProcessor(void) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET((size_t)sched_getcpu(), &set);
    sched_setaffinity(0, sizeof set, &set);
}

static int64_t Picoseconds(void (*call)(void), int times) {
    struct timespec begin, end;
    clock_gettime(CLOCK_MONOTONIC, &begin);
    for (int i = 0; i < times; i++)
        call();
    clock_gettime(CLOCK_MONOTONIC, &end);
    int64_t taken = (end.tv_sec - begin.tv_sec) * INT64_C(1000000000) + end.tv_nsec - begin.tv_nsec;
    return taken * 1000 / times;
}

static int Compare(const void *a, const void *b) {
    int64_t left = *(const int64_t *)a, right = *(const int64_t *)b;
    return (left > right) - (left < right);
}

// `each` is how often a call does what is measured.
static void Measure(void (*call)(void), int times, int each, const char *what) {
    int64_t taken[BATCHES];
    for (int i = 0; i < BATCHES; i++)
        taken[i] = Picoseconds(call, times);
    qsort(taken, BATCHES, sizeof taken[0], Compare);
    printf("%lld %s\n", (long long)taken[BATCHES / 2] / each, what);
}

int main(int argc, char **argv) {
    mMemory = argc == 2 ? open("/dev/mem", O_RDWR | O_SYNC) : -1;
    if (mMemory < 0 || iopl(3) != 0)
        Stop("bench_costs PAGE");
    BindToOneProcessor();
    mPage = (off_t)strtoul(argv[1], NULL, 0);
    Measure(PortWrite, 1000, 1, "write to the delay port");
    Measure(PortRead, 1000, 1, "read of a port");
    Measure(ReadConfiguration, 1000, 1, "write of a port and read of another");
    Measure(MapOne, 1000, 1, "map, read once and unmap a page");
    Measure(MapTwo, 1000, 1, "map, read once and unmap two pages");
    Measure(ReadPage, 1000, 1, "read(2) of a page");
    Measure(Privilege, 1000, 1, "iopl");
    Measure(OpenMemory, 1000, 1, "open and close /dev/mem");
    Measure(OpenMsr, 1000, 1, "open and close /dev/cpu/0/msr");
    Measure(TouchPages, 10, TOUCHED, "first write to a page of new memory");
    Measure(RunLoop, 100, LOOP_INSTRUCTIONS, "instruction of a loop");
    Measure(RunShell, 5, 1, "a shell that starts an empty program");
    return 0;
}
