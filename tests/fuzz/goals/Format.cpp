// format: formats of pieces, put together by choice, through every procedure of Sprint.h. Asserted: the text
// that snprintf makes where both define it, and a model of the program's own conversions elsewhere; the count
// of the whole text, and not a byte beyond the capacity. And any bytes as a format, of which the bounds alone
// are known.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Common/ComFunc/Console.h"
#include "Common/Sprint.h"
#include "Goal.h"
#include "tests/fuzz/Held.h"

namespace {

constexpr int MOST_PIECES = 8;
constexpr size_t FORMAT_BYTES = 64;
constexpr size_t TEXT_BYTES = 2048;
constexpr size_t LONGEST_TEXT = 200;
constexpr uint8_t UNTOUCHED = 0xEE;

// A format, its arguments, and the text that it has to give.
struct Sample {
    char format[FORMAT_BYTES * MOST_PIECES];
    uint64_t arguments[MOST_PIECES];
    void *blocks[MOST_PIECES]; // of the heap, which arguments point to
    int count;
    char text[TEXT_BYTES];
    size_t length;
};

void Append(Sample *sample, const void *text, size_t length) {
    memcpy(sample->text + sample->length, text, length);
    sample->length += length;
}

void AppendFormat(Sample *sample, const char *piece) {
    strcat(sample->format, piece);
}

uint64_t AddBlock(Sample *sample, void *block) {
    sample->blocks[sample->count] = block;
    return reinterpret_cast<uintptr_t>(block);
}

// The digits with zeros in front, as snprintf writes them but for what is negative: there the zeros stand
// before the sign, which counts for the width.
void AppendNumber(Sample *sample, char letter, bool wide, unsigned width, uint64_t value) {
    char text[96];
    uint64_t cut = wide ? value : value & 0xFFFFFFFF;
    int padding = static_cast<int>(width);
    bool decimal = (letter | 0x20) == 'd';
    int length;
    if (decimal && static_cast<int64_t>(cut) < 0) {
        char digits[32];
        int count = snprintf(digits, sizeof digits, "%lld", static_cast<long long>(cut));
        length =
            snprintf(text, sizeof text, "%.*s%s", padding > count ? padding - count : 0, "000000000", digits);
    } else
        length = snprintf(text, sizeof text,
                          decimal                  ? "%0*llu"
                          : (letter | 0x20) == 'o' ? "%0*llo"
                          : letter == 'X'          ? "%0*llX"
                                                   : "%0*llx",
                          padding, static_cast<unsigned long long>(cut));
    Append(sample, text, static_cast<size_t>(length));
}

void AddNumber(Sample *sample, Input *input) {
    const char letters[] = "dDxXiIoO"; // 'I' is no conversion and stands for 'd' here
    char letter = letters[TakeByte(input) & 7];
    letter = letter == 'I' ? 'd' : letter;
    uint8_t form = TakeByte(input);
    bool wide = (form & 0x10) != 0;
    unsigned width = form & 0x0F;
    bool padded = width < 10 && (form & 0x20) && (wide || strchr("dDxX", letter));
    char piece[8];
    snprintf(piece, sizeof piece, padded ? "%%0%u%s%c" : "%%%.0u%s%c", padded ? width : 0, wide ? "l" : "",
             letter);
    AppendFormat(sample, piece);
    uint64_t value = TakeOdd(input, 64);
    sample->arguments[sample->count] = value;
    AppendNumber(sample, letter, wide, padded ? width : 0, value);
    sample->count++;
}

void AddText(Sample *sample, Input *input) {
    uint8_t form = TakeByte(input);
    AppendFormat(sample, form & 1 ? "%a" : "%s");
    if (form & 0x80)
        sample->arguments[sample->count++] = 0; // no text
    else {
        char *text = TakeText(input, LONGEST_TEXT);
        sample->arguments[sample->count] = AddBlock(sample, text);
        Append(sample, text, strlen(text));
        sample->count++;
    }
}

void AddWideText(Sample *sample, Input *input) {
    size_t units = TakeByte(input) & 15;
    if (units == 15) {
        AppendFormat(sample, TakeByte(input) & 1 ? "%S" : "%g");
        sample->arguments[sample->count++] = 0; // no text, no identifier
        return;
    }
    uint16_t *text = static_cast<uint16_t *>(malloc((units + 1) * sizeof(uint16_t)));
    size_t length = 0;
    for (; length < units; length++) {
        text[length] = Take16(input);
        if (text[length] == 0)
            break;
        uint8_t low = static_cast<uint8_t>(text[length]);
        Append(sample, &low, 1);
    }
    text[length] = 0;
    AppendFormat(sample, "%S");
    sample->arguments[sample->count] = AddBlock(sample, text);
    sample->count++;
}

void AddGuid(Sample *sample, Input *input) {
    bool upper = (TakeByte(input) & 1) != 0;
    EFI_GUID *guid = static_cast<EFI_GUID *>(malloc(sizeof(EFI_GUID)));
    guid->Data1 = Take32(input);
    guid->Data2 = Take16(input);
    guid->Data3 = Take16(input);
    char text[64];
    int length = snprintf(text, sizeof text, upper ? "%08X-%04X-%04X" : "%08x-%04x-%04x", guid->Data1,
                          guid->Data2, guid->Data3);
    for (uint8_t &byte : guid->Data4) {
        byte = TakeByte(input);
        length += snprintf(text + length, sizeof text - static_cast<size_t>(length),
                           upper ? "-%02X" : "-%02x", byte);
    }
    AppendFormat(sample, upper ? "%G" : "%g");
    Append(sample, text, static_cast<size_t>(length));
    sample->arguments[sample->count] = AddBlock(sample, guid);
    sample->count++;
}

void AddCharacter(Sample *sample, Input *input) {
    uint8_t c = TakeByte(input);
    AppendFormat(sample, "%c");
    Append(sample, &c, 1);
    sample->arguments[sample->count++] = c;
}

// Names begin with EFI_ and are those of UEFI up to the ones that the program numbers its own way.
void AddStatus(Sample *sample, Input *input) {
    struct Name {
        uint64_t status;
        const char *text;
    };
    const Name names[] = {{EFI_SUCCESS, "EFI_SUCCESS"},
                          {4, "EFI_WARN_BUFFER_TOO_SMALL"},
                          {EFI_LOAD_ERROR, "EFI_LOAD_ERROR"},
                          {EFI_INVALID_PARAMETER, "EFI_INVALID_PARAMETER"},
                          {EFI_OUT_OF_RESOURCES, "EFI_OUT_OF_RESOURCES"},
                          {EFI_ABORTED, "EFI_ABORTED"},
                          {0x80000021, "EFI_COMPROMISED_DATA"},
                          {5, "00000005"},
                          {0x80000000, "80000000"},
                          {0x80000022, "80000022"},
                          {0x1800000FF, "800000FF"}};
    uint8_t choice = TakeByte(input);
    const Name *name = &names[choice % (sizeof names / sizeof *names)];
    AppendFormat(sample, choice & 0x80 ? "%R" : "%r");
    Append(sample, name->text, strlen(name->text));
    sample->arguments[sample->count++] = name->status;
}

// What is printed as it stands; none takes an argument.
void AddLiteral(Sample *sample, Input *input) {
    struct Literal {
        const char *format;
        const char *text;
    };
    const Literal literals[] = {{"plain", "plain"}, {"%%", "%"},      {"%z", "%z"},    {"%5d", "%5d"},
                                {"%-4s", "%-4s"},   {"%lq", "%lq"},   {"%0q", "%0q"},  {"%04c", "%04c"},
                                {"%03o", "%03o"},   {"\r\n", "\r\n"}, {"%02S", "%02S"}};
    const Literal *literal = &literals[TakeByte(input) % (sizeof literals / sizeof *literals)];
    AppendFormat(sample, literal->format);
    Append(sample, literal->text, strlen(literal->text));
}

void AddPiece(Sample *sample, Input *input) {
    switch (TakeByte(input) % 8) {
    case 0:
    case 1:
        return AddNumber(sample, input);
    case 2:
        return AddText(sample, input);
    case 3:
        return AddWideText(sample, input);
    case 4:
        return AddGuid(sample, input);
    case 5:
        return AddCharacter(sample, input);
    case 6:
        return AddStatus(sample, input);
    default:
        return AddLiteral(sample, input);
    }
}

// Formats into a block of its own; what lies behind the capacity has to stay.
size_t Bounded(char *buffer, size_t capacity, const char *format, ...) {
    va_list args;
    va_start(args, format);
    size_t count = FormatBounded(buffer, capacity, format, args);
    va_end(args);
    return count;
}

#define ARGUMENTS(a) a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]

void CheckBounds(const Sample *sample, size_t capacity) {
    const uint64_t *a = sample->arguments;
    char *buffer = static_cast<char *>(malloc(capacity + 1));
    memset(buffer, UNTOUCHED, capacity + 1);
    size_t count = Bounded(buffer, capacity, sample->format, ARGUMENTS(a));
    size_t shown = sample->length < capacity ? sample->length : capacity;
    Expect(count == sample->length, "the count is that of the whole text");
    Expect(memcmp(buffer, sample->text, shown) == 0, "the text is the one expected, cut");
    Expect(AllBytes(buffer + shown, UNTOUCHED, capacity + 1 - shown), "nothing lies behind the text");
    free(buffer);
}

void CheckOthers(const Sample *sample) {
    const uint64_t *a = sample->arguments;
    static char buffer[TEXT_BYTES];
    Expect(Sprintf_s(buffer, sample->format, ARGUMENTS(a)) == sample->length, "Sprintf_s counts the text");
    Expect(memcmp(buffer, sample->text, sample->length) == 0, "Sprintf_s writes the text");
    size_t length;
    BeginOutput();
    int count = Printf(sample->format, ARGUMENTS(a));
    const char *printed = EndOutputOf(&length);
    size_t shown = strnlen(sample->text, sample->length);
    Expect(count == static_cast<uint16_t>(sample->length), "Printf counts the text");
    Expect(length == shown && memcmp(printed, sample->text, shown) == 0, "Printf shows the text up to a NUL");
    BeginOutput();
    DisplayPositionXY(1, 2, sample->format, ARGUMENTS(a));
    printed = EndOutputOf(&length);
    shown = shown < 255 ? shown : 255;
    Expect(length == shown && memcmp(printed, sample->text, shown) == 0, "DisplayPositionXY cuts the text");
}

void CheckSample(Input *input) {
    static Sample sample;
    sample.format[0] = 0;
    sample.count = 0;
    sample.length = 0;
    memset(sample.arguments, 0, sizeof sample.arguments);
    memset(sample.blocks, 0, sizeof sample.blocks);
    size_t capacity = TakeByte(input) * 4u;
    for (int pieces = TakeByte(input) % (MOST_PIECES + 1); pieces > 0; pieces--)
        AddPiece(&sample, input);
    CheckBounds(&sample, capacity);
    CheckOthers(&sample);
    for (void *block : sample.blocks)
        free(block);
}

// Any format: each conversion takes at most one argument, which is good for all of them.
void CheckAnyFormat(Input *input) {
    alignas(16) static const char text[32] = "argument in its place";
    uint64_t a[MOST_PIECES];
    for (uint64_t &argument : a)
        argument = reinterpret_cast<uintptr_t>(text);
    size_t capacity = TakeByte(input);
    char *format = TakeText(input, 2 * MOST_PIECES);
    char *buffer = static_cast<char *>(malloc(capacity + 1));
    memset(buffer, UNTOUCHED, capacity + 1);
    size_t count = Bounded(buffer, capacity, format, ARGUMENTS(a));
    size_t shown = count < capacity ? count : capacity;
    Expect(AllBytes(buffer + shown, UNTOUCHED, capacity + 1 - shown), "nothing lies behind the text");
    Expect(count == Bounded(buffer, 0, format, ARGUMENTS(a)), "the count does not ask for the capacity");
    if (!strchr(format, '%'))
        Expect(count == strlen(format) && memcmp(buffer, format, shown) == 0, "a format without conversions");
    free(buffer);
    free(format);
}

void CheckDigits(Input *input) {
    unsigned base = 2 + TakeByte(input) % 35;
    unsigned width = TakeByte(input) % 70;
    uint16_t pos = TakeByte(input);
    uint64_t value = TakeOdd(input, 64);
    uint16_t before = pos;
    char buffer[512];
    memset(buffer, UNTOUCHED, sizeof buffer);
    int end = OutputIntDigit(value, base, width, TakeByte(input) & 1, buffer, &pos);
    Expect(end == pos && pos > before && (pos - before >= static_cast<int>(width)),
           "OutputIntDigit moves on");
    Expect(AllBytes(buffer, UNTOUCHED, before) && AllBytes(buffer + pos, UNTOUCHED, sizeof buffer - pos),
           "OutputIntDigit writes the digits alone");
    Expect(OutputIntDigit(value, base, width, 0, buffer, nullptr) == pos - before, "without a place it is 0");
    Expect(OutputIntDigit(value, base, width, 0, nullptr, &pos) == -1, "no buffer");
}

void CheckRefusals() {
    size_t length;
    char none[1];
    Expect(Bounded(nullptr, 1, "") == 0 && Bounded(none, 1, nullptr) == 0, "no buffer or format");
    Expect(Sprintf_s(nullptr, "") == 0xFFFFFFFF && Printf(nullptr) == 0xFFFF, "no buffer or format");
    Expect(Sprintf_s(none, nullptr) == 0xFFFFFFFF, "no format");
    RefuseBlock(1);
    Expect(OutputIntDigit(1, 10, 0, 0, none, nullptr) == -1, "no memory for digits");
    RefuseBlock(1);
    Expect(Printf("text") == 0, "no memory for a text");
    BeginOutput();
    PrintAssert("here", 12, "it holds");
    Expect(strcmp(EndOutputOf(&length), "ASSERT in here on 12: it holds\n") == 0, "an assertion's line");
}

} // namespace

void FuzzFormat(Input input) {
    switch (TakeByte(&input) % 8) {
    case 0:
        return CheckAnyFormat(&input);
    case 1:
        return CheckDigits(&input);
    case 2:
        return CheckRefusals();
    default:
        return CheckSample(&input);
    }
}
