// Rotated sampling patch: patch pixel at (u, v) from the patch's reference point
// shows the source at (C u - S v, S u + C v) from the source's, nearest sample
// by truncation toward zero. Only even rows are sampled; odd rows are empty.
// C and S are the double cosine and sine rounded to float, so every build gets
// the same bits (the single-precision functions differ in the last place).
#include <cmath>
#include <cstdint>
#include <cstring>

#include "register/kernels.h"
#include "register/register.h"

void SampleRotatedRowReference(const Image& source, float c, float s, int64_t u0, int64_t v,
                               int64_t n, unsigned char* out) {
  for (int64_t u = u0; u < u0 + n; u++, out += 4) {
    double sx = trunc((double)source.x0 + (double)c * u - (double)s * v);
    double sy = trunc((double)source.y0 + (double)s * u + (double)c * v);
    if (!(sx >= 0.0 && sx < source.width && sy >= 0.0 && sy < source.height)) {
      out[0] = out[1] = out[2] = out[3] = 0;
      continue;
    }
    memcpy(out, source.pixels + ((int64_t)sy * source.width + (int64_t)sx) * 4, 4);
  }
}

Image RotatedPatch(const Image& source, int32_t width, int32_t height, float theta) {
  Image patch;
  patch.width = width;
  patch.height = height;
  patch.x0 = width / 2;
  patch.y0 = height / 2;
  patch.pixels = AllocatePixels(width, height);
  float c = (float)cos((double)theta);
  float s = (float)sin((double)theta);
  for (int64_t y = 0; y < height; y++) {
    unsigned char* out = patch.pixels + y * width * 4;
    if (y % 2 != 0) {
      // Colour bytes are never read here, but zero keeps the patch deterministic.
      memset(out, 0, (size_t)width * 4);
      continue;
    }
    // The reference sampler on the reference path, its twin otherwise.
    Kernels.SampleRotatedRow(source, c, s, -(int64_t)patch.x0, y - patch.y0, width, out);
  }
  return patch;
}
