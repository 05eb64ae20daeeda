// Row-parallel resampling. Each output pixel depends only on its own position,
// so rows can be filled in any order by any thread.
//
// In the scaled copy, a position whose fractions are both 0 (every pixel of
// the 1/8 reduction) is copied instead of
// blended: the blend then adds p00 x 1 x 1 to three terms that are exactly
// +0, which gives p00 exactly, so the copy is the same byte.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "register/kernels.h"
#include "register/register.h"
#include "register/resample_fast.h"

static const int64_t BAND = 256;

static inline void SampleBilinearFast(const Image& source, double sx, double sy,
                                      unsigned char* out) {
  double cellX = floor(sx);
  double cellY = floor(sy);
  if (sx == cellX && sy == cellY && cellX >= 0.0 && cellX < source.width && cellY >= 0.0 &&
      cellY < source.height) {
    memcpy(out, source.pixels + ((int64_t)cellY * source.width + (int64_t)cellX) * 4, 4);
    return;
  }
  SampleBilinear(source, sx, sy, out);
}

// Turned by exactly 0 (C = 1, S = 0) and moved by whole pixels, every
// position is a whole number: each term of the position is exact, its float
// is exact below 2^24, and a blend with both fractions 0 gives p00. Output row
// y is then a piece of one source row, with empty pixels around it.
static bool IsWholeShift(const Image& source, const Image& result, double c, double s, float dx,
                         float dy) {
  const double limit = 1 << 22;
  return c == 1.0 && s == 0.0 && dx == std::trunc(dx) && dy == std::trunc(dy) &&
         std::fabs(dx) < limit && std::fabs(dy) < limit && std::abs(source.x0) < limit &&
         std::abs(source.y0) < limit && std::abs(result.x0) < limit && std::abs(result.y0) < limit &&
         result.width < limit && result.height < limit;
}

static void CopyShiftedRow(const Image& source, const Image& result, int64_t shiftX, int64_t sy,
                           unsigned char* out) {
  int64_t width = result.width;
  memset(out, 0, (size_t)width * 4);
  if (sy < 0 || sy >= source.height) return;
  // Output column x shows source column x + shiftX.
  int64_t first = shiftX < 0 ? -shiftX : 0;
  int64_t end = source.width - shiftX < width ? source.width - shiftX : width;
  if (first >= end) return;
  memcpy(out + first * 4, source.pixels + (sy * source.width + first + shiftX) * 4,
         (size_t)(end - first) * 4);
}

void TransformRowsFast(const Image& source, Image& result, double c, double s, float dx,
                       float dy) {
  bool whole = IsWholeShift(source, result, c, s, dx, dy);
  int64_t shiftX = (int64_t)source.x0 + (int64_t)dx - result.x0;
  int64_t shiftY = (int64_t)source.y0 + (int64_t)dy - result.y0;
  if (whole) {
#pragma omp parallel for schedule(static)
    for (int64_t y = 0; y < result.height; y++)
      CopyShiftedRow(source, result, shiftX, y + shiftY,
                     result.pixels + y * (int64_t)result.width * 4);
    return;
  }
  // A turned row runs across many source rows: bands of columns taken down
  // the picture keep the source lines they read in cache.
  int64_t bands = (result.width + BAND - 1) / BAND;
  int64_t height = result.height;
#pragma omp parallel for schedule(dynamic, 8)
  for (int64_t k = 0; k < bands * height; k++) {
    int64_t y = k % height;
    int64_t first = k / height * BAND;
    int64_t n = result.width - first < BAND ? result.width - first : BAND;
    Kernels.TransformRow(source, c, s, dx, dy, first - result.x0, y - result.y0, n,
                         result.pixels + (y * (int64_t)result.width + first) * 4);
  }
}

void ScaleRowsFast(const Image& source, Image& copy, double g) {
#pragma omp parallel for schedule(static)
  for (int64_t y = 0; y < copy.height; y++) {
    unsigned char* out = copy.pixels + y * (int64_t)copy.width * 4;
    for (int64_t x = 0; x < copy.width; x++, out += 4) SampleBilinearFast(source, x * g, y * g, out);
  }
}
