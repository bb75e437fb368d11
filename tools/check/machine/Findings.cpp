#include "tools/check/machine/Findings.h"

#include "tools/check/machine/Drivers.h"
#include "tools/check/machine/MemoryDoor.h"
#include "tools/check/machine/MsrDoor.h"
#include "tools/check/machine/PciList.h"
#include "tools/check/machine/PortDoor.h"
#include "tools/check/machine/Power.h"
#include "tools/check/machine/Privilege.h"
#include "tools/check/machine/Tables.h"
#include "tools/check/machine/Window.h"

void FindAll() {
    FindPrivilege();
    FindPortDoor();
    FindMemoryDoor();
    FindMsrDoor();
    FindPciFunctions();
    FindWindow();
    FindDrivers();
    FindTables();
    FindPower();
}
