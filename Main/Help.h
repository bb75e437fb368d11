// The banner and the general help screen.
#pragma once

#include "Base/Types.h"

// Prints the banner behind the spaces that its whole length asks for.
void showlogo();

// Prints the help screen with the chipset vendor's name. Always 0.
EFI_STATUS showHelp();
