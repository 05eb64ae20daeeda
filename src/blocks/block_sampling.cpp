#include "blocks/block_sampling.h"

#include <cstring>

#include "run/run_state.h"
#include "run/settings.h"

// The weights lie in (-1, 1), so |value| < 9 x 255: the 16-bit integer itself
// never clips, and a blend outside 0..255 wraps (370 gives 114).
static unsigned char LowByte(double value) {
  return (unsigned char)(int16_t)(int)value;
}

void FetchBlended(const Image& source, int64_t x, int64_t y, double wx, double wy,
                  unsigned char* out) {
  int64_t width = source.width;
  int64_t height = source.height;
  if (x < 0 || x >= width || y < 0 || y >= height) {
    out[0] = out[1] = out[2] = out[3] = 0;
    return;
  }
  const unsigned char* p00 = source.pixels + (y * width + x) * 4;
  if (x > width - 2 || y > height - 2) {
    memcpy(out, p00, 4);
    return;
  }
  const unsigned char* p10 = p00 + 4;
  const unsigned char* p01 = p00 + width * 4;
  const unsigned char* p11 = p01 + 4;
  for (int c = 0; c < 4; c++)
    out[c] = LowByte(p00[c] * (1 - wx) * (1 - wy) + p10[c] * wx * (1 - wy) +
                     p01[c] * (1 - wx) * wy + p11[c] * wx * wy);
}

int32_t PatchPoint(int64_t start, int64_t side, int64_t extent) {
  if (start < -side) start = -side;
  if (start > extent) start = extent;
  return (int32_t)-start;
}

bool BlockSearchHasTrials() {
  const SettingsRecord& s = Settings;
  if (s.BlockShiftMinX > s.BlockShiftMaxX || s.BlockShiftMinY > s.BlockShiftMaxY) return false;
  return s.SearchWidth >= 0 && s.BlockShiftStep > 0;
}

Image NewBlockPatch() {
  int64_t side = 2 * (int64_t)Settings.SearchWidth + 1;
  Image patch = {AllocatePixels(side, side), (int32_t)side, (int32_t)side, 0, 0};
  return patch;
}

Image ReferenceAtOrigin() {
  Image reference = Reference;
  reference.x0 = 0;
  reference.y0 = 0;
  return reference;
}
