#include "tools/capture/Serials.h"

#include <dirent.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "Base/Memory.h"
#include "Common/FileLib.h"
#include "Platform/SmbiosTable.h"
#include "tools/capture/Acpi.h"
#include "tools/capture/Firmware.h"
#include "tools/capture/Parts.h"

constexpr uint32_t FIRST_EXTENDED = 0x100;
constexpr uint32_t LAST_EXTENDED = 0xFF4;
constexpr uint16_t CAP_SERIAL = 3;
constexpr size_t LEAST_SEARCHED = 6;  // shorter texts stand elsewhere by chance
constexpr size_t MOST_SEARCHED = 255; // longer ones go piece by piece
constexpr size_t UUID_BYTES = 16;
constexpr size_t UUID_TEXT = 36;
constexpr size_t MAC_BYTES = 6;
constexpr uint32_t TABLE_CHECKSUM = 9;

static const uint8_t mFixed[UUID_BYTES] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                           0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
static const uint8_t mFixedMac[MAC_BYTES] = {0x02, 0x00, 0x00, 0x00, 0x00, 0x01}; // administered locally

enum FieldKind : uint8_t { FIELD_TEXT, FIELD_UUID, FIELD_WORD };

// Where structures keep them (DSP0134, 7.2 to 7.40).
struct SerialField {
    uint8_t type;
    uint8_t offset;
    FieldKind kind;
};

static const SerialField mFields[] = {
    {1, 0x07, FIELD_TEXT},  {1, 0x08, FIELD_UUID},  {2, 0x07, FIELD_TEXT},  {2, 0x08, FIELD_TEXT},
    {3, 0x07, FIELD_TEXT},  {3, 0x08, FIELD_TEXT},  {4, 0x20, FIELD_TEXT},  {4, 0x21, FIELD_TEXT},
    {17, 0x18, FIELD_TEXT}, {17, 0x19, FIELD_TEXT}, {22, 0x07, FIELD_TEXT}, {22, 0x10, FIELD_WORD},
    {39, 0x08, FIELD_TEXT}, {39, 0x09, FIELD_TEXT},
};

void HidePciSerial(uint8_t *config) {
    uint32_t at = FIRST_EXTENDED;
    for (int steps = 0; steps < 1024 && at >= FIRST_EXTENDED && at <= LAST_EXTENDED; ++steps) {
        uint32_t header = Load32(config + at);
        if ((header & 0xFFFF) == CAP_SERIAL)
            memcpy(config + at + 4, mFixed, 8);
        at = (header >> 20) & ~3u;
    }
}

// The CRC of DDR3 modules and FB-DIMMs (JESD21-C, annex K, bytes 126 and 127).
static uint16_t ModuleCrc(const uint8_t *bytes, uint32_t length) {
    uint32_t crc = 0;
    for (uint32_t i = 0; i < length; ++i) {
        crc ^= static_cast<uint32_t>(bytes[i]) << 8;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1;
    }
    return static_cast<uint16_t>(crc);
}

void HideModuleSerial(uint8_t *bytes, uint32_t length) {
    constexpr uint32_t fbDimm = 0x09; // and its probe, which have the bytes that DDR3 took over
    constexpr uint32_t ddr3 = 0x0B;
    constexpr uint32_t crcAt = 126;
    constexpr uint8_t serialLeftOut = 0x80; // of byte 0: the CRC ends in front of it
    uint8_t type = bytes[2];
    if (length > 328) {
        memcpy(bytes + 325, mFixed, 4);
    } else if (type >= fbDimm && type <= ddr3) {
        bool sound = ModuleCrc(bytes, crcAt) == Load16(bytes + crcAt);
        memcpy(bytes + 122, mFixed, 4);
        uint16_t crc = ModuleCrc(bytes, crcAt);
        if (sound && (bytes[0] & serialLeftOut) == 0)
            memcpy(bytes + crcAt, &crc, sizeof(crc));
    } else if (type >= 1 && type <= 8) {
        memcpy(bytes + 95, mFixed, 4);
    }
}

// Writes over every place of memory where these bytes stand.
static void HideEverywhere(const uint8_t *secret, const uint8_t *fixed, size_t length) {
    uint8_t wanted[2 * MOST_SEARCHED];
    memcpy(wanted, secret, length); // it may lie in a part itself
    for (MemoryPart *part = FirstPart(); part != nullptr; part = part->next) {
        uint8_t *at = part->bytes;
        uint8_t *end = part->bytes + part->length;
        while (at < end &&
               (at = static_cast<uint8_t *>(memmem(at, static_cast<size_t>(end - at), wanted, length)))) {
            PatchParts(part->start + static_cast<uint32_t>(at - part->bytes), fixed,
                       static_cast<uint32_t>(length));
            at += length;
        }
    }
}

static bool IsOneByte(const uint8_t *bytes, size_t length) {
    for (size_t i = 1; i < length; ++i) {
        if (bytes[i] != bytes[0])
            return false;
    }
    return true;
}

static bool HasDigit(const uint8_t *text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        if (isdigit(text[i]) != 0)
            return true;
    }
    return false;
}

// As firmware keeps texts in its own variables: two bytes a character.
static void HideWideEverywhere(const uint8_t *secret, const uint8_t *fixed, size_t length) {
    uint8_t wideSecret[2 * MOST_SEARCHED] = {};
    uint8_t wideFixed[2 * MOST_SEARCHED] = {};
    for (size_t i = 0; i < length; ++i) {
        wideSecret[2 * i] = secret[i];
        wideFixed[2 * i] = fixed[i];
    }
    HideEverywhere(wideSecret, wideFixed, 2 * length);
}

// A text with zeros in place of its letters and digits.
static void HidePiece(MemoryPart *part, const uint8_t *text, size_t length) {
    uint8_t secret[MOST_SEARCHED]; // the text itself is written over
    uint8_t fixed[MOST_SEARCHED] = {};
    memcpy(secret, text, length);
    for (size_t i = 0; i < length; ++i)
        fixed[i] = isalnum(text[i]) != 0 ? '0' : text[i];
    PatchParts(part->start + static_cast<uint32_t>(text - part->bytes), fixed, static_cast<uint32_t>(length));
    if (length < LEAST_SEARCHED || !HasDigit(secret, length)) // "Default string" stands for other things, too
        return;
    HideEverywhere(secret, fixed, length);
    HideWideEverywhere(secret, fixed, length);
}

// Elsewhere it may stand without the blanks around it.
static void HideText(MemoryPart *part, const uint8_t *text, size_t length) {
    while (length > 0 && text[length - 1] == ' ')
        --length;
    for (; length > 0 && *text == ' '; --length)
        ++text;
    for (; length > MOST_SEARCHED; length -= MOST_SEARCHED, text += MOST_SEARCHED)
        HidePiece(part, text, MOST_SEARCHED);
    HidePiece(part, text, length);
}

// The text of that number behind a structure; NULL without one. Its length in *length.
static const uint8_t *TextOf(const MemoryPart *part, const uint8_t *structure, uint8_t number,
                             size_t *length) {
    const uint8_t *end = part->bytes + part->length;
    const uint8_t *text = structure + structure[1];
    for (; number > 0 && text < end && *text != 0; --number) {
        *length = strnlen(reinterpret_cast<const char *>(text), static_cast<size_t>(end - text));
        if (number == 1)
            return text;
        text += *length + 1;
    }
    return nullptr;
}

// With dashes or without, in capitals or without. Gives the length.
static size_t PutUuidText(uint8_t text[UUID_TEXT + 1], const uint8_t uuid[UUID_BYTES], int form) {
    bool dashes = (form & 1) != 0;
    const char *format = (form & 2) != 0 ? "%02X" : "%02x";
    size_t length = 0;
    for (size_t i = 0; i < UUID_BYTES; ++i) {
        if (dashes && (i == 4 || i == 6 || i == 8 || i == 10))
            text[length++] = '-';
        length += static_cast<size_t>(
            snprintf(reinterpret_cast<char *>(text) + length, UUID_TEXT + 1 - length, format, uuid[i]));
    }
    return length;
}

// The identifier as it stands in structures, in network order, and as text of both orders.
static void HideUuid(const uint8_t *place) {
    static const uint8_t swapped[UUID_BYTES] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    uint8_t uuid[2][UUID_BYTES];
    uint8_t fixed[2][UUID_BYTES];
    for (size_t i = 0; i < UUID_BYTES; ++i) {
        uuid[0][i] = place[i];
        uuid[1][i] = place[swapped[i]];
        fixed[0][i] = mFixed[i];
        fixed[1][i] = mFixed[swapped[i]];
    }
    for (size_t order = 0; order < 2; ++order) {
        HideEverywhere(uuid[order], fixed[order], UUID_BYTES);
        for (int form = 0; form < 4; ++form) {
            uint8_t secret[UUID_TEXT + 1];
            uint8_t shown[UUID_TEXT + 1];
            size_t length = PutUuidText(secret, uuid[order], form);
            PutUuidText(shown, fixed[order], form);
            HideEverywhere(secret, shown, length);
            HideWideEverywhere(secret, shown, length);
        }
    }
}

static void HideField(MemoryPart *part, const uint8_t *structure, const SerialField *field) {
    const uint8_t *place = structure + field->offset;
    uint32_t address = part->start + static_cast<uint32_t>(place - part->bytes);
    size_t length = 0;
    const uint8_t *text;
    switch (field->kind) {
    case FIELD_TEXT:
        text = TextOf(part, structure, *place, &length);
        if (text != nullptr)
            HideText(part, text, length);
        break;
    case FIELD_UUID:
        if (!IsOneByte(place, UUID_BYTES)) // all zeros and all ones say that there is none
            HideUuid(place);
        break;
    case FIELD_WORD:
        PatchParts(address, mFixed, 2);
        break;
    }
}

static void HideStructure(MemoryPart *part, const uint8_t *structure) {
    for (const SerialField &field : mFields) {
        uint32_t width = field.kind == FIELD_UUID ? UUID_BYTES : field.kind == FIELD_WORD ? 2 : 1;
        bool fits = field.offset + width <= structure[1] &&
                    structure + field.offset + width <= part->bytes + part->length;
        if (structure[0] == field.type && fits)
            HideField(part, structure, &field);
    }
}

static void HideSmbios(SmbiosRange range) {
    MemoryPart *part = FirstPart();
    while (part != nullptr && part->start != range.address)
        part = part->next;
    if (part == nullptr)
        return;
    SmbiosTable table = {part->bytes,
                         part->bytes + (part->length < range.length ? part->length : range.length)};
    for (const uint8_t *at = table.begin; !IsSmbiosEnd(table, at); at += GetStructureLength(at))
        HideStructure(part, at);
}

// The text of a MAC address in front of a mark in a DSDT or SSDT, by which systems hand it to docks.
static void HideNamedMac(MemoryPart *part) {
    constexpr char mark[] = "XMAC_#"; // of _AUXMAC_# and _RTXMAC_#
    constexpr size_t digits = 2 * MAC_BYTES;
    uint8_t *end = part->bytes + part->length;
    uint8_t *at = part->bytes;
    while ((at = static_cast<uint8_t *>(memmem(at, static_cast<size_t>(end - at), mark, sizeof(mark) - 1)))) {
        at += sizeof(mark) - 1;
        if (static_cast<size_t>(end - at) < digits)
            return;
        HideText(part, at, digits);
    }
}

static void HideTable(const AcpiTable *table) {
    constexpr uint32_t msdm = 0x4D44534D;
    constexpr uint32_t slic = 0x43494C53;
    constexpr uint32_t keyAt = 56;  // of MSDM, behind the header and the data's own
    constexpr uint32_t bodyAt = 36; // of SLIC
    MemoryPart *part = FirstPart();
    while (part != nullptr && (part->start != table->address || part->length != table->length))
        part = part->next;
    if (part == nullptr || table->length < bodyAt)
        return;
    if (table->signature == msdm && part->length > keyAt)
        HideText(part, part->bytes + keyAt, part->length - keyAt);
    if (table->signature == slic) {
        uint8_t zero = 0;
        for (uint32_t i = bodyAt; i < part->length; ++i)
            PatchParts(part->start + i, &zero, 1);
    }
    HideNamedMac(part);
}

// The addresses of this machine's own network cards, as bytes and as digits.
static void HideMac(const char *text) {
    unsigned bytes[MAC_BYTES];
    uint8_t mac[MAC_BYTES];
    if (sscanf(text, "%x:%x:%x:%x:%x:%x", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4], &bytes[5]) !=
        6)
        return;
    for (size_t i = 0; i < MAC_BYTES; ++i)
        mac[i] = static_cast<uint8_t>(bytes[i]);
    if (IsOneByte(mac, MAC_BYTES))
        return;
    HideEverywhere(mac, mFixedMac, MAC_BYTES);
    static const char *const formats[] = {"%02X%02X%02X%02X%02X%02X", "%02x%02x%02x%02x%02x%02x",
                                          "%02X:%02X:%02X:%02X:%02X:%02X", "%02x:%02x:%02x:%02x:%02x:%02x"};
    for (const char *format : formats) {
        char secret[32];
        char fixed[32];
        int length = snprintf(secret, sizeof(secret), format, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
        snprintf(fixed, sizeof(fixed), format, mFixedMac[0], 0, 0, 0, 0, mFixedMac[5]);
        HideEverywhere(reinterpret_cast<uint8_t *>(secret), reinterpret_cast<uint8_t *>(fixed),
                       static_cast<size_t>(length));
    }
}

static void HideOwnMacs() {
    DIR *cards = opendir("/sys/class/net");
    for (dirent *card = nullptr; cards != nullptr && (card = readdir(cards)) != nullptr;) {
        char path[300];
        char text[64] = {};
        snprintf(path, sizeof(path), "/sys/class/net/%s/address", card->d_name);
        FILE *file = OpenToRead(path);
        if (file != nullptr && fgets(text, sizeof(text), file) != nullptr)
            HideMac(text);
        if (file != nullptr)
            Fclose(file);
    }
    if (cards != nullptr)
        closedir(cards);
}

static void MendChecksum(const AcpiTable *table) {
    for (MemoryPart *part = FirstPart(); part != nullptr && table->sound; part = part->next) {
        if (part->start != table->address || part->length != table->length)
            continue;
        uint8_t sum = 0;
        for (uint32_t i = 0; i < part->length; ++i)
            sum = static_cast<uint8_t>(sum + part->bytes[i]);
        uint8_t checksum = static_cast<uint8_t>(part->bytes[TABLE_CHECKSUM] - sum);
        if (sum != 0)
            PatchParts(part->start + TABLE_CHECKSUM, &checksum, 1);
    }
}

void HideMemorySerials() {
    for (uint32_t i = 0; i < SmbiosCount(); ++i)
        HideSmbios(SmbiosAt(i));
    for (uint32_t i = 0; i < AcpiTableCount(); ++i)
        HideTable(AcpiTableAt(i));
    HideOwnMacs();
    for (uint32_t i = 0; i < AcpiTableCount(); ++i)
        MendChecksum(AcpiTableAt(i));
}
