// Status codes and identifiers every layer speaks (UEFI 2.10, Appendix D, in 32-bit form).
#pragma once

#include <cstddef>
#include <cstdint>

// 0 is success, an error is 0x80000000 plus the UEFI error number. Carried in 64 bits.
typedef uint64_t EFI_STATUS;

constexpr EFI_STATUS EFI_SUCCESS = 0;
constexpr EFI_STATUS EFI_LOAD_ERROR = 0x80000001;
constexpr EFI_STATUS EFI_INVALID_PARAMETER = 0x80000002;
constexpr EFI_STATUS EFI_UNSUPPORTED = 0x80000003;
constexpr EFI_STATUS EFI_BUFFER_TOO_SMALL = 0x80000005;
constexpr EFI_STATUS EFI_NOT_READY = 0x80000006;
constexpr EFI_STATUS EFI_DEVICE_ERROR = 0x80000007;
constexpr EFI_STATUS EFI_OUT_OF_RESOURCES = 0x80000009;
constexpr EFI_STATUS EFI_NOT_FOUND = 0x8000000E;
constexpr EFI_STATUS EFI_ACCESS_DENIED = 0x8000000F;
constexpr EFI_STATUS EFI_TIMEOUT = 0x80000012;
constexpr EFI_STATUS EFI_ABORTED = 0x80000015;

// UEFI 2.10, 2.3.1: a 128-bit identifier, the first three fields little-endian.
struct EFI_GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
