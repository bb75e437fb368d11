// AMD's system management network behind the host bridge: registers of several dies, and the SMU's mailbox.
#pragma once

#include "../BoardFile.h"

void SmnReset();

// "smn": the function above gets the index/data pair B8h/BCh, which reaches die 0, and the pair C4h/C8h,
// which reaches the die that C0h names.
void SmnLine(BoardLine *line);

// "smn-register DIE ADDRESS VALUE [ro]": a register of 32 bits. Others read all ones and keep nothing.
void SmnRegisterLine(BoardLine *line);

// "smu-mailbox [US]": the SMU answers messages after that time, 10 microseconds unless given.
void SmuMailboxLine(BoardLine *line);

// "smu-reply ID RESPONSE [ARGUMENT...]": its answer to a message: the response and what the first argument
// registers hold then, the others keeping what was sent. A response of 0 never comes. Unknown messages are
// answered FEh.
void SmuReplyLine(BoardLine *line);
