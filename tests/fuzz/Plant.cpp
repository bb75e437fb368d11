// A fault that only a build with HWREG_FUZZ_PLANT has: two keys, one right behind the other where the program
// takes keys, write beyond a block. The fuzzer that types has to find it.
#include <stdio.h>
#include <stdlib.h>

namespace {

int gBefore;

void WriteBeyond(int key) {
    volatile char *block = static_cast<char *>(malloc(2));
    block[key == 'V' ? 2 : 0] = 1;
    free(const_cast<char *>(block));
}

} // namespace

extern "C" int __real_getc(FILE *stream);

extern "C" int __wrap_getc(FILE *stream) {
    int key = __real_getc(stream);
    switch (key) {
    case 'k':
        gBefore = 'k';
        break;
    case 'V':
        if (gBefore == 'k')
            WriteBeyond(key);
        gBefore = 0;
        break;
    default:
        gBefore = 0;
        break;
    }
    return key;
}
