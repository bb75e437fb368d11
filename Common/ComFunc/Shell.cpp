#include "Common/ComFunc/Shell.h"

#include <cstdlib>

#include "Common/ComFunc/Signals.h"

void ClearScreen() {
    ExecuteSystemCmd("clear");
}

void ExecuteSystemCmd(const char *command) {
    RestoreFileSizeSignal(); // a command starts with the signals that this program was started with
    if (system(command) == -1) {
        // A shell that cannot be started leaves everything as it was.
    }
    IgnoreFileSizeSignal();
}

EFI_STATUS ExecuteWithSystem32(const char *) {
    return EFI_UNSUPPORTED;
}
