// SMBIOS tables for the tests of the table and of the command.
#pragma once

#include <cstdint>
#include <string>

constexpr uint32_t SMBIOS_ENTRY = 0xF5A00; // where the entry point is put
constexpr uint32_t SMBIOS_TABLE = 0x7EB70000;

// A structure without strings is followed by two zeros, one with strings by their NULs and one more.
std::string Structure(uint8_t type, uint16_t handle, const std::string &body,
                      const std::string &strings = "");

// A string of a structure, with its NUL.
std::string String(const char *text);

// Structures that many tables are made of.
extern const std::string END, SYSTEM, BOARD, DIMM;

// Puts a 64-bit entry point in place.
void PutEntry64(uint32_t address, uint16_t length, uint8_t major = 3);

// A machine without system table file and with nothing in the F-segment.
void OpenLegacy();

// The same with this table.
void OpenTable(const std::string &table);

// A table outside of the heap, as the walking procedures take it.
const uint8_t *StillTable(const std::string &table);
