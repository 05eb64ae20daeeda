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

#include "register/kernels.h"

// Channel k (0 blue .. 3 weight) of four gathered pixels, as doubles.
static inline __m256d Channel(__m128i pixels, int k) {
  __m128i bytes = _mm_and_si128(_mm_srli_epi32(pixels, 8 * k), _mm_set1_epi32(0xFF));
  return _mm256_cvtepi32_pd(bytes);
}

static inline __m128i Narrow(__m256d mask) {
  const __m256i evenLanes = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  return _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_castpd_si256(mask), evenLanes));
}

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
      // Plain loads: on some processors four of them beat a gather by far.
      // Lanes outside may hold any index and are never read.
      alignas(16) int32_t index[4];
      _mm_store_si128((__m128i*)index, _mm256_cvttpd_epi32(_mm256_add_pd(_mm256_mul_pd(cellY, width), cellX)));
      int insideLanes = _mm256_movemask_pd(inside);
      int interiorLanes = _mm256_movemask_pd(interior);
      uint32_t q00[4] = {0, 0, 0, 0}, q10[4] = {0, 0, 0, 0}, q01[4] = {0, 0, 0, 0}, q11[4] = {0, 0, 0, 0};
      for (int k = 0; k < 4; k++) {
        const uint32_t* p = pixels + index[k];
        if ((insideLanes >> k & 1) != 0) q00[k] = p[0];
        if ((interiorLanes >> k & 1) == 0) continue;
        q10[k] = p[1];
        q01[k] = p[source.width];
        q11[k] = p[source.width + 1];
      }
      // Built from registers: four narrow stores read back as one wide load
      // would stall.
      __m128i p00 = _mm_setr_epi32((int)q00[0], (int)q00[1], (int)q00[2], (int)q00[3]);
      if (interiorLanes == 0) {
        _mm_storeu_si128((__m128i*)(out + done * 4), p00);
        continue;
      }
      __m128i p10 = _mm_setr_epi32((int)q10[0], (int)q10[1], (int)q10[2], (int)q10[3]);
      __m128i p01 = _mm_setr_epi32((int)q01[0], (int)q01[1], (int)q01[2], (int)q01[3]);
      __m128i p11 = _mm_setr_epi32((int)q11[0], (int)q11[1], (int)q11[2], (int)q11[3]);
      __m128i interiorMask = Narrow(interior);
      __m256d fx = _mm256_sub_pd(sx, cellX);
      __m256d fy = _mm256_sub_pd(sy, cellY);
      __m256d gx = _mm256_sub_pd(one, fx);
      __m256d gy = _mm256_sub_pd(one, fy);
      __m128i blended = _mm_setzero_si128();
      for (int k = 0; k < 4; k++) {
        __m256d value = _mm256_mul_pd(_mm256_mul_pd(Channel(p00, k), gx), gy);
        value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(Channel(p10, k), fx), gy));
        value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(Channel(p01, k), gx), fy));
        value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(Channel(p11, k), fx), fy));
        __m128i byte = _mm_and_si128(_mm256_cvttpd_epi32(value), _mm_set1_epi32(0xFF));
        blended = _mm_or_si128(blended, _mm_slli_epi32(byte, 8 * k));
      }
      __m128i result = _mm_blendv_epi8(p00, blended, interiorMask);
      _mm_storeu_si128((__m128i*)(out + done * 4), result);
    }
  }
  TransformRowReference(source, c, s, dx, dy, u0 + done, v, n - done, out + done * 4);
}
