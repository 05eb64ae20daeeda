// The shifts at which a moved picture meets a fixed one, so that the searches
// can pass over runs of placements that have nothing to compare.
#pragma once

#include <cstdint>

// MatchScore's value when the two rectangles do not meet.
constexpr double NO_OVERLAP_SCORE = (double)0.05f;

// Beyond every shift bound: where a walk that has no overlapping value left goes.
constexpr int64_t PAST_RANGE = INT64_MAX;

// Shifts lo..hi, both included; empty when lo > hi.
struct ShiftInterval {
  int64_t lo;
  int64_t hi;
};

// The shifts d for which a picture of movingSize pixels whose reference point is
// movingOrigin + d meets, along one axis, a picture of fixedSize pixels whose
// reference point is fixedOrigin (the pairing of MatchScore).
ShiftInterval OverlapShifts(int64_t movingOrigin, int64_t movingSize, int64_t fixedOrigin,
                            int64_t fixedSize);

bool InInterval(ShiftInterval interval, int64_t value);

// The first of value + step, value + 2 step, ... that lies in interval, or
// PAST_RANGE when there is none. step >= 1.
int64_t NextInInterval(int64_t value, int64_t step, ShiftInterval interval);
