#include "Platform/PciClassCode.h"

#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

static const char *NameOf(uint16_t code) {
    for (const PciClassName *row = PciDeviceClassCode; row->code != 0xFFFF; ++row) {
        if (row->code == code)
            return row->name;
    }
    return nullptr;
}

TEST(PciClassCode, TheTableHas106RowsAndATerminator) {
    size_t count = 0;
    while (PciDeviceClassCode[count].code != 0xFFFF)
        ++count;
    EXPECT_EQ(count, 106u);
}

TEST(PciClassCode, CodesRiseAndEveryNameEndsItsLine) {
    for (const PciClassName *row = PciDeviceClassCode; row->code != 0xFFFF; ++row) {
        if (row != PciDeviceClassCode) {
            EXPECT_GT(row->code, row[-1].code);
        }
        ASSERT_NE(row->name, nullptr);
        EXPECT_EQ(strchr(row->name, '\n'), row->name + strlen(row->name) - 1) << row->name;
    }
}

TEST(PciClassCode, EachRowIsThatOfTheList) {
    std::ifstream list(HWREG_BOARDS "/../../tests/support/pci_class_names.txt");
    size_t row = 0;
    for (std::string line; std::getline(list, line); ++row) {
        EXPECT_EQ(PciDeviceClassCode[row].code, std::stoul(line, nullptr, 16)) << line;
        EXPECT_EQ(PciDeviceClassCode[row].name, line.substr(5) + "\n");
    }
    EXPECT_EQ(row, 106u);
}

TEST(PciClassCode, NamesOfEachBaseClass) {
    EXPECT_STREQ(NameOf(0x0000), "All devices other than VGA\n");
    EXPECT_STREQ(NameOf(0x0106), "SATA Controller\n");
    EXPECT_STREQ(NameOf(0x0180), "Other Mass Storage Controller\n");
    EXPECT_STREQ(NameOf(0x0200), "Ethernet Controller\n");
    EXPECT_STREQ(NameOf(0x0206), "PICMG 2.14 Multi Computing\n");
    EXPECT_STREQ(NameOf(0x0300), "VGA Compatible Controller\n");
    EXPECT_STREQ(NameOf(0x0403), "HD Audio Device\n");
    EXPECT_STREQ(NameOf(0x0580), "Other Memory Controller\n");
    EXPECT_STREQ(NameOf(0x0600), "Host Bridge\n");
    EXPECT_STREQ(NameOf(0x0604), "PCI-to-PCI Bridge\n");
    EXPECT_STREQ(NameOf(0x060A), "InfiniBand-to-PCI Bridge\n");
    EXPECT_STREQ(NameOf(0x0704), "GPIB(IEEE 488.1/2) Controller\n");
    EXPECT_STREQ(NameOf(0x0805), "SD Host Controller\n");
    EXPECT_STREQ(NameOf(0x0901), "Digitizer (pen)\n");
    EXPECT_STREQ(NameOf(0x0A01), "Type of Docking Station\n");
    EXPECT_STREQ(NameOf(0x0B40), "Co-processor\n");
    EXPECT_STREQ(NameOf(0x0C03), "USB Controller\n");
    EXPECT_STREQ(NameOf(0x0C05), "SMBus Controller\n");
    EXPECT_STREQ(NameOf(0x0D21), "Ethernet (802.11b-2.4GHz)\n");
    EXPECT_STREQ(NameOf(0x0E00), "IO I2O/FIFO controller\n");
    EXPECT_STREQ(NameOf(0x0F05), "Other Multimedia Controller\n");
    EXPECT_STREQ(NameOf(0x1080), "Other en/decrption Controller\n");
    EXPECT_STREQ(NameOf(0x1180), "Other Data Processing Controller\n");
}

TEST(PciClassCode, SpellingsAreTheTablesOwn) {
    EXPECT_STREQ(NameOf(0x0700), "Compatibal Serial Controller\n");
    EXPECT_STREQ(NameOf(0x0703), "Compatibal Modem Controller\n");
    EXPECT_STREQ(NameOf(0x0800), "xPCI Controller\n");
    EXPECT_STREQ(NameOf(0x0B02), "Pentinum\n");
    EXPECT_STREQ(NameOf(0x0C06), "InfinBand Controller\n");
    EXPECT_STREQ(NameOf(0x0C07), "IPMI xxxx Controller\n");
    EXPECT_STREQ(NameOf(0x0D01), "Cunsumer IR Controller\n");
    EXPECT_STREQ(NameOf(0x1000), "Network and Computing en/decrption\n");
}

TEST(PciClassCode, ClassesThatHaveNoRow) {
    for (uint16_t code : {uint16_t{0x0002}, uint16_t{0x0108}, uint16_t{0x0F00}, uint16_t{0x1200},
                          uint16_t{0x1300}, uint16_t{0xFF00}})
        EXPECT_EQ(NameOf(code), nullptr) << code;
}
