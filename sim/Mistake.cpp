#include "Mistake.h"

#include <setjmp.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int MAX_MISTAKES = 1000; // of one check
constexpr size_t MAX_TEXT = 5000;  // room for a path of the greatest length

const char *gPath;
int gNumber;
bool gCollecting;
int gMistakes;
jmp_buf *gReturn; // to the innermost MistakeTry of a check

[[noreturn]] void Leave(int status) {
    syscall(SYS_exit_group, status);
    __builtin_unreachable();
}

void Tell(const char *format, va_list arguments) {
    char text[MAX_TEXT];
    int place = !gPath         ? snprintf(text, sizeof text, "board: ")
                : gNumber == 0 ? snprintf(text, sizeof text, "%s: ", gPath)
                               : snprintf(text, sizeof text, "%s:%d: ", gPath, gNumber);
    size_t length = static_cast<size_t>(place);
    if (length < sizeof text)
        length += static_cast<size_t>(vsnprintf(text + length, sizeof text - length, format, arguments));
    if (length > sizeof text - 1)
        length = sizeof text - 1;
    text[length] = '\n';
    syscall(SYS_write, 2, text, length + 1);
}

} // namespace

void MistakePlace(const char *path, int number) {
    gPath = path;
    gNumber = number;
}

void BoardFail(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Tell(format, arguments);
    va_end(arguments);
    if (gReturn && ++gMistakes < MAX_MISTAKES)
        longjmp(*gReturn, 1);
    Leave(MISTAKE_STATUS);
}

void MistakesCollect() {
    gCollecting = true;
}

void MistakeTry(void (*procedure)(void *argument), void *argument) {
    jmp_buf *outer = gReturn;
    jmp_buf here;
    if (!gCollecting) {
        procedure(argument);
        return;
    }
    if (setjmp(here) == 0) {
        gReturn = &here;
        procedure(argument);
    }
    gReturn = outer;
}

void MistakesEnd() {
    Leave(gMistakes == 0 ? 0 : MISTAKE_STATUS);
}
