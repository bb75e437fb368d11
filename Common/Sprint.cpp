#include "Common/Sprint.h"

#include <cstdio>

#include "Base/ArgList.h"
#include "Base/Memory.h"
#include "Base/Text.h"
#include "Common/ComFunc/Numeral.h"

// The program's own numbering: error code k at index k + 4, and not the UEFI names from code 28 on.
static const char mEfiStatusString[][28] = {
    "EFI_SUCCESS",
    "EFI_WARN_UNKNOWN_GLYPH",
    "EFI_WARN_DELETE_FAILURE",
    "EFI_WARN_WRITE_FAILURE",
    "EFI_WARN_BUFFER_TOO_SMALL",
    "EFI_LOAD_ERROR",
    "EFI_INVALID_PARAMETER",
    "EFI_UNSUPPORTED",
    "EFI_BAD_BUFFER_SIZE",
    "EFI_BUFFER_TOO_SMALL",
    "EFI_NOT_READY",
    "EFI_DEVICE_ERROR",
    "EFI_WRITE_PROTECTED",
    "EFI_OUT_OF_RESOURCES",
    "EFI_VOLUME_CORRUPTED",
    "EFI_VOLUME_FULL",
    "EFI_NO_MEDIA",
    "EFI_MEDIA_CHANGED",
    "EFI_NOT_FOUND",
    "EFI_ACCESS_DENIED",
    "EFI_NO_RESPONSE",
    "EFI_NO_MAPPING",
    "EFI_TIMEOUT",
    "EFI_NOT_STARTED",
    "EFI_ALREADY_STARTED",
    "EFI_ABORTED",
    "EFI_ICMP_ERROR",
    "EFI_TFTP_ERROR",
    "EFI_PROTOCOL_ERROR",
    "EFI_INCOMPATIBLE_VERSION",
    "EFI_SECURITY_VIOLATION",
    "EFI_CRC_ERROR",
    "EFI_NOT_AVAILABLE_YET",
    "EFI_UNLOAD_IMAGE",
    "EFI_NOT_MATCHED",
    "EFI_END_OF_FILE",
    "EFI_INVALID_LANGUAGE",
    "EFI_COMPROMISED_DATA",
};

constexpr uint8_t STATUS_LAST_WARNING = 4;
constexpr uint8_t STATUS_LAST_ERROR = 33;
constexpr size_t PRINT_BUFFER = 512;
constexpr size_t DIGIT_BUFFER = 32;

// Where the text goes: bytes beyond the capacity are counted and dropped.
struct TextOut {
    char *buffer;
    size_t capacity;
    size_t count;
};

static void Put(TextOut *out, char c) {
    if (out->count < out->capacity)
        out->buffer[out->count] = c;
    ++out->count;
}

static void PutText(TextOut *out, const char *text) {
    if (text == nullptr)
        return;
    for (; *text != 0; ++text)
        Put(out, *text);
}

static void PutText16(TextOut *out, const uint16_t *text) {
    if (text == nullptr)
        return;
    for (; *text != 0; ++text)
        Put(out, static_cast<char>(*text & 0xFF));
}

// False when the scratch buffer cannot be had; nothing is written then.
static bool PutNumber(TextOut *out, uint64_t value, unsigned base, unsigned width, bool upper) {
    // 64 bits take 22 digits in base 8; only bases below 5 need more than the usual scratch.
    size_t scratchSize = base < 5 ? 2 * DIGIT_BUFFER + 2 : DIGIT_BUFFER;
    char *digits = static_cast<char *>(Malloc(scratchSize));
    if (digits == nullptr)
        return false;
    Memset(digits, 0, scratchSize);
    num2String(value, digits, base);
    if (upper)
        lowerToUpper(&digits);
    for (size_t length = Strlen(digits); length < width; ++length)
        Put(out, '0');
    PutText(out, digits);
    Free(digits);
    return true;
}

// Groups of 8-4-4 and then eight groups of 2 digits: every byte of Data4 has its own dash.
static void PutGuid(TextOut *out, const EFI_GUID *guid, bool upper) {
    if (guid == nullptr)
        return;
    PutNumber(out, guid->Data1, 16, 8, upper);
    Put(out, '-');
    PutNumber(out, guid->Data2, 16, 4, upper);
    Put(out, '-');
    PutNumber(out, guid->Data3, 16, 4, upper);
    for (uint8_t byte : guid->Data4) {
        Put(out, '-');
        PutNumber(out, byte, 16, 2, upper);
    }
}

static void PutStatus(TextOut *out, uint64_t status) {
    uint8_t code = static_cast<uint8_t>(status);
    bool isError = (status & 0x80000000) != 0;
    if (isError && code >= 1 && code <= STATUS_LAST_ERROR)
        PutText(out, mEfiStatusString[code + STATUS_LAST_WARNING]);
    else if (!isError && code <= STATUS_LAST_WARNING)
        PutText(out, mEfiStatusString[code]);
    else
        PutNumber(out, status & 0xFFFFFFFF, 16, 8, true);
}

static bool IsOneOf(char c, const char *letters) {
    for (; *letters != 0; ++letters) {
        if (c == *letters)
            return true;
    }
    return false;
}

static unsigned IntegerBase(char letter) {
    return IsOneOf(letter, "dD") ? 10 : IsOneOf(letter, "oO") ? 8 : 16;
}

static void PutInteger(TextOut *out, char letter, bool wide, unsigned width, ArgList *list) {
    uint64_t value = wide ? va_arg(list->args, uint64_t) : va_arg(list->args, uint32_t);
    PutNumber(out, value, IntegerBase(letter), width, letter == 'X');
}

// Writes the conversion whose letter is at *letter and returns what follows it.
static const char *PutConversion(TextOut *out, const char *letter, unsigned width, ArgList *list) {
    switch (*letter) {
    case 'd':
    case 'D':
    case 'x':
    case 'X':
    case 'i': // hexadecimal on purpose
    case 'o':
    case 'O':
        PutInteger(out, *letter, false, width, list);
        return letter + 1;
    case 'l':
        if (letter[1] != 0 && IsOneOf(letter[1], "dDxXoOi")) {
            PutInteger(out, letter[1], true, width, list);
            return letter + 2;
        }
        PutText(out, "%l");
        if (letter[1] == 0)
            return letter + 1;
        Put(out, letter[1]);
        return letter + 2;
    case 's':
    case 'a':
        PutText(out, va_arg(list->args, const char *));
        return letter + 1;
    case 'S':
        PutText16(out, va_arg(list->args, const uint16_t *));
        return letter + 1;
    case 'c':
        Put(out, static_cast<char>(va_arg(list->args, int)));
        return letter + 1;
    case 'g':
    case 'G':
        PutGuid(out, va_arg(list->args, const EFI_GUID *), *letter == 'G');
        return letter + 1;
    case 'r':
    case 'R':
        PutStatus(out, va_arg(list->args, uint64_t));
        return letter + 1;
    default:
        Put(out, '%');
        if (*letter == 0)
            return letter;
        Put(out, *letter);
        return letter + 1;
    }
}

// Handles what follows a '%' (format points behind it) and returns what follows the conversion.
static const char *PutField(TextOut *out, const char *format, ArgList *list) {
    if (*format == '%') {
        Put(out, '%');
        return format + 1;
    }
    if (*format != '0')
        return PutConversion(out, format, 0, list);
    if (format[1] == 0 || format[2] == 0 || !IsOneOf(format[2], "dDxXl")) {
        PutText(out, "%0");
        return format + 1;
    }
    char width[2] = {format[1], 0};
    return PutConversion(out, format + 2, static_cast<unsigned>(str2Numeral(width)), list);
}

size_t FormatBounded(char *buffer, size_t capacity, const char *format, va_list args) {
    if (buffer == nullptr || format == nullptr)
        return 0;
    ArgList list;
    va_copy(list.args, args);
    TextOut out = {buffer, capacity, 0};
    while (*format != 0) {
        if (*format == '%')
            format = PutField(&out, format + 1, &list);
        else
            Put(&out, *format++);
    }
    va_end(list.args);
    return out.count;
}

int Sprintf_s_va_list(char *buffer, const char *format, va_list args) {
    if (buffer == nullptr || format == nullptr)
        return -1;
    return static_cast<int>(FormatBounded(buffer, SIZE_MAX, format, args));
}

unsigned int Sprintf_s(char *buffer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    int count = Sprintf_s_va_list(buffer, format, args);
    va_end(args);
    return static_cast<unsigned int>(count);
}

// The formatted text in a zero-filled heap block of at least PRINT_BUFFER bytes; NULL without memory.
static char *FormatToHeap(const char *format, va_list args, size_t *count) {
    for (size_t size = PRINT_BUFFER;; size = *count + 1) {
        char *text = static_cast<char *>(Malloc(size));
        if (text == nullptr)
            return nullptr;
        Memset(text, 0, size);
        *count = FormatBounded(text, size - 1, format, args);
        if (*count < size)
            return text;
        Free(text);
    }
}

int Printf(const char *format, ...) {
    if (format == nullptr)
        return 0xFFFF;
    va_list args;
    va_start(args, format);
    size_t count = 0;
    char *text = FormatToHeap(format, args, &count);
    va_end(args);
    if (text == nullptr)
        return 0;
    printf("%s", text);
    Free(text);
    return static_cast<uint16_t>(count);
}

int OutputIntDigit(uint64_t value, unsigned base, unsigned width, int upper, char *buffer, uint16_t *pos) {
    if (buffer == nullptr)
        return -1;
    TextOut out = {buffer, SIZE_MAX, pos == nullptr ? static_cast<size_t>(0) : *pos};
    if (!PutNumber(&out, value, base, width, upper != 0))
        return -1;
    if (pos != nullptr)
        *pos = static_cast<uint16_t>(out.count);
    return static_cast<int>(out.count);
}

void PrintAssert(const char *source, unsigned line, const char *condition) {
    Printf("ASSERT in %s on %d: %s\n", source, line, condition);
}
