// Processor Programming Reference for AMD family 17h model 01h, "SMN Registers" and D0F0xB8, xBC, xC4, xC8.
// The index registers choose dwords: the lanes of a narrow access come from the data register. Of each
// message the SMU takes the arguments as they are when it is sent, and of those that come while it works on
// one it takes none.
#include "Smn.h"

#include "../Arena.h"
#include "PciFunction.h"
#include "SimplePorts.h"

namespace {

struct SmnRegister {
    uint32_t die, address;
    uint32_t *value;
    bool readOnly;
    SmnRegister *next;
};

constexpr int MAX_REGISTERS = 16384;

SmnRegister *gRegisters;
int gRegisterCount;
bool gPresent; // a function has the way there

SmnRegister *Find(uint32_t die, uint32_t address) {
    SmnRegister *found = gRegisters;
    while (found && (found->die != die || found->address != address))
        found = found->next;
    return found;
}

// ---- the mailbox
// ----------------------------------------------------------------------------------------------------

constexpr uint32_t SMU_MESSAGE = 0x3B10528;
constexpr uint32_t SMU_RESPONSE = 0x3B10564;
constexpr uint32_t SMU_ARGUMENT_0 = 0x3B10598;
constexpr uint32_t ARGUMENTS = 6;
constexpr uint32_t RESPONSE_OK = 0x01;
constexpr uint32_t RESPONSE_UNKNOWN_COMMAND = 0xFE;
constexpr uint32_t USUAL_TIME = 10;

struct Reply {
    uint32_t id, response;
    uint32_t count;
    uint32_t arguments[ARGUMENTS];
    Reply *next;
};

struct Mailbox {
    uint32_t time;
    uint32_t message, response;
    uint32_t arguments[ARGUMENTS];
    bool working;
    uint64_t ends;
    uint32_t taken[ARGUMENTS];
};

Mailbox *gMailbox;
Reply *gReplies;

const Reply *FindReply(uint32_t id) {
    static const Reply UNKNOWN = {0, RESPONSE_UNKNOWN_COMMAND, 0, {}, nullptr};
    const Reply *reply = gReplies;
    while (reply && reply->id != id)
        reply = reply->next;
    return reply ? reply : &UNKNOWN;
}

void AdvanceMailbox() {
    if (!gMailbox->working || DelayPortMicroseconds() < gMailbox->ends)
        return;
    const Reply *reply = FindReply(gMailbox->message);
    if (reply->response == 0)
        return;
    gMailbox->working = false;
    gMailbox->response = reply->response;
    for (uint32_t i = 0; i < ARGUMENTS; i++)
        gMailbox->arguments[i] = i < reply->count ? reply->arguments[i] : gMailbox->taken[i];
}

void SendMessage(uint32_t id) {
    if (gMailbox->working)
        return;
    gMailbox->message = id;
    gMailbox->working = true;
    gMailbox->ends = DelayPortMicroseconds() + gMailbox->time;
    for (uint32_t i = 0; i < ARGUMENTS; i++)
        gMailbox->taken[i] = gMailbox->arguments[i];
}

bool IsArgument(uint32_t address) {
    return address >= SMU_ARGUMENT_0 && address < SMU_ARGUMENT_0 + 4 * ARGUMENTS;
}

bool IsMailbox(uint32_t die, uint32_t address) {
    return gMailbox && die == 0 && (address == SMU_MESSAGE || address == SMU_RESPONSE || IsArgument(address));
}

uint32_t ReadMailbox(uint32_t address) {
    AdvanceMailbox();
    if (address == SMU_MESSAGE)
        return gMailbox->message;
    return address == SMU_RESPONSE ? gMailbox->response : gMailbox->arguments[(address - SMU_ARGUMENT_0) / 4];
}

void WriteMailbox(uint32_t address, uint32_t value) {
    AdvanceMailbox();
    if (address == SMU_MESSAGE)
        SendMessage(value);
    else if (address == SMU_RESPONSE)
        gMailbox->response = value;
    else
        gMailbox->arguments[(address - SMU_ARGUMENT_0) / 4] = value;
}

// ---- the network
// ----------------------------------------------------------------------------------------------------

uint32_t ReadNetwork(uint32_t die, uint32_t address) {
    if (IsMailbox(die, address))
        return ReadMailbox(address);
    const SmnRegister *found = Find(die, address);
    return found ? *found->value : 0xFFFFFFFF;
}

void WriteNetwork(uint32_t die, uint32_t address, uint32_t value) {
    if (IsMailbox(die, address)) {
        WriteMailbox(address, value);
        return;
    }
    SmnRegister *found = Find(die, address);
    if (found && !found->readOnly)
        *found->value = value;
}

// ---- the host bridge
// ------------------------------------------------------------------------------------------------

constexpr uint16_t DIE = 0xC0;
constexpr uint16_t INDEXES[] = {0xB8, 0xC4};
constexpr uint16_t DATA_BEHIND_INDEX = 4;

struct Place {
    uint32_t die, address;
};

Place Chosen(const PciFunction *function, uint16_t index) {
    uint32_t die = index == INDEXES[1] ? PciStored(function, DIE, 4) : 0;
    return {die, PciStored(function, index, 4) & ~3u};
}

bool Meets(uint16_t offset, unsigned width, uint16_t data) {
    return offset + width > data && offset < data + 4;
}

void BeforeRead(PciFunction *function, uint16_t offset, unsigned width) {
    for (uint16_t index : INDEXES) {
        uint16_t data = static_cast<uint16_t>(index + DATA_BEHIND_INDEX);
        Place place = Chosen(function, index);
        if (Meets(offset, width, data))
            PciStore(function, data, 4, ReadNetwork(place.die, place.address));
    }
}

void AfterWrite(PciFunction *function, uint16_t offset, unsigned width) {
    for (uint16_t index : INDEXES) {
        uint16_t data = static_cast<uint16_t>(index + DATA_BEHIND_INDEX);
        if (!Meets(offset, width, data))
            continue;
        Place place = Chosen(function, index);
        uint32_t lanes = width == 4 ? 0xFFFFFFFF : ((1u << (8 * width)) - 1) << (8 * (offset - data));
        uint32_t written = PciStored(function, data, 4) & lanes;
        WriteNetwork(place.die, place.address, (ReadNetwork(place.die, place.address) & ~lanes) | written);
    }
}

} // namespace

void SmnReset() {
    gPresent = false;
    gRegisters = nullptr;
    gRegisterCount = 0;
    gMailbox = nullptr;
    gReplies = nullptr;
}

void SmnLine(BoardLine *line) {
    PciFunction *function = PciLineFunction(line);
    if (function->device)
        LineFail(line, "the function is an SMBus host already", nullptr);
    gPresent = true;
    function->beforeRead = BeforeRead;
    function->afterWrite = AfterWrite;
    for (uint16_t offset = INDEXES[0]; offset < INDEXES[1] + 8; offset++)
        function->writable[offset] = 0xFF;
}

static void NeedNetwork(const BoardLine *line) {
    if (!gPresent && !line->captured)
        LineFail(line, "no \"smn\" line comes before", line->words[0]);
}

void SmnRegisterLine(BoardLine *line) {
    uint32_t die = static_cast<uint32_t>(LineNumber(line, 1, UINT32_MAX));
    uint32_t address = static_cast<uint32_t>(LineNumber(line, 2, UINT32_MAX));
    NeedNetwork(line);
    if (address % 4 != 0)
        LineFail(line, "dwords stand at multiples of 4", line->words[2]);
    SmnRegister *found = Find(die, address);
    if (!found) {
        if (gRegisterCount == MAX_REGISTERS)
            LineFail(line, "more than 16384 registers", nullptr);
        found = static_cast<SmnRegister *>(ArenaTake(sizeof(SmnRegister)));
        gRegisterCount++;
        found->die = die;
        found->address = address;
        found->value = static_cast<uint32_t *>(ArenaTakeRegisters(sizeof(uint32_t)));
        found->next = gRegisters;
        gRegisters = found;
    }
    *found->value = static_cast<uint32_t>(LineNumber(line, 3, UINT32_MAX));
    found->readOnly = LineHas(line, 4, "ro");
}

void SmuMailboxLine(BoardLine *line) {
    NeedNetwork(line);
    if (!gMailbox)
        gMailbox = static_cast<Mailbox *>(ArenaTakeRegisters(sizeof(Mailbox)));
    gMailbox->response = RESPONSE_OK;
    gMailbox->time = line->count > 1 ? static_cast<uint32_t>(LineNumber(line, 1, UINT32_MAX)) : USUAL_TIME;
}

void SmuReplyLine(BoardLine *line) {
    if (!gMailbox)
        LineFail(line, "no \"smu-mailbox\" line comes before", line->words[0]);
    Reply *reply = static_cast<Reply *>(ArenaTake(sizeof(Reply)));
    reply->id = static_cast<uint32_t>(LineNumber(line, 1, UINT32_MAX));
    reply->response = static_cast<uint32_t>(LineNumber(line, 2, UINT32_MAX));
    for (int i = 3; i < line->count && reply->count < ARGUMENTS; i++)
        reply->arguments[reply->count++] = static_cast<uint32_t>(LineNumber(line, i, UINT32_MAX));
    reply->next = gReplies;
    gReplies = reply;
}
