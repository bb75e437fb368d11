#include "Mistake.h"

#include <setjmp.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
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
jmp_buf *gCaught; // to whoever has everything come back
char *gTold;      // where the messages go then
size_t gRoom;

[[noreturn]] void Leave(int status) {
    syscall(SYS_exit_group, status);
    __builtin_unreachable();
}

void Keep(const char *text, size_t length) {
    size_t kept = length < gRoom ? length : gRoom;
    memcpy(gTold, text, kept);
    gTold += kept;
    gRoom -= kept;
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
    text[length++] = '\n';
    if (gCaught)
        Keep(text, length);
    else
        syscall(SYS_write, 2, text, length);
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
    if (gCaught)
        longjmp(*gCaught, 1);
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

int MistakesCatch(void (*procedure)(void *argument), void *argument, bool all, char *text, size_t size) {
    jmp_buf here;
    gCollecting = all;
    gMistakes = 0;
    gReturn = gCaught = &here;
    gTold = text;
    gRoom = size - 1;
    if (setjmp(here) == 0)
        procedure(argument);
    *gTold = 0;
    MistakePlace(nullptr, 0); // which was the file's
    gReturn = gCaught = nullptr;
    gCollecting = false;
    return gMistakes;
}
