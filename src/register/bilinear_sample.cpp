// Bilinear sampling rule shared by the final transform and the scaled copy.
//
// The cell is taken by floor so that every position left of column 0 or above
// row 0 is outside. The last column and row have no neighbour to blend with and
// are copied. Each blend is evaluated as written, left to right, in double.
#include <cmath>
#include <cstdint>

#include "register/register.h"

void SampleBilinear(const Image& source, double sx, double sy, unsigned char* out) {
  double cellX = floor(sx);
  double cellY = floor(sy);
  // Tested as doubles: a position far outside must never reach an integer conversion.
  if (!(cellX >= 0.0 && cellX < source.width && cellY >= 0.0 && cellY < source.height)) {
    out[0] = out[1] = out[2] = out[3] = 0;
    return;
  }
  int64_t ix = (int64_t)cellX;
  int64_t iy = (int64_t)cellY;
  const unsigned char* p00 = source.pixels + (iy * source.width + ix) * 4;
  if (ix >= source.width - 1 || iy >= source.height - 1) {
    for (int c = 0; c < 4; c++) out[c] = p00[c];
    return;
  }
  const unsigned char* p10 = p00 + 4;
  const unsigned char* p01 = p00 + (int64_t)source.width * 4;
  const unsigned char* p11 = p01 + 4;
  double fx = sx - cellX;
  double fy = sy - cellY;
  for (int c = 0; c < 4; c++) {
    double value = p00[c] * (1.0 - fx) * (1.0 - fy) + p10[c] * fx * (1.0 - fy) +
                   p01[c] * (1.0 - fx) * fy + p11[c] * fx * fy;
    out[c] = (unsigned char)(int)value;
  }
}
