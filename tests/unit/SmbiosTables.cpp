#include "SmbiosTables.h"

#include <cstring>

#include "TestHelp.h"
#include "sim/Board.h"

std::string Structure(uint8_t type, uint16_t handle, const std::string &body, const std::string &strings) {
    std::string text = {static_cast<char>(type), static_cast<char>(4 + body.size()),
                        static_cast<char>(handle), static_cast<char>(handle >> 8)};
    text += body + (strings.empty() ? std::string(1, '\0') : strings);
    return text + '\0';
}

std::string String(const char *text) {
    return std::string(text) + '\0';
}

const std::string END = Structure(127, 0xFEFF, "");
const std::string SYSTEM = Structure(1, 0x01, "\1\2\3\4", String("Maker") + String("Product"));
const std::string BOARD = Structure(2, 0x02, std::string(10, '\0'));
const std::string DIMM = Structure(17, 0x11, "\1", String("DIMM"));

void PutEntry64(uint32_t address, uint16_t length, uint8_t major) {
    PokeText(SMBIOS_ENTRY, "_SM3_");
    BoardPoke(SMBIOS_ENTRY + 7, &major, 1);
    Poke16(SMBIOS_ENTRY + 0x0C, length);
    Poke32(SMBIOS_ENTRY + 0x10, address);
}

void OpenLegacy() {
    OpenBoard("base", "fill f0000 10000 00");
}

void OpenTable(const std::string &table) {
    OpenLegacy();
    PokeText(SMBIOS_TABLE, table);
    PutEntry64(SMBIOS_TABLE, static_cast<uint16_t>(table.size()));
}

const uint8_t *StillTable(const std::string &table) {
    static uint8_t place[0x20000];
    memset(place, 0, sizeof(place));
    memcpy(place, table.data(), table.size());
    return place;
}
