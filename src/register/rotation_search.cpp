// Rotation search: every whole degree from AngleMin while the angle stays at or
// below AngleMax, every shift of the range at each angle, on a patch of the
// picture; then the angle alone refined by thirds; then the log line and the
// final transform of Current.
//
// Every comparison of scores follows the one selection rule (selection_rule.h).
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "register/kernels.h"
#include "register/register.h"
#include "register/shift_scan.h"
#include "run/fatal_error.h"
#include "run/run_state.h"
#include "run/settings.h"

static const double DEGREE = 0.017453292522222223;       // pi / 180, pi as 3.141592654
static const double HALF_DEGREE = 0.008726646261111111;  // pi / 360
static const double INVERSE_PI = 0.31830988614222805;
static const float PROGRESS_SCALE = 16.666667f;
static const float ONE_THIRD = 0.33333334f;

struct CoarseBest {
  float score;
  float angle;
  int32_t dx;
  int32_t dy;
};

// The parser keeps a step below 1 as given; such a step would never reach the
// end of the range, so the search takes 1 instead.
static int64_t ShiftStep() { return Settings.ShiftStep < 1 ? 1 : Settings.ShiftStep; }

// All shifts of the range for one patch, dx outer, dy inner.
static void ScoreShifts(const Image& patch, float angle, CoarseBest& best, ScanMemory& memory) {
  ShiftGrid grid = {Settings.ShiftMinX, Settings.ShiftMaxX, Settings.ShiftMinY, Settings.ShiftMaxY,
                    ShiftStep()};
  ShiftWinner winner = {best.score, best.dx, best.dy, false};
  ScanShifts(patch, Reference, grid, winner, memory);
  if (!winner.moved) return;
  best.score = winner.score;
  best.angle = angle;
  best.dx = (int32_t)winner.dx;
  best.dy = (int32_t)winner.dy;
}

// Brings the stars up to trunc(fraction of the angle range * 16.666667) + 1.
static void ShowProgress(float angle, int32_t& starsPrinted) {
  if (Settings.AngleMin != Settings.AngleMax) {
    double fraction = ((double)angle - Settings.AngleMin) /
                      ((double)Settings.AngleMax - Settings.AngleMin);
    int64_t n = (int64_t)(fraction * PROGRESS_SCALE);
    for (int64_t k = n - starsPrinted + 1; k > 0; k--) {
      printf("*");
      starsPrinted++;
    }
  }
  fflush(stdout);
}

// Seeding pays when it sees every angle at once; beyond this many (ranges of
// dozens of degrees) the scans seed themselves angle by angle.
static const int64_t SEED_ANGLES = 64;

// Builds the patches of every coarse angle, in order, and seeds the search's
// bound from all of them together. Prints nothing. Returns how many patches
// it kept in patches (0 when there are too many angles to see at once).
static int64_t SeedFromAllAngles(int32_t patchWidth, int32_t patchHeight, Image* patches,
                                 ScanMemory& memory) {
  int64_t count = 0;
  bool all = false;
  for (float angle = Settings.AngleMin; angle <= Settings.AngleMax && count < SEED_ANGLES;) {
    patches[count++] = RotatedPatch(Current, patchWidth, patchHeight, angle);
    float next = (float)(angle + DEGREE);
    all = next == angle || !(next <= Settings.AngleMax);
    if (next == angle) break;
    angle = next;
  }
  if (!all) {
    for (int64_t i = 0; i < count; i++) ReleasePixels(patches[i]);
    return 0;
  }
  ShiftGrid grid = {Settings.ShiftMinX, Settings.ShiftMaxX, Settings.ShiftMinY, Settings.ShiftMaxY,
                    ShiftStep()};
  SeedScanMemory(patches, count, Reference, grid, memory);
  return count;
}

static void CoarsePhase(CoarseBest& best) {
  int32_t patchWidth = Current.width / 4;
  int32_t patchHeight = Current.height / 4;
  if (Settings.AngleMin == Settings.AngleMax) {
    int32_t fraction = Settings.TranslationFraction < 1 ? 1 : Settings.TranslationFraction;
    patchWidth = Current.width / fraction;
    patchHeight = Current.height / fraction;
  }
  int32_t starsPrinted = 0;
  ScanMemory memory = NewScanMemory();
  Image patches[SEED_ANGLES];
  int64_t kept = Kernels.level != KERNEL_REFERENCE
                     ? SeedFromAllAngles(patchWidth, patchHeight, patches, memory)
                     : 0;
  float angle = Settings.AngleMin;
  for (int64_t k = 0; angle <= Settings.AngleMax; k++) {
    ShowProgress(angle, starsPrinted);
    Image patch = k < kept ? patches[k] : RotatedPatch(Current, patchWidth, patchHeight, angle);
    ScoreShifts(patch, angle, best, memory);
    ReleasePixels(patch);
    float next = (float)(angle + DEGREE);
    if (next == angle) break;  // the step no longer moves a float this large
    angle = next;
  }
}

// abandonAt: a score known to reach it may come back as infinity, since the
// caller only asks whether it is below.
static float FullPatchScore(float angle, float abandonAt) {
  if (Kernels.level != KERNEL_REFERENCE)
    return (float)RotatedPatchScore(Current, Current.width, Current.height, angle, Reference,
                                    abandonAt);
  Image patch = RotatedPatch(Current, Current.width, Current.height, angle);
  float score = (float)MatchScore(patch, Reference);
  ReleasePixels(patch);
  return score;
}

// Keeps two thirds of [lo, hi] per pass until the width is at most half the
// resolution; the best angle is the end that moved last.
static float RefineAngle(float bestAngle) {
  float lo = (float)(bestAngle - (Settings.AngleResolution + HALF_DEGREE));
  float hi = (float)(bestAngle + (Settings.AngleResolution + HALF_DEGREE));
  float width = (float)((double)hi - lo);
  while (width > Settings.AngleResolution * 0.5) {
    printf("***");
    fflush(stdout);
    float third = (float)((double)width * ONE_THIRD);
    float a1 = (float)((double)lo + third);
    float twice = (float)(2.0 * width);
    float twoThirds = (float)((double)twice * ONE_THIRD);
    float a2 = (float)((double)lo + twoThirds);
    float s1 = FullPatchScore(a1, INFINITY);
    // s2 only has to be compared with s1: a double score at or above the
    // float s1 rounds to a float that is not below it.
    float s2 = FullPatchScore(a2, s1);
    if (s2 < s1) {
      lo = a1;
      bestAngle = a1;
    } else {
      hi = a2;
      bestAngle = a2;
    }
    float previous = width;
    width = (float)((double)hi - lo);
    if (!(width < previous)) break;  // a tiny resolution can stall the floats
  }
  return bestAngle;
}

static void LogShift(const CoarseBest& best) {
  if (Settings.ShiftMinX == Settings.ShiftMaxX && Settings.ShiftMinY == Settings.ShiftMaxY) return;
  fprintf(ShiftLog, "%i %i ", best.dx, best.dy);
  if (best.dx == Settings.ShiftMaxX || best.dx == Settings.ShiftMinX ||
      best.dy == Settings.ShiftMaxY || best.dy == Settings.ShiftMinY) {
    printf("\n!!! Attention : la valeur maximum de decalage autoris" "\x8E" "e a ete atteinte.\n");
    fprintf(ShiftLog, "  Non optimal");
  }
  fprintf(ShiftLog, "\n");
  // Kept on disk at once: a fatal error later in the run loses no shift found.
  fflush(ShiftLog);
}

void SearchRotation() {
  printf("Ajustement global : \n");
  if (Settings.AngleResolution == 0.0f) {
    printf("Erreur : resolution angulaire nulle");
    FatalError();
  }
  printf("--------------------------------------------------\n");

  CoarseBest best = {1e24f, 0.0f, 0, 0};
  if (Settings.AngleMin <= Settings.AngleMax) CoarsePhase(best);

  if (Settings.AngleMin == Settings.AngleMax) {
    printf("\nDeltaX=%i   DeltaY=%i\n", best.dx, best.dy);
  } else {
    best.angle = RefineAngle(best.angle);
    printf("\n");
    printf("theta=%f  DeltaX=%i   DeltaY=%i\n", ((double)best.angle * 180.0) * INVERSE_PI, best.dx,
           best.dy);
  }
  LogShift(best);

  Image result = TransformImage(Current, best.angle, (float)best.dx, (float)best.dy);
  ReleasePixels(Current);
  Current = result;
}
