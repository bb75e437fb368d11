#include "tools/check/Json.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "tools/check/Report.h"
#include "tools/check/machine/KernelFiles.h"

constexpr uint32_t FIRST_OF_TWO = 0x10000; // characters that UTF-16 writes as two units
constexpr uint32_t LOST_BYTE = 0xDC00;     // what stands for a byte that is no UTF-8, as Python takes it back

// The character at the front of a text and its bytes (RFC 3629, 4); 0 bytes where that is no UTF-8.
static uint32_t TakeCharacter(const uint8_t *text, uint32_t *character) {
    static const uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    uint32_t bytes = text[0] < 0x80 ? 1 : text[0] < 0xC0 ? 0 : text[0] < 0xE0 ? 2 : text[0] < 0xF0 ? 3 : 4;
    if (bytes == 0 || text[0] >= 0xF8)
        return 0;
    *character = bytes == 1 ? text[0] : text[0] & (0x7Fu >> bytes);
    for (uint32_t i = 1; i < bytes; ++i) {
        if ((text[i] & 0xC0) != 0x80) // also the end of the text
            return 0;
        *character = *character << 6 | (text[i] & 0x3Fu);
    }
    bool wrong = *character < least[bytes] || *character > 0x10FFFF || (*character & 0xFFFFF800) == 0xD800;
    return wrong ? 0 : bytes;
}

static void PutCharacter(uint32_t character) {
    if (character == '"' || character == '\\')
        printf("\\%c", static_cast<int>(character));
    else if (character >= ' ' && character < 0x7F)
        putchar(static_cast<int>(character));
    else if (character < FIRST_OF_TWO)
        printf("\\u%04x", character);
    else
        printf("\\u%04x\\u%04x", 0xD800 | ((character - FIRST_OF_TWO) >> 10), 0xDC00 | (character & 0x3FF));
}

static void PutText(const char *text) {
    const uint8_t *at = reinterpret_cast<const uint8_t *>(text);
    putchar('"');
    while (*at != 0) {
        uint32_t character = 0;
        uint32_t bytes = TakeCharacter(at, &character);
        PutCharacter(bytes == 0 ? LOST_BYTE | *at : character);
        at += bytes == 0 ? 1 : bytes;
    }
    putchar('"');
}

static void PutMember(const char *name, const char *text) {
    printf(", \"%s\": ", name);
    PutText(text);
}

void PutJsonAnswer(int count, char *const *words, const Answer *answer) {
    fputs("{\"words\": [", stdout);
    for (int i = 0; i < count; ++i) {
        fputs(i == 0 ? "" : ", ", stdout);
        PutText(words[i]);
    }
    fputs("]", stdout);
    PutMember("does", answer->does);
    PutMember("verdict", NameOfVerdict(answer->verdict));
    if (answer->status == STATUS_NOT_FORETOLD)
        fputs(", \"status\": null", stdout);
    else
        printf(", \"status\": %d", answer->status);
    PutMember("shows", answer->shows);
    PutMember("because", FindingOf(answer->because)->name);
    PutMember("why", answer->why);
    PutMember("remedy", answer->remedy);
    fputs(", \"cautions\": [", stdout);
    for (size_t i = 0; i < MOST_CAUTIONS && answer->cautions[i][0] != 0; ++i) {
        fputs(i == 0 ? "" : ", ", stdout);
        PutText(answer->cautions[i]);
    }
    fputs("]}", stdout);
}

void PutJsonHead() {
    fputs("{\"version\": \"" HWREG_VERSION "\"", stdout);
    PutMember("kernel", KernelRelease());
    fputs(", \"findings\": [", stdout);
    for (int i = FINDING_NONE + 1; i < FINDINGS; ++i) {
        const Finding *finding = FindingOf(static_cast<FindingName>(i));
        printf("%s{\"name\": \"%s\"", i == FINDING_NONE + 1 ? "" : ", ", finding->name);
        PutMember("state", NameOfState(finding->state));
        PutMember("found", finding->found);
        PutMember("remedy", finding->remedy);
        fputs("}", stdout);
    }
    fputs("], \"commands\": [", stdout);
}

void PutJsonComma() {
    fputs(", ", stdout);
}

void PutJsonEnd() {
    fputs("]}", stdout);
}
