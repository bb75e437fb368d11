// What power cycling needs of the system: a shutdown, and an alarm that wakes the machine.
#pragma once

// Looks for both and notes them.
void FindPower();

// True when the shell finds "shutdown".
bool HasShutdown();
