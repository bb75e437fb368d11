#include "Base/Text.h"

size_t Strlen(const char *text) {
    size_t length = 0;
    while (text[length] != 0)
        ++length;
    return length;
}

size_t Wcslen(const uint16_t *text) {
    size_t length = 0;
    while (text[length] != 0)
        ++length;
    return length;
}

int Strcmp(const char *a, const char *b) {
    size_t i = 0;
    while (a[i] != 0 && a[i] == b[i])
        ++i;
    return a[i] - b[i];
}

char *Strcpy(char *destination, const char *source) {
    size_t i = 0;
    for (; source[i] != 0; ++i)
        destination[i] = source[i];
    destination[i] = 0;
    return destination;
}

char *Strcat(char *destination, const char *source) {
    Strcpy(destination + Strlen(destination), source);
    return destination;
}

char *UStrCpy(char *destination, size_t, const char *source) {
    return Strcpy(destination, source);
}

char *UStrCat(char *destination, size_t, const char *source) {
    return Strcat(destination, source);
}

uint16_t *Char8ToChar16(uint16_t *destination, const char *source) {
    size_t i = 0;
    for (; source[i] != 0; ++i)
        destination[i] = static_cast<uint16_t>(static_cast<int16_t>(source[i]));
    destination[i] = 0;
    destination[i + 1] = 0;
    return destination;
}

char *Char16ToChar8(char *destination, const uint16_t *source) {
    size_t i = 0;
    for (; source[i] != 0; ++i)
        destination[i] = static_cast<char>(source[i] & 0xFF);
    destination[i] = 0;
    destination[i + 1] = 0;
    return destination;
}

static void ShiftCase(char **text, char first, char last, int distance) {
    if (text == nullptr || *text == nullptr)
        return;
    for (char *p = *text; *p != 0; ++p) {
        if (*p >= first && *p <= last)
            *p = static_cast<char>(*p + distance);
    }
}

void lowerToUpper(char **text) {
    ShiftCase(text, 'a', 'z', 'A' - 'a');
}

void upperToLower(char **text) {
    ShiftCase(text, 'A', 'Z', 'a' - 'A');
}
