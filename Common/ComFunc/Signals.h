// Signals that end or stop the program.
#pragma once

#include <signal.h>

// Those that come from the keyboard or from outside, and at a closed pipe.
sigset_t EndingSignals();

// Holds back the signals that end or stop the program while hardware is in a state that must not be left
// behind; a key wait gives ESC when one has come. ReleaseSignals lets them act. Pairs may be nested: the
// outer one counts.
void HoldSignals();
void ReleaseSignals();

// True between the two.
bool SignalsAreHeld();
