#include "Settings.h"

#include "Arena.h"
#include "Log.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

BoardSettings gBoard;

void SettingsReset() {
    gBoard = {};
    gBoard.msrModuleLoaded = static_cast<bool *>(ArenaTakeRegisters(sizeof(bool)));
    gBoard.cpuPresent[0] = true;
}

bool MsrNodePresent(int cpu) {
    if (cpu < 0 || cpu >= MAX_CPUS || !gBoard.cpuPresent[cpu])
        return false;
    return gBoard.msrNodes == MSR_NODES_ALWAYS ||
           (gBoard.msrNodes == MSR_NODES_AFTER_MODPROBE && *gBoard.msrModuleLoaded);
}

static int WordError(BoardLine *line, int index) {
    const char *word = LineWord(line, index);
    if (strcmp(word, "ok") == 0)
        return 0;
    int error = ErrorNumber(word);
    if (error == 0)
        LineFail(line, "neither \"ok\" nor the name of an error", word);
    return error;
}

void IoplLine(BoardLine *line) {
    gBoard.ioplError = WordError(line, 1);
}

void MemLine(BoardLine *line) {
    gBoard.memError = WordError(line, 1);
}

void MsrNodesLine(BoardLine *line) {
    const char *word = LineWord(line, 1);
    gBoard.msrError = 0;
    if (strcmp(word, "always") == 0)
        gBoard.msrNodes = MSR_NODES_ALWAYS;
    else if (strcmp(word, "modprobe") == 0)
        gBoard.msrNodes = MSR_NODES_AFTER_MODPROBE;
    else if (strcmp(word, "never") == 0)
        gBoard.msrNodes = MSR_NODES_NEVER;
    else
        gBoard.msrError = WordError(line, 1);
}

void CpusLine(BoardLine *line) {
    LineWord(line, 1);
    memset(gBoard.cpuPresent, 0, sizeof gBoard.cpuPresent);
    for (int i = 1; i < line->count; i++)
        LineCpuSet(line, i, gBoard.cpuPresent);
}

void SystabLine(BoardLine *line) {
    const char *where = LineWord(line, 1);
    bool sys = strcmp(where, "sys") == 0;
    if (!sys && strcmp(where, "proc") != 0)
        LineFail(line, "neither \"sys\" nor \"proc\"", where);
    SystabFile *file = sys ? &gBoard.sysSystab : &gBoard.procSystab;
    const char *word = LineWord(line, 2);
    if (!line->quoted[2] && ErrorNumber(word) != 0) {
        *file = {nullptr, ErrorNumber(word)};
        return;
    }
    LineText(line, 2);
    size_t before = file->text ? strlen(file->text) : 0;
    char *text = static_cast<char *>(ArenaTake(before + strlen(word) + 2));
    if (before != 0)
        memcpy(text, file->text, before);
    strcpy(text + before, word);
    strcat(text, "\n");
    *file = {text, 0};
}

void SystemLine(BoardLine *line) {
    SystemRule *rule = static_cast<SystemRule *>(ArenaTake(sizeof(SystemRule)));
    const char *word = LineWord(line, 1);
    if (strcmp(word, "print") == 0)
        rule->action = SYSTEM_PRINT;
    else if (strcmp(word, "real") == 0)
        rule->action = SYSTEM_REAL;
    else if (strcmp(word, "exit") == 0)
        rule->action = SYSTEM_EXIT;
    else
        LineFail(line, "none of \"print\", \"real\", \"exit\"", word);
    int at = 2;
    if (rule->action == SYSTEM_EXIT)
        rule->exitCode = static_cast<int>(LineNumber(line, at++, 0xFF));
    rule->prefix = at < line->count ? LineWord(line, at) : "";
    rule->next = gBoard.systemRules;
    gBoard.systemRules = rule;
}

void CpuidLine(BoardLine *line) {
    CpuidLeaf *entry = static_cast<CpuidLeaf *>(ArenaTake(sizeof(CpuidLeaf)));
    entry->leaf = static_cast<uint32_t>(LineNumber(line, 1, 0xFFFFFFFF));
    entry->subleaf = static_cast<uint32_t>(LineNumber(line, 2, 0xFFFFFFFF));
    for (int i = 0; i < 4; i++)
        entry->registers[i] = static_cast<uint32_t>(LineNumber(line, 3 + i, 0xFFFFFFFF));
    for (int i = 7; i < line->count; i++) {
        if (!LineHas(line, i, "cpus"))
            LineFail(line, "not \"cpus\"", line->words[i]);
        entry->someCpus = true;
        LineCpuSet(line, ++i, entry->cpus);
    }
    entry->next = gBoard.cpuidLeaves;
    gBoard.cpuidLeaves = entry;
}
