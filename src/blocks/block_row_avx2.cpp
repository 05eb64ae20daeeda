// AVX2 twin of SampleBlockRowReference (block_search_subpixel.cpp) and the
// FetchBlended rule it calls (block_sampling.cpp).
//
// Four pixels at a time with the reference's operations in its order:
// rx = i - ox, its whole part by truncation, wx = rx - whole; the blend of
// each byte ((p00 (1 - wx)) (1 - wy) + (p10 wx) (1 - wy)) + (p01 (1 - wx)) wy
// + (p11 wx) wy in double, truncated to an integer whose low 8 bits are kept
// (two's complement, so -3 gives 253, as through the 16-bit integer). Lanes
// left of column 0 or past the last get 0, lanes in the last column or on the
// last row copy p00. Pixels come through masked gathers with 32-bit indices,
// so sources of 2^31 pixels or more, and the last n mod 4 pixels, take the
// reference.
#include <immintrin.h>

#include <cstdint>

#include "register/kernels.h"

static inline __m256d Channel(__m128i pixels, int k) {
  __m128i bytes = _mm_and_si128(_mm_srli_epi32(pixels, 8 * k), _mm_set1_epi32(0xFF));
  return _mm256_cvtepi32_pd(bytes);
}

static inline __m128i Narrow(__m256d mask) {
  const __m256i evenLanes = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  return _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_castpd_si256(mask), evenLanes));
}

void SampleBlockRowAvx2(const Image& source, int64_t bx, int64_t y, double wy, float ox,
                        int64_t first, int64_t n, unsigned char* out) {
  int64_t done = 0;
  bool rowInside = y >= 0 && y < source.height;
  if (!rowInside) {
    for (; done < n; done++) ((uint32_t*)out)[done] = 0;  // every pixel is empty
    return;
  }
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
    const __m128i rowStart = _mm_set1_epi32((int32_t)(y * source.width));
    const __m128i right = _mm_set1_epi32(1);
    const __m128i down = _mm_set1_epi32(source.width);
    const int* pixels = (const int*)source.pixels;
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
      __m128i insideMask = Narrow(inside);
      __m128i blendMask = Narrow(blends);
      // Lanes outside may hold any index: the masked gathers do not read them.
      __m128i index = _mm_add_epi32(rowStart, _mm256_cvttpd_epi32(_mm256_and_pd(x, inside)));
      __m128i p00 = _mm_mask_i32gather_epi32(_mm_setzero_si128(), pixels, index, insideMask, 4);
      if (_mm_testz_si128(blendMask, blendMask)) {
        _mm_storeu_si128((__m128i*)(out + done * 4), p00);
        continue;
      }
      __m128i p10 = _mm_mask_i32gather_epi32(_mm_setzero_si128(), pixels,
                                             _mm_add_epi32(index, right), blendMask, 4);
      __m128i below = _mm_add_epi32(index, down);
      __m128i p01 = _mm_mask_i32gather_epi32(_mm_setzero_si128(), pixels, below, blendMask, 4);
      __m128i p11 = _mm_mask_i32gather_epi32(_mm_setzero_si128(), pixels,
                                             _mm_add_epi32(below, right), blendMask, 4);
      __m256d gx = _mm256_sub_pd(one, fx);
      __m128i blended = _mm_setzero_si128();
      for (int k = 0; k < 4; k++) {
        __m256d value = _mm256_mul_pd(_mm256_mul_pd(Channel(p00, k), gx), gy);
        value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(Channel(p10, k), fx), gy));
        value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(Channel(p01, k), gx), fy));
        value = _mm256_add_pd(value, _mm256_mul_pd(_mm256_mul_pd(Channel(p11, k), fx), fy));
        __m128i byte = _mm_and_si128(_mm256_cvttpd_epi32(value), _mm_set1_epi32(0xFF));
        blended = _mm_or_si128(blended, _mm_slli_epi32(byte, 8 * k));
      }
      _mm_storeu_si128((__m128i*)(out + done * 4), _mm_blendv_epi8(p00, blended, blendMask));
    }
  }
  SampleBlockRowReference(source, bx, y, wy, ox, first + done, n - done, out + done * 4);
}
