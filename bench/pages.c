// Copies physical memory in the barest way: maps a page, copies it, unmaps it.
//
//   bench_pages START LENGTH [FILE]
//
// Every page goes to the same buffer, and from there to the file if one is named.
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

enum { PAGE = 4096 };

int main(int argc, char **argv) {
    static char buffer[PAGE];
    int fd = argc >= 3 ? open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC) : -1;
    if (fd < 0)
        return 2;
    int file = argc == 4 ? open(argv[3], O_WRONLY | O_CREAT | O_TRUNC, 0666) : -1;
    off_t start = (off_t)strtoul(argv[1], NULL, 0);
    off_t end = start + (off_t)strtoul(argv[2], NULL, 0);
    for (off_t at = start; at < end; at += PAGE) {
        void *map = mmap(NULL, PAGE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, at);
        if (map == MAP_FAILED)
            return 1;
        memcpy(buffer, map, PAGE);
        __asm__ volatile("" : : "r"(buffer) : "memory"); // or the copy is left out
        munmap(map, PAGE);
        if (file >= 0 && write(file, buffer, PAGE) != PAGE)
            return 1;
    }
    return 0;
}
