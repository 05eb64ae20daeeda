// SSE2 twin of SumPairsReference (match_score.cpp): the same three integer
// sums, four pairs at a time, for processors without AVX2.
//
// Method as in the AVX2 twin: 16-bit differences, green and red doubled, one
// multiply-add for db^2 + (2 dg)^2 and (2 dr)^2, the two halves of v joined by
// shuffles (SSE2 has no horizontal add), empty pairs cleared and counted, S1
// and S2 in 64-bit lanes (at most 2^22 pairs a lane, each v^2 < 2^39). The
// last n mod 4 pairs take the reference.
#include <emmintrin.h>

#include "register/kernels.h"

static inline uint64_t SumLanes(__m128i lanes) {
  uint64_t values[2];
  _mm_storeu_si128((__m128i*)values, lanes);
  return values[0] + values[1];
}

void SumPairsSse2(const unsigned char* a, const unsigned char* b, int64_t n, PairSums* sums) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i weightByte = _mm_set1_epi32((int)0xFF000000u);
  const __m128i channelScale = _mm_setr_epi16(1, 2, 2, 0, 1, 2, 2, 0);
  const __m128i low32 = _mm_set_epi32(0, -1, 0, -1);
  __m128i s1 = zero, s2 = zero, empty = zero;
  int64_t i = 0;
  for (; i + 4 <= n; i += 4) {
    __m128i p = _mm_loadu_si128((const __m128i*)(a + i * 4));
    __m128i q = _mm_loadu_si128((const __m128i*)(b + i * 4));
    __m128i emptyPair = _mm_or_si128(_mm_cmpeq_epi32(_mm_and_si128(p, weightByte), zero),
                                     _mm_cmpeq_epi32(_mm_and_si128(q, weightByte), zero));
    __m128i dLow = _mm_sub_epi16(_mm_unpacklo_epi8(q, zero), _mm_unpacklo_epi8(p, zero));
    __m128i dHigh = _mm_sub_epi16(_mm_unpackhi_epi8(q, zero), _mm_unpackhi_epi8(p, zero));
    dLow = _mm_mullo_epi16(dLow, channelScale);
    dHigh = _mm_mullo_epi16(dHigh, channelScale);
    __m128 low = _mm_castsi128_ps(_mm_madd_epi16(dLow, dLow));     // pixels 0, 1: two halves each
    __m128 high = _mm_castsi128_ps(_mm_madd_epi16(dHigh, dHigh));  // pixels 2, 3
    __m128i v = _mm_add_epi32(_mm_castps_si128(_mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0))),
                              _mm_castps_si128(_mm_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1))));
    v = _mm_andnot_si128(emptyPair, v);
    empty = _mm_sub_epi32(empty, emptyPair);
    __m128i vOdd = _mm_srli_epi64(v, 32);
    s1 = _mm_add_epi64(s1, _mm_add_epi64(_mm_and_si128(v, low32), vOdd));
    s2 = _mm_add_epi64(s2, _mm_add_epi64(_mm_mul_epu32(v, v), _mm_mul_epu32(vOdd, vOdd)));
  }
  PairSums tail;
  SumPairsReference(a + i * 4, b + i * 4, n - i, &tail);
  sums->s1 = SumLanes(s1) + tail.s1;
  sums->s2 = SumLanes(s2) + tail.s2;
  // Each 32-bit counter holds at most 2^22.
  sums->empty = SumLanes(_mm_add_epi64(_mm_and_si128(empty, low32), _mm_srli_epi64(empty, 32))) +
                tail.empty;
}
