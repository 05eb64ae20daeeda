// AVX2 twin of SumPairsReference (match_score.cpp): the same three integer
// sums, eight pairs at a time.
//
// Method: the channel differences are widened to 16 bits and the green and
// red ones doubled, so one multiply-add of the differences with themselves
// gives db^2 + (2 dg)^2 and (2 dr)^2 + 0 in 32-bit lanes, and one horizontal
// add gives v per pixel. Empty pairs (weight 0 on either side) have v cleared
// and are counted. S1 and S2 are kept in 64-bit lanes: v < 2^20 and
// v^2 < 2^39, and a run has at most 2^24 pairs, 2^21 per lane, so no lane
// passes 2^61. Four of the last n mod 8 pairs go through the low halves of
// the registers, the rest take the reference.
#include <immintrin.h>

#include "register/kernels.h"

static inline uint64_t SumLanes(__m256i lanes) {
  __m128i half = _mm_add_epi64(_mm256_castsi256_si128(lanes), _mm256_extracti128_si256(lanes, 1));
  return (uint64_t)_mm_cvtsi128_si64(half) + (uint64_t)_mm_extract_epi64(half, 1);
}

// All ones in the 32-bit lane of each pair with an empty pixel.
static inline __m256i EmptyPairs(__m256i p, __m256i q, __m256i zero, __m256i weightByte) {
  return _mm256_or_si256(_mm256_cmpeq_epi32(_mm256_and_si256(p, weightByte), zero),
                         _mm256_cmpeq_epi32(_mm256_and_si256(q, weightByte), zero));
}

// v of each pair, in the pair's 32-bit lane.
static inline __m256i PairValues(__m256i p, __m256i q, __m256i zero, __m256i channelScale) {
  __m256i dLow = _mm256_sub_epi16(_mm256_unpacklo_epi8(q, zero), _mm256_unpacklo_epi8(p, zero));
  __m256i dHigh = _mm256_sub_epi16(_mm256_unpackhi_epi8(q, zero), _mm256_unpackhi_epi8(p, zero));
  dLow = _mm256_mullo_epi16(dLow, channelScale);
  dHigh = _mm256_mullo_epi16(dHigh, channelScale);
  // Pixels 0, 1 of each 128-bit half come from dLow, 2, 3 from dHigh: the
  // horizontal add puts v back in pixel order.
  return _mm256_hadd_epi32(_mm256_madd_epi16(dLow, dLow), _mm256_madd_epi16(dHigh, dHigh));
}

void SumPairsAvx2(const unsigned char* a, const unsigned char* b, int64_t n, PairSums* sums) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i weightByte = _mm256_set1_epi32((int)0xFF000000u);
  const __m256i channelScale = _mm256_setr_epi16(1, 2, 2, 0, 1, 2, 2, 0, 1, 2, 2, 0, 1, 2, 2, 0);
  const __m256i low32 = _mm256_set1_epi64x(0xFFFFFFFF);
  __m256i s1 = zero, s2 = zero, empty = zero;
  int64_t i = 0;
  for (; i + 8 <= n; i += 8) {
    __m256i p = _mm256_loadu_si256((const __m256i*)(a + i * 4));
    __m256i q = _mm256_loadu_si256((const __m256i*)(b + i * 4));
    __m256i emptyPair = EmptyPairs(p, q, zero, weightByte);
    __m256i v = _mm256_andnot_si256(emptyPair, PairValues(p, q, zero, channelScale));
    empty = _mm256_sub_epi32(empty, emptyPair);
    __m256i vOdd = _mm256_srli_epi64(v, 32);
    s1 = _mm256_add_epi64(s1, _mm256_add_epi64(_mm256_and_si256(v, low32), vOdd));
    s2 = _mm256_add_epi64(s2, _mm256_add_epi64(_mm256_mul_epu32(v, v), _mm256_mul_epu32(vOdd, vOdd)));
  }
  // Four more pairs in the low halves: short runs (the rows of a block patch)
  // leave less to the scalar tail.
  if (i + 4 <= n) {
    __m256i p = _mm256_set_m128i(_mm_setzero_si128(), _mm_loadu_si128((const __m128i*)(a + i * 4)));
    __m256i q = _mm256_set_m128i(_mm_setzero_si128(), _mm_loadu_si128((const __m128i*)(b + i * 4)));
    __m256i v = PairValues(p, q, zero, channelScale);
    __m256i emptyPair = EmptyPairs(p, q, zero, weightByte);
    const __m256i lowHalf = _mm256_setr_epi32(-1, -1, -1, -1, 0, 0, 0, 0);
    v = _mm256_and_si256(_mm256_andnot_si256(emptyPair, v), lowHalf);
    empty = _mm256_sub_epi32(empty, _mm256_and_si256(emptyPair, lowHalf));
    __m256i vOdd = _mm256_srli_epi64(v, 32);
    s1 = _mm256_add_epi64(s1, _mm256_add_epi64(_mm256_and_si256(v, low32), vOdd));
    s2 = _mm256_add_epi64(s2, _mm256_add_epi64(_mm256_mul_epu32(v, v), _mm256_mul_epu32(vOdd, vOdd)));
    i += 4;
  }
  PairSums tail;
  SumPairsReference(a + i * 4, b + i * 4, n - i, &tail);
  sums->s1 = SumLanes(s1) + tail.s1;
  sums->s2 = SumLanes(s2) + tail.s2;
  // Each 32-bit counter holds at most 2^21.
  sums->empty = SumLanes(_mm256_add_epi64(_mm256_and_si256(empty, low32), _mm256_srli_epi64(empty, 32))) +
                tail.empty;
}
