#include "register/overlap_range.h"

ShiftInterval OverlapShifts(int64_t movingOrigin, int64_t movingSize, int64_t fixedOrigin,
                            int64_t fixedSize) {
  if (movingSize <= 0 || fixedSize <= 0) return ShiftInterval{1, 0};
  // The moving picture starts d' = movingOrigin + d - fixedOrigin pixels before
  // the fixed one; they meet while -fixedSize < d' < movingSize.
  int64_t base = fixedOrigin - movingOrigin;
  return ShiftInterval{base - fixedSize + 1, base + movingSize - 1};
}

bool InInterval(ShiftInterval interval, int64_t value) {
  return value >= interval.lo && value <= interval.hi;
}

int64_t NextInInterval(int64_t value, int64_t step, ShiftInterval interval) {
  if (interval.lo > interval.hi) return PAST_RANGE;
  int64_t steps = value < interval.lo ? (interval.lo - value + step - 1) / step : 1;
  int64_t next = value + steps * step;
  return next <= interval.hi ? next : PAST_RANGE;
}
