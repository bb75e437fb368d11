// i2c: the I2C cores. With a core that works, transfers of any shape; with one that answers as the input
// says, every way out. And the clock counts. Asserted: the very bytes on the bus, each transfer ended by a
// stop, no byte beyond the buffers, a core that is disabled afterwards, bounded waits; counts against the
// databook's formula in wide arithmetic.
#include <stdlib.h>
#include <string.h>

#include "BasicLib/Chipset.h"
#include "Goal.h"
#include "Machine.h"
#include "Platform/DwI2c.h"
#include "Platform/DwI2cTiming.h"

namespace {

constexpr uint32_t DATA_CMD = 0x10;
constexpr uint32_t RAW_INTR_STAT = 0x34;
constexpr uint32_t ENABLE = 0x6C;
constexpr uint32_t STATUS = 0x70;
constexpr uint32_t RXFLR = 0x78;
constexpr uint32_t TAR = 0x04;
constexpr uint32_t ABRT_SOURCE = 0x80;
constexpr uint32_t ENABLE_STATUS = 0x9C;
constexpr uint32_t COMP_PARAM = 0xF4;
constexpr uint32_t READ = 0x100;
constexpr uint32_t STOP = 0x200;
constexpr uint8_t UNTOUCHED = 0xEE;
constexpr uint32_t MOST_ACCESSES = 200000; // of a transfer; each wait has a bound
constexpr uint32_t MOST_SENT = 512;

struct Core {
    uint32_t base;
    uint32_t target;
    uint32_t enabled;
    uint32_t depths;
    uint8_t sent[MOST_SENT];
    uint32_t sentCount;
    uint32_t asked, given; // bytes that are to be read, and that have been
    uint32_t stops;
    uint32_t accesses;
    bool works; // else the input answers
};
Core gCore;
Input *gAnswers;

// What the core sends as the n-th byte.
uint8_t Sends(uint32_t n) {
    return static_cast<uint8_t>(0x5A + n * 7);
}

// A register of a core that works.
uint32_t GoodRead(uint32_t offset) {
    switch (offset) {
    case TAR:
        return gCore.target;
    case DATA_CMD:
        Expect(gCore.given < gCore.asked, "no byte is taken that was not asked for");
        return Sends(gCore.given++);
    case STATUS:
        return 0x04; // idle, and all is sent
    case RXFLR:
        return gCore.asked - gCore.given;
    case ENABLE_STATUS:
        return gCore.enabled;
    case COMP_PARAM:
        return gCore.depths;
    default:
        return 0;
    }
}

// One whose answers are near to those.
uint32_t OddRead(uint32_t offset) {
    uint8_t answer = TakeByte(gAnswers);
    if (answer >= 0xF0)
        return Take32(gAnswers);
    if (answer < 0xC0)
        return GoodRead(offset == DATA_CMD ? STATUS : offset);
    return offset == STATUS                                   ? 0x20u
           : offset == RAW_INTR_STAT || offset == ABRT_SOURCE ? answer & 0x43u
                                                              : 0xFFFFFFFF;
}

uint32_t ReadRegister(uint32_t address, unsigned width) {
    Expect(width == 4 && address - gCore.base < 0x100, "the core's registers have 32 bits");
    Expect(++gCore.accesses < MOST_ACCESSES, "waits have a bound");
    return gCore.works ? GoodRead(address - gCore.base) : OddRead(address - gCore.base);
}

void SendOrAsk(uint32_t value) {
    gCore.stops += (value & STOP) != 0;
    if (value & READ)
        gCore.asked++;
    else if (gCore.sentCount < MOST_SENT)
        gCore.sent[gCore.sentCount++] = static_cast<uint8_t>(value);
}

void WriteRegister(uint32_t address, unsigned width, uint32_t value) {
    Expect(width == 4 && address - gCore.base < 0x100, "the core's registers have 32 bits");
    switch (address - gCore.base) {
    case TAR:
        gCore.target = value;
        break;
    case DATA_CMD:
        return SendOrAsk(value);
    case ENABLE:
        gCore.enabled = value & 1;
        break;
    default:
        Expect(!gCore.works || gCore.enabled == 0 || address - gCore.base == 0x30,
               "set up while it is disabled");
        break;
    }
}

bool StartCore(Input *input, I2cContext *ctx) {
    uint8_t form = TakeByte(input);
    uint32_t bus = form % 8;
    const uint16_t vendors[] = {VENDOR_AMD, VENDOR_HYGON, VENDOR_AMD, VENDOR_INTEL};
    uint16_t vendor = vendors[form >> 6];
    gCore.works = (form & 0x20) != 0;
    gCore.base = bus < I2C_BUS_COUNT ? I2cSdpAddressList[bus] : 0;
    gCore.depths = (TakeByte(input) & 0x1Fu) << 8 | (TakeByte(input) & 0x1Fu) << 16;
    SetChipset(vendor);
    EFI_STATUS status = I2cInit(bus, ctx);
    if (vendor == VENDOR_INTEL || bus >= I2C_BUS_COUNT) {
        Expect(status == (vendor == VENDOR_INTEL ? EFI_UNSUPPORTED : EFI_INVALID_PARAMETER), "no such core");
        return false;
    }
    Expect(status == EFI_SUCCESS || (!gCore.works && status == EFI_NOT_READY), "a core becomes ready");
    if (gCore.works)
        Expect(ctx->rxDepth == (gCore.depths >> 8 & 0xFF) + 1 && ctx->txDepth == (gCore.depths >> 16) + 1,
               "depths");
    return status == EFI_SUCCESS;
}

I2cRequest TakeRequest(Input *input) {
    I2cRequest request = {TakeByte(input) & 3u, {}};
    for (I2cOperation &operation : request.operation) {
        uint8_t form = TakeByte(input);
        operation.flags = form & 1 ? I2C_FLAG_READ : 0;
        if (form >= 0xF0)
            operation.flags |= form & 2 ? I2C_FLAG_SMBUS_PEC : I2C_FLAG_SMBUS_PROCESS_CALL;
        operation.length = TakeByte(input) % 70;
        operation.buffer = static_cast<uint8_t *>(malloc(operation.length + 1));
        memset(operation.buffer, UNTOUCHED, operation.length + 1);
        for (uint32_t i = 0; i < operation.length && !(form & 1); i++)
            operation.buffer[i] = static_cast<uint8_t>(form + i);
    }
    return request;
}

const I2cOperation *ReadOf(const I2cRequest *request) {
    const I2cOperation *last = &request->operation[request->count - 1];
    return last->flags & I2C_FLAG_READ ? last : nullptr;
}

// The status that a request has by its shape alone; 0 when it is carried out.
EFI_STATUS ShapeOf(const I2cRequest *request) {
    const I2cOperation *first = &request->operation[0];
    if ((first->flags & (I2C_FLAG_SMBUS_PEC | I2C_FLAG_SMBUS_PROCESS_CALL)) != 0 || first->length == 0)
        return EFI_UNSUPPORTED;
    bool known = request->count == 1 || (request->count == 2 && ReadOf(request));
    return known ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

// With a core that works all bytes have gone over the bus, in order and once, and the last one with a stop.
void CheckBus(const I2cRequest *request) {
    const I2cOperation *first = &request->operation[0];
    const I2cOperation *read = ReadOf(request);
    bool writes = request->count == 2 || !read;
    uint32_t sent = writes ? first->length : 0;
    uint32_t asked = read ? read->length : 0;
    Expect(gCore.sentCount == sent && memcmp(gCore.sent, first->buffer, sent) == 0,
           "the bytes that were sent");
    Expect(gCore.asked == asked && gCore.given == asked, "the bytes that were asked for are all taken");
    for (uint32_t i = 0; i < asked; i++)
        Expect(read->buffer[i] == Sends(i), "the bytes that were read");
    Expect(gCore.stops == 1, "one stop");
}

void CheckTransfer(Input *input) {
    I2cContext ctx;
    if (!StartCore(input, &ctx))
        return;
    I2cRequest request = TakeRequest(input);
    uint32_t slave = TakeByte(input) & 0x7F;
    EFI_STATUS shape = ShapeOf(&request);
    gCore.sentCount = gCore.asked = gCore.given = gCore.stops = 0;
    EFI_STATUS status = I2cAccess(&ctx, slave, &request);
    Expect(shape == EFI_SUCCESS || status == shape, "a request of a shape that is not supported");
    Expect(ctx.writeBuffer == nullptr && ctx.readBuffer == nullptr && ctx.totalCount == 0,
           "buffers are given back");
    if (gCore.works && shape == EFI_SUCCESS) {
        Expect(status == EFI_SUCCESS && gCore.enabled == 0, "a transfer, and the core disabled");
        CheckBus(&request);
    }
    for (const I2cOperation &operation : request.operation) {
        Expect(operation.buffer[operation.length] == UNTOUCHED, "no byte beyond the buffer");
        free(operation.buffer);
    }
}

void CheckWord(Input *input) {
    I2cContext ctx;
    if (!StartCore(input, &ctx))
        return;
    uint8_t offset = TakeByte(input);
    uint16_t data = Take16(input);
    uint8_t word[3] = {UNTOUCHED, UNTOUCHED, UNTOUCHED};
    gCore.sentCount = 0;
    EFI_STATUS written = I2CWrite(&ctx, 0x50, offset, data);
    uint8_t expected[] = {offset, static_cast<uint8_t>(data), static_cast<uint8_t>(data >> 8)};
    Expect(!gCore.works || (written == EFI_SUCCESS && memcmp(gCore.sent, expected, 3) == 0),
           "a word is written");
    EFI_STATUS read = I2CRead(&ctx, 0x50, offset, word);
    Expect(!gCore.works || (read == EFI_SUCCESS && word[0] == Sends(0) && word[1] == Sends(1)),
           "a word is read");
    Expect(word[2] == UNTOUCHED, "and no more");
}

void CheckSpeed(Input *input) {
    I2cContext ctx;
    if (!StartCore(input, &ctx))
        return;
    uint64_t hz = TakeOdd(input, 64);
    uint64_t wanted = hz;
    EFI_STATUS status = SetBusFrequency(&ctx, &hz);
    if (status == EFI_SUCCESS)
        Expect(hz == (wanted <= 100000 ? 100000u : 400000u), "one of the two speeds");
    else
        Expect(!gCore.works && hz == wanted, "no speed is chosen");
}

// The count of the databook for a time, rounded to the nearest; what does not fit into 32 bits wraps.
void CheckCounts(Input *input) {
    uint32_t clock = static_cast<uint32_t>(TakeOdd(input, 32));
    uint32_t time = static_cast<uint32_t>(TakeOdd(input, 32));
    uint32_t fall = static_cast<uint32_t>(TakeOdd(input, 32));
    int offset = static_cast<int16_t>(Take16(input));
    int condition = TakeByte(input) % 3 - 1;
    uint64_t high = static_cast<uint32_t>(time + (condition ? 0 : fall));
    uint64_t low = static_cast<uint32_t>(time + fall);
    uint32_t highCount = static_cast<uint32_t>(clock * high + 5000) / 10000 - (condition ? 8u : 3u);
    uint32_t lowCount = static_cast<uint32_t>(clock * low + 5000) / 10000 - 1u;
    uint32_t more = static_cast<uint32_t>(offset);
    Expect(i2c_dw_scl_hcnt(clock, time, fall, condition, offset) == highCount + more,
           "counts of the high period");
    Expect(i2c_dw_scl_lcnt(clock, time, fall, offset) == lowCount + more, "counts of the low period");
}

} // namespace

void FuzzI2c(Input input) {
    static const Machine machine = {nullptr, nullptr, ReadRegister, WriteRegister, nullptr, nullptr, nullptr};
    uint8_t kind = TakeByte(&input) % 8;
    if (kind == 7)
        return CheckCounts(&input);
    gCore = {};
    Input *answers = &input;
    gAnswers = answers;
    StartMachine(&machine);
    kind < 5 ? CheckTransfer(answers) : kind == 5 ? CheckWord(answers) : CheckSpeed(answers);
    StopMachine();
    gAnswers = nullptr;
}
