// smbus: transactions of the SMBus host against one that answers as the input says, and pages and SPD modules
// read through it. Asserted: the order of the accesses to the host; success, failure and data as the answers
// have it; that a module's first page is selected at the end; that signals are held for a transaction and not
// longer.
#include <string.h>

#include "Goal.h"
#include "Machine.h"
#include "Platform/SmbusHost.h"
#include "Platform/Spd.h"

namespace {

constexpr uint16_t BASE = 0xEFA0;
constexpr uint32_t POLLS = 0xFFFFF; // of a wait
constexpr uint8_t UNTOUCHED = 0xEE;
constexpr uint8_t STARTED = 0x48;
constexpr uint8_t DONE = 0x02;
constexpr uint8_t FAILED = 0x04;
constexpr uint8_t COLLIDED = 0x08;
constexpr uint8_t KILL = 0x02;       // of the control
constexpr uint8_t KILL_ENDED = 0x10; // of the status
constexpr uint8_t NEVER_DONE = 0xA7;

// The host, and the module of two pages behind it.
struct Host {
    uint8_t slave, command, data, control;
    uint8_t status;   // that the next polls find
    uint32_t busy;    // polls before that
    bool cleared;     // since the last transaction
    uint32_t started; // transactions
    bool failed;      // the last one
    bool killed;      // and the host said so when it was asked
    uint8_t written;  // to the status, last
    int page;
    uint8_t pages[2][SMBUS_PAGE_BYTES];
};
Host gHost;
Input *gAnswers;

// How a transaction ends: a byte each, done behind the last one.
void Begin() {
    uint8_t answer = TakeByte(gAnswers);
    bool never =
        answer == NEVER_DONE && gHost.started == 0 && TakeByte(gAnswers) == NEVER_DONE; // takes its time
    Expect(SignalHolds() > 0, "signals are held for a transaction");
    Expect(gHost.cleared, "the status is cleared before a transaction");
    const uint8_t ends[] = {DONE, DONE, DONE, DONE, FAILED, COLLIDED, FAILED | DONE, COLLIDED | FAILED};
    gHost.status = never ? 0x41 : ends[answer & 7];
    gHost.busy = never ? POLLS : answer >> 4;
    gHost.failed = never || (gHost.status & FAILED) != 0;
    gHost.cleared = false;
    gHost.killed = false;
    gHost.started++;
    if (gHost.failed)
        return;
    if ((gHost.slave & 1) == 0 && (gHost.slave | 3) == 0x6F)
        gHost.page = gHost.slave >> 1 & 1; // 6Ch and 6Eh
    else if (gHost.slave & 1)
        gHost.data = gHost.pages[gHost.page][gHost.command];
}

void WritePort(uint16_t port, unsigned width, uint32_t value) {
    Expect(width == 1, "the host's registers are bytes");
    uint8_t byte = static_cast<uint8_t>(value);
    switch (port - BASE) {
    case 0:
        gHost.cleared = byte == 0xFF;
        gHost.written = byte;
        break;
    case 2:
        gHost.control = byte;
        if (byte == STARTED)
            Begin();
        else
            Expect(byte == 0x81 && gHost.failed && (!gHost.killed || gHost.written == KILL_ENDED),
                   "the host is freed after a failure alone, whose end is cleared");
        break;
    case 3:
        gHost.command = byte;
        break;
    case 4:
        gHost.slave = byte;
        break;
    case 5:
        gHost.data = byte;
        break;
    default:
        Expect(false, "a register of the host");
    }
}

uint32_t ReadPort(uint16_t port, unsigned width) {
    Expect(width == 1, "the host's registers are bytes");
    switch (port - BASE) {
    case 0:
        if (gHost.busy > 0) {
            gHost.busy--;
            return 0x41; // taken, and at work
        }
        return gHost.status;
    case 2: {
        uint8_t control =
            gHost.control == STARTED && gHost.failed ? TakeByte(gAnswers) & 0x0F : gHost.control;
        gHost.killed = (control & KILL) != 0;
        return control;
    }
    default:
        Expect(port == BASE + 5 && !gHost.failed, "the data are read of a good transaction alone");
        return gHost.data;
    }
}

void CheckTransaction(Input *input) {
    uint8_t slave = TakeByte(input);
    uint8_t offset = TakeByte(input);
    uint8_t data = UNTOUCHED;
    bool write = (TakeByte(input) & 1) != 0;
    EFI_STATUS status =
        write ? StandardSmbusWrite(BASE, slave, offset, data) : StandardSmbusRead(BASE, slave, offset, &data);
    Expect(status == (gHost.failed ? EFI_DEVICE_ERROR : EFI_SUCCESS),
           "a transaction fails when the host says so");
    Expect(gHost.started == 1 && gHost.command == offset, "one transaction for its command");
    Expect(gHost.slave == (write ? slave & 0xFE : slave | 1), "the slave's address with the direction");
    uint8_t expected = write || gHost.failed ? UNTOUCHED : gHost.pages[0][offset];
    if ((slave | 3) != 0x6F)
        Expect(data == expected, "the data that were read, or none");
}

void CheckPage(Input *input) {
    uint8_t buffer[SMBUS_PAGE_BYTES + 1];
    memset(buffer, UNTOUCHED, sizeof buffer);
    EFI_STATUS status = SmbusReadPage(BASE, TakeByte(input) & 0x1F, buffer);
    uint32_t good = gHost.failed ? gHost.started - 1 : SMBUS_PAGE_BYTES;
    Expect(status == (gHost.failed ? EFI_DEVICE_ERROR : EFI_SUCCESS), "a page ends with the first failure");
    Expect(memcmp(buffer, gHost.pages[0], good) == 0, "the bytes before a failure are there");
    Expect(AllBytes(buffer + good, UNTOUCHED, sizeof buffer - good), "and none behind it");
}

void CheckModule(Input *input) {
    uint8_t buffer[DDR4_SPD_BYTES + 1];
    memset(buffer, UNTOUCHED, sizeof buffer);
    uint8_t slave = static_cast<uint8_t>(0xA0 + TakeByte(input) % 16);
    bool whole = TakeByte(input) & 1;
    if (whole)
        gAnswers->length = 0; // no failures
    EFI_STATUS status = GetDDR4Spd(BASE, slave, buffer, 0);
    Expect(buffer[DDR4_SPD_BYTES] == UNTOUCHED, "a module's bytes and no more");
    Expect(IsSpdAddress(slave) == ((slave & 0xFE) <= 0xAA), "a module's address");
    Expect(gHost.slave == 0x6C, "the first page is selected last");
    if (!whole)
        return;
    Expect(status == EFI_SUCCESS && gHost.page == 0, "the first page is selected at the end");
    Expect(memcmp(buffer, gHost.pages[0], SMBUS_PAGE_BYTES) == 0 &&
               memcmp(buffer + SMBUS_PAGE_BYTES, gHost.pages[1], SMBUS_PAGE_BYTES) == 0,
           "both pages");
}

} // namespace

void FuzzSmbus(Input input) {
    static const Machine machine = {ReadPort, WritePort, nullptr, nullptr, nullptr, nullptr, nullptr};
    uint8_t kind = TakeByte(&input);
    uint8_t seed = TakeByte(&input);
    memset(&gHost, 0, offsetof(Host, pages));
    for (uint32_t i = 0; i < SMBUS_PAGE_BYTES; i++) {
        gHost.pages[0][i] = static_cast<uint8_t>(seed + i);
        gHost.pages[1][i] = static_cast<uint8_t>(seed - i * 3);
    }
    Input *answers = &input;
    gAnswers = answers;
    StartMachine(&machine);
    kind < 0xE0 ? CheckTransaction(answers) : kind < 0xF0 ? CheckPage(answers) : CheckModule(answers);
    StopMachine();
    gAnswers = nullptr;
}
