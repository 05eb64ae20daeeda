// AVX2 twin of SampleRotatedRowReference (rotated_patch.cpp).
//
// Four pixels at a time: the positions are computed in double with the
// reference's operations in the reference's order ((x0 + c u) - s v and
// (y0 + s u) + c v, the products s v and c v being the same for the whole
// row), truncated, tested against the source as doubles, and the pixels
// fetched with plain loads; a lane outside the source gets 0. Pixel
// indices go through 32-bit lanes, so sources of 2^31 pixels or more, and the
// last n mod 4 pixels, take the reference.
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "register/kernels.h"

void SampleRotatedRowAvx2(const Image& source, float c, float s, int64_t u0, int64_t v, int64_t n,
                          unsigned char* out) {
  int64_t done = 0;
  if ((int64_t)source.width * source.height <= INT32_MAX) {
    const __m256d x0 = _mm256_set1_pd((double)source.x0);
    const __m256d y0 = _mm256_set1_pd((double)source.y0);
    const __m256d cs = _mm256_set1_pd((double)c);
    const __m256d sn = _mm256_set1_pd((double)s);
    const __m256d sv = _mm256_set1_pd((double)s * (double)v);
    const __m256d cv = _mm256_set1_pd((double)c * (double)v);
    const __m256d width = _mm256_set1_pd((double)source.width);
    const __m256d height = _mm256_set1_pd((double)source.height);
    const __m256d zero = _mm256_setzero_pd();
    const __m256d four = _mm256_set1_pd(4.0);
    const uint32_t* pixels = (const uint32_t*)source.pixels;
    __m256d u = _mm256_setr_pd((double)u0, (double)(u0 + 1), (double)(u0 + 2), (double)(u0 + 3));
    for (; done + 4 <= n; done += 4) {
      __m256d sx = _mm256_sub_pd(_mm256_add_pd(x0, _mm256_mul_pd(cs, u)), sv);
      __m256d sy = _mm256_add_pd(_mm256_add_pd(y0, _mm256_mul_pd(sn, u)), cv);
      sx = _mm256_round_pd(sx, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
      sy = _mm256_round_pd(sy, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
      __m256d inside = _mm256_and_pd(
          _mm256_and_pd(_mm256_cmp_pd(sx, zero, _CMP_GE_OQ), _mm256_cmp_pd(sx, width, _CMP_LT_OQ)),
          _mm256_and_pd(_mm256_cmp_pd(sy, zero, _CMP_GE_OQ), _mm256_cmp_pd(sy, height, _CMP_LT_OQ)));
      // Four plain loads: on some processors they beat one gather by far.
      // Lanes outside may hold any index and are never read.
      alignas(16) int32_t index[4];
      _mm_store_si128((__m128i*)index, _mm256_cvttpd_epi32(_mm256_add_pd(_mm256_mul_pd(sy, width), sx)));
      int lanes = _mm256_movemask_pd(inside);
      uint32_t fetched[4];
      for (int k = 0; k < 4; k++) fetched[k] = (lanes >> k & 1) != 0 ? pixels[index[k]] : 0;
      memcpy(out + done * 4, fetched, sizeof fetched);
      u = _mm256_add_pd(u, four);
    }
  }
  SampleRotatedRowReference(source, c, s, u0 + done, v, n - done, out + done * 4);
}
