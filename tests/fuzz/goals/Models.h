// Models that more than one goal compares with.
#pragma once

#include <stddef.h>
#include <stdint.h>

constexpr uint64_t NOT_THERE = UINT64_MAX;

// The place behind the first match from a place on, by the rule of the program's searches: whoever has begun
// to match does not look again at what it has passed. From beyond the end nothing is found; an empty pattern
// is found where the search begins.
uint64_t FindWithoutGoingBack(const uint8_t *bytes, uint64_t length, const uint8_t *pattern,
                              size_t patternLength, uint64_t from);
