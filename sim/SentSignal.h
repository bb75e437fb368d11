// A signal that comes right behind an access: HWBOARD_SIGNAL="SIGTERM 17" sends it to the process behind the
// 17th line of the log.
#pragma once

void SentSignalFromEnvironment();

// A line of the log is written.
void SentSignalLine();

// An instruction is being carried out: what it does is done when it returns to the program, and no signal
// comes before that.
void SentSignalHold(bool held);
