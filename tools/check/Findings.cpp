#include "tools/check/Findings.h"

#include "tools/check/Drivers.h"
#include "tools/check/MemoryDoor.h"
#include "tools/check/MsrDoor.h"
#include "tools/check/PciList.h"
#include "tools/check/PortDoor.h"
#include "tools/check/Power.h"
#include "tools/check/Privilege.h"
#include "tools/check/Tables.h"
#include "tools/check/Window.h"

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
