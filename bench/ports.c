// Repeats the port accesses of an access log in a bare loop.
//
//   bench_ports LOG TIMES
//
// Reads the lines "in8 0cfc -> 86" and "out32 0cf8 80000000" of the log, skips the others, and does all
// accesses TIMES times. With 0 it only reads the log, which is what has to be taken off the time.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/io.h>

struct Access {
    uint16_t port;
    uint8_t out;
    uint8_t width; // bits
    uint32_t value;
};

static struct Access *ReadLog(FILE *log, size_t *count) {
    struct Access *list = NULL;
    size_t room = 0;
    char line[128];
    *count = 0;
    while (fgets(line, sizeof line, log)) {
        unsigned width, port, value = 0;
        int out = sscanf(line, "out%u %x %x", &width, &port, &value) == 3;
        if (!out && sscanf(line, "in%u %x", &width, &port) != 2)
            continue;
        if (*count == room) {
            room = room ? 2 * room : 1024;
            list = realloc(list, room * sizeof *list);
            if (!list)
                return NULL;
        }
        list[(*count)++] = (struct Access){(uint16_t)port, (uint8_t)out, (uint8_t)width, value};
    }
    return list;
}

static void Do(const struct Access *access) {
    switch (access->width | access->out) {
    case 8:
        inb(access->port);
        break;
    case 16:
        inw(access->port);
        break;
    case 32:
        inl(access->port);
        break;
    case 8 | 1:
        outb((uint8_t)access->value, access->port);
        break;
    case 16 | 1:
        outw((uint16_t)access->value, access->port);
        break;
    default:
        outl(access->value, access->port);
        break;
    }
}

int main(int argc, char **argv) {
    FILE *log = argc == 3 ? fopen(argv[1], "r") : NULL;
    if (!log)
        return 2;
    size_t count;
    struct Access *list = ReadLog(log, &count);
    fclose(log);
    if (!list || iopl(3) != 0)
        return 1;
    for (int times = atoi(argv[2]); times > 0; times--)
        for (size_t i = 0; i < count; i++)
            Do(&list[i]);
    free(list);
    return 0;
}
