// What /SMBIOS and /ACPI do.
#pragma once

#include "tools/check/lines/Line.h"

// Each answers for a line of its command.
void AnswerSmbios(Line *line);
void AnswerAcpi(Line *line);
