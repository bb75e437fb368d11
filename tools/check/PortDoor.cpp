#include "tools/check/PortDoor.h"

#include <sys/io.h>

#include <cerrno>
#include <cstring>

#include "tools/check/Note.h"

static int mError = 0;

void FindPortDoor() {
    mError = iopl(3) == 0 ? 0 : errno;
    if (mError == 0)
        iopl(0);
    if (mError == 0)
        Note(FINDING_IOPL, STATE_GOOD, "I/O privilege is granted");
    else
        Note(FINDING_IOPL, STATE_BAD, "I/O privilege (iopl) is refused: %s", strerror(mError));
}

int IoplError() {
    return mError;
}
