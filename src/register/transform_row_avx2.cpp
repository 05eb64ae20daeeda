// AVX2 twin of TransformRowReference (transform_image.cpp) and the bilinear
// rule it calls (bilinear_sample.cpp).
//
// Four output pixels at a time, every value computed with the reference's
// operations in the reference's order: the positions ((x0 + dx) + c u) - s v
// and ((y0 + dy) + s u) + c v in double, rounded to float and back; the cell
// by floor; the pixels by plain loads (on some processors four of them beat
// a gather by far); the blend of each channel
//   ((p00 (1 - fx)) (1 - fy) + (p10 fx) (1 - fy)) + (p01 (1 - fx)) fy) + (p11 fx) fy
// in double, truncated, low byte kept (the blend lies in 0 .. 255). Lanes in
// the last column or row copy p00, lanes outside get 0. Pixel indices go
// through 32-bit lanes, so sources of 2^31 pixels or more, and the last
// n mod 4 pixels, take the reference.
#include <immintrin.h>

#include <cstdint>

#include "register/bilinear_avx2.h"
#include "register/kernels.h"

void TransformRowAvx2(const Image& source, double c, double s, float dx, float dy, int64_t u0,
                      int64_t v, int64_t n, unsigned char* out) {
  int64_t done = 0;
  if ((int64_t)source.width * source.height <= INT32_MAX) {
    const __m256d originX = _mm256_set1_pd((double)source.x0 + (double)dx);
    const __m256d originY = _mm256_set1_pd((double)source.y0 + (double)dy);
    const __m256d cs = _mm256_set1_pd(c);
    const __m256d sn = _mm256_set1_pd(s);
    const __m256d sv = _mm256_set1_pd(s * (double)v);
    const __m256d cv = _mm256_set1_pd(c * (double)v);
    const __m256d width = _mm256_set1_pd((double)source.width);
    const __m256d height = _mm256_set1_pd((double)source.height);
    const __m256d lastX = _mm256_set1_pd((double)source.width - 1);
    const __m256d lastY = _mm256_set1_pd((double)source.height - 1);
    const __m256d zero = _mm256_setzero_pd();
    const __m256d one = _mm256_set1_pd(1.0);
    const __m256d four = _mm256_set1_pd(4.0);
    const uint32_t* pixels = (const uint32_t*)source.pixels;
    __m256d u = _mm256_setr_pd((double)u0, (double)(u0 + 1), (double)(u0 + 2), (double)(u0 + 3));
    for (; done + 4 <= n; done += 4, u = _mm256_add_pd(u, four)) {
      __m256d sx = _mm256_sub_pd(_mm256_add_pd(originX, _mm256_mul_pd(cs, u)), sv);
      __m256d sy = _mm256_add_pd(_mm256_add_pd(originY, _mm256_mul_pd(sn, u)), cv);
      sx = _mm256_cvtps_pd(_mm256_cvtpd_ps(sx));
      sy = _mm256_cvtps_pd(_mm256_cvtpd_ps(sy));
      __m256d cellX = _mm256_floor_pd(sx);
      __m256d cellY = _mm256_floor_pd(sy);
      __m256d inside = _mm256_and_pd(
          _mm256_and_pd(_mm256_cmp_pd(cellX, zero, _CMP_GE_OQ), _mm256_cmp_pd(cellX, width, _CMP_LT_OQ)),
          _mm256_and_pd(_mm256_cmp_pd(cellY, zero, _CMP_GE_OQ), _mm256_cmp_pd(cellY, height, _CMP_LT_OQ)));
      __m256d interior = _mm256_and_pd(
          inside, _mm256_and_pd(_mm256_cmp_pd(cellX, lastX, _CMP_LT_OQ),
                                _mm256_cmp_pd(cellY, lastY, _CMP_LT_OQ)));
      FourCells cells = LoadCells(pixels, source.width, cellX, cellY, inside, interior);
      __m128i result = cells.p00;
      if (_mm256_movemask_pd(interior) != 0) {
        __m256d fx = _mm256_sub_pd(sx, cellX);
        __m256d fy = _mm256_sub_pd(sy, cellY);
        result = BlendCells(cells, fx, _mm256_sub_pd(one, fx), fy, _mm256_sub_pd(one, fy), interior);
      }
      _mm_storeu_si128((__m128i*)(out + done * 4), result);
    }
  }
  TransformRowReference(source, c, s, dx, dy, u0 + done, v, n - done, out + done * 4);
}
