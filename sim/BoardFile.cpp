#include "BoardFile.h"

#include "Mistake.h"

#include <stdlib.h>
#include <string.h>

namespace {

constexpr unsigned MAX_DIGITS = 16;

bool IsBlank(char character) {
    return character == ' ' || character == '\t' || character == '\r';
}

bool EndsLine(char character) {
    return character == 0 || character == '\n';
}

char *SkipComment(char *at) {
    while (!EndsLine(*at))
        at++;
    return at;
}

// The end of the word that begins there, which is in double quotes if the line says so.
char *EndOfWord(const BoardLine *line, char *at, bool quoted) {
    while (!EndsLine(*at) && (quoted ? *at != '"' : !IsBlank(*at) && *at != '"'))
        at++;
    if (quoted && *at != '"')
        LineFail(line, "a quotation mark is missing", nullptr);
    if (*at == '"' && (!quoted || !(IsBlank(at[1]) || EndsLine(at[1]))))
        LineFail(line, "a quotation mark within a word", nullptr);
    return at;
}

int Digit(char character) {
    if (character >= '0' && character <= '9')
        return character - '0';
    char lower = static_cast<char>(character | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// A CPU or a range of them in front of a comma or the word's end; what is behind it, null for a mistake.
const char *TakeCpus(const char *at, bool *set) {
    char *end;
    if (*at < '0' || *at > '9')
        return nullptr;
    unsigned long first = strtoul(at, &end, 10);
    unsigned long last = first;
    if (*end == '-') {
        if (end[1] < '0' || end[1] > '9')
            return nullptr;
        last = strtoul(end + 1, &end, 10);
    }
    if ((*end && *end != ',') || first > last || last >= MAX_CPUS)
        return nullptr;
    for (unsigned long cpu = first; cpu <= last; cpu++)
        set[cpu] = true;
    return end;
}

} // namespace

void LineCut(BoardLine *line, char *at) {
    line->count = 0;
    line->operands = nullptr;
    for (;;) {
        while (IsBlank(*at))
            at++;
        if (*at == '#')
            at = SkipComment(at);
        if (EndsLine(*at))
            break;
        if (line->count == MAX_WORDS)
            LineFail(line, "more than 300 words", nullptr);
        bool quoted = *at == '"';
        at += quoted;
        line->words[line->count] = at;
        line->quoted[line->count] = quoted;
        line->taken[line->count++] = false;
        at = EndOfWord(line, at, quoted);
        if (EndsLine(*at))
            break;
        *at++ = 0;
    }
    *at = 0;
}

const char *LineWord(const BoardLine *line, int index) {
    if (index >= line->count && line->operands) {
        MistakePlace(line->path, line->number);
        BoardFail("a word is missing: \"%s %s\"", line->words[0], line->operands);
    }
    if (index >= line->count)
        LineFail(line, "a word is missing", nullptr);
    line->taken[index] = true;
    return line->words[index];
}

const char *LineText(const BoardLine *line, int index) {
    const char *word = LineWord(line, index);
    if (!line->quoted[index])
        LineFail(line, "a text stands in double quotes", word);
    return word;
}

bool TakeHex(const char **at, uint64_t *value) {
    if ((*at)[0] == '0' && ((*at)[1] | 0x20) == 'x')
        *at += 2;
    unsigned digits = 0;
    uint64_t sum = 0;
    for (int digit = Digit(**at); digit >= 0; digit = Digit(**at)) {
        sum = sum << 4 | static_cast<unsigned>(digit);
        digits += sum != 0 || digits == 0; // leading zeros do not count
        ++*at;
    }
    *value = sum;
    return digits != 0 && digits <= MAX_DIGITS;
}

uint64_t LineNumber(const BoardLine *line, int index, uint64_t maximum) {
    const char *word = LineWord(line, index);
    const char *at = word;
    uint64_t value;
    bool fits = TakeHex(&at, &value);
    if (*at || at == word || Digit(at[-1]) < 0)
        LineFail(line, "not a hexadecimal number", word);
    if (!fits || value > maximum)
        LineFail(line, "the number is too large", word);
    return value;
}

uint64_t LineCount(const BoardLine *line, int index, uint64_t maximum) {
    uint64_t value = LineNumber(line, index, maximum);
    if (value == 0)
        LineFail(line, "the number is 0", line->words[index]);
    return value;
}

uint8_t LineByte(const BoardLine *line, int index) {
    const char *word = LineWord(line, index);
    int high = Digit(word[0]);
    int low = high < 0 ? -1 : Digit(word[1]);
    if (low >= 0 && word[2] == 0) // as nearly all words of a large file
        return static_cast<uint8_t>(high << 4 | low);
    return LineHas(line, index, "??") ? 0xFF : static_cast<uint8_t>(LineNumber(line, index, 0xFF));
}

bool LineHas(const BoardLine *line, int index, const char *word) {
    bool is = index < line->count && strcmp(line->words[index], word) == 0;
    if (is)
        line->taken[index] = true;
    return is;
}

bool LineOption(const BoardLine *line, int index, const char *word) {
    if (!LineHas(line, index, word))
        return false;
    for (int i = 1; i < index; i++)
        if (strcmp(line->words[i], word) == 0)
            LineFail(line, "given twice", word);
    return true;
}

uint64_t LineAddress(const BoardLine *line, int index) {
    uint64_t address = LineNumber(line, index, UINT64_MAX);
    if (address >= MEMORY_END)
        LineFail(line, "not below 4 GiB", line->words[index]);
    return address;
}

uint64_t LineLength(const BoardLine *line, int index, uint64_t address) {
    uint64_t length = LineCount(line, index, UINT64_MAX);
    if (length > MEMORY_END - address)
        LineFail(line, "the range does not end below 4 GiB", line->words[index]);
    return length;
}

void LineCpuSet(const BoardLine *line, int index, bool *set) {
    const char *at = LineWord(line, index);
    do {
        at = TakeCpus(at, set);
        if (!at)
            LineFail(line, "not a CPU number or a range of them", line->words[index]);
    } while (*at++ == ',');
}

void LineComplete(const BoardLine *line) {
    for (int i = 1; i < line->count; i++)
        if (!line->taken[i]) {
            MistakePlace(line->path, line->number);
            BoardFail("a word too many: \"%.300s\" (the line is: %s%s%s)", line->words[i], line->words[0],
                      *line->operands ? " " : "", line->operands);
        }
}

void LineFail(const BoardLine *line, const char *message, const char *word) {
    MistakePlace(line->path, line->number);
    if (word)
        BoardFail("%s: \"%.300s\"", message, word);
    BoardFail("%s", message);
}
