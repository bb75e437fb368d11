// Strings of 8-bit and of 16-bit units, NUL-terminated. No locale: letters are ASCII letters.
//
// No command reaches: Wcslen, Strcat, UStrCpy, UStrCat, Char8ToChar16, Char16ToChar8, upperToLower.
#pragma once

#include <cstddef>
#include <cstdint>

// Number of bytes before the NUL.
size_t Strlen(const char *text);

// Number of 16-bit units before the NUL.
size_t Wcslen(const uint16_t *text);

// Compares until a difference or either NUL; a[i] - b[i] at that point, 0 when equal.
int Strcmp(const char *a, const char *b);

// Copies the text with its NUL; returns the destination.
char *Strcpy(char *destination, const char *source);

// Appends the text with its NUL; returns the destination.
char *Strcat(char *destination, const char *source);

// As Strcpy and Strcat; the size is accepted and not looked at.
char *UStrCpy(char *destination, size_t size, const char *source);
char *UStrCat(char *destination, size_t size, const char *source);

// Widens each byte (sign-extended, so 0x80 becomes 0xFF80) and ends with two 0 units: the destination
// needs room for the length + 2 units. Returns the destination.
uint16_t *Char8ToChar16(uint16_t *destination, const char *source);

// Keeps the low byte of each unit and ends with two NULs: room for the length + 2 bytes is needed.
// Returns the destination.
char *Char16ToChar8(char *destination, const uint16_t *source);

// Converts 'a'..'z' to 'A'..'Z' in place (and back). A NULL string, or a NULL pointer to it, is left alone.
void lowerToUpper(char **text);
void upperToLower(char **text);
