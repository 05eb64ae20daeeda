#include <cmath>
#include <cstdint>

#include "blocks/blocks.h"
#include "register/register.h"
#include "run/run_state.h"
#include "run/settings.h"

// Truncated toward zero to a 16-bit integer of which the low 8 bits are kept:
// a blend outside 0..255 wraps (370 gives 114, -5 gives 251). The weights lie
// in (-1, 1), so |value| < 9 x 255 and the 16-bit integer itself never clips.
static unsigned char LowByte(double value) {
  return (unsigned char)(int16_t)(int)value;
}

// Same placement as in the whole-number search: relative to a copy of
// Reference's record whose point is (0, 0), clamped where nothing overlaps.
static int32_t PatchPoint(int64_t start, int64_t side, int64_t extent) {
  if (start < -side) start = -side;
  if (start > extent) start = extent;
  return (int32_t)-start;
}

static void SamplePatch(Image& patch, int64_t bx, int64_t by, float ox, float oy) {
  int64_t side = patch.width;
  int64_t width = Current.width;
  int64_t height = Current.height;
  for (int64_t j = 0; j < side; j++) {
    double ry = (double)j - oy;
    double wholeY = std::trunc(ry);
    double wy = ry - wholeY;
    int64_t y = by + (int64_t)wholeY;
    for (int64_t i = 0; i < side; i++) {
      double rx = (double)i - ox;
      double wholeX = std::trunc(rx);
      double wx = rx - wholeX;
      int64_t x = bx + (int64_t)wholeX;
      unsigned char* out = patch.pixels + (j * side + i) * 4;
      if (x < 0) {
        out[3] = 0;
      } else if (x <= width - 2 && y >= 0 && y <= height - 2) {
        const unsigned char* p00 = Current.pixels + (y * width + x) * 4;
        const unsigned char* p10 = p00 + 4;
        const unsigned char* p01 = p00 + width * 4;
        const unsigned char* p11 = p01 + 4;
        for (int c = 0; c < 4; c++)
          out[c] = LowByte(p00[c] * (1 - wx) * (1 - wy) + p10[c] * wx * (1 - wy) +
                           p01[c] * (1 - wx) * wy + p11[c] * wx * wy);
      } else if (x < width && y >= 0 && y < height) {
        const unsigned char* in = Current.pixels + (y * width + x) * 4;
        out[0] = in[0];
        out[1] = in[1];
        out[2] = in[2];
        out[3] = in[3];
      } else {
        out[3] = 0;
      }
    }
  }
}

float SearchBlockOffsetSubpixel(float& dx, float& dy, int32_t bx, int32_t by) {
  dx = 0;
  dy = 0;
  float best = NO_MATCH_SCORE;
  const SettingsRecord& s = Settings;
  int64_t half = s.SearchWidth;  // S: the patch is 2S + 1 pixels square
  float step = s.BlockShiftStep;
  if (s.BlockShiftMinX > s.BlockShiftMaxX || s.BlockShiftMinY > s.BlockShiftMaxY) return best;
  if (half < 0 || !(step > 0)) return best;

  int64_t side = 2 * half + 1;
  Image patch = {AllocatePixels(side, side), (int32_t)side, (int32_t)side, 0, 0};
  Image reference = Reference;
  reference.x0 = 0;
  reference.y0 = 0;
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
      if (score < best) {
        best = (float)score;
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
