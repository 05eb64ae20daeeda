// Rotation search: every whole degree from AngleMin while the angle stays at or
// below AngleMax, every shift of the range at each angle, on a patch of the
// picture; then the angle alone refined by thirds; then the log line and the
// final transform of Current.
//
// Scores are compared as returned (double) against the best held as a float and
// a new best is stored rounded to float: a later score below the stored float
// wins even when both round alike.
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "register/overlap_range.h"
#include "register/register.h"
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

static void Consider(CoarseBest& best, double score, float angle, int64_t dx, int64_t dy) {
  if (!(score < best.score)) return;
  best.score = (float)score;
  best.angle = angle;
  best.dx = (int32_t)dx;
  best.dy = (int32_t)dy;
}

// The parser keeps a step below 1 as given; such a step would never reach the
// end of the range, so the search takes 1 instead.
static int64_t ShiftStep() { return Settings.ShiftStep < 1 ? 1 : Settings.ShiftStep; }

// All shifts of the range for one patch, dx outer, dy inner. A placement that
// does not meet Reference scores NO_OVERLAP_SCORE without being computed; once
// the first of an unbroken run of them has been compared the best is at most
// that value, so the rest of the run is passed over.
static void ScoreShifts(const Image& patch, float angle, CoarseBest& best) {
  int64_t step = ShiftStep();
  ShiftInterval columns = OverlapShifts(patch.x0, patch.width, Reference.x0, Reference.width);
  ShiftInterval rows = OverlapShifts(patch.y0, patch.height, Reference.y0, Reference.height);
  int64_t dx = Settings.ShiftMinX;
  while (dx <= Settings.ShiftMaxX) {
    if (!InInterval(columns, dx)) {
      if (Settings.ShiftMinY <= Settings.ShiftMaxY)
        Consider(best, NO_OVERLAP_SCORE, angle, dx, Settings.ShiftMinY);
      dx = NextInInterval(dx, step, columns);
      continue;
    }
    int64_t dy = Settings.ShiftMinY;
    while (dy <= Settings.ShiftMaxY) {
      if (!InInterval(rows, dy)) {
        Consider(best, NO_OVERLAP_SCORE, angle, dx, dy);
        dy = NextInInterval(dy, step, rows);
        continue;
      }
      Image placed = patch;
      placed.x0 = (int32_t)(patch.x0 + dx);
      placed.y0 = (int32_t)(patch.y0 + dy);
      Consider(best, MatchScore(placed, Reference), angle, dx, dy);
      dy += step;
    }
    dx += step;
  }
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

static void CoarsePhase(CoarseBest& best) {
  int32_t patchWidth = Current.width / 4;
  int32_t patchHeight = Current.height / 4;
  if (Settings.AngleMin == Settings.AngleMax) {
    int32_t fraction = Settings.TranslationFraction < 1 ? 1 : Settings.TranslationFraction;
    patchWidth = Current.width / fraction;
    patchHeight = Current.height / fraction;
  }
  int32_t starsPrinted = 0;
  float angle = Settings.AngleMin;
  while (angle <= Settings.AngleMax) {
    ShowProgress(angle, starsPrinted);
    Image patch = RotatedPatch(Current, patchWidth, patchHeight, angle);
    ScoreShifts(patch, angle, best);
    ReleasePixels(patch);
    float next = (float)(angle + DEGREE);
    if (next == angle) break;  // the step no longer moves a float this large
    angle = next;
  }
}

static float FullPatchScore(float angle) {
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
    float s1 = FullPatchScore(a1);
    float s2 = FullPatchScore(a2);
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
