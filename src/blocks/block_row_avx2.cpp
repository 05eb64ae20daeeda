// AVX2 twin of SampleBlockRowReference (block_search_subpixel.cpp) and the
// FetchBlended rule it calls (block_sampling.cpp).
//
// Four pixels at a time with the reference's operations in its order:
// rx = i - ox, its whole part by truncation, wx = rx - whole; the blend of
// each byte ((p00 (1 - wx)) (1 - wy) + (p10 wx) (1 - wy)) + (p01 (1 - wx)) wy
// + (p11 wx) wy in double, truncated to an integer whose low 8 bits are kept
// (two's complement, so -3 gives 253, as through the 16-bit integer). Lanes
// left of column 0 or past the last get 0, lanes in the last column or on the
// last row copy p00. Pixel indices go through 32-bit lanes, so sources of
// 2^31 pixels or more, and the last n mod 4 pixels, take the reference.
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "register/bilinear_avx2.h"
#include "register/kernels.h"

void SampleBlockRowAvx2(const Image& source, int64_t bx, int64_t y, double wy, float ox,
                        int64_t first, int64_t n, unsigned char* out) {
  if (y < 0 || y >= source.height) {
    memset(out, 0, (size_t)n * 4);  // every pixel is empty
    return;
  }
  int64_t done = 0;
  if ((int64_t)source.width * source.height <= INT32_MAX) {
    const __m256d offset = _mm256_set1_pd((double)ox);
    const __m256d left = _mm256_set1_pd((double)bx);
    const __m256d width = _mm256_set1_pd((double)source.width);
    const __m256d lastX = _mm256_set1_pd((double)source.width - 1);
    const __m256d zero = _mm256_setzero_pd();
    const __m256d one = _mm256_set1_pd(1.0);
    const __m256d four = _mm256_set1_pd(4.0);
    const __m256d fy = _mm256_set1_pd(wy);
    const __m256d gy = _mm256_set1_pd(1 - wy);
    // On the last row every pixel inside is copied.
    const __m256d rowBlends = y <= (int64_t)source.height - 2 ? _mm256_castsi256_pd(_mm256_set1_epi64x(-1)) : zero;
    const __m256d row = _mm256_set1_pd((double)y);
    const uint32_t* pixels = (const uint32_t*)source.pixels;
    __m256d i = _mm256_setr_pd((double)first, (double)(first + 1), (double)(first + 2),
                               (double)(first + 3));
    for (; done + 4 <= n; done += 4, i = _mm256_add_pd(i, four)) {
      __m256d rx = _mm256_sub_pd(i, offset);
      __m256d whole = _mm256_round_pd(rx, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
      __m256d fx = _mm256_sub_pd(rx, whole);
      __m256d x = _mm256_add_pd(left, whole);
      __m256d inside = _mm256_and_pd(_mm256_cmp_pd(x, zero, _CMP_GE_OQ),
                                     _mm256_cmp_pd(x, width, _CMP_LT_OQ));
      __m256d blends = _mm256_and_pd(_mm256_and_pd(inside, rowBlends),
                                     _mm256_cmp_pd(x, lastX, _CMP_LT_OQ));
      FourCells cells = LoadCells(pixels, source.width, x, row, inside, blends);
      __m128i result = cells.p00;
      if (_mm256_movemask_pd(blends) != 0)
        result = BlendCells(cells, fx, _mm256_sub_pd(one, fx), fy, gy, blends);
      _mm_storeu_si128((__m128i*)(out + done * 4), result);
    }
  }
  SampleBlockRowReference(source, bx, y, wy, ox, first + done, n - done, out + done * 4);
}
