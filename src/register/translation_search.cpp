// Translation search: the shift found coarsely, step 1, on copies reduced to one
// eighth, then the shift range narrowed to 8 x that shift +-10 for the rotation
// search at the fixed angle, and put back afterwards.
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "register/overlap_range.h"
#include "register/register.h"
#include "run/run_state.h"
#include "run/settings.h"

static const float REDUCTION = 0.125f;
static const int64_t SCALE_BACK = 8;  // 1 / REDUCTION
static const int64_t MARGIN = 2;

struct CoarseShift {
  float score;
  int32_t i;
  int32_t j;
};

static void Consider(CoarseShift& best, double score, int64_t i, int64_t j) {
  if (!(score < best.score)) return;
  best.score = (float)score;
  best.i = (int32_t)i;
  best.j = (int32_t)j;
}

// i runs from ShiftMinX / 8 truncated while i <= ShiftMaxX / 8 as real numbers,
// that is up to its floor; likewise j. Runs of placements without overlap are
// passed over as in the rotation search.
static CoarseShift CoarseSearch(const Image& moving, const Image& fixed) {
  CoarseShift best = {1e24f, 0, 0};
  int64_t firstI = (int64_t)(Settings.ShiftMinX * (double)REDUCTION);
  int64_t lastI = (int64_t)floor(Settings.ShiftMaxX * (double)REDUCTION);
  int64_t firstJ = (int64_t)(Settings.ShiftMinY * (double)REDUCTION);
  int64_t lastJ = (int64_t)floor(Settings.ShiftMaxY * (double)REDUCTION);
  ShiftInterval columns = OverlapShifts(moving.x0, moving.width, fixed.x0, fixed.width);
  ShiftInterval rows = OverlapShifts(moving.y0, moving.height, fixed.y0, fixed.height);
  int64_t i = firstI;
  while (i <= lastI) {
    if (!InInterval(columns, i)) {
      if (firstJ <= lastJ) Consider(best, NO_OVERLAP_SCORE, i, firstJ);
      i = NextInInterval(i, 1, columns);
      continue;
    }
    int64_t j = firstJ;
    while (j <= lastJ) {
      if (!InInterval(rows, j)) {
        Consider(best, NO_OVERLAP_SCORE, i, j);
        j = NextInInterval(j, 1, rows);
        continue;
      }
      Image placed = moving;
      placed.x0 = (int32_t)(moving.x0 + i);
      placed.y0 = (int32_t)(moving.y0 + j);
      Consider(best, MatchScore(placed, fixed), i, j);
      j++;
    }
    i++;
  }
  return best;
}

static int32_t Saturate(int64_t value) {
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return (int32_t)value;
}

void SearchTranslation() {
  printf("Recherche de la meilleure translation : \n");
  unsigned int start = ProcessorSeconds();
  printf("--------------------------------------------------\n");

  Image reduced = ScaleImage(Current, REDUCTION);
  Image reducedReference = ScaleImage(Reference, REDUCTION);
  CoarseShift best = CoarseSearch(reduced, reducedReference);
  ReleasePixels(reduced);
  ReleasePixels(reducedReference);
  printf("(Temps Phase1 : %u)\n", ProcessorSeconds() - start);

  int32_t savedMinX = Settings.ShiftMinX;
  int32_t savedMaxX = Settings.ShiftMaxX;
  int32_t savedMinY = Settings.ShiftMinY;
  int32_t savedMaxY = Settings.ShiftMaxY;
  Settings.ShiftMinX = Saturate(((int64_t)best.i - 1) * SCALE_BACK - MARGIN);
  Settings.ShiftMaxX = Saturate(((int64_t)best.i + 1) * SCALE_BACK + MARGIN);
  Settings.ShiftMinY = Saturate(((int64_t)best.j - 1) * SCALE_BACK - MARGIN);
  Settings.ShiftMaxY = Saturate(((int64_t)best.j + 1) * SCALE_BACK + MARGIN);
  SearchRotation();
  Settings.ShiftMinX = savedMinX;
  Settings.ShiftMaxX = savedMaxX;
  Settings.ShiftMinY = savedMinY;
  Settings.ShiftMaxY = savedMaxY;
}
