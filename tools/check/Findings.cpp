#include "tools/check/Findings.h"

#include "tools/check/MemoryDoor.h"
#include "tools/check/MsrDoor.h"
#include "tools/check/PciList.h"
#include "tools/check/PortDoor.h"
#include "tools/check/Window.h"

void FindAll() {
    FindPortDoor();
    FindMemoryDoor();
    FindMsrDoor();
    FindPciFunctions();
    FindWindow();
}
