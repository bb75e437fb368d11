// What /SMBIOS and /ACPI do.
#pragma once

#include "tools/check/Line.h"

void AnswerSmbios(Line *line);
void AnswerAcpi(Line *line);
