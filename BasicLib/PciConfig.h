// PCI configuration space. Offsets 0x00-0xFF go through the ports 0xCF8/0xCFC (PCI Local Bus 3.0,
// 3.2.2.3.2), 0x100-0xFFF through the memory-mapped window (PCI Express Base 3.0, 7.2.2), whose base comes
// from the chipset. An address is bus, device, function and offset, 16 bits each and never checked: numbers
// out of range spill into the neighbouring bits. Absent and failing look alike: all ones, but
// for a window that cannot be mapped, where the dword read gives the 0xFFFF of MemRead32.
#pragma once

#include "Base/Types.h"

enum PciWidth : uint8_t { PCI_WIDTH_8 = 1, PCI_WIDTH_16 = 2, PCI_WIDTH_32 = 3 };

constexpr uint16_t PCI_VENDOR_ID = 0x00;
constexpr uint16_t PCI_DEVICE_ID = 0x02;
constexpr uint16_t PCI_STATUS = 0x06;
constexpr uint16_t PCI_CLASS_DEVICE = 0x0A;
constexpr uint16_t PCI_HEADER_TYPE = 0x0E;
constexpr uint16_t PCI_CB_CAPABILITY_LIST = 0x14; // CardBus bridges (PCI Local Bus 3.0, appendix D; PC Card)
constexpr uint16_t PCI_CAPABILITY_LIST = 0x34;
constexpr uint16_t PCI_INTERRUPT_LINE = 0x3C;
constexpr uint8_t PCI_CAP_ID_EXP = 0x10;
constexpr uint16_t PCI_CONFIG_BYTES = 0x100;
// No list of 256 bytes has more entries; a longer walk is a loop.
constexpr unsigned PCI_CAP_LIMIT = 256;

constexpr uint16_t VENDOR_INTEL = 0x8086;
constexpr uint16_t VENDOR_AMD = 0x1022;
constexpr uint16_t VENDOR_HYGON = 0x1D94;
constexpr uint16_t VENDOR_UNKNOWN = 0xFFFF;

// Chipset vendor of this process: 0 until identified, then one of VENDOR_*.
extern uint16_t chipSetVid;
// Base of the memory-mapped window: 0xFFFFFFFF until a lookup succeeds.
extern uint32_t tempPcieBaseAddr;

// One access through 0xCF8/0xCFC; the value lies in buffer in the width's size. 1; 0 with the buffer
// untouched for an offset above 0x100, a NULL buffer (no port is touched then) or another width.
int LegacyIoPciRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                    uint8_t *buffer);
int LegacyIoPciWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset,
                     const uint8_t *buffer);

// Vendor of the platform, by the vendor ID of bus 0 device 0 function 0: VENDOR_INTEL, VENDOR_AMD (for
// 0x1002 too), VENDOR_HYGON or VENDOR_UNKNOWN. Looked up once per process.
uint16_t ChipsetLpcIdentify();

// Base of the memory-mapped window, below 4 GiB and 1 MiB aligned: Intel's PCIEXBAR (host bridge offset
// 60h), AMD's and Hygon's MSR C001_0058h. Trusted whether or not the window is enabled; an MSR that cannot be
// read gives a base of 0, and extended offsets then reach low memory. 1, or 0 for an unknown vendor with
// *base untouched.
int GetPcieBaseAddress(uint32_t *base);

// Address of the function's 4 KiB page in the window; for an unknown vendor with a base of 0.
uint32_t MemPciBase(uint16_t bus, uint16_t dev, uint16_t fun);

// The register's value; all ones for an absent function, an unknown vendor beyond 0xFF and an offset
// above 0xFFF (without any access).
uint8_t PciRead8(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset);
uint16_t PciRead16(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset);
uint32_t PciRead32(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset);

// Silently dropped where the reads give all ones.
void PciWrite8(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint8_t value);
void PciWrite16(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint16_t value);
void PciWrite32(uint16_t bus, uint16_t dev, uint16_t fun, uint16_t offset, uint32_t value);

// An index/data pair inside configuration space: the index value, cut to the width, is written to
// indexOffset, then dataOffset is read into or written from buffer. Another width prints an assertion.
void PciIndirectRead(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                     uint16_t dataOffset, uint32_t index, void *buffer);
void PciIndirectWrite(uint8_t width, uint16_t bus, uint16_t dev, uint16_t fun, uint16_t indexOffset,
                      uint16_t dataOffset, uint32_t index, const void *buffer);

// Stores the value at a place of any alignment and returns it. A NULL place prints an assertion and
// nothing is stored.
uint16_t EfiWriteUnaligned16(void *buffer, uint16_t value);
uint32_t EfiWriteUnaligned32(void *buffer, uint32_t value);

// Reads size bytes from start on with the widest naturally aligned accesses, and returns size. A range
// beyond 0x1000 and a NULL buffer print an assertion and the reads are still made.
uint64_t PciReadBuffer(uint16_t bus, uint16_t dev, uint16_t fun, uint64_t start, uint64_t size, void *buffer);

// (base class << 8) | sub-class, the register at 0x0A.
uint16_t GetPciClassCode(uint16_t bus, uint16_t dev, uint16_t fun);

// Offset of the PCI Express capability by a walk through the legacy ports, 0 without one. Pointers are used
// as they stand, reserved low bits included. With endAtNull the walk ends at a capability ID of 0.
uint16_t FindExpressCap(uint16_t bus, uint16_t dev, uint16_t fun, bool endAtNull);

// 1 when the function's capability list holds a PCI Express capability (ID 0x10), else 0.
int isPcieController(uint16_t bus, uint16_t dev, uint16_t fun);
