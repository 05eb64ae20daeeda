// Row-parallel resampling. Each output pixel depends only on its own position,
// so rows can be filled in any order by any thread.
//
// In the scaled copy, a position whose fractions are both 0 (every pixel of
// the 1/8 reduction) is copied instead of
// blended: the blend then adds p00 x 1 x 1 to three terms that are exactly
// +0, which gives p00 exactly, so the copy is the same byte.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "register/kernels.h"
#include "register/register.h"
#include "register/resample_fast.h"

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

void TransformRowsFast(const Image& source, Image& result, double c, double s, float dx,
                       float dy) {
#pragma omp parallel for schedule(static)
  for (int64_t y = 0; y < result.height; y++)
    Kernels.TransformRow(source, c, s, dx, dy, -(int64_t)result.x0, y - result.y0, result.width,
                         result.pixels + y * (int64_t)result.width * 4);
}

void ScaleRowsFast(const Image& source, Image& copy, double g) {
#pragma omp parallel for schedule(static)
  for (int64_t y = 0; y < copy.height; y++) {
    unsigned char* out = copy.pixels + y * (int64_t)copy.width * 4;
    for (int64_t x = 0; x < copy.width; x++, out += 4) SampleBilinearFast(source, x * g, y * g, out);
  }
}
