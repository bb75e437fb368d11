// Signals that end or stop the program.
#pragma once

// Holds back the signals that end or stop the program while hardware is in a state that must not be left
// behind; a key wait gives ESC when one has come. ReleaseSignals lets them act. Pairs may be nested: the
// outer one counts. Signals that were ignored or blocked before the first hold stay as they are.
void HoldSignals();
void ReleaseSignals();

// True between the two.
bool SignalsAreHeld();

// True when a signal that is held back has come.
bool SignalIsPending();

// A descriptor, for the caller to close, that can be read when a signal that is held back has come, or when
// the program goes on after a stop (SIGCONT). -1 without one.
int WatchSignals();

// Takes away a SIGCONT that has come, while it is held back: the watch shows each of them once.
void ForgetContinue();

// From here on a write beyond the limit of a file's size fails (EFBIG) and does not end the program.
void IgnoreFileSizeSignal();

// Sets back what IgnoreFileSizeSignal has changed.
void RestoreFileSizeSignal();
