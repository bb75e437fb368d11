// Intel 300 series chipset data sheet, volume 2, "SMBus Interface" (and ICH9, chapter 19); AMD SB700 register
// reference guide, "SMBus". The read byte and write byte protocols without PEC are the ones that this host
// knows: any other command ends as a device error. While a transaction runs only the status and KILL can be
// written.
#include "SmbusHost.h"

#include "../Arena.h"
#include "../Ports.h"
#include "AmdPm.h"
#include "PciFunction.h"
#include "SimplePorts.h"
#include "SmbusSlaves.h"

namespace {

enum : uint16_t { HST_STS = 0, HST_CNT = 2, HST_CMD = 3, XMIT_SLVA = 4, HST_D0 = 5, HST_D1 = 6 };

constexpr uint32_t PORTS = 0x20; // from a multiple of it on
constexpr uint8_t STS_HOST_BUSY = 0x01;
constexpr uint8_t STS_INTR = 0x02;
constexpr uint8_t STS_DEV_ERR = 0x04;
constexpr uint8_t STS_BUS_ERR = 0x08;
constexpr uint8_t STS_FAILED = 0x10;
constexpr uint8_t STS_INUSE = 0x40;
constexpr uint8_t STS_ONE_CLEARS = 0xBE;
constexpr uint8_t CNT_KILL = 0x02;
constexpr uint8_t CNT_START = 0x40;
constexpr uint8_t CNT_PROTOCOL = 0x9C; // command field and PEC
constexpr uint8_t PROTOCOL_BYTE_DATA = 0x08;
constexpr uint8_t SLVA_READ = 0x01;

constexpr uint16_t PCI_COMMAND = 0x04;
constexpr uint16_t PCI_BAR4 = 0x20;
constexpr uint16_t PCI_HOST_CONFIGURATION = 0x40;
constexpr uint8_t PM_DECODE_ENABLE = 0x00;
constexpr uint8_t PM_SMBUS_ENABLED = 0x10;
constexpr uint8_t PM_SMBUS_BASE_HIGH = 0x01;

constexpr uint32_t USUAL_TIME = 5;
constexpr int MAX_HOSTS = 8;
constexpr uint64_t CLOCK_LOW_TIMEOUT = 25000; // tTIMEOUT, System Management Bus 2.0, 3.1.1.3

struct Host {
    bool hasInUse; // the semaphore bit, which AMD's has not
    uint32_t time;
    uint8_t status, control, command, address, data0, data1;
    bool inUse;
    bool running, timingOut;
    uint64_t ends;
};

SmbusHostPlace gHosts[MAX_HOSTS];
int gHostCount;

SmbusOutcome Transfer(Host *host) {
    if ((host->control & CNT_PROTOCOL) != PROTOCOL_BYTE_DATA)
        return SMBUS_NOT_ACKNOWLEDGED;
    return host->address & SLVA_READ ? SmbusReadByte(host->address, host->command, &host->data0, host->ends)
                                     : SmbusWriteByte(host->address, host->command, host->data0, host->ends);
}

uint8_t StatusOf(SmbusOutcome outcome) {
    switch (outcome) {
    case SMBUS_DONE:
        return STS_INTR;
    case SMBUS_COLLISION:
        return STS_BUS_ERR;
    default:
        return STS_DEV_ERR;
    }
}

// Lets happen what has happened by now.
void Advance(Host *host) {
    uint64_t now = DelayPortMicroseconds();
    if (host->running && !host->timingOut && now >= host->ends) {
        SmbusOutcome outcome = Transfer(host);
        host->timingOut = outcome == SMBUS_HELD;
        if (host->timingOut) {
            host->ends += CLOCK_LOW_TIMEOUT;
        } else {
            host->running = false;
            host->status |= StatusOf(outcome);
        }
    }
    if (host->running && host->timingOut && now >= host->ends) {
        host->running = false;
        host->status |= STS_DEV_ERR;
    }
}

uint8_t ReadStatus(Host *host) {
    uint8_t value = host->status;
    if (host->running)
        value |= STS_HOST_BUSY;
    if (host->hasInUse && host->inUse)
        value |= STS_INUSE;
    host->inUse = true;
    return value;
}

void WriteStatus(Host *host, uint8_t value) {
    host->status &= static_cast<uint8_t>(~(value & STS_ONE_CLEARS));
    if (value & STS_INUSE)
        host->inUse = false;
}

void WriteControl(Host *host, uint8_t value) {
    if (host->running) {
        if (!(value & CNT_KILL))
            return;
        host->running = false;
        host->status |= STS_FAILED;
    }
    host->control = static_cast<uint8_t>(value & ~CNT_START);
    if ((value & CNT_START) && !(value & CNT_KILL)) { // KILL has to be taken back first
        host->running = true;
        host->timingOut = false;
        host->ends = DelayPortMicroseconds() + host->time;
    }
}

uint32_t ReadPort(void *device, uint16_t port, unsigned) {
    Host *host = static_cast<Host *>(device);
    Advance(host);
    switch (port & (PORTS - 1)) {
    case HST_STS:
        return ReadStatus(host);
    case HST_CNT:
        return host->control;
    case HST_CMD:
        return host->command;
    case XMIT_SLVA:
        return host->address;
    case HST_D0:
        return host->data0;
    case HST_D1:
        return host->data1;
    default:
        return 0;
    }
}

void WriteSetting(Host *host, uint32_t offset, uint8_t value) {
    if (host->running)
        return;
    if (offset == HST_CMD)
        host->command = value;
    else if (offset == XMIT_SLVA)
        host->address = value;
    else if (offset == HST_D0)
        host->data0 = value;
    else if (offset == HST_D1)
        host->data1 = value;
}

void WritePort(void *device, uint16_t port, unsigned, uint32_t value) {
    Host *host = static_cast<Host *>(device);
    uint32_t offset = port & (PORTS - 1);
    Advance(host);
    if (offset == HST_STS)
        WriteStatus(host, static_cast<uint8_t>(value));
    else if (offset == HST_CNT)
        WriteControl(host, static_cast<uint8_t>(value));
    else
        WriteSetting(host, offset, static_cast<uint8_t>(value));
}

void PlaceByPci(PciFunction *function, uint16_t, unsigned) {
    PortClaim *claim = PortClaimOf(function->device);
    claim->base = PciStored(function, PCI_BAR4, 2) & ~(PORTS - 1);
    claim->enabled = claim->base != 0 && (function->config[PCI_COMMAND] & 1) &&
                     (function->config[PCI_HOST_CONFIGURATION] & 1);
}

void PlaceByPm(void *device) {
    PortClaim *claim = PortClaimOf(device);
    claim->base = static_cast<uint32_t>(AmdPmRegister(PM_SMBUS_BASE_HIGH)) << 8;
    claim->enabled = AmdPmRegister(PM_DECODE_ENABLE) & PM_SMBUS_ENABLED;
}

Host *NewHost(const BoardLine *line, const PciFunction *function) {
    if (gHostCount == MAX_HOSTS)
        LineFail(line, "more than 8 SMBus hosts", nullptr);
    gHosts[gHostCount++] = {{line->captured ? nullptr : line->path, line->number}, function};
    Host *host = static_cast<Host *>(ArenaTakeRegisters(sizeof(Host)));
    host->hasInUse = function != nullptr;
    ClaimPorts(0, PORTS, WIDTH_8, ReadPort, WritePort, host);
    return host;
}

} // namespace

void SmbusHostsReset() {
    gHostCount = 0;
}

const SmbusHostPlace *SmbusHosts(int *count) {
    *count = gHostCount;
    return gHosts;
}

void SmbusHostLine(BoardLine *line) {
    Host *host;
    if (LineHas(line, 1, "pci")) {
        PciFunction *function = PciLineFunction(line);
        if (function->beforeRead)
            LineFail(line, "the function has the system management network", nullptr);
        if (!function->device)
            function->device = NewHost(line, function);
        host = static_cast<Host *>(function->device);
        function->afterWrite = PlaceByPci;
        PlaceByPci(function, 0, 0);
    } else if (LineHas(line, 1, "pm")) {
        NeedAmdPm(line);
        host = NewHost(line, nullptr);
        AmdPmFollow(PlaceByPm, host);
        PlaceByPm(host);
    } else {
        LineFail(line, "neither \"pci\" nor \"pm\"", LineWord(line, 1));
    }
    host->time = line->count > 2 ? static_cast<uint32_t>(LineNumber(line, 2, UINT32_MAX)) : USUAL_TIME;
}
