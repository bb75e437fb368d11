// All that this kernel and machine allow or refuse.
#pragma once

#include "tools/check/machine/Note.h" // IWYU pragma: export

// Looks for all of it, once, at start. Changes nothing: no port access, no store, no module is loaded, no
// file is written.
void FindAll();
