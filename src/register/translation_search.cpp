// Translation search: the shift found coarsely, step 1, on copies reduced to one
// eighth, then the shift range narrowed to 8 x that shift +-10 for the rotation
// search at the fixed angle, and put back afterwards.
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "register/register.h"
#include "register/shift_scan.h"
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

// i runs from ShiftMinX / 8 truncated while i <= ShiftMaxX / 8 as real numbers,
// that is up to its floor; likewise j.
static CoarseShift CoarseSearch(const Image& moving, const Image& fixed) {
  ShiftGrid grid = {(int64_t)(Settings.ShiftMinX * (double)REDUCTION),
                    (int64_t)floor(Settings.ShiftMaxX * (double)REDUCTION),
                    (int64_t)(Settings.ShiftMinY * (double)REDUCTION),
                    (int64_t)floor(Settings.ShiftMaxY * (double)REDUCTION), 1};
  ShiftWinner winner = {1e24f, 0, 0, false};
  ScanMemory memory = NewScanMemory();
  ScanShifts(moving, fixed, grid, winner, memory);
  return CoarseShift{winner.score, (int32_t)winner.dx, (int32_t)winner.dy};
}

// Reference does not change during a run (the block stage restores it), so
// its reduced copy is made once.
static Image ReducedReference = {nullptr, 0, 0, 0, 0};
static bool ReducedReferenceReady = false;

void PrepareTranslationSearch() {
  EndTranslationSearch();
  ReducedReference = ScaleImage(Reference, REDUCTION);
  ReducedReferenceReady = true;
}

void EndTranslationSearch() {
  if (!ReducedReferenceReady) return;
  ReleasePixels(ReducedReference);
  ReducedReferenceReady = false;
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
  Image reducedReference = ReducedReferenceReady ? ReducedReference : ScaleImage(Reference, REDUCTION);
  CoarseShift best = CoarseSearch(reduced, reducedReference);
  ReleasePixels(reduced);
  if (!ReducedReferenceReady) ReleasePixels(reducedReference);
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
