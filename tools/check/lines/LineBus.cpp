#include "tools/check/lines/LineBus.h"

#include "Base/Memory.h"
#include "BasicLib/Chipset.h"
#include "Common/ComFunc/CmdLine.h"
#include "Platform/DwI2c.h"
#include "Platform/Spd.h"
#include "tools/check/lines/Operands.h"
#include "tools/check/lines/Pages.h"
#include "tools/check/lines/PciPlaces.h"
#include "tools/check/machine/Tables.h"

constexpr uint16_t CLASS_SMBUS = 0x0C05;
constexpr uint32_t INTEL_SMB_BASE = 0x20;
constexpr uint32_t INTEL_SMB_BASE_MASK = 0xFFE0;
constexpr int FAILED = 255;

static void JudgeBase(Line *line, const PciFunction *host) {
    uint8_t bytes[4];
    if (ThisChipset()->vendor == VENDOR_UNKNOWN) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_SMBUS_HOST);
        Shows(line, "an error, or whatever stands at ports that are not the controller's");
        return Why(line,
                   "the host bridge is neither Intel's nor AMD's, and the controller is taken for AMD's");
    }
    if (ThisChipset()->smbusBlock != HOME_PCI ||
        !ReadPciConfig(host->bus, host->dev, host->fun, INTEL_SMB_BASE, bytes, sizeof(bytes)) ||
        (Load32(bytes) & INTEL_SMB_BASE_MASK) != 0)
        return;
    Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_SMBUS_HOST);
    Shows(line, "whatever ports 0 to 5 hold, those of the DMA controller, which are written, too");
    Why(line, "the controller %02x:%02x.%x has no base address", host->bus, host->dev, host->fun);
}

// True when the command goes no further.
static bool JudgeHost(Line *line) {
    const PciFunction *host = FunctionOfClass(CLASS_SMBUS);
    if (host != nullptr && FindingOf(FINDING_SMBUS_HOST)->state == STATE_BAD) {
        Judge(line, VERDICT_REFUSED, FAILED, FINDING_SMBUS_HOST);
        Shows(line, HasFlag(line->cmd, Flag::S) ? "ends with status 255 and prints nothing" : "error!");
        return true;
    }
    if (host != nullptr) {
        JudgeBase(line, host);
        CautionOf(line, FINDING_SMBUS_DRIVER);
        return false;
    }
    if (CautionOfNoList(line))
        return false;
    Judge(line, VERDICT_REFUSED, FAILED, FINDING_SMBUS_HOST);
    Shows(line, "Not found ClaseCode(0C05)");
    if (line->answer->why[0] == 0)
        Why(line, "there is no PCI function of class 0C05h");
    return true;
}

// Memory modules, by the addresses of their hubs and EEPROMs.
static bool IsModule(uint32_t slave) {
    return (slave & 0xF0) == 0xA0;
}

// True for a module of whose SPD a dump shows less than there is.
static bool IsCutShort(uint32_t slave) {
    SpdState state = SpdOfMemory();
    return IsModule(slave) &&
           (state == SPD_PARTLY || (state == SPD_FIRST && !IsSpdAddress(static_cast<uint8_t>(slave))));
}

static void AnswerSmbusByte(Line *line, uint16_t pos, bool writes) {
    uint32_t slave = NumberAt(line, pos, 1, 8, "slave address");
    uint32_t offset = NumberAt(line, pos, 2, 8, "offset");
    uint32_t data = writes ? NumberAt(line, pos, 3, 8, "data") : 0;
    if (writes)
        Does(line, "writes %Xh to offset %Xh of SMBus device %Xh and reads it back", data, offset,
             slave & 0xFE);
    else
        Does(line, "reads offset %Xh of SMBus device %Xh", offset, slave & 0xFE);
    if (JudgeHost(line))
        return;
    if (writes && IsModule(slave))
        Caution(line, "a memory module whose SPD was overwritten is not started any more");
    if (IsModule(slave))
        CautionOf(line, FINDING_SPD);
}

static void AnswerSmbusDump(Line *line, uint16_t pos) {
    uint32_t slave = NumberAt(line, pos, 1, 8, "slave address");
    bool shows = !HasFlag(line->cmd, Flag::NOMSG);
    Does(line, "%s 256 bytes of SMBus device %Xh%s%s", shows ? "shows" : "reads", slave & 0xFE,
         IsSpdAddress(static_cast<uint8_t>(slave)) ? ", or the 512 of a DDR4 module" : "",
         shows ? "" : ", and shows nothing (/NOMSG)");
    if (JudgeHost(line))
        return;
    if (shows && line->answer->verdict == VERDICT_WORKS && IsCutShort(slave)) {
        Judge(line, VERDICT_OTHER, STATUS_NOT_FORETOLD, FINDING_SPD);
        Shows(line, "256 bytes: the first ones of its SPD, or registers of its hub");
    }
    if (shows)
        CautionOfKeys(line);
}

static void AnswerSmbusScan(Line *line, uint16_t pos) {
    uint32_t from = NumberAt(line, pos, 1, 8, "first address");
    uint32_t to = NumberAt(line, pos, 2, 8, "last address");
    Does(line, "reads a byte of every second SMBus address from %Xh to %Xh", from, to);
    if (JudgeHost(line))
        return;
    if (CmdArgText(pos, 2) == nullptr) {
        Judge(line, VERDICT_REFUSED, FAILED, FINDING_NONE);
        Shows(line, "ends with status 255 and prints nothing");
        return Why(line, "the scan lacks its last address");
    }
    if (from > to) {
        Judge(line, VERDICT_REFUSED, FAILED, FINDING_NONE);
        Shows(line, "ends with status 255 and prints nothing");
        return Why(line, "the last address is below the first one: nothing is read");
    }
    Caution(line, "some devices (clock generators, voltage regulators, batteries) take a read as a command");
}

// The host is looked for first, then a form; reads are looked for before writes, and these before the rest.
void AnswerSmbus(Line *line) {
    uint16_t pos;
    if (HasFlag(line->cmd, Flag::READ) ? CmdFind({"RB", "RW", "RD"}, &pos)
                                       : HasFlag(line->cmd, Flag::WRITE) && CmdFind({"WB", "WW", "WD"}, &pos))
        return AnswerSmbusByte(line, pos, !HasFlag(line->cmd, Flag::READ));
    if (!HasFlag(line->cmd, Flag::READ | Flag::WRITE)) {
        if (TakeWord(line, "DUMP", &pos))
            return AnswerSmbusDump(line, pos);
        if (TakeWord(line, "S", &pos))
            return AnswerSmbusScan(line, pos);
    }
    if (!JudgeHost(line))
        return JudgeNoForm(line, FAILED);
    Does(line, "nothing");
}

// True when no core can be reached.
static bool JudgeCore(Line *line, uint32_t controller) {
    if (CautionOfNoList(line))
        return false;
    if (!ThisChipset()->dwI2c || controller >= I2C_BUS_COUNT) {
        Judge(line, VERDICT_REFUSED, FAILED, FINDING_NONE);
        Why(line, ThisChipset()->dwI2c
                      ? "controllers go from 0 to 5"
                      : "the host bridge is neither AMD's nor Hygon's, which alone have these cores");
    } else if (!JudgeAccess(line, I2cSdpAddressList[controller], ACCESS_DWORD, 0)) {
        return false;
    }
    Shows(line, "I2C init error");
    Ends(line, FAILED);
    return true;
}

void AnswerI2c(Line *line) {
    uint16_t pos;
    bool writes = !HasFlag(line->cmd, Flag::READ);
    bool found = writes ? HasFlag(line->cmd, Flag::WRITE) && CmdFind({"WB", "WW", "WD"}, &pos)
                        : CmdFind({"RB", "RW", "RD"}, &pos);
    if (!found)
        return JudgeNoForm(line, FAILED);
    uint32_t controller = NumberAt(line, pos, 1, 32, "controller");
    uint32_t slave = NumberAt(line, pos, 2, 8, "slave address");
    uint32_t offset = NumberAt(line, pos, 3, 8, "offset");
    uint32_t data = writes ? NumberAt(line, pos, 4, 16, "data") : 0;
    if (writes)
        Does(line, "writes %Xh to register %Xh of device %Xh behind I2C core %u and reads it back", data,
             offset, slave, controller);
    else
        Does(line, "reads register %Xh of device %Xh behind I2C core %u", offset, slave, controller);
    if (JudgeCore(line, controller))
        return;
    if (slave > 0x7F)
        Caution(line, "addresses have 7 bits here, 0 to 7Fh");
    CautionOf(line, FINDING_I2C_DRIVER);
}
