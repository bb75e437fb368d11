// Whether a file could be made, without making it.
#pragma once

// Room for what WhyNoFile says.
constexpr unsigned FILE_REASON = 240;

// True when a file of that name can be made anew, or is one that can be replaced. Otherwise reason says why
// not. sinks lets a device that only takes (null, zero, full) pass for one.
bool CanMakeFile(const char *path, bool sinks, char reason[FILE_REASON]);
