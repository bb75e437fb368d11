#include "tools/check/lines/Operands.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/Numeral.h"
#include "Main/Parser.h"

bool IsSwitchWord(const char *word) {
    char *alone[] = {const_cast<char *>(""), const_cast<char *>(word), nullptr};
    return TranslateCmd(alone) != 0;
}

static bool IsHexNumber(const char *word) {
    return word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
}

// Digits that count behind the prefix, and whether all the others are such as may stand between them.
static size_t Digits(const char *word, bool *plain) {
    bool hex = IsHexNumber(word);
    size_t count = 0;
    *plain = true;
    for (const char *c = hex ? word + 2 : word; *c != 0; ++c) {
        bool digit = hex ? isxdigit(static_cast<uint8_t>(*c)) != 0 : isdigit(static_cast<uint8_t>(*c)) != 0;
        if (digit && (count != 0 || *c != '0'))
            ++count;
        else if (!digit && *c != '_')
            *plain = false;
    }
    return count;
}

// True for what would be a hexadecimal number behind "0x".
static bool LooksHexadecimal(const char *word) {
    return *word != 0 && strspn(word, "0123456789ABCDEFabcdef") == strlen(word) &&
           strpbrk(word, "ABCDEFabcdef") != nullptr;
}

static void JudgeNumber(Line *line, const char *word, unsigned bits, uint32_t value, const char *name) {
    bool plain;
    size_t digits = Digits(word, &plain);
    if (IsSwitchWord(word))
        Caution(line, "the %s is \"%s\", a switch word, and counts as %Xh", name, word, value);
    else if (LooksHexadecimal(word))
        Caution(line, "the %s \"%s\" counts as %Xh: hexadecimal numbers begin with 0x", name, word, value);
    else if (!plain || *word == 0)
        Caution(line, "the %s \"%s\" counts as %Xh: what is no digit is skipped", name, word, value);
    else if (digits > (IsHexNumber(word) ? 16 : 19) || str2Numeral(word) != value)
        Caution(line, "the %s %s has more than %u bits and counts as %Xh", name, word, bits, value);
}

uint32_t NumberAt(Line *line, uint16_t pos, unsigned count, unsigned bits, const char *name) {
    const char *word = TextAt(line, pos, count);
    uint32_t mask = bits == 32 ? 0xFFFFFFFF : (1u << bits) - 1;
    uint32_t value = OperandDword(pos, count) & mask;
    if (word == nullptr)
        Caution(line, "the %s is missing and counts as 0", name);
    else
        JudgeNumber(line, word, bits, value, name);
    return value;
}

AccessOperands OperandsOf(Line *line, const AccessForm *form, unsigned count, unsigned bitNumberBits) {
    AccessOperands operands = {0, 0};
    if (form->width == ACCESS_BIT) {
        operands.data = NumberAt(line, form->pos, count, bitNumberBits, "bit");
        operands.value = form->writes ? NumberAt(line, form->pos, count + 1, 8, "value") : 0;
    } else if (form->writes) {
        operands.data = NumberAt(line, form->pos, count, 8 * AccessBytes(form->width), "data");
    }
    return operands;
}

bool TakeNumbered(Line *line, const AccessForm *form, unsigned bits, const char *name, const char *where,
                  NumberedAccess *access) {
    access->number = NumberAt(line, form->pos, 1, bits, name);
    access->operands = OperandsOf(line, form, 2, 32);
    char place[32];
    snprintf(place, sizeof(place), "%s %Xh", where, access->number);
    DoesAccess(line, form, access->operands, place);
    return !JudgeBit(line, form, access->operands.data);
}

const char *TextAt(Line *line, uint16_t pos, unsigned count) {
    const char *word = CmdArgText(pos, count);
    if (word != nullptr && pos + count < MOST_WORDS)
        line->used[pos + count] = true;
    return word;
}

bool TakeWord(Line *line, const char *key, uint16_t *pos) {
    uint16_t found;
    if (!CmdFind({key}, &found))
        return false;
    if (found < MOST_WORDS)
        line->used[found] = true;
    if (pos != nullptr)
        *pos = found;
    return true;
}

void CautionOfKeys(Line *line) {
    if (!HasFlag(line->cmd, Flag::LOG))
        Caution(line, "it waits for a key after each page, unless /LOG is on the line");
}
