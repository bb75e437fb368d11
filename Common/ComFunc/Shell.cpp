#include "Common/ComFunc/Shell.h"

#include <cstdlib>

void ClearScreen() {
    ExecuteSystemCmd("clear");
}

void ExecuteSystemCmd(const char *command) {
    if (system(command) == -1) {
        // A shell that cannot be started leaves everything as it was.
    }
}

EFI_STATUS ExecuteWithSystem32(const char *) {
    return EFI_UNSUPPORTED;
}
