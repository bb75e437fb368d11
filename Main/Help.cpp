#include "Main/Help.h"

#include "Base/Text.h"
#include "BasicLib/Chipset.h"
#include "Common/ComFunc/Console.h"
#include "Common/Sprint.h"

static const char *const mBanner =
    "Utility -- Rev 1.01 BUILD 2019-07-10\n"
    "*********************  Rights reserved by their holders.  *********************\n";

static const char *const HelpList[] = {
    "  CMD: \n",
    "      /IO:    Io Access;            /MEM:    Memory Access;\n",
    "      /PCI:   Pci Access;           /SMBUS:  Smbus Access;\n",
    "      /MSR:   MSR Access;           /SMBIOS: SMBios Access;\n",
    "  ===========================================================\n",
    "  OPT:/RI [Addr, ...]:                   Read Bit;\n",
    "      /RB [Addr, ...]:                   Read Byte;\n",
    "      /RW [Addr, ...]:                   Read Word;\n",
    "      /RD [Addr, ...]:                   Read Dword;\n",
    "      /WI [Addr, ...] [iData]:           Write Bit;\n",
    "      /WB [Addr, ...] [bData]:           Write Byte;\n",
    "      /WW [Addr, ...] [wData]:           Write Word;\n",
    "      /WD [Addr, ...] [dData]:           Write Dword;\n",
    "   More detail please refer ReadMe.doc. \n",
    nullptr,
};

constexpr size_t SCREEN_WIDTH = 80;
constexpr size_t HELP_PAGE = 18;

void showlogo() {
    // Both lines are measured together, so the first one stands off centre. Kept as it is.
    size_t spaces = SCREEN_WIDTH - Strlen(mBanner) / 2 + 1;
    for (; spaces > 0; --spaces)
        Printf(" ");
    Printf(mBanner);
}

EFI_STATUS showHelp() {
    const char *maker = ThisChipset()->name; // looked up before anything is printed
    showlogo();
    Printf("  Help list(%s):\n", maker);
    for (size_t i = 0; HelpList[i] != nullptr; ++i) {
        Printf("%s", HelpList[i]);
        if (i != 0 && i % HELP_PAGE == 0) {
            Printf("                    *** Press any key to continue ***\n");
            getch();
        }
    }
    return EFI_SUCCESS;
}
