#include <cmath>
#include <cstdint>

#include "blocks/block_sampling.h"
#include "blocks/blocks.h"
#include "register/register.h"
#include "register/selection_rule.h"
#include "run/run_state.h"
#include "run/settings.h"

void SampleBlockRowReference(const Image& source, int64_t bx, int64_t y, double wy, float ox,
                             int64_t first, int64_t n, unsigned char* out) {
  for (int64_t i = first; i < first + n; i++, out += 4) {
    double rx = (double)i - ox;
    double wholeX = std::trunc(rx);
    FetchBlended(source, bx + (int64_t)wholeX, y, rx - wholeX, wy, out);
  }
}

// Patch pixel (i, j) samples Current at the real position (bx + i - ox,
// by + j - oy): whole parts truncated from i - ox and j - oy, so the weights
// are negative where those are.
static void SamplePatch(Image& patch, int64_t bx, int64_t by, float ox, float oy) {
  int64_t side = patch.width;
  for (int64_t j = 0; j < side; j++) {
    double ry = (double)j - oy;
    double wholeY = std::trunc(ry);
    SampleBlockRowReference(Current, bx, by + (int64_t)wholeY, ry - wholeY, ox, 0, side,
                            patch.pixels + j * side * 4);
  }
}

float SearchBlockOffsetSubpixel(float& dx, float& dy, int32_t bx, int32_t by) {
  dx = 0;
  dy = 0;
  float best = NO_MATCH_SCORE;
  if (!BlockSearchHasTrials()) return best;
  const SettingsRecord& s = Settings;
  float step = s.BlockShiftStep;
  Image patch = NewBlockPatch();
  int64_t side = patch.width;
  Image reference = ReferenceAtOrigin();
  // The patch's point stays Current.x0 - bx for every trial; the offset goes
  // into the sampling instead.
  patch.x0 = PatchPoint((int64_t)Reference.x0 - Current.x0 + bx, side, Reference.width);
  patch.y0 = PatchPoint((int64_t)Reference.y0 - Current.y0 + by, side, Reference.height);

  // The running offsets are 32-bit floats: with a step of 0.1 the sum meant to
  // reach 1 overshoots it and is not tried. A step too small to change the sum
  // ends the loop.
  for (float ox = (float)s.BlockShiftMinX; (double)ox <= (double)s.BlockShiftMaxX;) {
    for (float oy = (float)s.BlockShiftMinY; (double)oy <= (double)s.BlockShiftMaxY;) {
      SamplePatch(patch, bx, by, ox, oy);
      double score = MatchScore(reference, patch);
      if (TakeIfBetter(best, score)) {
        dx = ox;
        dy = oy;
      }
      float next = oy + step;
      if (next == oy) break;
      oy = next;
    }
    float next = ox + step;
    if (next == ox) break;
    ox = next;
  }

  ReleasePixels(patch);
  return best;
}
