#include "Project/FileOp.h"

#include "Base/Memory.h"
#include "BasicLib/PhysMem.h"
#include "BasicLib/PortIo.h"
#include "Common/ComFunc/CmdLine.h"
#include "Common/ComFunc/MemoryLadder.h"
#include "Common/FileLib.h"
#include "Common/Global.h"
#include "Common/Sprint.h"

constexpr uint32_t MIB = 0x100000;

// Where the bytes come from. With neither word they are zeros.
enum DumpSource { FROM_NOWHERE, FROM_MEMORY, FROM_PORTS };

// What is left to be copied.
struct DumpRange {
    DumpSource source;
    uint32_t address;
    uint32_t remaining;
};

static DumpSource SourceOf(CmdType cmd) {
    return HasFlag(cmd, Flag::MEM) ? FROM_MEMORY : HasFlag(cmd, Flag::IO) ? FROM_PORTS : FROM_NOWHERE;
}

static uint32_t ShowFileHelp() {
    Printf(" /MEM /RF SMBIOS.bin 0xFF550 0x100: Dump 256 bytes to SMBIOS.bin\n");
    Printf(" /IO /RF IO.bin 0 0x100: Dump IO from 0 t0 0x100 to IO.bin file\n");
    return EFI_INVALID_PARAMETER;
}

static void ReportChunk(const char *format, const DumpRange *range) {
    if (range->remaining % MIB == 0)
        Printf(format, Wide(range->address), Wide(range->remaining));
}

static void ReadChunk(const DumpRange *range, uint8_t *buffer, uint32_t count) {
    if (range->source == FROM_MEMORY) {
        ReportChunk("R_MEM Start:0x%lX, Size:0x%lX\n", range);
        MemDump(range->address, count, buffer);
    } else if (range->source == FROM_PORTS) {
        ReportChunk("R_IO Start:0x%lX, Size:0x%lX\n", range);
        for (uint32_t k = 0; k < count; ++k)
            buffer[k] = static_cast<uint8_t>(IoRead8((range->address + k) & 0xFFFF));
    }
}

static void CopyRange(DumpRange range, uint8_t *buffer, uint32_t chunk, FILE *file) {
    for (;;) {
        uint32_t count = chunk < range.remaining ? chunk : range.remaining;
        if (count == 0 || 0xFFFFFFFF - range.address < count - 1)
            return;
        ReadChunk(&range, buffer, count);
        if (Fwrite(buffer, 1, count, file) < count) {
            Printf("Write to buffer fail!\n");
            return;
        }
        if (range.remaining < chunk)
            return;
        range.remaining -= chunk;
        range.address += chunk;
    }
}

// A missing name is one that cannot be created. Unbuffered: a full disk shows at the write, not after it.
static FILE *CreateDumpFile(const char *path) {
    FILE *file = path == nullptr ? nullptr : OpenAnewOrSink(path);
    if (file != nullptr)
        setvbuf(file, nullptr, _IONBF, 0);
    return file;
}

static uint32_t DumpToFile(DumpRange range, const char *path) {
    if (0xFFFFFFFF - range.address < range.remaining - 1) {
        Printf("StartAddr error!\n");
        return EFI_ABORTED;
    }
    FILE *file = CreateDumpFile(path);
    if (file == nullptr) {
        Printf("FileOpen fail!\n");
        return EFI_ABORTED;
    }
    uint8_t *buffer = nullptr;
    uint32_t chunk;
    EFI_STATUS status = GetMaxAllocMemory(&buffer, &chunk, range.remaining);
    if (status == EFI_SUCCESS) {
        Printf("Waitting ...\n\n");
        ProvidePages(buffer, chunk);
        Memset(buffer, 0, chunk);
        CopyRange(range, buffer, chunk, file);
        Free(buffer);
    }
    Fclose(file);
    return static_cast<uint32_t>(status);
}

uint32_t FileOptEntry() {
    CmdType cmd = CmdWord();
    if (HasFlag(cmd, Flag::HELP))
        return ShowFileHelp();
    uint16_t pos;
    if (!CmdFind({"RF"}, &pos))
        return EFI_UNSUPPORTED;
    DumpRange range = {SourceOf(cmd), OperandDword(pos, 2), OperandDword(pos, 3)};
    return DumpToFile(range, CmdArgText(pos, 1));
}
