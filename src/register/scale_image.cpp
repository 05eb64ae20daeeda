// Scaled copy: output pixel (x, y) samples the source at (x / f, y / f) by the
// bilinear rule. Every such position lies inside the source, since
// x <= width * f - 1 gives x / f < width.
#include <cstdint>

#include "register/kernels.h"
#include "register/register.h"
#include "register/resample_fast.h"

Image ScaleImage(const Image& source, float factor) {
  Image copy;
  copy.width = (int32_t)(source.width * (double)factor);
  copy.height = (int32_t)(source.height * (double)factor);
  copy.x0 = (int32_t)(source.x0 * (double)factor);
  copy.y0 = (int32_t)(source.y0 * (double)factor);
  copy.pixels = AllocatePixels(copy.width, copy.height);
  double g = 1.0 / factor;
  if (Kernels.level != KERNEL_REFERENCE) {
    ScaleRowsFast(source, copy, g);
    return copy;
  }
  for (int64_t x = 0; x < copy.width; x++)
    for (int64_t y = 0; y < copy.height; y++)
      SampleBilinear(source, x * g, y * g, copy.pixels + (y * copy.width + x) * 4);
  return copy;
}
