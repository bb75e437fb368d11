// Standard output: whether it still takes what is printed, and keeping it while hardware is switched.
#pragma once

// Fills the places of closed standard descriptors. A message written to one must not reach whatever is opened
// next: the memory device would take it as data.
void EnsureStandardDescriptors();

// True once something that was printed could not be written: a full disk, a reader that has gone.
bool OutputIsLost();

// From HoldOutput to ReleaseOutput what is printed is kept, up to 128 KiB: a reader that does not read must
// not make the program wait while signals are held. Both may wait themselves and stand outside of that.
void HoldOutput();
void ReleaseOutput();

// Writes what is kept, for somebody who is about to be asked for a key. A signal that comes while nobody
// reads ends this; the rest stays kept.
void ShowHeldOutput();

// Hands over what is left, and says on standard error when some was lost.
void EndOutput();
