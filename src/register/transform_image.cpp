// Final rotation and shift. Output pixel at (u, v) from the output's reference
// point samples the source at
//   sx = x0 + dx + C u - S v,  sy = y0 + dy + S u + C v
// (C, S in double), each rounded to float, by the bilinear rule. The output is
// the bounding box of the source's corners (0 and width, 0 and height) turned
// the other way, each corner coordinate rounded to float.
#include <cmath>
#include <cstdint>

#include "register/kernels.h"
#include "register/register.h"
#include "register/resample_fast.h"

void TransformRowReference(const Image& source, double c, double s, float dx, float dy, int64_t u0,
                           int64_t v, int64_t n, unsigned char* out) {
  for (int64_t u = u0; u < u0 + n; u++, out += 4) {
    float sx = (float)((double)source.x0 + dx + c * (double)u - s * (double)v);
    float sy = (float)((double)source.y0 + dy + s * (double)u + c * (double)v);
    SampleBilinear(source, sx, sy, out);
  }
}

Image TransformImage(const Image& source, float theta, float dx, float dy) {
  double c = cos((double)theta);
  double s = sin((double)theta);
  const double cornerX[2] = {-(double)source.x0, (double)source.width - source.x0};
  const double cornerY[2] = {-(double)source.y0, (double)source.height - source.y0};
  float left = 0.0f, right = 0.0f, top = 0.0f, bottom = 0.0f;
  for (int i = 0; i < 4; i++) {
    double x = cornerX[i % 2];
    double y = cornerY[i / 2];
    float across = (float)(c * x + s * y - dx);
    float down = (float)(-s * x + c * y - dy);
    if (i == 0 || across < left) left = across;
    if (i == 0 || across > right) right = across;
    if (i == 0 || down < top) top = down;
    if (i == 0 || down > bottom) bottom = down;
  }

  Image result;
  result.width = (int32_t)(int64_t)((double)right - (double)left);
  result.height = (int32_t)(int64_t)((double)bottom - (double)top);
  // Where the source's reference point falls in the box; the corner terms hold
  // for angles between -90 and 90 degrees.
  float p = theta <= 0.0f ? (float)(-(double)source.height * s) : 0.0f;
  float q = theta > 0.0f ? (float)((double)source.width * s) : 0.0f;
  result.x0 = (int32_t)(int64_t)(c * source.x0 + s * source.y0 + p);
  result.y0 = (int32_t)(int64_t)(c * source.y0 - s * source.x0 + q);
  result.pixels = AllocatePixels(result.width, result.height);

  if (Kernels.level != KERNEL_REFERENCE) {
    TransformRowsFast(source, result, c, s, dx, dy);
    return result;
  }
  for (int64_t y = 0; y < result.height; y++)
    TransformRowReference(source, c, s, dx, dy, -(int64_t)result.x0, y - result.y0, result.width,
                          result.pixels + y * (int64_t)result.width * 4);
  return result;
}
