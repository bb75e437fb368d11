// The I/O privilege that port instructions need, and what refuses it.
#pragma once

// Asks for it and gives it back; notes what refuses it.
void FindPortDoor();

// 0, or the error number that iopl(3) gave. EPERM also where a filter of system calls ends the program.
int IoplError();
