#include "Common/ComFunc/CmdLine.h"

#include "Base/Text.h"
#include "Common/ComFunc/Numeral.h"
#include "Common/Global.h"

constexpr size_t LONGEST_SWITCH = 20;

EFI_STATUS CmdSearchFromBuffer(const char *word, const char *key) {
    if (key == nullptr)
        return EFI_ABORTED;
    if (Strlen(key) > LONGEST_SWITCH)
        return EFI_BUFFER_TOO_SMALL;
    if (word == nullptr)
        return EFI_ABORTED;
    if (Strcmp(word, key) == 0)
        return EFI_SUCCESS;
    bool prefixed = word[0] == '/' || word[0] == '-' || word[0] == '\\';
    return prefixed && Strcmp(word + 1, key) == 0 ? EFI_SUCCESS : EFI_NOT_FOUND;
}

EFI_STATUS CmdSearchFromArgv(char **argv, const char *key, uint16_t *pos) {
    if (argv == nullptr || argv[0] == nullptr || key == nullptr)
        return EFI_ABORTED;
    for (size_t i = 0; argv[i] != nullptr; ++i) {
        if (CmdSearchFromBuffer(argv[i], key) == EFI_SUCCESS) {
            if (pos != nullptr)
                *pos = static_cast<uint16_t>(i);
            return EFI_SUCCESS;
        }
    }
    return EFI_NOT_FOUND;
}

bool CmdFindIn(char **argv, std::initializer_list<const char *> keys, uint16_t *pos) {
    for (const char *key : keys) {
        if (CmdSearchFromArgv(argv, key, pos) == EFI_SUCCESS)
            return true;
    }
    return false;
}

bool CmdFind(std::initializer_list<const char *> keys, uint16_t *pos) {
    return CmdFindIn(gCmdArg->Argv, keys, pos);
}

const char *CmdArgText(uint16_t pos, unsigned count) {
    char **word = gCmdArg->Argv + pos;
    for (; count > 0 && *word != nullptr; --count)
        ++word;
    return *word;
}

uint64_t CmdOperand(uint16_t pos, unsigned count) {
    return str2Numeral(CmdArgText(pos, count));
}

uint8_t OperandByte(uint16_t pos, unsigned count) {
    return static_cast<uint8_t>(CmdOperand(pos, count));
}

uint16_t OperandWord(uint16_t pos, unsigned count) {
    return static_cast<uint16_t>(CmdOperand(pos, count));
}

uint32_t OperandDword(uint16_t pos, unsigned count) {
    return static_cast<uint32_t>(CmdOperand(pos, count));
}
