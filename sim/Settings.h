// What the board answers at its doors before any device is reached: privilege, device files, shell commands.
#pragma once

#include "BoardFile.h"

constexpr const char *SYSTAB_SYS = "/sys/firmware/efi/systab";
constexpr const char *SYSTAB_PROC = "/proc/efi/systab";

enum MsrNodes { MSR_NODES_ALWAYS, MSR_NODES_AFTER_MODPROBE, MSR_NODES_NEVER };

enum SystemAction { SYSTEM_RECORD, SYSTEM_PRINT, SYSTEM_REAL, SYSTEM_EXIT };

struct SystemRule {
    const char *prefix; // of the command
    SystemAction action;
    int exitCode;
    SystemRule *next;
};

struct CpuidLeaf {
    uint32_t leaf, subleaf;
    uint32_t registers[4]; // EAX, EBX, ECX, EDX
    bool someCpus;         // of `cpus` only
    bool cpus[MAX_CPUS];
    CpuidLeaf *next;
};

// The firmware's table file. Absent while `text` is null and `error` is 0.
struct SystabFile {
    char *text;
    int error;
};

struct BoardSettings {
    bool loaded;
    int ioplError; // 0: granted
    int memError;  // 0: /dev/mem opens
    MsrNodes msrNodes;
    int msrError; // of a node that is there; 0: opens
    bool *msrModuleLoaded;
    bool cpuPresent[MAX_CPUS];
    SystabFile sysSystab, procSystab;
    SystemRule *systemRules;
    CpuidLeaf *cpuidLeaves;
    int privilege; // the level granted by iopl
};

extern BoardSettings gBoard;

void SettingsReset();

// True when the node /dev/cpu/N/msr exists at this moment.
bool MsrNodePresent(int cpu);

void IoplLine(BoardLine *line);
void MemLine(BoardLine *line);
void MsrNodesLine(BoardLine *line);
void CpusLine(BoardLine *line);
void SystabLine(BoardLine *line);
void SystemLine(BoardLine *line);
void CpuidLine(BoardLine *line);
