#include "Common/ComFunc/Console.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "Common/Global.h"
#include "Common/Sprint.h"

static const char *ColorSequence(uint16_t number) {
    switch (number) {
    case 0:
        return "\033[0;30m";
    case 1:
        return "\033[0;34m";
    case 2:
        return "\033[0;32m";
    case 3:
        return "\033[0;36m";
    case 4:
    case 5:
        return "\033[0;31m";
    case 6:
        return "\033[0;33m";
    case 8:
        return "\033[1;37m";
    case 9:
        return "\033[1;34m";
    case 10:
        return "\033[1;32m";
    case 11:
        return "\033[1;36m";
    case 12:
    case 13:
        return "\033[1;31m";
    case 14:
        return "\033[1;33m";
    default:
        return "\033[0m";
    }
}

void setColor(uint16_t number) {
    if (!DispHas(DISP_TEXT))
        fputs(ColorSequence(number), stdout);
}

// Puts the terminal on descriptor 0 into non-canonical mode without echo and keeps the modes it had.
// False when descriptor 0 is no terminal; there is nothing to restore then.
static bool EnterKeyMode(termios *saved) {
    if (tcgetattr(STDIN_FILENO, saved) != 0)
        return false;
    termios key = *saved;
    key.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &key);
    return true;
}

int getch() {
    termios saved;
    bool isTerminal = EnterKeyMode(&saved);
    int key = getchar();
    if (isTerminal)
        tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    return key;
}

int isKeyBoardHit() {
    termios saved;
    bool isTerminal = EnterKeyMode(&saved);
    int flags = fcntl(STDIN_FILENO, F_GETFL);
    if (flags != -1)
        fcntl(STDIN_FILENO, F_SETFL, flags | O_NONBLOCK);
    int key = getchar();
    if (isTerminal)
        tcsetattr(STDIN_FILENO, TCSANOW, &saved);
    if (flags != -1)
        fcntl(STDIN_FILENO, F_SETFL, flags);
    if (key == EOF) {
        clearerr(stdin); // "no key yet" must not look like the end of input to the next read
        return 0;
    }
    ungetc(key, stdin);
    return 1;
}

int GetKBKey() {
    return isKeyBoardHit() ? getch() : 0;
}

void GotoXY(uint32_t) {
}

void DisplayPositionXY(uint32_t x, uint32_t y, const char *format, ...) {
    char text[256] = {};
    va_list args;
    va_start(args, format);
    FormatBounded(text, sizeof(text) - 1, format, args);
    va_end(args);
    GotoXY((y << 16) | (x & 0xFFFF));
    Printf("%s", text);
}

void ClearScreen() {
    ExecuteSystemCmd("clear");
}

void ExecuteSystemCmd(const char *command) {
    if (system(command) == -1) {
        // A shell that cannot be started leaves everything as it was.
    }
}

EFI_STATUS ExecuteWithSystem32(const char *) {
    return EFI_UNSUPPORTED;
}

int ShowTitle() {
    Printf("*********Press Enter to continue!*********\n");
    int key = getch();
    if (key != KEY_ESC)
        Printf("%s", gTitle);
    return key;
}
