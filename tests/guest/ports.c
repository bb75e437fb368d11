// ports (outb|outw|outl PORT VALUE | inb|inw|inl PORT)... does these accesses in turn and prints what was
// read, in hexadecimal: ioport's programs in one, as each start of a program costs time in a guest.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/io.h>

int main(int argc, char **argv) {
    if (iopl(3)) {
        perror("ports");
        return 1;
    }
    for (int word = 1; word + 1 < argc; word += argv[word][0] == 'o' ? 3 : 2) {
        unsigned short port = (unsigned short)strtoul(argv[word + 1], NULL, 0);
        unsigned value =
            argv[word][0] == 'o' && word + 2 < argc ? (unsigned)strtoul(argv[word + 2], NULL, 0) : 0;
        if (!strcmp(argv[word], "outb"))
            outb((unsigned char)value, port);
        else if (!strcmp(argv[word], "outw"))
            outw((unsigned short)value, port);
        else if (!strcmp(argv[word], "outl"))
            outl(value, port);
        else if (!strcmp(argv[word], "inb"))
            printf("0x%x\n", inb(port));
        else if (!strcmp(argv[word], "inw"))
            printf("0x%x\n", inw(port));
        else if (!strcmp(argv[word], "inl"))
            printf("0x%x\n", inl(port));
        else
            return 2;
    }
    return 0;
}
