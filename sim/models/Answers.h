// Devices that answer what they are told to, whatever they are asked.
#pragma once

#include <stdint.h>

// What the answers stand in front of: a set of the ANSWER_ bits of AnswerDoors.h. Each read takes as many
// bytes as it is wide, the lowest first; `rest` is the byte of all reads behind the last one. What is written
// is lost.
void AnswersStart(unsigned doors, const void *bytes, uint64_t length, uint8_t rest);
void AnswersReset();

// The answer of a model-specific register; false when these have their own values.
bool AnswerMsr(uint64_t *value);
