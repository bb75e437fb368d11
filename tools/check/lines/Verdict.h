// The answer for a command line: what it would do, whether it works, and why.
#pragma once

#include <cstddef>

#include "tools/check/machine/Note.h"

enum Verdict : uint8_t {
    VERDICT_WORKS,   // the access reaches the hardware as it was typed; whether a chip answers is another
                     // matter
    VERDICT_REFUSED, // the kernel, the machine or hwreg itself does not do it
    VERDICT_OTHER,   // it shows data that is not the hardware's
};

constexpr int STATUS_NOT_FORETOLD = -1;
constexpr size_t ANSWER_TEXT = 240;
constexpr size_t MOST_CAUTIONS = 4;

struct Answer {
    Verdict verdict;
    int status; // exit status of hwreg, 0 to 255
    char does[ANSWER_TEXT];
    char shows[ANSWER_TEXT]; // how a refusal, or other data, looks
    FindingName because;
    char why[ANSWER_TEXT];
    char remedy[ANSWER_TEXT];
    char cautions[MOST_CAUTIONS][ANSWER_TEXT]; // "" behind the last one
};
