#include <cmath>
#include <cstdint>

#include "blocks/block_sampling.h"
#include "blocks/blocks.h"
#include "register/register.h"
#include "register/selection_rule.h"
#include "run/run_state.h"
#include "run/settings.h"

bool NextWholeOffset(int64_t& offset, float step, int64_t max) {
  float sum = (float)offset + step;
  double next = std::trunc((double)sum);
  if (next > (double)max || next <= (double)offset) return false;
  offset = (int64_t)next;
  return true;
}

void CopyPatch(Image& patch, int64_t left, int64_t top) {
  int64_t side = patch.width;
  for (int64_t j = 0; j < side; j++) {
    for (int64_t i = 0; i < side; i++) {
      unsigned char* out = patch.pixels + (j * side + i) * 4;
      int64_t x = left + i;
      int64_t y = top + j;
      if (x < 0 || x >= Current.width || y < 0 || y >= Current.height) {
        out[3] = 0;
        continue;
      }
      const unsigned char* in = Current.pixels + (y * Current.width + x) * 4;
      out[0] = in[0];
      out[1] = in[1];
      out[2] = in[2];
      out[3] = in[3];
    }
  }
}

float SearchBlockOffset(float& dx, float& dy, int32_t bx, int32_t by) {
  dx = 0;
  dy = 0;
  float best = NO_MATCH_SCORE;
  if (!BlockSearchHasTrials()) return best;
  const SettingsRecord& s = Settings;
  int64_t half = s.SearchWidth;  // S: the patch is 2S + 1 pixels square
  float step = s.BlockShiftStep;
  Image patch = NewBlockPatch();
  int64_t side = patch.width;
  CopyPatch(patch, (int64_t)bx - half, (int64_t)by - half);
  Image reference = ReferenceAtOrigin();
  int64_t dx0 = (int64_t)Reference.x0 - Current.x0;
  int64_t dy0 = (int64_t)Reference.y0 - Current.y0;

  for (int64_t ox = s.BlockShiftMinX; ox <= s.BlockShiftMaxX;) {
    for (int64_t oy = s.BlockShiftMinY; oy <= s.BlockShiftMaxY;) {
      // Current.x0 - bx + S - ox, taken relative to Reference's point.
      patch.x0 = PatchPoint(dx0 + bx - half + ox, side, Reference.width);
      patch.y0 = PatchPoint(dy0 + by - half + oy, side, Reference.height);
      double score = MatchScore(reference, patch);
      if (TakeIfBetter(best, score)) {
        dx = (float)ox;
        dy = (float)oy;
      }
      if (!NextWholeOffset(oy, step, s.BlockShiftMaxY)) break;
    }
    if (!NextWholeOffset(ox, step, s.BlockShiftMaxX)) break;
  }

  ReleasePixels(patch);
  return best;
}
