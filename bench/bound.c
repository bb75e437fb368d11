// An empty program that asks for functions of libc, as many as BOUND in guest_runs.py says, and calls none:
// what it costs to look them up at the start.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#define AT(function) ((void (*)(void))(function))

void (*const volatile functions[])(void) = {
    AT(calloc),    AT(clearerr),  AT(close),     AT(fclose), AT(fdopen),   AT(ferror),  AT(fflush),
    AT(fgets),     AT(fileno),    AT(fopen),     AT(fputc),  AT(fputs),    AT(fread),   AT(free),
    AT(fstat),     AT(fsync),     AT(ftell),     AT(fwrite), AT(getc),     AT(getpgrp), AT(malloc),
    AT(mmap),      AT(munmap),    AT(pread),     AT(printf), AT(puts),     AT(pwrite),  AT(raise),
    AT(read),      AT(setvbuf),   AT(sigaction), AT(signal), AT(strtoull), AT(system),  AT(tcgetattr),
    AT(tcgetpgrp), AT(tcsetattr), AT(ungetc),    AT(unlink), AT(write),
};

int main(void) {
    return functions[0] == 0;
}
